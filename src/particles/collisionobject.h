// CollisionObject: the classic collider (type code 8). A transformable geometry object
// whose mesh parts carry signed distance grids; the collide pass (collidepass.h) uses
// them to push particles out, give friction and static grip, attract, stick, wake and
// delete particles (a sink is a collider with deleteParticles on) and paint the stick
// weight map. This class holds the rows, the matrices and the link to its geometry.
#pragma once

#include "particles/placedobject.h"
#include "particles/meshsdf.h"

#include <cstdint>
#include <string>
#include <vector>

class Object;

class CollisionObject : public PlacedObject {
public:
    static constexpr const char* kTypeString = "CollisionObject";

    // Entries of stickWeightMapMode.
    enum StickWeightMapMode : int32_t {
        kStickMapNoChange = 0,
        kStickMapSetInside = 1,
        kStickMapSetInsideFirstFrame = 2,
    };

    CollisionObject();
    ~CollisionObject() override;

    // Back to the state of a fresh run: the previous pose is forgotten.
    void resetState();
    // The build settings of this collider's distance grids (band raised to 1).
    SdfBuildSettings sdfSettings() const;
    // Prepares the geometry's grids for this substep; deforming parts are rebuilt on
    // every substep whose index is a multiple of sdfUpdateEveryNthStep. Valid parts.
    int prepareSdf(bool force = false);
    float interiorBand() const { return sdfInnerBand; }

    // --- Rows, in the editor's order after the name and transform rows of PlacedObject

    bool collide = true;
    float friction = 18.f;
    float staticGrip = 6.f;
    bool deleteParticles = false;
    float stickStrength = 0.f;
    bool xformStick = false;
    int32_t xformStickLockFrame = 0;
    float stickDist = 0.2f;
    float stickFalloff = 0.f;  // kept and saved; no pass reads it
    float attraction = 0.f;
    float attractionDist = 0.f;
    bool awakenParticles = true;
    float awakenDistance = 0.5f;
    int32_t stickWeightMapMode = kStickMapNoChange;
    float stickWeightMapSetVal = 1.f;
    bool bakeScale = true;
    float voxelSize = 0.1f;
    float sdfInnerBand = 5.f;
    float sdfPushOut = 0.f;
    float velocityScale = 1.f;
    bool sdfInvert = false;
    int32_t sdfUpdateEveryNthStep = 2;
    bool drawMesh = true;
    bool drawSDF = false;
    bool drawGrid = false;
    // `enabled` is SceneObject's.
    bool visible = true;

    // --- Fixed fields and state

    float staticFrictionFactor = 10.f;
    float restitution = 0.f;  // of the list-based response
    // colliderMatrix is pose.current, colliderMatrixPrev pose.previous (PlacedObject).

private:
    void buildParameters();
};
