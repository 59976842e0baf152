// Volume-Scale: multiplies one volume of a Body by a factor, optionally only where the
// second input's solid is.
#pragma once

#include "graph/geonode.h"

class VolumeScaleNode : public GeoNode {
public:
    explicit VolumeScaleNode(NodeMaster* master);
    QORVA_PAIR_PROCESS
    void cookPair(BodyPtr& body, const Body* second) override;

    // Scales the grid of kind volumeToScale of `body`, masked by the fog of the distance
    // grid of `mask` when it is given.
    void scaleVolume(Body& body, const Body* mask);

    int32_t volumeToScale = 0; // GridKind
    float scale = 1.f;
};
