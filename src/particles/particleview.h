// ParticleView: what the per-particle passes shared by every classic system (forces, and
// later the other object passes) see of a system: raw channel pointers by particle index
// and the few things in which the systems differ. One `particleView` overload per system
// type fills it; the passes themselves are written once against this view.
#pragma once

#include "geo/attribtypes.h"
#include "geo/bitarray.h"
#include "geo/vec.h"

#include <cstddef>

class DumbParticleSystem;
class GranularParticleSystem;

struct ParticleView {
    size_t count = 0; // 0 when a channel is missing or out of step
    const Vec4f* P = nullptr;
    Vec4f* v = nullptr;
    Vec4f* force = nullptr;
    const BitArray* deleted = nullptr; // null: no particle is deleted
    // Constraint partners per particle, for the clump attenuation of forces; null in
    // systems without constraints, where every particle counts as unlinked.
    const IntListArray* links = nullptr;
};

// The granular system's particles, with its constraint lists as links.
ParticleView particleView(GranularParticleSystem& system);
// The dumb system's particles: no links, so no clump attenuation.
ParticleView particleView(DumbParticleSystem& system);
