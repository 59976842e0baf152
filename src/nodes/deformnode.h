// Deform: moves geometry along with a proxy point cloud, by how the proxy points near
// each point moved from their rest positions to their animated ones.
#pragma once

#include "graph/geonode.h"

class DeformNode : public GeoNode {
public:
    explicit DeformNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;

    float radius = 0.2f;
    bool emissionPosRef = false;

    // Moves the points of `geo`; rest and animated proxies are matched by index.
    void deform(Body& geo, const Body* rest, const Body* animated);
};
