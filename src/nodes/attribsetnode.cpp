// Attrib-Set. A scalar goes into a float or int attribute (ints round to the nearest
// whole number), a vector into x, y and z of a vector attribute (w stays). A missing
// attribute is made: float for a scalar, vector for a vector. With a distance grid
// ("distance" or "surface") on the "SDF-Volume" input, each point's weight w comes from
// the distance at its position, and the new value is old * (1 - w) + value * w.
#include "nodes/attribsetnode.h"

#include "geo/attribtypes.h"
#include "geo/gridutil.h"
#include "graph/plug.h"

#include <openvdb/openvdb.h>
#include <openvdb/tools/Interpolation.h>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

AttribSetNode::AttribSetNode(NodeMaster* master) : GeoNode(master)
{
    setType("Attrib-Set");
    addParam(&attribName, "attribName", "Name", kParamString, "", "The name of the attribute.");
    addEnum(&attribType, "attribType", "Type", {"Scalar", "Vector"}, "Scalar",
            "What kind of attribute to create. 0 is a scalar, 1 is a vector.");
    addParam(&x, "x", "Set Value X", kParamFloat, "0", "The new x value of the attribute.");
    addParam(&y, "y", "Set Value Y", kParamFloat, "0", "The new y value of the attribute.");
    addParam(&z, "z", "Set Value Z", kParamFloat, "0", "The new z value of the attribute.");
    addParam(&falloff, "falloff", "Distance Mask Falloff", kParamFloat, "0",
             "Fadeout the sdf volumes influence.");
    addInput("Input-Points");
    addInput("SDF-Volume", true); // only read
    addOutput("Output");
}

void AttribSetNode::cookPair(BodyPtr& body, const Body* second)
{
    const Plug* maskPlug = inputPlug(1);
    apply(*body, second, maskPlug && maskPlug->sourceNode());
}

namespace {

// old * (1 - k) + value * k, exact at both ends.
float blend(float old, float value, float k)
{
    if (k >= 1.f) return value;
    if (k <= 0.f) return old;
    return old * (1.f - k) + value * k;
}

} // namespace

float AttribSetNode::maskWeight(float sdf, float falloff)
{
    if (std::isnan(sdf)) return 0.f;
    if (sdf <= 0.f) return 1.f;
    if (!(falloff > 0.f) || sdf >= falloff) return 0.f;
    return 1.f - sdf / falloff;
}

void AttribSetNode::apply(Body& body, const Body* mask, bool maskWired)
{
    if (attribName.empty()) return;
    PointData& pts = *body.points;
    const size_t n = pts.size();
    const bool vector = attribType == 1;

    openvdb::FloatGrid::ConstPtr sdf;
    if (maskWired) {
        GridBasePtr base = mask ? findGrid(*mask->volumes, {"distance", "surface"}) : nullptr;
        sdf = base ? openvdb::GridBase::constGrid<openvdb::FloatGrid>(base) : nullptr;
        if (!sdf) {
            std::printf("%s: the SDF-Volume input has no distance grid.\n", name().c_str());
            return;
        }
    }

    int type = pts.attribType(attribName);
    if (type == ATTRIB_NONE) {
        const bool builtin =
            attribName == "P" || attribName == "v" || attribName == "Cd" || attribName == "N";
        if (builtin && !vector) {
            std::printf("%s: attribute %s can't hold a scalar.\n", name().c_str(), attribName.c_str());
            return;
        }
        pts.addAttrib(attribName, vector ? ATTRIB_VECTOR : ATTRIB_FLOAT);
        type = pts.attribType(attribName);
    }
    const bool fitsVector = type >= ATTRIB_VECTOR && type <= ATTRIB_NORMAL;
    const bool fitsScalar = type == ATTRIB_FLOAT || type == ATTRIB_INT;
    if (vector ? !fitsVector : !fitsScalar) {
        std::printf("%s: attribute %s isn't a %s.\n", name().c_str(), attribName.c_str(),
                    vector ? "vector" : "scalar");
        return;
    }
    if (n == 0) return;

    // weights: 1 everywhere without a mask
    std::vector<float> weight;
    if (sdf) {
        weight.resize(n);
        tbb::parallel_for(tbb::blocked_range<size_t>(0, n, 1024), [&](const tbb::blocked_range<size_t>& r) {
            openvdb::FloatGrid::ConstAccessor acc = sdf->getConstAccessor();
            openvdb::tools::GridSampler<openvdb::FloatGrid::ConstAccessor, openvdb::tools::BoxSampler>
                sampler(acc, sdf->transform());
            for (size_t i = r.begin(); i != r.end(); ++i) {
                const Vec4f& p = pts.P[i];
                const bool finite = std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
                weight[i] =
                    finite ? maskWeight(sampler.wsSample(openvdb::Vec3R(p.x, p.y, p.z)), falloff) : 0.f;
            }
        });
    }
    auto w = [&](size_t i) { return weight.empty() ? 1.f : weight[i]; };

    void* array = pts.attrib(attribName);
    if (vector) {
        VecArray& a = *static_cast<VecArray*>(array);
        for (size_t i = 0; i < n; ++i) {
            const float k = w(i);
            a[i] = Vec4f(blend(a[i].x, x, k), blend(a[i].y, y, k), blend(a[i].z, z, k), a[i].w);
        }
    } else if (type == ATTRIB_FLOAT) {
        FloatArray& a = *static_cast<FloatArray*>(array);
        for (size_t i = 0; i < n; ++i) a[i] = blend(a[i], x, w(i));
    } else {
        IntArray& a = *static_cast<IntArray*>(array);
        for (size_t i = 0; i < n; ++i) {
            const double v = std::round(double(blend(float(a[i]), x, w(i))));
            if (!std::isnan(v)) a[i] = int32_t(std::clamp(v, -2147483648.0, 2147483647.0));
        }
    }
}
