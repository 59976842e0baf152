// The one place where the geometry data touches OpenVDB's grid templates:
// creating grids by VolumeType, deep copies, type codes and bounds. Kept apart
// so that only this file pays for the OpenVDB headers.
#include "geo/gridutil.h"

#include <algorithm>

#include <openvdb/openvdb.h>

#include "geo/attribtypes.h"

GridBasePtr makeGrid(int volumeType, const std::string& name)
{
    GridBasePtr grid;
    openvdb::VecType vecType = openvdb::VEC_INVARIANT;
    switch (volumeType) {
    case VOLUME_BOOL:
        grid = openvdb::BoolGrid::create(false);
        break;
    case VOLUME_INT:
        grid = openvdb::Int32Grid::create(0);
        break;
    case VOLUME_FLOAT:
        grid = openvdb::FloatGrid::create(0.f);
        break;
    case VOLUME_VEC3:
    case VOLUME_VEC3_UNKNOWN:
        break;
    case VOLUME_VEC3_ABSOLUTE:
        vecType = openvdb::VEC_CONTRAVARIANT_ABSOLUTE;
        break;
    case VOLUME_VEC3_NORMALIZE:
        vecType = openvdb::VEC_COVARIANT_NORMALIZE;
        break;
    case VOLUME_VEC3_RELATIVE:
        vecType = openvdb::VEC_CONTRAVARIANT_RELATIVE;
        break;
    default:
        return nullptr;
    }
    if (!grid) {
        grid = openvdb::Vec3SGrid::create(openvdb::Vec3s(0.f));
        grid->setVectorType(vecType);
    }
    grid->setName(name);
    return grid;
}

GridBasePtr deepCopyGrid(const GridBasePtr& grid)
{
    return grid ? grid->deepCopyGrid() : nullptr;
}

GridBasePtr findGrid(const VolumeData& volumes, const std::vector<std::string>& names)
{
    for (const std::string& name : names)
        if (GridBasePtr grid = volumes.volume(name)) return grid;
    return nullptr;
}

int volumeTypeFromVecType(int vecType)
{
    switch (vecType) {
    case openvdb::VEC_INVARIANT:
    case openvdb::VEC_COVARIANT:
        return VOLUME_VEC3;
    case openvdb::VEC_COVARIANT_NORMALIZE:
        return VOLUME_VEC3_NORMALIZE;
    case openvdb::VEC_CONTRAVARIANT_RELATIVE:
        return VOLUME_VEC3_RELATIVE;
    case openvdb::VEC_CONTRAVARIANT_ABSOLUTE:
        return VOLUME_VEC3_ABSOLUTE;
    default:
        return VOLUME_VEC3_UNKNOWN;
    }
}

int volumeTypeOfGrid(const openvdb::GridBase& grid)
{
    if (grid.isType<openvdb::BoolGrid>()) return VOLUME_BOOL;
    if (grid.isType<openvdb::Int32Grid>()) return VOLUME_INT;
    if (grid.isType<openvdb::FloatGrid>()) return VOLUME_FLOAT;
    if (grid.isType<openvdb::Vec3SGrid>()) return volumeTypeFromVecType(grid.getVectorType());
    return -1;
}

bool gridWorldBounds(const openvdb::GridBase& grid, Vec4f& min, Vec4f& max)
{
    const openvdb::CoordBBox box = grid.evalActiveVoxelBoundingBox();
    if (box.empty()) return false;
    const openvdb::Vec3d lo = box.min().asVec3d(), hi = box.max().asVec3d();
    bool first = true;
    for (int corner = 0; corner < 8; ++corner) {
        const openvdb::Vec3d c((corner & 1) ? hi.x() : lo.x(), (corner & 2) ? hi.y() : lo.y(),
                               (corner & 4) ? hi.z() : lo.z());
        const openvdb::Vec3d w = grid.transform().indexToWorld(c);
        const Vec4f p(float(w.x()), float(w.y()), float(w.z()));
        if (first) {
            min = max = p;
            first = false;
        } else {
            min = Vec4f(std::min(min.x, p.x), std::min(min.y, p.y), std::min(min.z, p.z), min.w);
            max = Vec4f(std::max(max.x, p.x), std::max(max.y, p.y), std::max(max.z, p.z), max.w);
        }
    }
    return true;
}
