// Collide-Classic: runs a classic collider (found by name among the scene's colliders) over
// the points passing through, with the granular system's response.
#pragma once

#include "graph/geonode.h"

#include <string>

class CollideClassicNode : public GeoNode {
public:
    explicit CollideClassicNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;

    // The pass on `body` over the step `dt`.
    void collide(Body& body, float dt);

    std::string colliderName = "none";
};
