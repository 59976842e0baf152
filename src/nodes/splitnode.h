// Split: sends the points for which `splitCondition` holds through its second output and
// the rest (or, without removeFromInput, everything) through its first.
#pragma once

#include "graph/geonode.h"

class SplitNode : public GeoNode {
public:
    explicit SplitNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;

    bool splitCondition = false;
    bool removeFromInput = true;
};
