// The CPU solve of a granular substep and its neighbour search: hash the particles, sort
// them by bucket, group them into the solver's slot order, and gather each slot's
// neighbours from the 27 cells round it. The same gather keeps, in a separate array, each
// slot's pruned list: the entries that lie within the pair cut-off plus a margin, which is
// what the iterations walk while nothing has moved out of that margin. The iteration and
// integration passes that follow are in granulariterate.cpp and granularintegrate.cpp.
//
// Slot order. Sorted bucket keys scatter neighbouring cells all over memory, so the solver
// doesn't work in that order. It stacks cubic blocks of blockCells cells into columns
// along y and sorts the particles by column colour, column, block and cell; a slot is a
// particle's place in that order. The hash keeps its own order (hash slots) for its
// buckets, and bucketSlots turns a hash slot into a solver slot while gathering.
//
// Synchronisation of the iteration pass: column colouring. Columns are wider than twice
// the reach of a particle's writes (the pair cut-off, or the longest constraint) plus a
// margin for what corrections move within a substep, and get one of 4 colours by the
// parity of their x and z: two columns of one colour are a whole column apart and never
// touch the same particle. Each colour is one parallel loop over its columns, and one
// thread relaxes a column's slots in a fixed order, updating both particles of a pair at
// once as a Gauss-Seidel sweep does. No write is ever shared, so the result is
// bit-identical from run to run and does not depend on the thread count.
#include "particles/granularparticlesystem.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "particles/radixsort.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include <omp.h>

namespace {

// Constraint creation runs while maxConstraintLength exceeds this.
constexpr float kConstraintCreationMin = 0.0001f;
// Sort keys: the column colour in the top 2 bits, 7 bits for the block's place in its column.
constexpr int kColourShift = 30;
constexpr int kLayerBits = 7;
// Blocks up to 16 cells wide order their cells; wider ones leave them unordered.
constexpr int kMaxCellAxisBits = 4;
// Cells added to the column width for what corrections move particles within a substep.
constexpr int kBlockDriftCells = 2;
constexpr int kMaxBlockCells = 1 << 20;
// Largest per-thread table of bucket ranges the neighbour search builds for a block.
constexpr size_t kMaxBucketTable = 1 << 15;

int solverThreads()
{
    return std::max(1, simState->numThreads);
}

int32_t floorDiv(int32_t a, int32_t b)
{
    const int64_t q = int64_t(a) / b;
    return int32_t(int64_t(a) % b != 0 && a < 0 ? q - 1 : q);
}

// The low 10 bits of v with two zero bits after each: one axis of a 3D Morton code.
uint32_t spreadBits3(uint32_t v)
{
    v &= 0x3FFu;
    v = (v ^ (v << 16)) & 0xFF0000FFu;
    v = (v ^ (v << 8)) & 0x0300F00Fu;
    v = (v ^ (v << 4)) & 0x030C30C3u;
    v = (v ^ (v << 2)) & 0x09249249u;
    return v;
}

uint32_t morton3(uint32_t x, uint32_t y, uint32_t z, int axisBits)
{
    const uint32_t mask = (1u << axisBits) - 1u;
    return spreadBits3(x & mask) | spreadBits3(y & mask) << 1 | spreadBits3(z & mask) << 2;
}

// The low 10 bits of v with a zero bit after each: one axis of a 2D Morton code.
uint32_t spreadBits2(uint32_t v)
{
    v &= 0x3FFu;
    v = (v | (v << 8)) & 0x00FF00FFu;
    v = (v | (v << 4)) & 0x0F0F0F0Fu;
    v = (v | (v << 2)) & 0x33333333u;
    v = (v | (v << 1)) & 0x55555555u;
    return v;
}

// The sort key of a particle, which fixes the slot order. Blocks stack into columns along
// y, and a column is a unit. The key holds the column's colour, the Morton code of the
// column among the columns of its colour (columns near in space are near in memory,
// whatever their colour), the block within the column, and the Morton code of the cell
// within the block (so that a block's faces are compact parts of it). Codes wrap; columns
// that share a code share a unit, which is still one colour and one thread.
struct BlockKeys {
    explicit BlockKeys(int32_t blockCells)
        : edge(blockCells)
    {
        int bits = 0;
        while ((1 << bits) < blockCells) ++bits;
        cellBits = bits <= kMaxCellAxisBits ? bits : 0;
        columnBits = (kColourShift - kLayerBits - 3 * cellBits) / 2;
        unitShift = kLayerBits + 3 * cellBits;
    }

    uint32_t key(int32_t cx, int32_t cy, int32_t cz) const
    {
        const int32_t bx = floorDiv(cx, edge), by = floorDiv(cy, edge), bz = floorDiv(cz, edge);
        const uint32_t colour = uint32_t(bx & 1) | uint32_t(bz & 1) << 1;
        const uint32_t mask = (1u << columnBits) - 1u;
        const uint32_t column = spreadBits2(uint32_t(floorDiv(bx, 2)) & mask) |
                                spreadBits2(uint32_t(floorDiv(bz, 2)) & mask) << 1;
        const uint32_t layer = uint32_t(by) & ((1u << kLayerBits) - 1u);
        const uint32_t cell = cellBits == 0 ? 0u
                                            : morton3(uint32_t(cx - bx * edge), uint32_t(cy - by * edge),
                                                      uint32_t(cz - bz * edge), cellBits);
        return colour << kColourShift | column << unitShift | layer << (3 * cellBits) | cell;
    }
    // The part of a key that names the unit.
    uint32_t unit(uint32_t key) const { return key >> unitShift; }

    int32_t edge;
    int cellBits;    // per axis, for the cell within the block
    int columnBits;  // per axis, for the column among its colour
    int unitShift;   // bits below the unit's part of the key
};

} // namespace

void GranularParticleSystem::solveOnCpu()
{
    const size_t n = particleCount();
    if (n == 0) return;
    ensureChannels();
    if (!ch.v || !ch.force || !ch.Cd || !ch.id || !ch.posPrev || !ch.numContacts || !ch.neighbs ||
        !ch.constrIndices || !ch.constrDists || !ch.restingTime || !ch.sleeping || !ch.stick || !ch.deleted) {
        std::printf("granular solve skipped: a channel has the wrong type.\n");
        return;
    }
    resizeWorkingArrays(n);
    hash.dt = simState->dt;

    if (maxConstraintLength > kConstraintCreationMin) {
        if (lastParticleCount < 1) createConstraints(0);
        else if (size_t(lastParticleCount) < n) createConstraints(lastParticleCount);
    }
    searchNeighbours(particleSpacing);
    relink();
    checkNaN();
    for (int it = 0; it < iterations; ++it) iterate(it);
    integrate();
    lastSolvedTime = simState->frameF;
}

void GranularParticleSystem::searchNeighbours(float cellSize)
{
    resizeWorkingArrays(particleCount());
    hash.cellSize = cellSize;
    hashParticles();
    sortByHash();
    groupBlocks();
    reorder();
    findNeighbours();
}

void GranularParticleSystem::hashParticles()
{
    const size_t n = particleCount();
    hash.tableSize = hashTableSize(n);
    computeHashKeys(ch.P->data(), n, hash, hashKeys.data(), hashOrder.data(), solverThreads());
}

void GranularParticleSystem::sortByHash()
{
    const size_t n = particleCount();
    sortHashKeys(hashKeys.data(), hashOrder.data(), n, solverThreads());
    findCellRanges(hashKeys.data(), n, hash.tableSize, cellStart, cellEnd, solverThreads());
}

void GranularParticleSystem::groupBlocks()
{
    const size_t n = particleCount();
    const int threads = solverThreads();

    // Widest reach of a particle's writes: the pair cut-off, or the longest constraint.
    float reach = kPairReach * particleRadius;
    if (maxConstraintLength > 0.f) {
        float stretch = std::max(maxConstraintStretch, 1.f);
        if (ch.maxStretch && ch.maxStretch->size() == n && n > 0)
            stretch = std::max(stretch, *std::max_element(ch.maxStretch->begin(), ch.maxStretch->end()));
        reach = std::max(reach, maxConstraintLength * particleRadius * stretch);
    }
    const float cells = std::ceil(2.f * reach / hash.cellSize);
    blockCells = (cells >= 0.f && cells < float(kMaxBlockCells) ? int32_t(cells) : kMaxBlockCells) + kBlockDriftCells;

    // Block key of every particle, then the particles sorted by it: the slot order.
    blockKeys.resize(n);
    sortedOrder.resize(n);
    const Vec4f* P = ch.P->data();
    const float cellSize = hash.cellSize;
    const BlockKeys keys(blockCells);
    const int64_t count = int64_t(n);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t i = 0; i < count; ++i) {
        const Vec4f& p = P[i];
        blockKeys[size_t(i)] =
            keys.key(hashCellCoord(p.x, cellSize), hashCellCoord(p.y, cellSize), hashCellCoord(p.z, cellSize));
        sortedOrder[size_t(i)] = uint32_t(i);
    }
    radixSortPairs(blockKeys.data(), sortedOrder.data(), n, threads);

    // Units are runs of one block code; colourStart[c] is the first unit of colour c or above.
    unitStart.resize(n + 1);
    colourStart.resize(kColumnColours + 1);
    uint32_t units = 0;
    int nextColour = 0;
    for (size_t s = 0; s < n; ++s) {
        const uint32_t key = blockKeys[s];
        if (s > 0 && keys.unit(key) == keys.unit(blockKeys[s - 1])) continue;
        const int colour = int(key >> kColourShift);
        while (nextColour <= colour) colourStart[size_t(nextColour++)] = units;
        unitStart[units++] = uint32_t(s);
    }
    unitStart[units] = uint32_t(n);
    while (nextColour <= kColumnColours) colourStart[size_t(nextColour++)] = units;
}

void GranularParticleSystem::reorder()
{
    const size_t n = particleCount();
    sortedFlags.resize(n);
    sortedContacts.resize(n);
    bucketSlots.resize(n);
    bucketEntries.resize(n);
    const Vec4f* P = ch.P->data();
    const Vec4f* v = ch.v->data();
    const int32_t* contacts = ch.numContacts->data();
    const BitArray& deleted = *ch.deleted;
    const BitArray& sleeping = *ch.sleeping;
    const int64_t count = int64_t(n);
#pragma omp parallel num_threads(solverThreads())
    {
#pragma omp for schedule(static)
        for (int64_t s = 0; s < count; ++s) {
            const uint32_t i = sortedOrder[size_t(s)];
            sortedPos[size_t(s)] = P[i];
            sortedVel[size_t(s)] = v[i];
            sortedSlot[i] = uint32_t(s);
            sortedContacts[size_t(s)] = contacts[i];
            sortedFlags[size_t(s)] =
                uint8_t((deleted.get(i) ? kFlagDeleted : 0) | (sleeping.get(i) ? kFlagSleeping : 0));
        }
#pragma omp for schedule(static)
        for (int64_t h = 0; h < count; ++h) {
            const uint32_t i = hashOrder[size_t(h)];
            const uint32_t slot = sortedSlot[i];
            bucketSlots[size_t(h)] = slot;
            bucketEntries[size_t(h)] = {P[i].x, P[i].y, P[i].z, slot};
        }
    }
}

void GranularParticleSystem::findNeighbours()
{
    const CellHasher hasher(hash);
    IntListArray& lists = *ch.neighbs;
    const uint32_t* start = cellStart.data();
    const uint32_t* end = cellEnd.data();
    const uint32_t* slotOf = bucketSlots.data();
    const BucketEntry* entries = bucketEntries.data();
    const int64_t count = int64_t(particleCount());
    const uint32_t edge = uint32_t(blockCells);
    const uint32_t span = edge + 2;  // a block's cells and the ring of cells round them
    const size_t tableCells = size_t(span) * span * span;
    // Far too wide blocks (a huge stretch limit): each slot hashes its 27 cells itself.
    const bool ownCells = tableCells > kMaxBucketTable;
    const int threads = solverThreads();
    const float pruneReach = (kPairReach + kPruneMargin) * particleRadius;
    const float pruneReach2 = pruneReach * pruneReach;

    prunedReady = false;
    prunedStale = false;
    prunedStart.resize(size_t(count) + 1);
    prunedRef.resize(size_t(count));
    if (prunedParts.size() < size_t(threads)) prunedParts.resize(size_t(threads));
    std::vector<size_t> partBase(size_t(threads) + 1, 0);
    bool fits = true;

    // The slots of a block follow one another, so each thread reads the buckets of the
    // block's cells (and the ring round them) once into a small table, all loads at once,
    // and the slots take their 27 cells from there. Each thread takes one run of slots (the
    // static split), builds their lists and their pruned lists, which then join in order.
    if (!ownCells) bucketTable.resize(size_t(threads) * tableCells * 2);
#pragma omp parallel num_threads(threads)
    {
        const int thread = omp_get_thread_num();
        const int team = omp_get_num_threads();
        const int64_t first = count * thread / team;
        const int64_t last = count * (thread + 1) / team;
        // The part keeps its size from search to search; `used` counts what this one wrote.
        std::vector<int32_t>& part = prunedParts[size_t(thread)];
        size_t used = 0;
        uint32_t* table = ownCells ? nullptr : bucketTable.data() + size_t(thread) * tableCells * 2;
        bool haveBlock = false;
        int32_t tableBlock[3] = {0, 0, 0};
        uint32_t origin[3] = {0, 0, 0};
        for (int64_t s = first; s < last; ++s) {
            const Vec4f& p = sortedPos[size_t(s)];
            std::vector<int32_t>& list = lists[size_t(s)];
            if (ownCells) {
                list.clear();
                forEachNeighbourSlot(p, hasher, start, end, [&](uint32_t h) {
                    const uint32_t slot = slotOf[h];
                    if (slot != uint32_t(s)) list.push_back(int32_t(slot));
                });
                prunedStart[size_t(s)] = uint32_t(used);
                if (part.size() < used + list.size()) part.resize(std::max(2 * part.size(), used + list.size()));
                int32_t* kept = part.data() + used;
                for (const int32_t slot : list) {
                    *kept = slot;
                    kept += withinPruneReach(p, sortedPos[size_t(slot)], pruneReach2);
                }
                used = size_t(kept - part.data());
            } else {
                const int32_t cell[3] = {hashCellCoord(p.x, hasher.cellSize), hashCellCoord(p.y, hasher.cellSize),
                                         hashCellCoord(p.z, hasher.cellSize)};
                const int32_t block[3] = {floorDiv(cell[0], int32_t(edge)), floorDiv(cell[1], int32_t(edge)),
                                          floorDiv(cell[2], int32_t(edge))};
                if (!haveBlock || block[0] != tableBlock[0] || block[1] != tableBlock[1] ||
                    block[2] != tableBlock[2]) {
                    // Cell coordinates wrap as unsigned numbers, as in the key.
                    for (int a = 0; a < 3; ++a) {
                        tableBlock[a] = block[a];
                        origin[a] = uint32_t(block[a]) * edge - 1u;
                    }
                    uint32_t* entry = table;
                    for (uint32_t z = 0; z < span; ++z)
                        for (uint32_t y = 0; y < span; ++y)
                            for (uint32_t x = 0; x < span; ++x, entry += 2) {
                                const uint32_t b = hasher.bucket(int32_t(origin[0] + x), int32_t(origin[1] + y),
                                                                 int32_t(origin[2] + z));
                                entry[0] = start[b];
                                entry[1] = end[b];
                                if (entry[0] != kEmptyBucket) __builtin_prefetch(entries + entry[0]);
                            }
                    haveBlock = true;
                }
                const uint32_t lx = uint32_t(cell[0]) - origin[0] - 1u;
                const uint32_t ly = uint32_t(cell[1]) - origin[1] - 1u;
                const uint32_t lz = uint32_t(cell[2]) - origin[2] - 1u;
                // The size first (every bucket run in full), then the entries by pointer: the
                // list, and the pruned list (the entries within reach, in order, duplicates
                // included). Every entry is written, and only those that count advance.
                size_t total = 0;
                for (uint32_t z = lz; z < lz + 3; ++z)
                    for (uint32_t y = ly; y < ly + 3; ++y) {
                        const uint32_t* entry = table + ((size_t(z) * span + y) * span + lx) * 2;
                        for (uint32_t x = 0; x < 3; ++x, entry += 2)
                            if (entry[0] != kEmptyBucket) total += entry[1] - entry[0] + 1;
                    }
                list.resize(total);
                if (part.size() < used + total) part.resize(std::max(2 * part.size(), used + total));
                int32_t* out = list.data();
                int32_t* kept = part.data() + used;
                // z outermost, then y, then x, as forEachNeighbourSlot visits them.
                for (uint32_t z = lz; z < lz + 3; ++z)
                    for (uint32_t y = ly; y < ly + 3; ++y) {
                        const uint32_t* entry = table + ((size_t(z) * span + y) * span + lx) * 2;
                        for (uint32_t x = 0; x < 3; ++x, entry += 2) {
                            if (entry[0] == kEmptyBucket) continue;
                            for (uint32_t h = entry[0]; h <= entry[1]; ++h) {
                                const BucketEntry& e = entries[h];
                                const bool other = e.slot != uint32_t(s);
                                *out = int32_t(e.slot);
                                out += other;
                                *kept = int32_t(e.slot);
                                kept += other & withinPruneReach(p, e, pruneReach2);
                            }
                        }
                    }
                list.resize(size_t(out - list.data()));
                prunedStart[size_t(s)] = uint32_t(used);
                used = size_t(kept - part.data());
            }
            prunedRef[size_t(s)] = p;
        }
        partBase[size_t(thread) + 1] = used;
#pragma omp barrier
#pragma omp single
        {
            for (int t = 0; t < team; ++t) partBase[size_t(t) + 1] += partBase[size_t(t)];
            fits = partBase[size_t(team)] < size_t(UINT32_MAX);
            if (fits) prunedSlots.resize(partBase[size_t(team)]);
            prunedStart[size_t(count)] = uint32_t(partBase[size_t(team)]);
        }
        if (fits) {
            const size_t base = partBase[size_t(thread)];
            std::copy(part.begin(), part.begin() + ptrdiff_t(used), prunedSlots.begin() + ptrdiff_t(base));
            for (int64_t s = first; s < last; ++s) prunedStart[size_t(s)] += uint32_t(base);
        }
    }
    prunedReady = fits;
}

bool GranularParticleSystem::checkNaN()
{
    bool found = false;
    const int64_t count = int64_t(particleCount());
#pragma omp parallel for schedule(static) num_threads(solverThreads()) reduction(|| : found)
    for (int64_t k = 0; k < count; ++k)
        if (std::isnan(sortedPos[size_t(k)].x)) found = true;
    if (found) std::printf("NaN in check.\n");
    return found;
}

