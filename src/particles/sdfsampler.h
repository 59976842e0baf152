// SdfSampler: reads a signed distance grid at fractional index positions: the trilinear
// value, the gradient of that same trilinear field (the surface normal), and optional
// vector grids on the same voxels (velocity, uvw). The collide pass, the volume sources
// and the grid fluid solvers share it. One sampler per thread: it caches the eight
// values round the last voxel it visited and reloads them only when that voxel changes.
#pragma once

#include "geo/vec.h"
#include "geo/volumedata.h"

#include <memory>

class SdfSampler {
public:
    // `sdf` must be a float grid with a linear transform; a null or other grid gives a
    // sampler that isn't valid. Vector grids of another type are ignored.
    explicit SdfSampler(const GridBasePtr& sdf, const GridBasePtr& velocity = nullptr,
                        const GridBasePtr& uvw = nullptr);
    ~SdfSampler();
    SdfSampler(SdfSampler&&) noexcept;
    SdfSampler& operator=(SdfSampler&&) noexcept;
    SdfSampler(const SdfSampler&) = delete;
    SdfSampler& operator=(const SdfSampler&) = delete;

    bool valid() const;
    bool hasVelocity() const;
    bool hasUvw() const;

    // The grid's own map: index space to the grid's world space (the space the distances
    // are measured in) and back, row-vector convention.
    const Mat4f& indexToGrid() const { return indexToGrid_; }
    const Mat4f& gridToIndex() const { return gridToIndex_; }
    float voxelSize() const { return voxelSize_; }
    float background() const { return background_; }
    // A value at or beyond the band's edge on the outside: |background| - 0.01 or more.
    // Measured by magnitude so that an inverted grid (negative background) reads the same.
    bool outOfBand(float value) const { return value >= outsideEdge_; }

    // Trilinear distance at index position ijk (grid units, not voxels).
    float distance(const Vec4f& ijk);
    // Gradient of the trilinear field at ijk, per index unit; zero inside a constant region.
    Vec4f gradient(const Vec4f& ijk);
    // Trilinear samples of the vector grids; zero where a grid is missing.
    Vec4f velocity(const Vec4f& ijk);
    Vec4f uvw(const Vec4f& ijk);

private:
    struct Impl;
    std::unique_ptr<Impl> impl_;
    Mat4f indexToGrid_;
    Mat4f gridToIndex_;
    float voxelSize_ = 0.f;
    float background_ = 0.f;
    float outsideEdge_ = 0.f;
};
