// Particle-to-Volume: rasterises the input points into a level set (or a fog volume) with
// optional attribute grids; the points themselves are not passed on.
#pragma once

#include "graph/geonode.h"

class ParticleToVolumeNode : public GeoNode {
public:
    explicit ParticleToVolumeNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    float radius = 0.15f;
    float voxelSize = 0.1f;
    bool makeFog = false;
    bool invert = false;
    int32_t sdfBand = 1;
    std::string scaleByAttrib = "scale";
    std::string attribs;
};
