// Line: numPoints points, point i at y = i / (numPoints - 1) * length, joined by one line
// primitive. One point gives a lone point at the origin without a primitive; none gives
// an empty Body.
#include "nodes/linenode.h"

LineNode::LineNode(NodeMaster* master) : GeoNode(master)
{
    setType("Line");
    addParam(&length, "length", "Length", kParamFloat, "1.0", "Length of the line.");
    addParam(&numPoints, "numPoints", "Num Points", kParamInt, "10", "Number of points in the line.");
    addOutput("Output");
}

void LineNode::cookBody(BodyPtr& body)
{
    auto out = std::make_shared<Body>();
    const int n = numPoints;
    if (n == 1) out->points->addPoint(Vec4f());
    if (n >= 2) {
        std::vector<uint32_t> list(static_cast<size_t>(n));
        for (int i = 0; i < n; ++i) {
            const float y = float(i) / float(n - 1) * length;
            list[size_t(i)] = uint32_t(out->points->addPoint(Vec4f(0.f, y, 0.f)));
        }
        out->vertices->addVertexList(std::move(list));
        out->prims->addPrim(PrimData::LINE);
        out->rebuildPointPrims();
    }
    out->updateCounts();
    body = std::move(out);
}
