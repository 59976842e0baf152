// SimpleSPHParticleSystem: the classic fluid system. Explicit smoothed-particle
// hydrodynamics with a density floor, a pressure that only pushes, viscosity and
// stringiness between neighbours and a cosine surface-tension pull. It shares the shell of
// the granular system: one Body of particles, its parameter rows, the ids of its sources,
// colliders and forces, and the same substep order. The rows, particles and the substep's
// passes live in sphparticlesystem.cpp, the CPU solve in sphsolve.cpp; the density and
// force maths that the SPH-Solver node shares are in sphkernels.h.
#pragma once

#include "app/sceneobject.h"
#include "geo/body.h"
#include "particles/objectlinks.h"
#include "particles/particlehash.h"
#include "particles/sphkernels.h"

#include <cstdint>
#include <string>
#include <vector>

class SimpleSPHParticleSystem : public SceneObject, public ObjectLinks {
public:
    static constexpr const char* kTypeString = "SimpleSPHParticleSystem";
    // Speed limit of the integration, in units per second.
    static constexpr float kSpeedLimit = 30.f;
    // Spacing factor of emission: particles are emitted at the particle spacing.
    static constexpr float kEmissionDensity = 1.f;
    // Smallest resolution the derived sizes are made from; below it a message is printed.
    static constexpr float kMinResolution = 0.01f;

    // Handles to the Body's channels; null where a channel is missing.
    struct Channels {
        VecArray* P = nullptr;
        VecArray* v = nullptr;
        IntArray* id = nullptr;
        VecArray* force = nullptr;
        VecArray* Cd = nullptr;
        IntListArray* neighbs = nullptr;
        FloatArray* density = nullptr;
        FloatArray* pressure = nullptr;
        IntArray* emitterId = nullptr;
        FloatArray* stick = nullptr;
        VecArray* emissionPos = nullptr;
        BitArray* deleted = nullptr;
        FloatArray* width = nullptr;
        FloatArray* viscosity = nullptr;      // only when a Body brings it
        FloatArray* surfaceTension = nullptr; // only when a Body brings it
        VecArray* uv = nullptr;               // only while trackUVs is on
    };

    SimpleSPHParticleSystem();
    ~SimpleSPHParticleSystem() override;

    // Evaluates the rows; an empty name row first takes the registered name.
    void evaluateParameters(float frame, int substep) override;

    // --- Particles and lifecycle (sphparticlesystem.cpp)

    // Empties the Body, makes its channels anew, empties the working arrays, restarts ids.
    void reset();
    // particleSpacing, kernelRadius and particleMass from resolution (clamped with a message
    // when it isn't a positive number).
    void updateDerivedFields();
    // Creates the missing channels (in creation order) and refreshes `ch`. Code that
    // replaces the Body or removes channels from outside calls this before the next step.
    void ensureChannels();
    int addParticle(const Vec4f& position, const Vec4f& velocity);
    int addParticle(const Vec4f& position, const Vec4f& velocity, const Vec4f& uv);
    size_t particleCount() const { return body->points->size(); }
    void rememberParticleCount() { lastParticleCount = int32_t(particleCount()); }

    std::vector<std::string> exportExclusions() const { return exportExcludedChannels; }
    // A new Body with the particles, without the excluded channels (for caches).
    BodyPtr exportBody() const;
    // Smallest and largest position per axis; 99999 and -99999 with no particle.
    void boundingBox(Vec4f& min, Vec4f& max) const;

    // The hash over the current positions with cells of the kernel radius, and the
    // nearest-distance query the sources' free-space test asks of it.
    void rebuildQueryHash();
    float nearestDistance(const Vec4f& p) const;

    // --- The substep (sphparticlesystem.cpp)

    // Emit, solve, force pass, forces, collide, compaction, ground; only the derived fields
    // when `enabled` is off.
    void step();
    void emitPass();
    void solvePass();
    void forcePass();
    void applyForces();
    void collidePass();
    // Forward walk: a deleted particle is overwritten by the last one (order not kept).
    void compact();
    void groundPass();
    // Contact distance of particle i with colliders and the ground: 0.4 h (colliders) or h
    // (ground), moved by the jitter of the run's random table.
    float jitterOffset(int32_t id) const;

    // --- CPU solve (sphsolve.cpp)

    void solveOnCpu();
    // Removes particles whose position or velocity isn't finite; answers how many.
    size_t dropNonFinite();
    void scaleParticles(float factor);
    void searchNeighbours();
    void densityPass();
    void forcePairPass();
    void integrate();

    // --- Parameters, in table order

    float resolution = 20.f;
    float radiusMulti = 1.1f;
    // gravityVector.y is the `gravity` row.
    float groundPlaneFriction = 0.5f;
    float whiteWaterSpeed = 8.f;
    float restDensity = 1000.f;
    float viscosity = 0.15f;
    float stringiness = 0.5f;
    float surfaceTensionWeight = 0.05f;
    float pressureScale = 0.25f;
    float clampForce = 80.f;
    float collisionJitter = 0.75f;
    // The `damping` row edits SimState::damping, shared by all systems.
    float sceneScale = 1.f;
    std::string initialStateFilePath;
    bool useCuda = false;
    bool trackUVs = false;
    std::string exportFormat = "abc";
    // `enabled` is SceneObject's.
    bool visible = true;

    // --- Constant and derived fields

    float particleSpacing = 0.05f;
    float kernelRadius = 0.11f;
    float particleMass = 0.125f;
    Vec4f gravityVector{0.f, -9.81f, 0.f, 0.f};
    int32_t lastParticleCount = 0;
    int32_t nextParticleId = -1;
    float maxSpeedLastStep = -1.f;
    float lastSolvedTime = 0.f;
    std::vector<std::string> exportExcludedChannels{"force", "deleted", "neighbs"};

    BodyPtr body;
    Channels ch;

    // --- Working arrays, by sorted slot unless said otherwise

    SphArrays work; // hash, sorted copies, grid and pair lists of the passes
    std::vector<float> contactDist; // by particle index, for the collide pass
    bool queryHashReady = false;    // hashKeys/sortedOrder describe the current positions

private:
    void buildParameters();
    bool warnedResolution = false;
    bool warnedCuda = false;
};

// Resets `system` and fills it from the cache at `path` ("SPH: importing " and the path are
// printed first). 0 on success; negative when the file can't be read (a file that can't be
// opened leaves the system untouched; a broken one leaves it empty).
int readInitialState(SimpleSPHParticleSystem& system, const std::string& path);
