// Geo-Filter: strips points, polygons, curves or grids from its input by four switches.
// Also home of the point and primitive compaction helpers that the point nodes share
// (Point-Delete, Split, Sort-Points): gathering every channel by an index list and
// rewriting primitive and constraint indices after points moved.
#pragma once

#include "graph/geonode.h"

#include <cstdint>
#include <vector>

// Every point channel becomes a[order[0]], a[order[1]], ...; the point count becomes order.size().
void gatherPoints(PointData& points, const std::vector<uint32_t>& order);
// Keeps the primitives whose flag is set, in order, with their vertex and primitive attributes.
void keepPrims(Body& body, const std::vector<char>& keep);
// After points were moved or dropped: newIndex[old] is the new index or -1. Primitives and
// constraints that touch a dropped point go; the rest are renumbered; pointPrims and the
// counts are rebuilt.
void remapPointIndices(Body& body, const std::vector<int64_t>& newIndex);
// Keeps the points whose flag is set, in order, and everything of the Body that still fits.
void keepPointSubset(Body& body, const std::vector<char>& keep);

class GeoFilterNode : public GeoNode {
public:
    explicit GeoFilterNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    bool keepPoints = true;
    bool keepPolys = true;
    bool keepCurves = true;
    bool keepVolumes = true;
};
