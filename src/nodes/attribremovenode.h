// Attrib-Remove: drops a point attribute by name (P stays; see PointData::removeAttrib).
#pragma once

#include "graph/geonode.h"

class AttribRemoveNode : public GeoNode {
public:
    explicit AttribRemoveNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    std::string attribName;
};
