// The integration pass of the CPU solve: positions move with the solved velocities,
// velocities take the accumulated force, slow particles in contact freeze, speeds are
// clamped, and every particle gets its display colour.
#include "particles/granularparticlesystem.h"
#include "particles/rampcolour.h"

#include "app/globals.h"
#include "app/simstate.h"

#include <algorithm>
#include <cmath>

namespace {

// The linked colour tone is used from maxConstraintLength 0.00001 on, the sand tone below.
constexpr float kLinkedToneMin = 0.00001f;
// Freezing is on when freezeThreshold exceeds this.
constexpr float kFreezeThresholdMin = 0.0000001f;
// Sand tone: a value of the random table per id (1000 variants) plus 0.7, times R, G, B.
constexpr int kSandToneVariants = 1000;
constexpr float kSandToneBase = 0.7f;
constexpr float kSandR = 0.7f, kSandG = 0.54f, kSandB = 0.17f;
// Linked tone: full brightness at 20 links (scaled by colorScale).
constexpr float kLinkedToneLinks = 20.f;
// Stick weights above this show as full green.
constexpr float kStickyFull = 0.95f;
const Vec4f kDeletedColour(0.25f, 0.25f, 0.25f, 0.f);
const Vec4f kSleepingColour(1.f, 0.f, 0.f, 0.f);

} // namespace

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
        return rampColour(float(links[i].size()), fullLinks);
    };

    float maxSpeed = 0.f;
    // By particle index (the slot's values are read through sortedSlot): the Body's channels
    // are then walked in order, with the same result as a walk over slots.
#pragma omp parallel for schedule(static) num_threads(std::max(1, simState->numThreads)) reduction(max : maxSpeed)
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
