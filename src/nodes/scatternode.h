// Scatter: fills a volume with points, either randomly at a density per voxel or one
// point at the centre of each voxel inside a level set.
#pragma once

#include "graph/geonode.h"

#include <cstdint>

class ScatterNode : public GeoNode {
public:
    explicit ScatterNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    enum Mode : int32_t { POINT_DENSITY = 0, GRID_LAYOUT = 1 };
    int32_t mode = POINT_DENSITY;
    float pointsPerVoxel = 1.f;
};
