// CollideView: the channels and constants of one classic system as the shared collide
// pass sees them: plain pointers into the system's Body by particle index, null where a
// system has no such channel. Filled by CollideTraits<System>::view.
#pragma once

#include "geo/bitarray.h"
#include "geo/vec.h"

#include <cstddef>

class PointData;

struct CollideView {
    size_t count = 0;
    Vec4f* P = nullptr;               // required
    Vec4f* v = nullptr;               // required
    Vec4f* force = nullptr;
    Vec4f* posPrev = nullptr;
    BitArray* sleeping = nullptr;
    BitArray* deleted = nullptr;
    float* restingTime = nullptr;
    float* stick = nullptr;           // the stick weight map
    PointData* points = nullptr;      // where per-collider channels are made; null: none
    // Per-particle contact distance (push-out target), by particle index; null: `radius` for
    // all. `radius` must then be at least the largest entry.
    const float* contactDist = nullptr;
    float radius = 0.05f;
    float mass = 0.001f;
    float gravityY = -9.81f;
    float dt = 0.f;
    int numThreads = 1;
};
