// Copy: each copy is scaled, then turned by the shortest rotation that takes +Z onto the
// point's orient vector, then moved to the point. Copies keep their primitive and vertex
// attributes; the words of copyAttribs name point attributes set on the whole copy.
#include "nodes/copynode.h"

#include "geo/attribops.h"
#include "particles/xform.h"

#include <cmath>
#include <sstream>
#include <type_traits>
#include <vector>

namespace {

bool isVectorType(int type)
{
    return type >= ATTRIB_VECTOR && type <= ATTRIB_NORMAL;
}

void normalise(Vec4f& n)
{
    const float len = n.length3();
    if (len > 0.f && std::isfinite(len)) {
        n.x /= len;
        n.y /= len;
        n.z /= len;
    }
}

// Pose of one copy in the row-vector convention (p' = p * M).
Mat4f copyPose(float s, const Vec4f& orient, bool oriented, const Vec4f& at)
{
    // +Z onto the orient vector; half a turn about X when it points down -Z
    const Mat3f r = oriented
                        ? xform::rotationBetween(Vec4f(0.f, 0.f, 1.f, 0.f), orient, Vec4f(1.f, 0.f, 0.f, 0.f))
                        : Mat3f();
    Mat4f m;
    for (int row = 0; row < 3; ++row)
        for (int col = 0; col < 3; ++col) m.m[row * 4 + col] = s * r.m[col * 3 + row];
    m.m[12] = at.x;
    m.m[13] = at.y;
    m.m[14] = at.z;
    return m;
}

// Appends `copy` to `out`: its points and primitives, and then the values of the
// primitive and vertex attributes that appendMesh leaves at their defaults.
void appendCopy(Body& out, const Body& copy)
{
    const size_t base = out.prims->size();
    if (copy.prims->size() == 0) {
        out.points->appendPoints(*copy.points);
        return;
    }
    out.appendMesh(copy);
    const size_t count = copy.prims->size();
    for (const auto& [attrName, array] : out.prims->attribMap) {
        const int type = out.prims->attribType(attrName);
        const void* src = copy.prims->attrib(attrName);
        if (!src || copy.prims->attribType(attrName) != type) continue;
        withItemArray(type, array, [&](auto& dst, const auto&) {
            using A = std::decay_t<decltype(dst)>;
            const A& from = *static_cast<const A*>(src);
            for (size_t k = 0; k < count && k < from.size() && base + k < dst.size(); ++k)
                copyElem(dst, base + k, from, k);
        });
    }
    for (const auto& [attrName, array] : out.vertices->attribMap) {
        const int type = out.vertices->attribType(attrName);
        const void* src = copy.vertices->attrib(attrName);
        if (!src || copy.vertices->attribType(attrName) != type) continue;
        withVertexArray(type, array, [&](auto& dst, const auto&) {
            using A = std::decay_t<decltype(dst)>;
            const A& from = *static_cast<const A*>(src);
            for (size_t k = 0; k < count && k < from.size() && base + k < dst.size(); ++k)
                dst[base + k] = from[k];
        });
    }
}

std::vector<std::string> words(const std::string& text)
{
    std::string spaced = text;
    for (char& ch : spaced)
        if (ch == ',' || ch == ';') ch = ' ';
    std::istringstream in(spaced);
    std::vector<std::string> out;
    for (std::string w; in >> w;) out.push_back(w);
    return out;
}

} // namespace

CopyNode::CopyNode(NodeMaster* master) : GeoNode(master)
{
    setType("Copy");
    addParam(&scale, "scale", "Scale", kParamFloat, "1.0", "Scale of the input object for each point.");
    addParam(&orientAttribName, "orientAttribName", "Orient Attrib Name", kParamString, "",
             "Name of the vector attribute to use for orienting the instances.");
    addParam(&copyAttribs, "copyAttribs", "Copy Attribs", kParamString, "v Cd",
             "Attributes to copy over from left input to the output.");
    addInput("Input-Object-to-Copy", true);
    addInput("Input-Points-to-Copy-to", true);
    addOutput("Output");
}

void CopyNode::cookPair(BodyPtr& body, const Body* second)
{
    body = makeCopies(*body, second);
}

BodyPtr CopyNode::makeCopies(const Body& object, const Body* targets)
{
    if (!targets || targets->points->size() == 0) return std::make_shared<Body>();
    const PointData& tp = *targets->points;
    const FloatArray* pointScale =
        tp.attribType("scale") == ATTRIB_FLOAT ? tp.attribAs<FloatArray>("scale") : nullptr;
    const VecArray* orient = nullptr;
    if (!orientAttribName.empty() && isVectorType(tp.attribType(orientAttribName)))
        orient = tp.attribAs<VecArray>(orientAttribName);

    // The object once with the carried attributes added, so every copy starts alike.
    Body proto(object);
    proto.isCached = false;
    std::vector<std::string> carried;
    for (const std::string& w : words(copyAttribs)) {
        const int type = tp.attribType(w);
        if (type == ATTRIB_NONE || w == "P") continue;
        proto.points->addAttrib(w, type);
        if (proto.points->attribType(w) == type) carried.push_back(w);
    }

    BodyPtr out;
    for (size_t i = 0; i < tp.size(); ++i) {
        const float s = scale * (pointScale && i < pointScale->size() ? (*pointScale)[i] : 1.f);
        const bool oriented = orient && i < orient->size();
        const Mat4f pose = copyPose(s, oriented ? (*orient)[i] : Vec4f(), oriented, tp.P[i]);
        Body copy(proto);
        PointData& pd = *copy.points;
        for (size_t k = 0; k < pd.size(); ++k) {
            pd.P[k] = xform::point(pd.P[k], pose);
            if (pd.hasV) pd.v[k] = xform::direction(pd.v[k], pose);
            if (pd.hasN) {
                pd.N[k] = xform::direction(pd.N[k], pose);
                normalise(pd.N[k]);
            }
            if (!carried.empty()) pd.copyPointAttribs(tp, i, k, carried);
        }
        if (copy.vertices->hasN)
            for (auto& list : copy.vertices->N)
                for (Vec4f& nv : list) {
                    nv = xform::direction(nv, pose);
                    normalise(nv);
                }
        if (!out) {
            out = std::make_shared<Body>(std::move(copy));
        } else {
            appendCopy(*out, copy);
        }
    }
    if (out->prims->size() > 0 && !object.pointPrims.empty()) out->rebuildPointPrims();
    return out;
}
