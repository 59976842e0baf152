// Mesh-Curvature: a float point attribute `curvature`, the mean over a point's edges of
// how fast the normal turns along the edge.
#pragma once

#include "graph/geonode.h"

class MeshCurvatureNode : public GeoNode {
public:
    explicit MeshCurvatureNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;
};
