// Attrib-Blur: smooths the point positions toward the mean of their neighbours in a
// spatial hash, over a number of passes.
#pragma once

#include "graph/geonode.h"

class AttribBlurNode : public GeoNode {
public:
    explicit AttribBlurNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    // The bucket of a cell in a table of `tableSize` buckets; never negative.
    static size_t bucketOf(int64_t cx, int64_t cy, int64_t cz, size_t tableSize);
    // The table size for n points: n * 2.5, kept within [260000, 30000000].
    static size_t tableSizeFor(size_t n);

    std::string attribName = "P"; // shown for the artist; the cook always smooths P
    int32_t iterations = 1;
    float amount = 0.5f;
    float radius = 0.1f;
};
