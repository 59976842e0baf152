// The gradient grid goes into the first input's Body under volName: covariant, or with
// `normalize` unit length and covariant-normalize, times `scale`. The second plug
// ("Velocity-Volume") is not read.
#include "nodes/volumegradientnode.h"

#include "geo/attribtypes.h"
#include "nodes/levelsetops.h"
#include "nodes/volumeops.h"

#include <cstdio>

VolumeGradientNode::VolumeGradientNode(NodeMaster* master) : GeoNode(master)
{
    setType("Volume-Gradient");
    addParam(&volName, "volName", "Output Volume Name", kParamString, "grad",
             "The name of the new vector field to output.");
    addParam(&normalize, "normalize", "Normalize Output", kParamBool, "false",
             "Turn on to output as a normalized volume.");
    addParam(&scale, "scale", "Scale", kParamFloat, "1.0", "Scales the result.");
    addInput("Distance-Volume");
    addInput("Velocity-Volume");
    addOutput("Output");
}

void VolumeGradientNode::cookBody(BodyPtr& body)
{
    GridBasePtr distance = findDistanceGrid(*body->volumes);
    if (!distance) {
        std::printf("%s: volume doesn't have sdf.\n", name().c_str());
        return;
    }
    if (volName.empty()) {
        std::printf("%s: no output volume name given.\n", name().c_str());
        return;
    }
    const int type = storeGrid(*body->volumes, volName, gradientGrid(distance, normalize, scale, volName));
    if (type < 0) {
        std::printf("%s: the gradient can't be computed.\n", name().c_str());
        return;
    }
    if (type == VOLUME_VEC3_UNKNOWN) std::printf("warning: vector type ambigious.\n");
}
