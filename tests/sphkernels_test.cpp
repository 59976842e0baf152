// The SPH neighbour search and passes: the dense cell grid's runs against the cells they
// stand for, and density, pair lists and forces from every search path (grid or bucket
// hash, 8-wide or scalar candidate loop) against a brute-force pair search.
#include "particles/cellgrid.h"
#include "particles/sphkernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <random>
#include <vector>

namespace {

constexpr float kH = 0.1f;

// A random cloud round the origin (negative coordinates included), dense enough for
// about 30 neighbours within kH, with some particles exactly on cell faces.
std::vector<Vec4f> cloud(size_t count, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(-0.25f, 0.2f);
    std::vector<Vec4f> out(count);
    for (Vec4f& p : out) p = Vec4f(u(rng), u(rng), u(rng), 0.f);
    for (size_t i = 0; i < count; i += 17) out[i].x = std::round(out[i].x / kH) * kH;
    return out;
}

std::vector<Vec4f> velocities(size_t count, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(-1.f, 1.f);
    std::vector<Vec4f> out(count);
    for (Vec4f& v : out) v = Vec4f(u(rng), u(rng), u(rng), 0.f);
    return out;
}

struct PassResult {
    bool grid = false;
    std::vector<float> density; // by particle
    std::vector<Vec4f> force;   // by particle
    size_t pairs = 0;
};

// Per-particle coefficients for the force pass's per-particle form; empty for the plain form.
struct Coefficients {
    std::vector<float> viscosity, tension;
};

const SphConstants& constants(bool nodeForm = false)
{
    // A rest density below the cloud's, so that pressure is on and enters the forces.
    static const SphConstants classic =
        makeSphConstants(kH, 0.001f, 300.f, 0.25f, 20.f, 0.15f, 0.5f, 0.05f, 1.0e6f, false);
    static const SphConstants node = makeSphConstants(kH, 0.001f, 300.f, 0.25f, 20.f, 0.15f, 0.5f, 0.05f, 1.0e6f, true);
    return nodeForm ? node : classic;
}

PassResult runPasses(const std::vector<Vec4f>& P, const std::vector<Vec4f>& v, bool allowGrid, bool allowWide,
                     int threads, const Coefficients& coefficients = {}, bool nodeForm = false)
{
    const size_t n = P.size();
    SphArrays arrays;
    arrays.allowGrid = allowGrid;
    arrays.allowWide = allowWide;
    arrays.sort(P.data(), v.data(), n, kH, threads);
    PassResult r;
    r.grid = arrays.gridInUse;
    r.density.assign(n, 0.f);
    r.force.assign(n, Vec4f());
    SphPassData d;
    d.arrays = &arrays;
    d.density = r.density.data();
    d.force = r.force.data();
    if (!coefficients.viscosity.empty()) d.viscosity = coefficients.viscosity.data();
    if (!coefficients.tension.empty()) d.surfaceTension = coefficients.tension.data();
    const SphConstants& k = constants(nodeForm);
    sphDensityPass(k, d, threads);
    sphForcePass(k, d, threads);
    for (size_t c = 0; c * SphArrays::kChunkSlots < n; ++c)
        r.pairs += arrays.chunks[c].offsets[std::min<size_t>(SphArrays::kChunkSlots, n - c * SphArrays::kChunkSlots)];
    return r;
}

// Density by the formula over every pair, and the number of ordered close pairs.
std::vector<float> bruteDensity(const std::vector<Vec4f>& P, size_t& pairs)
{
    const SphConstants& k = constants();
    std::vector<float> out(P.size());
    pairs = 0;
    for (size_t i = 0; i < P.size(); ++i) {
        double sum = k.densitySeed;
        for (size_t j = 0; j < P.size(); ++j) {
            if (i == j) continue;
            const Vec4f r = P[i] - P[j];
            const float d = std::sqrt(r.dot3(r)) + k.distanceOffset;
            if (d >= kH) continue;
            const double w = double(k.h2) - double(d) * d;
            sum += w * w * w;
            ++pairs;
        }
        out[i] = float(double(k.densityCoef) * sum) + kSphDensityFloor;
    }
    return out;
}

// The plain form's forces from the densities, written out pair by pair in double with the
// library cosine: pressure, viscosity and stringiness summed and clamped, surface tension
// beside the clamp.
std::vector<Vec4f> bruteForces(const std::vector<Vec4f>& P, const std::vector<Vec4f>& v,
                               const std::vector<float>& density)
{
    const SphConstants& k = constants();
    std::vector<Vec4f> out(P.size());
    for (size_t i = 0; i < P.size(); ++i) {
        const double pi = sphPressure(density[i], k.restDensity, k.pressureScale);
        double s[3] = {0, 0, 0}, t[3] = {0, 0, 0};
        for (size_t j = 0; j < P.size(); ++j) {
            if (i == j) continue;
            const double r[3] = {P[i].x - P[j].x, P[i].y - P[j].y, P[i].z - P[j].z};
            const double d = std::sqrt(r[0] * r[0] + r[1] * r[1] + r[2] * r[2]) + k.distanceOffset;
            if (d >= k.h) continue;
            const double u[3] = {v[j].x - v[i].x, v[j].y - v[i].y, v[j].z - v[i].z};
            const double a = k.h - d;
            const double pj = sphPressure(density[j], k.restDensity, k.pressureScale);
            const double press = (pi + pj) * -0.5 * k.spikyGrad * a * a / d;
            const double visc = double(k.viscLap) * k.visc * a;
            const double str = double(k.viscLap) * k.string * a * (u[0] * r[0] + u[1] * r[1] + u[2] * r[2]);
            const double share = k.mass / double(density[j]);
            const double pull = std::cos(d * k.wave) * k.surfaceTension;
            for (int c = 0; c < 3; ++c) {
                s[c] += (press * r[c] + visc * u[c] + str * r[c] / d) * share;
                t[c] -= pull * r[c] / d;
            }
        }
        const double len = std::sqrt(s[0] * s[0] + s[1] * s[1] + s[2] * s[2]);
        const double scale = len > k.clampForce ? k.clampForce / len : 1.0;
        out[i] = Vec4f(float(s[0] * scale + t[0]), float(s[1] * scale + t[1]), float(s[2] * scale + t[2]), 0.f);
    }
    return out;
}

void expectSameForces(const PassResult& a, const PassResult& b)
{
    ASSERT_EQ(a.force.size(), b.force.size());
    for (size_t i = 0; i < a.force.size(); ++i) {
        const float scale = 1e-4f * (1.f + b.force[i].length3());
        ASSERT_NEAR(a.force[i].x, b.force[i].x, scale) << "particle " << i;
        ASSERT_NEAR(a.force[i].y, b.force[i].y, scale) << "particle " << i;
        ASSERT_NEAR(a.force[i].z, b.force[i].z, scale) << "particle " << i;
    }
}

TEST(CellGrid, RowRunsHoldExactlyTheParticlesOfTheTwentySevenCells)
{
    const std::vector<Vec4f> P = cloud(3000, 7);
    CellGrid grid;
    ASSERT_TRUE(grid.fit(P.data(), P.size(), kH, 1u << 20, 2));
    std::vector<uint32_t> keys, order;
    grid.sort(P.data(), P.size(), keys, order, 2);
    ASSERT_EQ(grid.cellFirst.size(), size_t(grid.nx) * grid.ny * grid.nz + 1);
    EXPECT_EQ(grid.cellFirst.back(), P.size());
    auto cellOf = [&](const Vec4f& p) {
        return std::array<int, 3>{int(std::floor(p.x / kH)), int(std::floor(p.y / kH)), int(std::floor(p.z / kH))};
    };
    for (size_t probe = 0; probe < P.size(); probe += 97) {
        const auto c = cellOf(P[probe]);
        uint32_t begin[9], end[9];
        grid.rowRuns(grid.cellIndex(P[probe]), begin, end);
        std::vector<uint32_t> listed;
        for (int r = 0; r < 9; ++r)
            for (uint32_t s = begin[r]; s < end[r]; ++s) listed.push_back(order[s]);
        std::vector<uint32_t> expected;
        for (uint32_t i = 0; i < P.size(); ++i) {
            const auto o = cellOf(P[i]);
            if (std::abs(o[0] - c[0]) <= 1 && std::abs(o[1] - c[1]) <= 1 && std::abs(o[2] - c[2]) <= 1)
                expected.push_back(i);
        }
        std::sort(listed.begin(), listed.end());
        ASSERT_EQ(listed, expected) << "probe " << probe;
    }
}

TEST(CellGrid, RefusesABoxOfTooManyCellsAndNonsenseCellSizes)
{
    std::vector<Vec4f> P = cloud(100, 3);
    CellGrid grid;
    EXPECT_TRUE(grid.fit(P.data(), P.size(), kH, 1000, 1));
    P.push_back(Vec4f(1000.f, 0.f, 0.f, 0.f));
    EXPECT_FALSE(grid.fit(P.data(), P.size(), kH, 100000, 1));
    EXPECT_TRUE(grid.fit(P.data(), P.size(), kH, 1000000, 1));
    P.back() = Vec4f(3.0e12f, 0.f, 0.f, 0.f); // past any cell index
    EXPECT_FALSE(grid.fit(P.data(), P.size(), kH, size_t(1) << 62, 1));
    P.pop_back();
    EXPECT_FALSE(grid.fit(P.data(), P.size(), 0.f, 1000000, 1));
    EXPECT_FALSE(grid.fit(P.data(), 0, kH, 1000000, 1));
}

TEST(SphPasses, EverySearchPathFindsThePairsOfABruteForceSearch)
{
    const std::vector<Vec4f> P = cloud(2500, 11);
    const std::vector<Vec4f> v = velocities(P.size(), 12);
    size_t brutePairs = 0;
    const std::vector<float> expected = bruteDensity(P, brutePairs);
    ASSERT_GT(brutePairs, P.size() * 10) << "the cloud should be dense enough to test pairs";

    const PassResult reference = runPasses(P, v, true, true, 2);
    EXPECT_TRUE(reference.grid);
    const std::vector<Vec4f> exact = bruteForces(P, v, expected);
    for (size_t i = 0; i < P.size(); ++i) {
        const float scale = 1e-3f * (1.f + exact[i].length3());
        ASSERT_NEAR(reference.force[i].x, exact[i].x, scale) << "particle " << i;
        ASSERT_NEAR(reference.force[i].y, exact[i].y, scale) << "particle " << i;
        ASSERT_NEAR(reference.force[i].z, exact[i].z, scale) << "particle " << i;
    }
    for (bool grid : {true, false}) {
        for (bool wide : {true, false}) {
            for (int threads : {1, 2}) {
                SCOPED_TRACE(testing::Message() << "grid " << grid << " wide " << wide << " threads " << threads);
                const PassResult r = runPasses(P, v, grid, wide, threads);
                EXPECT_EQ(r.grid, grid);
                EXPECT_EQ(r.pairs, brutePairs);
                for (size_t i = 0; i < P.size(); ++i)
                    ASSERT_NEAR(r.density[i], expected[i], 1e-4f * expected[i]) << "particle " << i;
                expectSameForces(r, reference);
            }
        }
    }
}

TEST(SphPasses, PerParticleCoefficientsMatchThePlainFormAndBothLoops)
{
    const std::vector<Vec4f> P = cloud(2000, 31);
    const std::vector<Vec4f> v = velocities(P.size(), 32);
    const PassResult plain = runPasses(P, v, true, false, 2);
    // Every particle carrying the system's own values is the plain form.
    Coefficients same;
    same.viscosity.assign(P.size(), 0.15f);
    same.tension.assign(P.size(), 0.05f);
    for (bool wide : {true, false}) expectSameForces(runPasses(P, v, true, wide, 2, same), plain);

    Coefficients varied;
    std::mt19937 rng(33);
    std::uniform_real_distribution<float> u(0.f, 1.f);
    for (size_t i = 0; i < P.size(); ++i) {
        varied.viscosity.push_back(u(rng));
        varied.tension.push_back(u(rng) * 0.2f);
    }
    const PassResult scalar = runPasses(P, v, true, false, 1, varied);
    expectSameForces(runPasses(P, v, true, true, 2, varied), scalar);
    double change = 0.0;
    for (size_t i = 0; i < P.size(); ++i) change += (scalar.force[i] - plain.force[i]).length3();
    EXPECT_GT(change, 1e-3) << "the coefficients should change the forces";
}

TEST(SphPasses, CoincidentParticlesOfTheNodeFormGetNoPairForce)
{
    const std::vector<Vec4f> P = {Vec4f(0.02f, 0.02f, 0.02f, 0.f), Vec4f(0.02f, 0.02f, 0.02f, 0.f)};
    const std::vector<Vec4f> v = {Vec4f(1.f, 0.f, 0.f, 0.f), Vec4f(-1.f, 0.f, 0.f, 0.f)};
    for (bool wide : {true, false}) {
        const PassResult r = runPasses(P, v, true, wide, 1, {}, true);
        EXPECT_EQ(r.pairs, 2u);
        for (const Vec4f& f : r.force) {
            EXPECT_EQ(f.x, 0.f);
            EXPECT_EQ(f.y, 0.f);
            EXPECT_EQ(f.z, 0.f);
        }
    }
}

TEST(SphPasses, AFarParticleSendsTheSearchToTheHashWithTheSameResults)
{
    std::vector<Vec4f> P = cloud(1500, 21);
    P.push_back(Vec4f(5.0e4f, -3.0e4f, 1.0e4f, 0.f));
    const std::vector<Vec4f> v = velocities(P.size(), 22);
    size_t brutePairs = 0;
    const std::vector<float> expected = bruteDensity(P, brutePairs);
    const PassResult r = runPasses(P, v, true, true, 2);
    EXPECT_FALSE(r.grid);
    for (size_t i = 0; i < P.size(); ++i) ASSERT_NEAR(r.density[i], expected[i], 1e-4f * expected[i]);
    // The lone particle has no neighbours: its density is the floor and the sum's seed.
    EXPECT_GT(r.density.back(), kSphDensityFloor);
    EXPECT_LT(r.density.back(), kSphDensityFloor + 0.1f);
    EXPECT_EQ(r.force.back().length3(), 0.f);
}

TEST(SphPasses, ForcesOfAPairAreEqualAndOpposite)
{
    // Two particles alone: pressure, viscosity, stringiness and tension all act along
    // the pair or on the velocity difference, so the forces cancel.
    const std::vector<Vec4f> P = {Vec4f(0.01f, 0.02f, 0.f, 0.f), Vec4f(0.05f, 0.04f, 0.03f, 0.f)};
    const std::vector<Vec4f> v = {Vec4f(1.f, 0.f, 0.f, 0.f), Vec4f(-0.5f, 0.3f, 0.f, 0.f)};
    for (bool grid : {true, false}) {
        const PassResult r = runPasses(P, v, grid, true, 1);
        EXPECT_EQ(r.pairs, 2u);
        EXPECT_GT(r.force[0].length3(), 0.f);
        EXPECT_NEAR(r.force[0].x, -r.force[1].x, 1e-5f);
        EXPECT_NEAR(r.force[0].y, -r.force[1].y, 1e-5f);
        EXPECT_NEAR(r.force[0].z, -r.force[1].z, 1e-5f);
    }
}

} // namespace
