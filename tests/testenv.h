// Process-wide records for tests that need SimState, Simulation and the node master, made
// once per test executable, the way the executable makes them at start-up.
#pragma once

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "graph/nodemaster.h"

inline void ensureSceneRecords()
{
    if (!simState) {
        initVersion();
        simState = new SimState();
        simState->headless = true;
        simState->numThreads = 2;
    }
    if (!simulation) {
        simulation = new Simulation();
        nodeMaster = new NodeMaster();
        simulation->nodeMaster = nodeMaster;
        simulation->createGlobalSettings();
    }
}
