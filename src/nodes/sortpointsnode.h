// Sort-Points: puts all channels of all points in ascending order of one attribute.
#pragma once

#include "graph/geonode.h"

#include <string>

class SortPointsNode : public GeoNode {
public:
    explicit SortPointsNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    std::string sortAttribName = "id";
};
