// Emit: adds a point to the target for every source point (with the listed attributes),
// and with a distance grid in the source, points in the grid's inside voxels.
#pragma once

#include "graph/geonode.h"

#include <string>

class EmitNode : public GeoNode {
public:
    explicit EmitNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    // Emits from `source` into `target`; the number of points added.
    size_t emit(Body& target, const BodyPtr& source);

    int32_t oversample = 1;
    std::string copyAttribs = "v Cd";
    float velScale = 1.f;
    float pointSize = 0.05f;
};
