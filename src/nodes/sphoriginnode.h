// SPH-Origin: the start of a dynamic SPH chain. It owns the running Body between cooks
// and, on each later cook of a run, moves its points by their velocity (and by `force`,
// with a fixed mass, when the Body carries it). Reset drops the Body.
#pragma once

#include "graph/geonode.h"

class SPHOriginNode : public GeoNode {
public:
    // The fixed particle mass the origin divides `force` by.
    static constexpr float kForceMass = 0.014f;

    explicit SPHOriginNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void checkDirty(DirtyResult& result, const CookCaller& caller) override;
    void reset() override;

    // A new dynamic Body with the channels v, Cd and age; the points of `seed`, if given.
    static BodyPtr makeBody(const Body* seed);
    // One step of dt: v += force / kForceMass * dt * forceScale (with `force`),
    // P += v * dt, age += dt (with `age`).
    static void advance(Body& body, float dt, float forceScale);

    float forceScale = 1.f;
};
