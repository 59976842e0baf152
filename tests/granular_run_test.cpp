// A granular scene built in code and run through the solver loop end to end: a block of
// sand drops and settles, one .bin per frame goes through the background writer, the
// files read back, and a second identical run writes identical bytes.
#include "testenv.h"

#include "app/solvermainloop.h"
#include "app/writingqueue.h"
#include "geo/body.h"
#include "io/fileio.h"
#include "params/paths.h"
#include "particles/granularparticlesystem.h"
#include "particles/particleimport.h"

#include <gtest/gtest.h>

#include <QThread>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

const int kEndFrame = 24;

GranularParticleSystem* sandSystem()
{
    static GranularParticleSystem* g = nullptr;
    if (!g) {
        g = simulation->createGranularSystem("sand");
        g->params.get("exportFormat")->text = "bin";
        g->params.get("enableSleeping")->text = "true";
    }
    return g;
}

void fillBlock(GranularParticleSystem& g)
{
    g.reset();
    g.updateDerivedFields();
    const float s = g.particleSpacing;
    for (int x = 0; x < 10; ++x)
        for (int y = 0; y < 8; ++y)
            for (int z = 0; z < 10; ++z)
                g.addParticle(Vec4f(x * s, 0.3f + y * s, z * s, 0.f), Vec4f(0.f, 0.f, 0.f, 0.f));
}

std::string readFile(const fs::path& p)
{
    std::ifstream f(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

class GranularRunTest : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        ensureSceneRecords();
        if (!writingQueue) {
            writingQueue = new WritingQueue();
            writingQueue->bodyDelayMs = 0;
            writingQueue->idleSleepMs = 20;
            writingQueue->start();
        }
    }
    void runTo(const fs::path& cacheDir)
    {
        SimState& s = *simState;
        GlobalSettings& gs = *simulation->globalSettings;
        gs.params.get("startFrame")->text = "0";
        gs.params.get("endFrame")->text = std::to_string(kEndFrame);
        gs.params.get("fallbackPathCaches")->text = cacheDir.string();
        gs.params.get("minSubsteps")->text = "8";
        gs.params.get("maxSubsteps")->text = "12";
        gs.evaluateParameters(0, 0);
        s.numThreads = 2;
        s.writeCaches = true;
        s.writeInBackground = true;
        s.frame = 0;
        s.substep = 0;
        s.simFinished = true;
        fillBlock(*sandSystem());
        SolverMainLoop loop;
        testing::internal::CaptureStdout();
        loop.start();
        s.play();
        const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(120);
        while (!(s.simFinished && s.paused) && std::chrono::steady_clock::now() < end) QThread::msleep(5);
        s.quitRequested = true;
        loop.wait();
        s.quitRequested = false;
        while (!writingQueue->isIdle() && std::chrono::steady_clock::now() < end) QThread::msleep(5);
        testing::internal::GetCapturedStdout();
        ASSERT_TRUE(s.simFinished);
        ASSERT_TRUE(writingQueue->isIdle());
    }
    fs::path tempDir(const std::string& name)
    {
        fs::path p = fs::temp_directory_path() / ("qorva_run_" + std::to_string(getpid()) + "_" + name);
        fs::remove_all(p);
        return p;
    }
};

TEST_F(GranularRunTest, SandBlockSettlesAndWritesOneCachePerFrame)
{
    const fs::path dir = tempDir("a");
    runTo(dir);
    GranularParticleSystem& g = *sandSystem();
    const size_t n = g.particleCount();
    ASSERT_EQ(n, 800u);
    for (int f = 0; f <= kEndFrame; ++f) {
        const fs::path file = dir / ("sand." + std::string(4 - std::to_string(f).size(), '0') + std::to_string(f) + ".bin");
        ASSERT_TRUE(fs::exists(file)) << file;
        auto body = std::make_shared<Body>();
        ASSERT_EQ(fileio::read(file.string(), body), 0);
        ASSERT_EQ(body->points->size(), n);
    }
    // After a second of sand falling 0.3 units: on the ground, nothing under it, no deep overlap.
    const float r = g.particleRadius;
    float maxSpeed = 0.f;
    for (size_t i = 0; i < n; ++i) {
        const Vec4f& p = g.body->points->P[i];
        ASSERT_GE(p.y, r * 0.9f) << "particle " << i << " sank into the ground";
        maxSpeed = std::max(maxSpeed, g.body->points->v[i].length3());
    }
    EXPECT_LT(maxSpeed, 1.0f);
    fs::remove_all(dir);
}

TEST_F(GranularRunTest, CacheReadsBackWhatWasQueued)
{
    const fs::path dir = tempDir("b");
    GranularParticleSystem& g = *sandSystem();
    fillBlock(g);
    for (size_t i = 0; i < g.particleCount(); ++i) g.body->points->v[i] = Vec4f(0.1f * i, -1.f, 2.f, 0.f);
    const std::string path = (dir / "snap.bin").string();
    writingQueue->addSystemSnapshot(path, g);
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
    while (!writingQueue->isIdle() && std::chrono::steady_clock::now() < end) QThread::msleep(2);
    auto body = std::make_shared<Body>();
    ASSERT_EQ(fileio::read(path, body), 0);
    ASSERT_EQ(body->points->size(), g.particleCount());
    const auto* ids = body->points->attribAs<IntArray>("id");
    ASSERT_NE(ids, nullptr);
    for (size_t i = 0; i < g.particleCount(); ++i) {
        EXPECT_EQ(body->points->P[i], g.body->points->P[i]);
        EXPECT_EQ(body->points->v[i], g.body->points->v[i]);
        EXPECT_EQ((*ids)[i], (*g.ch.id)[i]);
    }
    // And into a system as its initial state.
    testing::internal::CaptureStdout();
    ASSERT_EQ(readInitialState(g, path), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(g.particleCount(), body->points->size());
    EXPECT_EQ((*g.ch.id)[5], (*ids)[5]);
    fs::remove_all(dir);
}

TEST_F(GranularRunTest, IdenticalRunsWriteIdenticalCaches)
{
    const fs::path a = tempDir("c1"), b = tempDir("c2");
    runTo(a);
    runTo(b);
    for (int f : {1, kEndFrame / 2, kEndFrame}) {
        const std::string name = "sand." + std::string(4 - std::to_string(f).size(), '0') + std::to_string(f) + ".bin";
        const std::string x = readFile(a / name), y = readFile(b / name);
        ASSERT_FALSE(x.empty()) << name;
        EXPECT_TRUE(x == y) << "frame " << f << " differs between two identical runs";
    }
    fs::remove_all(a);
    fs::remove_all(b);
}

} // namespace
