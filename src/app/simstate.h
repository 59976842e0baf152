// SimState: the one record of run state that the solver thread and the main thread
// share. Fields are plain values polled without a lock; requests (play, pause, reset,
// quit) are flags that the solver's sleeping loops pick up within 6 to 80 ms.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

struct SimVec3 {
    float x = 0.f, y = 0.f, z = 0.f;
};

class SimState {
public:
    SimState();

    bool paused = true;
    bool solverIdle = true;
    bool simFinished = true;
    bool exitWhenFinished = false;
    bool playbackStopped = true;
    bool playblastRunning = false;
    int32_t playblastStartFrame = 0;
    int32_t playblastEndFrame = 0;
    float stepsPerSecond = 0.f;
    bool viewportRedraw = false;
    bool quitRequested = false;
    int32_t numThreads = 1;
    bool gpuSort = false;
    bool collideGround = true;
    int32_t startFrame = 0;
    int32_t endFrame = 200;
    float time = 0.f;
    int32_t frame = 0;
    float frameF = 0.f;
    float fps = 24.f;
    int32_t minSubsteps = 8;
    int32_t maxSubsteps = 12;
    float cflNumber = 0.5f;
    int32_t substeps = 1;
    int32_t substep = 0;
    float dt = 0.f;
    bool resetRequested = false;
    bool scrubEnabled = true;
    bool writeImages = false;
    bool imageRequested = false;
    bool writeCaches = false;
    bool writeInBackground = true;
    bool headless = false;
    bool guiWake = false;
    bool cudaAvailable = false;
    float fov = 60.f;
    bool antialiasing = true;
    int32_t globalSettingsId = -1;
    int64_t runStartNs = 0;
    int64_t runEndNs = 0;
    double elapsedSeconds = 0.0;
    double accumulatedSeconds = 0.0;
    std::vector<float> randomTable;

    // The damping every system's damping row edits, and the ground height the GPU path reads.
    float damping = 0.f;
    float ground = 0.f;
    // Whether the window's time slider may be used; the window reads it.
    bool sliderEnabled = true;
    // Output path of the playblast under way (a file pattern or folder; empty: automatic).
    std::string playblastPath;

    void play();
    void pause();
    void reset();
    void startPlayback();
    void stopPlayback();

    // Refills the table: srand(0), values rand() / RAND_MAX, srand(0) again.
    void setRandomTableSize(int n);
    SimVec3 randomVector(int i) const;
    SimVec3 randomDirection(int i) const;

    static int64_t nowNs();
};
