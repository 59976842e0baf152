// Volume-Gradient: the gradient of the first input's distance grid as a new vector grid.
#pragma once

#include "graph/geonode.h"

#include <string>

class VolumeGradientNode : public GeoNode {
public:
    explicit VolumeGradientNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    std::string volName = "grad";
    bool normalize = false;
    float scale = 1.f;
};
