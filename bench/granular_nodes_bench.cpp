// The Granular-Solver node against the classic granular system on the same particles, in
// the same run: one node solve (its `iterations` over the step) against one classic substep
// with the same iterations. The node form has no substeps, so a node cook compares with a
// classic step. Both run contacts alone (no constraints) on a lattice pile at spacing 2r.
#include "benchenv.h"
#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "nodes/granularoriginnode.h"
#include "nodes/granularsolvernode.h"
#include "particles/granularparticlesystem.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <memory>
#include <omp.h>

namespace {

void ensureRecords()
{
    ensureBenchRecords();
}

void BM_GranularSolverNodeVsClassic(benchmark::State& state)
{
    ensureRecords();
    const int nx = int(state.range(0)), ny = 10, nz = int(state.range(0));
    auto classic = std::make_unique<GranularParticleSystem>();
    classic->maxConstraintLength = 0.f;
    const float r = classic->particleRadius;
    auto body = std::make_shared<Body>();
    body->isDynamic = true;
    for (int y = 0; y < ny; ++y)
        for (int z = 0; z < nz; ++z)
            for (int x = 0; x < nx; ++x) {
                const Vec4f p(r + 2.f * r * float(x), r + 2.f * r * float(y), r + 2.f * r * float(z));
                classic->addParticle(p, Vec4f());
                body->points->addPoint(p);
            }
    GranularOriginNode::addGranularChannels(*body);
    GranularSolverNode node(nullptr);
    node.maxConstraintLength = 0.f;
    node.iterations = classic->iterations;
    node.particleStiffness = classic->particleStiffness;
    node.friction = classic->friction;
    const float dt = simState->dt;
    // Warm-up: working arrays and neighbour lists sized on both sides.
    for (int n = 0; n < 2; ++n) {
        classic->step();
        classic->rememberParticleCount();
        node.solve(body, dt);
    }
    double classicMs = 0.0, nodeMs = 0.0;
    for (auto _ : state) {
        Clock::time_point t = Clock::now();
        classic->step();
        classic->rememberParticleCount();
        classicMs += millisecondsSince(t);
        t = Clock::now();
        node.solve(body, dt);
        nodeMs += millisecondsSince(t);
    }
    const double runs = double(state.iterations());
    state.counters["particles"] = double(classic->particleCount());
    state.counters["classic_ms"] = classicMs / runs;
    state.counters["node_ms"] = nodeMs / runs;
    state.counters["node_over_classic"] = classicMs > 0.0 ? nodeMs / classicMs : 0.0;
}
BENCHMARK(BM_GranularSolverNodeVsClassic)->Arg(60)->Arg(100)->Unit(benchmark::kMillisecond)->UseRealTime();

} // namespace
