// The CPU solve of the SPH system: optional scene scaling, the neighbour hash with cells of
// the kernel radius, the density pass, the pair-force pass and the integration, all over
// particles sorted by hash so that neighbours lie close in memory.
#include "particles/sphparticlesystem.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "particles/rampcolour.h"
#include "particles/sphkernels.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

int threadCount(bool half)
{
    const int n = simState ? std::max(1, simState->numThreads) : 1;
    return half ? std::max(1, n / 2) : n;
}

bool finite3(const Vec4f& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

} // namespace

void SimpleSPHParticleSystem::solveOnCpu()
{
    if (particleCount() == 0) return;
    dropNonFinite();
    const size_t n = particleCount();
    if (n == 0) return;
    const bool scaled = sceneScale != 1.f && sceneScale > 0.f && std::isfinite(sceneScale);
    if (scaled) scaleParticles(sceneScale);
    searchNeighbours();
    densityPass();
    forcePairPass();
    integrate();
    if (scaled) scaleParticles(1.f / sceneScale);
    queryHashReady = false;
    lastSolvedTime = simState ? simState->time : 0.f;
}

size_t SimpleSPHParticleSystem::dropNonFinite()
{
    PointData& pts = *body->points;
    size_t dropped = 0;
    size_t i = 0;
    while (i < pts.size()) {
        const bool bad = !finite3(pts.P[i]) || (ch.v && !finite3((*ch.v)[i]));
        if (!bad) {
            ++i;
            continue;
        }
        pts.removePoint(i);
        ++dropped;
    }
    if (dropped > 0)
        std::printf("SPH %s: dropped %zu particles with a non-finite position or velocity.\n", name.c_str(),
                    dropped);
    return dropped;
}

void SimpleSPHParticleSystem::scaleParticles(float factor)
{
    VecArray& P = *ch.P;
    VecArray* v = ch.v;
    const int64_t n = int64_t(particleCount());
#pragma omp parallel for schedule(static) num_threads(threadCount(true))
    for (int64_t i = 0; i < n; ++i) {
        Vec4f& p = P[size_t(i)];
        p.x *= factor;
        p.y *= factor;
        p.z *= factor;
        if (v) {
            Vec4f& w = (*v)[size_t(i)];
            w.x *= factor;
            w.y *= factor;
            w.z *= factor;
        }
    }
}

void SimpleSPHParticleSystem::searchNeighbours()
{
    const size_t n = particleCount();
    work.sort(ch.P->data(), ch.v ? ch.v->data() : nullptr, n, kernelRadius, threadCount(false));
}

namespace {

SphPassData passData(SimpleSPHParticleSystem& s)
{
    SphPassData d;
    d.arrays = &s.work;
    const size_t n = s.work.count();
    d.density = s.ch.density && s.ch.density->size() == n ? s.ch.density->data() : nullptr;
    d.pressure = s.ch.pressure && s.ch.pressure->size() == n ? s.ch.pressure->data() : nullptr;
    d.force = s.ch.force && s.ch.force->size() == n ? s.ch.force->data() : nullptr;
    d.viscosity = s.ch.viscosity && s.ch.viscosity->size() == n ? s.ch.viscosity->data() : nullptr;
    d.surfaceTension = s.ch.surfaceTension && s.ch.surfaceTension->size() == n ? s.ch.surfaceTension->data() : nullptr;
    return d;
}

SphConstants constantsOf(const SimpleSPHParticleSystem& s)
{
    return makeSphConstants(s.kernelRadius, s.particleMass, s.restDensity, s.pressureScale, s.resolution,
                            s.viscosity, s.stringiness, s.surfaceTensionWeight, s.clampForce, false);
}

} // namespace

void SimpleSPHParticleSystem::densityPass()
{
    SphPassData d = passData(*this);
    sphDensityPass(constantsOf(*this), d, threadCount(false));
}

void SimpleSPHParticleSystem::forcePairPass()
{
    SphPassData d = passData(*this);
    if (!d.force) return;
    sphForcePass(constantsOf(*this), d, threadCount(false));
}

void SimpleSPHParticleSystem::integrate()
{
    const float dt = simState ? simState->dt : 0.f;
    const size_t n = particleCount();
    VecArray& P = *ch.P;
    VecArray* v = ch.v;
    VecArray* Cd = ch.Cd;
    const VecArray* force = ch.force && ch.force->size() == n ? ch.force : nullptr;
    const float invMass = particleMass > 0.f ? 1.f / particleMass : 0.f;
    const int64_t count = int64_t(n);
    float fastest = 0.f;
#pragma omp parallel for schedule(static) num_threads(threadCount(false)) reduction(max : fastest)
    for (int64_t k = 0; k < count; ++k) {
        const uint32_t i = work.sortedOrder[size_t(k)];
        Vec4f vNew = work.sortedVel[size_t(k)];
        if (force) vNew += (*force)[i] * (invMass * dt);
        // The position moves with the unclamped velocity.
        const Vec4f& p = work.sortedPos[size_t(k)];
        P[i] = Vec4f(p.x + vNew.x * dt, p.y + vNew.y * dt, p.z + vNew.z * dt, p.w);
        const float speed = vNew.length3();
        if (v) (*v)[i] = speed > kSpeedLimit ? vNew * (kSpeedLimit / speed) : vNew;
        if (Cd) (*Cd)[i] = rampColour(speed, whiteWaterSpeed);
        fastest = std::max(fastest, speed);
    }
    maxSpeedLastStep = fastest;
}
