// Point-Match: nearest influence point by a sweep over the influence points sorted by x,
// stopping once the x distance alone exceeds the best match. v = (target - P) * fps.
#include "nodes/pointmatchnode.h"

#include "graph/nodemaster.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>
#include <numeric>
#include <vector>

PointMatchNode::PointMatchNode(NodeMaster* master) : GeoNode(master)
{
    setType("Point-Match");
    addInput("Points");
    addInput("Influence-Points", true);
    addOutput("Output-Points");
}

void PointMatchNode::cookPair(BodyPtr& body, const Body* second)
{
    if (second) match(*body, *second);
}

void PointMatchNode::match(Body& body, const Body& influence)
{
    const VecArray& target = influence.points->P;
    PointData& pd = *body.points;
    if (target.empty() || pd.size() == 0) return;

    // Influence points by x; points with a non-finite x can't be matched by the sweep.
    std::vector<uint32_t> order;
    order.reserve(target.size());
    for (size_t k = 0; k < target.size(); ++k)
        if (std::isfinite(target[k].x)) order.push_back(uint32_t(k));
    if (order.empty()) return;
    std::sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) { return target[a].x < target[b].x; });
    std::vector<float> xs(order.size());
    for (size_t k = 0; k < order.size(); ++k) xs[k] = target[order[k]].x;

    if (!pd.hasV) pd.addAttrib("v", ATTRIB_VELOCITY);
    const float fps = nodeMaster ? nodeMaster->fps() : 24.f;
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, pd.size(), 512), [&](const tbb::blocked_range<size_t>& r) {
            for (size_t i = r.begin(); i != r.end(); ++i) {
                const Vec4f p = pd.P[i];
                if (!std::isfinite(p.x)) continue;
                const size_t start = size_t(std::lower_bound(xs.begin(), xs.end(), p.x) - xs.begin());
                float best = std::numeric_limits<float>::infinity();
                int64_t bestIndex = -1;
                auto consider = [&](size_t s) {
                    const Vec4f d = target[order[s]] - p;
                    const float dist2 = d.dot3(d);
                    if (dist2 < best) {
                        best = dist2;
                        bestIndex = order[s];
                    }
                };
                for (size_t s = start; s < xs.size(); ++s) {
                    const float dx = xs[s] - p.x;
                    if (dx * dx > best) break;
                    consider(s);
                }
                for (size_t s = start; s-- > 0;) {
                    const float dx = p.x - xs[s];
                    if (dx * dx > best) break;
                    consider(s);
                }
                if (bestIndex < 0) continue;
                const Vec4f& q = target[size_t(bestIndex)];
                const float w = pd.v[i].w;
                pd.v[i] = Vec4f((q.x - p.x) * fps, (q.y - p.y) * fps, (q.z - p.z) * fps, w);
                pd.P[i] = Vec4f(q.x, q.y, q.z, p.w);
            }
        });
}
