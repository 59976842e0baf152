// Simplex noise in three dimensions (Perlin's simplex lattice, as written up by Gustavson)
// and its fractal sum. Used per particle inside parallel loops: no state, no allocation.
#include "particles/fractalnoise.h"

#include <cmath>
#include <cstdint>

namespace {

// Perlin's published permutation of 0..255 (the reference "improved noise" table).
constexpr uint8_t kPermutation[256] = {
    151, 160, 137, 91,  90,  15,  131, 13,  201, 95,  96,  53,  194, 233, 7,   225, 140, 36,  103, 30,
    69,  142, 8,   99,  37,  240, 21,  10,  23,  190, 6,   148, 247, 120, 234, 75,  0,   26,  197, 62,
    94,  252, 219, 203, 117, 35,  11,  32,  57,  177, 33,  88,  237, 149, 56,  87,  174, 20,  125, 136,
    171, 168, 68,  175, 74,  165, 71,  134, 139, 48,  27,  166, 77,  146, 158, 231, 83,  111, 229, 122,
    60,  211, 133, 230, 220, 105, 92,  41,  55,  46,  245, 40,  244, 102, 143, 54,  65,  25,  63,  161,
    1,   216, 80,  73,  209, 76,  132, 187, 208, 89,  18,  169, 200, 196, 135, 130, 116, 188, 159, 86,
    164, 100, 109, 198, 173, 186, 3,   64,  52,  217, 226, 250, 124, 123, 5,   202, 38,  147, 118, 126,
    255, 82,  85,  212, 207, 206, 59,  227, 47,  16,  58,  17,  182, 189, 28,  42,  223, 183, 170, 213,
    119, 248, 152, 2,   44,  154, 163, 70,  221, 153, 101, 155, 167, 43,  172, 9,   129, 22,  39,  253,
    19,  98,  108, 110, 79,  113, 224, 232, 178, 185, 112, 104, 218, 246, 97,  228, 251, 34,  242, 193,
    238, 210, 144, 12,  191, 179, 162, 241, 81,  51,  145, 235, 249, 14,  239, 107, 49,  192, 214, 31,
    181, 199, 106, 157, 184, 84,  204, 176, 115, 121, 50,  45,  127, 4,   150, 254, 138, 236, 205, 93,
    222, 114, 67,  29,  24,  72,  243, 141, 128, 195, 78,  66,  215, 61,  156, 180};

// The 12 gradients: the midpoints of the edges of a cube.
constexpr float kGradients[12][3] = {{1, 1, 0}, {-1, 1, 0}, {1, -1, 0}, {-1, -1, 0},
                                     {1, 0, 1}, {-1, 0, 1}, {1, 0, -1}, {-1, 0, -1},
                                     {0, 1, 1}, {0, -1, 1}, {0, 1, -1}, {0, -1, -1}};

// Skew to the simplex lattice and back: F3 = 1/3, G3 = 1/6.
constexpr float kSkew = 1.f / 3.f;
constexpr float kUnskew = 1.f / 6.f;
// Squared radius of a corner's influence, and the factor that brings the sum to about [-1, 1].
constexpr float kFalloff = 0.6f;
constexpr float kOutputScale = 32.f;
// Largest coordinate whose lattice cell still fits a 64-bit integer after skewing.
constexpr float kLargestCoordinate = 1e18f;

inline int perm(int64_t i)
{
    return kPermutation[i & 255];
}

// Contribution of one simplex corner at offset (x, y, z) with gradient g.
inline float corner(float x, float y, float z, int g)
{
    float t = kFalloff - x * x - y * y - z * z;
    if (t < 0.f) return 0.f;
    t *= t;
    return t * t * (kGradients[g][0] * x + kGradients[g][1] * y + kGradients[g][2] * z);
}

} // namespace

float simplexNoise3(float x, float y, float z)
{
    // Also rejects NaN and infinities.
    if (!(std::fabs(x) < kLargestCoordinate && std::fabs(y) < kLargestCoordinate &&
          std::fabs(z) < kLargestCoordinate))
        return 0.f;

    // The cell of the skewed lattice, and the offset from its origin in unskewed space.
    const float s = (x + y + z) * kSkew;
    const float fi = std::floor(x + s), fj = std::floor(y + s), fk = std::floor(z + s);
    const float t = (fi + fj + fk) * kUnskew;
    const float x0 = x - (fi - t), y0 = y - (fj - t), z0 = z - (fk - t);

    // Which of the six simplices of the cell holds the point: the second and third corners.
    int i1, j1, k1, i2, j2, k2;
    if (x0 >= y0) {
        if (y0 >= z0) {
            i1 = 1, j1 = 0, k1 = 0, i2 = 1, j2 = 1, k2 = 0;
        } else if (x0 >= z0) {
            i1 = 1, j1 = 0, k1 = 0, i2 = 1, j2 = 0, k2 = 1;
        } else {
            i1 = 0, j1 = 0, k1 = 1, i2 = 1, j2 = 0, k2 = 1;
        }
    } else {
        if (y0 < z0) {
            i1 = 0, j1 = 0, k1 = 1, i2 = 0, j2 = 1, k2 = 1;
        } else if (x0 < z0) {
            i1 = 0, j1 = 1, k1 = 0, i2 = 0, j2 = 1, k2 = 1;
        } else {
            i1 = 0, j1 = 1, k1 = 0, i2 = 1, j2 = 1, k2 = 0;
        }
    }
    const float x1 = x0 - float(i1) + kUnskew, y1 = y0 - float(j1) + kUnskew, z1 = z0 - float(k1) + kUnskew;
    const float x2 = x0 - float(i2) + 2.f * kUnskew, y2 = y0 - float(j2) + 2.f * kUnskew,
                z2 = z0 - float(k2) + 2.f * kUnskew;
    const float x3 = x0 - 1.f + 3.f * kUnskew, y3 = y0 - 1.f + 3.f * kUnskew, z3 = z0 - 1.f + 3.f * kUnskew;

    // Gradient of each corner from the permutation table (wrapped to 256 per axis).
    const int64_t i = int64_t(fi), j = int64_t(fj), k = int64_t(fk);
    const int g0 = perm(i + perm(j + perm(k))) % 12;
    const int g1 = perm(i + i1 + perm(j + j1 + perm(k + k1))) % 12;
    const int g2 = perm(i + i2 + perm(j + j2 + perm(k + k2))) % 12;
    const int g3 = perm(i + 1 + perm(j + 1 + perm(k + 1))) % 12;

    return kOutputScale * (corner(x0, y0, z0, g0) + corner(x1, y1, z1, g1) + corner(x2, y2, z2, g2) +
                           corner(x3, y3, z3, g3));
}

FractalNoise::FractalNoise(const Vec4f& scale, int octaveTotal, float roughnessFactor)
    : invScale(1.f / scale.x, 1.f / scale.y, 1.f / scale.z, 0.f),
      octaves(octaveTotal < 0 ? 0 : (octaveTotal > kMaxOctaves ? kMaxOctaves : octaveTotal)),
      roughness(roughnessFactor)
{}

int FractalNoise::octaveCount(float count)
{
    if (!(count > 0.f)) return 0;
    if (count >= float(kMaxOctaves)) return kMaxOctaves;
    return int(std::ceil(count));
}

float FractalNoise::sample(const Vec4f& p) const
{
    const float x = p.x * invScale.x, y = p.y * invScale.y, z = p.z * invScale.z;
    float sum = 0.f, amplitudes = 0.f, amplitude = 1.f, frequency = 1.f;
    for (int o = 0; o < octaves; ++o) {
        sum += amplitude * simplexNoise3(x * frequency, y * frequency, z * frequency);
        amplitudes += amplitude;
        amplitude *= roughness;
        frequency *= 2.f;
    }
    const float value = amplitudes != 0.f ? sum / amplitudes : 0.f;
    return std::isfinite(value) ? value : 0.f;
}
