// Gravity: adds graphDt * (gravityX, gravityY, gravityZ) to the velocity of every point.
#pragma once

#include "graph/geonode.h"

class GravityNode : public GeoNode {
public:
    explicit GravityNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    float gravityX = 0.f;
    float gravityY = -9.81f;
    float gravityZ = 0.f;
};
