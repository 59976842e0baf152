// Merge: joins the geometry of all its inputs into one Body, pulling the inputs in
// parallel.
#pragma once

#include "graph/geonode.h"

class MergeNode : public GeoNode {
public:
    explicit MergeNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;

    int numInputs = 2; // input plugs the node was made with
};
