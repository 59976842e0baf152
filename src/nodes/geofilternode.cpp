// Geo-Filter and the shared compaction helpers: points, primitives and grids are dropped
// by the four switches; vertex uv moves onto the points when primitives go, so that a
// point cloud made from a mesh keeps its texture coordinates.
#include "nodes/geofilternode.h"

#include <algorithm>
#include <type_traits>

namespace {

// New array out[i] = a[order[i]], default where order points past the end.
template <class A, class D> void gatherArray(A& a, const std::vector<uint32_t>& order, const D& def)
{
    A out;
    for (uint32_t i : order) {
        if (i < a.size())
            out.push_back(a[i]);
        else
            out.push_back(def);
    }
    a = std::move(out);
}

} // namespace

void gatherPoints(PointData& points, const std::vector<uint32_t>& order)
{
    for (size_t i = 0; i < points.pointers.size(); ++i)
        withPointArray(points.types[i], points.pointers[i],
                       [&](auto& a, const auto& def) { gatherArray(a, order, def); });
}

void keepPrims(Body& body, const std::vector<char>& keep)
{
    const size_t count = body.vertices->size();
    std::vector<uint32_t> order;
    for (size_t p = 0; p < count; ++p)
        if (p >= keep.size() || keep[p]) order.push_back(uint32_t(p));
    if (order.size() == count && body.prims->size() == count) return;

    VertexData& vd = *body.vertices;
    for (size_t i = 0; i < vd.pointers.size(); ++i)
        withVertexArray(vd.types[i], vd.pointers[i], [&](auto& a, const auto&) {
            using Inner = typename std::decay_t<decltype(a)>::value_type;
            gatherArray(a, order, Inner());
        });
    gatherArray(vd.indices, order, std::vector<uint32_t>());

    PrimData& pd = *body.prims;
    gatherArray(pd.kinds, order, uint32_t(PrimData::POLYGON));
    for (size_t i = 0; i < pd.pointers.size(); ++i)
        withItemArray(pd.types[i], pd.pointers[i],
                      [&](auto& a, const auto& def) { gatherArray(a, order, def); });
    body.updateCounts();
    if (!body.pointPrims.empty()) body.rebuildPointPrims();
}

void remapPointIndices(Body& body, const std::vector<int64_t>& newIndex)
{
    auto mapped = [&](uint32_t i) { return i < newIndex.size() ? newIndex[i] : int64_t(-1); };

    // primitives touching a dropped point go, the rest are renumbered
    std::vector<char> keep(body.vertices->size(), 1);
    bool anyDropped = false;
    for (size_t p = 0; p < keep.size(); ++p)
        for (uint32_t i : body.vertices->indices[p])
            if (mapped(i) < 0) {
                keep[p] = 0;
                anyDropped = true;
                break;
            }
    if (anyDropped) keepPrims(body, keep);
    for (auto& list : body.vertices->indices)
        for (uint32_t& i : list) i = uint32_t(mapped(i));

    for (auto* list : {&body.pointConstraints, &body.edgeConstraints}) {
        std::vector<ConstraintRecord> out;
        out.reserve(list->size());
        for (ConstraintRecord c : *list) {
            const int64_t a = mapped(c.a), b = mapped(c.b);
            if (a < 0 || b < 0) continue;
            c.a = uint32_t(std::min(a, b));
            c.b = uint32_t(std::max(a, b));
            out.push_back(c);
        }
        *list = std::move(out);
    }
    auto byPair = [](const ConstraintRecord& x, const ConstraintRecord& y) {
        return x.a != y.a ? x.a < y.a : x.b < y.b;
    };
    std::stable_sort(body.edgeConstraints.begin(), body.edgeConstraints.end(), byPair);

    body.updateCounts();
    if (!body.pointPrims.empty() || body.prims->size() > 0) body.rebuildPointPrims();
}

void keepPointSubset(Body& body, const std::vector<char>& keep)
{
    const size_t count = body.points->size();
    std::vector<uint32_t> order;
    std::vector<int64_t> newIndex(count, -1);
    for (size_t i = 0; i < count; ++i)
        if (i >= keep.size() || keep[i]) {
            newIndex[i] = int64_t(order.size());
            order.push_back(uint32_t(i));
        }
    if (order.size() == count) return;
    gatherPoints(*body.points, order);
    remapPointIndices(body, newIndex);
}

GeoFilterNode::GeoFilterNode(NodeMaster* master) : GeoNode(master)
{
    setType("geo-filter");
    addParam(&keepPoints, "keepPoints", "Keep Points", kParamBool, "true",
             "Keep points of the incoming geometry.");
    addParam(&keepPolys, "keepPolys", "Keep Polys", kParamBool, "true",
             "Keep polys of the incoming geometry.");
    addParam(&keepCurves, "keepCurves", "Keep Curves", kParamBool, "true",
             "Keep curves (lines) of the incoming geometry.");
    addParam(&keepVolumes, "keepVolumes", "Keep Volumes", kParamBool, "true",
             "Keep volumes of the incoming geometry.");
    addInput("Input");
    addOutput("Output");
}

void GeoFilterNode::cookBody(BodyPtr& body)
{
    Body& b = *body;
    PointData& pts = *b.points;
    VertexData& vd = *b.vertices;
    const size_t numPrims = vd.size();

    std::vector<char> keepPrim(numPrims, 1);
    bool primsGo = false;
    for (size_t p = 0; p < numPrims; ++p) {
        const bool isLine = p < b.prims->size() && b.prims->kinds[p] == PrimData::LINE;
        if ((isLine && !keepCurves) || (!isLine && !keepPolys)) {
            keepPrim[p] = 0;
            primsGo = true;
        }
    }

    // the points keep the texture coordinates their vertices had
    if (primsGo && vd.hasUV && !pts.hasAttrib("uv")) {
        pts.addAttrib("uv", ATTRIB_VECTOR);
        auto* uv = pts.attribAs<VecArray>("uv");
        for (size_t p = 0; p < numPrims && p < vd.uv.size(); ++p)
            for (size_t k = 0; k < vd.indices[p].size() && k < vd.uv[p].size(); ++k)
                if (vd.indices[p][k] < uv->size()) (*uv)[vd.indices[p][k]] = vd.uv[p][k];
    }
    if (primsGo) keepPrims(b, keepPrim);

    if (!keepPoints) {
        // only the points that the remaining primitives use stay
        std::vector<char> used(pts.size(), 0);
        for (const auto& list : vd.indices)
            for (uint32_t i : list)
                if (i < used.size()) used[i] = 1;
        keepPointSubset(b, used);
    }

    if (!keepVolumes && b.volumes->size() > 0) b.volumes->clear();
    b.updateCounts();
}
