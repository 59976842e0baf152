// Points and meshes into level sets: ParticlesToLevelSet and meshToVolume, with the
// point attributes carried into grids through the closest particle or polygon per voxel.
#include "nodes/levelsetops.h"

#include "geo/attribtypes.h"
#include "geo/body.h"
#include "geo/gridutil.h"

#include <openvdb/openvdb.h>
#include <openvdb/tools/LevelSetRebuild.h>
#include <openvdb/tools/LevelSetUtil.h>
#include <openvdb/tools/MeshToVolume.h>
#include <openvdb/tools/ParticlesToLevelSet.h>
#include <openvdb/tools/ValueTransformer.h>

#include <cmath>
#include <cstdio>

namespace {

// The points of a PointData as ParticlesToLevelSet reads them, without copying, with the
// particle's index as the attribute so that each voxel learns its closest particle.
struct ParticleView {
    using PosType = openvdb::Vec3R;
    const PointData& pd;

    size_t size() const { return pd.size(); }
    void getPos(size_t n, openvdb::Vec3R& xyz) const { pd.getPos(n, xyz); }
    void getPosRad(size_t n, openvdb::Vec3R& xyz, openvdb::Real& rad) const { pd.getPosRad(n, xyz, rad); }
    void getAtt(size_t n, openvdb::Index32& att) const { att = openvdb::Index32(n); }
};

// Fills `sdf` from the particles; with `radiusPerPoint` each particle's own radius, else
// one radius for all, which ParticlesToLevelSet drops as a whole when it is out of range.
template <class Raster> void rasterize(Raster& raster, const ParticleView& view, bool radiusPerPoint, float radius)
{
    raster.setGrainSize(10);
    if (radiusPerPoint)
        raster.rasterizeSpheres(view);
    else
        raster.rasterizeSpheres(view, openvdb::Real(radius));
    raster.finalize();
}

int vecTypeForAttrib(int type)
{
    switch (type) {
    case ATTRIB_POSITION: return openvdb::VEC_CONTRAVARIANT_ABSOLUTE;
    case ATTRIB_VELOCITY: return openvdb::VEC_CONTRAVARIANT_RELATIVE;
    case ATTRIB_NORMAL: return openvdb::VEC_COVARIANT_NORMALIZE;
    default: return openvdb::VEC_INVARIANT;
    }
}

// A grid with the index grid's active voxels, each set from the point `pointOf` gives.
template <class GridT, class IndexGridT, class PointOf, class Value>
typename GridT::Ptr gridFromIndex(const IndexGridT& index, PointOf pointOf, Value value)
{
    using V = typename GridT::ValueType;
    typename GridT::Ptr grid = GridT::create(V(openvdb::zeroVal<V>()));
    grid->setTransform(index.transform().copy());
    grid->tree().topologyUnion(index.tree());
    struct Op {
        typename IndexGridT::ConstAccessor acc;
        PointOf pointOf;
        Value value;
        void operator()(const typename GridT::ValueOnIter& it) const
        {
            const openvdb::Coord c = it.getCoord();
            it.setValue(value(pointOf(c, acc.getValue(c))));
        }
    };
    openvdb::tools::foreach(grid->beginValueOn(), Op{index.getConstAccessor(), pointOf, value}, true, false);
    return grid;
}

// One grid per word of `attribs` that names a point attribute, valued from the point that
// `pointOf(coord, indexValue)` picks for each active voxel of `index`.
template <class IndexGridT, class PointOf>
void attribGrids(Body& out, const PointData& pts, const std::string& attribs, const IndexGridT& index,
                 PointOf pointOf)
{
    for (const std::string& name : splitWords(attribs)) {
        const int type = pts.attribType(name);
        const void* array = pts.attrib(name);
        if (!array || pts.size() == 0) continue;
        GridBasePtr grid;
        int volumeType = -1;
        if (type == ATTRIB_INT) {
            const auto& a = *static_cast<const IntArray*>(array);
            grid = gridFromIndex<openvdb::Int32Grid>(index, pointOf, [&a](size_t p) { return a[p]; });
            volumeType = VOLUME_INT;
        } else if (type == ATTRIB_FLOAT) {
            const auto& a = *static_cast<const FloatArray*>(array);
            grid = gridFromIndex<openvdb::FloatGrid>(index, pointOf, [&a](size_t p) { return a[p]; });
            volumeType = VOLUME_FLOAT;
            if (name == "density" || name == "fog" || name == "smoke")
                grid->setGridClass(openvdb::GRID_FOG_VOLUME);
            else if (name == "distance" || name == "surface")
                grid->setGridClass(openvdb::GRID_LEVEL_SET);
        } else if (type == ATTRIB_BOOL) {
            const auto& a = *static_cast<const BitArray*>(array);
            grid = gridFromIndex<openvdb::BoolGrid>(index, pointOf, [&a](size_t p) { return a.get(p); });
            volumeType = VOLUME_BOOL;
        } else if (type >= ATTRIB_VECTOR && type <= ATTRIB_NORMAL) {
            const auto& a = *static_cast<const VecArray*>(array);
            grid = gridFromIndex<openvdb::Vec3SGrid>(
                index, pointOf, [&a](size_t p) { return openvdb::Vec3s(a[p].x, a[p].y, a[p].z); });
            const int vecType = vecTypeForAttrib(type);
            if (type == ATTRIB_VECTOR || type == ATTRIB_COLOR) std::printf("warning: vector type ambigious.\n");
            grid->setVectorType(openvdb::VecType(vecType));
            volumeType = volumeTypeFromVecType(vecType);
        }
        if (!grid) continue;
        grid->setName(name);
        out.volumes->setVolume(name, volumeType, grid);
    }
}

// Finishes a level set: optional sign flip, then either the distance grid or, with
// makeFog, the 0..1 `density` grid.
void storeLevelSet(Body& out, openvdb::FloatGrid::Ptr grid, bool makeFog, bool invert)
{
    if (invert) invertGrid(grid);
    if (makeFog) {
        levelSetToFog(grid);
        grid->setName("density");
        out.volumes->setVolume("density", VOLUME_FLOAT, grid);
    } else {
        grid->setGridClass(openvdb::GRID_LEVEL_SET);
        grid->setName("distance");
        out.volumes->setVolume("distance", VOLUME_FLOAT, grid);
    }
}

bool hasAttribWords(const PointData& pts, const std::string& attribs)
{
    for (const std::string& word : splitWords(attribs))
        if (pts.attrib(word)) return true;
    return false;
}

} // namespace

int pointsToVolume(Body& out, Body& in, float voxelSize, float radius, int sdfBand, bool makeFog, bool invert,
                   const std::string& scaleByAttrib, const std::string& attribs)
{
    if (!(voxelSize > 0.f) || !std::isfinite(voxelSize)) return -1;
    PointData& pts = *in.points;
    const FloatArray* perPoint = nullptr;
    if (!scaleByAttrib.empty() && pts.attribType(scaleByAttrib) == ATTRIB_FLOAT)
        perPoint = static_cast<const FloatArray*>(pts.attrib(scaleByAttrib));
    pts.radiusAttrib = perPoint;
    pts.radius = radius;
    const ParticleView view{pts};

    openvdb::FloatGrid::Ptr grid = openvdb::createLevelSet<openvdb::FloatGrid>(voxelSize);
    grid->setTransform(openvdb::math::Transform::createLinearTransform(voxelSize));
    grid->setGridClass(openvdb::GRID_LEVEL_SET);
    grid->setName("distance");

    using IndexGrid = openvdb::Grid<openvdb::UInt32Tree>;
    IndexGrid::Ptr closest;
    if (pts.size() > 0 && hasAttribWords(pts, attribs)) {
        openvdb::tools::ParticlesToLevelSet<openvdb::FloatGrid, openvdb::Index32> raster(*grid);
        rasterize(raster, view, perPoint != nullptr, radius);
        closest = raster.attributeGrid();
    } else if (pts.size() > 0) {
        openvdb::tools::ParticlesToLevelSet<openvdb::FloatGrid> raster(*grid);
        rasterize(raster, view, perPoint != nullptr, radius);
    }
    pts.radiusAttrib = nullptr;

    const float band = float(std::max(1, sdfBand));
    openvdb::FloatGrid::Ptr rebuilt = openvdb::tools::levelSetRebuild(*grid, 0.f, band, band);
    rebuilt->setTransform(grid->transform().copy());
    storeLevelSet(out, rebuilt, makeFog, invert);

    if (closest)
        attribGrids(out, pts, attribs, *closest,
                    [](const openvdb::Coord&, openvdb::Index32 p) { return size_t(p); });
    return 0;
}

int meshToVolume(Body& out, const Body& in, const MeshToVolumeSettings& s)
{
    if (!(s.voxelSize > 0.f) || !std::isfinite(s.voxelSize)) return -1;
    const openvdb::math::Transform::Ptr xform = openvdb::math::Transform::createLinearTransform(s.voxelSize);
    const PointData& pts = *in.points;

    // Positions in index space, as the mesh adapter expects them.
    std::vector<openvdb::Vec3s> points(pts.size());
    for (size_t i = 0; i < pts.size(); ++i) {
        const openvdb::Vec3d p = xform->worldToIndex(openvdb::Vec3d(pts.P[i].x, pts.P[i].y, pts.P[i].z));
        points[i] = openvdb::Vec3s(float(p.x()), float(p.y()), float(p.z()));
    }
    std::vector<openvdb::Vec4I> polys;
    std::vector<uint32_t> primOf; // polygon -> primitive, for the attribute grids
    const auto& lists = in.vertices->indices;
    for (size_t p = 0; p < lists.size(); ++p) {
        const auto& l = lists[p];
        if (l.size() != 3 && l.size() != 4) continue;
        bool inside = true;
        for (uint32_t v : l) inside = inside && v < pts.size();
        if (!inside) continue;
        polys.emplace_back(l[0], l[1], l[2], l.size() == 4 ? l[3] : openvdb::util::INVALID_IDX);
        primOf.push_back(uint32_t(p));
    }
    if (polys.empty()) return -1;

    openvdb::tools::QuadAndTriangleDataAdapter<openvdb::Vec3s, openvdb::Vec4I> mesh(points, polys);
    openvdb::Int32Grid::Ptr polygonIndex;
    const bool wantAttribs = hasAttribWords(pts, s.attribs);
    if (wantAttribs) polygonIndex = openvdb::Int32Grid::create(0);
    openvdb::util::NullInterrupter interrupter;
    const int flags = s.shell ? openvdb::tools::UNSIGNED_DISTANCE_FIELD : 0;
    openvdb::FloatGrid::Ptr grid = openvdb::tools::meshToVolume<openvdb::FloatGrid>(
        interrupter, mesh, *xform, std::max(1.f, s.exteriorBand), std::max(1.f, s.interiorBand), flags,
        polygonIndex.get());
    grid->setGridClass(openvdb::GRID_LEVEL_SET);
    if (s.shell) levelSetOffset(grid, -s.shellThickness);
    levelSetOffset(grid, -s.pushOut);
    storeLevelSet(out, grid, s.makeFog, s.invert);

    if (polygonIndex) {
        polygonIndex->setTransform(xform->copy());
        // The corner of the closest polygon that lies nearest the voxel.
        auto pointOf = [&](const openvdb::Coord& c, int32_t poly) {
            const auto& l = lists[primOf[size_t(std::max(0, poly)) % primOf.size()]];
            const openvdb::Vec3s at(float(c.x()), float(c.y()), float(c.z()));
            size_t best = l[0];
            float bestD = (points[l[0]] - at).lengthSqr();
            for (uint32_t v : l) {
                const float d = (points[v] - at).lengthSqr();
                if (d < bestD) {
                    bestD = d;
                    best = v;
                }
            }
            return best;
        };
        attribGrids(out, pts, s.attribs, *polygonIndex, pointOf);
    }
    return 0;
}
