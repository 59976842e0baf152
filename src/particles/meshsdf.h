// Mesh to signed distance field: the narrow-band level set of one mesh part in its
// local space (OpenVDB's meshToVolume), with velocity and uvw grids on the same voxels,
// push out and inversion. Colliders and volume sources build their grids through here;
// broken input (no triangles, NaN vertices, a bad voxel size, a grid over the voxel
// budget) is refused with one line on standard output instead of a crash or a hang.
#pragma once

#include "io/object.h"

// Voxels a single build may make; a larger grid is refused.
constexpr double kSdfVoxelBudget = 200e6;

struct SdfBuildSettings {
    float voxelSize = 0.1f;  // local units
    float band = 5.f;        // voxels on each side of the surface; raised to 1
    float pushOut = 0.f;     // positive grows the shape, in local units
    bool invert = false;     // every value, the background too, changes sign
};

// Voxels a build of `mesh` with these settings would make, roughly (surface area times
// band width, capped by the dense box); NaN vertices and broken triangles don't count.
double estimateSdfVoxels(const ObjectMesh& mesh, const SdfBuildSettings& settings);

// Builds the grids of one part. 0, or -1 with the reason printed; `out` keeps its grids
// on failure, and its cached settings are left to the caller.
int buildMeshSdf(const ObjectMesh& mesh, const SdfBuildSettings& settings, ObjectPartSdf& out);
