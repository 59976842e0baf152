// The dumb system's part in the shared passes: its CollideView (no sleeping, resting
// time or previous positions, so those stay null) with the dumb collide rules, and the
// four emission operations: spacing 2r / resolution multiplier / emission density, a
// hash rebuild that does nothing and a free-space test that always passes, and adding a
// particle with its uv. Included by the dumb step and by tests that drive the passes.
#pragma once

#include "app/globals.h"
#include "app/simstate.h"
#include "geo/pointdata.h"
#include "particles/collidetraits.h"
#include "particles/dumbparticlesystem.h"
#include "particles/emission.h"

namespace dumbtraits {

// The named channel when it exists with `type` and one entry per point; null otherwise.
template <class A>
A* channel(PointData& pts, const char* name, int type)
{
    if (!pts.hasAttrib(name) || pts.attribType(name) != type) return nullptr;
    A* a = pts.template attribAs<A>(name);
    return a && a->size() == pts.size() ? a : nullptr;
}

} // namespace dumbtraits

template <>
struct CollideTraits<DumbParticleSystem> {
    static CollideView view(DumbParticleSystem& s)
    {
        PointData& pts = *s.body->points;
        CollideView v;
        v.count = pts.size();
        v.P = pts.P.data();
        v.v = pts.hasV && pts.v.size() == v.count ? pts.v.data() : nullptr;
        VecArray* force = dumbtraits::channel<VecArray>(pts, "force", ATTRIB_VECTOR);
        v.force = force ? force->data() : nullptr;
        v.deleted = dumbtraits::channel<BitArray>(pts, "deleted", ATTRIB_BOOL);
        FloatArray* stick = dumbtraits::channel<FloatArray>(pts, "stick", ATTRIB_FLOAT);
        v.stick = stick ? stick->data() : nullptr;
        v.points = &pts;
        v.radius = s.radius;
        v.mass = s.mass;
        v.gravityY = s.gravityVector.y;
        v.dt = simState ? simState->dt : 0.f;
        v.numThreads = simState ? simState->numThreads : 1;
        return v;
    }

    static CollideRules rules(const DumbParticleSystem&) { return CollideRules::dumb(); }
};

template <>
struct EmitTraits<DumbParticleSystem> {
    static float spacing(const DumbParticleSystem& s, float resolutionMultiplier)
    {
        return 2.f * s.radius / resolutionMultiplier / s.emissionDensity;
    }
    static void rebuildHash(DumbParticleSystem& s) { s.rebuildQueryHash(); }
    static float nearestDistance(const DumbParticleSystem& s, const Vec4f& p) { return s.nearestDistance(p); }
    static void addParticle(DumbParticleSystem& s, const Vec4f& p, const Vec4f& v, const Vec4f& uv, int32_t)
    {
        s.addParticleWithUv(p, v, uv);
    }
    static bool trackUVs(const DumbParticleSystem& s) { return s.trackUVs; }
};
