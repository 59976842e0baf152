// Attrib-Transfer. The points are paired first, then the values copied, so every type
// shares the pairing. "Index" pairs equal positions in the point lists; "Id" pairs equal
// values of the int attribute `id` (the first source point of an id wins); "Proximity"
// takes the nearest source point within `searchDistance`, found through a hash of cells of
// that size (ties go to the lower index). A receiving point with no partner keeps its
// value: the attribute's default when the attribute is new. List attributes copy the
// whole list of the partner.
#include "nodes/attribtransfernode.h"

#include "geo/attribtypes.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <type_traits>
#include <unordered_map>
#include <utility>

namespace {

// The storage a type code is held in; types sharing a kind can be copied onto each other.
// -1 for the types this node doesn't transfer.
int storageKind(int type)
{
    switch (type) {
    case ATTRIB_INT:
    case ATTRIB_FLOAT:
    case ATTRIB_BOOL:
    case ATTRIB_STRING:
    case ATTRIB_INT_LIST:
    case ATTRIB_FLOAT_LIST:
        return type;
    case ATTRIB_VECTOR:
    case ATTRIB_POSITION:
    case ATTRIB_VELOCITY:
    case ATTRIB_COLOR:
    case ATTRIB_NORMAL:
        return ATTRIB_VECTOR;
    default:
        return -1;
    }
}

constexpr double kCellLimit = 2147483647.0;

int64_t cellIndex(float coordinate, float size)
{
    const double c = std::floor(double(coordinate) / double(size));
    if (std::isnan(c)) return 0;
    return int64_t(std::clamp(c, -kCellLimit, kCellLimit));
}

// Key of a cell; two cells may share one (the distance test sorts them out).
uint64_t cellKey(int64_t cx, int64_t cy, int64_t cz)
{
    uint64_t h = uint64_t(cx) * 0x9E3779B97F4A7C15ull;
    h ^= uint64_t(cy) * 0xC2B2AE3D27D4EB4Full + (h << 6) + (h >> 2);
    h ^= uint64_t(cz) * 0x165667B19E3779F9ull + (h << 6) + (h >> 2);
    return h;
}

bool finitePosition(const Vec4f& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

} // namespace

AttribTransferNode::AttribTransferNode(NodeMaster* master) : GeoNode(master)
{
    setType("Attrib-Transfer");
    addParam(&attribName, "attribName", "Attrib Name (Source)", kParamString, "Cd",
             "The name of the attribute to transfer.");
    addParam(&attribNameTo, "attribNameTo", "Attrib Name (Receive)", kParamString, "Cd",
             "The name of the attribute to create on the target.");
    addEnum(&transferBy, "transferBy", "Transfer By", {"Index", "Id", "Proximity"}, "Index",
            "Choose how to relate both inputs.");
    addParam(&searchDistance, "searchDistance", "Search Distance", kParamFloat, ".1");
    addInput("Receiving-Points");
    addInput("Source-Points", true); // only read
    addOutput("Output");
}

void AttribTransferNode::cookPair(BodyPtr& body, const Body* second)
{
    if (second) transfer(*body, *second);
}

void AttribTransferNode::matchByProximity(const VecArray& receiver, const VecArray& source, float distance,
                                          std::vector<int64_t>& match)
{
    match.assign(receiver.size(), -1);
    // source points sorted by cell key; a cell's points are one run of equal keys
    std::vector<std::pair<uint64_t, uint32_t>> cells;
    cells.reserve(source.size());
    for (size_t j = 0; j < source.size(); ++j) {
        const Vec4f& p = source[j];
        if (!finitePosition(p)) continue;
        cells.emplace_back(
            cellKey(cellIndex(p.x, distance), cellIndex(p.y, distance), cellIndex(p.z, distance)),
            uint32_t(j));
    }
    std::sort(cells.begin(), cells.end());
    const float limit = distance * distance;
    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, receiver.size(), 1024), [&](const tbb::blocked_range<size_t>& r) {
            for (size_t i = r.begin(); i != r.end(); ++i) {
                const Vec4f& p = receiver[i];
                if (!finitePosition(p)) continue;
                const int64_t cx = cellIndex(p.x, distance);
                const int64_t cy = cellIndex(p.y, distance);
                const int64_t cz = cellIndex(p.z, distance);
                float best = limit;
                int64_t bestIndex = -1;
                uint64_t visited[27];
                int numVisited = 0;
                for (int64_t dz = -1; dz <= 1; ++dz)
                    for (int64_t dy = -1; dy <= 1; ++dy)
                        for (int64_t dx = -1; dx <= 1; ++dx) {
                            const uint64_t key = cellKey(cx + dx, cy + dy, cz + dz);
                            if (std::find(visited, visited + numVisited, key) != visited + numVisited)
                                continue;
                            visited[numVisited++] = key;
                            auto it = std::lower_bound(cells.begin(), cells.end(),
                                                       std::make_pair(key, uint32_t(0)));
                            for (; it != cells.end() && it->first == key; ++it) {
                                const Vec4f d = source[it->second] - p;
                                const float d2 = d.dot3(d);
                                if (d2 < best || (d2 == best && (bestIndex < 0 || it->second < bestIndex))) {
                                    best = d2;
                                    bestIndex = it->second;
                                }
                            }
                        }
                match[i] = bestIndex;
            }
        });
}

bool AttribTransferNode::matchPoints(const PointData& receiver, const PointData& source,
                                     std::vector<int64_t>& match) const
{
    const size_t n = receiver.size();
    match.assign(n, -1);
    if (transferBy == BY_ID) {
        const auto* idsTo =
            receiver.attribType("id") == ATTRIB_INT ? receiver.attribAs<IntArray>("id") : nullptr;
        const auto* idsFrom =
            source.attribType("id") == ATTRIB_INT ? source.attribAs<IntArray>("id") : nullptr;
        if (!idsTo || !idsFrom) {
            std::printf("%s: attribute id doesn't exist.\n", name().c_str());
            return false;
        }
        std::unordered_map<int32_t, int64_t> byId;
        byId.reserve(idsFrom->size());
        for (size_t j = 0; j < idsFrom->size(); ++j) byId.emplace((*idsFrom)[j], int64_t(j));
        for (size_t i = 0; i < n; ++i) {
            auto it = byId.find((*idsTo)[i]);
            if (it != byId.end()) match[i] = it->second;
        }
        return true;
    }
    if (transferBy == BY_PROXIMITY) {
        if (!(searchDistance > 0.f) || !std::isfinite(searchDistance)) {
            std::printf("%s: the search distance must be above 0.\n", name().c_str());
            return false;
        }
        matchByProximity(receiver.P, source.P, searchDistance, match);
        return true;
    }
    const size_t common = std::min(n, source.size());
    for (size_t i = 0; i < common; ++i) match[i] = int64_t(i);
    return true;
}

bool AttribTransferNode::transfer(Body& receiverBody, const Body& sourceBody)
{
    PointData& receiver = *receiverBody.points;
    const PointData& source = *sourceBody.points;
    if (receiver.size() == 0 || source.size() == 0) return false;
    receiver.radius = 0.1f;

    const void* from = source.attrib(attribName);
    if (!from) {
        std::printf("%s: attribute %s doesn't exist.\n", name().c_str(), attribName.c_str());
        return false;
    }
    const int type = source.attribType(attribName);
    const int kind = storageKind(type);
    if (kind < 0) {
        std::printf("%s: attribute %s is of a type that can't be transferred.\n", name().c_str(),
                    attribName.c_str());
        return false;
    }
    if (attribNameTo.empty()) {
        std::printf("%s: no name for the received attribute.\n", name().c_str());
        return false;
    }
    // P, v, Cd and N only come as vectors
    const bool builtin =
        attribNameTo == "P" || attribNameTo == "v" || attribNameTo == "Cd" || attribNameTo == "N";
    if (builtin && kind != ATTRIB_VECTOR) {
        std::printf("%s: attribute %s can't take the type of %s.\n", name().c_str(), attribNameTo.c_str(),
                    attribName.c_str());
        return false;
    }

    std::vector<int64_t> match;
    if (!matchPoints(receiver, source, match)) return false;

    // a receiving attribute of another kind is replaced
    const int existing = receiver.attribType(attribNameTo);
    if (existing != ATTRIB_NONE && storageKind(existing) != kind) receiver.removeAttrib(attribNameTo);
    receiver.addAttrib(attribNameTo, type);
    void* to = receiver.attrib(attribNameTo);
    withPointArray(type, const_cast<void*>(from), [&](const auto& src, const auto&) {
        using Array = std::decay_t<decltype(src)>;
        Array& dst = *static_cast<Array*>(to);
        for (size_t i = 0; i < match.size(); ++i) {
            if (match[i] < 0) continue;
            if constexpr (std::is_same_v<Array, BitArray>) {
                dst.set(i, src.get(size_t(match[i])));
            } else {
                dst[i] = src[size_t(match[i])];
            }
        }
    });
    return true;
}
