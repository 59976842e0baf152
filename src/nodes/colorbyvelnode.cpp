#include "nodes/colorbyvelnode.h"

#include "geo/attribtypes.h"

#include <algorithm>
#include <cmath>

ColorByVelNode::ColorByVelNode(NodeMaster* master) : GeoNode(master)
{
    setType("Color-By-Vel");
    addEnum(&mode, "mode", "Mode", {"Blue", "Heat"}, "Blue");
    addParam(&maxVel, "maxVel", "Max Velocity", kParamFloat, "1");
    addInput("Input-Points");
    addOutput("Output");
}

Vec4f ColorByVelNode::colorOf(float s, int m, float maxV)
{
    if (m == 0) {
        if (s > maxV) return Vec4f(0.9f, 0.95f, 1.f, 0.f);
        const float t = s / maxV;
        return Vec4f(0.5f * t, 0.8f * t, 1.f, 0.f);
    }
    const float t = std::clamp(s / maxV, 0.f, 1.f);
    const float u = 1.f - t;
    const float w = 2.f * u;
    Vec4f c = u <= 0.5f ? Vec4f(1.f - w, w, 0.f, 0.f) : Vec4f(0.f, 1.f - (w - 1.f), w - 1.f, 0.f);
    // one of 256 steps per channel, as an 8-bit colour would hold it
    c.x = std::floor(c.x * 255.f + 0.5f) / 255.f;
    c.y = std::floor(c.y * 255.f + 0.5f) / 255.f;
    c.z = std::floor(c.z * 255.f + 0.5f) / 255.f;
    return c;
}

void ColorByVelNode::cookBody(BodyPtr& body)
{
    PointData& pts = *body->points;
    if (!pts.hasV) return;
    pts.addAttrib("Cd", ATTRIB_COLOR);
    for (size_t i = 0; i < pts.size(); ++i) {
        const Vec4f& v = pts.v[i];
        pts.Cd[i] = colorOf(std::sqrt(v.x * v.x + v.y * v.y + v.z * v.z), mode, maxVel);
    }
}
