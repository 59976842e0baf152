// Sample placement on triangles for surface emission: how many samples a triangle gets
// from its area, and where sample s lies (barycentric weights from the R2 low-discrepancy
// sequence). Shared by the classic Mesh source and the Particle-Emit node so that both
// place their particles the same way.
#pragma once

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace emission {

inline double fract(double x)
{
    return x - std::floor(x);
}

// The start of the sample sequence at a fractional frame: it changes every fourth frame
// and repeats after forty.
inline double meshSampleSeed(float frameF)
{
    return double((int64_t(frameF * 0.25f) % 10) * 2345);
}

// Samples on triangle `index` of area `area` at spacing `step`: truncate(area * 14 / step).
// A triangle that gets none takes one when that fraction is greater than the triangle's
// low-discrepancy value, so tiny triangles emit with a probability equal to their share
// and the outcome stays the same from call to call for a static mesh. 0 for a non-finite
// share.
inline int64_t triangleSampleCount(double area, double step, size_t index)
{
    const double share = area * 14.0 / step;
    if (!std::isfinite(share)) return 0;
    int64_t count = share >= 1.0 ? int64_t(std::min(share, 1e12)) : 0;
    if (count == 0 && share > fract(double(index) * 0.7548776662466927 + 0.5)) count = 1;
    return count;
}

// Barycentric weights of sample s after `seed`: w[0] on the first corner, w[1] on the
// second, w[2] on the third. The two fractions fold back into the triangle when their
// sum reaches 1.
inline void triangleSampleWeights(double seed, int64_t s, float w[3])
{
    const double q = seed + double(s);
    float a = float(fract(q * 0.5698402909980532 + 0.5));
    float b = float(fract(q * 0.7548776662466927 + 0.5));
    if (a + b >= 1.f) {
        a = 1.f - a;
        b = 1.f - b;
    }
    w[0] = b;
    w[1] = a;
    w[2] = 1.f - a - b;
}

} // namespace emission
