// Attrib-Blur. One spatial hash (cell size `radius`) is built from the positions before the
// passes and kept for all of them. In a pass every point takes the mean position of all
// other points in the buckets of the 27 cells round its own, with no distance test, and
// moves `amount` of the way there; a point with no neighbours moves toward the origin. A
// pass reads only the positions of the pass before (the results go to a second array).
// Points at non-finite positions are left out of the hash and keep their place.
#include "nodes/attribblurnode.h"

#include "geo/attribtypes.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <vector>

namespace {

// Cells beyond this index are clamped: their products with the hash primes stay in int64.
constexpr double kCellLimit = 2147483647.0;

int64_t cellIndex(float coordinate, float radius)
{
    const double c = std::floor(double(coordinate) / double(radius));
    if (std::isnan(c)) return 0;
    return int64_t(std::clamp(c, -kCellLimit, kCellLimit));
}

bool finitePosition(const Vec4f& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

} // namespace

AttribBlurNode::AttribBlurNode(NodeMaster* master) : GeoNode(master)
{
    setType("Attrib-Blur");
    addParam(&attribName, "attribName", "Attribute Name", kParamString, "P");
    addParam(&iterations, "iterations", "Iterations", kParamInt, "1");
    addParam(&amount, "amount", "Blur Amount", kParamFloat, "0.5");
    addParam(&radius, "radius", "Radius", kParamFloat, "0.1");
    addInput("Input");
    addOutput("Output");
}

size_t AttribBlurNode::tableSizeFor(size_t n)
{
    const double size = std::clamp(double(n) * 2.5, 260000.0, 30000000.0);
    return size_t(size);
}

size_t AttribBlurNode::bucketOf(int64_t cx, int64_t cy, int64_t cz, size_t tableSize)
{
    const int64_t h = (cx * 73856093) ^ (cy * 19349663) ^ (cz * 83492791);
    const int64_t t = int64_t(tableSize);
    return size_t(((h % t) + t) % t);
}

void AttribBlurNode::cookBody(BodyPtr& body)
{
    if (iterations < 1) return;
    PointData& pts = *body->points;
    const size_t n = pts.size();
    if (n == 0) return;
    if (!(radius > 0.f) || !std::isfinite(radius)) {
        std::printf("%s: the radius must be above 0.\n", name().c_str());
        return;
    }

    // The hash: points sorted by bucket, start[b] .. start[b + 1] the points of bucket b.
    const size_t tableSize = tableSizeFor(n);
    constexpr size_t kNoBucket = size_t(-1);
    std::vector<size_t> bucket(n, kNoBucket);
    std::vector<uint32_t> start(tableSize + 1, 0);
    for (size_t i = 0; i < n; ++i) {
        const Vec4f& p = pts.P[i];
        if (!finitePosition(p)) continue;
        bucket[i] =
            bucketOf(cellIndex(p.x, radius), cellIndex(p.y, radius), cellIndex(p.z, radius), tableSize);
        ++start[bucket[i] + 1];
    }
    for (size_t b = 0; b < tableSize; ++b) start[b + 1] += start[b];
    std::vector<uint32_t> sorted(start[tableSize]);
    {
        std::vector<uint32_t> fill(start.begin(), start.end() - 1);
        for (size_t i = 0; i < n; ++i)
            if (bucket[i] != kNoBucket) sorted[fill[bucket[i]]++] = uint32_t(i);
    }

    VecArray next(n);
    for (int pass = 0; pass < iterations; ++pass) {
        const VecArray& old = pts.P;
        tbb::parallel_for(tbb::blocked_range<size_t>(0, n, 1024), [&](const tbb::blocked_range<size_t>& r) {
            size_t seen[27];
            for (size_t i = r.begin(); i != r.end(); ++i) {
                const Vec4f& p = old[i];
                if (!finitePosition(p)) {
                    next[i] = p;
                    continue;
                }
                const int64_t cx = cellIndex(p.x, radius);
                const int64_t cy = cellIndex(p.y, radius);
                const int64_t cz = cellIndex(p.z, radius);
                int numSeen = 0;
                double sx = 0.0, sy = 0.0, sz = 0.0;
                size_t count = 0;
                for (int64_t dz = -1; dz <= 1; ++dz)
                    for (int64_t dy = -1; dy <= 1; ++dy)
                        for (int64_t dx = -1; dx <= 1; ++dx) {
                            const size_t b = bucketOf(cx + dx, cy + dy, cz + dz, tableSize);
                            // cells that share a bucket give its points once
                            if (std::find(seen, seen + numSeen, b) != seen + numSeen) continue;
                            seen[numSeen++] = b;
                            for (uint32_t k = start[b]; k < start[b + 1]; ++k) {
                                const uint32_t j = sorted[k];
                                if (j == i) continue;
                                sx += old[j].x;
                                sy += old[j].y;
                                sz += old[j].z;
                                ++count;
                            }
                        }
                Vec4f mean;
                if (count > 0)
                    mean = Vec4f(float(sx / double(count)), float(sy / double(count)),
                                 float(sz / double(count)));
                const float keep = 1.f - amount;
                next[i] = Vec4f(keep * p.x + amount * mean.x, keep * p.y + amount * mean.y,
                                keep * p.z + amount * mean.z, p.w);
            }
        });
        pts.P.swap(next);
    }
}
