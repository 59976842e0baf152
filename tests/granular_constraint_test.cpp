// Distance constraints of the granular system: created between close particles only and
// only for new ones, pre-broken by noise, breaking beyond the stretch limit and not below,
// plastic rest lengths, strand removal, the per-particle stretch limit, relinking only when
// calm and on every n-th substep, the dirty flag of the device path, a falling block that
// breaks into clumps, bit-identical runs, and bad input that neither crashes nor hangs.
#include "testenv.h"

#include "particles/fractalnoise.h"
#include "particles/granularparticlesystem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

namespace {

constexpr float kSubstep = 1.f / (8.f * 24.f);

class GranularConstraintTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        simState->dt = kSubstep;
        simState->numThreads = 2;
        simState->substep = 0;
        simState->collideGround = false;
        simState->cudaAvailable = false;
        simState->damping = 0.f;
    }

    // A weightless system in empty space (r = 0.05, search distance 3 r = 0.15).
    static std::unique_ptr<GranularParticleSystem> freeSystem()
    {
        auto s = std::make_unique<GranularParticleSystem>();
        s->gravityVector = Vec4f();
        s->freezeThreshold = 0.f;
        return s;
    }

    static void run(GranularParticleSystem& s, int substeps)
    {
        for (int n = 0; n < substeps; ++n) {
            s.step();
            s.rememberParticleCount();
        }
    }

    static const std::vector<int32_t>& links(const GranularParticleSystem& s, int i)
    {
        return (*s.ch.constrIndices)[size_t(i)];
    }

    static bool linked(const GranularParticleSystem& s, int i, int j)
    {
        const auto& l = links(s, i);
        return std::find(l.begin(), l.end(), j) != l.end();
    }

    static size_t totalLinks(const GranularParticleSystem& s)
    {
        size_t total = 0;
        for (const auto& l : *s.ch.constrIndices) total += l.size();
        return total;
    }

    // Two particles a rest length apart along x, linked (both directions), then the second
    // moved so that the link is stretched by `stretch`. Answers the system.
    static std::unique_ptr<GranularParticleSystem> stretchedPair(float rest, float stretch)
    {
        auto s = freeSystem();
        s->addParticle(Vec4f(1.f, 1.f, 1.f), Vec4f());
        s->addParticle(Vec4f(1.f + rest, 1.f, 1.f), Vec4f());
        s->createConstraints(0);
        s->rememberParticleCount();
        s->body->points->P[1].x = 1.f + rest * stretch;
        return s;
    }

    // A jittered block of nx * ny * nz particles at spacing 2.1 r, lowest layer at `bottom`.
    static void addBlock(GranularParticleSystem& s, int nx, int ny, int nz, float bottom, unsigned seed = 1)
    {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<float> jitter(-0.05f, 0.05f);
        const float r = s.particleRadius;
        const float spacing = 2.1f * r;
        for (int y = 0; y < ny; ++y)
            for (int z = 0; z < nz; ++z)
                for (int x = 0; x < nx; ++x)
                    s.addParticle(Vec4f(spacing * x + r * jitter(rng), bottom + spacing * y + r * jitter(rng),
                                        spacing * z + r * jitter(rng)),
                                  Vec4f());
    }

    // Sizes of the groups of particles joined by links (either direction).
    static std::vector<size_t> clumpSizes(const GranularParticleSystem& s)
    {
        const size_t n = s.particleCount();
        std::vector<size_t> parent(n);
        std::iota(parent.begin(), parent.end(), size_t(0));
        auto root = [&](size_t a) {
            while (parent[a] != a) a = parent[a] = parent[parent[a]];
            return a;
        };
        for (size_t i = 0; i < n; ++i)
            for (int32_t j : links(s, int(i))) parent[root(i)] = root(size_t(j));
        std::vector<size_t> size(n, 0);
        for (size_t i = 0; i < n; ++i) ++size[root(i)];
        std::vector<size_t> sizes;
        for (size_t c : size)
            if (c > 0) sizes.push_back(c);
        return sizes;
    }
};

TEST_F(GranularConstraintTest, CreationLinksOnlyParticlesWithinTheSearchDistance)
{
    auto s = freeSystem();
    s->addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f());
    s->addParticle(Vec4f(0.14f, 1.f, 0.f), Vec4f());  // 0.14 from the first: within 0.15
    s->addParticle(Vec4f(-0.16f, 1.f, 0.f), Vec4f()); // 0.16: beyond
    s->addParticle(Vec4f(0.f, 1.f, 0.149f), Vec4f()); // just within
    s->createConstraints(0);
    EXPECT_TRUE(linked(*s, 0, 1));
    EXPECT_TRUE(linked(*s, 1, 0));
    EXPECT_FALSE(linked(*s, 0, 2));
    EXPECT_FALSE(linked(*s, 2, 0));
    EXPECT_TRUE(linked(*s, 0, 3));
    EXPECT_FALSE(linked(*s, 1, 3)) << "0.205 apart, yet linked";
    EXPECT_TRUE(links(*s, 2).empty());
    // Every rest length is the distance at creation, each partner listed once.
    for (int i = 0; i < 4; ++i) {
        const auto& l = links(*s, i);
        const auto& d = (*s->ch.constrDists)[size_t(i)];
        ASSERT_EQ(l.size(), d.size());
        for (size_t e = 0; e < l.size(); ++e) {
            EXPECT_FLOAT_EQ(d[e],
                            (s->body->points->P[size_t(l[e])] - s->body->points->P[size_t(i)]).length3());
            EXPECT_EQ(std::count(l.begin(), l.end(), l[e]), 1);
        }
    }
}

TEST_F(GranularConstraintTest, SearchDistanceScalesWithTheRow)
{
    auto s = freeSystem();
    s->maxConstraintLength = 5.f; // 0.25
    s->addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f());
    s->addParticle(Vec4f(0.24f, 1.f, 0.f), Vec4f());
    s->createConstraints(0);
    EXPECT_TRUE(linked(*s, 0, 1));
    s->maxConstraintLength = 4.f; // 0.2
    s->createConstraints(0);
    EXPECT_FALSE(linked(*s, 0, 1));
}

TEST_F(GranularConstraintTest, NewBatchLinksToOldParticlesButNotBack)
{
    auto s = freeSystem();
    s->addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f());
    s->addParticle(Vec4f(0.12f, 1.f, 0.f), Vec4f());
    run(*s, 1); // creation for the first batch
    ASSERT_TRUE(linked(*s, 0, 1));
    const std::vector<int32_t> oldLinks = links(*s, 0);
    s->addParticle(Vec4f(-0.12f, 1.f, 0.f), Vec4f());
    run(*s, 1); // creation from index 2 on
    EXPECT_TRUE(linked(*s, 2, 0));
    EXPECT_FALSE(linked(*s, 2, 1)) << "0.24 apart, yet linked";
    EXPECT_EQ(links(*s, 0), oldLinks) << "an old particle got a link back";
    // Without new particles, nothing is created again.
    (*s->ch.constrIndices)[2].clear();
    (*s->ch.constrDists)[2].clear();
    run(*s, 1);
    EXPECT_TRUE(links(*s, 2).empty());
}

TEST_F(GranularConstraintTest, NoisyPreBreakupCutsLinksAcrossNoiseSignChanges)
{
    auto plain = freeSystem();
    auto noisy = freeSystem();
    noisy->breakConstraintsNoisy = true;
    noisy->breakConstrNoisyScaleX = noisy->breakConstrNoisyScaleY = noisy->breakConstrNoisyScaleZ = 0.3f;
    addBlock(*plain, 12, 6, 12, 1.f);
    addBlock(*noisy, 12, 6, 12, 1.f);
    plain->createConstraints(0);
    noisy->createConstraints(0);
    EXPECT_LT(totalLinks(*noisy), totalLinks(*plain) * 95 / 100) << "hardly any link was pre-broken";
    EXPECT_GT(totalLinks(*noisy), totalLinks(*plain) / 4) << "nearly every link was pre-broken";
    const FractalNoise noise(Vec4f(0.3f, 0.3f, 0.3f), 2, 0.5f);
    const VecArray& P = noisy->body->points->P;
    for (size_t i = 0; i < P.size(); ++i)
        for (int32_t j : links(*noisy, int(i)))
            EXPECT_EQ(noise.sample(P[i]) > 0.f, noise.sample(P[size_t(j)]) > 0.f) << i << " - " << j;
}

TEST_F(GranularConstraintTest, NoisyPreBreakupWithoutOctavesLinksEverything)
{
    auto plain = freeSystem();
    auto noisy = freeSystem();
    noisy->breakConstraintsNoisy = true;
    noisy->breakConstrNoisyOctaves = 0.f;
    addBlock(*plain, 6, 3, 6, 1.f);
    addBlock(*noisy, 6, 3, 6, 1.f);
    plain->createConstraints(0);
    noisy->createConstraints(0);
    EXPECT_EQ(totalLinks(*noisy), totalLinks(*plain));
}

TEST_F(GranularConstraintTest, LinkBreaksBeyondMaxStretchAndNotBelow)
{
    auto below = stretchedPair(0.12f, 1.05f);
    run(*below, 1);
    EXPECT_TRUE(linked(*below, 0, 1));
    EXPECT_TRUE(linked(*below, 1, 0));

    auto beyond = stretchedPair(0.12f, 1.07f);
    run(*beyond, 1);
    EXPECT_TRUE(links(*beyond, 0).empty());
    EXPECT_TRUE(links(*beyond, 1).empty());

    // A lower limit breaks the first pair too.
    auto strict = stretchedPair(0.12f, 1.05f);
    strict->maxConstraintStretch = 1.04f;
    run(*strict, 1);
    EXPECT_TRUE(links(*strict, 0).empty());
}

TEST_F(GranularConstraintTest, StretchedLinkPullsBackTowardItsRestLength)
{
    auto s = stretchedPair(0.12f, 1.04f);
    run(*s, 1);
    const float d = (s->body->points->P[1] - s->body->points->P[0]).length3();
    EXPECT_LT(d, 0.12f * 1.04f);
    EXPECT_GT((*s->ch.v)[0].x, 0.f) << "the first particle isn't pulled toward the second";
    EXPECT_LT((*s->ch.v)[1].x, 0.f);
    // A softer link pulls less.
    auto soft = stretchedPair(0.12f, 1.04f);
    soft->constraintStiffness = 20.f;
    run(*soft, 1);
    EXPECT_GT((soft->body->points->P[1] - soft->body->points->P[0]).length3(), d);
}

TEST_F(GranularConstraintTest, BreakingGivesBothParticlesTheirMeanVelocity)
{
    auto s = stretchedPair(0.12f, 1.2f);
    (*s->ch.v)[0] = Vec4f(0.f, 2.f, 0.f);
    (*s->ch.v)[1] = Vec4f(1.f, 0.f, 0.f);
    run(*s, 1);
    EXPECT_TRUE(links(*s, 0).empty());
    EXPECT_EQ((*s->ch.v)[0], (*s->ch.v)[1]);
    EXPECT_NEAR((*s->ch.v)[0].x, 0.5f, 1e-6f);
    EXPECT_NEAR((*s->ch.v)[0].y, 1.f, 1e-6f);
}

TEST_F(GranularConstraintTest, PlasticityLengthensTheRestLength)
{
    auto plastic = stretchedPair(0.12f, 1.04f);
    plastic->plasticity = 1.f;
    run(*plastic, 1);
    ASSERT_TRUE(linked(*plastic, 0, 1));
    EXPECT_GT((*plastic->ch.constrDists)[0][0], 0.12f * 1.02f) << "the rest length didn't follow the stretch";

    auto elastic = stretchedPair(0.12f, 1.04f);
    run(*elastic, 1);
    ASSERT_TRUE(linked(*elastic, 0, 1));
    EXPECT_FLOAT_EQ((*elastic->ch.constrDists)[0][0], 0.12f);

    // Half plasticity lets a 4% stretch through unchanged: the band is half the rest length.
    auto half = stretchedPair(0.12f, 1.04f);
    half->plasticity = 0.5f;
    run(*half, 1);
    EXPECT_FLOAT_EQ((*half->ch.constrDists)[0][0], 0.12f);
}

TEST_F(GranularConstraintTest, PlasticFlowBreaksAtTheAbsoluteBound)
{
    // Rest 0.12 stretched to 0.16, with plasticity 1 and a stretch limit of 1.4: step 5 would
    // keep it (0.16 < 0.12 * 1.4), so only the bound limit * maxConstraintLength * r decides.
    auto within = stretchedPair(0.12f, 0.16f / 0.12f);
    within->plasticity = 1.f;
    within->maxConstraintStretch = 1.4f; // bound 1.4 * 3 * 0.05 = 0.21
    run(*within, 1);
    EXPECT_TRUE(linked(*within, 0, 1));

    auto beyond = stretchedPair(0.12f, 0.16f / 0.12f);
    beyond->plasticity = 1.f;
    beyond->maxConstraintStretch = 1.4f;
    beyond->maxConstraintLength = 2.2f; // bound 1.4 * 2.2 * 0.05 = 0.154
    run(*beyond, 1);
    EXPECT_TRUE(links(*beyond, 0).empty()) << "plastic flow beyond the absolute bound kept the link";
}

TEST_F(GranularConstraintTest, RemoveStrandsDropsLinksOfParticlesWithOneOrTwoNeighbours)
{
    auto pair = stretchedPair(0.12f, 1.f);
    pair->removeStrands = true;
    run(*pair, 1);
    EXPECT_TRUE(links(*pair, 0).empty());

    auto kept = stretchedPair(0.12f, 1.f);
    run(*kept, 1);
    EXPECT_TRUE(linked(*kept, 0, 1));

    // A particle with three neighbours in its cells keeps its links.
    auto crowd = freeSystem();
    crowd->removeStrands = true;
    crowd->addParticle(Vec4f(1.f, 1.f, 1.f), Vec4f());
    crowd->addParticle(Vec4f(1.12f, 1.f, 1.f), Vec4f());
    crowd->addParticle(Vec4f(1.f, 1.12f, 1.f), Vec4f());
    crowd->addParticle(Vec4f(1.f, 1.f, 1.12f), Vec4f());
    run(*crowd, 1);
    ASSERT_GE((*crowd->ch.neighbs)[crowd->sortedSlot[0]].size(), 3u);
    EXPECT_EQ(links(*crowd, 0).size(), 3u);
}

TEST_F(GranularConstraintTest, PerParticleMaxStretchReplacesTheRow)
{
    auto loose = stretchedPair(0.12f, 1.1f);
    loose->body->points->addAttrib("maxStretch", ATTRIB_FLOAT);
    loose->ensureChannels();
    ASSERT_NE(loose->ch.maxStretch, nullptr);
    (*loose->ch.maxStretch)[0] = 1.2f;
    (*loose->ch.maxStretch)[1] = 1.1f; // mean 1.15: a 10% stretch holds
    run(*loose, 1);
    EXPECT_TRUE(linked(*loose, 0, 1));

    auto tight = stretchedPair(0.12f, 1.03f);
    tight->body->points->addAttrib("maxStretch", ATTRIB_FLOAT);
    tight->ensureChannels();
    (*tight->ch.maxStretch)[0] = 1.f;
    (*tight->ch.maxStretch)[1] = 1.04f; // mean 1.02: a 3% stretch breaks
    run(*tight, 1);
    EXPECT_TRUE(links(*tight, 0).empty());
}

// Two particles first out of reach (no link at creation), then moved 0.12 apart with the
// given velocities, with relink on.
std::unique_ptr<GranularParticleSystem> relinkPair(float relativeSpeed)
{
    auto s = std::make_unique<GranularParticleSystem>();
    s->gravityVector = Vec4f();
    s->freezeThreshold = 0.f;
    s->addParticle(Vec4f(1.f, 1.f, 1.f), Vec4f());
    s->addParticle(Vec4f(2.f, 1.f, 1.f), Vec4f());
    s->step();
    s->rememberParticleCount();
    s->body->points->P[1] = Vec4f(1.12f, 1.f, 1.f);
    (*s->ch.v)[0] = Vec4f(0.f, 0.f, 0.f);
    (*s->ch.v)[1] = Vec4f(0.f, 0.f, relativeSpeed);
    s->relinkThreshold = 0.1f;
    s->relinkEveryNthStep = 1;
    return s;
}

TEST_F(GranularConstraintTest, RelinkJoinsOnlyCalmNeighbours)
{
    auto calm = relinkPair(0.05f);
    ASSERT_TRUE(links(*calm, 0).empty());
    calm->step();
    EXPECT_TRUE(linked(*calm, 0, 1));
    EXPECT_TRUE(linked(*calm, 1, 0));
    EXPECT_NEAR((*calm->ch.constrDists)[0][0], 0.12f, 1e-6f);

    auto fast = relinkPair(0.5f);
    fast->step();
    EXPECT_TRUE(links(*fast, 0).empty()) << "linked although 0.5 apart in speed";
}

TEST_F(GranularConstraintTest, RelinkAddsNoLinkTwice)
{
    auto s = relinkPair(0.f);
    for (int n = 0; n < 4; ++n) s->step();
    EXPECT_EQ(links(*s, 0).size(), 1u);
}

TEST_F(GranularConstraintTest, RelinkRunsOnlyEveryNthSubstep)
{
    auto s = relinkPair(0.f);
    s->relinkEveryNthStep = 3;
    simState->substep = 1;
    s->step();
    EXPECT_TRUE(links(*s, 0).empty()) << "relinked on substep 1 of every 3";
    simState->substep = 3;
    s->step();
    EXPECT_TRUE(linked(*s, 0, 1));
}

TEST_F(GranularConstraintTest, RelinkStepBelowOneIsCorrectedToOne)
{
    auto s = relinkPair(0.f);
    s->relinkEveryNthStep = 0;
    simState->substep = 5;
    s->step();
    EXPECT_EQ(s->relinkEveryNthStep, 1);
    EXPECT_TRUE(linked(*s, 0, 1));
}

TEST_F(GranularConstraintTest, RelinkWithThresholdZeroDoesNothing)
{
    auto s = relinkPair(0.f);
    s->relinkThreshold = 0.f;
    s->step();
    EXPECT_TRUE(links(*s, 0).empty());
}

TEST_F(GranularConstraintTest, DirtyFlagMarksEveryChangeOfTheLists)
{
    auto s = stretchedPair(0.12f, 1.f);
    EXPECT_TRUE(s->constraintsDirty) << "creation";
    s->constraintsDirty = false;
    run(*s, 1);
    EXPECT_FALSE(s->constraintsDirty) << "nothing changed";
    s->body->points->P[1].x += 0.05f;
    run(*s, 1);
    EXPECT_TRUE(s->constraintsDirty) << "a break";

    auto r = relinkPair(0.f);
    r->constraintsDirty = false;
    r->step();
    EXPECT_TRUE(r->constraintsDirty) << "a relink";
}

TEST_F(GranularConstraintTest, ConstraintsOffBelowTheMinimumSearchDistance)
{
    auto s = freeSystem();
    s->maxConstraintLength = 0.0001f;
    s->addParticle(Vec4f(1.f, 1.f, 1.f), Vec4f());
    s->addParticle(Vec4f(1.00001f, 1.f, 1.f), Vec4f());
    run(*s, 2);
    EXPECT_TRUE(links(*s, 0).empty());
}

TEST_F(GranularConstraintTest, FallingBlockBreaksIntoClumpsOnImpact)
{
    simState->collideGround = true;
    GranularParticleSystem s;
    s.maxConstraintStretch = 1.02f; // brittle
    const float r = s.particleRadius;
    addBlock(s, 8, 8, 8, 40.f * r, 7);
    run(s, 1);
    const size_t created = totalLinks(s);
    ASSERT_GT(created, 512u * 6u) << "the block isn't linked";
    // About 1.5 s: a fall of 2 m, the impact, and time to come apart.
    run(s, 290);
    const size_t surviving = totalLinks(s);
    EXPECT_LT(surviving, created * 9 / 10) << "the impact broke nearly nothing";
    EXPECT_GT(surviving, created / 20) << "the impact broke nearly everything";
    const std::vector<size_t> clumps = clumpSizes(s);
    const size_t largest = *std::max_element(clumps.begin(), clumps.end());
    size_t clumped = 0;
    for (size_t c : clumps)
        if (c >= 4) clumped += c;
    EXPECT_GT(clumps.size(), 4u) << "the block stayed in one piece";
    EXPECT_LT(largest, s.particleCount() * 9 / 10) << "the block stayed in one piece";
    EXPECT_GT(clumped, s.particleCount() / 2) << "it fell apart into single grains, not clumps";
    for (const Vec4f& p : s.body->points->P) EXPECT_LT(p.y, 20.f * r) << "a particle never landed";
}

TEST_F(GranularConstraintTest, IdenticalRunsWithConstraintsGiveIdenticalBits)
{
    auto simulate = [](int threads) {
        simState->numThreads = threads;
        simState->collideGround = true;
        auto s = std::make_unique<GranularParticleSystem>();
        addBlock(*s, 8, 5, 8, 20.f * s->particleRadius, 42);
        s->plasticity = 0.3f;
        s->relinkThreshold = 0.2f;
        for (int n = 0; n < 120; ++n) {
            simState->substep = n % 8;
            s->step();
            s->rememberParticleCount();
            if (n == 40) addBlock(*s, 4, 2, 4, 30.f * s->particleRadius, 43); // a second batch
        }
        return s;
    };
    const auto a = simulate(2);
    const auto b = simulate(2);
    const auto c = simulate(3);
    simState->numThreads = 2;
    const size_t bytes = a->particleCount() * sizeof(Vec4f);
    ASSERT_EQ(a->particleCount(), b->particleCount());
    EXPECT_EQ(std::memcmp(a->body->points->P.data(), b->body->points->P.data(), bytes), 0);
    EXPECT_EQ(std::memcmp(a->ch.v->data(), b->ch.v->data(), bytes), 0);
    EXPECT_EQ(*a->ch.constrIndices, *b->ch.constrIndices);
    EXPECT_EQ(*a->ch.constrDists, *b->ch.constrDists);
    // The column colouring makes constraints independent of the thread count as well.
    EXPECT_EQ(std::memcmp(a->body->points->P.data(), c->body->points->P.data(), bytes), 0);
    EXPECT_EQ(*a->ch.constrIndices, *c->ch.constrIndices);
}

TEST_F(GranularConstraintTest, BadInputNeitherCrashesNorHangs)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    auto build = [](auto&& configure) {
        auto s = std::make_unique<GranularParticleSystem>();
        configure(*s);
        addBlock(*s, 4, 3, 4, 0.5f);
        return s;
    };
    std::vector<std::unique_ptr<GranularParticleSystem>> systems;
    systems.push_back(build([&](GranularParticleSystem& s) { s.maxConstraintStretch = nan; }));
    systems.push_back(build([&](GranularParticleSystem& s) { s.maxConstraintStretch = inf; }));
    systems.push_back(build([&](GranularParticleSystem& s) { s.maxConstraintLength = nan; }));
    systems.push_back(build([&](GranularParticleSystem& s) { s.maxConstraintLength = -3.f; }));
    systems.push_back(build([&](GranularParticleSystem& s) { s.constraintStiffness = nan; }));
    systems.push_back(build([&](GranularParticleSystem& s) { s.plasticity = nan; }));
    systems.push_back(build([&](GranularParticleSystem& s) {
        s.breakConstraintsNoisy = true;
        s.breakConstrNoisyScaleX = 0.f;
        s.breakConstrNoisyOctaves = 1e9f;
        s.breakConstrNoisyRoughness = nan;
    }));
    systems.push_back(build([&](GranularParticleSystem& s) {
        s.relinkThreshold = 1.f;
        s.relinkEveryNthStep = -5;
    }));
    systems.push_back(build([&](GranularParticleSystem& s) { s.resolution = -10.f; })); // negative radius
    systems.push_back(build([&](GranularParticleSystem& s) { s.resolution = inf; }));   // zero radius
    for (auto& s : systems) {
        run(*s, 3);
        EXPECT_EQ(s->particleCount(), 48u);
    }
    // Lists out of step and partners that don't exist are survived too.
    auto odd = freeSystem();
    odd->addParticle(Vec4f(1.f, 1.f, 1.f), Vec4f());
    odd->addParticle(Vec4f(1.1f, 1.f, 1.f), Vec4f());
    odd->rememberParticleCount();
    (*odd->ch.constrIndices)[0] = {1, 7, -2, 1};
    (*odd->ch.constrDists)[0] = {0.1f, 0.1f};
    run(*odd, 2);
    EXPECT_EQ(links(*odd, 0).size(), (*odd->ch.constrDists)[0].size());
}

} // namespace
