#include "ui/viewportvolume.h"

#include "geo/volumedata.h"

#include <openvdb/openvdb.h>

#include <algorithm>
#include <cmath>

namespace {

// The value of a voxel as a brightness in 0..1, or a negative number when it isn't drawn.
template <class T> float shade(const T& v, bool levelSet, float background)
{
    if constexpr (std::is_same_v<T, openvdb::Vec3f>) {
        (void)levelSet;
        (void)background;
        return std::min(v.length(), 1.f) * 0.8f + 0.2f;
    } else if constexpr (std::is_same_v<T, bool>) {
        (void)levelSet;
        (void)background;
        return v ? 1.f : -1.f;
    } else {
        const float f = float(v);
        if (levelSet) return f <= 0.f ? 0.8f : -1.f;
        (void)background;
        return f > 0.01f ? std::min(f, 1.f) : -1.f;
    }
}

template <class GridT>
size_t sampleGrid(const GridT& grid, size_t budget, std::vector<float>& pos, std::vector<float>& col,
                  std::vector<float>& size)
{
    const openvdb::Index64 active = grid.activeVoxelCount();
    if (active == 0 || budget == 0) return 0;
    const openvdb::Index64 stride = std::max<openvdb::Index64>(1, (active + budget - 1) / budget);
    const bool levelSet = grid.getGridClass() == openvdb::GRID_LEVEL_SET;
    const float voxel = float(grid.voxelSize()[0]);
    const float radius = 0.5f * voxel * std::cbrt(float(stride));
    size_t added = 0;
    openvdb::Index64 counter = 0;
    for (auto it = grid.cbeginValueOn(); it && added < budget; ++it) {
        if (counter++ % stride != 0) continue;
        const float s = shade(*it, levelSet, 0.f);
        if (s < 0.f) continue;
        // An active tile (a filled block of voxels) shows as one point the size of the block.
        openvdb::Vec3d w;
        float r = radius;
        if (it.isVoxelValue()) {
            w = grid.indexToWorld(it.getCoord());
        } else {
            const openvdb::CoordBBox box = it.getBoundingBox();
            w = grid.indexToWorld(0.5 * (box.min().asVec3d() + box.max().asVec3d()));
            r = std::max(radius, 0.5f * voxel * float(box.dim().x()));
        }
        pos.push_back(float(w.x()));
        pos.push_back(float(w.y()));
        pos.push_back(float(w.z()));
        if (levelSet) {
            col.push_back(0.35f * s);
            col.push_back(0.6f * s);
            col.push_back(0.9f * s);
        } else {
            col.push_back(s);
            col.push_back(s);
            col.push_back(s);
        }
        size.push_back(r);
        ++added;
    }
    return added;
}

} // namespace

size_t ViewportVolume::appendVoxelPoints(const VolumeData& volumes, std::vector<float>& pos, std::vector<float>& col,
                                         std::vector<float>& size, size_t maxPoints)
{
    size_t total = 0;
    const size_t count = volumes.grids.size();
    if (count == 0) return 0;
    const size_t perGrid = std::max<size_t>(1, maxPoints / count);
    for (const GridBasePtr& base : volumes.grids) {
        if (!base || total >= maxPoints) continue;
        const size_t budget = std::min(perGrid, maxPoints - total);
        if (auto g = openvdb::gridConstPtrCast<openvdb::FloatGrid>(base)) total += sampleGrid(*g, budget, pos, col, size);
        else if (auto v = openvdb::gridConstPtrCast<openvdb::Vec3fGrid>(base))
            total += sampleGrid(*v, budget, pos, col, size);
        else if (auto i = openvdb::gridConstPtrCast<openvdb::Int32Grid>(base))
            total += sampleGrid(*i, budget, pos, col, size);
        else if (auto b = openvdb::gridConstPtrCast<openvdb::BoolGrid>(base))
            total += sampleGrid(*b, budget, pos, col, size);
    }
    return total;
}
