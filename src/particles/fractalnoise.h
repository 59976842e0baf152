// FractalNoise: 3D simplex noise summed over octaves, the noise of the classic objects.
// Forces sample it for turbulence, granular constraint creation for its noisy pre-breakup.
// Deterministic and free of state: the same point gives the same value on every thread.
#pragma once

#include "geo/vec.h"

// Simplex noise at (x, y, z), roughly in [-1, 1]: skew (x + y + z) / 3, unskew 1/6, corner
// falloff 0.6 - |d|^2, the 12 edge gradients and Perlin's permutation table, the sum scaled
// by 32. Non-finite input gives 0.
float simplexNoise3(float x, float y, float z);

class FractalNoise {
public:
    // Octaves beyond this add nothing a float position can still resolve (2^32 times the
    // base frequency); the cap also keeps a huge octave count from stalling a pass.
    static constexpr int kMaxOctaves = 32;

    FractalNoise() = default;
    FractalNoise(const Vec4f& scale, int octaves, float roughness);

    // ceil(octaves) as a count in [0, kMaxOctaves]; NaN and negative counts give 0.
    static int octaveCount(float octaves);

    // Sum over octave o of amplitude * noise(p / scale * 2^o), the amplitude starting at 1
    // and multiplied by `roughness` each octave, divided by the sum of the amplitudes.
    // 0 with no octave (or amplitudes that sum to 0).
    float sample(const Vec4f& p) const;

    Vec4f invScale{1.f, 1.f, 1.f, 0.f}; // 1 / scale per axis
    int octaves = 0;
    float roughness = 0.5f;
};
