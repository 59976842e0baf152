// DumbParticleSystem: the plainest classic system. Particles fall, feel forces, hit the
// ground and colliders, but never meet each other. SolverMainLoop calls step() once a
// substep; emission, forces and colliders are the passes every classic system shares.
#pragma once

#include "app/sceneobject.h"
#include "geo/body.h"
#include "particles/objectlinks.h"

#include <cstdint>
#include <string>
#include <vector>

class DumbParticleSystem : public SceneObject, public ObjectLinks {
public:
    static constexpr const char* kTypeString = "DumbParticleSystem";

    DumbParticleSystem();

    bool visible = true;
    float maxSpeedLastStep = -1.f;
    int32_t particleCount = -1;
    float radius = 0.05f;
    float mass = 0.5f;
    float friction = 0.12f;
    float groundPlaneFriction = 3.f;
    float emissionDensity = 1.f;
    Vec4f gravityVector{0.f, 0.f, 0.f, 1.f};
    float damping = 100.f; // saved with the system; the step uses SimState's damping
    std::string exportFormat = "abc";
    bool trackUVs = false;
    float whiteWaterSpeed = 5.f;
    float lastSolvedTime = 0.f;
    std::vector<std::string> exportExcludedChannels{"force", "deleted"};
    BodyPtr body;

    // Empties the particles and makes the channels again; `clear` also restarts the ids.
    void reset(bool clear = true);
    int addParticle(const Vec4f& position, const Vec4f& velocity);
    int addParticleWithUv(const Vec4f& position, const Vec4f& velocity, const Vec4f& uv);
    size_t size() const { return body->points->size(); }
    void boundingBox(Vec4f& min, Vec4f& max) const;
    // A new Body with the particles, without the export exclusions (for caches).
    BodyPtr exportBody() const;
    // The free-space test of sources always passes for this system.
    float nearestDistance(const Vec4f&) const { return 999999.9f; }
    void rebuildQueryHash() {}

    // One substep: emit, integrate, force pass, forces, ground, colliders.
    void step();
    void emitPass();
    void integrate();
    void forcePass();
    void applyForces();
    void groundPass();
    void collidePass();
    // Sinks mark particles; they leave at the end of the substep (order is not kept).
    void removeDeleted();
};
