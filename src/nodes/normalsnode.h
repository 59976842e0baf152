// Normals: point normals N from the faces of the incoming mesh.
#pragma once

#include "graph/geonode.h"

class NormalsNode : public GeoNode {
public:
    explicit NormalsNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override { body->computeNormals(false); }
};
