// Dust-Emit: adds points to the target around each emitter point, smeared back along the
// emitter's last step when a trail length is set.
#pragma once

#include "graph/geonode.h"

class DustEmitNode : public GeoNode {
public:
    explicit DustEmitNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    // Emits from `emitter` into `target`; the number of points added.
    size_t emit(Body& target, const BodyPtr& emitter);

    float emissionAmount = 2.f;
    float trailLength = 1.f;
    float jitter = 0.01f;
};
