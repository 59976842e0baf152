// Attrib-Set: sets a point attribute to a fixed scalar or vector value, optionally only
// inside an SDF volume, faded out over a distance.
#pragma once

#include "graph/geonode.h"

class AttribSetNode : public GeoNode {
public:
    explicit AttribSetNode(NodeMaster* master);
    QORVA_PAIR_PROCESS
    void cookPair(BodyPtr& body, const Body* second) override;

    // The mask weight at signed distance `sdf`: 1 inside, 0 at `falloff` and beyond,
    // linear between; a falloff of 0 or less makes a hard edge at the surface.
    static float maskWeight(float sdf, float falloff);
    // Sets the attribute on `body`; `mask` (may be null) holds the distance grid.
    void apply(Body& body, const Body* mask, bool maskWired);

    std::string attribName;
    int32_t attribType = 0; // 0 scalar, 1 vector
    float x = 0.f;
    float y = 0.f;
    float z = 0.f;
    float falloff = 0.f;
};
