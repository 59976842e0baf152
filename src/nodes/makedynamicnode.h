// Make-Dynamic: turns a static input into a running dynamic Body that the node holds and
// moves by its velocities from cook to cook.
#pragma once

#include "graph/geonode.h"

class MakeDynamicNode : public GeoNode {
public:
    explicit MakeDynamicNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void checkDirty(DirtyResult& result, const CookCaller& caller) override;
    void reset() override;

    bool setDynamic = false;
    BodyPtr held;
};
