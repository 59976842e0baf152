// Grid work of the volume nodes: level-set CSG, gradients, resampling, adding and scaling
// grids, the masked level-set offset, sampling at points and the boxes of a tree's leaves
// and tiles. All OpenVDB template code stays in volumeops.cpp, so the node files see only
// the grids' forward declaration and never pay for the OpenVDB tools headers.
#pragma once

#include <string>
#include <vector>

#include "geo/vec.h"
#include "geo/volumedata.h"

class Body;

// The entries of the volume menus ("Density", "Velocity", "Temperature", "Fuel"), in the
// order of GridKind.
const std::vector<std::string>& volumeKindMenu();

// Stores `grid` in `volumes` under `key`, with the grid's name set to the key and the
// VolumeType its value type gives. That type, or -1 (nothing stored) for a null grid or a
// value type without a code.
int storeGrid(VolumeData& volumes, const std::string& key, const GridBasePtr& grid);

enum class CsgOperation { Union = 0, Difference = 1, Intersection = 2 };

// How resampleGrid classes the new grid: as the old one, as a level set (its half width in
// voxels kept) or as a fog volume.
enum class ResampleClass { Keep = 0, LevelSet = 1, Fog = 2 };

// `a` combined with `b`, both float level sets, as a new grid with a's transform and
// metadata; `b` is resampled into a's transform first when the two differ. With `rebuild`
// the result is rebuilt at iso 0 with half widths of 3 voxels on each side. Neither input
// is changed. Null when either isn't a float grid or OpenVDB refuses the grids.
GridBasePtr csgLevelSets(const GridBasePtr& a, const GridBasePtr& b, CsgOperation op, bool rebuild);

// The gradient of a float grid as a new Vec3f grid named `name`, class unknown: covariant,
// or with `normalize` normalised per voxel and covariant-normalize; multiplied by `scale`
// when it isn't 1. Null when the grid isn't a float grid.
GridBasePtr gradientGrid(const GridBasePtr& grid, bool normalize, float scale, const std::string& name);

// The grid resampled (trilinear; a level set is rebuilt) into a linear transform of
// `voxelSize`, as a new grid with the old one's metadata. Null for grids other than float
// and Vec3f, or for a voxel size that isn't positive.
GridBasePtr resampleGrid(const GridBasePtr& grid, float voxelSize, ResampleClass gridClass);

// Adds every active value of `b` to `a` at the same world position; `b` is resampled into
// a's index space first when the transforms differ. 0, or -1 when the grids aren't both
// float or both Vec3f.
int addGridInto(const GridBasePtr& a, const GridBasePtr& b);

// Multiplies the active values of a float or Vec3f grid by `scale`. With a float `mask`
// (0..1, read at the voxel nearest to each value's world position) the factor is
// 1 + (scale - 1) * mask. 0, or -1 for other grid types.
int scaleGrid(const GridBasePtr& grid, float scale, const GridBasePtr& mask = nullptr);

// Moves the surface of a float level set by `amount` world units (positive shrinks) under
// a mask made from the level set `maskSdf`: full inside it, fading out across `smoothness`
// up to its surface; `invert` swaps the two sides. 0, or -1 when either grid isn't a float
// grid or OpenVDB refuses them.
int offsetLevelSetMasked(const GridBasePtr& grid, float amount, const GridBasePtr& maskSdf, float smoothness,
                         bool invert);

// Trilinear samples of a float or Vec3f grid at world positions, one per position; a float
// lands in x. The component count (1 or 3), or -1 (values untouched) for other grid types.
int sampleGrid(const GridBasePtr& grid, const std::vector<Vec4f>& positions, std::vector<Vec4f>& values);

// Appends the closed box of the eight corners (bit 0 of the index selects x, bit 1 y,
// bit 2 z) to the mesh of `body` as six quads facing out.
void appendBoxMesh(Body& body, const Vec4f* corners);

// One box per leaf node and per active tile of the grid's tree (its index box grown by
// half a voxel, through the grid's transform) into `body`'s mesh. The box count, or -1 for
// a grid type other than bool, int, float and Vec3f.
int appendTileBoxes(Body& body, const GridBasePtr& grid);
