// Particle-Mesh: particles to a smoothed mesh inside one node, on a level set with a
// narrow band of exactly three voxels, the particles' velocities riding along in a grid.
#pragma once

#include "graph/geonode.h"

class ParticleMeshNode : public GeoNode {
public:
    explicit ParticleMeshNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    float radius = 0.1f;
    float voxelSize = 0.05f;
    float dilateErodeAmount = 0.f;
    int32_t filterType = 0; // 0 Gauss, 1 Mean, 2 Median, 3 Laplace
    int32_t filterWidth = 1;
    int32_t filterIterations = 1;
    float isoValue = 0.f;
    float adaptivity = 0.05f;
    std::string attribs = "v";
};
