// The particle hash and its radix sort: the table-size rule at its edges, the key
// function and its fast form, the sort against std::sort on awkward inputs, cell ranges,
// and the 27-cell neighbour gather against a brute-force search.
#include "particles/particlehash.h"
#include "particles/radixsort.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>
#include <set>
#include <vector>

namespace {

std::vector<Vec4f> randomPositions(size_t count, float extent, unsigned seed)
{
    std::mt19937 rng(seed);
    std::uniform_real_distribution<float> u(-extent, extent);
    std::vector<Vec4f> out(count);
    for (Vec4f& p : out) p = Vec4f(u(rng), u(rng), u(rng), 0.f);
    return out;
}

// Sorts with radixSortPairs and checks keys against std::sort and that the payload is the
// permutation that was applied to the keys.
void expectSortsLikeStdSort(const std::vector<uint32_t>& input, int threads)
{
    std::vector<uint32_t> keys = input;
    std::vector<uint32_t> payload(keys.size());
    std::iota(payload.begin(), payload.end(), 0u);
    radixSortPairs(keys.data(), payload.data(), keys.size(), threads);

    std::vector<uint32_t> expected = input;
    std::sort(expected.begin(), expected.end());
    ASSERT_EQ(keys, expected);
    std::vector<bool> seen(input.size(), false);
    for (size_t i = 0; i < keys.size(); ++i) {
        ASSERT_LT(payload[i], input.size());
        ASSERT_FALSE(seen[payload[i]]) << "payload index used twice";
        seen[payload[i]] = true;
        ASSERT_EQ(input[payload[i]], keys[i]) << "payload does not follow its key";
    }
}

TEST(HashTableSize, SmallCountsStayAtTheMinimum)
{
    EXPECT_EQ(hashTableSize(0), 260000u);
    EXPECT_EQ(hashTableSize(1), 260000u);
    EXPECT_EQ(hashTableSize(103999), 260000u);
    EXPECT_EQ(hashTableSize(104000), 260000u);
    EXPECT_EQ(hashTableSize(104001), 260002u);
}

TEST(HashTableSize, TruncatesAndStopsAtTheMaximum)
{
    EXPECT_EQ(hashTableSize(1000001), 2500002u);
    EXPECT_EQ(hashTableSize(400001), 1000002u);  // 1000002.5 truncated
    EXPECT_EQ(hashTableSize(11999999), 29999997u);
    EXPECT_EQ(hashTableSize(12000000), 30000000u);
    EXPECT_EQ(hashTableSize(500000000), 30000000u);
}

TEST(HashKey, CellCoordinatesFloorNegativesAndRejectNaN)
{
    EXPECT_EQ(hashCellCoord(0.05f, 0.1f), 0);
    EXPECT_EQ(hashCellCoord(-0.01f, 0.1f), -1);
    EXPECT_EQ(hashCellCoord(-0.1f, 0.1f), -1);
    EXPECT_EQ(hashCellCoord(0.25f, 0.1f), 2);
    EXPECT_EQ(hashCellCoord(std::nanf(""), 0.1f), INT32_MIN);
    EXPECT_EQ(hashCellCoord(1e30f, 0.1f), INT32_MIN);
}

TEST(HashKey, WrapsNegativeCoordinatesAsUnsigned)
{
    const uint32_t t = 260000;
    const uint32_t expected = ((uint32_t(-1) * 73856093u) ^ (uint32_t(2) * 19349663u) ^ (uint32_t(-3) * 83492791u)) % t;
    EXPECT_EQ(hashKey(-1, 2, -3, t), expected);
}

TEST(HashKey, FastModuloMatchesTheDivision)
{
    std::mt19937 rng(7);
    for (uint32_t table : {1u, 2u, 3u, 7u, 260000u, 2500002u, 29999997u, 30000000u, 0xFFFFFFFFu}) {
        ParticleHash h;
        h.tableSize = table;
        h.cellSize = 0.1f;
        const CellHasher hasher(h);
        for (int n = 0; n < 20000; ++n) {
            const int32_t x = int32_t(rng()), y = int32_t(rng()), z = int32_t(rng());
            ASSERT_EQ(hasher.bucket(x, y, z), hashKey(x, y, z, table)) << table;
        }
        ASSERT_EQ(hasher.bucket(INT32_MIN, INT32_MAX, -1), hashKey(INT32_MIN, INT32_MAX, -1, table));
    }
}

TEST(RadixSort, EmptySingleAndInsertionSortEdge)
{
    for (size_t n : {0u, 1u, 2u, 64u, 65u, 66u}) {
        std::mt19937 rng{unsigned(n)};
        std::vector<uint32_t> keys(n);
        for (uint32_t& k : keys) k = rng();
        expectSortsLikeStdSort(keys, 1);
        expectSortsLikeStdSort(keys, 2);
    }
}

TEST(RadixSort, RandomFullRangeKeys)
{
    std::mt19937 rng(11);
    std::vector<uint32_t> keys(100000);
    for (uint32_t& k : keys) k = rng();
    expectSortsLikeStdSort(keys, 1);
    expectSortsLikeStdSort(keys, 2);
}

TEST(RadixSort, HashLikeKeysWithManyDuplicates)
{
    std::mt19937 rng(12);
    std::vector<uint32_t> keys(100000);
    for (uint32_t& k : keys) k = rng() % 2500;  // dense buckets, top bytes all zero
    expectSortsLikeStdSort(keys, 2);
}

TEST(RadixSort, AllEqualSortedAndReversed)
{
    std::vector<uint32_t> equal(100000, 0xABCDEF01u);
    expectSortsLikeStdSort(equal, 2);
    std::vector<uint32_t> sorted(100000);
    std::iota(sorted.begin(), sorted.end(), 5u);
    expectSortsLikeStdSort(sorted, 1);
    expectSortsLikeStdSort(sorted, 2);
    std::vector<uint32_t> reversed(sorted.rbegin(), sorted.rend());
    expectSortsLikeStdSort(reversed, 2);
}

TEST(RadixSort, OutputDoesNotDependOnTheThreadCount)
{
    std::mt19937 rng(13);
    std::vector<uint32_t> input(50000);
    for (uint32_t& k : input) k = rng() % 3000;  // ties, whose order isn't promised
    std::vector<uint32_t> k1 = input, k2 = input, p1(input.size()), p2(input.size());
    std::iota(p1.begin(), p1.end(), 0u);
    std::iota(p2.begin(), p2.end(), 0u);
    radixSortPairs(k1.data(), p1.data(), k1.size(), 1);
    radixSortPairs(k2.data(), p2.data(), k2.size(), 2);
    EXPECT_EQ(p1, p2);
}

class HashBuildTest : public ::testing::Test {
protected:
    void build(const std::vector<Vec4f>& positions, float cellSize)
    {
        hash.cellSize = cellSize;
        buildParticleHash(positions.data(), positions.size(), hash, keys, order, cellStart, cellEnd, 2);
        sortedPos.resize(positions.size());
        for (size_t k = 0; k < order.size(); ++k) sortedPos[k] = positions[order[k]];
    }

    ParticleHash hash;
    std::vector<uint32_t> keys, order, cellStart, cellEnd;
    VecArray sortedPos;
};

TEST_F(HashBuildTest, CellRangesCoverEverySlotOfTheirBucket)
{
    const auto positions = randomPositions(5000, 1.f, 3);
    build(positions, 0.1f);
    ASSERT_EQ(cellStart.size(), hash.tableSize);
    ASSERT_TRUE(std::is_sorted(keys.begin(), keys.end()));
    for (size_t k = 0; k < keys.size(); ++k) {
        ASSERT_EQ(keys[k], hashKey(hashCellCoord(sortedPos[k].x, 0.1f), hashCellCoord(sortedPos[k].y, 0.1f),
                                   hashCellCoord(sortedPos[k].z, 0.1f), hash.tableSize));
        ASSERT_LE(cellStart[keys[k]], k);
        ASSERT_GE(cellEnd[keys[k]], k);
    }
    size_t filled = 0;
    for (uint32_t b = 0; b < hash.tableSize; ++b)
        if (cellStart[b] != kEmptyBucket) filled += cellEnd[b] - cellStart[b] + 1;
    EXPECT_EQ(filled, positions.size());
}

TEST_F(HashBuildTest, NeighbourListsHoldEveryParticleWithinOneCell)
{
    const float radius = 0.05f;
    const float cell = 2.f * radius;
    const auto positions = randomPositions(3000, 0.6f, 4);
    build(positions, cell);
    IntListArray lists;
    findNeighbourLists(sortedPos.data(), sortedPos.size(), hash, cellStart, cellEnd, lists, 2);

    size_t pairs = 0;
    for (size_t a = 0; a < sortedPos.size(); ++a) {
        const std::set<int32_t> listed(lists[a].begin(), lists[a].end());
        ASSERT_EQ(listed.count(int32_t(a)), 0u) << "a slot lists itself";
        for (size_t b = 0; b < sortedPos.size(); ++b) {
            if (a == b) continue;
            const Vec4f d = sortedPos[a] - sortedPos[b];
            if (d.length3() < 2.f * radius) {
                ++pairs;
                ASSERT_EQ(listed.count(int32_t(b)), 1u) << "slot " << b << " within 2r of slot " << a;
            }
        }
    }
    EXPECT_GT(pairs, 100u);  // the cloud is dense enough to mean something
}

TEST_F(HashBuildTest, CellsSharingABucketAreVisitedTwice)
{
    // With a single bucket, every one of the 27 cells reads it: each other slot 27 times.
    const std::vector<Vec4f> positions{Vec4f(0.f, 0.f, 0.f), Vec4f(5.f, 5.f, 5.f), Vec4f(-3.f, 1.f, 0.f)};
    hash.cellSize = 0.1f;
    hash.tableSize = 1;
    keys.resize(3);
    order.resize(3);
    computeHashKeys(positions.data(), 3, hash, keys.data(), order.data(), 1);
    sortHashKeys(keys.data(), order.data(), 3, 1);
    findCellRanges(keys.data(), 3, hash.tableSize, cellStart, cellEnd, 1);
    std::vector<int32_t> list;
    gatherNeighbourSlots(positions[order[0]], 0, CellHasher(hash), cellStart.data(), cellEnd.data(), list);
    EXPECT_EQ(list.size(), 54u);
    EXPECT_EQ(std::count(list.begin(), list.end(), 0), 0);
}

TEST_F(HashBuildTest, GatherOrderIsZThenYThenX)
{
    // One particle in each of the 27 cells round cell (20, 30, 40), a neighbourhood with no
    // shared bucket (round the origin the signed coordinates do collide). Slots come out in
    // the visiting order of their cells, which is the order the particles were made in.
    std::vector<Vec4f> positions;
    for (int z = 39; z <= 41; ++z)
        for (int y = 29; y <= 31; ++y)
            for (int x = 19; x <= 21; ++x) positions.emplace_back(0.1f * x + 0.05f, 0.1f * y + 0.05f, 0.1f * z + 0.05f);
    build(positions, 0.1f);
    const uint32_t self = std::find(order.begin(), order.end(), 13u) - order.begin();  // the centre cell
    std::vector<int32_t> list;
    gatherNeighbourSlots(sortedPos[self], self, CellHasher(hash), cellStart.data(), cellEnd.data(), list);
    ASSERT_EQ(list.size(), 26u);
    std::vector<uint32_t> particles;
    for (int32_t slot : list) particles.push_back(order[size_t(slot)]);
    std::vector<uint32_t> expected;
    for (uint32_t i = 0; i < 27; ++i)
        if (i != 13) expected.push_back(i);
    EXPECT_EQ(particles, expected);
}

TEST_F(HashBuildTest, NearestDistanceMatchesBruteForce)
{
    const auto positions = randomPositions(2000, 0.5f, 5);
    build(positions, 0.1f);
    const auto probes = randomPositions(200, 0.5f, 6);
    for (const Vec4f& p : probes) {
        float best = kNoNeighbourDistance;
        for (const Vec4f& q : positions) best = std::min(best, (q - p).length3());
        const float found = nearestParticleDistance(p, positions.data(), order.data(), hash, cellStart, cellEnd);
        if (best < 0.1f) EXPECT_FLOAT_EQ(found, best);  // within one cell it must be exact
        else EXPECT_GE(found, best);
    }
    // Far away only a shared bucket can answer, and then with a far particle.
    EXPECT_GT(nearestParticleDistance(Vec4f(50.f, 50.f, 50.f), positions.data(), order.data(), hash, cellStart,
                                      cellEnd),
              80.f);
}

} // namespace
