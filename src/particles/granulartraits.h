// The granular system's part in the shared passes: its CollideView and rules for the
// collide pass, and the four emission operations (spacing 2r / resolution multiplier /
// emission density, the query hash, nearest distance, adding a particle with its uv and
// emitter id). Included by the granular step and by tests that drive the passes.
#pragma once

#include "app/globals.h"
#include "app/simstate.h"
#include "particles/collidetraits.h"
#include "particles/emission.h"
#include "particles/granularparticlesystem.h"

template <>
struct CollideTraits<GranularParticleSystem> {
    static CollideView view(GranularParticleSystem& s)
    {
        const auto& ch = s.ch;
        CollideView v;
        v.count = s.particleCount();
        v.P = ch.P ? ch.P->data() : nullptr;
        v.v = ch.v && ch.v->size() == v.count ? ch.v->data() : nullptr;
        v.force = ch.force && ch.force->size() == v.count ? ch.force->data() : nullptr;
        v.posPrev = ch.posPrev && ch.posPrev->size() == v.count ? ch.posPrev->data() : nullptr;
        v.sleeping = ch.sleeping && ch.sleeping->size() == v.count ? ch.sleeping : nullptr;
        v.deleted = ch.deleted && ch.deleted->size() == v.count ? ch.deleted : nullptr;
        v.restingTime = ch.restingTime && ch.restingTime->size() == v.count ? ch.restingTime->data() : nullptr;
        v.stick = ch.stick && ch.stick->size() == v.count ? ch.stick->data() : nullptr;
        v.points = s.body->points.get();
        v.radius = s.particleRadius;
        v.mass = s.particleMass;
        v.gravityY = s.gravityVector.y;
        v.dt = simState ? simState->dt : 0.f;
        v.numThreads = simState ? simState->numThreads : 1;
        return v;
    }

    static CollideRules rules(const GranularParticleSystem&) { return CollideRules::granular(); }
};

template <>
struct EmitTraits<GranularParticleSystem> {
    static constexpr float kEmissionDensity = 1.f;

    static float spacing(const GranularParticleSystem& s, float resolutionMultiplier)
    {
        return 2.f * s.particleRadius / resolutionMultiplier / kEmissionDensity;
    }
    static void rebuildHash(GranularParticleSystem& s) { s.rebuildQueryHash(); }
    static float nearestDistance(const GranularParticleSystem& s, const Vec4f& p) { return s.nearestDistance(p); }
    static void addParticle(GranularParticleSystem& s, const Vec4f& p, const Vec4f& v, const Vec4f& uv,
                            int32_t emitterId)
    {
        const int i = s.addParticle(p, v, uv);
        if (s.ch.emitterId && size_t(i) < s.ch.emitterId->size()) (*s.ch.emitterId)[size_t(i)] = emitterId;
    }
    static bool trackUVs(const GranularParticleSystem& s) { return s.trackUVs; }
};
