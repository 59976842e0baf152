// Volume-Union, Volume-Difference and Volume-Intersection: the level-set CSG of the distance
// grids of two inputs. VolumeCsgNode does the work; the three node types only pick the
// operation.
#pragma once

#include "graph/geonode.h"
#include "nodes/volumeops.h"

class VolumeCsgNode : public GeoNode {
public:
    VolumeCsgNode(NodeMaster* master, CsgOperation operation);
    QORVA_PAIR_PROCESS
    void cookPair(BodyPtr& body, const Body* second) override;

    // Replaces the distance grid of `body` by its combination with the distance grid of
    // `other`. Prints and leaves `body` as it is when either has none.
    void combine(Body& body, const Body* other);

    CsgOperation operation;
    bool fast = true;
};

class VolumeUnionNode : public VolumeCsgNode {
public:
    explicit VolumeUnionNode(NodeMaster* master);
};

class VolumeDifferenceNode : public VolumeCsgNode {
public:
    explicit VolumeDifferenceNode(NodeMaster* master);
};

class VolumeIntersectionNode : public VolumeCsgNode {
public:
    explicit VolumeIntersectionNode(NodeMaster* master);
};
