// Scenes in code for the collider and source tests: closed box and sphere meshes,
// geometry objects, colliders and sources registered in Simulation, the run's clock, and
// one granular substep (whose emit and collide stages run the connected objects).
#pragma once

#include "testenv.h"

#include "io/object.h"
#include "particles/collisionobject.h"
#include "particles/granulartraits.h"
#include "particles/source.h"

#include <cmath>
#include <memory>
#include <string>

namespace fixtures {

// The closed box lo..hi: 8 corners, 12 triangles wound outwards.
inline std::shared_ptr<ObjectMesh> boxMesh(const Vec4f& lo, const Vec4f& hi)
{
    auto m = std::make_shared<ObjectMesh>();
    for (int i = 0; i < 8; ++i)
        m->vertices.push_back(Vec4f(i & 1 ? hi.x : lo.x, i & 2 ? hi.y : lo.y, i & 4 ? hi.z : lo.z, 0.f));
    const int faces[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
    for (const auto& f : faces) {
        ObjectTriangle a, b;
        a.v0 = a.n0 = f[0];
        a.v1 = a.n1 = f[1];
        a.v2 = a.n2 = f[2];
        b.v0 = b.n0 = f[0];
        b.v1 = b.n1 = f[2];
        b.v2 = b.n2 = f[3];
        a.t0 = a.t1 = a.t2 = b.t0 = b.t1 = b.t2 = -1;
        m->triangles.push_back(a);
        m->triangles.push_back(b);
    }
    m->velocities.assign(m->vertices.size(), Vec4f());
    m->computeTriangleNormals();
    m->computeBounds();
    m->isLoaded = true;
    return m;
}

// A latitude-longitude sphere of `radius` round the origin.
inline std::shared_ptr<ObjectMesh> sphereMesh(float radius, int rings, int segments)
{
    auto m = std::make_shared<ObjectMesh>();
    const float pi = 3.14159265358979f;
    m->vertices.push_back(Vec4f(0.f, radius, 0.f, 0.f));
    for (int r = 1; r < rings; ++r) {
        const float theta = pi * float(r) / float(rings);
        for (int s = 0; s < segments; ++s) {
            const float phi = 2.f * pi * float(s) / float(segments);
            m->vertices.push_back(Vec4f(radius * std::sin(theta) * std::cos(phi), radius * std::cos(theta),
                                        radius * std::sin(theta) * std::sin(phi), 0.f));
        }
    }
    m->vertices.push_back(Vec4f(0.f, -radius, 0.f, 0.f));
    const int bottom = int(m->vertices.size()) - 1;
    auto ring = [&](int r, int s) { return 1 + (r - 1) * segments + (s % segments); };
    auto tri = [&](int a, int b, int c) {
        ObjectTriangle t;
        t.v0 = t.n0 = a;
        t.v1 = t.n1 = b;
        t.v2 = t.n2 = c;
        t.t0 = t.t1 = t.t2 = -1;
        m->triangles.push_back(t);
    };
    for (int s = 0; s < segments; ++s) tri(0, ring(1, s + 1), ring(1, s));
    for (int r = 1; r < rings - 1; ++r)
        for (int s = 0; s < segments; ++s) {
            tri(ring(r, s), ring(r, s + 1), ring(r + 1, s + 1));
            tri(ring(r, s), ring(r + 1, s + 1), ring(r + 1, s));
        }
    for (int s = 0; s < segments; ++s) tri(bottom, ring(rings - 1, s), ring(rings - 1, s + 1));
    m->velocities.assign(m->vertices.size(), Vec4f());
    m->computeTriangleNormals();
    m->computeBounds();
    m->isLoaded = true;
    return m;
}

// A geometry object in Simulation that holds `mesh` (none for null).
inline Object* addObject(const std::shared_ptr<ObjectMesh>& mesh, const std::string& name = "object1")
{
    auto object = std::make_unique<Object>();
    Object* o = object.get();
    if (mesh) o->meshes.push_back(mesh);
    ++o->geometryStamp;
    simulation->registerObject(std::move(object), name);
    return o;
}

inline CollisionObject* addCollider(Object* geometry, const std::string& name = "collider1")
{
    auto collider = std::make_unique<CollisionObject>();
    CollisionObject* c = collider.get();
    simulation->registerObject(std::move(collider), name);
    if (geometry) c->geometryIds = {geometry->id};
    c->updateMatrices();
    return c;
}

inline Source* addSource(int32_t kind, Object* geometry = nullptr, const std::string& name = "source1")
{
    auto source = std::make_unique<Source>(kind);
    Source* s = source.get();
    simulation->registerObject(std::move(source), name);
    if (geometry) s->geometryIds = {geometry->id};
    s->updateMatrices();
    return s;
}

// The run's clock at substep `n` of a run at `substeps` per frame from frame 0.
inline void setClock(int n, int substeps, float fps = 24.f)
{
    simState->substeps = substeps;
    simState->substep = n % substeps;
    simState->frame = n / substeps;
    simState->frameF = float(simState->frame) + float(simState->substep) / float(substeps);
    simState->time = simState->frameF / fps;
    simState->dt = 1.f / (float(substeps) * fps);
}

// One substep of a granular system, as the solver loop runs it.
inline void substep(GranularParticleSystem& g)
{
    g.step();
    g.rememberParticleCount();
}

// The records every test here needs, in a known state.
inline void resetRunState()
{
    ensureSceneRecords();
    simState->numThreads = 2;
    simState->startFrame = 0;
    simState->collideGround = false;
    simState->cudaAvailable = false;
    simState->damping = 0.f;
    setClock(0, 8);
}

} // namespace fixtures
