// Mesh-to-Volume: a level set (or fog volume) of the input's triangles and quads, with
// optional attribute grids; a shell mode for open surfaces.
#pragma once

#include "graph/geonode.h"

class MeshToVolumeNode : public GeoNode {
public:
    explicit MeshToVolumeNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;
    void reset() override;

    float voxelSize = 0.1f;
    bool makeFog = false;
    bool invert = false;
    float sdfInnerBand = 3.f;
    float sdfOuterBand = 3.f;
    float sdfPushOut = 0.f;
    float velocityScale = 1.f;
    bool sdfUpdateSubframes = false;
    std::string attribs;
    bool shell = false;
    float shellThickness = 0.05f;

    BodyPtr lastVolume; // the last whole frame's result, kept for subframes
    float lastVolumeTime = -9999.f;
};
