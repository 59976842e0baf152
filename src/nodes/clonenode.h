// Clone: branches a dynamic stream: "Output-Dynamic" hands on the running input itself,
// "Output-Static" a static copy of it, both from one pull per time.
#pragma once

#include "graph/geonode.h"

class CloneNode : public GeoNode {
public:
    explicit CloneNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void reset() override;

    BodyPtr input;      // the input as pulled at `stamp`
    BodyPtr staticCopy; // its copy with isDynamic off and wasDynamic on
    float stamp = -99999.f;
};
