// The iteration pass of the CPU solve: every slot meets the neighbours in its list and
// resolves contact, friction and attraction pair by pair, then its constraints and the
// ground. Colours of columns run one after another, the columns of a colour in parallel
// (see granularsolve.cpp); within a column one thread takes the slots in order.
#include "particles/granularparticlesystem.h"

#include "app/globals.h"
#include "app/simstate.h"

#include <algorithm>
#include <cmath>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace {

// Added to every pair distance, in radii: coincident particles get d > 0 and dir = 0.
constexpr float kDistanceEpsilon = 0.000001f;
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

// What one iteration pass reads: constants of the substep and raw array pointers.
struct RelaxContext {
    GranularParticleSystem* system;
    bool first, sleepingOn, sleepersMove, collideGround, constraintsOn, attractionOn;
    float r, twoR, cutoff, cutoff2, epsilon, dt, hStiffness, staticShare, dynamicShare;
    float constrainedRel2, attractionFull, attractionBand, attractionScaled, mass, groundKeep, groundBounce;
    float wakeSpeed, unstickSpeed, sleepSpeed, sleepDelay;
    float dvScale;  // (1 - slushiness) / dt: velocity change per unit of correction
    // The solver node's differences (GranularParticleSystem::NodeForm); off for a system.
    bool stackHelp;
    const float* pinned;
    const Vec4f* pinnedPos;
    const Vec4f* normals;
    float inflateStep;  // inflate * dt / iterations
    // The pruned lists (see granularparticlesystem.h), when the last search left them.
    bool pruned;
    float pruneReach2, drift2;
    const uint32_t* prunedStart;
    const int32_t* prunedSlots;
    const Vec4f* prunedRef;
    bool* prunedStale;
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

#if defined(__SSE2__)
// Four floats in one register; the pair arithmetic below works on x, y, z (and w) at once.
using Lanes = __m128;
inline Lanes lanesOf(const Vec4f& v) { return _mm_load_ps(&v.x); }
inline void store(Vec4f& v, Lanes x) { _mm_store_ps(&v.x, x); }
inline Lanes splat(float f) { return _mm_set1_ps(f); }
inline float lane0(Lanes x) { return _mm_cvtss_f32(x); }
inline Lanes select(Lanes mask, Lanes a, Lanes b) { return _mm_or_ps(_mm_and_ps(mask, a), _mm_andnot_ps(mask, b)); }
// a . b over x, y and z, in all four lanes.
inline Lanes dot3(Lanes a, Lanes b)
{
    const Lanes xyz = _mm_castsi128_ps(_mm_set_epi32(0, -1, -1, -1));
    const Lanes m = _mm_and_ps(_mm_mul_ps(a, b), xyz);
    const Lanes s = _mm_add_ps(m, _mm_shuffle_ps(m, m, _MM_SHUFFLE(2, 3, 0, 1)));
    return _mm_add_ps(s, _mm_shuffle_ps(s, s, _MM_SHUFFLE(1, 0, 3, 2)));
}

// One pair of the iteration: slot k (particle i, position pk and velocity vk held by the
// caller) against neighbour slot n. Answers whether the pair touched, which moves positions.
inline bool relaxPair(const RelaxContext& c, uint32_t i, uint32_t n, bool constrained, Lanes& pk, Lanes& vk,
                      int32_t& contacts)
{
    if (c.flags[n] & GranularParticleSystem::kFlagDeleted) return false;
    Lanes pn = lanesOf(c.pos[n]);
    const Lanes diff = _mm_sub_ps(pk, pn);
    const Lanes len2 = dot3(diff, diff);
    const Lanes length = _mm_sqrt_ps(len2);
    const Lanes d = _mm_add_ps(length, splat(c.epsilon));
    const float dist = lane0(d);
    if (!(dist < c.cutoff)) return false;
    const Lanes along = _mm_div_ps(diff, d);
    Lanes vn = lanesOf(c.vel[n]);

    // Contact, without a branch (whether a pair touches is hard to predict): apart from
    // touching pairs the push is zero and nothing moves.
    const bool touching = dist < c.twoR;
    contacts += touching;
    const Lanes push = _mm_mul_ps(_mm_max_ps(_mm_sub_ps(splat(c.twoR), d), _mm_setzero_ps()), splat(c.hStiffness));
    Lanes corr = _mm_mul_ps(along, push);
    if (c.stackHelp) {
        // The vertical part stays, the horizontal part shrinks as the pair stands upright.
        const float keep = 1.f - std::fabs(lane0(_mm_shuffle_ps(along, along, _MM_SHUFFLE(1, 1, 1, 1))));
        corr = _mm_mul_ps(corr, _mm_set_ps(keep, keep, 1.f, keep));
    }
    pk = _mm_add_ps(pk, corr);
    pn = _mm_sub_ps(pn, corr);
    store(c.pos[n], pn);
    const Lanes dv = _mm_mul_ps(corr, splat(c.dvScale));
    vk = _mm_add_ps(vk, dv);
    vn = _mm_sub_ps(vn, dv);
    // After a push, the unit vector from n to k. The push is along diff, so that is diff's
    // own direction: found from diff, it needn't wait for the moved positions. Coincident
    // particles get the zero vector.
    const Lanes unit = _mm_and_ps(_mm_div_ps(diff, length), _mm_cmpgt_ps(len2, _mm_setzero_ps()));
    const Lanes dir = select(_mm_cmplt_ps(d, splat(c.twoR)), unit, along);

    const Lanes rel = _mm_sub_ps(vk, vn);
    if (!constrained || lane0(dot3(rel, rel)) > c.constrainedRel2) {
        const Lanes tang = _mm_sub_ps(rel, _mm_mul_ps(dir, dot3(rel, dir)));
        const Lanes share =
            select(_mm_cmple_ps(dot3(tang, tang), splat(kStaticFrictionTang2)), splat(c.staticShare), splat(c.dynamicShare));
        const Lanes slip = _mm_mul_ps(tang, share);
        vk = _mm_sub_ps(vk, slip);
        vn = _mm_add_ps(vn, slip);
    }
    store(c.vel[n], vn);

    if (c.attractionOn) {
        const float t = std::clamp((dist - c.attractionFull) / c.attractionBand, 0.f, 1.f);
        const Lanes f = _mm_mul_ps(dir, splat((1.f - t) * c.attractionScaled * c.mass));
        Vec4f& fi = c.force[i];
        Vec4f& fj = c.force[c.order[n]];
        store(fi, _mm_sub_ps(lanesOf(fi), f));
        store(fj, _mm_add_ps(lanesOf(fj), f));
    }
    return touching;
}

// Whether slot s, now at p, has moved out of the pruned lists' margin (NaN counts as out).
inline bool drifted(const RelaxContext& c, uint32_t s, Lanes p)
{
    const Lanes d = _mm_sub_ps(p, lanesOf(c.prunedRef[s]));
    return !(lane0(dot3(d, d)) < c.drift2);
}

// Bit j set where neighbour slots[j] (of 4) may be within the cut-off of p: a squared-distance
// test, a little wider than the exact one, on four neighbours at once.
inline unsigned nearMask(const Vec4f* pos, const int32_t* slots, Lanes p, float cutoff2)
{
    Lanes x = _mm_load_ps(&pos[slots[0]].x);
    Lanes y = _mm_load_ps(&pos[slots[1]].x);
    Lanes z = _mm_load_ps(&pos[slots[2]].x);
    Lanes w = _mm_load_ps(&pos[slots[3]].x);
    _MM_TRANSPOSE4_PS(x, y, z, w);
    const Lanes dx = _mm_sub_ps(x, _mm_shuffle_ps(p, p, _MM_SHUFFLE(0, 0, 0, 0)));
    const Lanes dy = _mm_sub_ps(y, _mm_shuffle_ps(p, p, _MM_SHUFFLE(1, 1, 1, 1)));
    const Lanes dz = _mm_sub_ps(z, _mm_shuffle_ps(p, p, _MM_SHUFFLE(2, 2, 2, 2)));
    const Lanes len2 = _mm_add_ps(_mm_add_ps(_mm_mul_ps(dx, dx), _mm_mul_ps(dy, dy)), _mm_mul_ps(dz, dz));
    return unsigned(_mm_movemask_ps(_mm_cmple_ps(len2, _mm_set1_ps(cutoff2))));
}

#else
// Without SSE the same arithmetic runs on Vec4f, one component at a time.
using Lanes = Vec4f;
inline Lanes lanesOf(const Vec4f& v) { return v; }
inline void store(Vec4f& v, const Lanes& x) { v = x; }

inline bool relaxPair(const RelaxContext& c, uint32_t i, uint32_t n, bool constrained, Vec4f& pk, Vec4f& vk,
                      int32_t& contacts)
{
    if (c.flags[n] & GranularParticleSystem::kFlagDeleted) return false;
    const Vec4f diff = pk - c.pos[n];
    const float len2 = diff.dot3(diff);
    const float length = std::sqrt(len2);
    const float d = length + c.epsilon;
    if (!(d < c.cutoff)) return false;
    Vec4f dir = diff * (1.f / d);
    const bool touching = d < c.twoR;
    if (touching) {
        ++contacts;
        Vec4f corr = dir * ((c.twoR - d) * c.hStiffness);
        if (c.stackHelp) {
            // The vertical part stays, the horizontal part shrinks as the pair stands upright.
            const float keep = 1.f - std::fabs(dir.y);
            corr.x *= keep;
            corr.z *= keep;
            corr.w *= keep;
        }
        pk += corr;
        c.pos[n] -= corr;
        const Vec4f dv = corr * c.dvScale;
        vk += dv;
        c.vel[n] -= dv;
        dir = len2 > 0.f ? diff * (1.f / length) : Vec4f();  // diff's direction, as above
    }
    const Vec4f rel = vk - c.vel[n];
    if (!constrained || rel.dot3(rel) > c.constrainedRel2) {
        const Vec4f tang = rel - dir * rel.dot3(dir);
        const float share = tang.dot3(tang) <= kStaticFrictionTang2 ? c.staticShare : c.dynamicShare;
        vk -= tang * share;
        c.vel[n] += tang * share;
    }
    if (c.attractionOn) {
        const float t = std::clamp((d - c.attractionFull) / c.attractionBand, 0.f, 1.f);
        const Vec4f f = dir * ((1.f - t) * c.attractionScaled * c.mass);
        c.force[i] -= f;
        c.force[c.order[n]] += f;
    }
    return touching;
}

inline bool drifted(const RelaxContext& c, uint32_t s, const Vec4f& p)
{
    const Vec4f d = p - c.prunedRef[s];
    return !(d.dot3(d) < c.drift2);
}

inline unsigned nearMask(const Vec4f* pos, const int32_t* slots, const Vec4f& p, float cutoff2)
{
    unsigned mask = 0;
    for (unsigned j = 0; j < 4; ++j) {
        const Vec4f d = pos[slots[j]] - p;
        if (d.dot3(d) <= cutoff2) mask |= 1u << j;
    }
    return mask;
}
#endif

// Meets slot k (particle i) with the entries slots[from..count) in order, with the positions
// as they stand at that moment. In a full list each group of four gets a wide distance test
// first, and after a contact has moved positions the rest of the group is tested again;
// the wide test never rejects a pair the exact one keeps. Entries the exact test rejects
// have no effect, so any list holding every entry that passes meets the same pairs in the
// same order. Watch (a pruned list): after a contact that moved k or its neighbour out of
// the pruned margin, marks the pruned lists stale and stops; `left` is then set and the
// answer is the index after that entry. Otherwise answers count.
template <bool Watch>
inline uint32_t relaxEntries(const RelaxContext& c, uint32_t i, uint32_t k, const int32_t* slots, uint32_t from,
                             uint32_t count, bool constrained, Lanes& pk, Lanes& vk, int32_t& contacts, bool& left)
{
    if (Watch) {
        // Nearly every entry of a pruned list is within the cut-off: the wide test would
        // only repeat the exact one.
        for (uint32_t at = from; at < count; ++at) {
            const uint32_t n = uint32_t(slots[at]);
            if (relaxPair(c, i, n, constrained, pk, vk, contacts) &&
                (drifted(c, k, pk) || drifted(c, n, lanesOf(c.pos[n])))) {
                __atomic_store_n(c.prunedStale, true, __ATOMIC_RELAXED);
                left = true;
                return at + 1;
            }
        }
        return count;
    }
    for (uint32_t at = from; at < count; at += 4) {
        // The last group is padded with its first entry, which the mask then leaves out.
        const uint32_t rest = count - at;
        int32_t tail[4];
        const int32_t* group = slots + at;
        unsigned live = 0xFu;
        if (rest < 4) {
            for (uint32_t j = 0; j < 4; ++j) tail[j] = slots[at + (j < rest ? j : 0)];
            group = tail;
            live = (1u << rest) - 1u;
        }
        unsigned near = nearMask(c.pos, group, pk, c.cutoff2) & live;
        while (near) {
            const unsigned bit = unsigned(__builtin_ctz(near));
            near &= near - 1;
            if (relaxPair(c, i, uint32_t(group[bit]), constrained, pk, vk, contacts))
                near = nearMask(c.pos, group, pk, c.cutoff2) & live & (0xFu << (bit + 1));
        }
    }
    return count;
}

// Relaxes slot k against its neighbours: the per-particle body of the iteration pass. The
// pruned list serves while no particle has left its margin; from the moment one has, the
// full list in the `neighbs` channel does, from the entry after the last one met.
inline void relaxSlot(const RelaxContext& c, uint32_t k)
{
    uint8_t& flags = c.flags[k];
    if (flags & GranularParticleSystem::kFlagDeleted) return;
    if ((flags & GranularParticleSystem::kFlagSleeping) && !c.sleepersMove) return;
    const uint32_t i = c.order[k];
    if (c.first) {
        const float speed = c.vel[k].length3();
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
    const bool pinned = c.pinned && c.pinned[i] > 0.5f;
    if (pinned) c.pos[k] = c.pinnedPos[i];
    if (c.normals) c.vel[k] += c.normals[i] * c.inflateStep;

    Lanes pk = lanesOf(c.pos[k]);
    Lanes vk = lanesOf(c.vel[k]);
    int32_t contacts = 0;
    bool left = false;
    if (c.pruned && !__atomic_load_n(c.prunedStale, __ATOMIC_RELAXED)) {
        const uint32_t begin = c.prunedStart[k];
        const uint32_t done = relaxEntries<true>(c, i, k, c.prunedSlots + begin, 0, c.prunedStart[k + 1] - begin,
                                                 constrained, pk, vk, contacts, left);
        if (left) {
            // The full list's entry after the done-th one the search kept.
            const std::vector<int32_t>& list = (*c.neighbs)[k];
            uint32_t from = 0;
            for (uint32_t kept = 0; kept < done; ++from)
                if (GranularParticleSystem::withinPruneReach(c.prunedRef[k], c.prunedRef[list[from]], c.pruneReach2))
                    ++kept;
            relaxEntries<false>(c, i, k, list.data(), from, uint32_t(list.size()), constrained, pk, vk, contacts,
                                left);
        }
    } else {
        const std::vector<int32_t>& list = (*c.neighbs)[k];
        relaxEntries<false>(c, i, k, list.data(), 0, uint32_t(list.size()), constrained, pk, vk, contacts, left);
    }
    c.contacts[k] = contacts;
    store(c.pos[k], pk);
    store(c.vel[k], vk);

    if (c.constraintsOn) c.system->constraintPass(k, i);

    if (c.collideGround && c.pos[k].y < c.r) {
        Vec4f& p = c.pos[k];
        Vec4f& v = c.vel[k];
        p.y = c.r;
        v.x *= c.groundKeep;
        v.z *= c.groundKeep;
        if (v.y < 0.f) v.y = -c.groundBounce * v.y;
    }
    if (pinned) c.pos[k] = c.pinnedPos[i];
    // The constraints and the ground may have moved it further.
    if (c.pruned && drifted(c, k, lanesOf(c.pos[k]))) __atomic_store_n(c.prunedStale, true, __ATOMIC_RELAXED);
}

} // namespace

void GranularParticleSystem::iterate(int iteration)
{
    const float r = particleRadius;
    const float dt = solveDt();
    const float h = dt / float(iterations);
    const bool node = nodeForm.on;
    nodeForm.firstIteration = iteration == 0;
    RelaxContext c;
    c.system = this;
    c.first = iteration == 0;
    c.sleepingOn = enableSleeping;
    c.sleepersMove = allowSleepingToMove;
    c.collideGround = !node && simState->collideGround;  // the node form has no ground step
    c.constraintsOn = maxConstraintLength > 0.f;
    c.attractionOn = attraction != 0.f;
    c.r = r;
    c.twoR = 2.f * r;
    // With maxStretch, and in the node form, pairs act only while they touch.
    c.cutoff = ch.maxStretch || node ? 2.f * r : kPairReach * r;
    c.cutoff2 = c.cutoff * c.cutoff * kPreTestSlack;
    c.epsilon = r * kDistanceEpsilon;
    c.dt = dt;
    c.hStiffness = h * particleStiffness;
    c.dvScale = dt > 0.f ? (1.f - slushiness) / dt : 0.f;  // a zero step moves nothing
    c.staticShare = kFrictionShare;
    c.dynamicShare = kFrictionShare * std::min(friction * dt / float(iterations), 1.f);
    if (node) c.staticShare = c.dynamicShare = friction * dt / float(iterations);  // one share, unclamped
    c.stackHelp = node && nodeForm.stackHelp;
    c.pinned = node && nodeForm.pinnedPos ? nodeForm.pinned : nullptr;
    c.pinnedPos = nodeForm.pinnedPos;
    c.normals = node && nodeForm.inflate != 0.f ? nodeForm.normals : nullptr;
    c.inflateStep = nodeForm.inflate * dt / float(iterations);
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
    const size_t n = particleCount();
    c.pruned = prunedReady && prunedStart.size() == n + 1 && prunedRef.size() == n &&
               size_t(prunedStart[n]) == prunedSlots.size();
    const float pruneReach = (kPairReach + kPruneMargin) * r;
    c.pruneReach2 = pruneReach * pruneReach;
    const float drift = kPrunedDrift * r;
    c.drift2 = drift * drift;
    c.prunedStart = prunedStart.data();
    c.prunedSlots = prunedSlots.data();
    c.prunedRef = prunedRef.data();
    c.prunedStale = &prunedStale;

    const uint32_t* units = unitStart.data();
    const uint32_t* colours = colourStart.data();
#pragma omp parallel num_threads(std::max(1, simState->numThreads))
    for (int colour = 0; colour < kColumnColours; ++colour) {
        const int64_t first = colours[colour];
        const int64_t last = colours[colour + 1];
#pragma omp for schedule(static)
        for (int64_t u = first; u < last; ++u)
            for (uint32_t s = units[u]; s < units[u + 1]; ++s) relaxSlot(c, s);
    }
}

