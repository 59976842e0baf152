// Process-wide run records for the benchmarks, made once per program the way the
// executable makes them at start-up: a headless SimState with every worker thread and a
// substep of 1/(8 * 24) s, the Simulation, and with `withGraph` the node master.
#pragma once

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "graph/nodemaster.h"

#include <omp.h>

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
