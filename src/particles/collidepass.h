// The collide pass shared by the classic systems: every connected CollisionObject, every
// mesh part of its geometry, acts on the particles of a CollideView through the part's
// distance grid: wake, delete (sinks), attract, stick, paint the stick weight map, push
// out and apply friction and static grip. What differs between the granular, SPH and
// dumb systems is data in CollideRules; collidetraits.h turns a system into a view.
#pragma once

#include "particles/collideview.h"

#include <cstdint>
#include <vector>

class CollisionObject;

struct CollideRules {
    float frictionScale = 1.f;         // coefficient = friction * dt * frictionScale
    bool staticGrip = true;            // slow sliding takes staticFrictionFactor times more
    float frictionBelow = 0.01f;       // friction while the normal speed is below this
    bool insideOnly = false;           // push out to the surface and rub only inside it
    bool supportWeighted = true;       // friction scaled by how much the surface bears weight
    bool keepNormalSurfaceSpeed = false;  // new velocity keeps c's normal part * velocityScale
    bool trackPosition = true;         // the position follows the new tangential velocity
    bool weighted = true;              // attraction and stick scaled by the stick weight map
    bool transformStick = true;        // the "__stick_" channels of Transform Stick
    bool stickInAttractionLayer = false;  // stick blends inside attractionDist, no position fix
    bool paintWeightMap = true;

    static CollideRules granular();
    static CollideRules sph();
    static CollideRules dumb();
};

// Runs the colliders of `colliderIds` over the particles; returns at once without a
// Simulation or with no ids. A dead id prints its message and is passed over.
void collideParticles(CollideView& view, const CollideRules& rules, const std::vector<int32_t>& colliderIds);

// One enabled collider, every part. `stickSlot` counts this system's Transform Stick
// colliders; it names their channels and is advanced for each one.
void collideWithCollider(CollisionObject& collider, CollideView& view, const CollideRules& rules, int& stickSlot);
