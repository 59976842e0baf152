// The CPU solve of a granular substep: hash the particles, sort them by bucket, group them
// into coloured blocks (the solver's slot order), gather each slot's neighbours, relax
// contacts, friction and attraction `iterations` times, and integrate.
//
// Slot order. Sorted bucket keys scatter neighbouring cells all over memory, so the solver
// doesn't work in that order: it groups the particles by block, a cube of blockCells cells,
// and a slot is a particle's place in that grouping. The hash keeps its own order (hash
// slots) for its buckets; bucketSlots turns a hash slot into a solver slot while gathering.
//
// Synchronisation of the iteration pass: block colouring. Blocks are wider than twice the
// reach of a particle's writes (the pair cut-off, or the longest constraint) plus a margin
// for what corrections move within a substep, and get one of 8 colours by the parity of
// their block coordinates, so two blocks of one colour are a whole block apart and never
// touch the same particle. Each colour is one parallel loop over its blocks; one thread
// relaxes a block's slots in a fixed order, updating both particles of a pair at once as a
// Gauss-Seidel sweep does. No write is ever shared, so the result is bit-identical from
// run to run and does not depend on the thread count.
#include "particles/granularparticlesystem.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "particles/radixsort.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#if defined(__SSE2__)
#include <xmmintrin.h>
#endif

namespace {

// Added to every pair distance, in radii: coincident particles get d > 0 and dir = 0.
constexpr float kDistanceEpsilon = 0.000001f;
// Pair cut-off in radii: touching (2r) plus a sixteenth of a diameter for friction and attraction.
constexpr float kPairReach = 2.125f;
// The squared-distance pre-test is this much wider than the cut-off, so float rounding can't
// reject a pair the exact test keeps.
constexpr float kPreTestSlack = 1.0001f;
// Friction: at or below this |tang|^2 the pair loses half its tangential speed (static grip).
constexpr float kStaticFrictionTang2 = 0.08f;
constexpr float kFrictionShare = 0.5f;
// A constrained particle feels pair friction only above |rel|^2 = this times r.
constexpr float kConstrainedFrictionRel2 = 10.f;
// Attraction fades from full at 1.9 r to none at 3.1 r; 2400 scales the row to a force.
constexpr float kAttractionFull = 1.9f;
constexpr float kAttractionNone = 3.1f;
constexpr float kAttractionScale = 2400.f;
// The iteration's ground friction is 2.5 times that of the ground pass, per iteration.
constexpr float kIterationGroundFriction = 2.5f;
// Constraint thresholds on maxConstraintLength: creation above 0.0001, the linked colour
// tone from 0.00001 on.
constexpr float kConstraintCreationMin = 0.0001f;
constexpr float kLinkedToneMin = 0.00001f;
// Freezing is on when freezeThreshold exceeds this.
constexpr float kFreezeThresholdMin = 0.0000001f;
// Colours: sand tone from the random table, linked tone saturating at 20 links.
constexpr int kSandToneVariants = 1000;
constexpr float kSandToneBase = 0.7f;
constexpr float kSandR = 0.7f, kSandG = 0.54f, kSandB = 0.17f;
constexpr float kLinkedToneLinks = 20.f;
constexpr float kStickyFull = 0.95f;
const Vec4f kDeletedColour(0.25f, 0.25f, 0.25f, 0.f);
const Vec4f kSleepingColour(1.f, 0.f, 0.f, 0.f);
// Block colouring: 2 x 2 x 2 parities; colour in the top 3 bits of the block key.
constexpr int kBlockColours = 8;
constexpr int kColourShift = 29;
// Cells added to the block edge for what corrections move particles within a substep.
constexpr int kBlockDriftCells = 2;
constexpr int kMaxBlockCells = 1 << 20;

int solverThreads()
{
    return std::max(1, simState->numThreads);
}

int32_t floorDiv(int32_t a, int32_t b)
{
    const int64_t q = int64_t(a) / b;
    return int32_t(int64_t(a) % b != 0 && a < 0 ? q - 1 : q);
}

// The low 9 bits of v with two zero bits after each: one axis of a 27-bit Morton code.
uint32_t spreadBits9(uint32_t v)
{
    v &= 0x1FFu;
    v = (v ^ (v << 16)) & 0xFF0000FFu;
    v = (v ^ (v << 8)) & 0x0300F00Fu;
    v = (v ^ (v << 4)) & 0x030C30C3u;
    v = (v ^ (v << 2)) & 0x09249249u;
    return v;
}

// Key of block (bx, by, bz): its colour, then the Morton code of its place among the blocks
// of that colour, so that blocks near in space are near in memory, whatever their colour.
// The code wraps every 512 blocks of a colour per axis; blocks that share a key share a
// unit, which is still one colour and one thread.
uint32_t blockKey(int32_t bx, int32_t by, int32_t bz)
{
    const uint32_t colour = uint32_t(bx & 1) | uint32_t(by & 1) << 1 | uint32_t(bz & 1) << 2;
    const uint32_t morton = spreadBits9(uint32_t(floorDiv(bx, 2))) | spreadBits9(uint32_t(floorDiv(by, 2))) << 1 |
                            spreadBits9(uint32_t(floorDiv(bz, 2))) << 2;
    return colour << kColourShift | morton;
}

// What one iteration pass reads: constants of the substep and raw array pointers.
struct RelaxContext {
    GranularParticleSystem* system;
    bool first, sleepingOn, sleepersMove, collideGround, constraintsOn, attractionOn;
    float r, twoR, cutoff, cutoff2, epsilon, dt, invDt, hStiffness, velocityShare, staticShare, dynamicShare;
    float constrainedRel2, attractionFull, attractionBand, attractionScaled, mass, groundKeep, groundBounce;
    float wakeSpeed, unstickSpeed, sleepSpeed, sleepDelay;
    Vec4f* pos;
    Vec4f* vel;
    uint8_t* flags;
    const uint32_t* order;
    const IntListArray* neighbs;
    const IntListArray* constrIndices;
    Vec4f* force;
    int32_t* contacts;
    float* restingTime;
    float* stick;
};

// One pair of the iteration: slot k (particle i, position pk and velocity vk held by the
// caller) against neighbour slot n. Answers whether the pair touched, which moves positions.
inline bool relaxPair(const RelaxContext& c, uint32_t i, uint32_t n, bool constrained, Vec4f& pk, Vec4f& vk,
                      int32_t& contacts)
{
    if (c.flags[n] & GranularParticleSystem::kFlagDeleted) return false;
    const Vec4f diff = pk - c.pos[n];
    const float len2 = diff.dot3(diff);
    const float length = std::sqrt(len2);
    const float d = length + c.epsilon;
    if (!(d < c.cutoff)) return false;
    const Vec4f along = diff * (1.f / d);

    // Contact, written without a branch (whether a pair touches is hard to predict): apart
    // from touching pairs the correction is zero.
    const bool touching = d < c.twoR;
    contacts += touching;
    const Vec4f corr = along * (std::max(c.twoR - d, 0.f) * c.hStiffness);
    pk += corr;
    c.pos[n] -= corr;
    const Vec4f dv = corr * (c.invDt * c.velocityShare);
    vk += dv;
    c.vel[n] -= dv;
    // After a push, the unit vector from n to k. The push is along diff, so that is diff's
    // own direction: found from diff, it needn't wait for the moved positions.
    const Vec4f unit = len2 > 0.f ? diff * (1.f / length) : Vec4f();
    const Vec4f dir = touching ? unit : along;

    const Vec4f rel = vk - c.vel[n];
    if (!constrained || rel.dot3(rel) > c.constrainedRel2) {
        const Vec4f tang = rel - dir * rel.dot3(dir);
        const float share = tang.dot3(tang) <= kStaticFrictionTang2 ? c.staticShare : c.dynamicShare;
        const Vec4f slip = tang * share;
        vk -= slip;
        c.vel[n] += slip;
    }

    if (c.attractionOn) {
        const float t = std::clamp((d - c.attractionFull) / c.attractionBand, 0.f, 1.f);
        const Vec4f f = dir * ((1.f - t) * c.attractionScaled * c.mass);
        c.force[i] -= f;
        c.force[c.order[n]] += f;
    }
    return touching;
}

#if defined(__SSE2__)
// Bit j set where neighbour slots[j] (of 4) may be within the cut-off of p: a squared-distance
// test, a little wider than the exact one, on four neighbours at once.
inline unsigned nearMask(const Vec4f* pos, const int32_t* slots, const Vec4f& p, float cutoff2)
{
    __m128 x = _mm_load_ps(&pos[slots[0]].x);
    __m128 y = _mm_load_ps(&pos[slots[1]].x);
    __m128 z = _mm_load_ps(&pos[slots[2]].x);
    __m128 w = _mm_load_ps(&pos[slots[3]].x);
    _MM_TRANSPOSE4_PS(x, y, z, w);
    const __m128 dx = _mm_sub_ps(x, _mm_set1_ps(p.x));
    const __m128 dy = _mm_sub_ps(y, _mm_set1_ps(p.y));
    const __m128 dz = _mm_sub_ps(z, _mm_set1_ps(p.z));
    const __m128 len2 = _mm_add_ps(_mm_add_ps(_mm_mul_ps(dx, dx), _mm_mul_ps(dy, dy)), _mm_mul_ps(dz, dz));
    return unsigned(_mm_movemask_ps(_mm_cmple_ps(len2, _mm_set1_ps(cutoff2))));
}
#endif

// Relaxes slot k against its neighbours: the per-particle body of the iteration pass.
inline void relaxSlot(const RelaxContext& c, uint32_t k)
{
    uint8_t& flags = c.flags[k];
    if (flags & GranularParticleSystem::kFlagDeleted) return;
    if ((flags & GranularParticleSystem::kFlagSleeping) && !c.sleepersMove) return;
    const uint32_t i = c.order[k];
    Vec4f pk = c.pos[k];
    Vec4f vk = c.vel[k];

    if (c.first) {
        const float speed = vk.length3();
        if (speed > c.unstickSpeed) c.stick[i] = 0.f;
        if (speed > c.wakeSpeed) flags &= uint8_t(~GranularParticleSystem::kFlagSleeping);
        if (flags & GranularParticleSystem::kFlagSleeping) return;
        if (c.sleepingOn) {
            if (speed < c.sleepSpeed) {
                if (c.restingTime[i] > c.sleepDelay) flags |= GranularParticleSystem::kFlagSleeping;
                c.restingTime[i] += c.dt;
            } else {
                c.restingTime[i] = 0.f;
            }
        }
        if (c.constraintsOn && !(*c.constrIndices)[i].empty()) flags |= GranularParticleSystem::kFlagConstrained;
        else flags &= uint8_t(~GranularParticleSystem::kFlagConstrained);
    } else if (flags & GranularParticleSystem::kFlagSleeping) {
        return;
    }
    const bool constrained = c.constraintsOn && (flags & GranularParticleSystem::kFlagConstrained);

    // Every neighbour is met in list order with the positions as they stand at that moment.
    // Four at a time, a wide distance test skips those out of reach; after a contact has
    // moved positions, the rest of the four are tested again.
    const std::vector<int32_t>& list = (*c.neighbs)[k];
    const int32_t* slots = list.data();
    const size_t count = list.size();
    int32_t contacts = 0;
    size_t j = 0;
#if defined(__SSE2__)
    for (; j + 4 <= count; j += 4) {
        unsigned near = nearMask(c.pos, slots + j, pk, c.cutoff2);
        while (near) {
            const unsigned bit = unsigned(__builtin_ctz(near));
            near &= near - 1;
            if (relaxPair(c, i, uint32_t(slots[j + bit]), constrained, pk, vk, contacts))
                near = nearMask(c.pos, slots + j, pk, c.cutoff2) & (0xFu << (bit + 1)) & 0xFu;
        }
    }
#endif
    for (; j < count; ++j) relaxPair(c, i, uint32_t(slots[j]), constrained, pk, vk, contacts);
    c.contacts[k] = contacts;
    c.pos[k] = pk;
    c.vel[k] = vk;

    if (c.constraintsOn) c.system->constraintPass(k, i);

    if (c.collideGround && c.pos[k].y < c.r) {
        Vec4f& p = c.pos[k];
        Vec4f& v = c.vel[k];
        p.y = c.r;
        v.x *= c.groundKeep;
        v.z *= c.groundKeep;
        if (v.y < 0.f) v.y = -c.groundBounce * v.y;
    }
}

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

// Links every particle from firstIndex on to its neighbours within maxConstraintLength radii here.
void GranularParticleSystem::createConstraints(int /*firstIndex*/) {}

// Adds links between slow neighbours every relinkEveryNthStep substeps here.
void GranularParticleSystem::relink() {}

// Solves the distance constraints of particle i at slot k, inside the iteration, here.
void GranularParticleSystem::constraintPass(uint32_t /*k*/, uint32_t /*i*/) {}

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
    const int32_t edge = blockCells;
    const int64_t count = int64_t(n);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t i = 0; i < count; ++i) {
        const Vec4f& p = P[i];
        const int32_t bx = floorDiv(hashCellCoord(p.x, cellSize), edge);
        const int32_t by = floorDiv(hashCellCoord(p.y, cellSize), edge);
        const int32_t bz = floorDiv(hashCellCoord(p.z, cellSize), edge);
        blockKeys[size_t(i)] = blockKey(bx, by, bz);
        sortedOrder[size_t(i)] = uint32_t(i);
    }
    radixSortPairs(blockKeys.data(), sortedOrder.data(), n, threads);

    // Units are runs of equal keys; colourStart[c] is the first unit of colour c or above.
    unitStart.resize(n + 1);
    colourStart.resize(kBlockColours + 1);
    uint32_t units = 0;
    int nextColour = 0;
    for (size_t s = 0; s < n; ++s) {
        const uint32_t key = blockKeys[s];
        if (s > 0 && key == blockKeys[s - 1]) continue;
        const int colour = int(key >> kColourShift);
        while (nextColour <= colour) colourStart[size_t(nextColour++)] = units;
        unitStart[units++] = uint32_t(s);
    }
    unitStart[units] = uint32_t(n);
    while (nextColour <= kBlockColours) colourStart[size_t(nextColour++)] = units;
}

void GranularParticleSystem::reorder()
{
    const size_t n = particleCount();
    sortedFlags.resize(n);
    sortedContacts.resize(n);
    bucketSlots.resize(n);
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
        for (int64_t h = 0; h < count; ++h) bucketSlots[size_t(h)] = sortedSlot[hashOrder[size_t(h)]];
    }
}

void GranularParticleSystem::findNeighbours()
{
    const CellHasher hasher(hash);
    IntListArray& lists = *ch.neighbs;
    const uint32_t* start = cellStart.data();
    const uint32_t* end = cellEnd.data();
    const uint32_t* slotOf = bucketSlots.data();
    const int64_t count = int64_t(particleCount());
    // Slots of one block are neighbours in memory, so their buckets stay in cache.
#pragma omp parallel for schedule(static) num_threads(solverThreads())
    for (int64_t s = 0; s < count; ++s) {
        std::vector<int32_t>& list = lists[size_t(s)];
        list.clear();
        forEachNeighbourSlot(sortedPos[size_t(s)], hasher, start, end, [&](uint32_t h) {
            const uint32_t slot = slotOf[h];
            if (slot != uint32_t(s)) list.push_back(int32_t(slot));
        });
    }
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

void GranularParticleSystem::iterate(int iteration)
{
    const float r = particleRadius;
    const float dt = simState->dt;
    const float h = dt / float(iterations);
    RelaxContext c;
    c.system = this;
    c.first = iteration == 0;
    c.sleepingOn = enableSleeping;
    c.sleepersMove = allowSleepingToMove;
    c.collideGround = simState->collideGround;
    c.constraintsOn = maxConstraintLength > 0.f;
    c.attractionOn = attraction != 0.f;
    c.r = r;
    c.twoR = 2.f * r;
    c.cutoff = ch.maxStretch ? 2.f * r : kPairReach * r;  // with maxStretch, pairs act only while touching
    c.cutoff2 = c.cutoff * c.cutoff * kPreTestSlack;
    c.epsilon = r * kDistanceEpsilon;
    c.dt = dt;
    c.invDt = 1.f / dt;
    c.hStiffness = h * particleStiffness;
    c.velocityShare = 1.f - slushiness;
    c.staticShare = kFrictionShare;
    c.dynamicShare = kFrictionShare * std::min(friction * dt / float(iterations), 1.f);
    c.constrainedRel2 = kConstrainedFrictionRel2 * r;
    c.attractionFull = kAttractionFull * r;
    c.attractionBand = (kAttractionNone - kAttractionFull) * r;
    c.attractionScaled = attraction * kAttractionScale * dt / float(iterations);
    c.mass = particleMass;
    c.groundKeep = 1.f - std::min(groundPlaneFriction * dt / float(iterations) * kIterationGroundFriction, 1.f);
    c.groundBounce = groundBounce;
    c.wakeSpeed = wakeupByVelocityThreshold;
    c.unstickSpeed = unstickByVelocityThreshold;
    c.sleepSpeed = sleepVelThreshold;
    c.sleepDelay = sleepDelay;
    c.pos = sortedPos.data();
    c.vel = sortedVel.data();
    c.flags = sortedFlags.data();
    c.order = sortedOrder.data();
    c.neighbs = ch.neighbs;
    c.constrIndices = ch.constrIndices;
    c.force = ch.force->data();
    c.contacts = sortedContacts.data();
    c.restingTime = ch.restingTime->data();
    c.stick = ch.stick->data();

    const uint32_t* units = unitStart.data();
    const uint32_t* colours = colourStart.data();
#pragma omp parallel num_threads(solverThreads())
    for (int colour = 0; colour < kBlockColours; ++colour) {
        const int64_t first = colours[colour];
        const int64_t last = colours[colour + 1];
#pragma omp for schedule(static)
        for (int64_t u = first; u < last; ++u)
            for (uint32_t s = units[u]; s < units[u + 1]; ++s) relaxSlot(c, s);
    }
}

void GranularParticleSystem::integrate()
{
    const int64_t count = int64_t(particleCount());
    const float dt = simState->dt;
    const float mass = particleMass;
    const bool freezeOn = freezeThreshold > kFreezeThresholdMin;
    const float freeze2 = freezeThreshold * freezeThreshold;
    const bool linkedTone = !(maxConstraintLength < kLinkedToneMin);
    const float fullLinks = kLinkedToneLinks / colorScale;
    const std::vector<float>& table = simState->randomTable;

    Vec4f* P = ch.P->data();
    Vec4f* v = ch.v->data();
    Vec4f* force = ch.force->data();
    Vec4f* Cd = ch.Cd->data();
    Vec4f* posPrev = ch.posPrev->data();
    const int32_t* ids = ch.id->data();
    int32_t* contacts = ch.numContacts->data();
    const float* stick = ch.stick->data();
    const IntListArray& links = *ch.constrIndices;
    BitArray& sleeping = *ch.sleeping;

    // Colour of a particle at rest: a sand tone per id, or brighter the more links it has.
    auto restTone = [&](size_t i) {
        if (!linkedTone) {
            const size_t at = table.empty() ? 0 : size_t(uint32_t(ids[i]) % kSandToneVariants) % table.size();
            const float t = (table.empty() ? 0.f : table[at]) + kSandToneBase;
            return Vec4f(std::min(kSandR * t, 1.f), std::min(kSandG * t, 1.f), std::min(kSandB * t, 1.f), 0.f);
        }
        const float share = float(links[i].size()) / fullLinks;
        if (float(links[i].size()) <= fullLinks) return Vec4f(share * 0.5f, share * 0.8f, 1.f, 0.f) * 2.f;
        return Vec4f(0.9f, 0.95f, 1.f, 0.f) * 2.f;
    };

    float maxSpeed = 0.f;
    // By particle index (the slot's values are read through sortedSlot): the Body's channels
    // are then walked in order, with the same result as a walk over slots.
#pragma omp parallel for schedule(static) num_threads(solverThreads()) reduction(max : maxSpeed)
    for (int64_t ii = 0; ii < count; ++ii) {
        const size_t i = size_t(ii);
        const uint32_t k = sortedSlot[i];
        const uint8_t flags = sortedFlags[k];
        contacts[i] = sortedContacts[k];
        const bool asleep = flags & kFlagSleeping;
        if (asleep != sleeping.get(i)) {
            if (asleep) sleeping.setAtomic(i);
            else sleeping.clearAtomic(i);
        }
        if (flags & kFlagDeleted) {
            Cd[i] = kDeletedColour;
            continue;
        }
        posPrev[i] = P[i];
        if (asleep) {
            Cd[i] = colorSleeping ? kSleepingColour : restTone(i);
            if (allowSleepingToMove) P[i] = sortedPos[k] + sortedVel[k] * dt;
            v[i] = Vec4f();
            continue;
        }
        const Vec4f vel = sortedVel[k];
        if (freezeOn && vel.dot3(vel) < freeze2 && contacts[i] >= freezeMinContacts) {
            force[i] = Vec4f();
            v[i] = Vec4f();
        } else {
            P[i] = sortedPos[k] + vel * dt;
            const Vec4f& f = force[i];
            Vec4f next = vel + Vec4f(f.x / mass, f.y / mass, f.z / mass, f.w / mass) * dt;
            float speed = next.length3();
            if (speed > clampSpeed) {
                next *= clampSpeed / speed;
                speed = clampSpeed;
            }
            v[i] = next;
            maxSpeed = std::max(maxSpeed, speed);
        }
        if (colorStickiness) Cd[i] = stick[i] > kStickyFull ? Vec4f(0.f, 1.f, 0.f, 0.f) : Vec4f(0.f, stick[i], 0.f, 0.f);
        else Cd[i] = restTone(i);
    }
    maxSpeedLastStep = maxSpeed;
}
