// PoseHistory: the current and previous world matrix of a classic source or collider,
// with their inverses and the rotation-only and scale-free forms used for directions.
// Rebuilt once a substep; a second update at the same time leaves the previous matrix
// alone, so that motion between substeps is never lost to a repeated update. Until the
// clock moves forward after a start or a step back in time, the object is at rest.
#pragma once

#include "geo/vec.h"

class PoseHistory {
public:
    Mat4f current;
    Mat4f previous;
    Mat4f currentInverse;
    Mat4f previousInverse;
    Mat4f rotationOnly;  // current without scale and translation
    Mat4f scaleFree;     // current without scale
    bool invertible = true;  // both inverses exist
    bool started = false;

    // Takes `m` as the pose at `time`: the current pose becomes the previous one when the
    // time has moved forward; after a reset or a step back the previous pose is `m` too.
    void update(const Mat4f& m, float time);
    // Forgets the previous pose: the next update starts from rest.
    void reset() { started = false; }

private:
    float time_ = 0.f;
    bool fromRest_ = true;
};
