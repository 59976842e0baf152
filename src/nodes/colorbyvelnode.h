// Color-By-Vel: colours points by their speed, on a blue ramp or a heat ramp
// (blue slow, green middle, red fast).
#pragma once

#include "geo/vec.h"
#include "graph/geonode.h"

class ColorByVelNode : public GeoNode {
public:
    explicit ColorByVelNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    // The colour of speed `s` in `mode` (0 blue, 1 heat) against `maxVel`.
    static Vec4f colorOf(float s, int mode, float maxVel);

    int32_t mode = 0;
    float maxVel = 1.f;
};
