// The density and pair-force maths of SPH, written once for the classic system and the
// SPH-Solver node. Both passes walk the 27 hash cells round each sorted slot and act on
// the pairs closer than the kernel radius h; a thread writes only its own slot's density
// and pressure and its own particle's force. The two users differ in three small ways,
// held as data in SphConstants: the distance offset, the start of the density sum, and
// where `force` lives (passed in as an array either way).
#pragma once

#include "geo/vec.h"
#include "particles/particlehash.h"

#include <cstddef>
#include <cstdint>

// The density floor: added to every density so that the force pass may divide by it.
constexpr float kSphDensityFloor = 50.f;

struct SphConstants {
    float h = 0.1f;
    float h2 = 0.01f;
    float mass = 1.f;
    float restDensity = 1000.f;
    float pressureScale = 0.25f;
    float densityCoef = 0.f; // 315 / (64 pi h^9) * mass
    float spikyGrad = 0.f;   // -45 / (h^6 pi)
    float viscLap = 0.f;     // 45 / (h^6 pi)
    float invR = 1.f;        // 1 / resolution^1.5
    float visc = 0.f;        // viscosity / R
    float string = 0.f;      // stringiness / R
    float wave = 0.f;        // 1.5 pi / (3 h): the surface-tension cosine reaches 0 at h
    float surfaceTension = 0.f;
    float clampForce = 80.f;
    // Added to every pair distance (0.00001 in the classic system, 0 in the node).
    float distanceOffset = 0.00001f;
    // Start of the density sum (0.00000001 in the classic system, 0 in the node).
    float densitySeed = 0.00000001f;
};

// The per-substep constants. `nodeForm` selects the node's distance offset and sum start.
SphConstants makeSphConstants(float h, float mass, float restDensity, float pressureScale, float resolution,
                              float viscosity, float stringiness, float surfaceTensionWeight,
                              float clampForce, bool nodeForm);

// The arrays both passes read and write. Slots are those of the hash: sortedOrder maps a
// slot to its particle index.
struct SphPassData {
    size_t count = 0;
    const Vec4f* sortedPos = nullptr;
    const Vec4f* sortedVel = nullptr;
    const uint32_t* sortedOrder = nullptr;
    const uint32_t* cellStart = nullptr;
    const uint32_t* cellEnd = nullptr;
    ParticleHash hash;
    float* sortedDensity = nullptr;  // by slot, written by the density pass
    float* sortedPressure = nullptr; // by slot
    float* density = nullptr;        // by particle index, optional copy
    float* pressure = nullptr;       // by particle index, optional copy
    Vec4f* force = nullptr;          // by particle index; the force pass adds to it
    // Optional per-particle coefficients (by particle index); either switches the force
    // pass to its per-particle form for that term.
    const float* viscosity = nullptr;
    const float* surfaceTension = nullptr;
};

// Pressure from density: only compression pushes; at rest density and below it is 0.
inline float sphPressure(float density, float restDensity, float pressureScale)
{
    const float p = (density - restDensity) * pressureScale * 0.01f;
    return p > 0.f ? p : 0.f;
}

void sphDensityPass(const SphConstants& k, SphPassData& data, int numThreads);
void sphForcePass(const SphConstants& k, SphPassData& data, int numThreads);
