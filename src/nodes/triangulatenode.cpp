// Triangulate. A polygon of n >= 3 vertices becomes the fan (v0, vi, vi+1), i = 1..n-2;
// each triangle carries its polygon's primitive attributes and the vertex attributes of
// its three corners. Lines and polygons of fewer than three vertices are dropped. The
// result is a new Body with the same points, constraints and the triangles only.
#include "nodes/triangulatenode.h"

#include <type_traits>

namespace {

template <class A, class V> void setElem(A& a, size_t i, const V& value)
{
    a[i] = value;
}
inline void setElem(BitArray& a, size_t i, bool value)
{
    a.set(i, value);
}

} // namespace

TriangulateNode::TriangulateNode(NodeMaster* master) : GeoNode(master)
{
    setType("Triangulate");
    addInput("Geo-Input");
    addOutput("Geo-Output");
}

void TriangulateNode::cookBody(BodyPtr& body)
{
    const Body& src = *body;
    auto out = std::make_shared<Body>();
    *out->points = *src.points;
    out->pointConstraints = src.pointConstraints;
    out->edgeConstraints = src.edgeConstraints;
    out->isDynamic = src.isDynamic;
    out->wasDynamic = src.wasDynamic;

    // per triangle: its polygon and the polygon's three corners
    struct Tri {
        uint32_t prim;
        uint32_t corner[3];
    };
    std::vector<Tri> tris;
    const VertexData& sv = *src.vertices;
    for (size_t p = 0; p < sv.size(); ++p) {
        const bool isLine = p < src.prims->size() && src.prims->kinds[p] == PrimData::LINE;
        const size_t n = sv.indices[p].size();
        if (isLine || n < 3) continue;
        for (size_t i = 1; i + 1 < n; ++i) tris.push_back({uint32_t(p), {0, uint32_t(i), uint32_t(i + 1)}});
    }

    VertexData& dv = *out->vertices;
    PrimData& dp = *out->prims;
    for (const Tri& t : tris) {
        const auto& list = sv.indices[t.prim];
        dv.addVertexList({list[t.corner[0]], list[t.corner[1]], list[t.corner[2]]});
        dp.addPrim(PrimData::POLYGON);
    }

    // primitive attributes: each triangle takes its polygon's value
    const PrimData& sp = *src.prims;
    for (size_t i = 0; i < sp.names.size(); ++i) {
        dp.addAttrib(sp.names[i], sp.types[i]);
        void* dst = dp.attrib(sp.names[i]);
        if (!dst) continue;
        withItemArray(sp.types[i], dst, [&](auto& a, const auto&) {
            const auto& s = *static_cast<const std::decay_t<decltype(a)>*>(sp.pointers[i]);
            for (size_t t = 0; t < tris.size() && t < a.size(); ++t)
                if (tris[t].prim < s.size()) setElem(a, t, s[tris[t].prim]);
        });
    }
    // vertex attributes: each corner takes its polygon vertex's value
    for (size_t i = 0; i < sv.names.size(); ++i) {
        dv.addAttrib(sv.names[i], sv.types[i]);
        void* dst = dv.attrib(sv.names[i]);
        if (!dst) continue;
        withVertexArray(sv.types[i], dst, [&](auto& a, const auto&) {
            const auto& s = *static_cast<const std::decay_t<decltype(a)>*>(sv.pointers[i]);
            for (size_t t = 0; t < tris.size() && t < a.size(); ++t) {
                if (tris[t].prim >= s.size()) continue;
                const auto& from = s[tris[t].prim];
                for (size_t k = 0; k < 3 && k < a[t].size(); ++k)
                    if (tris[t].corner[k] < from.size()) setElem(a[t], k, from[tris[t].corner[k]]);
            }
        });
    }

    out->updateCounts();
    out->rebuildPointPrims();
    body = std::move(out);
}
