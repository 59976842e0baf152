#include "nodes/attribscalenode.h"

#include "geo/attribtypes.h"

#include <cstdio>

AttribScaleNode::AttribScaleNode(NodeMaster* master) : GeoNode(master)
{
    setType("Attrib-Scale");
    addParam(&attribName_a, "attribName_a", "Attrib To Scale", kParamString, "",
             "The name of the attribute in the left input.");
    addParam(&scale, "scale", "Scale", kParamFloat, "1.0", "Scaling of the attribute.");
    addInput("Input-Points A");
    addOutput("Output");
}

void AttribScaleNode::cookBody(BodyPtr& body)
{
    PointData& pts = *body->points;
    const int type = pts.attribType(attribName_a);
    void* array = pts.attrib(attribName_a);
    if (!array) {
        std::printf("%s: attribute %s doesn't exist.\n", name().c_str(), attribName_a.c_str());
        return;
    }
    if (type == ATTRIB_FLOAT) {
        for (float& f : *static_cast<FloatArray*>(array)) f *= scale;
    } else if (type == ATTRIB_INT) {
        for (int32_t& i : *static_cast<IntArray*>(array)) i = int32_t(float(i) * scale);
    } else if (type >= ATTRIB_VECTOR && type <= ATTRIB_NORMAL) {
        for (Vec4f& v : *static_cast<VecArray*>(array)) {
            v.x *= scale;
            v.y *= scale;
            v.z *= scale;
        }
    }
}
