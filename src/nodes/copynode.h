// Copy: places a copy of the left input at every point of the right input, scaled,
// oriented by a vector attribute, and carrying chosen attributes of its point.
#pragma once

#include "graph/geonode.h"

#include <string>

class CopyNode : public GeoNode {
public:
    explicit CopyNode(NodeMaster* master);
    QORVA_PAIR_PROCESS
    void cookPair(BodyPtr& body, const Body* second) override;

    float scale = 1.f;
    std::string orientAttribName;
    std::string copyAttribs = "v Cd";

    // The copies of `object` at the points of `targets` (an empty Body without targets).
    BodyPtr makeCopies(const Body& object, const Body* targets);
};
