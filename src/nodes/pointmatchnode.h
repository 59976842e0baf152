// Point-Match: snaps each point onto its nearest influence point and gives it the
// velocity that makes that move in one frame.
#pragma once

#include "graph/geonode.h"

class PointMatchNode : public GeoNode {
public:
    explicit PointMatchNode(NodeMaster* master);
    QORVA_PAIR_PROCESS
    void cookPair(BodyPtr& body, const Body* second) override;

    // Moves the points of `body` onto their nearest points of `influence`.
    void match(Body& body, const Body& influence);
};
