// Triangulate: turns every polygon into triangles; points stay, lines and grids go.
#pragma once

#include "graph/geonode.h"

class TriangulateNode : public GeoNode {
public:
    explicit TriangulateNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;
};
