// Voldomain: the world box around the active voxels of all grids of a Body, as a closed
// mesh of six quads.
#pragma once

#include "graph/geonode.h"

class VolDomainNode : public GeoNode {
public:
    explicit VolDomainNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;
};
