// The spatial hash the particle solvers share. Positions fall into cubic cells, cells into
// a fixed number of buckets; the bucket keys, sorted with their particle indices, give
// every bucket one run of sorted slots (cellStart..cellEnd), and the 27 cells round a point
// are then read as runs. Free functions over plain position arrays, so granular, SPH,
// emission and cloth use the same hash with any cell size.
#pragma once

#include "geo/attribtypes.h"
#include "geo/vec.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

class Body;

// Bucket count limits: small systems still get a sparse table, huge ones stop at 30M.
constexpr uint32_t kHashTableMin = 260000;
constexpr uint32_t kHashTableMax = 30000000;
// Buckets per particle before the limits apply.
constexpr double kHashBucketsPerParticle = 2.5;
// cellStart of a bucket that holds no slot.
constexpr uint32_t kEmptyBucket = 0xFFFFFFFFu;
// Answer of a nearest-distance query that finds no particle.
constexpr float kNoNeighbourDistance = 999999.9f;

// The hash record: bucket count, cell edge length and the substep length it was built for.
struct ParticleHash {
    uint32_t tableSize = kHashTableMin;
    float cellSize = 0.f;
    float dt = 0.f;
};

// clamp(trunc(count * 2.5), 260000, 30000000).
uint32_t hashTableSize(size_t count);

// Cell coordinate of one axis: floor(x / cellSize) as a signed integer. Values out of the
// int range (NaN included) give INT32_MIN, as the processor's own conversion does.
inline int32_t hashCellCoord(float x, float cellSize)
{
    const float c = std::floor(x / cellSize);
    return c >= -2147483648.f && c < 2147483648.f ? int32_t(c) : INT32_MIN;
}

// Bucket of cell (ix, iy, iz): the coordinates as unsigned 32-bit, times the primes of the
// classic spatial hash (Teschner et al. 2003) with wrapping products, XORed, mod tableSize.
inline uint32_t hashKey(int32_t ix, int32_t iy, int32_t iz, uint32_t tableSize)
{
    return ((uint32_t(ix) * 73856093u) ^ (uint32_t(iy) * 19349663u) ^ (uint32_t(iz) * 83492791u)) % tableSize;
}

// hashKey with the division replaced by Lemire's exact 32-bit fastmod, for the inner loops.
struct CellHasher {
    explicit CellHasher(const ParticleHash& hash)
        : cellSize(hash.cellSize), tableSize(hash.tableSize), magic(~uint64_t(0) / hash.tableSize + 1)
    {
    }

    uint32_t bucket(int32_t ix, int32_t iy, int32_t iz) const
    {
        const uint32_t h = (uint32_t(ix) * 73856093u) ^ (uint32_t(iy) * 19349663u) ^ (uint32_t(iz) * 83492791u);
        return uint32_t((__uint128_t(magic * h) * tableSize) >> 64);
    }
    uint32_t bucketOf(const Vec4f& p) const
    {
        return bucket(hashCellCoord(p.x, cellSize), hashCellCoord(p.y, cellSize), hashCellCoord(p.z, cellSize));
    }

    float cellSize;
    uint32_t tableSize;
    uint64_t magic;
};

// Visits the slot runs of the 27 cells round p as visit(first, last), both inclusive: z
// outermost from -1 to +1, then y, then x; empty buckets are skipped. Two cells that share
// a bucket are visited twice.
template <class Visit>
inline void forEachNeighbourRun(const Vec4f& p, const CellHasher& hasher, const uint32_t* cellStart,
                                const uint32_t* cellEnd, Visit&& visit)
{
    const int32_t cx = hashCellCoord(p.x, hasher.cellSize);
    const int32_t cy = hashCellCoord(p.y, hasher.cellSize);
    const int32_t cz = hashCellCoord(p.z, hasher.cellSize);
    for (int32_t dz = -1; dz <= 1; ++dz) {
        for (int32_t dy = -1; dy <= 1; ++dy) {
            for (int32_t dx = -1; dx <= 1; ++dx) {
                // Wrapping sums, as the unsigned cell coordinates of the key wrap.
                const uint32_t b = hasher.bucket(int32_t(uint32_t(cx) + uint32_t(dx)),
                                                 int32_t(uint32_t(cy) + uint32_t(dy)),
                                                 int32_t(uint32_t(cz) + uint32_t(dz)));
                const uint32_t start = cellStart[b];
                if (start != kEmptyBucket) visit(start, cellEnd[b]);
            }
        }
    }
}

// Visits the slots of the 27 cells round p in the order of forEachNeighbourRun, each
// bucket's slots ascending.
template <class Visit>
inline void forEachNeighbourSlot(const Vec4f& p, const CellHasher& hasher, const uint32_t* cellStart,
                                 const uint32_t* cellEnd, Visit&& visit)
{
    forEachNeighbourRun(p, hasher, cellStart, cellEnd, [&](uint32_t first, uint32_t last) {
        for (uint32_t slot = first; slot <= last; ++slot) visit(slot);
    });
}

// keys[i] = bucket of positions[i], order[i] = i, in parallel.
void computeHashKeys(const Vec4f* positions, size_t count, const ParticleHash& hash, uint32_t* keys,
                     uint32_t* order, int numThreads);
// Sorts keys ascending with order as payload (radixSortPairs).
void sortHashKeys(uint32_t* keys, uint32_t* order, size_t count, int numThreads);
// Sizes cellStart and cellEnd to the table, empties cellStart, and marks the first and last
// slot of every run of equal keys. cellEnd of an empty bucket is left as it was.
void findCellRanges(const uint32_t* sortedKeys, size_t count, uint32_t tableSize, std::vector<uint32_t>& cellStart,
                    std::vector<uint32_t>& cellEnd, int numThreads);
// The whole build for positions in particle order: table size from the count (written
// to hash), keys, sorted order and the cell ranges. hash.cellSize must be set.
void buildParticleHash(const Vec4f* positions, size_t count, ParticleHash& hash, std::vector<uint32_t>& keys,
                       std::vector<uint32_t>& order, std::vector<uint32_t>& cellStart,
                       std::vector<uint32_t>& cellEnd, int numThreads);
void buildParticleHash(const Body& body, ParticleHash& hash, std::vector<uint32_t>& keys,
                       std::vector<uint32_t>& order, std::vector<uint32_t>& cellStart,
                       std::vector<uint32_t>& cellEnd, int numThreads);

// Appends every slot of the 27 cells round p except `self` to out (no distance test).
void gatherNeighbourSlots(const Vec4f& p, uint32_t self, const CellHasher& hasher, const uint32_t* cellStart,
                          const uint32_t* cellEnd, std::vector<int32_t>& out);
// lists[k] = the gathered slots of sortedPositions[k], for every slot, in parallel.
void findNeighbourLists(const Vec4f* sortedPositions, size_t count, const ParticleHash& hash,
                        const std::vector<uint32_t>& cellStart, const std::vector<uint32_t>& cellEnd,
                        IntListArray& lists, int numThreads);

// Distance from p to the nearest particle in the 27 cells round it; positions are in
// particle order and order maps slots to them. kNoNeighbourDistance when there is none.
float nearestParticleDistance(const Vec4f& p, const Vec4f* positions, const uint32_t* order,
                              const ParticleHash& hash, const std::vector<uint32_t>& cellStart,
                              const std::vector<uint32_t>& cellEnd);
