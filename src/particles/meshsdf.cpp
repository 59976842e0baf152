// Mesh to signed distance field. Triangles are checked first (indices in range, finite
// vertices, non-zero area) and the grid's size is estimated before OpenVDB is asked for
// anything; then meshToVolume with a closest-triangle grid, barycentric velocity and uvw
// grids from it, push out by LevelSetFilter::offset in steps of at most half the band,
// and inversion. This is the one file that pays for the mesh and filter headers.
#include "particles/meshsdf.h"

#include <openvdb/openvdb.h>
#include <openvdb/math/Proximity.h>
#include <openvdb/tools/LevelSetFilter.h>
#include <openvdb/tools/MeshToVolume.h>
#include <openvdb/tree/LeafManager.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <limits>
#include <new>
#include <vector>

namespace {

using openvdb::FloatGrid;
using openvdb::Int32Grid;
using openvdb::Vec3SGrid;

// Index coordinates must stay well inside int32.
constexpr double kMaxIndexCoord = 1.0e9;
// Push out stops when what is left is below this share of one step.
constexpr float kPushOutRest = 0.001f;

bool finite3(const Vec4f& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

// The triangles meshToVolume gets: only those with valid indices, finite vertices and
// an area; `source` maps back to the mesh's triangle list.
struct CleanMesh {
    std::vector<openvdb::Vec3I> triangles;
    std::vector<uint32_t> source;
    std::vector<double> areas;
    std::vector<double> longestEdges;
    Vec4f lo{1e30f, 1e30f, 1e30f, 0.f};
    Vec4f hi{-1e30f, -1e30f, -1e30f, 0.f};
    size_t dropped = 0;
};

CleanMesh cleanTriangles(const ObjectMesh& mesh)
{
    CleanMesh out;
    const size_t n = mesh.vertices.size();
    out.triangles.reserve(mesh.triangles.size());
    out.source.reserve(mesh.triangles.size());
    for (size_t t = 0; t < mesh.triangles.size(); ++t) {
        const ObjectTriangle& tri = mesh.triangles[t];
        const int32_t idx[3] = {tri.v0, tri.v1, tri.v2};
        bool ok = true;
        for (int32_t i : idx) ok = ok && i >= 0 && size_t(i) < n && finite3(mesh.vertices[size_t(i)]);
        if (!ok) {
            ++out.dropped;
            continue;
        }
        const Vec4f& a = mesh.vertices[size_t(idx[0])];
        const Vec4f& b = mesh.vertices[size_t(idx[1])];
        const Vec4f& c = mesh.vertices[size_t(idx[2])];
        const double area = 0.5 * double((b - a).cross3(c - a).length3());
        if (!(area > 0.0) || !std::isfinite(area)) {
            ++out.dropped;  // zero-area faces add no surface
            continue;
        }
        out.triangles.emplace_back(uint32_t(idx[0]), uint32_t(idx[1]), uint32_t(idx[2]));
        out.source.push_back(uint32_t(t));
        out.areas.push_back(area);
        out.longestEdges.push_back(
            std::max({double((b - a).length3()), double((c - b).length3()), double((a - c).length3())}));
        for (const Vec4f* p : {&a, &b, &c}) {
            out.lo = Vec4f(std::min(out.lo.x, p->x), std::min(out.lo.y, p->y), std::min(out.lo.z, p->z), 0.f);
            out.hi = Vec4f(std::max(out.hi.x, p->x), std::max(out.hi.y, p->y), std::max(out.hi.z, p->z), 0.f);
        }
    }
    return out;
}

float cleanBand(float band)
{
    return std::isfinite(band) ? std::max(band, 1.f) : 1.f;
}

// Surface voxels of the band (area times width) plus the tubes round edges longer than
// the band is wide, capped by the dense box round the mesh.
double estimateVoxels(const CleanMesh& clean, float voxelSize, float band)
{
    if (clean.triangles.empty()) return 0.0;
    const double vs = voxelSize;
    const double width = 2.0 * double(band) + 2.0;
    double shell = 0.0;
    for (size_t t = 0; t < clean.areas.size(); ++t) {
        shell += width * clean.areas[t] / (vs * vs);
        shell += width * width * std::max(0.0, clean.longestEdges[t] / vs - width);
    }
    double dense = 1.0;
    for (double extent : {double(clean.hi.x - clean.lo.x), double(clean.hi.y - clean.lo.y),
                          double(clean.hi.z - clean.lo.z)})
        dense *= extent / vs + width;
    return std::min(shell, dense);
}

bool anyVelocity(const ObjectMesh& mesh)
{
    if (mesh.velocities.size() != mesh.vertices.size()) return false;
    for (const Vec4f& v : mesh.velocities)
        if (v.x != 0.f || v.y != 0.f || v.z != 0.f) return true;
    return false;
}

bool anyUv(const ObjectMesh& mesh)
{
    if (mesh.uvs.empty()) return false;
    for (const ObjectTriangle& t : mesh.triangles)
        if (t.t0 >= 0 && t.t1 >= 0 && t.t2 >= 0) return true;
    return false;
}

// A vector grid on the closest-triangle grid's voxels, each voxel the barycentric blend
// of `corner(sourceTriangle, k)` over the closest point of its triangle.
template <class Corner>
Vec3SGrid::Ptr interpolateOverTriangles(const Int32Grid& closest, const CleanMesh& clean,
                                        const std::vector<openvdb::Vec3d>& indexPoints, const Corner& corner,
                                        const char* name, openvdb::VecType vecType)
{
    Vec3SGrid::Ptr grid = Vec3SGrid::create(openvdb::Vec3s(0.f));
    grid->setTransform(closest.transform().copy());
    grid->setName(name);
    grid->setGridClass(openvdb::GRID_UNKNOWN);
    grid->setVectorType(vecType);
    grid->tree().topologyUnion(closest.tree());
    openvdb::tree::LeafManager<Vec3SGrid::TreeType> leaves(grid->tree());
    leaves.foreach([&](Vec3SGrid::TreeType::LeafNodeType& leaf, size_t) {
        const Int32Grid::TreeType::LeafNodeType* ids = closest.tree().probeConstLeaf(leaf.origin());
        if (!ids) return;
        for (auto it = leaf.beginValueOn(); it; ++it) {
            const int32_t t = ids->getValue(it.pos());
            if (t < 0 || size_t(t) >= clean.triangles.size()) continue;
            const openvdb::Vec3I& tri = clean.triangles[size_t(t)];
            openvdb::Vec3d w;
            openvdb::math::closestPointOnTriangleToPoint(indexPoints[tri[0]], indexPoints[tri[1]],
                                                         indexPoints[tri[2]], it.getCoord().asVec3d(), w);
            const uint32_t src = clean.source[size_t(t)];
            const Vec4f v = corner(src, 0) * float(w[0]) + corner(src, 1) * float(w[1]) + corner(src, 2) * float(w[2]);
            it.setValue(openvdb::Vec3s(v.x, v.y, v.z));
        }
    });
    return grid;
}

// Offsets the level set by -pushOut in steps of at most half the band.
void pushOutLevelSet(FloatGrid& grid, float pushOut, float band, float voxelSize)
{
    const float maxStep = 0.5f * band * voxelSize;
    openvdb::tools::LevelSetFilter<FloatGrid> filter(grid);
    float rest = pushOut;
    while (std::fabs(rest) >= kPushOutRest * maxStep) {
        const float step = std::max(-maxStep, std::min(maxStep, rest));
        filter.offset(-step);
        rest -= step;
    }
}

void invertLevelSet(FloatGrid& grid)
{
    for (auto it = grid.tree().beginValueAll(); it; ++it) it.setValue(-*it);
    const float background = grid.background();
    grid.tree().root().setBackground(-background, false);
}

} // namespace

double estimateSdfVoxels(const ObjectMesh& mesh, const SdfBuildSettings& settings)
{
    if (!std::isfinite(settings.voxelSize) || !(settings.voxelSize > 0.f))
        return std::numeric_limits<double>::infinity();
    return estimateVoxels(cleanTriangles(mesh), settings.voxelSize, cleanBand(settings.band));
}

int buildMeshSdf(const ObjectMesh& mesh, const SdfBuildSettings& settings, ObjectPartSdf& out)
{
    const float vs = settings.voxelSize;
    if (!std::isfinite(vs) || !(vs > 0.f)) {
        std::printf("SDF: the voxel size must be above 0 (it is %g).\n", double(vs));
        return -1;
    }
    const float band = cleanBand(settings.band);
    const CleanMesh clean = cleanTriangles(mesh);
    if (clean.dropped > 0 && !clean.triangles.empty())
        std::printf("SDF: %zu of %zu triangles skipped (bad index, NaN vertex or no area).\n", clean.dropped,
                    mesh.triangles.size());
    if (clean.triangles.empty()) {
        std::printf("Mesh geo is not available yet...\n");
        return -1;
    }
    const double reach = std::max({std::fabs(double(clean.lo.x)), std::fabs(double(clean.lo.y)),
                                   std::fabs(double(clean.lo.z)), std::fabs(double(clean.hi.x)),
                                   std::fabs(double(clean.hi.y)), std::fabs(double(clean.hi.z))});
    if (reach / vs + double(band) + 2.0 > kMaxIndexCoord) {
        std::printf("SDF: the mesh reaches too far out for voxels of %g.\n", double(vs));
        return -1;
    }
    const double voxels = estimateVoxels(clean, vs, band);
    if (voxels > kSdfVoxelBudget) {
        std::printf("SDF: about %.0f voxels needed, over the budget of %.0f; raise the voxel size.\n", voxels,
                    kSdfVoxelBudget);
        return -1;
    }

    try {
        openvdb::initialize();
        const openvdb::math::Transform::Ptr transform = openvdb::math::Transform::createLinearTransform(vs);
        std::vector<openvdb::Vec3s> points(mesh.vertices.size());
        std::vector<openvdb::Vec3d> indexPoints(mesh.vertices.size());
        for (size_t i = 0; i < mesh.vertices.size(); ++i) {
            const Vec4f& p = mesh.vertices[i];
            indexPoints[i] = finite3(p) ? transform->worldToIndex(openvdb::Vec3d(p.x, p.y, p.z)) : openvdb::Vec3d(0.0);
            points[i] = openvdb::Vec3s(indexPoints[i]);
        }
        openvdb::tools::QuadAndTriangleDataAdapter<openvdb::Vec3s, openvdb::Vec3I> adapter(points, clean.triangles);
        Int32Grid::Ptr closest = Int32Grid::create(int32_t(openvdb::util::INVALID_IDX));
        FloatGrid::Ptr sdf = openvdb::tools::meshToVolume<FloatGrid>(adapter, *transform, band, band, 0, closest.get());
        if (!sdf || sdf->tree().activeVoxelCount() == 0) {
            std::printf("Mesh geo is not available yet...\n");
            return -1;
        }
        sdf->setName("sdf");

        GridBasePtr velocity, uvw;
        if (anyVelocity(mesh)) {
            velocity = interpolateOverTriangles(
                *closest, clean, indexPoints,
                [&](uint32_t t, int k) {
                    const ObjectTriangle& tri = mesh.triangles[t];
                    return mesh.velocities[size_t(k == 0 ? tri.v0 : k == 1 ? tri.v1 : tri.v2)];
                },
                "velocityGrid", openvdb::VEC_CONTRAVARIANT_RELATIVE);
        }
        if (anyUv(mesh)) {
            uvw = interpolateOverTriangles(
                *closest, clean, indexPoints,
                [&](uint32_t t, int k) {
                    const ObjectTriangle& tri = mesh.triangles[t];
                    const int32_t i = k == 0 ? tri.t0 : k == 1 ? tri.t1 : tri.t2;
                    return i >= 0 && size_t(i) < mesh.uvs.size() ? mesh.uvs[size_t(i)] : Vec4f();
                },
                "uvw", openvdb::VEC_INVARIANT);
        }
        closest.reset();

        if (std::fabs(settings.pushOut) > 0.00001f && std::isfinite(settings.pushOut))
            pushOutLevelSet(*sdf, settings.pushOut, band, vs);
        if (settings.invert) invertLevelSet(*sdf);

        out.sdfGrid = sdf;
        out.velocityGrid = velocity;
        out.uvwGrid = uvw;
        out.hasVelocity = velocity != nullptr;
        return 0;
    } catch (const std::bad_alloc&) {
        std::printf("SDF: out of memory while building the grid.\n");
    } catch (const std::exception& e) {
        std::printf("SDF: the grid could not be built: %s\n", e.what());
    }
    return -1;
}
