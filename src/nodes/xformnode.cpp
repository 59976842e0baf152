// Transform: P as points, v as directions, N (point and vertex) as normals through the
// inverse transpose. The velocity from animation compares the matrix of this frame with
// the one of the frame before, both applied to the incoming positions.
#include "nodes/xformnode.h"

#include "graph/nodemaster.h"
#include "particles/xform.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <cmath>
#include <cstdio>

namespace {

void normalise(Vec4f& n)
{
    const float len = n.length3();
    if (len > 0.f && std::isfinite(len)) {
        n.x /= len;
        n.y /= len;
        n.z /= len;
    }
}

} // namespace

XformNode::XformNode(NodeMaster* master) : GeoNode(master)
{
    setType("Transform");
    addParam(&translateX, "translateX", "Translate X", kParamFloat, "0");
    addParam(&translateY, "translateY", "Translate Y", kParamFloat, "0");
    addParam(&translateZ, "translateZ", "Translate Z", kParamFloat, "0");
    addParam(&rotateX, "rotateX", "Rotate X", kParamFloat, "0");
    addParam(&rotateY, "rotateY", "Rotate Y", kParamFloat, "0");
    addParam(&rotateZ, "rotateZ", "Rotate Z", kParamFloat, "0");
    addParam(&scaleX, "scaleX", "Scale X", kParamFloat, "1.0");
    addParam(&scaleY, "scaleY", "Scale Y", kParamFloat, "1.0");
    addParam(&scaleZ, "scaleZ", "Scale Z", kParamFloat, "1.0");
    addParam(&unifScale, "unifScale", "Uniform Scale", kParamFloat, "1.0");
    addParam(&inverse, "inverse", "Inverse Transform", kParamBool, "false");
    addParam(&calcVelFromAnims, "calcVelFromAnims", "Calculate Velocity from Anims", kParamBool, "false");
    addParam(&quatInterpol, "quatInterpol", "Use Quaternions", kParamBool, "false",
             "Enable or disable quaternion interpolation for the rotation values above.");
    addInput("Input-Geo");
    addOutput("Output-Geo");
}

bool XformNode::currentMatrix(Mat4f& out) const
{
    const Mat4f m =
        xform::compose(Vec4f(translateX, translateY, translateZ), Vec4f(rotateX, rotateY, rotateZ),
                       Vec4f(scaleX * unifScale, scaleY * unifScale, scaleZ * unifScale));
    if (!inverse) {
        out = m;
        return true;
    }
    return xform::invert(m, out);
}

void XformNode::cookBody(BodyPtr& body)
{
    // The rows were evaluated before the flag was known; blend the rotation keys now.
    if (params.quaternionRotation != quatInterpol) {
        params.quaternionRotation = quatInterpol;
        params.evaluateAll(context.time, 0);
    }
    Mat4f m;
    if (!currentMatrix(m)) {
        setError("the transform can't be inverted");
        std::printf("%s: the transform can't be inverted.\n", name().c_str());
        body = std::make_shared<Body>();
        return;
    }
    Mat4f before;
    bool haveBefore = false;
    if (calcVelFromAnims) {
        params.evaluateAll(context.time - 1.f, 0);
        haveBefore = currentMatrix(before);
        params.evaluateAll(context.time, 0);
    }
    clearError();
    Mat4f normalMap; // inverse of m, read through xform::gradient
    const bool haveNormalMap = xform::invert(m, normalMap);

    PointData& pd = *body->points;
    const size_t n = pd.size();
    if (haveBefore && !pd.hasV) pd.addAttrib("v", ATTRIB_VELOCITY);
    const float fps = nodeMaster ? nodeMaster->fps() : 24.f;
    tbb::parallel_for(tbb::blocked_range<size_t>(0, n, 4096), [&](const tbb::blocked_range<size_t>& range) {
        for (size_t i = range.begin(); i < range.end(); ++i) {
            const Vec4f p0 = pd.P[i];
            pd.P[i] = xform::point(p0, m);
            if (pd.hasV && i < pd.v.size()) {
                if (haveBefore) {
                    Vec4f vel = (pd.P[i] - xform::point(p0, before)) * fps;
                    vel.w = pd.v[i].w;
                    pd.v[i] = vel;
                } else {
                    pd.v[i] = xform::direction(pd.v[i], m);
                }
            }
            if (pd.hasN && haveNormalMap && i < pd.N.size()) {
                pd.N[i] = xform::gradient(pd.N[i], normalMap);
                normalise(pd.N[i]);
            }
        }
    });
    VertexData& vd = *body->vertices;
    if (vd.hasN && haveNormalMap)
        for (auto& list : vd.N)
            for (Vec4f& nv : list) {
                nv = xform::gradient(nv, normalMap);
                normalise(nv);
            }
}
