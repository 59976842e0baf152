// Timeshift: cooks its input at another frame than the one asked for, so a branch of
// the graph can show an earlier, later or frozen state.
#pragma once

#include "graph/geonode.h"

class TimeshiftNode : public GeoNode {
public:
    explicit TimeshiftNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void checkDirty(DirtyResult& result, const CookCaller& caller) override;

    float frame = 0.f;

    // The time the input is pulled at for a request at `time`.
    float shiftedTime(float time) const;
};
