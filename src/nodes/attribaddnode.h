// Attrib-Add: adds a point attribute of the right input, scaled, to one of the left input,
// point by point, in place.
#pragma once

#include "graph/geonode.h"

class AttribAddNode : public GeoNode {
public:
    explicit AttribAddNode(NodeMaster* master);
    QORVA_PAIR_PROCESS
    void cookPair(BodyPtr& body, const Body* second) override;

    // a.attrib_a += b.attrib_b * scale over the first min(count a, count b) points.
    void add(Body& a, const Body& b) const;

    std::string attrib_a;
    std::string attrib_b;
    float scale = 1.f;
};
