// Granular-Origin: the head of a granular node chain. It owns the chain's dynamic Body:
// made on the first cook (a copy of the optional input, primitives too) with the granular
// channels, then advanced by its velocity, P += v * dt, at each later cook.
#pragma once

#include "graph/geonode.h"

class GranularOriginNode : public GeoNode {
public:
    explicit GranularOriginNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void checkDirty(DirtyResult& result, const CookCaller& caller) override;

    // Adds the channels of a granular chain that `body` lacks.
    static void addGranularChannels(Body& body);

    float resolution = 10.f;
    float density = 1.f;
    float radius = 0.05f; // read-only: 0.5 / resolution
    float particleStiffness = 100.f;
    float constraintStiffness = 100.f;
    float slushiness = 0.f;
    float plasticity = 0.f;
    float friction = 10.f;
    float attraction = 0.f;
    bool stackHelp = false;
    int32_t relinkEveryNthStep = 2;
    float relinkThreshold = 0.f;
    float maxConstraintLength = 3.f;
    float maxConstraintStretch = 1.06f;
    bool removeStrands = false;
    bool enableSleeping = false;
    bool startAsleep = false;
    float sleepVelThreshold = 0.01f;
    float sleepDelay = 0.1f;
    int32_t iterations = 3;
    float groundPlaneFriction = 10.f;
    float damping = 0.f;
    float clampAcceleration = 1.f;
    float clampSpeed = 200.f;
    float freezeThreshold = 0.01f;
};
