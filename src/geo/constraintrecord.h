// One distance constraint between two points, as kept in a Body's point and
// edge constraint lists. Plain 24-byte data so the lists can be copied,
// sorted and handed to solvers as blocks.
#pragma once

#include <cstdint>
#include <type_traits>

struct ConstraintRecord {
    uint32_t a = 0; // point indices, a <= b
    uint32_t b = 0;
    float restLength = 0.f;
    float stiffness = 0.f;
    float breakStretch = 0.f;
    uint8_t breakable = 0; // from the node's Breakable parameter
    uint8_t broken = 0;
    uint8_t isLine = 0;   // made from a line primitive
    uint8_t reserved = 0; // explicit padding, always zero
};

static_assert(sizeof(ConstraintRecord) == 24, "ConstraintRecord is 24 bytes of plain data");
static_assert(std::is_trivially_copyable<ConstraintRecord>::value, "ConstraintRecord is plain data");
