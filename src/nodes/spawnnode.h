// Spawn-Node: takes its input as a held dynamic Body on the first cook and steps it by its
// velocities (and a `force` channel, at unit mass) on every cook.
#pragma once

#include "graph/geonode.h"

class SpawnNode : public GeoNode {
public:
    explicit SpawnNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void checkDirty(DirtyResult& result, const CookCaller& caller) override;
    void reset() override;
    // One step of `body` at dt: P += v * dt, then v += force / mass * dt where `force`
    // exists. False (and a message) without velocities.
    bool step(Body& body, float dt) const;

    float gravity = 0.f; // saved with the node; the step doesn't read it
    float mass = 1.f;
    BodyPtr held;
};
