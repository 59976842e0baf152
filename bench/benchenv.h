// Process-wide run records for the benchmarks, made once per program the way the
// executable makes them at start-up: a headless SimState with every worker thread and a
// substep of 1/(8 * 24) s, the Simulation, and with `withGraph` the node master.
#pragma once

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "graph/nodemaster.h"

#include <benchmark/benchmark.h>
#include <omp.h>

#include <chrono>
#include <map>

inline void ensureBenchRecords(bool withGraph = false)
{
    if (!simState) {
        initVersion();
        simState = new SimState();
        simState->headless = true;
        simState->numThreads = omp_get_max_threads();
        simState->dt = 1.f / (8.f * 24.f);
        simState->collideGround = true;
    }
    if (!simulation) simulation = new Simulation();
    if (withGraph && !nodeMaster) {
        nodeMaster = new NodeMaster();
        simulation->nodeMaster = nodeMaster;
        simulation->createGlobalSettings();
    }
}

using Clock = std::chrono::steady_clock;

inline double millisecondsSince(Clock::time_point start)
{
    return std::chrono::duration<double, std::milli>(Clock::now() - start).count();
}

// Wall time of the named phases of a benchmark loop, summed over its iterations and
// reported as one counter per phase (milliseconds per iteration).
class PhaseTimes {
public:
    template <class F> void time(const char* name, F&& work)
    {
        const Clock::time_point start = Clock::now();
        work();
        ms[name] += millisecondsSince(start);
    }
    void report(benchmark::State& state) const
    {
        for (const auto& [name, total] : ms) state.counters[name] = total / double(state.iterations());
    }

private:
    std::map<const char*, double> ms;
};
