// Source throughput: one emission of 1M particles from a mesh volume (a 10-unit cube on
// a lattice of 0.1) into an empty granular system, with and without the free-space test
// (particles per second), and a plane layer of 250k particles for comparison.
#include "benchenv.h"
#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "io/object.h"
#include "particles/granulartraits.h"
#include "particles/source.h"

#include <benchmark/benchmark.h>

#include <memory>
#include <omp.h>

namespace {

void ensureRecords()
{
    ensureBenchRecords();
}

// The closed box lo..hi: 8 corners, 12 triangles.
std::shared_ptr<ObjectMesh> box(const Vec4f& lo, const Vec4f& hi)
{
    auto m = std::make_shared<ObjectMesh>();
    for (int i = 0; i < 8; ++i)
        m->vertices.push_back(Vec4f(i & 1 ? hi.x : lo.x, i & 2 ? hi.y : lo.y, i & 4 ? hi.z : lo.z, 0.f));
    const int faces[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
    for (const auto& f : faces)
        for (int k = 0; k < 2; ++k) {
            ObjectTriangle t;
            t.v0 = f[0];
            t.v1 = f[1 + k];
            t.v2 = f[2 + k];
            t.t0 = t.t1 = t.t2 = -1;
            m->triangles.push_back(t);
        }
    m->velocities.assign(m->vertices.size(), Vec4f());
    m->computeTriangleNormals();
    m->computeBounds();
    return m;
}

struct Scene {
    GranularParticleSystem* system = nullptr;
    Source* volume = nullptr;
    Source* plane = nullptr;
};

Scene& scene()
{
    static Scene s;
    if (s.system) return s;
    ensureRecords();
    auto object = std::make_unique<Object>();
    // The 0.1 lattice from its corner has 100 points inside per axis and one on the surface.
    object->meshes.push_back(box(Vec4f(-0.05f, -0.05f, -0.05f), Vec4f(9.99f, 9.99f, 9.99f)));
    ++object->geometryStamp;
    Object* o = object.get();
    simulation->registerObject(std::move(object), "block");
    auto volume = std::make_unique<Source>(Source::kVolume);
    volume->geometryIds = {o->id};
    volume->voxelSize = 0.1f;
    s.volume = volume.get();
    simulation->registerObject(std::move(volume), "volumeSource");
    auto plane = std::make_unique<Source>(Source::kPlane);
    plane->scaleX = plane->scaleZ = 50.f;
    s.plane = plane.get();
    simulation->registerObject(std::move(plane), "planeSource");
    s.system = simulation->createGranularSystem("emitted");
    s.volume->updateMatrices();
    s.plane->updateMatrices();
    return s;
}

void emitOnce(benchmark::State& state, Source& source)
{
    GranularParticleSystem& g = *scene().system;
    int64_t emitted = 0;
    for (auto _ : state) {
        state.PauseTiming();
        g.reset();
        source.resetEmission();
        source.updateMatrices();
        state.ResumeTiming();
        emitted += emitParticles(source, g);
    }
    state.SetItemsProcessed(emitted);
    state.counters["particles"] = double(g.particleCount());
}

void BM_EmitVolume1M(benchmark::State& state)
{
    Source& s = *scene().volume;
    s.checkSpace = state.range(0) != 0;
    emitOnce(state, s);
}
BENCHMARK(BM_EmitVolume1M)->ArgName("checkSpace")->Arg(1)->Arg(0)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_EmitPlane250k(benchmark::State& state)
{
    emitOnce(state, *scene().plane);
}
BENCHMARK(BM_EmitPlane250k)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
