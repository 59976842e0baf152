// Attrib-Rename: gives a point attribute (and a grid of the same name) a new name.
#pragma once

#include "graph/geonode.h"

class AttribRenameNode : public GeoNode {
public:
    explicit AttribRenameNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    std::string attribName;
    std::string attribNewName;
};
