// Switch: passes on one of its inputs, chosen by number. Only the chosen input is
// checked for changes and cooked.
#pragma once

#include "graph/geonode.h"

class SwitchNode : public GeoNode {
public:
    explicit SwitchNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void checkDirty(DirtyResult& result, const CookCaller& caller) override;

    int input = 0;

    // The input followed now: `input` clamped to the plugs there are, 0 when disabled,
    // -1 without inputs.
    int chosenInput() const;
};
