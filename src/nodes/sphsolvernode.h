// SPH-Solver: the SPH fluid step as a node of a dynamic chain. It pulls the running Body,
// solves one step of graphDt on it in place (hash, density, pair forces, integration,
// optional ground plane) and hands it on. The density and force maths are those of the
// classic SPH system (particles/sphkernels.h) in their node form.
#pragma once

#include "graph/geonode.h"
#include "particles/particlehash.h"
#include "particles/sphkernels.h"

#include <cstdint>
#include <vector>

class SPHSolverNode : public GeoNode {
public:
    // Speed of full white in the colour ramp.
    static constexpr float kColourSpeed = 6.f;

    explicit SPHSolverNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void reset() override;

    // One step of dt on `body`; adds the channels it needs (v, force, Cd).
    void solve(Body& body, float dt);

    float resolution = 20.f;
    float restDensity = 1000.f;
    float radiusMulti = 1.f;
    float radius = 0.1f; // read-only: the kernel radius from resolution
    float mass = 0.125f; // read-only: the particle mass from resolution and density
    float viscosity = 0.2f;
    float stringiness = 0.5f;
    float surfaceTensionWeight = 0.05f;
    float pressureScale = 0.2f;
    float whiteWaterSpeed = 8.f;
    float sceneScale = 1.f;
    bool collideGroundPlane = true;
    float groundPlaneFriction = 0.5f;
    float damping = 0.f;
    float clampForce = 80.f;
    float clampSpeed = 30.f;
    float maxSpeed = 0.f; // the largest speed of the last solve

    // Working arrays, kept between cooks for their capacity; reset drops them.
    SphArrays work;

private:
    void updateDerived();
    bool warnedResolution = false;
};
