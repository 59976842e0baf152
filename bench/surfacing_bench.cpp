// Surfacing throughput: particles into a level set (particles per second), a level set back
// into a mesh (mesh points per second), and the Mesher's whole chain on a sand-like heap
// (particles per second, filter passes and meshing included).
#include "geo/body.h"
#include "nodes/levelsetops.h"

#include <benchmark/benchmark.h>

#include <openvdb/openvdb.h>

#include <cstdint>
#include <random>

namespace {

// A heap of `count` grains of spacing about 0.02, as a granular pile lies.
BodyPtr heap(size_t count)
{
    auto body = std::make_shared<Body>();
    body->points->resizePoints(count);
    std::mt19937 rng(7);
    std::uniform_real_distribution<float> u(0.f, 1.f);
    const float side = 0.02f * std::cbrt(float(count));
    for (size_t i = 0; i < count; ++i) {
        const float x = u(rng) * side, z = u(rng) * side;
        body->points->P[i] = Vec4f(x, u(rng) * side * 0.5f, z);
    }
    return body;
}

void BM_PointsToLevelSet(benchmark::State& state)
{
    openvdb::initialize();
    BodyPtr points = heap(size_t(state.range(0)));
    for (auto _ : state) {
        Body out;
        pointsToVolume(out, *points, 0.02f, 0.03f, 3, false, false, "", "");
        benchmark::DoNotOptimize(out.volumes->size());
    }
    state.counters["particles_per_s"] =
        benchmark::Counter(double(state.range(0)) * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_PointsToLevelSet)->Arg(200000)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_LevelSetToMesh(benchmark::State& state)
{
    openvdb::initialize();
    Body volume;
    BodyPtr one = std::make_shared<Body>();
    one->points->addPoint(Vec4f(0.f, 0.f, 0.f));
    pointsToVolume(volume, *one, 0.01f, 0.5f, 3, false, false, "", "");
    size_t meshPoints = 0;
    for (auto _ : state) {
        Body mesh;
        volumeToMeshBody(volume, mesh, 0.f, 0.f, "");
        meshPoints = mesh.points->size();
    }
    state.counters["mesh_points"] = double(meshPoints);
    state.counters["mesh_points_per_s"] =
        benchmark::Counter(double(meshPoints) * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_LevelSetToMesh)->Unit(benchmark::kMillisecond)->UseRealTime();

// The Mesher's plain mode: grown particles, blending offset pair, two smoothing passes, mesh.
void BM_MesherChain(benchmark::State& state)
{
    openvdb::initialize();
    BodyPtr points = heap(size_t(state.range(0)));
    const float voxel = 0.02f, blending = 0.1f, d = 2.f * voxel, r = d + blending * d;
    const float iso = -0.75f * r;
    for (auto _ : state) {
        Body volume;
        pointsToVolume(volume, *points, voxel, r, 3, false, false, "", "");
        GridBasePtr sdf = findDistanceGrid(*volume.volumes);
        levelSetOffset(sdf, -blending);
        filterLevelSet(sdf, 0, 1, 1, 0.5f);
        levelSetOffset(sdf, blending);
        filterLevelSet(sdf, 0, 1, 1, 0.3f);
        Body mesh;
        volumeToMeshBody(volume, mesh, iso, 0.05f, "");
        benchmark::DoNotOptimize(mesh.points->size());
    }
    state.counters["particles_per_s"] =
        benchmark::Counter(double(state.range(0)) * double(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_MesherChain)->Arg(100000)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
