// The dumb system: free fall, the ground, ids, colours, connections and cache import.
#include "testenv.h"

#include "app/writingqueue.h"
#include "io/fileio.h"
#include "particles/dumbparticlesystem.h"
#include "particles/particleimport.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

class DumbSystemTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        simState->dt = 1.f / 192.f;
        simState->damping = 0.f;
        simState->collideGround = true;
        simState->paused = true;
        system = std::make_unique<DumbParticleSystem>();
    }
    std::unique_ptr<DumbParticleSystem> system;
};

TEST_F(DumbSystemTest, FreeFallScalesWithMassAndStopsAtRadius)
{
    system->gravityVector.y = -10.f;
    system->mass = 1.f;
    system->addParticle(Vec4f(0.f, 1.f, 0.f, 0.f), Vec4f());
    for (int i = 0; i < 10; ++i) system->step();
    // Force assigned after integration: after n steps, v = (n - 1) * g * dt.
    EXPECT_NEAR(system->body->points->v[0].y, -9.f * 10.f * simState->dt, 1e-4f);
    for (int i = 0; i < 2000; ++i) {
        system->step();
        ASSERT_GE(system->body->points->P[0].y, system->radius) << "below the ground at step " << i;
    }
    EXPECT_NEAR(system->body->points->P[0].y, system->radius, 1e-4f) << "it rests at its radius";
    EXPECT_GT(system->maxSpeedLastStep, -1.f);
}

TEST_F(DumbSystemTest, GroundKeepsTangentialSpeedAboveAndBrakesBelow)
{
    system->addParticle(Vec4f(0.f, 1.f, 0.f, 0.f), Vec4f(2.f, 0.f, 0.f, 0.f));
    system->addParticle(Vec4f(0.f, -0.5f, 0.f, 0.f), Vec4f(2.f, -3.f, 0.f, 0.f));
    system->groundPass();
    const auto& v = system->body->points->v;
    EXPECT_EQ(v[0].x, 2.f);
    EXPECT_EQ(system->body->points->P[1].y, system->radius);
    EXPECT_LT(v[1].x, 2.f);
    EXPECT_FLOAT_EQ(v[1].y, 0.03f) << "the bounce keeps 1% of the speed";
}

TEST_F(DumbSystemTest, IdsCountUpFromZeroAndResetRestarts)
{
    for (int i = 0; i < 3; ++i) system->addParticle(Vec4f(), Vec4f());
    const IntArray& ids = *system->body->points->attribAs<IntArray>("id");
    EXPECT_EQ(ids, (IntArray{0, 1, 2}));
    system->reset(false);
    system->addParticle(Vec4f(), Vec4f());
    EXPECT_EQ((*system->body->points->attribAs<IntArray>("id"))[0], 3) << "a reset without clear keeps counting";
    system->reset(true);
    system->addParticle(Vec4f(), Vec4f());
    EXPECT_EQ((*system->body->points->attribAs<IntArray>("id"))[0], 0);
}

TEST_F(DumbSystemTest, SpeedColourSaturatesAtWhitewaterSpeed)
{
    system->whiteWaterSpeed = 4.f;
    system->addParticle(Vec4f(0, 5, 0, 0), Vec4f(2.f, 0.f, 0.f, 0.f));
    system->addParticle(Vec4f(0, 5, 0, 0), Vec4f(8.f, 0.f, 0.f, 0.f));
    system->integrate();
    const auto& cd = system->body->points->Cd;
    EXPECT_FLOAT_EQ(cd[0].x, 0.5f);
    EXPECT_FLOAT_EQ(cd[0].y, 0.8f);
    EXPECT_FLOAT_EQ(cd[1].x, 1.8f);
}

TEST_F(DumbSystemTest, ConnectingTwiceKeepsOneIdAndNullIsRefused)
{
    auto other = std::make_unique<DumbParticleSystem>();
    const int id = simulation->registerObject(std::make_unique<SceneObject>(kTypeSource), "src");
    EXPECT_TRUE(system->connectById(id));
    EXPECT_FALSE(system->connectById(id));
    EXPECT_EQ(system->sourceIds.size(), 1u);
    testing::internal::CaptureStdout();
    EXPECT_FALSE(system->connectForce(nullptr));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "there's a problem. connect force\n");
    // An unknown source id is skipped without a message.
    system->sourceIds.push_back(99999);
    testing::internal::CaptureStdout();
    system->step();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(DumbSystemTest, CacheRoundTripThroughImport)
{
    for (int i = 0; i < 5; ++i) system->addParticle(Vec4f(float(i), 2.f, -1.f, 0.f), Vec4f(0.f, float(i), 0.f, 0.f));
    const fs::path file = fs::temp_directory_path() / ("qorva_dumb_" + std::to_string(getpid()) + ".bin");
    testing::internal::CaptureStdout();
    ASSERT_EQ(fileio::write(file.string(), system->exportBody()), 0);
    DumbParticleSystem loaded;
    ASSERT_EQ(readInitialState(loaded, file.string()), 0);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("Dumb: importing "), std::string::npos);
    EXPECT_NE(out.find("reading done."), std::string::npos);
    ASSERT_EQ(loaded.size(), 5u);
    EXPECT_EQ(loaded.body->points->P[3], system->body->points->P[3]);
    EXPECT_EQ(loaded.body->points->v[4], system->body->points->v[4]);
    EXPECT_EQ((*loaded.body->points->attribAs<IntArray>("id"))[2], 2);
    // A run under way skips the load.
    simState->paused = false;
    EXPECT_EQ(readInitialState(loaded, file.string()), -1);
    simState->paused = true;
    fs::remove(file);
}

} // namespace
