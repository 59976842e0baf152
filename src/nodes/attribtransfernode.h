// Attrib-Transfer: copies a point attribute from the source points onto the receiving
// points, pairing the points by index, by id or by nearness.
#pragma once

#include "graph/geonode.h"

#include <cstdint>
#include <vector>

class AttribTransferNode : public GeoNode {
public:
    explicit AttribTransferNode(NodeMaster* master);
    QORVA_PAIR_PROCESS
    void cookPair(BodyPtr& body, const Body* second) override;

    enum TransferBy : int32_t { BY_INDEX = 0, BY_ID = 1, BY_PROXIMITY = 2 };

    // Transfers onto `receiver`; false (with a line printed) when nothing could be done.
    bool transfer(Body& receiver, const Body& source);
    // For each receiving point the source point it takes its value from, -1 for none.
    // False when the rule can't be applied (printed).
    bool matchPoints(const PointData& receiver, const PointData& source, std::vector<int64_t>& match) const;
    // The nearest source point within `distance` of each receiving point, -1 when none.
    static void matchByProximity(const VecArray& receiver, const VecArray& source, float distance,
                                 std::vector<int64_t>& match);

    std::string attribName = "Cd";
    std::string attribNameTo = "Cd";
    int32_t transferBy = BY_INDEX;
    float searchDistance = 0.1f;
};
