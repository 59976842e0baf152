// Distance constraints of the granular system, the glue of clumps, snow and breaking
// solids: creation for new particles (its own neighbour search at the search distance, an
// optional noisy pre-breakup), relinking of slow neighbours while things are calm, and the
// constraint pass that the iteration pass (granulariterate.cpp) runs for every slot. A link
// between a and b is two entries, one in each particle's `constrIndices` and `constrDists`,
// solved and broken independently; each loop writes only the lists of its own particles.
#include "particles/granularparticlesystem.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "particles/fractalnoise.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

#include <omp.h>

namespace {

// maxConstraintLength above this turns creation, relink and the constraint pass on.
constexpr float kConstraintsOnMin = 0.0001f;
// Relink runs while relinkThreshold exceeds this.
constexpr float kRelinkThresholdMin = 0.0001f;
// Plastic flow is on above this plasticity.
constexpr float kPlasticityMin = 0.00001f;
// Added to every constraint length, in radii, as to pair distances: coincident partners
// give a length above zero and a zero direction.
constexpr float kDistanceEpsilon = 0.000001f;
// The cells round a point that a neighbour search visits.
constexpr int kSearchCells = 27;
// The column width of the iteration's colouring includes two cells of drift margin, one
// per side (groupBlocks in granularsolve.cpp); the rest is twice the reach it guarantees.
constexpr float kDriftCellsPerSide = 1.f;

int solverThreads()
{
    return std::max(1, simState->numThreads);
}

// -1, 0 or +1; NaN counts as 0.
int signOf(float v)
{
    return v > 0.f ? 1 : (v < 0.f ? -1 : 0);
}

Vec4f xyz(const Vec4f& v)
{
    return Vec4f(v.x, v.y, v.z, 0.f);
}

// Removes entry e of both lists by swapping in the last entry.
void removeEntry(std::vector<int32_t>& partners, std::vector<float>& rests, size_t e)
{
    partners[e] = partners.back();
    partners.pop_back();
    rests[e] = rests.back();
    rests.pop_back();
}

// The partners of one particle during a relink: an open-addressing set of particle indices
// with linear probing, emptied per particle and reused, so a thread allocates only while
// its largest list grows.
class PartnerSet {
public:
    void reset(size_t expected)
    {
        size_t capacity = 16;
        while (capacity < 2 * expected) capacity *= 2;
        if (slots.size() < capacity) slots.resize(capacity);
        mask = uint32_t(capacity - 1);
        std::fill(slots.begin(), slots.begin() + std::ptrdiff_t(capacity), kEmpty);
    }

    // True when `index` wasn't in the set yet.
    bool insert(uint32_t index)
    {
        // Fibonacci hashing spreads neighbouring indices over the table.
        for (uint32_t at = (index * 2654435761u) & mask;; at = (at + 1) & mask) {
            if (slots[at] == index) return false;
            if (slots[at] == kEmpty) {
                slots[at] = index;
                return true;
            }
        }
    }

private:
    static constexpr uint32_t kEmpty = 0xFFFFFFFFu;
    std::vector<uint32_t> slots;
    uint32_t mask = 0;
};

} // namespace

void GranularParticleSystem::createConstraints(int firstIndex)
{
    const size_t n = particleCount();
    if (!ch.constrIndices || !ch.constrDists || ch.constrIndices->size() != n || ch.constrDists->size() != n)
        return;
    const size_t first = firstIndex < 0 ? 0 : size_t(firstIndex);
    if (first >= n) return;
    IntListArray& partners = *ch.constrIndices;
    FloatListArray& rests = *ch.constrDists;
    constraintsDirty = true;

    const float reach = maxConstraintLength * particleRadius;
    const int threads = solverThreads();
    const int64_t begin = int64_t(first), end = int64_t(n);
    // A search distance that isn't a positive number finds nobody: the new lists stay empty.
    if (!(reach > 0.f) || !std::isfinite(reach)) {
#pragma omp parallel for schedule(static) num_threads(threads)
        for (int64_t i = begin; i < end; ++i) {
            partners[size_t(i)].clear();
            rests[size_t(i)].clear();
        }
        return;
    }

    // The whole system is hashed, as new particles link to old ones too.
    const Vec4f* P = ch.P->data();
    linkHash.cellSize = reach;
    linkHash.dt = solveDt();
    buildParticleHash(P, n, linkHash, linkKeys, linkOrder, linkCellStart, linkCellEnd, threads);
    const CellHasher hasher(linkHash);
    const uint32_t* cellFirst = linkCellStart.data();
    const uint32_t* cellLast = linkCellEnd.data();
    const uint32_t* order = linkOrder.data();

    const bool noisy = breakConstraintsNoisy;
    const FractalNoise noise(Vec4f(breakConstrNoisyScaleX, breakConstrNoisyScaleY, breakConstrNoisyScaleZ),
                             FractalNoise::octaveCount(breakConstrNoisyOctaves), breakConstrNoisyRoughness);

#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t ii = begin; ii < end; ++ii) {
        const size_t i = size_t(ii);
        std::vector<int32_t>& list = partners[i];
        std::vector<float>& dists = rests[i];
        list.clear();
        dists.clear();
        const Vec4f p = P[i];
        const int side = noisy ? signOf(noise.sample(p)) : 0;
        const int32_t cx = hashCellCoord(p.x, hasher.cellSize);
        const int32_t cy = hashCellCoord(p.y, hasher.cellSize);
        const int32_t cz = hashCellCoord(p.z, hasher.cellSize);
        // The 27 cells, z outermost; a bucket two cells share is read once, so no partner
        // is listed twice.
        uint32_t seen[kSearchCells];
        int seenCount = 0;
        for (int32_t dz = -1; dz <= 1; ++dz)
            for (int32_t dy = -1; dy <= 1; ++dy)
                for (int32_t dx = -1; dx <= 1; ++dx) {
                    const uint32_t b = hasher.bucket(int32_t(uint32_t(cx) + uint32_t(dx)),
                                                     int32_t(uint32_t(cy) + uint32_t(dy)),
                                                     int32_t(uint32_t(cz) + uint32_t(dz)));
                    if (std::find(seen, seen + seenCount, b) != seen + seenCount) continue;
                    seen[seenCount++] = b;
                    if (cellFirst[b] == kEmptyBucket) continue;
                    for (uint32_t h = cellFirst[b]; h <= cellLast[b]; ++h) {
                        const uint32_t j = order[h];
                        if (j == i) continue;
                        const float d = (P[j] - p).length3();
                        if (!(d < reach)) continue;
                        // Pre-breakup: no link across a sign change of the noise.
                        if (noisy && signOf(noise.sample(P[j])) != side) continue;
                        list.push_back(int32_t(j));
                        dists.push_back(d);
                    }
                }
    }
}

void GranularParticleSystem::relink()
{
    if (!(relinkThreshold > kRelinkThresholdMin) || !(maxConstraintLength > kConstraintsOnMin)) return;
    if (relinkEveryNthStep < 1) relinkEveryNthStep = 1;
    if (simState->substep % relinkEveryNthStep != 0) return;
    std::printf("relink\n");

    const size_t n = particleCount();
    if (n == 0 || !ch.constrIndices || !ch.constrDists || !ch.neighbs || ch.constrIndices->size() != n ||
        ch.constrDists->size() != n || ch.neighbs->size() < n)
        return;
    IntListArray& partners = *ch.constrIndices;
    FloatListArray& rests = *ch.constrDists;
    const IntListArray& neighbours = *ch.neighbs;
    const Vec4f* P = ch.P->data();
    const Vec4f* v = ch.v->data();
    const float reach = maxConstraintLength * particleRadius;
    const float threshold = relinkThreshold;
    const int64_t count = int64_t(n);
    bool added = false;

    // The neighbour lists are those of the solve (cells of particleSpacing), in slots.
#pragma omp parallel num_threads(solverThreads()) reduction(|| : added)
    {
        PartnerSet known;
#pragma omp for schedule(static)
        for (int64_t k = 0; k < count; ++k) {
            if (sortedFlags[size_t(k)] & kFlagDeleted) continue;
            const uint32_t i = sortedOrder[size_t(k)];
            std::vector<int32_t>& list = partners[i];
            std::vector<float>& dists = rests[i];
            if (dists.size() != list.size()) continue; // out of step: left to the constraint pass
            const std::vector<int32_t>& around = neighbours[size_t(k)];
            known.reset(list.size() + around.size());
            for (const int32_t j : list) known.insert(uint32_t(j));
            for (const int32_t slot : around) {
                if (sortedFlags[size_t(slot)] & kFlagDeleted) continue;
                const uint32_t j = sortedOrder[size_t(slot)];
                const float d = (P[j] - P[i]).length3();
                if (!(d < reach) || !((v[j] - v[i]).length3() <= threshold)) continue;
                if (!known.insert(j)) continue;
                list.push_back(int32_t(j));
                dists.push_back(d);
                added = true;
            }
        }
    }
    if (added) constraintsDirty = true;
}

// The pass writes a partner's working position and velocity only where the column
// colouring of the iteration (granularsolve.cpp) makes that partner exclusive to the
// calling thread: columns are at least twice the reach they promise, plus the drift margin,
// so a partner that started the substep within that reach of the slot can be touched by no
// other column of the same colour. The solve thus stays bit-identical from run to run.
void GranularParticleSystem::constraintPass(uint32_t k, uint32_t i)
{
    if (!(maxConstraintLength > kConstraintsOnMin)) return;
    std::vector<int32_t>& list = (*ch.constrIndices)[i];
    if (list.empty()) return;
    std::vector<float>& rests = (*ch.constrDists)[i];
    if (rests.size() != list.size()) {
        // Lists out of step (a Body from elsewhere): the unpaired tail goes.
        const size_t paired = std::min(rests.size(), list.size());
        list.resize(paired);
        rests.resize(paired);
    }

    const size_t n = particleCount();
    const float r = particleRadius;
    const float dt = solveDt();
    const float gain = dt / float(iterations) * constraintStiffness; // h * stiffness
    const float dvScale = (1.f - slushiness) / dt;
    const float epsilon = r * kDistanceEpsilon;
    const bool plastic = plasticity > kPlasticityMin;
    const float plasticBand = 1.f - plasticity;
    const float longest = maxConstraintLength * r;
    const float* stretchOf = ch.maxStretch && ch.maxStretch->size() == n ? ch.maxStretch->data() : nullptr;
    // A particle with one or two neighbours is a strand: with removeStrands it lets go.
    const size_t around = (*ch.neighbs)[k].size();
    // The solver node on a Body with primitives keeps broken links for its tear step.
    std::vector<std::vector<std::pair<int, int>>>* tears =
        nodeForm.on && nodeForm.tearLists && !nodeForm.tearLists->empty() ? nodeForm.tearLists : nullptr;
    // A broken link kept for the tear step goes on this thread's list once, from its lower end.
    auto keepForTear = [&](int32_t j) {
        if (nodeForm.firstIteration && int32_t(i) < j)
            (*tears)[size_t(omp_get_thread_num()) % tears->size()].emplace_back(int(i), int(j));
    };
    const bool strand = removeStrands && (around == 1 || around == 2);
    // Partners this thread may touch: at the start of the substep no farther than the reach
    // the column width guarantees. A link beyond it breaks without touching the partner.
    const float safeReach = (0.5f * float(blockCells) - kDriftCellsPerSide) * hash.cellSize;
    const float safeReach2 = safeReach > 0.f ? safeReach * safeReach : 0.f;

    Vec4f* pos = sortedPos.data();
    Vec4f* vel = sortedVel.data();
    const Vec4f* P = ch.P->data();
    const Vec4f start = P[i];
    // A partner moved out of the pruned lists' margin makes them stale (granulariterate.cpp).
    const Vec4f* ref = prunedReady && prunedRef.size() == n ? prunedRef.data() : nullptr;
    const float drift = kPrunedDrift * r;
    const float drift2 = drift * drift;
    // The slot's own position and velocity stay in registers through its list: no partner
    // is the slot itself (self links are skipped), so nothing else writes them meanwhile.
    Vec4f pk = pos[k];
    Vec4f vk = vel[k];
    bool changed = false;
    size_t e = 0;
    while (e < list.size()) {
        const int32_t j = list[e];
        // Deleted or unknown partners are skipped, compaction removes them; a link to itself
        // has no length to keep.
        if (j < 0 || size_t(j) >= n || uint32_t(j) == i) {
            ++e;
            continue;
        }
        const uint32_t m = sortedSlot[size_t(j)];
        if (sortedFlags[m] & kFlagDeleted) {
            ++e;
            continue;
        }
        const Vec4f apart = P[j] - start;
        if (!(apart.dot3(apart) <= safeReach2)) {
            if (tears) {
                keepForTear(j);
                ++e;
                continue;
            }
            removeEntry(list, rests, e);
            changed = true;
            continue;
        }

        const float rest = rests[e];
        const Vec4f diff = xyz(pk - pos[m]);
        const float d = diff.length3() + epsilon;
        const float limit = stretchOf ? 0.5f * (stretchOf[i] + stretchOf[j]) : maxConstraintStretch;
        bool broken = false;
        if (plastic && std::fabs(d - rest) > plasticBand * rest) {
            // The rest length follows the deformation, up to the absolute bound of plastic flow.
            rests[e] = d;
            changed = true;
            broken = d > limit * longest;
        }
        if (d > rest * limit) broken = true;
        if (strand) broken = true;

        if (broken) {
            // Both leave with their mean velocity; the partner's own entry breaks in its own pass.
            vk = (vk + vel[m]) * 0.5f;
            vel[m] = vk;
            if (tears) {
                // Kept for the tear step, which cuts the primitives along it first.
                keepForTear(j);
                ++e;
                continue;
            }
            removeEntry(list, rests, e);
            changed = true;
            continue;
        }
        const Vec4f corr = diff * ((rest - d) / d * gain);
        pk += corr;
        pos[m] -= corr;
        if (ref) {
            const Vec4f moved = pos[m] - ref[m];
            if (!(moved.dot3(moved) < drift2)) __atomic_store_n(&prunedStale, true, __ATOMIC_RELAXED);
        }
        const Vec4f dv = corr * dvScale;
        vk += dv;
        vel[m] -= dv;
        ++e;
    }
    pos[k] = pk;
    vel[k] = vk;
    if (list.empty()) sortedFlags[k] &= uint8_t(~kFlagConstrained);
    // Many slots may set it at once; a relaxed atomic store keeps that well defined.
    if (changed) __atomic_store_n(&constraintsDirty, true, __ATOMIC_RELAXED);
}
