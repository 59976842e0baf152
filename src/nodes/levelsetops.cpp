// Level-set filtering, offsetting and meshing over OpenVDB, and finding grids by kind.
#include "nodes/levelsetops.h"

#include "geo/attribtypes.h"
#include "geo/body.h"
#include "geo/gridutil.h"

#include <openvdb/openvdb.h>
#include <openvdb/tools/LevelSetFilter.h>
#include <openvdb/tools/LevelSetUtil.h>
#include <openvdb/tools/VolumeToMesh.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <sstream>

namespace {

openvdb::FloatGrid::Ptr asFloat(const GridBasePtr& grid)
{
    return openvdb::gridPtrCast<openvdb::FloatGrid>(grid);
}

} // namespace

std::vector<std::string> splitWords(const std::string& text)
{
    std::vector<std::string> words;
    std::istringstream in(text);
    std::string word;
    while (in >> word) words.push_back(word);
    return words;
}

const std::vector<std::string>& gridKindNames(GridKind kind)
{
    static const std::vector<std::string> names[] = {
        {"density", "fog"}, {"velocity", "vel"}, {"temperature", "temp", "heat"}, {"fuel"}, {"distance", "surface"}};
    return names[int(kind)];
}

GridBasePtr findGridKind(const VolumeData& volumes, GridKind kind, std::string* key)
{
    for (const std::string& name : gridKindNames(kind))
        if (GridBasePtr grid = volumes.volume(name)) {
            if (key) *key = name;
            return grid;
        }
    return nullptr;
}

GridBasePtr findDistanceGrid(const VolumeData& volumes, std::string* key)
{
    for (const std::string& name : gridKindNames(GridKind::Distance)) {
        GridBasePtr grid = volumes.volume(name);
        if (grid && grid->isType<openvdb::FloatGrid>()) {
            if (key) *key = name;
            return grid;
        }
    }
    return nullptr;
}

int filterLevelSet(const GridBasePtr& grid, int type, int width, int iterations, float strength,
                   const GridBasePtr& mask)
{
    openvdb::FloatGrid::Ptr sdf = asFloat(grid);
    if (!sdf) return -1;
    strength = std::clamp(strength, 0.f, 1.f);
    if (strength <= 0.f) return 0;
    const openvdb::FloatGrid::Ptr maskGrid = asFloat(mask);
    // The filter may move the narrow band, so the blend reads the old values by coordinate.
    openvdb::FloatGrid::Ptr before = strength < 1.f ? sdf->deepCopy() : nullptr;

    try {
        openvdb::tools::LevelSetFilter<openvdb::FloatGrid, openvdb::FloatGrid> filter(*sdf);
        filter.setMaskRange(0.f, 1.f);
        const openvdb::FloatGrid* m = maskGrid.get();
        width = std::max(1, width);
        for (int i = 0; i < std::max(1, iterations); ++i) {
            switch (type) {
            case 1: filter.mean(width, m); break;
            case 2: filter.median(width, m); break;
            case 3: filter.laplacian(m); break;
            default: filter.gaussian(width, m); break;
            }
        }
    } catch (const openvdb::Exception& e) { // not a level set, or voxels that aren't cubes
        std::printf("level set filter: %s\n", e.what());
        return -1;
    }
    if (before) {
        auto old = before->getConstAccessor();
        for (auto it = sdf->beginValueOn(); it; ++it) {
            const float o = old.getValue(it.getCoord());
            it.setValue(o + strength * (*it - o));
        }
    }
    return 0;
}

int levelSetOffset(const GridBasePtr& grid, float amount)
{
    openvdb::FloatGrid::Ptr sdf = asFloat(grid);
    if (!sdf) return -1;
    if (amount == 0.f || !std::isfinite(amount)) return 0;
    try {
        openvdb::tools::LevelSetFilter<openvdb::FloatGrid> filter(*sdf);
        filter.offset(amount);
    } catch (const openvdb::Exception& e) {
        std::printf("level set offset: %s\n", e.what());
        return -1;
    }
    return 0;
}

int levelSetToFog(const GridBasePtr& grid)
{
    openvdb::FloatGrid::Ptr sdf = asFloat(grid);
    if (!sdf) return -1;
    openvdb::tools::sdfToFogVolume(*sdf, 3.4028235e38f);
    sdf->setGridClass(openvdb::GRID_FOG_VOLUME);
    return 0;
}

int invertGrid(const GridBasePtr& grid)
{
    openvdb::FloatGrid::Ptr g = asFloat(grid);
    if (!g) return -1;
    const float background = g->background();
    for (auto it = g->beginValueAll(); it; ++it) it.setValue(-*it);
    g->tree().root().setBackground(-background, false);
    return 0;
}

namespace {

// Nearest-voxel values of a grid at the mesh points, into a point attribute.
template <class GridT, class Array, class Convert>
void sampleNearest(const GridT& grid, const VecArray& P, Array& out, Convert convert)
{
    auto acc = grid.getConstAccessor();
    const openvdb::math::Transform& xf = grid.transform();
    for (size_t i = 0; i < P.size(); ++i) {
        const openvdb::Vec3d ijk = xf.worldToIndex(openvdb::Vec3d(P[i].x, P[i].y, P[i].z));
        const openvdb::Coord c(int(std::floor(ijk.x() + 0.5)), int(std::floor(ijk.y() + 0.5)),
                               int(std::floor(ijk.z() + 0.5)));
        out[i] = convert(acc.getValue(c));
    }
}

} // namespace

void sampleGridToPoints(const GridBasePtr& grid, const std::string& name, PointData& pts)
{
    if (grid->isType<openvdb::FloatGrid>()) {
        pts.addAttrib(name, ATTRIB_FLOAT);
        auto* a = static_cast<FloatArray*>(pts.attrib(name));
        if (a && pts.attribType(name) == ATTRIB_FLOAT)
            sampleNearest(*asFloat(grid), pts.P, *a, [](float v) { return v; });
    } else if (grid->isType<openvdb::Int32Grid>()) {
        pts.addAttrib(name, ATTRIB_INT);
        auto* a = static_cast<IntArray*>(pts.attrib(name));
        if (a && pts.attribType(name) == ATTRIB_INT)
            sampleNearest(*openvdb::gridPtrCast<openvdb::Int32Grid>(grid), pts.P, *a,
                          [](int32_t v) { return v; });
    } else if (grid->isType<openvdb::Vec3SGrid>()) {
        pts.addAttrib(name, name == "v" ? ATTRIB_VELOCITY : ATTRIB_VECTOR);
        const int type = pts.attribType(name);
        auto* a = static_cast<VecArray*>(pts.attrib(name));
        if (a && type >= ATTRIB_VECTOR && type <= ATTRIB_NORMAL)
            sampleNearest(*openvdb::gridPtrCast<openvdb::Vec3SGrid>(grid), pts.P, *a,
                          [](const openvdb::Vec3s& v) { return Vec4f(v.x(), v.y(), v.z()); });
    }
}

int volumeToMeshBody(const Body& in, Body& out, float isoValue, float adaptivity, const std::string& attribs)
{
    openvdb::FloatGrid::Ptr grid;
    for (const char* name : {"distance", "surface", "density", "dens", "fog"}) {
        grid = asFloat(in.volumes->volume(name));
        if (grid) break;
    }
    if (!grid) return -1;

    std::vector<openvdb::Vec3s> points;
    std::vector<openvdb::Vec3I> triangles;
    std::vector<openvdb::Vec4I> quads;
    openvdb::tools::volumeToMesh(*grid, points, triangles, quads, double(isoValue),
                                 double(std::clamp(adaptivity, 0.f, 1.f)));

    PointData& pts = *out.points;
    const uint32_t base = uint32_t(pts.size());
    pts.resizePoints(pts.size() + points.size());
    for (size_t i = 0; i < points.size(); ++i)
        pts.P[base + i] = Vec4f(points[i].x(), points[i].y(), points[i].z());
    VertexData& verts = *out.vertices;
    verts.indices.reserve(verts.indices.size() + quads.size() + triangles.size());
    for (const openvdb::Vec4I& q : quads) {
        verts.addVertexList({base + q[0], base + q[1], base + q[2], base + q[3]});
        out.prims->addPrim(PrimData::POLYGON);
    }
    for (const openvdb::Vec3I& t : triangles) {
        verts.addVertexList({base + t[0], base + t[1], base + t[2]});
        out.prims->addPrim(PrimData::POLYGON);
    }

    for (const std::string& word : splitWords(attribs)) {
        const std::string gridName = word == "v" ? "velocity" : word;
        if (GridBasePtr g = in.volumes->volume(gridName)) sampleGridToPoints(g, word, pts);
    }
    out.updateCounts();
    out.rebuildPointPrims();
    return 0;
}
