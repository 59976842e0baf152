// End-Dynamic: hands out a static copy of the running Body, the end of a dynamic chain.
#pragma once

#include "graph/geonode.h"

class EndDynamicNode : public GeoNode {
public:
    explicit EndDynamicNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;
    void checkDirty(DirtyResult& result, const CookCaller& caller) override;
};
