// Project: projects points through the camera at its second input into screen space:
// x and y from 0 to 1 across the frame, and the depth in front of the camera.
#pragma once

#include "graph/geonode.h"

#include <string>

class ProjectNode : public GeoNode {
public:
    explicit ProjectNode(NodeMaster* master);
    QORVA_PAIR_PROCESS
    void cookPair(BodyPtr& body, const Body* second) override;

    std::string posAttrName = "P";

    // Projects the points of `body` in place; false (with the error set) when the camera
    // can't be used.
    bool project(Body& body, const Body* camera);
};
