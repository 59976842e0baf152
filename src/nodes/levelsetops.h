// Level-set operations shared by the surfacing and volume nodes: finding grids by kind,
// rasterising points and meshes into level sets, filtering and offsetting a level set,
// and meshing a volume back into a Body. All OpenVDB work stays in levelsetops.cpp and
// rasterize.cpp; callers see only the grids' forward declaration.
#pragma once

#include <string>
#include <vector>

#include "geo/volumedata.h"

class Body;
class PointData;

// The kinds of grid the volume nodes look for. The first four are the entries of the
// volume menus ("Density", "Velocity", "Temperature", "Fuel"), in that order.
enum class GridKind { Density = 0, Velocity = 1, Temperature = 2, Fuel = 3, Distance = 4 };

// The names a kind answers to, first match wins: distance, surface | density, fog |
// velocity, vel | temperature, temp, heat | fuel.
const std::vector<std::string>& gridKindNames(GridKind kind);
// The first grid of the kind, its key in `key` when given; null when there is none.
GridBasePtr findGridKind(const VolumeData& volumes, GridKind kind, std::string* key = nullptr);
// The distance grid as a float level set: `distance` or `surface` holding a float grid.
GridBasePtr findDistanceGrid(const VolumeData& volumes, std::string* key = nullptr);

// Rasterises the points of `in` into a level set named `distance` (or, with makeFog, a
// fog volume named `density`) in `out`, plus one grid per word of `attribs` that names a
// point attribute. The radius comes from the float attribute `scaleByAttrib` per point
// when it exists, else from `radius`. 0, or -1 when voxelSize isn't positive.
int pointsToVolume(Body& out, Body& in, float voxelSize, float radius, int sdfBand, bool makeFog,
                   bool invert, const std::string& scaleByAttrib, const std::string& attribs);

struct MeshToVolumeSettings {
    float voxelSize = 0.1f;
    float exteriorBand = 3.f; // voxels
    float interiorBand = 3.f; // voxels
    bool shell = false;       // unsigned distance, for open surfaces
    float shellThickness = 0.05f;
    float pushOut = 0.f;
    bool makeFog = false;
    bool invert = false;
    std::string attribs;
};
// Level set (or fog) of the triangles and quads of `in` into `out`; primitives of other
// sizes are passed over. 0, or -1 when there is nothing to rasterise.
int meshToVolume(Body& out, const Body& in, const MeshToVolumeSettings& settings);

// Smooths a float level set: type 0 Gauss, 1 Mean, 2 Median, 3 Laplace, `iterations`
// passes (at least one) of `width` voxels. `strength` (0..1) is the share of the filtered
// values in the result; a float `mask` grid (0..1) scales the filter per voxel. 0, or -1
// when the grid isn't a float grid.
int filterLevelSet(const GridBasePtr& grid, int type, int width, int iterations, float strength,
                   const GridBasePtr& mask = nullptr);
// Moves the surface by `amount` world units: negative grows (dilates), positive shrinks.
int levelSetOffset(const GridBasePtr& grid, float amount);
// Turns a float level set into a 0..1 fog volume in place (grid class fog).
int levelSetToFog(const GridBasePtr& grid);
// Negates every value of a float grid, background included.
int invertGrid(const GridBasePtr& grid);

// Meshes the distance grid (`distance`, `surface`; else the fog `density`, `dens`, `fog`)
// of `in` at `isoValue` into `out`: quads first, then triangles. Each word of `attribs`
// naming a grid of `in` ("v" stands for `velocity`) becomes a point attribute sampled at
// the nearest voxel. 0, or -1 without a grid to mesh.
int volumeToMeshBody(const Body& in, Body& out, float isoValue, float adaptivity, const std::string& attribs);

// Samples `grid` (float, int or vector) at every point into the point attribute `name`,
// made with the grid's value type ("v" as velocity); nearest voxel.
void sampleGridToPoints(const GridBasePtr& grid, const std::string& name, PointData& points);

// The words of a blank-separated list.
std::vector<std::string> splitWords(const std::string& text);
