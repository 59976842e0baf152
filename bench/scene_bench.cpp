// The demo scene headless, in process: seconds per frame, particle-substeps per second,
// and the share of solver time spent handing caches to the background writer.
#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "app/solvermainloop.h"
#include "app/writingqueue.h"
#include "graph/nodemaster.h"

#include <benchmark/benchmark.h>

#include <QThread>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <omp.h>
#include <unistd.h>

namespace {

const int kFrames = 48;

void BM_DemoSceneHeadless(benchmark::State& state)
{
    initVersion();
    simState = new SimState();
    simState->headless = true;
    simState->numThreads = omp_get_max_threads();
    simulation = new Simulation();
    nodeMaster = new NodeMaster();
    simulation->nodeMaster = nodeMaster;
    simulation->createGlobalSettings();
    writingQueue = new WritingQueue();
    writingQueue->start();
    const std::string out = (std::filesystem::temp_directory_path() / "qorva_scene_bench").string();

    std::fflush(stdout);
    const int saved = dup(1);
    const int null = open("/dev/null", O_WRONLY);
    dup2(null, 1);

    double seconds = 0.0, cache = 0.0;
    long long particleSubsteps = 0;
    for (auto _ : state) {
        simulation->loadScene(std::string(QORVA_SOURCE_DIR) + "/scenes/sand_demo.qrv");
        GlobalSettings& gs = *simulation->globalSettings;
        gs.params.get("endFrame")->text = std::to_string(kFrames);
        gs.params.get("fallbackPathCaches")->text = out;
        gs.evaluateParameters(0, 0);
        SimState& s = *simState;
        s.writeCaches = true;
        s.frame = s.startFrame;
        s.substep = 0;
        s.simFinished = true;
        simulation->cacheSeconds = 0.0;
        SolverMainLoop loop;
        long long counted = 0;
        loop.onFrameSolved = [&](int) { counted += (long long)(simulation->particleCount()) * s.substeps; };
        loop.start();
        s.play();
        while (!(s.simFinished && s.paused)) QThread::msleep(2);
        s.quitRequested = true;
        loop.wait();
        s.quitRequested = false;
        while (!writingQueue->isIdle()) QThread::msleep(2);
        seconds += s.elapsedSeconds;
        cache += simulation->cacheSeconds;
        particleSubsteps += counted;
        state.SetIterationTime(s.elapsedSeconds);
    }
    std::fflush(stdout);
    dup2(saved, 1);
    close(saved);
    close(null);
    std::filesystem::remove_all(out);

    const double frames = double(kFrames + 1) * double(state.iterations());
    state.counters["s_per_frame"] = seconds / frames;
    state.counters["particle_substeps_per_s"] = double(particleSubsteps) / seconds;
    state.counters["cache_share_pct"] = 100.0 * cache / seconds;
}
BENCHMARK(BM_DemoSceneHeadless)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(2);

} // namespace
