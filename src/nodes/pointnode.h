// Point: adds one point at a set position to what comes in (or to nothing, when the input
// is unwired), and can strip the incoming primitives so only the points remain.
#pragma once

#include "graph/geonode.h"

class PointNode : public GeoNode {
public:
    explicit PointNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;

    bool addPoint = true;
    float posX = 0.f;
    float posY = 0.f;
    float posZ = 0.f;
    bool removeMesh = false;
};
