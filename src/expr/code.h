// A compiled formula: a flat list of instructions over numbered slots. Slots below
// `constants.size()` hold constants; the rest are registers. The uniform part (values
// equal for every element) runs once per call; the varying part runs per element, or
// per block of elements, where every slot it reads is a block of kBlock values.
#pragma once

#include "expr/formula.h"
#include "expr/graph.h"
#include "expr/ops.h"

#include <cstdint>
#include <vector>

namespace expr {

constexpr int kMaxSlots = 512; // slot file of one run; more makes the program too complex
constexpr int kBlock = 128;    // elements per block in `values`

struct Instr {
    Op op = Op::Const;
    uint16_t dst = 0;
    uint16_t a = 0, b = 0, c = 0; // operand slots
    uint32_t aux = 0;             // Load: binding index; Call*: call index
};

template <typename T>
struct CallSite {
    typename SymbolTable<T>::Function function = nullptr;
    typename SymbolTable<T>::GenericFunction generic = nullptr;
    void* user = nullptr;
    uint32_t firstSlot = 0; // argument component slots: slots[firstSlot ...]
    uint16_t slotCount = 0;
    uint32_t firstSize = 0; // generic: argument sizes: sizes[firstSize ...]
    uint16_t argCount = 0;
    int32_t guard = -1;     // slot that must be non-zero for the call to run, else 0
};

template <typename T>
struct Code {
    std::vector<T> constants;
    std::vector<Instr> uniform;
    std::vector<Instr> varying;
    std::vector<Binding> bindings;
    std::vector<CallSite<T>> calls;
    std::vector<uint16_t> slots;   // call argument slots
    std::vector<uint8_t> sizes;    // generic call argument sizes (1 or 3)
    std::vector<uint16_t> liveIn;  // constant and uniform slots the varying part reads
    uint16_t result = 0;
    Variance resultVariance = Variance::Fixed;
    int slotCount = 0;             // slots used in all
    int blockSlotCount = 0;        // 1 + the highest slot the varying part touches
};

} // namespace expr
