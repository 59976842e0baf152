// Collide: pushes dynamic particles out of a collider's distance grid, with friction and
// a sticky layer. The collider is a volume Body on plug 1 or a geometry file, transformed
// by the node's rows and turned into a distance grid here.
#pragma once

#include "graph/geonode.h"

#include <array>

#include <string>

class CollideNode : public GeoNode {
public:
    explicit CollideNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void reset() override;
    // The collision pass of `body` against the volume Body `collider` (a float grid
    // "distance", optionally a vector grid "velocity", "vel" or "v").
    void collideWith(Body& body, const Body& collider, bool moving, const Mat4f& motion);

    float translateX = 0.f, translateY = 0.f, translateZ = 0.f;
    float rotateX = 0.f, rotateY = 0.f, rotateZ = 0.f;
    float scaleX = 1.f, scaleY = 1.f, scaleZ = 1.f;
    float unifScale = 1.f;
    bool xformInvert = false;
    bool calcVelFromAnims = false;
    bool collide = true;
    float collDist = 0.f;
    float friction = 10.f;
    float staticFrictionMulti = 0.f;
    float stickStrength = 0.f;
    float stickDist = 0.f;
    float stickFalloff = 0.f; // kept and saved; the collision pass doesn't read it
    float attraction = 0.f;   // kept and saved; the collision pass doesn't read it
    float attractionDist = 0.f;
    float velocityScale = 1.f;
    std::string filePath;
    float readScale = 1.f;
    float frame = 1.f;
    float fps = 24.f;
    float voxelSize = 0.05f;
    bool invert = false;
    float sdfInnerBand = 3.f;
    float sdfOuterBand = 0.f;
    float sdfPushOut = 0.f;
    float volVelocityScale = 1.f;
    bool sdfUpdateSubframes = false;

    // Held state of the file collider.
    BodyPtr loaded; // as read
    std::string loadedPath;
    BodyPtr sdfBody; // the distance (and velocity) grids built from it
    Mat4f lastMatrix;
    float lastTime = 0.f;
    bool haveLastMatrix = false;
    std::array<float, 6> lastSettings{}; // volume settings the kept volume was made with

private:
    // Reads, moves and rasterises the file collider when needed; false without one.
    bool updateFileCollider(bool& moving, Mat4f& motion);
};
