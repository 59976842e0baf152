// Volume-Erode: shrinks the distance grid of the first input by a world distance, where
// the second input's solid is (or everywhere without a second input).
#pragma once

#include "graph/geonode.h"

class VolumeErodeNode : public GeoNode {
public:
    explicit VolumeErodeNode(NodeMaster* master);
    QORVA_PAIR_PROCESS
    void cookPair(BodyPtr& body, const Body* second) override;

    // Offsets the distance grid of `body` inwards by erodeAmount, under the mask made from
    // the distance grid of `mask` when it is given.
    void erode(Body& body, const Body* mask);

    float erodeAmount = 0.01f;
    bool invertMask = false;
    float sdfMaskSmoothness = 0.05f;
};
