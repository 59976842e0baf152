// The SPH density and force passes over sorted slots, parallel with a static partition.
#include "particles/sphkernels.h"

#include <algorithm>
#include <cmath>

namespace {

const double kPi = std::atan2(0.0, -1.0);

// Squared distance beyond which a pair can't be within the kernel radius: the exact test
// (with the distance offset) still follows for the pairs that pass, so the slack only
// spares the square roots of the far candidates.
float rejectDistance2(const SphConstants& k)
{
    const float cut = std::max(k.h - k.distanceOffset, 0.f);
    return cut * cut * 1.0001f;
}

} // namespace

SphConstants makeSphConstants(float h, float mass, float restDensity, float pressureScale, float resolution,
                              float viscosity, float stringiness, float surfaceTensionWeight,
                              float clampForce, bool nodeForm)
{
    SphConstants k;
    k.h = h;
    k.h2 = h * h;
    k.mass = mass;
    k.restDensity = restDensity;
    k.pressureScale = pressureScale;
    const double hd = h;
    k.densityCoef = float(315.0 / (64.0 * kPi * std::pow(hd, 9.0)) * double(mass));
    k.spikyGrad = float(-45.0 / (std::pow(hd, 6.0) * kPi));
    k.viscLap = float(45.0 / (std::pow(hd, 6.0) * kPi));
    const double r = std::pow(double(resolution), 1.5);
    k.invR = r > 0.0 ? float(1.0 / r) : 0.f;
    k.visc = viscosity * k.invR;
    k.string = stringiness * k.invR;
    k.wave = float(1.5 * kPi / (3.0 * hd));
    k.surfaceTension = surfaceTensionWeight;
    k.clampForce = clampForce;
    k.distanceOffset = nodeForm ? 0.f : 0.00001f;
    k.densitySeed = nodeForm ? 0.f : 0.00000001f;
    return k;
}

void sphDensityPass(const SphConstants& k, SphPassData& d, int numThreads)
{
    const float reject2 = rejectDistance2(k);
    const CellHasher hasher(d.hash);
    const int64_t n = int64_t(d.count);
#pragma omp parallel for schedule(static) num_threads(std::max(1, numThreads))
    for (int64_t s = 0; s < n; ++s) {
        const uint32_t slot = uint32_t(s);
        const Vec4f p = d.sortedPos[slot];
        float sum = k.densitySeed;
        forEachNeighbourSlot(p, hasher, d.cellStart, d.cellEnd, [&](uint32_t other) {
            if (other == slot) return;
            const Vec4f q = d.sortedPos[other];
            const float dx = p.x - q.x, dy = p.y - q.y, dz = p.z - q.z;
            const float r2 = dx * dx + dy * dy + dz * dz;
            if (r2 > reject2) return;
            const float dist = std::sqrt(r2) + k.distanceOffset;
            if (dist < k.h) {
                const float w = k.h2 - dist * dist;
                sum += w * w * w;
            }
        });
        const float density = k.densityCoef * sum + kSphDensityFloor;
        const float pressure = sphPressure(density, k.restDensity, k.pressureScale);
        d.sortedDensity[slot] = density;
        d.sortedPressure[slot] = pressure;
        const uint32_t i = d.sortedOrder[slot];
        if (d.density) d.density[i] = density;
        if (d.pressure) d.pressure[i] = pressure;
    }
}

void sphForcePass(const SphConstants& k, SphPassData& d, int numThreads)
{
    const float reject2 = rejectDistance2(k);
    const CellHasher hasher(d.hash);
    const int64_t n = int64_t(d.count);
    const float* viscosity = d.viscosity;
    const float* tension = d.surfaceTension;
#pragma omp parallel for schedule(static) num_threads(std::max(1, numThreads))
    for (int64_t s = 0; s < n; ++s) {
        const uint32_t slot = uint32_t(s);
        const uint32_t i = d.sortedOrder[slot];
        const Vec4f p = d.sortedPos[slot];
        const Vec4f v = d.sortedVel[slot];
        const float pi = d.sortedPressure[slot];
        float sx = 0.f, sy = 0.f, sz = 0.f; // pressure, viscosity and stringiness
        float tx = 0.f, ty = 0.f, tz = 0.f; // surface tension, outside the clamp
        forEachNeighbourSlot(p, hasher, d.cellStart, d.cellEnd, [&](uint32_t other) {
            if (other == slot) return;
            const Vec4f q = d.sortedPos[other];
            const float rx = p.x - q.x, ry = p.y - q.y, rz = p.z - q.z;
            const float r2 = rx * rx + ry * ry + rz * rz;
            if (r2 > reject2) return;
            const float len = std::sqrt(r2);
            const float dist = len + k.distanceOffset;
            // Coincident particles without an offset have no direction: no pair force.
            if (!(dist < k.h) || !(dist > 0.f)) return;
            const uint32_t j = d.sortedOrder[other];
            const float invDist = 1.f / dist;
            const float dirx = rx * invDist, diry = ry * invDist, dirz = rz * invDist;
            const Vec4f w = d.sortedVel[other];
            const float ux = w.x - v.x, uy = w.y - v.y, uz = w.z - v.z;
            const float a = k.h - dist;
            const float press = (pi + d.sortedPressure[other]) * -0.5f * k.spikyGrad * a * a * invDist;
            const float visc = viscosity ? (viscosity[i] + viscosity[j]) * k.invR * 0.5f * k.viscLap * a
                                         : k.viscLap * k.visc * a;
            const float str = k.viscLap * k.string * a * (ux * rx + uy * ry + uz * rz);
            const float share = k.mass / d.sortedDensity[other];
            sx += (press * rx + visc * ux + str * dirx) * share;
            sy += (press * ry + visc * uy + str * diry) * share;
            sz += (press * rz + visc * uz + str * dirz) * share;
            const float weight = tension ? (tension[i] + tension[j]) * 0.5f : k.surfaceTension;
            const float pull = std::cos(dist * k.wave) * weight;
            tx -= pull * dirx;
            ty -= pull * diry;
            tz -= pull * dirz;
        });
        const float len2 = sx * sx + sy * sy + sz * sz;
        if (len2 > k.clampForce * k.clampForce) {
            const float scale = k.clampForce / std::sqrt(len2);
            sx *= scale;
            sy *= scale;
            sz *= scale;
        }
        Vec4f& f = d.force[i];
        f.x += sx + tx;
        f.y += sy + ty;
        f.z += sz + tz;
    }
}
