// Volume-Resample: brings the distance, density, velocity, temperature and fuel grids of a
// Body to a new voxel size.
#pragma once

#include "graph/geonode.h"

class VolumeResampleNode : public GeoNode {
public:
    explicit VolumeResampleNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    float voxelSize = 0.1f;
};
