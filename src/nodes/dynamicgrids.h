// Grid work of the dynamic helper nodes: pushing points out of a collider's distance
// grid, the inside voxels of a distance grid for emission, and reading and writing the
// active values of a vector grid. All OpenVDB template code stays in dynamicgrids.cpp,
// so the node files see only the grids' forward declaration.
#pragma once

#include <string>
#include <vector>

#include "geo/vec.h"
#include "geo/volumedata.h"

class PointData;

struct CollideSettings {
    float collDist = 0.f;
    float stickDist = 0.f;
    float stickStrength = 0.f;
    float friction = 10.f;
    float staticFrictionMulti = 0.f;
    float velocityScale = 1.f;
    float influence = 0.f; // points further from the surface are left alone
    float dt = 1.f / 24.f;
    bool collide = true;
    // Where the collider's surface point at P was one step before (p' = p * motion); used
    // for the collider's velocity when `moving` is set.
    Mat4f motion;
    bool moving = false;
};

// Pushes the points of `points` (which must have v) out of the float level set `distance`
// and blends in the collider's velocity (its motion plus the optional Vec3f grid
// `velocity`). The number of points passed over for a non-finite position, or -1 when
// `distance` isn't a float grid.
int collidePoints(PointData& points, const GridBasePtr& distance, const GridBasePtr& velocity,
                  const CollideSettings& settings);

// The active voxels of the float grid `distance` with a value below 0: their world
// positions, and the value of the Vec3f grid `velocity` at the same place (zero without
// one). `voxelSize` gets the voxel's world size on each axis. The voxel count, or -1 when
// `distance` isn't a float grid.
int insideVoxels(const GridBasePtr& distance, const GridBasePtr& velocity, std::vector<Vec4f>& positions,
                 std::vector<Vec4f>& velocities, Vec4f& voxelSize);

// World positions and values of the active voxels of a Vec3f grid, in the tree's order;
// writeActiveVectors stores values back in that same order. The count (0 when the sizes
// differ on writing), or -1 when the grid isn't a Vec3f grid.
int readActiveVectors(const GridBasePtr& grid, std::vector<Vec4f>& positions, std::vector<Vec4f>& values);
int writeActiveVectors(const GridBasePtr& grid, const std::vector<Vec4f>& values);

// Moves the float grids of `volumes` stored under `keys` (those present) through the Vec3f
// grid `velocity` for `dt` seconds: semi-Lagrangian, trilinear. The number of grids moved,
// or -1 when `velocity` isn't a Vec3f grid.
int advectGrids(VolumeData& volumes, const GridBasePtr& velocity, float dt,
                const std::vector<std::string>& keys);
