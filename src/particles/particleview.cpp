// The particle views of the classic systems: each checks that the channels a pass writes
// are there and as long as the particle count, and answers an empty view otherwise.
#include "particles/particleview.h"

#include "particles/dumbparticlesystem.h"
#include "particles/granularparticlesystem.h"

ParticleView particleView(GranularParticleSystem& system)
{
    ParticleView view;
    const GranularParticleSystem::Channels& ch = system.ch;
    const size_t n = system.particleCount();
    if (!ch.P || !ch.v || !ch.force || ch.P->size() != n || ch.v->size() != n || ch.force->size() != n)
        return view;
    view.count = n;
    view.P = ch.P->data();
    view.v = ch.v->data();
    view.force = ch.force->data();
    if (ch.deleted && ch.deleted->size() == n) view.deleted = ch.deleted;
    if (ch.constrIndices && ch.constrIndices->size() == n) view.links = ch.constrIndices;
    return view;
}

ParticleView particleView(DumbParticleSystem& system)
{
    ParticleView view;
    PointData& pts = *system.body->points;
    const size_t n = pts.size();
    // Channels are found by name and type, as the granular system's are.
    auto channel = [&](const char* name, int type) {
        return pts.attribType(name) == type ? pts.attrib(name) : nullptr;
    };
    auto* v = static_cast<VecArray*>(channel("v", ATTRIB_VELOCITY));
    auto* force = static_cast<VecArray*>(channel("force", ATTRIB_VECTOR));
    auto* deleted = static_cast<BitArray*>(channel("deleted", ATTRIB_BOOL));
    if (!v || !force || v->size() != n || force->size() != n) return view;
    view.count = n;
    view.P = pts.P.data();
    view.v = v->data();
    view.force = force->data();
    if (deleted && deleted->size() == n) view.deleted = deleted;
    return view;
}
