// Granular-Solver: resolves contacts, friction, attraction and distance constraints of the
// dynamic Body passing through, in place, with the classic granular passes (it drives a
// GranularParticleSystem as its solver core, in that system's node form). The chain has no
// substeps: each cook runs `iterations` iterations over the graph's step.
#pragma once

#include "graph/geonode.h"

#include <memory>
#include <utility>
#include <vector>

class GranularParticleSystem;

class GranularSolverNode : public GeoNode {
public:
    explicit GranularSolverNode(NodeMaster* master);
    ~GranularSolverNode() override;
    void process(BodyPtr& result, const CookCaller& caller) override;
    void reset() override;

    // The solve on `body` over the step `dt`.
    void solve(const BodyPtr& body, float dt);
    // Volume enclosed by the Body's mesh, for Cloth Keep Volume.
    static float meshVolume(const Body& body);
    // Cuts the Body along the constraints broken in this cook: (i, j) pairs, i < j.
    void tearByChannels(Body& body, const std::vector<std::pair<int, int>>& tears);

    // General:
    float resolution = 10.f;
    float groundPlaneFriction = 10.f;
    float freezeThreshold = 0.01f;
    // Particle-Interaction:
    float particleStiffness = 100.f;
    float friction = 10.f;
    float attraction = 0.f;
    float slushiness = 0.f;
    bool stackHelp = false;
    // Constraints:
    float constraintStiffness = 100.f;
    float maxConstraintStretch = 1.06f;
    float maxConstraintLength = 3.f;
    bool removeStrands = false;
    float plasticity = 0.f;
    float relinkThreshold = 0.f;
    int32_t relinkEveryNthStep = 2;
    bool createConstraints = false;
    // Sleeping:
    bool enableSleeping = false;
    bool startAsleep = false;
    float sleepVelThreshold = 0.01f;
    float sleepDelay = 0.1f;
    // Solver Details:
    int32_t iterations = 3;
    float damping = 0.f;
    float clampAcceleration = 1.f;
    float clampSpeed = 200.f;
    // Granular Cloth:
    float clothInflate = 0.f;
    bool clothKeepVolume = false;
    float volumeTarget = 500.f;
    float volumePressureScale = 1.f;
    float clothDrag = 0.5f;
    // Noise and stick rows.
    bool breakConstraintsNoisy = false;
    float breakConstrNoisyScaleX = 1.f;
    float breakConstrNoisyScaleY = 1.f;
    float breakConstrNoisyScaleZ = 1.f;
    float breakConstrNoisyOctaves = 2.f;
    float breakConstrNoisyRoughness = 0.5f;
    float stickAttrInitialVal = 1.f;
    float unstickByVelocityThreshold = 1000.f;
    float wakeupByVelocityThreshold = 1000.f;

    // Derived at each solve.
    float particleSpacing = 0.1f;
    float particleRadius = 0.05f;
    float particleMass = 0.001f;
    int32_t lastParticleCount = 0;
    float maxSpeed = 0.f; // largest speed written back by the last solve

    // The solver core: its working arrays (hashKeys, sortedOrder, sortedPos, sortedVel,
    // sortedSlot, cellStart, cellEnd) live on between cooks.
    std::unique_ptr<GranularParticleSystem> core;
    // Per-node state the Body doesn't carry.
    IntListArray neighbs;
    IntArray numContacts;
    // Stand-ins for optional channels the Body lacks, and the per-cook deleted bits (the
    // Body's data_deleted plus the points skipped for bad positions).
    VecArray forceWork;
    BitArray deletedWork;
    BitArray sleepingWork;
    FloatArray restingWork;
    FloatArray stickWork;
    // One list of broken constraints per thread, merged after the last iteration.
    std::vector<std::vector<std::pair<int, int>>> tearLists;

private:
    void copyRowsToCore();
};
