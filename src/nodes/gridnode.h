// Grid: a flat rectangle of quads in the XZ plane, centred at the origin.
#pragma once

#include "graph/geonode.h"

class GridNode : public GeoNode {
public:
    explicit GridNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    float dimX = 1.f;
    float dimZ = 1.f;
    int subdivX = 10;
    int subdivZ = 10;
};
