// Project: the camera Body is the one point of a Camera node (P, camRotate, fov, aspect,
// overscan). Points go into the camera's space (looking down -Z), through a perspective
// with the vertical fov, and land in [0, 1] screen coordinates with the depth as z.
#include "nodes/projectnode.h"

#include "particles/xform.h"

#include <cmath>
#include <cstdio>

namespace {

bool isVectorType(int type)
{
    return type >= ATTRIB_VECTOR && type <= ATTRIB_NORMAL;
}

float floatAttrib(const PointData& pd, const char* attrName, float fallback)
{
    if (pd.attribType(attrName) != ATTRIB_FLOAT) return fallback;
    const FloatArray& a = *pd.attribAs<FloatArray>(attrName);
    return a.empty() ? fallback : a[0];
}

} // namespace

ProjectNode::ProjectNode(NodeMaster* master) : GeoNode(master)
{
    setType("Project");
    addParam(&posAttrName, "posAttrName", "Position Attribute", kParamString, "P",
             "The attribute that receives the projected position (P overwrites the positions).");
    addInput("Points-Input");
    addInput("Camera-Input", true);
    addOutput("Output");
}

void ProjectNode::cookPair(BodyPtr& body, const Body* second)
{
    if (!project(*body, second)) body = std::make_shared<Body>();
}

bool ProjectNode::project(Body& body, const Body* camera)
{
    clearError();
    auto fail = [this](const char* text) {
        setError(text);
        std::printf("%s: %s.\n", name().c_str(), text);
        return false;
    };
    if (!camera || camera->points->size() == 0) return fail("no camera at the second input");
    const PointData& cam = *camera->points;
    Vec4f rotate;
    if (isVectorType(cam.attribType("camRotate")) && !cam.attribAs<VecArray>("camRotate")->empty())
        rotate = (*cam.attribAs<VecArray>("camRotate"))[0];
    const float fov = floatAttrib(cam, "fov", 45.f);
    const float aspect = floatAttrib(cam, "aspect", 1.f);
    const float overscan = floatAttrib(cam, "overscan", 0.f);
    if (!(fov > 0.f && fov < 180.f)) return fail("the camera's field of view is out of range");
    if (!(aspect > 0.f) || !std::isfinite(aspect)) return fail("the camera's aspect ratio is invalid");
    const float frameScale = 1.f + (std::isfinite(overscan) && overscan > -1.f ? overscan : 0.f);

    const Mat4f pose = xform::compose(cam.P[0], rotate, Vec4f(1.f, 1.f, 1.f));
    Mat4f view;
    if (!xform::invert(pose, view)) return fail("the camera's transform can't be inverted");
    const float focal = 1.f / std::tan(fov * 0.5f * 3.14159265f / 180.f);

    PointData& pd = *body.points;
    VecArray* target = &pd.P;
    if (!posAttrName.empty() && posAttrName != "P") {
        const int type = pd.attribType(posAttrName);
        if (type == ATTRIB_NONE)
            pd.addAttrib(posAttrName, ATTRIB_VECTOR);
        else if (!isVectorType(type))
            return fail("the position attribute isn't a vector");
        target = pd.attribAs<VecArray>(posAttrName);
    }
    for (size_t i = 0; i < pd.size(); ++i) {
        const Vec4f q = xform::point(pd.P[i], view);
        float depth = -q.z;
        if (std::fabs(depth) < 1e-12f) depth = depth < 0.f ? -1e-12f : 1e-12f;
        const float x = q.x * focal / (aspect * depth * frameScale);
        const float y = q.y * focal / (depth * frameScale);
        Vec4f& out = (*target)[i];
        out.x = 0.5f + 0.5f * x;
        out.y = 0.5f + 0.5f * y;
        out.z = -q.z;
    }
    return true;
}
