// Origin: owns a new dynamic particle Body (v, Cd, age) and moves it each cook.
#pragma once

#include "graph/geonode.h"

class OriginNode : public GeoNode {
public:
    explicit OriginNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void checkDirty(DirtyResult& result, const CookCaller& caller) override;
    void reset() override;

    float forceScale = 1.f;
    BodyPtr held;
};
