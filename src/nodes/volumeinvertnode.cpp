#include "nodes/volumeinvertnode.h"

#include "nodes/levelsetops.h"

#include <cstdio>

VolumeInvertNode::VolumeInvertNode(NodeMaster* master) : GeoNode(master)
{
    setType("Volume-Invert");
    addInput("Volume-SDF");
    addOutput("Output");
}

void VolumeInvertNode::cookBody(BodyPtr& body)
{
    GridBasePtr distance = findDistanceGrid(*body->volumes);
    if (!distance) {
        std::printf("%s: volume doesn't have sdf.\n", name().c_str());
        return;
    }
    if (invertGrid(distance) != 0) std::printf("%s: the volume can't be inverted.\n", name().c_str());
}
