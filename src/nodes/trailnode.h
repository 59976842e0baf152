// Trail: merges the input as it was over the last frames, optionally at substeps, into
// one Body: a motion trail of points or meshes.
#pragma once

#include "graph/geonode.h"

class TrailNode : public GeoNode {
public:
    explicit TrailNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;

    int32_t frames = 5;
    int32_t substeps = 1;
};
