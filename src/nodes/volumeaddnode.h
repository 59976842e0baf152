// Volume-Add: adds a volume of the second input to one of the first, voxel by voxel in
// world space.
#pragma once

#include "graph/geonode.h"

class VolumeAddNode : public GeoNode {
public:
    explicit VolumeAddNode(NodeMaster* master);
    QORVA_PAIR_PROCESS
    void cookPair(BodyPtr& body, const Body* second) override;

    // Adds the grid of kind volChoiceB of `other` to a copy of the grid of kind volChoiceA
    // of `body`, which replaces it. Prints and leaves `body` as it is when either grid is
    // missing or their value types differ.
    void add(Body& body, const Body* other);

    int32_t volChoiceA = 0; // GridKind
    int32_t volChoiceB = 0;
};
