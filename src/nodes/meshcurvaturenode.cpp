#include "nodes/meshcurvaturenode.h"

#include "geo/attribtypes.h"

#include <algorithm>
#include <utility>
#include <vector>

MeshCurvatureNode::MeshCurvatureNode(NodeMaster* master) : GeoNode(master)
{
    setType("Mesh-Curvature");
    addInput("Input");
    addOutput("Output");
}

void MeshCurvatureNode::cookBody(BodyPtr& body)
{
    PointData& pts = *body->points;
    const size_t n = pts.size();
    std::vector<std::pair<uint32_t, uint32_t>> edges;
    for (const auto& list : body->vertices->indices)
        for (size_t k = 0; k < list.size() && list.size() > 1; ++k) {
            uint32_t a = list[k], b = list[(k + 1) % list.size()];
            if (a == b || a >= n || b >= n) continue;
            edges.emplace_back(std::min(a, b), std::max(a, b));
        }
    std::sort(edges.begin(), edges.end());
    edges.erase(std::unique(edges.begin(), edges.end()), edges.end());
    if (!pts.hasN) body->computeNormals(false);
    std::vector<float> sum(n, 0.f);
    std::vector<int> count(n, 0);
    for (const auto& e : edges) {
        const Vec4f d = pts.P[e.second] - pts.P[e.first];
        const Vec4f dn = pts.N[e.second] - pts.N[e.first];
        const float len2 = d.x * d.x + d.y * d.y + d.z * d.z;
        const float k =
            len2 > 0.f ? (dn.x * d.x + dn.y * d.y + dn.z * d.z) / len2 : 0.f; // a zero edge adds 0
        sum[e.first] += k;
        sum[e.second] += k;
        ++count[e.first];
        ++count[e.second];
    }
    pts.addAttrib("curvature", ATTRIB_FLOAT);
    auto& out = *pts.attribAs<FloatArray>("curvature");
    for (size_t i = 0; i < n; ++i) out[i] = count[i] ? sum[i] / float(count[i]) : 0.f;
}
