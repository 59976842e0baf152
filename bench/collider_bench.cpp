// Collider throughput: the collide pass of a granular system at 1M particles against a
// sphere mesh's distance grid (particle-substeps per second), and mesh to SDF for a
// 100k-triangle sphere at two voxel sizes, ours (checks, estimate, closest-triangle grid,
// no velocity grid for a static mesh) against the bare meshToVolume call on the same data.
#include "benchenv.h"
#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "io/object.h"
#include "particles/collisionobject.h"
#include "particles/granulartraits.h"
#include "particles/meshsdf.h"

#include <benchmark/benchmark.h>

#include <openvdb/openvdb.h>
#include <openvdb/tools/MeshToVolume.h>

#include <cmath>
#include <cstdint>
#include <memory>
#include <omp.h>
#include <random>
#include <vector>

namespace {

void ensureRecords()
{
    ensureBenchRecords();
    simState->collideGround = false;
}

// A latitude-longitude sphere of radius 1 with about 2 * rings * segments triangles.
std::shared_ptr<ObjectMesh> sphere(int rings, int segments)
{
    auto m = std::make_shared<ObjectMesh>();
    const double pi = 3.14159265358979;
    m->vertices.push_back(Vec4f(0.f, 1.f, 0.f));
    for (int r = 1; r < rings; ++r)
        for (int s = 0; s < segments; ++s) {
            const double t = pi * r / rings, p = 2.0 * pi * s / segments;
            m->vertices.push_back(Vec4f(float(std::sin(t) * std::cos(p)), float(std::cos(t)), float(std::sin(t) * std::sin(p))));
        }
    m->vertices.push_back(Vec4f(0.f, -1.f, 0.f));
    const int bottom = int(m->vertices.size()) - 1;
    auto ring = [&](int r, int s) { return 1 + (r - 1) * segments + (s % segments); };
    auto tri = [&](int a, int b, int c) {
        ObjectTriangle t;
        t.v0 = a;
        t.v1 = b;
        t.v2 = c;
        t.t0 = t.t1 = t.t2 = -1;
        m->triangles.push_back(t);
    };
    for (int s = 0; s < segments; ++s) tri(0, ring(1, s + 1), ring(1, s));
    for (int r = 1; r < rings - 1; ++r)
        for (int s = 0; s < segments; ++s) {
            tri(ring(r, s), ring(r, s + 1), ring(r + 1, s + 1));
            tri(ring(r, s), ring(r + 1, s + 1), ring(r + 1, s));
        }
    for (int s = 0; s < segments; ++s) tri(bottom, ring(rings - 1, s), ring(rings - 1, s + 1));
    m->velocities.assign(m->vertices.size(), Vec4f());
    m->computeBounds();
    m->isLoaded = true;
    return m;
}

const std::shared_ptr<ObjectMesh>& sphere100k()
{
    static const std::shared_ptr<ObjectMesh> mesh = sphere(224, 224);
    return mesh;
}

// 1M particles in the shell 0.9 < r < 1.3 round a unit sphere collider of voxels 0.02.
GranularParticleSystem& shellScene()
{
    static GranularParticleSystem* system = nullptr;
    if (system) return *system;
    ensureRecords();
    auto object = std::make_unique<Object>();
    object->meshes.push_back(sphere(160, 160));
    ++object->geometryStamp;
    Object* o = object.get();
    simulation->registerObject(std::move(object), "sphere");
    auto collider = std::make_unique<CollisionObject>();
    collider->voxelSize = 0.02f;
    collider->geometryIds = {o->id};
    CollisionObject* c = collider.get();
    simulation->registerObject(std::move(collider), "sphereCollider");
    c->updateMatrices();

    system = simulation->createGranularSystem("shell");
    system->connectCollider(c);
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> unit(-1.f, 1.f), radius(0.9f, 1.3f);
    for (int i = 0; i < 1000000; ++i) {
        Vec4f d(unit(rng), unit(rng), unit(rng));
        const float len = d.length3();
        if (len < 1e-3f) d = Vec4f(1.f, 0.f, 0.f);
        system->addParticle(d * (radius(rng) / std::max(len, 1e-3f)), Vec4f(0.f, -1.f, 0.f));
    }
    collidePass(*system);  // builds the grid
    return *system;
}

void BM_CollidePass1M(benchmark::State& state)
{
    GranularParticleSystem& s = shellScene();
    for (auto _ : state) collidePass(s);
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(s.particleCount()));
    state.counters["particles"] = double(s.particleCount());
    state.counters["threads"] = simState->numThreads;
}
BENCHMARK(BM_CollidePass1M)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MeshToSdfOurs(benchmark::State& state)
{
    ensureRecords();
    const ObjectMesh& mesh = *sphere100k();
    SdfBuildSettings settings;
    settings.voxelSize = float(state.range(0)) / 1000.f;
    settings.band = 3.f;
    int64_t voxels = 0;
    for (auto _ : state) {
        ObjectPartSdf part;
        if (buildMeshSdf(mesh, settings, part) != 0) state.SkipWithError("build failed");
        voxels = int64_t(openvdb::gridPtrCast<openvdb::FloatGrid>(part.sdfGrid)->activeVoxelCount());
    }
    state.counters["triangles"] = double(mesh.triangles.size());
    state.counters["voxels"] = double(voxels);
}
BENCHMARK(BM_MeshToSdfOurs)->Arg(20)->Arg(10)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_MeshToSdfBareOpenVdb(benchmark::State& state)
{
    openvdb::initialize();
    const ObjectMesh& mesh = *sphere100k();
    const double vs = double(state.range(0)) / 1000.0;
    const auto transform = openvdb::math::Transform::createLinearTransform(vs);
    std::vector<openvdb::Vec3s> points;
    for (const Vec4f& p : mesh.vertices) points.emplace_back(transform->worldToIndex(openvdb::Vec3d(p.x, p.y, p.z)));
    std::vector<openvdb::Vec3I> triangles;
    for (const ObjectTriangle& t : mesh.triangles) triangles.emplace_back(t.v0, t.v1, t.v2);
    openvdb::tools::QuadAndTriangleDataAdapter<openvdb::Vec3s, openvdb::Vec3I> adapter(points, triangles);
    int64_t voxels = 0;
    for (auto _ : state) {
        auto grid = openvdb::tools::meshToVolume<openvdb::FloatGrid>(adapter, *transform, 3.f, 3.f);
        voxels = int64_t(grid->activeVoxelCount());
    }
    state.counters["triangles"] = double(triangles.size());
    state.counters["voxels"] = double(voxels);
}
BENCHMARK(BM_MeshToSdfBareOpenVdb)->Arg(20)->Arg(10)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
