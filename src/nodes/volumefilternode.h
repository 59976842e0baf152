// Volume-Filter: smooths the distance grid of the first input, where the second input's
// solid is when one is connected.
#pragma once

#include "graph/geonode.h"

class VolumeFilterNode : public GeoNode {
public:
    explicit VolumeFilterNode(NodeMaster* master);
    QORVA_PAIR_PROCESS
    void cookPair(BodyPtr& body, const Body* second) override;

    // Filters the distance grid of `body` with the node's rows; the distance grid of
    // `mask`, turned into a 0..1 fog, limits the filter when given.
    void filter(Body& body, const Body* mask);

    float filterStrength = 0.3f;
    int32_t filterType = 0; // Gauss, Mean, Median, Laplace
    int filterWidth = 1;
    int filterIterations = 1;
};
