// SPH solver throughput: whole substeps at 100k and 1M particles (particle-substeps per
// second), and the same substep split into its phases: hash (keys, sort, cell ranges and
// the sorted copies), density, pair forces and integration. The fluid is a lattice slab at
// the particle spacing on the ground, built directly: settling 1M particles by simulation
// would take far longer than the measurement.
#include "benchenv.h"
#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "particles/sphparticlesystem.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <map>
#include <memory>
#include <omp.h>

namespace {

constexpr int kWarmupSubsteps = 2;

void ensureRecords()
{
    ensureBenchRecords();
}

// nx * ny * nz particles at the particle spacing, the lowest layer on the ground.
std::unique_ptr<SimpleSPHParticleSystem> slab(int nx, int ny, int nz)
{
    auto s = std::make_unique<SimpleSPHParticleSystem>();
    s->updateDerivedFields();
    const float sp = s->particleSpacing, h = s->kernelRadius;
    for (int y = 0; y < ny; ++y)
        for (int z = 0; z < nz; ++z)
            for (int x = 0; x < nx; ++x)
                s->addParticle(Vec4f(sp * float(x), h + sp * float(y), sp * float(z), 0.f), Vec4f());
    for (int n = 0; n < kWarmupSubsteps; ++n) {
        s->step();
        s->rememberParticleCount();
    }
    return s;
}

// Slabs are shared between the benchmarks: building 1M particles costs seconds.
SimpleSPHParticleSystem& fluid(int64_t count)
{
    static std::map<int64_t, std::unique_ptr<SimpleSPHParticleSystem>> slabs;
    auto& slot = slabs[count];
    if (!slot) {
        ensureRecords();
        slot = count >= 1000000 ? slab(250, 16, 250) : slab(100, 10, 100);
    }
    return *slot;
}

void BM_SphSubstep(benchmark::State& state)
{
    SimpleSPHParticleSystem& s = fluid(state.range(0));
    for (auto _ : state) {
        s.step();
        s.rememberParticleCount();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(s.particleCount()));
    state.counters["particles"] = double(s.particleCount());
    state.counters["threads"] = simState->numThreads;
}
BENCHMARK(BM_SphSubstep)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();

// The phases of the CPU solve, timed one by one in the order solveOnCpu runs them; the
// passes after the solve (gravity, ground) are timed together.
void BM_SphSubstepPhases(benchmark::State& state)
{
    SimpleSPHParticleSystem& s = fluid(state.range(0));
    PhaseTimes phases;
    for (auto _ : state) {
        s.updateDerivedFields();
        phases.time("hash_ms", [&] { s.searchNeighbours(); });
        phases.time("density_ms", [&] { s.densityPass(); });
        phases.time("forces_ms", [&] { s.forcePairPass(); });
        phases.time("integrate_ms", [&] { s.integrate(); });
        phases.time("passes_ms", [&] {
            s.forcePass();
            s.compact();
            s.groundPass();
            s.rememberParticleCount();
        });
    }
    phases.report(state);
    state.counters["particles"] = double(s.particleCount());
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(s.particleCount()));
}
BENCHMARK(BM_SphSubstepPhases)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
