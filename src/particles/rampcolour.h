// The blue-white display ramp shared by the classic systems: speed against a whitewater
// speed, or a constraint count against a full count. Saturates to bright white above
// the limit.
#pragma once

#include "geo/vec.h"

inline Vec4f rampColour(float value, float limit)
{
    if (limit > 0.f && value <= limit) {
        const float t = value / limit;
        return Vec4f(0.5f * t, 0.8f * t, 1.f, 0.f) * 2.f;
    }
    return Vec4f(0.9f, 0.95f, 1.f, 0.f) * 2.f;
}
