// Particle-Burst: a dynamic particle Body of its own that moves like Origin's and gets new
// particles from one point at a rate per second.
#pragma once

#include "graph/geonode.h"

class ParticleBurstNode : public GeoNode {
public:
    explicit ParticleBurstNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void checkDirty(DirtyResult& result, const CookCaller& caller) override;
    void reset() override;
    // Adds this frame's particles to `body`: amount / fps per frame, or one every
    // truncate(fps / amount) frames when that is below one. The count added.
    int emit(Body& body, float frame, float fps) const;

    float translateX = 0.f;
    float translateY = 0.f;
    float translateZ = 0.f;
    float amount = 10.f;
    float speed = 4.f;
    float speedRandom = 0.f;
    float angle = 140.f; // kept and saved; the emission doesn't read it
    BodyPtr held;
};
