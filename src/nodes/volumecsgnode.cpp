// The CSG nodes: the first input's distance grid, copied, takes the union, difference or
// intersection with the second's (resampled into the first's transform when they differ)
// and goes back under its own name; everything else of the first input stays, nothing of
// the second is kept. Without `fast` the result is rebuilt as a clean level set with half
// widths of three voxels.
#include "nodes/volumecsgnode.h"

#include "nodes/levelsetops.h"

#include <cstdio>
#include <string>
#include <vector>

VolumeCsgNode::VolumeCsgNode(NodeMaster* master, CsgOperation op) : GeoNode(master), operation(op)
{
    addParam(&fast, "fast", "Fast Mode", kParamBool, "true",
             "Turn off for additional checks of the resulting volume.");
    addInput("Volume-1");
    addInput("Volume-2");
    addOutput("Output");
}

void VolumeCsgNode::cookPair(BodyPtr& body, const Body* second)
{
    combine(*body, second);
}

void VolumeCsgNode::combine(Body& body, const Body* other)
{
    std::string key;
    GridBasePtr a = findDistanceGrid(*body.volumes, &key);
    if (!a) {
        std::printf("volume doesn't have sdf.\n");
        return;
    }
    GridBasePtr b = other ? findDistanceGrid(*other->volumes) : nullptr;
    if (!b) {
        std::printf("volume B doesn't have sdf.\n");
        return;
    }
    GridBasePtr combined = csgLevelSets(a, b, operation, !fast);
    if (!combined) {
        std::printf("%s: the volumes can't be combined as level sets.\n", name().c_str());
        return;
    }
    storeGrid(*body.volumes, key, combined);
}

VolumeUnionNode::VolumeUnionNode(NodeMaster* master) : VolumeCsgNode(master, CsgOperation::Union)
{
    setType("Volume-Union");
}

VolumeDifferenceNode::VolumeDifferenceNode(NodeMaster* master)
    : VolumeCsgNode(master, CsgOperation::Difference)
{
    setType("Volume-Difference");
}

VolumeIntersectionNode::VolumeIntersectionNode(NodeMaster* master)
    : VolumeCsgNode(master, CsgOperation::Intersection)
{
    setType("Volume-Intersection");
}
