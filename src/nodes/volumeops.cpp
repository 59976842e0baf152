// The OpenVDB side of the volume nodes. Every function takes the light GridBasePtr, casts it
// to the concrete grid types it supports and answers null or -1 for the rest, so a node
// never needs more than volumeops.h. OpenVDB exceptions (grids that aren't proper level
// sets, non-uniform voxels) are caught here and reported as a failed call.
#include "nodes/volumeops.h"

#include "geo/body.h"
#include "geo/gridutil.h"

#include <openvdb/openvdb.h>
#include <openvdb/tools/Composite.h>
#include <openvdb/tools/GridOperators.h>
#include <openvdb/tools/GridTransformer.h>
#include <openvdb/tools/Interpolation.h>
#include <openvdb/tools/LevelSetFilter.h>
#include <openvdb/tools/LevelSetRebuild.h>
#include <openvdb/tools/ValueTransformer.h>
#include <openvdb/tree/LeafManager.h>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <type_traits>

using openvdb::FloatGrid;
using openvdb::Vec3SGrid;

namespace {

// `b` as a level set in a's index space: a deep copy when the transforms match, else
// rebuilt through a's transform with a's half width.
FloatGrid::Ptr levelSetInTransformOf(const FloatGrid& a, FloatGrid& b)
{
    if (a.transform() == b.transform()) return b.deepCopy();
    FloatGrid::Ptr source = b.copy(); // shares b's tree, so only the copy's class changes
    source->setGridClass(openvdb::GRID_LEVEL_SET);
    FloatGrid::Ptr out = FloatGrid::create(a.background());
    out->setTransform(a.transform().copy());
    out->setGridClass(openvdb::GRID_LEVEL_SET);
    openvdb::tools::resampleToMatch<openvdb::tools::BoxSampler>(*source, *out);
    return out;
}

template <class GridT> typename GridT::Ptr resampleTyped(GridT& in, float voxelSize, ResampleClass gridClass)
{
    using ValueT = typename GridT::ValueType;
    typename GridT::Ptr source = in.copy(); // shares in's tree; carries the class of the result
    if (gridClass == ResampleClass::LevelSet) source->setGridClass(openvdb::GRID_LEVEL_SET);
    if (gridClass == ResampleClass::Fog) source->setGridClass(openvdb::GRID_FOG_VOLUME);
    ValueT background = in.background();
    if constexpr (std::is_floating_point<ValueT>::value) {
        // a level set keeps its half width in voxels, so its background follows the voxel size
        if (source->getGridClass() == openvdb::GRID_LEVEL_SET)
            background = ValueT(double(in.background()) / in.voxelSize()[0] * double(voxelSize));
    }
    typename GridT::Ptr out = GridT::create(background);
    out->insertMeta(*source);
    out->setTransform(openvdb::math::Transform::createLinearTransform(double(voxelSize)));
    openvdb::tools::resampleToMatch<openvdb::tools::BoxSampler>(*source, *out);
    return out;
}

template <class GridT> void addTyped(GridT& a, GridT& b)
{
    typename GridT::Ptr source = b.copy();
    if (a.transform() != b.transform()) {
        // plain trilinear resampling, also for a grid marked as a level set
        source->setGridClass(openvdb::GRID_UNKNOWN);
        typename GridT::Ptr resampled = GridT::create(b.background());
        resampled->setTransform(a.transform().copy());
        openvdb::tools::resampleToMatch<openvdb::tools::BoxSampler>(*source, *resampled);
        source = resampled;
    }
    typename GridT::Accessor acc = a.getAccessor();
    for (auto it = source->cbeginValueOn(); it; ++it) {
        const typename GridT::ValueType value = *it;
        if (it.isVoxelValue()) {
            const openvdb::Coord c = it.getCoord();
            acc.setValue(c, acc.getValue(c) + value);
            continue;
        }
        openvdb::CoordBBox box;
        it.getBoundingBox(box);
        for (auto c = box.begin(); c; ++c) acc.setValue(*c, acc.getValue(*c) + value);
    }
}

template <class GridT> void scaleTyped(GridT& grid, float scale, const FloatGrid* mask)
{
    using ValueT = typename GridT::ValueType;
    if (!mask) {
        openvdb::tools::foreach (grid.beginValueOn(), [scale](const typename GridT::ValueOnIter& it) {
            it.setValue(*it * scale);
        });
        return;
    }
    // the mask varies per voxel, so tiles become voxels first
    grid.tree().voxelizeActiveTiles();
    openvdb::tree::LeafManager<typename GridT::TreeType> leaves(grid.tree());
    const openvdb::math::Transform& xform = grid.transform();
    const openvdb::math::Transform& maskXform = mask->transform();
    tbb::parallel_for(leaves.leafRange(), [&](const typename decltype(leaves)::LeafRange& range) {
        FloatGrid::ConstAccessor maskAcc = mask->getConstAccessor();
        for (auto leaf = range.begin(); leaf; ++leaf) {
            for (auto it = leaf->beginValueOn(); it; ++it) {
                const openvdb::Vec3d world = xform.indexToWorld(it.getCoord());
                const float m =
                    std::clamp(maskAcc.getValue(maskXform.worldToIndexCellCentered(world)), 0.f, 1.f);
                const ValueT value = *it;
                it.setValue(value * (1.f + (scale - 1.f) * m));
            }
        }
    });
}

inline Vec4f toVec4(float v)
{
    return Vec4f(v, 0.f, 0.f, 0.f);
}
inline Vec4f toVec4(const openvdb::Vec3s& v)
{
    return Vec4f(v.x(), v.y(), v.z(), 0.f);
}

template <class GridT>
void sampleTyped(const GridT& grid, const std::vector<Vec4f>& positions, std::vector<Vec4f>& values)
{
    values.assign(positions.size(), Vec4f(0.f, 0.f, 0.f, 0.f));
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, positions.size(), 1024), [&](const tbb::blocked_range<size_t>& r) {
            typename GridT::ConstAccessor acc = grid.getConstAccessor();
            openvdb::tools::GridSampler<typename GridT::ConstAccessor, openvdb::tools::BoxSampler> sampler(
                acc, grid.transform());
            for (size_t i = r.begin(); i != r.end(); ++i) {
                const Vec4f& p = positions[i];
                if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) continue;
                values[i] = toVec4(sampler.wsSample(openvdb::Vec3d(p.x, p.y, p.z)));
            }
        });
}

template <class GridT> int tileBoxesTyped(Body& body, const GridT& grid)
{
    int count = 0;
    const openvdb::math::Transform& xform = grid.transform();
    auto add = [&](const openvdb::CoordBBox& box) {
        // voxel centres sit on the integer coordinates, so the box reaches half a voxel further
        const openvdb::Vec3d lo = box.min().asVec3d() - openvdb::Vec3d(0.5);
        const openvdb::Vec3d hi = box.max().asVec3d() + openvdb::Vec3d(0.5);
        Vec4f corners[8];
        for (int c = 0; c < 8; ++c) {
            const openvdb::Vec3d w = xform.indexToWorld(openvdb::Vec3d(
                (c & 1) ? hi.x() : lo.x(), (c & 2) ? hi.y() : lo.y(), (c & 4) ? hi.z() : lo.z()));
            corners[c] = Vec4f(float(w.x()), float(w.y()), float(w.z()), 0.f);
        }
        appendBoxMesh(body, corners);
        ++count;
    };
    for (auto leaf = grid.tree().cbeginLeaf(); leaf; ++leaf) add(leaf->getNodeBoundingBox());
    for (auto it = grid.tree().cbeginValueOn(); it; ++it) {
        if (!it.isTileValue()) continue;
        openvdb::CoordBBox box;
        it.getBoundingBox(box);
        add(box);
    }
    return count;
}

} // namespace

const std::vector<std::string>& volumeKindMenu()
{
    static const std::vector<std::string> menu = {"Density", "Velocity", "Temperature", "Fuel"};
    return menu;
}

int storeGrid(VolumeData& volumes, const std::string& key, const GridBasePtr& grid)
{
    if (!grid) return -1;
    const int type = volumeTypeOfGrid(*grid);
    if (type < 0) return -1;
    grid->setName(key);
    volumes.setVolume(key, type, grid);
    return type;
}

GridBasePtr csgLevelSets(const GridBasePtr& a, const GridBasePtr& b, CsgOperation op, bool rebuild)
{
    FloatGrid::Ptr fa = openvdb::gridPtrCast<FloatGrid>(a);
    FloatGrid::Ptr fb = openvdb::gridPtrCast<FloatGrid>(b);
    if (!fa || !fb) return nullptr;
    try {
        FloatGrid::Ptr result = fa->deepCopy();
        FloatGrid::Ptr other = levelSetInTransformOf(*result, *fb);
        switch (op) {
        case CsgOperation::Union:
            openvdb::tools::csgUnion(*result, *other);
            break;
        case CsgOperation::Difference:
            openvdb::tools::csgDifference(*result, *other);
            break;
        case CsgOperation::Intersection:
            openvdb::tools::csgIntersection(*result, *other);
            break;
        }
        if (rebuild) {
            FloatGrid::Ptr rebuilt = openvdb::tools::levelSetRebuild(*result, 0.f, 3.f, 3.f);
            rebuilt->insertMeta(*result);
            rebuilt->setGridClass(openvdb::GRID_LEVEL_SET);
            result = rebuilt;
        }
        return result;
    } catch (const openvdb::Exception&) {
        return nullptr;
    }
}

GridBasePtr gradientGrid(const GridBasePtr& grid, bool normalize, float scale, const std::string& name)
{
    FloatGrid::Ptr f = openvdb::gridPtrCast<FloatGrid>(grid);
    if (!f) return nullptr;
    Vec3SGrid::Ptr g = openvdb::tools::gradient(*f);
    if (!g) return nullptr;
    if (normalize) {
        openvdb::tools::foreach (g->beginValueOn(), [](const Vec3SGrid::ValueOnIter& it) {
            const openvdb::Vec3s v = *it;
            const float length = v.length();
            if (length > 1e-12f) it.setValue(v / length);
        });
    }
    if (scale != 1.f)
        openvdb::tools::foreach (g->beginValueOn(),
                                 [scale](const Vec3SGrid::ValueOnIter& it) { it.setValue(*it * scale); });
    g->setName(name);
    g->setGridClass(openvdb::GRID_UNKNOWN);
    g->setVectorType(normalize ? openvdb::VEC_COVARIANT_NORMALIZE : openvdb::VEC_COVARIANT);
    return g;
}

GridBasePtr resampleGrid(const GridBasePtr& grid, float voxelSize, ResampleClass gridClass)
{
    if (!grid || !(voxelSize > 0.f)) return nullptr;
    try {
        if (FloatGrid::Ptr f = openvdb::gridPtrCast<FloatGrid>(grid))
            return resampleTyped(*f, voxelSize, gridClass);
        // a vector grid is never rebuilt as a level set
        if (gridClass == ResampleClass::LevelSet) gridClass = ResampleClass::Keep;
        if (Vec3SGrid::Ptr v = openvdb::gridPtrCast<Vec3SGrid>(grid))
            return resampleTyped(*v, voxelSize, gridClass);
    } catch (const openvdb::Exception&) {
    }
    return nullptr;
}

int addGridInto(const GridBasePtr& a, const GridBasePtr& b)
{
    if (!a || !b) return -1;
    try {
        FloatGrid::Ptr fa = openvdb::gridPtrCast<FloatGrid>(a), fb = openvdb::gridPtrCast<FloatGrid>(b);
        if (fa && fb) {
            addTyped(*fa, *fb);
            return 0;
        }
        Vec3SGrid::Ptr va = openvdb::gridPtrCast<Vec3SGrid>(a), vb = openvdb::gridPtrCast<Vec3SGrid>(b);
        if (va && vb) {
            addTyped(*va, *vb);
            return 0;
        }
    } catch (const openvdb::Exception&) {
    }
    return -1;
}

int scaleGrid(const GridBasePtr& grid, float scale, const GridBasePtr& mask)
{
    FloatGrid::Ptr maskGrid = openvdb::gridPtrCast<FloatGrid>(mask);
    if (FloatGrid::Ptr f = openvdb::gridPtrCast<FloatGrid>(grid)) {
        scaleTyped(*f, scale, maskGrid.get());
        return 0;
    }
    if (Vec3SGrid::Ptr v = openvdb::gridPtrCast<Vec3SGrid>(grid)) {
        scaleTyped(*v, scale, maskGrid.get());
        return 0;
    }
    return -1;
}

int offsetLevelSetMasked(const GridBasePtr& grid, float amount, const GridBasePtr& maskSdf, float smoothness,
                         bool invert)
{
    FloatGrid::Ptr f = openvdb::gridPtrCast<FloatGrid>(grid);
    FloatGrid::Ptr m = openvdb::gridPtrCast<FloatGrid>(maskSdf);
    if (!f || !m) return -1;
    try {
        f->setGridClass(openvdb::GRID_LEVEL_SET);
        openvdb::tools::LevelSetFilter<FloatGrid, FloatGrid> filter(*f);
        // The mask is the sdf itself: across [-smoothness, 0] it runs 0 -> 1, which is the
        // outside-facing side; inverting by default puts the full effect inside the mask.
        filter.setMaskRange(-std::max(smoothness, 1e-6f), 0.f);
        filter.invertMask(!invert);
        filter.offset(amount, m.get());
    } catch (const openvdb::Exception&) {
        return -1;
    }
    return 0;
}

int sampleGrid(const GridBasePtr& grid, const std::vector<Vec4f>& positions, std::vector<Vec4f>& values)
{
    if (FloatGrid::Ptr f = openvdb::gridPtrCast<FloatGrid>(grid)) {
        sampleTyped(*f, positions, values);
        return 1;
    }
    if (Vec3SGrid::Ptr v = openvdb::gridPtrCast<Vec3SGrid>(grid)) {
        sampleTyped(*v, positions, values);
        return 3;
    }
    return -1;
}

void appendBoxMesh(Body& body, const Vec4f* corners)
{
    const uint32_t base = uint32_t(body.points->size());
    for (int c = 0; c < 8; ++c) body.points->addPoint(corners[c]);
    // wound so that (p2 - p0) x (p1 - p0) points out of the box: -x, +x, -y, +y, -z, +z
    static const uint32_t faces[6][4] = {{0, 2, 6, 4}, {1, 5, 7, 3}, {0, 4, 5, 1},
                                         {2, 3, 7, 6}, {0, 1, 3, 2}, {4, 6, 7, 5}};
    for (const auto& f : faces) {
        body.prims->addPrim(PrimData::POLYGON);
        body.vertices->addVertexList({base + f[0], base + f[1], base + f[2], base + f[3]});
    }
}

int appendTileBoxes(Body& body, const GridBasePtr& grid)
{
    if (!grid) return -1;
    if (auto g = openvdb::gridConstPtrCast<FloatGrid>(grid)) return tileBoxesTyped(body, *g);
    if (auto g = openvdb::gridConstPtrCast<Vec3SGrid>(grid)) return tileBoxesTyped(body, *g);
    if (auto g = openvdb::gridConstPtrCast<openvdb::Int32Grid>(grid)) return tileBoxesTyped(body, *g);
    if (auto g = openvdb::gridConstPtrCast<openvdb::BoolGrid>(grid)) return tileBoxesTyped(body, *g);
    return -1;
}
