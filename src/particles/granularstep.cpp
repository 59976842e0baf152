// One substep of a granular system: emission, solve (device or CPU), gravity and damping,
// external forces, colliders, compaction of deleted particles and the ground plane, in
// that order. Gravity set here acts in the integration of the next substep.
#include "particles/granularparticlesystem.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "particles/cudahost.h"
#include "particles/force.h"
#include "particles/granulartraits.h"
#include "particles/particleview.h"

#include <algorithm>
#include <type_traits>

namespace {

// The force and ground passes run on half the solver threads, at least one.
int halfThreads()
{
    return std::max(1, simState->numThreads / 2);
}

// A ground-contact particle moving down keeps this share of its speed, reversed.
constexpr float kGroundRebound = -0.01f;

// Moves every surviving element to its new index in one forward walk, then cuts the array.
template <class A>
void compactArray(A& a, const std::vector<int32_t>& newIndex, size_t newCount)
{
    if (a.size() != newIndex.size()) return;  // out of step with the points: left alone
    for (size_t i = 0; i < newIndex.size(); ++i) {
        const int32_t to = newIndex[i];
        if (to < 0 || size_t(to) == i) continue;
        if constexpr (std::is_same_v<A, BitArray>) a.set(size_t(to), a.get(i));
        else a[size_t(to)] = std::move(a[i]);
    }
    a.resize(newCount);
}

} // namespace

void GranularParticleSystem::step()
{
    updateDerivedFields();
    if (!enabled) return;
    ensureChannels();
    emitPass();
    solvePass();
    forcePass();
    applyForces();
    collidePass();
    compact();
    if (simState->collideGround) groundPass();
}

// Each entry of sourceIds emits into this system (the shared routine of emission.h).
void GranularParticleSystem::emitPass()
{
    emitFromSources(*this);
}

void GranularParticleSystem::solvePass()
{
    if (simState->cudaAvailable && useCuda) {
        if (deviceState && deviceParticleCount != particleCount()) releaseDeviceState();
        if (cudaGranularSolve(*this)) return;
    }
    solveOnCpu();
}

void GranularParticleSystem::releaseDeviceState()
{
    cudaReleaseGranularState(deviceState);
    deviceState = nullptr;
    deviceParticleCount = 0;
}

void GranularParticleSystem::forcePass()
{
    const int64_t n = int64_t(particleCount());
    if (n == 0 || !ch.force || !ch.v || !ch.deleted) return;
    const Vec4f weight = gravityVector * particleMass;
    const float keep = 1.f - std::min(simState->damping * simState->dt, 1.f);
    Vec4f* force = ch.force->data();
    Vec4f* v = ch.v->data();
    const BitArray& deleted = *ch.deleted;
#pragma omp parallel for schedule(static) num_threads(halfThreads())
    for (int64_t i = 0; i < n; ++i) {
        if (deleted.get(size_t(i))) continue;
        force[i] = weight;
        v[i] *= keep;
    }
}

// Each entry of forceIds adds its force to `force` (or drags `v`, as wind).
void GranularParticleSystem::applyForces()
{
    Force::applyAll(forceIds, particleView(*this));
}

// The connected colliders push, stick, wake and delete particles (collidepass.h).
void GranularParticleSystem::collidePass()
{
    ::collidePass(*this);
}

void GranularParticleSystem::compact()
{
    const size_t n = particleCount();
    if (n == 0 || !ch.deleted) return;
    const BitArray& deleted = *ch.deleted;

    // newIndex[i] = i - prefix[i] for survivors, where prefix counts deleted particles up to i.
    compactIndex.resize(n);
    int32_t removed = 0;
    for (size_t i = 0; i < n; ++i) {
        if (deleted.get(i)) {
            compactIndex[i] = -1;
            ++removed;
        } else {
            compactIndex[i] = int32_t(i) - removed;
        }
    }
    if (removed == 0) return;
    const size_t kept = n - size_t(removed);

    // Constraint entries lose deleted partners (swap with the last entry, both lists
    // together) and the rest are renumbered.
    if (ch.constrIndices && ch.constrDists && ch.constrIndices->size() == n && ch.constrDists->size() == n) {
        IntListArray& partners = *ch.constrIndices;
        FloatListArray& rests = *ch.constrDists;
        const int32_t* newIndex = compactIndex.data();
        const int64_t count = int64_t(n);
#pragma omp parallel for schedule(static) num_threads(std::max(1, simState->numThreads))
        for (int64_t i = 0; i < count; ++i) {
            std::vector<int32_t>& list = partners[size_t(i)];
            std::vector<float>& dists = rests[size_t(i)];
            size_t e = 0;
            while (e < list.size()) {
                const int32_t p = list[e];
                if (p < 0 || p >= count || newIndex[p] < 0) {
                    list[e] = list.back();
                    list.pop_back();
                    if (e < dists.size()) {
                        dists[e] = dists.back();
                        dists.pop_back();
                    }
                } else {
                    list[e] = newIndex[p];
                    ++e;
                }
            }
        }
        constraintsDirty = true;
    }

    // Every channel, P included, moves in one forward walk; survivors keep their order.
    PointData& pts = *body->points;
    for (size_t c = 0; c < pts.pointers.size(); ++c)
        withPointArray(pts.types[c], pts.pointers[c],
                       [&](auto& a, const auto&) { compactArray(a, compactIndex, kept); });
}

void GranularParticleSystem::groundPass()
{
    const int64_t n = int64_t(particleCount());
    if (n == 0 || !ch.v || !ch.deleted) return;
    const float r = particleRadius;
    const float g = 1.f - std::min(groundPlaneFriction * simState->dt, 1.f);
    Vec4f* P = ch.P->data();
    Vec4f* v = ch.v->data();
    const BitArray& deleted = *ch.deleted;
#pragma omp parallel for schedule(static) num_threads(halfThreads())
    for (int64_t i = 0; i < n; ++i) {
        if (deleted.get(size_t(i)) || !(P[i].y < r)) continue;
        P[i].y = r;
        v[i].x *= g;
        v[i].z *= g;
        if (v[i].y < 0.f) v[i].y *= kGroundRebound;
    }
}
