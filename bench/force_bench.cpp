// Force and constraint throughput: one force applied to 1M particles (uniform in a box,
// radial, with three octaves of noise, as wind), in particle-substeps per second; and the
// whole granular substep at 100k particles with constraints off and on, side by side.
// Piles are lattices at spacing 2r on the ground, built directly rather than simulated.
#include "benchenv.h"
#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "particles/force.h"
#include "particles/granularparticlesystem.h"

#include <benchmark/benchmark.h>

#include <map>
#include <memory>
#include <omp.h>

namespace {

// Substeps run before measuring: the first one creates the constraints and sizes the lists.
constexpr int kWarmupSubsteps = 3;

void ensureRecords()
{
    ensureBenchRecords();
}

// nx * ny * nz particles at spacing 2r, the lowest layer resting on the ground.
std::unique_ptr<GranularParticleSystem> latticePile(int nx, int ny, int nz, float constraintLength)
{
    auto s = std::make_unique<GranularParticleSystem>();
    s->maxConstraintLength = constraintLength;
    const float r = s->particleRadius;
    for (int y = 0; y < ny; ++y)
        for (int z = 0; z < nz; ++z)
            for (int x = 0; x < nx; ++x)
                s->addParticle(Vec4f(r + 2.f * r * float(x), r + 2.f * r * float(y), r + 2.f * r * float(z)),
                               Vec4f());
    return s;
}

// The 1M pile the force benchmarks share (never stepped), and one force per kind.
GranularParticleSystem& forcePile()
{
    static std::unique_ptr<GranularParticleSystem> pile;
    if (!pile) {
        ensureRecords();
        pile = latticePile(250, 16, 250, 0.f);
    }
    return *pile;
}

enum ForceKind { kUniformBox, kRadial, kNoisy, kWind };

Force& benchForce(int kind)
{
    static std::map<int, Force*> forces;
    Force*& f = forces[kind];
    if (!f) {
        ensureRecords();
        const int id = simulation->registerObject(
            std::make_unique<Force>(kind == kRadial ? Force::kRadial : Force::kUniform), "benchforce");
        f = static_cast<Force*>(simulation->objectById(id));
        // Centred on the pile (25 x 1.6 x 25 m) and covering it.
        f->translateX = f->translateZ = 12.5f;
        f->translateY = 0.8f;
        f->scaleX = f->scaleY = f->scaleZ = 40.f;
        if (kind == kNoisy) f->noiseAmp = 0.5f;
        if (kind == kWind) f->isWind = true;
    }
    return *f;
}

void BM_ForceApply(benchmark::State& state)
{
    GranularParticleSystem& s = forcePile();
    Force& f = benchForce(int(state.range(0)));
    s.forceIds.assign(1, f.id);
    for (auto _ : state) {
        s.applyForces();
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(s.particleCount()));
    state.counters["particles"] = double(s.particleCount());
    state.counters["threads"] = std::max(1, simState->numThreads / 2);
}
BENCHMARK(BM_ForceApply)
    ->ArgName("kind")
    ->Arg(kUniformBox)
    ->Arg(kRadial)
    ->Arg(kNoisy)
    ->Arg(kWind)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Whole substeps of a 100k pile: argument 0 without constraints, 1 with the default search
// distance of 3 radii (18 links per particle in the lattice).
GranularParticleSystem& substepPile(bool constraints)
{
    static std::map<bool, std::unique_ptr<GranularParticleSystem>> piles;
    auto& slot = piles[constraints];
    if (!slot) {
        ensureRecords();
        slot = latticePile(100, 10, 100, constraints ? 3.f : 0.f);
        for (int n = 0; n < kWarmupSubsteps; ++n) {
            slot->step();
            slot->rememberParticleCount();
        }
    }
    return *slot;
}

void BM_GranularSubstepConstraints(benchmark::State& state)
{
    GranularParticleSystem& s = substepPile(state.range(0) != 0);
    for (auto _ : state) {
        s.step();
        s.rememberParticleCount();
    }
    size_t links = 0;
    for (const auto& l : *s.ch.constrIndices) links += l.size();
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(s.particleCount()));
    state.counters["particles"] = double(s.particleCount());
    state.counters["links"] = double(links);
    state.counters["threads"] = simState->numThreads;
}
BENCHMARK(BM_GranularSubstepConstraints)
    ->ArgName("constraints")
    ->Arg(0)
    ->Arg(1)
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// Creation alone for the whole 100k pile: the cost of a first batch.
void BM_ConstraintCreation(benchmark::State& state)
{
    GranularParticleSystem& s = substepPile(true);
    for (auto _ : state) s.createConstraints(0);
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(s.particleCount()));
}
BENCHMARK(BM_ConstraintCreation)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
