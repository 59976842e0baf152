// Transform: moves, turns and scales the incoming geometry by its rows (or undoes that
// transform with `inverse`), and can give the points the velocity of an animated transform.
#pragma once

#include "geo/vec.h"
#include "graph/geonode.h"

class XformNode : public GeoNode {
public:
    explicit XformNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;

    float translateX = 0.f, translateY = 0.f, translateZ = 0.f;
    float rotateX = 0.f, rotateY = 0.f, rotateZ = 0.f; // degrees
    float scaleX = 1.f, scaleY = 1.f, scaleZ = 1.f;
    float unifScale = 1.f;
    bool inverse = false;
    bool calcVelFromAnims = false;
    bool quatInterpol = false;

    // The matrix of the rows as they stand, inverted with `inverse`; false when the
    // inverse doesn't exist (a zero scale).
    bool currentMatrix(Mat4f& out) const;
};
