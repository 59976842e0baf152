// Volume-Sample: reads a grid of the second input at the points of the first into a point
// attribute.
#pragma once

#include "graph/geonode.h"

#include <string>

class VolumeSampleNode : public GeoNode {
public:
    explicit VolumeSampleNode(NodeMaster* master);
    QORVA_PAIR_PROCESS
    void cookPair(BodyPtr& body, const Body* second) override;

    // Samples the grid volumeName of `volume` at the points of `points` into attribName.
    // Prints and leaves the points as they are when the grid or the attribute don't fit.
    void sample(Body& points, const Body* volume);

    std::string volumeName = "velocity";
    std::string attribName;
    float multiplier = 1.f;
    int32_t mode = 0;  // Set, Add, Max
    int32_t limit = 0; // None, Inside Smoke, Inside Solid
};
