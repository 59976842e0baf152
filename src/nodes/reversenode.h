// Reverse: flips the vertex order of every primitive, turning polygon normals around.
#pragma once

#include "graph/geonode.h"

class ReverseNode : public GeoNode {
public:
    explicit ReverseNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;
};
