// Volume-to-Mesh: the surface of a Body's distance (or density) grid as a polygon mesh.
#pragma once

#include "graph/geonode.h"

#include <string>

class VolumeToMeshNode : public GeoNode {
public:
    explicit VolumeToMeshNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    float isoValue = 0.f;
    float adaptivity = 0.05f;
    std::string attribs = "v uv";
};
