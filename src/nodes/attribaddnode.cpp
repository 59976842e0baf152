// Attrib-Add: both attributes must be of one kind: int, float or a vector type (4 to 8,
// any mix of them). Vectors add x, y and z and keep the left side's w; ints add the scaled
// value and drop the fraction, as Attrib-Scale does. Points past the shorter input keep
// their values.
#include "nodes/attribaddnode.h"

#include "geo/attribtypes.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>

namespace {

// The float as an int32, toward zero; out-of-range values stop at the ends.
int32_t toInt(float f)
{
    if (std::isnan(f)) return 0;
    if (f >= 2147483648.f) return std::numeric_limits<int32_t>::max();
    if (f < -2147483648.f) return std::numeric_limits<int32_t>::min();
    return int32_t(f);
}

// 0 int, 1 float, 2 vector; -1 for any other kind.
int numericKind(int type)
{
    if (type == ATTRIB_INT) return 0;
    if (type == ATTRIB_FLOAT) return 1;
    if (type >= ATTRIB_VECTOR && type <= ATTRIB_NORMAL) return 2;
    return -1;
}

} // namespace

AttribAddNode::AttribAddNode(NodeMaster* master) : GeoNode(master)
{
    setType("Attrib-Add");
    addParam(&attrib_a, "attrib_a", "Attrib A", kParamString, "",
             "The name of the attribute in the left input.");
    addParam(&attrib_b, "attrib_b", "Attrib B", kParamString, "",
             "The name of the attribute in the right input.");
    addParam(&scale, "scale", "Scale", kParamFloat, "1.0", "Scaling of the attribute.");
    addInput("Input-Points A");
    addInput("Input-Points B", true); // only read
    addOutput("Output");
}

void AttribAddNode::cookPair(BodyPtr& body, const Body* second)
{
    if (second) add(*body, *second);
}

void AttribAddNode::add(Body& a, const Body& b) const
{
    PointData& pa = *a.points;
    const PointData& pb = *b.points;
    void* arrayA = pa.attrib(attrib_a);
    if (!arrayA) {
        std::printf("%s: attribute %s doesn't exist.\n", name().c_str(), attrib_a.c_str());
        return;
    }
    const void* arrayB = pb.attrib(attrib_b);
    if (!arrayB) {
        std::printf("%s: attribute %s doesn't exist.\n", name().c_str(), attrib_b.c_str());
        return;
    }
    const int kind = numericKind(pa.attribType(attrib_a));
    if (kind < 0 || kind != numericKind(pb.attribType(attrib_b))) {
        std::printf("%s: attributes %s and %s can't be added.\n", name().c_str(), attrib_a.c_str(),
                    attrib_b.c_str());
        return;
    }
    const size_t n = std::min(pa.size(), pb.size());
    if (kind == 0) {
        IntArray& dst = *static_cast<IntArray*>(arrayA);
        const IntArray& src = *static_cast<const IntArray*>(arrayB);
        for (size_t i = 0; i < n; ++i) dst[i] = toInt(float(dst[i]) + float(src[i]) * scale);
    } else if (kind == 1) {
        FloatArray& dst = *static_cast<FloatArray*>(arrayA);
        const FloatArray& src = *static_cast<const FloatArray*>(arrayB);
        for (size_t i = 0; i < n; ++i) dst[i] += src[i] * scale;
    } else {
        VecArray& dst = *static_cast<VecArray*>(arrayA);
        const VecArray& src = *static_cast<const VecArray*>(arrayB);
        for (size_t i = 0; i < n; ++i) {
            dst[i].x += src[i].x * scale;
            dst[i].y += src[i].y * scale;
            dst[i].z += src[i].z * scale;
        }
    }
}
