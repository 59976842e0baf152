// Volume-Invert: negates every value of the distance grid, turning the solid inside out.
#pragma once

#include "graph/geonode.h"

class VolumeInvertNode : public GeoNode {
public:
    explicit VolumeInvertNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;
};
