// Sort-Points. "id" goes through sortPointsById; any other attribute sorts by its first
// component (x of a vector, the first entry of a list or matrix, the text of a string),
// stable, so equal keys keep their order. A missing attribute leaves the points as they are.
#include "nodes/sortpointsnode.h"

#include "nodes/geofilternode.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <numeric>
#include <type_traits>

namespace {

template <class T> double firstComponent(const T& value)
{
    using V = std::decay_t<T>;
    if constexpr (std::is_arithmetic_v<V>) {
        return double(value);
    } else if constexpr (std::is_same_v<V, Vec4f>) {
        return double(value.x);
    } else if constexpr (std::is_same_v<V, Mat3f> || std::is_same_v<V, Mat4f>) {
        return double(value.m[0]);
    } else if constexpr (std::is_same_v<V, std::vector<int32_t>> || std::is_same_v<V, std::vector<float>>) {
        return value.empty() ? -1e300 : double(value.front());
    } else if constexpr (std::is_same_v<V, std::vector<Vec4f>>) {
        return value.empty() ? -1e300 : double(value.front().x);
    } else {
        return 0.0;
    }
}

} // namespace

SortPointsNode::SortPointsNode(NodeMaster* master) : GeoNode(master)
{
    setType("Sort-Points");
    addParam(&sortAttribName, "sortAttribName", "Sort By Attrib", kParamString, "id",
             "The name of the attribute to sort the points by.");
    addInput("Input-Points");
    addOutput("Sorted-Points");
}

void SortPointsNode::cookBody(BodyPtr& body)
{
    PointData& pts = *body->points;
    const std::string name = sortAttribName.empty() ? std::string("id") : sortAttribName;
    if (!pts.hasAttrib(name)) {
        if (pts.size() > 0) std::printf("sort-points: no attribute %s, order kept.\n", name.c_str());
        return;
    }
    if (name == "id") {
        pts.sortPointsById();
        return;
    }

    const size_t n = pts.size();
    std::vector<uint32_t> order(n);
    std::iota(order.begin(), order.end(), 0u);
    withPointArray(pts.attribType(name), pts.attrib(name), [&](const auto& a, const auto&) {
        using A = std::decay_t<decltype(a)>;
        if (a.size() != n) return;
        if constexpr (std::is_same_v<A, StringArray>) {
            std::stable_sort(order.begin(), order.end(), [&](uint32_t x, uint32_t y) { return a[x] < a[y]; });
        } else {
            std::vector<double> keys(n);
            for (size_t i = 0; i < n; ++i) {
                keys[i] = firstComponent(a[i]);
                if (std::isnan(keys[i])) keys[i] = 1e300; // NaN sorts last
            }
            std::stable_sort(order.begin(), order.end(),
                             [&](uint32_t x, uint32_t y) { return keys[x] < keys[y]; });
        }
    });
    gatherPoints(pts, order);
    // primitives and constraints follow their points
    std::vector<int64_t> newIndex(n);
    for (size_t i = 0; i < n; ++i) newIndex[order[i]] = int64_t(i);
    if (body->vertices->size() > 0 || !body->pointConstraints.empty() || !body->edgeConstraints.empty())
        remapPointIndices(*body, newIndex);
}
