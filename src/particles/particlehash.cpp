// Building and reading the particle hash: keys, the radix sort, the cell ranges, and the
// 27-cell neighbour gather. Every loop is one parallel loop over particles or slots with
// a static partition, writing only its own entries.
#include "particles/particlehash.h"

#include "geo/body.h"
#include "particles/radixsort.h"

#include <algorithm>

uint32_t hashTableSize(size_t count)
{
    const double wanted = std::trunc(double(count) * kHashBucketsPerParticle);
    return uint32_t(std::clamp(wanted, double(kHashTableMin), double(kHashTableMax)));
}

void computeHashKeys(const Vec4f* positions, size_t count, const ParticleHash& hash, uint32_t* keys,
                     uint32_t* order, int numThreads)
{
    const CellHasher hasher(hash);
    const int64_t n = int64_t(count);
#pragma omp parallel for schedule(static) num_threads(std::max(1, numThreads))
    for (int64_t i = 0; i < n; ++i) {
        keys[i] = hasher.bucketOf(positions[i]);
        order[i] = uint32_t(i);
    }
}

void sortHashKeys(uint32_t* keys, uint32_t* order, size_t count, int numThreads)
{
    radixSortPairs(keys, order, count, numThreads);
}

void findCellRanges(const uint32_t* sortedKeys, size_t count, uint32_t tableSize, std::vector<uint32_t>& cellStart,
                    std::vector<uint32_t>& cellEnd, int numThreads)
{
    cellStart.resize(tableSize);
    cellEnd.resize(tableSize);
    const int threads = std::max(1, numThreads);
    uint32_t* start = cellStart.data();
    uint32_t* end = cellEnd.data();
    const int64_t buckets = int64_t(tableSize);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t b = 0; b < buckets; ++b) start[b] = kEmptyBucket;

    // A slot opens a run where its key differs from the one before, and closes it where it
    // differs from the one after: the same marks as a walk in order, found in parallel.
    const int64_t n = int64_t(count);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t k = 0; k < n; ++k) {
        const uint32_t key = sortedKeys[k];
        if (k == 0 || sortedKeys[k - 1] != key) start[key] = uint32_t(k);
        if (k == n - 1 || sortedKeys[k + 1] != key) end[key] = uint32_t(k);
    }
}

void buildParticleHash(const Vec4f* positions, size_t count, ParticleHash& hash, std::vector<uint32_t>& keys,
                       std::vector<uint32_t>& order, std::vector<uint32_t>& cellStart,
                       std::vector<uint32_t>& cellEnd, int numThreads)
{
    hash.tableSize = hashTableSize(count);
    keys.resize(count);
    order.resize(count);
    computeHashKeys(positions, count, hash, keys.data(), order.data(), numThreads);
    sortHashKeys(keys.data(), order.data(), count, numThreads);
    findCellRanges(keys.data(), count, hash.tableSize, cellStart, cellEnd, numThreads);
}

void buildParticleHash(const Body& body, ParticleHash& hash, std::vector<uint32_t>& keys,
                       std::vector<uint32_t>& order, std::vector<uint32_t>& cellStart,
                       std::vector<uint32_t>& cellEnd, int numThreads)
{
    const VecArray& P = body.points->P;
    buildParticleHash(P.data(), P.size(), hash, keys, order, cellStart, cellEnd, numThreads);
}

void gatherNeighbourSlots(const Vec4f& p, uint32_t self, const CellHasher& hasher, const uint32_t* cellStart,
                          const uint32_t* cellEnd, std::vector<int32_t>& out)
{
    forEachNeighbourSlot(p, hasher, cellStart, cellEnd, [&](uint32_t slot) {
        if (slot != self) out.push_back(int32_t(slot));
    });
}

void findNeighbourLists(const Vec4f* sortedPositions, size_t count, const ParticleHash& hash,
                        const std::vector<uint32_t>& cellStart, const std::vector<uint32_t>& cellEnd,
                        IntListArray& lists, int numThreads)
{
    if (lists.size() < count) lists.resize(count);
    const CellHasher hasher(hash);
    const int64_t n = int64_t(count);
#pragma omp parallel for schedule(static) num_threads(std::max(1, numThreads))
    for (int64_t k = 0; k < n; ++k) {
        std::vector<int32_t>& list = lists[size_t(k)];
        list.clear();
        gatherNeighbourSlots(sortedPositions[k], uint32_t(k), hasher, cellStart.data(), cellEnd.data(), list);
    }
}

float nearestParticleDistance(const Vec4f& p, const Vec4f* positions, const uint32_t* order,
                              const ParticleHash& hash, const std::vector<uint32_t>& cellStart,
                              const std::vector<uint32_t>& cellEnd)
{
    if (cellStart.size() != hash.tableSize || cellEnd.size() != hash.tableSize) return kNoNeighbourDistance;
    const CellHasher hasher(hash);
    float best2 = -1.f;
    forEachNeighbourSlot(p, hasher, cellStart.data(), cellEnd.data(), [&](uint32_t slot) {
        const Vec4f d = positions[order[slot]] - p;
        const float d2 = d.dot3(d);
        if (best2 < 0.f || d2 < best2) best2 = d2;
    });
    return best2 < 0.f ? kNoNeighbourDistance : std::sqrt(best2);
}
