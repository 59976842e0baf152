// Deform: every point takes the inverse-distance weighted mean displacement of the rest
// proxy points within `radius`. Small proxies are searched point by point, larger ones
// through a uniform grid with cells of the radius.
#include "nodes/deformnode.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <unordered_map>
#include <vector>

namespace {

constexpr size_t kGridThreshold = 5000;

bool isVectorType(int type)
{
    return type >= ATTRIB_VECTOR && type <= ATTRIB_NORMAL;
}

// Integer cell coordinate, clamped so that far-off points still get a cell.
int64_t cellOf(float v, float cell)
{
    const double c = std::floor(double(v) / double(cell));
    if (!(c > -1e9)) return -1000000000;
    if (!(c < 1e9)) return 1000000000;
    return int64_t(c);
}

int64_t cellKey(int64_t x, int64_t y, int64_t z)
{
    return (x * 73856093) ^ (y * 19349663) ^ (z * 83492791);
}

} // namespace

DeformNode::DeformNode(NodeMaster* master) : GeoNode(master)
{
    setType("Deform");
    addParam(
        &radius, "radius", "Search Radius", kParamFloat, "0.2",
        "The distance to look from each point in the mesh (left input) to find influence points in the rest "
        "shape (middle input).");
    addParam(&emissionPosRef, "emissionPosRef", "Use Emission Pos Attrib", kParamBool, "false",
             "Use the right inputs emission pos attribute as a reference.");
    addInput("Geo-to-Deform");
    addInput("Influence-at-Rest", true);
    addInput("Influence-Animated", true);
    addOutput("Deformed-Geo");
}

void DeformNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    std::vector<BodyPtr> in = fetchInputs({0, 1, 2});
    BodyPtr body = in[0];
    if (body && enabled) deform(*body, in[1].get(), in[2].get());
    finishProcess(result, c, std::move(body), false);
}

void DeformNode::deform(Body& geo, const Body* rest, const Body* animated)
{
    clearError();
    const VecArray* restP = nullptr;
    if (emissionPosRef) {
        if (animated && animated->points->size() > 0) {
            const PointData& ap = *animated->points;
            if (!isVectorType(ap.attribType("emissionPos"))) {
                setError("no emissionPos attribute on the animated input");
                std::printf("%s: no emissionPos attribute on the animated input.\n", name().c_str());
                return;
            }
            restP = ap.attribAs<VecArray>("emissionPos");
        }
    } else if (rest) {
        restP = &rest->points->P;
    }
    const VecArray* animP = animated ? &animated->points->P : nullptr;
    const size_t count = restP && animP ? std::min(restP->size(), animP->size()) : 0;
    if (count == 0) {
        std::printf("%s: no proxy points.\n", name().c_str());
        return;
    }
    if (!(radius > 0.f) || !std::isfinite(radius)) return;

    std::vector<Vec4f> shift(count);
    for (size_t k = 0; k < count; ++k) {
        shift[k] = (*animP)[k] - (*restP)[k];
        shift[k].w = 0.f;
    }
    const float r2 = radius * radius;
    const VecArray& R = *restP;

    std::unordered_map<int64_t, std::vector<uint32_t>> grid;
    const bool useGrid = count >= kGridThreshold;
    if (useGrid)
        for (size_t k = 0; k < count; ++k)
            grid[cellKey(cellOf(R[k].x, radius), cellOf(R[k].y, radius), cellOf(R[k].z, radius))].push_back(
                uint32_t(k));

    VecArray& P = geo.points->P;
    tbb::parallel_for(tbb::blocked_range<size_t>(0, P.size(), 256),
                      [&](const tbb::blocked_range<size_t>& range) {
                          for (size_t i = range.begin(); i != range.end(); ++i) {
                              const Vec4f p = P[i];
                              double sx = 0.0, sy = 0.0, sz = 0.0, sw = 0.0;
                              auto visit = [&](size_t k) {
                                  const Vec4f d = p - R[k];
                                  const float dist2 = d.dot3(d);
                                  if (!(dist2 < r2)) return;
                                  const double w = 1.0 / std::max(std::sqrt(double(dist2)), 1e-6);
                                  sx += w * shift[k].x;
                                  sy += w * shift[k].y;
                                  sz += w * shift[k].z;
                                  sw += w;
                              };
                              if (useGrid) {
                                  const int64_t cx = cellOf(p.x, radius), cy = cellOf(p.y, radius),
                                                cz = cellOf(p.z, radius);
                                  int64_t seen[27];
                                  int numSeen = 0;
                                  for (int64_t x = cx - 1; x <= cx + 1; ++x)
                                      for (int64_t y = cy - 1; y <= cy + 1; ++y)
                                          for (int64_t z = cz - 1; z <= cz + 1; ++z) {
                                              const int64_t key = cellKey(x, y, z);
                                              // two cells may share a key; their bucket counts once
                                              if (std::find(seen, seen + numSeen, key) != seen + numSeen)
                                                  continue;
                                              seen[numSeen++] = key;
                                              const auto it = grid.find(key);
                                              if (it == grid.end()) continue;
                                              for (uint32_t k : it->second) visit(k);
                                          }
                              } else {
                                  for (size_t k = 0; k < count; ++k) visit(k);
                              }
                              if (sw > 0.0) {
                                  P[i].x += float(sx / sw);
                                  P[i].y += float(sy / sw);
                                  P[i].z += float(sz / sw);
                              }
                          }
                      });
}
