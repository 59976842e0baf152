// Attrib-Scale: multiplies a numeric point attribute (int, float or vector) by a factor.
#pragma once

#include "graph/geonode.h"

class AttribScaleNode : public GeoNode {
public:
    explicit AttribScaleNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    std::string attribName_a;
    float scale = 1.f;
};
