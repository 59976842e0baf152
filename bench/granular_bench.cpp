// Granular solver throughput on a settled pile: whole substeps at 100k and 1M particles,
// the same substep split into its named stages, the hash sort against std::sort, and the
// integration pass's effective bandwidth against a plain copy of the arrays it touches.
// The pile is built directly as a lattice at spacing 2r on the ground: simulating 1M
// particles into a rest state would take far longer than the measurement.
#include "benchenv.h"
#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "particles/granularparticlesystem.h"
#include "particles/radixsort.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <map>
#include <memory>
#include <omp.h>
#include <vector>

namespace {

// Substeps run before measuring: the first one sizes every neighbour list.
constexpr int kWarmupSubsteps = 3;

void ensureRecords()
{
    ensureBenchRecords();
}

// nx * ny * nz particles at spacing 2r, the lowest layer resting on the ground. Without
// links, maxConstraintLength is 0: no constraints are made, and the solve is contacts alone.
std::unique_ptr<GranularParticleSystem> latticePile(int nx, int ny, int nz, bool links)
{
    auto s = std::make_unique<GranularParticleSystem>();
    if (!links) s->maxConstraintLength = 0.f;
    const float r = s->particleRadius;
    for (int y = 0; y < ny; ++y)
        for (int z = 0; z < nz; ++z)
            for (int x = 0; x < nx; ++x)
                s->addParticle(Vec4f(r + 2.f * r * float(x), r + 2.f * r * float(y), r + 2.f * r * float(z)), Vec4f());
    for (int n = 0; n < kWarmupSubsteps; ++n) {
        s->step();
        s->rememberParticleCount();
    }
    return s;
}

// Piles are shared between benchmarks of the same kind: building 1M particles costs seconds.
// With default parameters (links on) the first substep glues the lattice with constraints.
GranularParticleSystem& pile(int64_t count, bool links = true)
{
    static std::map<std::pair<int64_t, bool>, std::unique_ptr<GranularParticleSystem>> piles;
    auto& slot = piles[{count, links}];
    if (!slot) {
        ensureRecords();
        slot = count >= 1000000 ? latticePile(250, 16, 250, links) : latticePile(100, 10, 100, links);
    }
    return *slot;
}

void BM_GranularSubstep(benchmark::State& state)
{
    GranularParticleSystem& s = pile(state.range(0), state.range(1) != 0);
    for (auto _ : state) {
        s.step();
        s.rememberParticleCount();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(s.particleCount()));
    state.counters["particles"] = double(s.particleCount());
    state.counters["threads"] = simState->numThreads;
}
// Second argument: 1 default parameters, 0 without constraints (contacts alone).
BENCHMARK(BM_GranularSubstep)
    ->Args({100000, 1})
    ->Args({1000000, 1})
    ->Args({100000, 0})
    ->Args({1000000, 0})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The CPU solve's stages, timed one by one in the order solveOnCpu runs them.
void BM_GranularSubstepStages(benchmark::State& state)
{
    GranularParticleSystem& s = pile(state.range(0), state.range(1) != 0);
    PhaseTimes phases;
    for (auto _ : state) {
        s.updateDerivedFields();
        s.hash.cellSize = s.particleSpacing;
        s.hash.dt = simState->dt;
        phases.time("hash_ms", [&] { s.hashParticles(); });
        phases.time("sort_ms", [&] { s.sortByHash(); });
        phases.time("blocks_ms", [&] { s.groupBlocks(); });
        phases.time("hash_ms", [&] { s.reorder(); });
        phases.time("neighbours_ms", [&] { s.findNeighbours(); });
        phases.time("iterations_ms", [&] {
            s.relink();
            s.checkNaN();
            for (int it = 0; it < s.iterations; ++it) s.iterate(it);
        });
        phases.time("integrate_ms", [&] { s.integrate(); });
        phases.time("passes_ms", [&] {
            s.forcePass();
            s.compact();
            s.groundPass();
            s.rememberParticleCount();
        });
    }
    phases.report(state);
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(s.particleCount()));
}
BENCHMARK(BM_GranularSubstepStages)
    ->Args({100000, 1})
    ->Args({1000000, 1})
    ->Args({100000, 0})
    ->Args({1000000, 0})
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

// The hash keys of the 1M pile in particle order, as the sort meets them every substep.
const std::vector<uint32_t>& pileKeys()
{
    static std::vector<uint32_t> keys;
    if (keys.empty()) {
        GranularParticleSystem& s = pile(1000000);
        s.hashParticles();
        keys = s.hashKeys;
    }
    return keys;
}

void BM_HashSortRadix(benchmark::State& state)
{
    const std::vector<uint32_t>& input = pileKeys();
    std::vector<uint32_t> keys(input.size()), payload(input.size());
    const int threads = int(state.range(0));
    for (auto _ : state) {
        keys = input;
        for (size_t i = 0; i < payload.size(); ++i) payload[i] = uint32_t(i);
        const Clock::time_point t = Clock::now();
        radixSortPairs(keys.data(), payload.data(), keys.size(), threads);
        state.SetIterationTime(millisecondsSince(t) / 1000.0);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(input.size()));
}
BENCHMARK(BM_HashSortRadix)->Arg(1)->Arg(2)->Unit(benchmark::kMillisecond)->UseManualTime();

void BM_HashSortStd(benchmark::State& state)
{
    const std::vector<uint32_t>& input = pileKeys();
    std::vector<uint64_t> pairs(input.size());
    for (auto _ : state) {
        for (size_t i = 0; i < pairs.size(); ++i) pairs[i] = uint64_t(input[i]) << 32 | uint64_t(i);
        const Clock::time_point t = Clock::now();
        std::sort(pairs.begin(), pairs.end(), [](uint64_t a, uint64_t b) { return (a >> 32) < (b >> 32); });
        state.SetIterationTime(millisecondsSince(t) / 1000.0);
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(input.size()));
}
BENCHMARK(BM_HashSortStd)->Unit(benchmark::kMillisecond)->UseManualTime();

// Bytes per particle the integration pass moves at default settings. Reads: sortedSlot 4,
// sortedFlags 1, sortedContacts 4, sortedPos 16, sortedVel 16, P 16, force 16, and the
// header of the particle's constraint list 24 (for the linked colour tone). Writes:
// numContacts 4, and P, posPrev, v and Cd, 16 each.
constexpr double kIntegrateBytes = 4 + 1 + 4 + 16 + 16 + 16 + 16 + 24 + 4 + 4 * 16;

void BM_IntegrateBandwidth(benchmark::State& state)
{
    GranularParticleSystem& s = pile(1000000);
    s.solveOnCpu();  // the working arrays of the current state
    for (auto _ : state) s.integrate();
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(kIntegrateBytes * double(s.particleCount())));
}
BENCHMARK(BM_IntegrateBandwidth)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same arrays copied plainly, in parallel: what the memory system gives a pure stream.
void BM_PlainCopyBandwidth(benchmark::State& state)
{
    GranularParticleSystem& s = pile(1000000);
    const size_t n = s.particleCount();
    VecArray copyA(n), copyB(n), copyC(n), copyD(n);
    std::vector<uint32_t> copyE(n);
    std::vector<int32_t> copyF(n);
    struct Job {
        const void* from;
        void* to;
        size_t bytes;
    };
    const std::vector<Job> jobs{{s.sortedPos.data(), copyA.data(), n * 16}, {s.sortedVel.data(), copyB.data(), n * 16},
                                {s.body->points->P.data(), copyC.data(), n * 16},
                                {s.ch.force->data(), copyD.data(), n * 16},
                                {s.sortedSlot.data(), copyE.data(), n * 4},
                                {s.ch.numContacts->data(), copyF.data(), n * 4}};
    double bytes = 0.0;
    for (const Job& job : jobs) bytes += 2.0 * double(job.bytes);
    const int threads = simState->numThreads;
    for (auto _ : state) {
#pragma omp parallel num_threads(threads)
        {
            const size_t parts = size_t(omp_get_num_threads());
            const size_t me = size_t(omp_get_thread_num());
            for (const Job& job : jobs) {
                const size_t begin = job.bytes * me / parts / 64 * 64;
                const size_t end = me + 1 == parts ? job.bytes : job.bytes * (me + 1) / parts / 64 * 64;
                std::memcpy(static_cast<char*>(job.to) + begin, static_cast<const char*>(job.from) + begin, end - begin);
            }
        }
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes));
}
BENCHMARK(BM_PlainCopyBandwidth)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
