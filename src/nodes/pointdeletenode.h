// Point-Delete: removes points chosen by a list of indices, by a mask volume (an SDF
// grid "distance" or "surface" on the second input) and by its `enabled` row, which may
// be a per-point formula restricting the deletion to the points where it is true.
#pragma once

#include "graph/geonode.h"

#include <string>

class PointDeleteNode : public GeoNode {
public:
    explicit PointDeleteNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;

    bool invertVolume = false;
    float proximity = 0.f;
    std::string indices;

private:
    // The work itself; false (with the error set) when the indices don't read.
    bool deletePoints(const BodyPtr& body, const BodyPtr& mask, bool perPointEnabled);
};
