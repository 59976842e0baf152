#include "nodes/volumeaddnode.h"

#include "geo/gridutil.h"
#include "nodes/levelsetops.h"
#include "nodes/volumeops.h"

#include <algorithm>
#include <cstdio>
#include <string>
#include <vector>

namespace {

GridKind menuKind(int32_t choice)
{
    return GridKind(std::clamp(choice, int32_t(0), int32_t(3)));
}

} // namespace

VolumeAddNode::VolumeAddNode(NodeMaster* master) : GeoNode(master)
{
    setType("Volume-Add");
    addEnum(&volChoiceA, "volChoiceA", "Add to Volume", volumeKindMenu(), "Density",
            "Choose to which volume to add to.");
    addEnum(&volChoiceB, "volChoiceB", "Add from Volume", volumeKindMenu(), "Density",
            "Choose which volume to add to the left input.");
    addInput("Volume-Input");
    addInput("Volume-Input");
    addOutput("Output");
}

void VolumeAddNode::cookPair(BodyPtr& body, const Body* second)
{
    add(*body, second);
}

void VolumeAddNode::add(Body& body, const Body* other)
{
    std::string key;
    GridBasePtr a = findGridKind(*body.volumes, menuKind(volChoiceA), &key);
    if (!a) {
        std::printf("%s: the volume to add to doesn't exist.\n", name().c_str());
        return;
    }
    GridBasePtr b = other ? findGridKind(*other->volumes, menuKind(volChoiceB)) : nullptr;
    if (!b) {
        std::printf("%s: the volume to add from doesn't exist.\n", name().c_str());
        return;
    }
    GridBasePtr sum = deepCopyGrid(a);
    if (addGridInto(sum, b) != 0) {
        std::printf("%s: volumes of different value types can't be added.\n", name().c_str());
        return;
    }
    storeGrid(*body.volumes, key, sum);
}
