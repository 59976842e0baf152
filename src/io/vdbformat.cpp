#include "io/vdbformat.h"

#include "geo/attribtypes.h"
#include "geo/body.h"
#include "geo/gridutil.h"

#include <openvdb/openvdb.h>

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <iostream>

namespace fileio {

namespace {

const char* const kKnownNames[] = {"surface", "distance", "density",     "fog",  "v",
                                   "vel",     "velocity", "temperature", "heat", "fuel"};

bool isVelocityName(const std::string& n)
{
    return n == "v" || n == "vel" || n == "velocity";
}

} // namespace

int readVdb(const std::string& path, Body& body)
{
    if (FILE* f = std::fopen(path.c_str(), "rb")) {
        std::fclose(f);
    } else {
        return -1;
    }
    openvdb::initialize();
    std::cout << "reading: " << path << "\n";
    try {
        openvdb::io::File file(path);
        file.open();
        for (auto it = file.beginName(); it != file.endName(); ++it) {
            const std::string name = it.gridName();
            if (std::find(std::begin(kKnownNames), std::end(kKnownNames), name) == std::end(kKnownNames)) {
                std::cout << "skipping grid " << name << "\n";
                continue;
            }
            openvdb::GridBase::Ptr grid = file.readGrid(name);
            if (!grid) continue;
            if (isVelocityName(name) && grid->isType<openvdb::Vec3SGrid>()) {
                int type = volumeTypeFromVecType(int(grid->getVectorType()));
                if (type == VOLUME_VEC3_UNKNOWN) {
                    std::cout << "warning: vector type ambigious.\n";
                    type = VOLUME_VEC3;
                }
                body.volumes->setVolume(name, type, grid);
            } else if (grid->isType<openvdb::FloatGrid>()) {
                body.volumes->setVolume(name, VOLUME_FLOAT, grid);
            }
        }
        file.close();
    } catch (const openvdb::Exception&) {
        std::cout << "vdb error.\n";
        return -1;
    }
    body.updateCounts();
    return 0;
}

int writeVdb(const std::string& path, const Body& body)
{
    std::cout << "writing " << path << "\n";
    openvdb::initialize();
    openvdb::GridPtrVec grids;
    const VolumeData& volumes = *body.volumes;
    for (size_t i = 0; i < volumes.names.size(); ++i) {
        const std::string& name = volumes.names[i];
        const int type = volumes.types[i];
        const GridBasePtr& grid = volumes.grids[i];
        if (!grid) continue;
        // the file holds its own copy of the metadata; the Body's grid keeps its name
        openvdb::GridBase::Ptr out = grid->copyGridWithNewTree();
        out->setTree(grid->baseTreePtr());
        if (type == VOLUME_FLOAT) {
            if (!out->isType<openvdb::FloatGrid>()) continue;
            out->setGridClass(name == "distance" || name == "surface" ? openvdb::GRID_LEVEL_SET
                                                                      : openvdb::GRID_FOG_VOLUME);
        } else if (type >= VOLUME_VEC3 && type <= VOLUME_VEC3_RELATIVE) {
            if (!out->isType<openvdb::Vec3SGrid>()) {
                std::cout << "couldn't get grid " << name << ".....\n";
                continue;
            }
        } else if (type == VOLUME_BOOL) {
            if (!out->isType<openvdb::BoolGrid>()) continue;
        } else if (type == VOLUME_INT) {
            if (!out->isType<openvdb::Int32Grid>()) continue;
        } else {
            continue;
        }
        out->setName(name);
        grids.push_back(out);
    }
    const std::string temp = path + ".tmp" + std::to_string(::getpid());
    {
        openvdb::io::File file(temp);
        try {
            file.write(grids);
            file.close();
        } catch (...) {
            std::remove(temp.c_str());
            throw;
        }
    }
    if (std::rename(temp.c_str(), path.c_str()) != 0) {
        std::remove(temp.c_str());
        std::cout << "could not write " << path << "\n";
        return -1;
    }
    return 0;
}

} // namespace fileio
