// SolverMainLoop: the solver thread. It runs the frame and substep loop of a run: turns
// the fastest speed into a substep count, steps the classic systems, runs the system
// nodes and cooks the graph, writes caches once a frame, and answers play, pause, reset
// and quit through SimState's flags.
#pragma once

#include <QThread>

#include <cstdint>
#include <functional>

class SolverMainLoop : public QThread {
    Q_OBJECT
public:
    explicit SolverMainLoop(QObject* parent = nullptr);

    int rateCount = 0;
    int rateWindow = 20;
    // Step length handed to the particle hash every frame.
    float hashDt = 0.f;
    // Called once a frame after its "solved" line (headless progress).
    std::function<void(int frame)> onFrameSolved;

    void updateObjects();
    void step();

    // Substep count for a largest stable step `d`: 1 / (d * fps), raised to `minSubsteps`,
    // cut to `maxSubsteps`; a non-finite or non-positive d gives `minSubsteps`.
    static int substepCount(float d, float fps, int minSubsteps, int maxSubsteps);

protected:
    void run() override;

private:
    // Sleeps in `sliceMs` slices while `condition` holds; false if quit was requested.
    bool sleepWhile(const std::function<bool()>& condition, unsigned long sliceMs);
    void finishRun();
};
