// Attrib-Create: adds a point attribute by name, a float (scalar) or a vector.
#pragma once

#include "graph/geonode.h"

class AttribCreateNode : public GeoNode {
public:
    explicit AttribCreateNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    std::string attribName;
    int32_t attribClass = 0; // "Point" only
    int32_t attribType = 0;  // 0 scalar, 1 vector
};
