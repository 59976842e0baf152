// The noise behind force turbulence and the constraints' noisy pre-breakup: simplex noise
// stays in its range, vanishes on lattice points, is smooth and deterministic, shrugs off
// non-finite input; the fractal sum honours its octaves, roughness and scale.
#include "particles/fractalnoise.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <limits>

namespace {

TEST(ForceNoiseTest, SimplexNoiseStaysWithinItsRangeAndUsesIt)
{
    float lowest = 0.f, highest = 0.f;
    for (int i = 0; i < 200000; ++i) {
        const float x = 0.0131f * float(i % 97), y = 0.173f * float(i % 89), z = 0.0071f * float(i);
        const float n = simplexNoise3(x, y, z);
        lowest = std::min(lowest, n);
        highest = std::max(highest, n);
    }
    EXPECT_GE(lowest, -1.f);
    EXPECT_LE(highest, 1.f);
    EXPECT_LT(lowest, -0.6f) << "the noise hardly goes negative";
    EXPECT_GT(highest, 0.6f) << "the noise hardly goes positive";
}

TEST(ForceNoiseTest, SimplexNoiseVanishesOnLatticePoints)
{
    EXPECT_EQ(simplexNoise3(0.f, 0.f, 0.f), 0.f);
    EXPECT_EQ(simplexNoise3(1.f, 1.f, 1.f), 0.f);
    EXPECT_EQ(simplexNoise3(-2.f, -2.f, -2.f), 0.f);
}

TEST(ForceNoiseTest, SimplexNoiseIsSmoothAndDeterministic)
{
    for (int i = 0; i < 1000; ++i) {
        const float x = 0.37f * float(i), y = 1.3f - 0.011f * float(i), z = 0.5f;
        const float n = simplexNoise3(x, y, z);
        EXPECT_EQ(n, simplexNoise3(x, y, z));
        EXPECT_LT(std::fabs(simplexNoise3(x + 1e-3f, y, z) - n), 0.05f) << "a jump at " << x << " " << y;
    }
}

TEST(ForceNoiseTest, NonFiniteInputGivesZero)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    EXPECT_EQ(simplexNoise3(nan, 0.f, 0.f), 0.f);
    EXPECT_EQ(simplexNoise3(0.f, inf, 0.f), 0.f);
    EXPECT_EQ(simplexNoise3(0.f, 0.f, -inf), 0.f);
    EXPECT_EQ(simplexNoise3(3e30f, 1.f, 1.f), 0.f);
}

TEST(ForceNoiseTest, OctaveCountRoundsUpAndIsBounded)
{
    EXPECT_EQ(FractalNoise::octaveCount(2.f), 2);
    EXPECT_EQ(FractalNoise::octaveCount(2.3f), 3);
    EXPECT_EQ(FractalNoise::octaveCount(0.f), 0);
    EXPECT_EQ(FractalNoise::octaveCount(-1.f), 0);
    EXPECT_EQ(FractalNoise::octaveCount(std::numeric_limits<float>::quiet_NaN()), 0);
    EXPECT_EQ(FractalNoise::octaveCount(1e9f), FractalNoise::kMaxOctaves);
    EXPECT_EQ(FractalNoise(Vec4f(1.f, 1.f, 1.f), 2000000000, 0.5f).octaves, FractalNoise::kMaxOctaves);
}

TEST(ForceNoiseTest, FractalWithoutOctavesIsZero)
{
    const FractalNoise none(Vec4f(1.f, 1.f, 1.f), 0, 0.5f);
    EXPECT_EQ(none.sample(Vec4f(0.3f, 0.2f, 0.9f)), 0.f);
}

TEST(ForceNoiseTest, FractalOctavesAreWeightedByRoughness)
{
    const Vec4f p(0.31f, 0.77f, -0.42f);
    const float base = simplexNoise3(p.x, p.y, p.z);
    const float fine = simplexNoise3(2.f * p.x, 2.f * p.y, 2.f * p.z);
    EXPECT_FLOAT_EQ(FractalNoise(Vec4f(1.f, 1.f, 1.f), 1, 0.5f).sample(p), base);
    // Roughness 0 keeps only the first octave.
    EXPECT_FLOAT_EQ(FractalNoise(Vec4f(1.f, 1.f, 1.f), 4, 0.f).sample(p), base);
    // Two octaves at roughness 0.5: (base + 0.5 fine) / 1.5.
    EXPECT_FLOAT_EQ(FractalNoise(Vec4f(1.f, 1.f, 1.f), 2, 0.5f).sample(p), (base + 0.5f * fine) / 1.5f);
}

TEST(ForceNoiseTest, FractalScaleStretchesThePattern)
{
    const FractalNoise unit(Vec4f(1.f, 1.f, 1.f), 3, 0.5f);
    const FractalNoise wide(Vec4f(2.f, 4.f, 0.5f), 3, 0.5f);
    const Vec4f p(0.3f, -0.6f, 1.1f);
    EXPECT_EQ(wide.sample(Vec4f(2.f * p.x, 4.f * p.y, 0.5f * p.z)), unit.sample(p));
}

TEST(ForceNoiseTest, DegenerateFractalsStayFinite)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const Vec4f p(0.3f, 0.6f, 0.9f);
    // Amplitudes 1 and -1 sum to zero: no division by it.
    EXPECT_EQ(FractalNoise(Vec4f(1.f, 1.f, 1.f), 2, -1.f).sample(p), 0.f);
    EXPECT_EQ(FractalNoise(Vec4f(1.f, 1.f, 1.f), 3, nan).sample(p), 0.f);
    EXPECT_EQ(FractalNoise(Vec4f(0.f, 0.f, 0.f), 3, 0.5f).sample(p), 0.f);
    EXPECT_TRUE(std::isfinite(FractalNoise(Vec4f(nan, 1.f, 1.f), 3, 0.5f).sample(p)));
}

} // namespace
