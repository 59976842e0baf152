// The frame and substep loop over an empty scene: substep counts, pause, play and reset
// from another thread, and a range that is empty from the start.
#include "testenv.h"

#include "app/solvermainloop.h"

#include <gtest/gtest.h>

#include <QThread>
#include <chrono>
#include <cmath>
#include <functional>

namespace {

bool waitFor(const std::function<bool()>& condition, int timeoutMs = 20000)
{
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end) return false;
        QThread::msleep(2);
    }
    return true;
}

TEST(SubstepCount, EdgeCases)
{
    // No system: d stays large and the minimum applies.
    EXPECT_EQ(SolverMainLoop::substepCount(1000.f, 24.f, 8, 12), 8);
    // minSubsteps above maxSubsteps gives maxSubsteps.
    EXPECT_EQ(SolverMainLoop::substepCount(1000.f, 24.f, 10, 4), 4);
    // A fast particle asks for more, capped.
    EXPECT_EQ(SolverMainLoop::substepCount(0.0039f, 24.f, 8, 12), 10); // 1 / (0.0039 * 24) = 10.68
    EXPECT_EQ(SolverMainLoop::substepCount(1e-6f, 24.f, 8, 12), 12);
    // Speeds of -1 or 0 before the first step: never a division by zero or a negative count.
    EXPECT_EQ(SolverMainLoop::substepCount(0.f, 24.f, 8, 12), 8);
    EXPECT_EQ(SolverMainLoop::substepCount(-0.5f, 24.f, 8, 12), 8);
    EXPECT_EQ(SolverMainLoop::substepCount(std::nanf(""), 24.f, 8, 12), 8);
    EXPECT_EQ(SolverMainLoop::substepCount(INFINITY, 24.f, 8, 12), 8);
}

TEST(RandomTable, SameEveryRunAndInUnitRange)
{
    SimState a, b;
    ASSERT_EQ(a.randomTable.size(), 20000u);
    EXPECT_EQ(a.randomTable, b.randomTable);
    for (float v : a.randomTable) {
        ASSERT_GE(v, 0.f);
        ASSERT_LE(v, 1.f);
    }
    const SimVec3 d = a.randomDirection(5);
    EXPECT_NEAR(std::sqrt(d.x * d.x + d.y * d.y + d.z * d.z), 1.f, 1e-5);
    const SimVec3 v = a.randomVector(19999);
    EXPECT_EQ(v.y, a.randomTable[(19999 + 7213) % 20000]);
}

class SolverLoopTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        SimState& s = *simState;
        s.paused = true;
        s.simFinished = true;
        s.quitRequested = false;
        s.resetRequested = false;
        s.startFrame = 0;
        s.endFrame = 10;
        s.frame = 0;
        s.substep = 0;
        s.minSubsteps = 8;
        s.maxSubsteps = 12;
        simulation->globalSettings->params.get("startFrame")->text = "0";
        simulation->globalSettings->params.get("endFrame")->text = "10";
        simulation->globalSettings->params.get("minSubsteps")->text = "8";
        simulation->globalSettings->params.get("maxSubsteps")->text = "12";
        loop.onFrameSolved = [this](int f) { solvedFrames.push_back(f); };
        testing::internal::CaptureStdout();
        loop.start();
    }
    void TearDown() override
    {
        simState->quitRequested = true;
        loop.wait();
        testing::internal::GetCapturedStdout();
        simState->quitRequested = false;
    }
    SolverMainLoop loop;
    std::vector<int> solvedFrames;
};

TEST_F(SolverLoopTest, EmptySceneRunsToTheEndAtMinSubsteps)
{
    simState->play();
    ASSERT_TRUE(waitFor([] { return simState->simFinished && simState->paused; }));
    EXPECT_EQ(solvedFrames.size(), 11u);
    EXPECT_EQ(simState->substeps, 8);
    EXPECT_FLOAT_EQ(simState->dt, 1.f / (8.f * 24.f));
    EXPECT_EQ(simState->frame, 11) << "a finished run stands past endFrame";
    // Play again: a finished run restarts at startFrame.
    solvedFrames.clear();
    simState->play();
    EXPECT_EQ(simState->frame, 0);
    ASSERT_TRUE(waitFor([] { return simState->simFinished && simState->paused; }));
    EXPECT_EQ(solvedFrames.size(), 11u);
}

TEST_F(SolverLoopTest, StartAboveEndFinishesAtOnce)
{
    simState->frame = 20;
    simState->startFrame = 20;
    simulation->globalSettings->params.get("startFrame")->text = "20";
    simState->play();
    ASSERT_TRUE(waitFor([] { return simState->simFinished && simState->paused; }));
    EXPECT_TRUE(solvedFrames.empty());
}

TEST_F(SolverLoopTest, PauseHoldsAndPlayGoesOn)
{
    simState->endFrame = 100000;
    simulation->globalSettings->params.get("endFrame")->text = "100000";
    simState->play();
    ASSERT_TRUE(waitFor([] { return simState->frame >= 3; }));
    simState->pause();
    QThread::msleep(150);
    const int frame = simState->frame, substep = simState->substep;
    QThread::msleep(300);
    EXPECT_EQ(simState->frame, frame) << "a paused solver must not advance";
    EXPECT_EQ(simState->substep, substep);
    EXPECT_FALSE(simState->solverIdle) << "a paused run is not idle";
    simState->play();
    ASSERT_TRUE(waitFor([&] { return simState->frame > frame + 2; }));
}

TEST_F(SolverLoopTest, ResetFromAnotherThreadReturnsToStart)
{
    simState->endFrame = 100000;
    simulation->globalSettings->params.get("endFrame")->text = "100000";
    simState->play();
    ASSERT_TRUE(waitFor([] { return simState->frame >= 5; }));
    simState->reset();
    EXPECT_TRUE(simState->solverIdle);
    EXPECT_TRUE(simState->paused);
    EXPECT_EQ(simState->frame, 0);
    EXPECT_EQ(simState->substep, 0);
    EXPECT_TRUE(simState->simFinished);
    // and the solver can run again from there
    solvedFrames.clear();
    simState->endFrame = 2;
    simulation->globalSettings->params.get("endFrame")->text = "2";
    simState->play();
    ASSERT_TRUE(waitFor([] { return simState->simFinished && simState->paused; }));
    EXPECT_EQ(solvedFrames, (std::vector<int>{0, 1, 2}));
}

} // namespace
