// Line: a polyline of evenly spaced points from the origin up the y axis.
#pragma once

#include "graph/geonode.h"

class LineNode : public GeoNode {
public:
    explicit LineNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    float length = 1.f;
    int numPoints = 10;
};
