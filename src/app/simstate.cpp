// Run controls of SimState: play, pause, reset and the time slider's playback.
#include "app/simstate.h"

#include "app/globals.h"
#include "app/simulation.h"
#include "graph/nodemaster.h"

#include <QSettings>
#include <QThread>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {
const int kRandomTableSize = 20000;
}

SimState::SimState()
{
    const QSettings config(QString::fromStdString(executableDir() + "/config.ini"),
                           QSettings::IniFormat);
    startFrame = int32_t(config.value("config/startFrame", 0.0).toDouble());
    endFrame = int32_t(config.value("config/endFrame", 200.0).toDouble());
    fps = config.value("config/fps", 24.0).toFloat();
    if (!(fps > 0.f)) fps = 24.f;
    setRandomTableSize(kRandomTableSize);
}

int64_t SimState::nowNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(
               std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void SimState::setRandomTableSize(int n)
{
    randomTable.resize(size_t(n > 0 ? n : 1));
    std::srand(0);
    for (float& v : randomTable) v = float(double(std::rand()) / double(RAND_MAX));
    std::srand(0);
}

SimVec3 SimState::randomVector(int i) const
{
    const long n = long(randomTable.size());
    auto at = [&](long k) { return randomTable[size_t(((k % n) + n) % n)]; };
    return SimVec3{at(i), at(long(i) + 7213), at(long(i) + 123)};
}

SimVec3 SimState::randomDirection(int i) const
{
    SimVec3 v = randomVector(i);
    const float len = std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z);
    if (len == 0.f) return SimVec3{};
    return SimVec3{v.x / len, v.y / len, v.z / len};
}

void SimState::play()
{
    playbackStopped = true;
    if (!paused) return;
    if (frame == startFrame && substep == 0) {
        if (simulation) simulation->updateSourceTransforms();
        if (nodeMaster) nodeMaster->resetNodes();
    }
    paused = false;
    runStartNs = nowNs();
    if (frame >= endFrame && simFinished) {
        elapsedSeconds = 0.0;
        accumulatedSeconds = 0.0;
        frame = startFrame;
        frameF = float(startFrame);
        substep = 0;
        time = 0.f;
    }
    simFinished = false;
    sliderEnabled = false;
}

void SimState::pause()
{
    playbackStopped = true;
    if (!paused) {
        paused = true;
        runEndNs = nowNs();
        accumulatedSeconds = elapsedSeconds;
    }
    sliderEnabled = true;
}

void SimState::reset()
{
    const bool wasIdle = solverIdle;
    simFinished = true;
    resetRequested = true;
    playbackStopped = true;
    if (!wasIdle) {
        while (!solverIdle) QThread::msleep(5);
    }
    if (!vboMutex.tryLock(100)) {
        std::printf("couldn't reset the scene.\n");
        std::fflush(stdout);
        return;
    }
    if (simulation) simulation->resetAll();
    std::srand(1);
    if (nodeMaster) nodeMaster->resetAll();
    vboMutex.unlock();

    frame = startFrame;
    frameF = float(startFrame);
    time = frameF / fps;
    substep = 0;
    elapsedSeconds = 0.0;
    accumulatedSeconds = 0.0;
    viewportRedraw = true;
}

void SimState::startPlayback()
{
    if (!playbackStopped || !paused) return;
    if (frame == startFrame && substep == 0 && simulation) simulation->updateSourceTransforms();
    playbackStopped = false;
}

void SimState::stopPlayback()
{
    if (!playbackStopped && paused) playbackStopped = true;
    sliderEnabled = true;
}
