// ForceField: one force object made ready for a pass: its mask in local space, direction,
// strength, noise and clump ramp, fixed once per call. `apply` is the per-particle loop
// that every classic system's force pass runs through a ParticleView. Built by
// Force::prepare (force.h); plain data, so tests and benchmarks can fill one directly.
#pragma once

#include "geo/vec.h"
#include "particles/fractalnoise.h"
#include "particles/particleview.h"

#include <cstddef>

class ForceField {
public:
    // Mask kinds, in the order of the "Force Area" list.
    enum Area { kUnbound = 0, kBox = 1, kSphere = 2 };
    // The box spans +-0.5 local units, the sphere a radius of 0.5.
    static constexpr float kHalfExtent = 0.5f;
    // Offsets of the noise lookups for the y and z components, so that the three components
    // come from unrelated parts of one noise.
    static constexpr float kNoiseOffsetY = 381.f;
    static constexpr float kNoiseOffsetZ = 840.7f;

    // Nothing to do: a disabled force, a mask without inverse, a parameter that isn't finite.
    bool active = false;
    int area = kBox;
    bool radial = false;
    bool wind = false;
    Mat4f toLocal;         // world to the mask's local space (box)
    Mat4f toSphere;        // world to the sphere's local space
    Vec4f direction;       // uniform direction in world space, not normalised
    float magnitude = 0.f; // strength, or the wind speed in wind mode
    float windBlend = 0.f; // share of the wind taken into v per call
    bool noiseOn = false;
    FractalNoise noise;
    float noiseAmp = 0.f;
    Vec4f noiseShift; // frame times the noise offset speed
    float smallestClumps = 3.f;
    float largestClumps = 5.f;

    // The field at p before the clump weight; false where p lies outside the mask.
    bool sample(const Vec4f& p, Vec4f& field) const;
    // 1 for clumps of up to smallestClumps links, falling to 0 at largestClumps. With equal
    // limits it is a step: 1 below that count, 0 from it on.
    float clumpWeight(size_t links) const;
    // Adds the weighted field to `force` of every particle of the view that isn't deleted,
    // or in wind mode blends `v` towards it; a parallel loop on `threads` threads.
    void apply(const ParticleView& view, int threads) const;
};
