// Grid: dimX by dimZ at y = 0, subdivX by subdivZ quads over (subdivX + 1) x (subdivZ + 1)
// points, row by row along x. The quads wind so that computeNormals gives +y. A
// subdivision below 1 counts as 1.
#include "nodes/gridnode.h"

#include <algorithm>

GridNode::GridNode(NodeMaster* master) : GeoNode(master)
{
    setType("Grid");
    addParam(&dimX, "dimX", "Dim X", kParamFloat, "1", "Size of the grid along x.");
    addParam(&dimZ, "dimZ", "Dim Z", kParamFloat, "1", "Size of the grid along z.");
    addParam(&subdivX, "subdivX", "Subdiv X", kParamInt, "10", "Number of quads along x.");
    addParam(&subdivZ, "subdivZ", "Subdiv Z", kParamInt, "10", "Number of quads along z.");
    addOutput("Output");
}

void GridNode::cookBody(BodyPtr& body)
{
    auto out = std::make_shared<Body>();
    const int nx = std::max(1, subdivX);
    const int nz = std::max(1, subdivZ);
    const uint32_t rowLength = uint32_t(nx + 1);
    out->points->P.reserve(size_t(nx + 1) * size_t(nz + 1));
    for (int j = 0; j <= nz; ++j)
        for (int i = 0; i <= nx; ++i) {
            const float x = (float(i) / float(nx) - 0.5f) * dimX;
            const float z = (float(j) / float(nz) - 0.5f) * dimZ;
            out->points->addPoint(Vec4f(x, 0.f, z));
        }
    for (int j = 0; j < nz; ++j)
        for (int i = 0; i < nx; ++i) {
            const uint32_t a = uint32_t(j) * rowLength + uint32_t(i);
            out->vertices->addVertexList({a, a + 1, a + 1 + rowLength, a + rowLength});
            out->prims->addPrim(PrimData::POLYGON);
        }
    out->updateCounts();
    out->rebuildPointPrims();
    body = std::move(out);
}
