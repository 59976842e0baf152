// The per-particle maths of a force: mask weight, noise, uniform or radial field, clump
// weight, then either an added force or, in wind mode, a blend of the velocity. The loop
// writes only each particle's own `force` or `v`, so any static partition gives the same bits.
#include "particles/forcefield.h"

#include <cmath>
#include <cstdint>

namespace {

// (x, y, z, 1) * m for the affine matrices of object transforms (no perspective row).
inline Vec4f affinePoint(const Vec4f& p, const Mat4f& m)
{
    const float* a = m.m;
    return Vec4f(p.x * a[0] + p.y * a[4] + p.z * a[8] + a[12], p.x * a[1] + p.y * a[5] + p.z * a[9] + a[13],
                 p.x * a[2] + p.y * a[6] + p.z * a[10] + a[14], 0.f);
}

} // namespace

bool ForceField::sample(const Vec4f& p, Vec4f& field) const
{
    // Mask weight m, and the local position l that radial forces push along.
    float m = 1.f;
    Vec4f l;
    float length = 0.f;
    if (area == kBox) {
        l = affinePoint(p, toLocal);
        if (l.x < -kHalfExtent || l.x > kHalfExtent || l.y < -kHalfExtent || l.y > kHalfExtent ||
            l.z < -kHalfExtent || l.z > kHalfExtent)
            return false;
    } else if (area == kSphere) {
        l = affinePoint(p, toSphere);
        length = l.length3();
        if (length > kHalfExtent) return false;
        m = length / kHalfExtent; // 0 at the centre, 1 at the surface
    }

    Vec4f w;
    if (noiseOn) {
        const Vec4f q = p + noiseShift;
        w = Vec4f(noise.sample(q), noise.sample(Vec4f(q.x, q.y + kNoiseOffsetY, q.z)),
                  noise.sample(Vec4f(q.x, q.y + kNoiseOffsetZ, q.z)), 0.f) *
            noiseAmp;
    }

    if (radial) {
        // Away from the centre along the local position; nothing pushes at the centre itself.
        const Vec4f away = length > 0.f ? l * (magnitude / length) : Vec4f();
        field = (away + w) * m;
    } else {
        field = (direction * magnitude + w) * m;
    }
    field.w = 0.f;
    return true;
}

float ForceField::clumpWeight(size_t links) const
{
    const float n = float(links);
    const float span = largestClumps - smallestClumps;
    if (span == 0.f) return n < smallestClumps ? 1.f : 0.f;
    const float t = (n - smallestClumps) / span;
    // A NaN ramp (a NaN limit) leaves the force unattenuated.
    return 1.f - (t > 0.f ? (t < 1.f ? t : 1.f) : 0.f);
}

void ForceField::apply(const ParticleView& view, int threads) const
{
    if (!active || view.count == 0) return;
    const int64_t count = int64_t(view.count);
    const Vec4f* P = view.P;
    Vec4f* v = view.v;
    Vec4f* force = view.force;
    const BitArray* deleted = view.deleted;
    const IntListArray* links = view.links;
#pragma omp parallel for schedule(static) num_threads(threads < 1 ? 1 : threads)
    for (int64_t i = 0; i < count; ++i) {
        if (deleted && deleted->get(size_t(i))) continue;
        Vec4f field;
        if (!sample(P[i], field)) continue;
        const float c = links ? clumpWeight((*links)[size_t(i)].size()) : 1.f;
        if (wind) {
            // Thick air drags the particle to the wind's speed and no further.
            const float b = c * windBlend;
            Vec4f& vel = v[i];
            vel.x = (1.f - b) * vel.x + b * field.x;
            vel.y = (1.f - b) * vel.y + b * field.y;
            vel.z = (1.f - b) * vel.z + b * field.z;
        } else {
            // A force per particle: not scaled by the particle's mass.
            force[i] += field * c;
        }
    }
}
