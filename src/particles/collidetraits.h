// How a classic system takes part in the shared collide pass: CollideTraits<System>
// gives the system's CollideView and its CollideRules; collidePass runs its colliderIds
// over that view. Specialised beside each system (granulartraits.h).
#pragma once

#include "particles/collidepass.h"

// Specialised per system:
//   static CollideView view(System&);
//   static CollideRules rules(const System&);
template <class System>
struct CollideTraits;

template <class System>
void collidePass(System& system)
{
    if (system.colliderIds.empty()) return;
    CollideView view = CollideTraits<System>::view(system);
    collideParticles(view, CollideTraits<System>::rules(system), system.colliderIds);
}
