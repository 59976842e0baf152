// The frame and substep loop and the order of one substep.
#include "app/solvermainloop.h"

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "graph/nodemaster.h"
#include "particles/cudahost.h"

#include <QMutexLocker>
#include <omp.h>
#include <tbb/global_control.h>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>

SolverMainLoop::SolverMainLoop(QObject* parent) : QThread(parent) {}

int SolverMainLoop::substepCount(float d, float fps, int minSubsteps, int maxSubsteps)
{
    int n = minSubsteps;
    const double steps = 1.0 / (double(d) * double(fps));
    if (std::isfinite(steps) && steps > 0.0) {
        const double capped = std::min(steps, double(std::numeric_limits<int>::max()));
        n = std::max(int(capped), minSubsteps);
    }
    n = std::min(n, maxSubsteps);
    return std::max(n, 1);
}

bool SolverMainLoop::sleepWhile(const std::function<bool()>& condition, unsigned long sliceMs)
{
    while (condition()) {
        QThread::msleep(sliceMs);
        if (simState->quitRequested) return false;
    }
    return true;
}

void SolverMainLoop::finishRun()
{
    SimState& s = *simState;
    s.runEndNs = SimState::nowNs();
    s.elapsedSeconds = (s.accumulatedSeconds * 1e9 + double(s.runEndNs - s.runStartNs)) / 1e9;
    s.pause();
    const long total = long(s.elapsedSeconds);
    const long h = total / 3600, m = total / 60 - 60 * h, sec = total - 3600 * h - 60 * m;
    const int frames = std::max(0, s.endFrame - s.startFrame + 1);
    std::printf("sim finished after %d frames. It took %ldh %ldm %lds.\n", frames, h, m, sec);
    std::fflush(stdout);
    s.simFinished = true;
}

void SolverMainLoop::run()
{
    SimState& s = *simState;
    while (!s.quitRequested) {
        // 1. idle wait
        int resumedSteps = 0;
        while (s.paused) {
            s.solverIdle = true;
            s.resetRequested = false;
            QThread::msleep(60);
            if (s.quitRequested) return;
        }
        s.solverIdle = false;
        // A reset asked for while idle was carried out by the asker itself; a play that
        // follows it at once must not find the flag still up and skip the whole run.
        s.resetRequested = false;
        // OpenMP loops and OpenVDB's TBB tasks share the same cores: cap both to numThreads.
        const int workers = std::max(1, s.numThreads);
        omp_set_num_threads(workers);
        tbb::global_control tbbLimit(tbb::global_control::max_allowed_parallelism, size_t(workers));

        std::printf("currentframe: %d - startframe: %d - endframe: %d\n", s.frame, s.startFrame, s.endFrame);
        std::fflush(stdout);
        if (s.cudaAvailable && !cudaSelectDevice(qorvaCudaDevId)) std::exit(1);

        int64_t rateClock = 0;
        bool resetPath = false;
        while (s.frame <= s.endFrame) {
            const float d = simulation ? simulation->maxStableDt(s.cflNumber) : 1000.f;
            s.substeps = substepCount(d, s.fps, s.minSubsteps, s.maxSubsteps);
            s.dt = 1.f / (float(s.substeps) * s.fps);
            hashDt = s.dt;

            for (s.substep = 0; s.substep < s.substeps;) {
                s.frameF = float(s.substep) / float(s.substeps) + float(s.frame);
                s.time = s.frameF / s.fps;
                if (resumedSteps == 0) updateObjects();
                if (rateCount == 0) rateClock = SimState::nowNs();
                const int64_t stepClock = SimState::nowNs();
                if (s.frame == s.startFrame && s.substep == 0 && simulation) simulation->loadInitialStates();
                if (!s.resetRequested) step();

                if (++rateCount >= rateWindow) {
                    const double seconds = double(SimState::nowNs() - rateClock) / 1e9;
                    s.stepsPerSecond = seconds > 0.0 ? float(rateWindow / seconds) : 0.f;
                    rateCount = 0;
                }
                if (s.substep == 0) {
                    if (s.writeCaches && simulation) simulation->writeCaches();
                    // Headless runs have no thread that takes images: never wait for one.
                    if (s.writeImages && !s.headless) {
                        s.imageRequested = true;
                        if (!sleepWhile([&] { return s.imageRequested && !s.resetRequested; }, 6)) return;
                    }
                }
                if (!s.resetRequested) {
                    if (!sleepWhile([&] { return s.paused && !s.resetRequested; }, 80)) return;
                }
                if (!s.resetRequested) {
                    s.elapsedSeconds =
                        (s.accumulatedSeconds * 1e9 + double(SimState::nowNs() - s.runStartNs)) / 1e9;
                    if (!s.headless && double(SimState::nowNs() - stepClock) / 1e9 > 3.0) QThread::msleep(35);
                }
                ++s.substep;
                ++resumedSteps;
            }
            std::printf("\n--- frame %d solved. ---\n\n", s.frame);
            std::fflush(stdout);
            if (onFrameSolved) onFrameSolved(s.frame);
            if (s.resetRequested) {
                resetPath = true;
                break;
            }
            if (s.quitRequested) return;
            if (!sleepWhile([&] { return s.paused && !s.resetRequested; }, 80)) return;
            if (s.resetRequested) {
                resetPath = true;
                break;
            }
            ++s.frame;
        }
        if (!resetPath && !s.resetRequested) {
            finishRun();
            continue;
        }
        // reset path
        s.resetRequested = false;
        s.paused = true;
        std::srand(1);
    }
}

void SolverMainLoop::updateObjects()
{
    SimState& s = *simState;
    if (!simulation) return;
    {
        QMutexLocker lock(&objectMutex);
        simulation->evaluateParameters(s.frameF, s.substep);
    }
    simulation->updateClassicObjects(s.frameF);
    if (simulation->globalSettings) s.collideGround = simulation->globalSettings->collideGround;
}

void SolverMainLoop::step()
{
    SimState& s = *simState;
    {
        QMutexLocker lock(&vboMutex);
        updateObjects();
        // SPH systems step here first, then the granular systems, then the dumb ones.
        if (simulation) simulation->stepSystems();
    }
    if (nodeMaster) {
        nodeMaster->graphDt = s.dt;
        nodeMaster->verbose = false;
        QMutexLocker lockVbo(&vboMutex);
        QMutexLocker lockGraph(&graphMutex);
        nodeMaster->runSystemNodes();
    }
    if (simulation) simulation->rememberParticleCounts();
    const bool onSubframes = simulation && simulation->globalSettings &&
                             simulation->globalSettings->evalGraphOnSubframes;
    if (!onSubframes && s.substep > 0) {
        std::printf("solved step\n");
        return;
    }
    if (nodeMaster) {
        nodeMaster->graphDt = onSubframes ? s.dt : 1.f / s.fps;
        QMutexLocker lockVbo(&vboMutex);
        QMutexLocker lockGraph(&graphMutex);
        nodeMaster->cook(true);
    }
    std::printf("solved step\n");
}
