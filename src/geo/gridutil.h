// Helpers for the OpenVDB grids of a Body: making, deep-copying and finding
// grids, the VolumeType code of a grid, and its world-space bounds. They keep
// all OpenVDB template work in gridutil.cpp; callers need only the light
// forward declaration of openvdb::GridBase from volumedata.h.
#pragma once

#include <string>
#include <vector>

#include "geo/vec.h"
#include "geo/volumedata.h"

// An empty grid for a VolumeType (background zero), named `name`; null for an unknown code.
GridBasePtr makeGrid(int volumeType, const std::string& name);
// Copy of the grid and its whole tree; null for null.
GridBasePtr deepCopyGrid(const GridBasePtr& grid);
// The grid under the first of `names` that exists, e.g. {"v", "vel", "velocity"}; null if none.
GridBasePtr findGrid(const VolumeData& volumes, const std::vector<std::string>& names);
// VolumeType of a Vec3f grid from its openvdb::VecType value: invariant and
// covariant 3, covariant-normalize 6, contravariant-relative 7,
// contravariant-absolute 4, anything else 5.
int volumeTypeFromVecType(int vecType);
// VolumeType of a grid by value type: bool 0, int32 1, float 2, Vec3f 3..7; -1 otherwise.
int volumeTypeOfGrid(const openvdb::GridBase& grid);
// World-space box of the grid's active voxels (index box through the grid's
// transform, all eight corners). False, and min/max untouched, when no voxel is active.
bool gridWorldBounds(const openvdb::GridBase& grid, Vec4f& min, Vec4f& max);
