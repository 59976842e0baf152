// Calc-Velocity: gives the points a velocity `v` from how their positions change from one
// frame to the next, or along the lines they belong to.
#pragma once

#include "graph/geonode.h"

#include <vector>

class CalcVelocityNode : public GeoNode {
public:
    explicit CalcVelocityNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;
    void reset() override;

    enum Mode : int32_t { AUTO = 0, MEMORY = 1, TIMESHIFT = 2 };

    float scale = 1.f;
    int32_t mode = AUTO;
    bool fromLine = false;

    // The positions of the last cook and its frame; -1000 when there was none.
    float storedFrame() const { return storedFrame_; }

private:
    // v along each line: to the next vertex, the last vertex from the one before.
    void velocityFromLines(Body& body, float factor) const;
    // v = (P - earlier) * factor where the counts agree, else zero.
    static void velocityFromPositions(PointData& pts, const VecArray* earlier, float factor);

    VecArray storedP_;
    float storedFrame_ = -1000.f;
};
