// Physics of the granular solve: a dropped block settles on the ground without sinking or
// interpenetrating, sleeping starts and ends at its thresholds, frozen particles stay put,
// a head-on collision keeps momentum, coincident particles stay finite, two runs give the
// same bits, and the fast iteration pass and neighbour lists agree with plain versions.
#include "testenv.h"

#include "particles/granularparticlesystem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <random>
#include <string>

namespace {

// Substep length of the default 8 substeps at 24 frames per second.
constexpr float kSubstep = 1.f / (8.f * 24.f);

class GranularSolverTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        simState->dt = kSubstep;
        simState->numThreads = 2;
        simState->collideGround = true;
        simState->cudaAvailable = false;
        simState->damping = 0.f;
    }

public:
    // A jittered block of nx * ny * nz particles, spacing a little over 2r, lowest layer at `bottom`.
    static void addBlock(GranularParticleSystem& s, int nx, int ny, int nz, float bottom, unsigned seed = 1)
    {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<float> jitter(-0.05f, 0.05f);
        const float r = s.particleRadius;
        const float spacing = 2.1f * r;
        for (int y = 0; y < ny; ++y)
            for (int z = 0; z < nz; ++z)
                for (int x = 0; x < nx; ++x) {
                    const Vec4f p(spacing * x + r * jitter(rng), bottom + spacing * y + r * jitter(rng),
                                  spacing * z + r * jitter(rng), 0.f);
                    s.addParticle(p, Vec4f());
                }
    }

    static void run(GranularParticleSystem& s, int substeps)
    {
        for (int n = 0; n < substeps; ++n) {
            s.step();
            s.rememberParticleCount();
        }
    }

    static float minPairDistance(const GranularParticleSystem& s)
    {
        const VecArray& P = s.body->points->P;
        float best = 1e9f;
        for (size_t a = 0; a < P.size(); ++a)
            for (size_t b = a + 1; b < P.size(); ++b) best = std::min(best, (P[a] - P[b]).length3());
        return best;
    }

    static bool allFinite(const GranularParticleSystem& s)
    {
        for (const Vec4f& p : s.body->points->P)
            if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) return false;
        for (const Vec4f& v : *s.ch.v)
            if (!std::isfinite(v.x) || !std::isfinite(v.y) || !std::isfinite(v.z)) return false;
        return true;
    }
};

// Drops a block of 576 particles stacked in columns (an unstable packing that must
// collapse into a denser one) by two radii, lets it settle for eight seconds, and checks
// what it does in half a second more.
void expectBlockSettles(GranularParticleSystem& s)
{
    const float r = s.particleRadius;
    GranularSolverTest::addBlock(s, 12, 4, 12, 3.f * r);
    float impact = 0.f;
    for (int n = 0; n < 8 * 192; ++n) {
        GranularSolverTest::run(s, 1);
        impact = std::max(impact, s.maxSpeedLastStep);
    }
    const VecArray before = s.body->points->P;
    GranularSolverTest::run(s, 96);

    const VecArray& P = s.body->points->P;
    float lowest = 1e9f, drift = 0.f, meanDrift = 0.f, sideways = 0.f, meanSpeed = 0.f;
    for (size_t i = 0; i < P.size(); ++i) {
        lowest = std::min(lowest, P[i].y);
        const float moved = (P[i] - before[i]).length3();
        drift = std::max(drift, moved);
        meanDrift += moved / float(P.size());
        const Vec4f& v = (*s.ch.v)[i];
        sideways = std::max(sideways, std::sqrt(v.x * v.x + v.z * v.z));
        meanSpeed += v.length3() / float(P.size());
    }
    EXPECT_GT(impact, 1.f) << "the block never fell";
    EXPECT_GE(lowest, r - 1e-6f) << "a particle sank into the ground";
    EXPECT_GT(GranularSolverTest::minPairDistance(s), 2.f * r * 0.95f) << "particles interpenetrate after settling";
    EXPECT_LT(meanDrift, 0.1f * r) << "the pile still flows";
    EXPECT_LT(drift, 0.5f * r) << "some particles never come to rest";
    EXPECT_LT(sideways, 0.05f) << "the pile still spreads";
    // An awake particle at rest carries one substep of gravity in v (g dt = 0.05 m/s), and
    // contacts that still jitter by a millimetre show as a few tenths of m/s for a substep.
    EXPECT_LT(meanSpeed, 0.1f) << "the pile doesn't come to rest";
    EXPECT_LT(s.maxSpeedLastStep, 0.3f * impact) << "the pile doesn't come to rest";
    EXPECT_TRUE(GranularSolverTest::allFinite(s));
}

TEST_F(GranularSolverTest, LooseSandBlockSettlesWithoutSinkingOrInterpenetrating)
{
    GranularParticleSystem s;
    s.maxConstraintLength = 0.f;  // no links: contacts and friction alone
    expectBlockSettles(s);
}

TEST_F(GranularSolverTest, DefaultBlockSettlesWithoutSinkingOrInterpenetrating)
{
    GranularParticleSystem s;  // default rows: the block is glued by constraints at birth
    expectBlockSettles(s);
}

// Free particles in space: no gravity, no ground, nothing to touch.
class GranularFreeSpaceTest : public GranularSolverTest {
protected:
    void SetUp() override
    {
        GranularSolverTest::SetUp();
        simState->collideGround = false;
    }
    static void weightless(GranularParticleSystem& s) { s.gravityVector = Vec4f(); }
};

TEST_F(GranularFreeSpaceTest, SlowParticlesFallAsleepAfterTheDelay)
{
    GranularParticleSystem s;
    weightless(s);
    s.enableSleeping = true;
    s.colorSleeping = true;
    for (int n = 0; n < 3; ++n) s.addParticle(Vec4f(float(n), 1.f, 0.f), Vec4f());
    // restingTime grows by dt per substep; sleeping starts in the substep after it passes
    // sleepDelay (0.1 s): 20 substeps make 0.104 s, so the 21st puts them to sleep.
    run(s, 20);
    EXPECT_NEAR((*s.ch.restingTime)[0], 20 * kSubstep, 1e-5f);
    for (size_t i = 0; i < 3; ++i) EXPECT_FALSE(s.ch.sleeping->get(i)) << "asleep before the delay";
    run(s, 1);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_TRUE(s.ch.sleeping->get(i)) << "still awake after the delay";
        EXPECT_EQ((*s.ch.Cd)[i], Vec4f(1.f, 0.f, 0.f, 0.f));
    }
}

TEST_F(GranularFreeSpaceTest, ParticlesAboveTheSleepThresholdStayAwake)
{
    GranularParticleSystem s;
    weightless(s);
    s.enableSleeping = true;
    s.addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f(0.5f, 0.f, 0.f));
    s.addParticle(Vec4f(5.f, 1.f, 0.f), Vec4f(0.f, 0.f, 0.011f));  // just above 0.01
    run(s, 60);
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_FALSE(s.ch.sleeping->get(i));
        EXPECT_EQ((*s.ch.restingTime)[i], 0.f);
    }
}

TEST_F(GranularFreeSpaceTest, SleepersWakeOnlyAboveTheWakeupThreshold)
{
    GranularParticleSystem s;
    weightless(s);
    s.enableSleeping = true;
    s.allowSleepingToMove = true;  // otherwise a sleeper skips the iteration, wake test included
    s.wakeupByVelocityThreshold = 2.f;
    s.addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f());
    run(s, 21);
    ASSERT_TRUE(s.ch.sleeping->get(0));

    // Pushed below the threshold (as a collider might): stays asleep and loses its speed.
    (*s.ch.v)[0] = Vec4f(1.5f, 0.f, 0.f);
    run(s, 1);
    EXPECT_TRUE(s.ch.sleeping->get(0));
    EXPECT_EQ((*s.ch.v)[0], Vec4f());

    // Above it: awake, and moving on with its speed.
    (*s.ch.v)[0] = Vec4f(3.f, 0.f, 0.f);
    run(s, 1);
    EXPECT_FALSE(s.ch.sleeping->get(0));
    EXPECT_EQ((*s.ch.v)[0], Vec4f(3.f, 0.f, 0.f));
    EXPECT_EQ((*s.ch.restingTime)[0], 0.f);
}

TEST_F(GranularFreeSpaceTest, SleepersThatMayNotMoveIgnoreTheirSpeed)
{
    GranularParticleSystem s;
    weightless(s);
    s.enableSleeping = true;
    s.wakeupByVelocityThreshold = 2.f;
    s.addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f());
    run(s, 21);
    ASSERT_TRUE(s.ch.sleeping->get(0));
    const Vec4f rest = s.body->points->P[0];
    (*s.ch.v)[0] = Vec4f(3.f, 0.f, 0.f);
    run(s, 1);
    EXPECT_TRUE(s.ch.sleeping->get(0)) << "only a collider wakes a sleeper that may not move";
    EXPECT_EQ(s.body->points->P[0], rest);
    EXPECT_EQ((*s.ch.v)[0], Vec4f());
}

TEST_F(GranularSolverTest, ParticlesBornAsleepStayPutUnderGravity)
{
    GranularParticleSystem s;
    s.enableSleeping = true;
    s.startAsleep = true;
    const Vec4f start(0.f, 1.f, 0.f);
    s.addParticle(start, Vec4f(0.f, -1.f, 0.f));
    ASSERT_TRUE(s.ch.sleeping->get(0));
    run(s, 30);
    EXPECT_TRUE(s.ch.sleeping->get(0));
    EXPECT_EQ(s.body->points->P[0], start);
    EXPECT_EQ((*s.ch.v)[0], Vec4f());
}

TEST_F(GranularFreeSpaceTest, FrozenParticleKeepsItsPositionExactly)
{
    // A middle particle barely touching two others, pushed unevenly: slow, two contacts.
    auto build = [](GranularParticleSystem& s) {
        weightless(s);
        const float r = s.particleRadius;
        s.addParticle(Vec4f(-(2.f * r - 1e-5f), 1.f, 0.f), Vec4f());
        s.addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f());
        s.addParticle(Vec4f(2.f * r - 3e-5f, 1.f, 0.f), Vec4f());
    };
    GranularParticleSystem frozen;
    build(frozen);
    const Vec4f middle = frozen.body->points->P[1];
    frozen.solvePass();
    EXPECT_EQ((*frozen.ch.numContacts)[1], 2);
    EXPECT_EQ(frozen.body->points->P[1], middle) << "a frozen particle moved";
    EXPECT_EQ((*frozen.ch.v)[1], Vec4f());
    EXPECT_EQ((*frozen.ch.force)[1], Vec4f());
    EXPECT_NE(frozen.body->points->P[2], Vec4f(2.f * frozen.particleRadius - 3e-5f, 1.f, 0.f))
        << "an end particle (one contact) must not freeze";

    GranularParticleSystem loose;  // the same with freezing off: the push does move it
    build(loose);
    loose.freezeThreshold = 0.f;
    loose.solvePass();
    EXPECT_NE(loose.body->points->P[1], middle);
}

TEST_F(GranularFreeSpaceTest, HeadOnCollisionKeepsMomentum)
{
    GranularParticleSystem s;
    weightless(s);
    s.addParticle(Vec4f(-0.2f, 1.f, 0.f), Vec4f(2.f, 0.f, 0.f));
    s.addParticle(Vec4f(0.2f, 1.f, 0.01f), Vec4f(-1.f, 0.f, 0.f));  // slightly off-centre
    const Vec4f before = (*s.ch.v)[0] + (*s.ch.v)[1];
    run(s, 60);
    const Vec4f after = (*s.ch.v)[0] + (*s.ch.v)[1];
    EXPECT_NEAR(after.x, before.x, 1e-4f);
    EXPECT_NEAR(after.y, before.y, 1e-4f);
    EXPECT_NEAR(after.z, before.z, 1e-4f);
    // They met and parted: the first one now moves slower than the pair's centre of mass.
    EXPECT_LT((*s.ch.v)[0].x, 0.5f * before.x);
    EXPECT_GT(s.body->points->P[1].x - s.body->points->P[0].x, 2.f * s.particleRadius * 0.99f);
}

TEST_F(GranularSolverTest, CoincidentParticlesGiveNoNaN)
{
    GranularParticleSystem s;
    s.addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f());
    s.addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f());
    s.addParticle(Vec4f(0.03f, 1.f, 0.f), Vec4f());
    s.attraction = 1.f;
    testing::internal::CaptureStdout();
    run(s, 20);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out.find("NaN in check."), std::string::npos);
    EXPECT_TRUE(allFinite(s));
}

TEST_F(GranularSolverTest, NaNPositionIsReportedOnce)
{
    GranularParticleSystem s;
    for (int n = 0; n < 3; ++n) s.addParticle(Vec4f(float(n), 1.f, 0.f), Vec4f());
    s.body->points->P[0].x = std::nanf("");
    s.body->points->P[2].x = std::nanf("");
    testing::internal::CaptureStdout();
    s.solvePass();
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "NaN in check.\n");
}

TEST_F(GranularSolverTest, EmptySystemLeavesMaxSpeedAsItWas)
{
    GranularParticleSystem s;
    EXPECT_EQ(s.maxSpeedLastStep, -1.f);
    run(s, 2);
    EXPECT_EQ(s.maxSpeedLastStep, -1.f);
    s.maxSpeedLastStep = 3.5f;
    s.solveOnCpu();
    EXPECT_EQ(s.maxSpeedLastStep, 3.5f);
}

TEST_F(GranularSolverTest, IdenticalRunsGiveIdenticalBits)
{
    auto simulate = [](int threads) {
        simState->numThreads = threads;
        auto s = std::make_unique<GranularParticleSystem>();
        addBlock(*s, 10, 6, 10, 3.f * s->particleRadius, 42);
        s->attraction = 0.5f;
        run(*s, 120);
        return s;
    };
    const auto a = simulate(2);
    const auto b = simulate(2);
    const auto c = simulate(1);
    simState->numThreads = 2;
    const size_t bytes = a->particleCount() * sizeof(Vec4f);
    EXPECT_EQ(std::memcmp(a->body->points->P.data(), b->body->points->P.data(), bytes), 0);
    EXPECT_EQ(std::memcmp(a->ch.v->data(), b->ch.v->data(), bytes), 0);
    // The block colouring makes the result independent of the thread count too.
    EXPECT_EQ(std::memcmp(a->body->points->P.data(), c->body->points->P.data(), bytes), 0);
    EXPECT_EQ(std::memcmp(a->ch.v->data(), c->ch.v->data(), bytes), 0);
}

TEST_F(GranularSolverTest, NeighbourListsHoldEveryParticleWithinTwoRadii)
{
    GranularParticleSystem s;
    std::mt19937 rng(9);
    std::uniform_real_distribution<float> u(0.f, 0.8f);
    for (int n = 0; n < 1500; ++n) s.addParticle(Vec4f(u(rng), 0.5f + u(rng), u(rng)), Vec4f());
    const VecArray start = s.body->points->P;
    s.solveOnCpu();
    const float r = s.particleRadius;
    size_t pairs = 0;
    for (size_t i = 0; i < start.size(); ++i) {
        const auto& list = (*s.ch.neighbs)[s.sortedSlot[i]];
        for (size_t j = 0; j < start.size(); ++j) {
            if (i == j || (start[i] - start[j]).length3() >= 2.f * r) continue;
            ++pairs;
            EXPECT_NE(std::find(list.begin(), list.end(), int32_t(s.sortedSlot[j])), list.end())
                << "particle " << j << " missing from the list of " << i;
        }
    }
    EXPECT_GT(pairs, 500u);
}

// The pair loop as the iteration pass defines it, written plainly: slot after slot in the
// solver's order, every list entry in turn, positions and velocities updated at once.
void plainIteration(const GranularParticleSystem& s, VecArray& pos, VecArray& vel)
{
    const float r = s.particleRadius, dt = simState->dt, h = dt / float(s.iterations);
    const IntListArray& lists = *s.ch.neighbs;
    for (int colour = 0; colour < GranularParticleSystem::kColumnColours; ++colour)
        for (uint32_t u = s.colourStart[size_t(colour)]; u < s.colourStart[size_t(colour) + 1]; ++u)
            for (uint32_t k = s.unitStart[u]; k < s.unitStart[u + 1]; ++k)
                for (int32_t n : lists[k]) {
                    const Vec4f diff = pos[k] - pos[size_t(n)];
                    const float d = diff.length3() + r * 0.000001f;
                    if (!(d < 2.125f * r)) continue;
                    Vec4f dir = diff * (1.f / d);
                    if (d < 2.f * r) {
                        const Vec4f corr = dir * ((2.f * r - d) * h * s.particleStiffness);
                        pos[k] += corr;
                        pos[size_t(n)] -= corr;
                        const Vec4f dv = corr * ((1.f - s.slushiness) / dt);
                        vel[k] += dv;
                        vel[size_t(n)] -= dv;
                        const Vec4f apart = pos[k] - pos[size_t(n)];
                        dir = apart.length3() > 0.f ? apart * (1.f / apart.length3()) : Vec4f();
                    }
                    const Vec4f rel = vel[k] - vel[size_t(n)];
                    const Vec4f tang = rel - dir * rel.dot3(dir);
                    const float share =
                        tang.dot3(tang) <= 0.08f ? 0.5f : 0.5f * std::min(s.friction * dt / float(s.iterations), 1.f);
                    vel[k] -= tang * share;
                    vel[size_t(n)] += tang * share;
                }
}

TEST_F(GranularSolverTest, IterationPassMatchesThePlainPairLoop)
{
    simState->collideGround = false;
    GranularParticleSystem s;
    s.maxConstraintLength = 0.f;
    std::mt19937 rng(21);
    std::uniform_real_distribution<float> u(0.f, 1.f);
    std::uniform_real_distribution<float> w(-1.f, 1.f);
    for (int n = 0; n < 2000; ++n)  // crowded: about 1.6 particles per cell, many overlaps
        s.addParticle(Vec4f(u(rng), u(rng), u(rng)), Vec4f(w(rng), w(rng), w(rng)));
    s.updateDerivedFields();
    s.searchNeighbours(s.particleSpacing);
    VecArray pos = s.sortedPos, vel = s.sortedVel;
    s.iterate(0);
    plainIteration(s, pos, vel);
    float worstPos = 0.f, worstVel = 0.f;
    for (size_t k = 0; k < pos.size(); ++k) {
        worstPos = std::max(worstPos, (pos[k] - s.sortedPos[k]).length3());
        worstVel = std::max(worstVel, (vel[k] - s.sortedVel[k]).length3());
    }
    // Only the rounding of the four-wide arithmetic separates the two.
    EXPECT_LT(worstPos, 1e-5f);
    EXPECT_LT(worstVel, 1e-3f);
    int contacts = 0;
    for (int32_t c : s.sortedContacts) contacts += c;
    EXPECT_GT(contacts, 1000) << "the cloud should be crowded enough to test contacts";
}

TEST_F(GranularSolverTest, NeighbourListsAreTheCellGatherInItsOrder)
{
    // The solver fills its lists from a per-block table of buckets; they must hold exactly
    // what the plain 27-cell gather gives, in its order, duplicates included.
    GranularParticleSystem s;
    std::mt19937 rng(10);
    std::uniform_real_distribution<float> u(-1.f, 1.f);
    for (int n = 0; n < 3000; ++n) s.addParticle(Vec4f(u(rng), 1.f + u(rng), u(rng)), Vec4f());
    s.updateDerivedFields();
    s.searchNeighbours(s.particleSpacing);
    const CellHasher hasher(s.hash);
    size_t entries = 0;
    for (uint32_t k = 0; k < s.particleCount(); ++k) {
        std::vector<int32_t> expected;
        forEachNeighbourSlot(s.sortedPos[k], hasher, s.cellStart.data(), s.cellEnd.data(), [&](uint32_t h) {
            if (s.bucketSlots[h] != k) expected.push_back(int32_t(s.bucketSlots[h]));
        });
        ASSERT_EQ((*s.ch.neighbs)[k], expected) << "slot " << k;
        entries += expected.size();
    }
    EXPECT_GT(entries, 10000u);
}

TEST_F(GranularSolverTest, GroundFrictionStopsASlidingParticle)
{
    GranularParticleSystem s;
    s.addParticle(Vec4f(0.f, s.particleRadius, 0.f), Vec4f(2.f, 0.f, 1.f));
    run(s, 192);
    const Vec4f& v = (*s.ch.v)[0];
    EXPECT_LT(std::sqrt(v.x * v.x + v.z * v.z), 0.05f);  // from 2.2 m/s within a second
    EXPECT_GE(s.body->points->P[0].y, s.particleRadius);
    EXPECT_GT(s.body->points->P[0].x, 0.05f);  // it did slide first
}

TEST_F(GranularFreeSpaceTest, AttractionPullsNearbyParticlesTogether)
{
    GranularParticleSystem s;
    weightless(s);
    s.attraction = 2.f;
    const float r = s.particleRadius;
    s.addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f());
    s.addParticle(Vec4f(2.05f * r, 1.f, 0.f), Vec4f());  // within the pair cut-off, not touching
    run(s, 3);
    EXPECT_GT((*s.ch.v)[0].x, 0.f);
    EXPECT_LT((*s.ch.v)[1].x, 0.f);
    EXPECT_NEAR((*s.ch.v)[0].x + (*s.ch.v)[1].x, 0.f, 1e-6f);
}

TEST_F(GranularSolverTest, DisabledSystemHoldsStill)
{
    GranularParticleSystem s;
    s.addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f(1.f, 0.f, 0.f));
    s.enabled = false;
    s.resolution = 20.f;
    run(s, 10);
    EXPECT_EQ(s.body->points->P[0], Vec4f(0.f, 1.f, 0.f));
    EXPECT_EQ(s.particleRadius, 0.025f) << "derived fields are updated even when disabled";
}

TEST_F(GranularSolverTest, CudaRequestWithoutDeviceSolveFallsBackToTheCpu)
{
    auto simulate = [](bool cuda) {
        simState->cudaAvailable = cuda;
        auto s = std::make_unique<GranularParticleSystem>();
        s->useCuda = cuda;
        addBlock(*s, 5, 3, 5, 3.f * s->particleRadius);
        run(*s, 20);
        simState->cudaAvailable = false;
        return s;
    };
    const auto cpu = simulate(false);
    const auto fallback = simulate(true);
    EXPECT_EQ(std::memcmp(cpu->body->points->P.data(), fallback->body->points->P.data(),
                          cpu->particleCount() * sizeof(Vec4f)),
              0);
    EXPECT_EQ(fallback->deviceState, nullptr);
}

} // namespace
