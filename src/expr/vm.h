// Runs compiled formulas (code.h). `run` evaluates one element on a slot file on the
// stack; `runBlocks` evaluates a range kBlock elements at a time, each instruction
// looping over the block, with block registers in a per-thread workspace.
#pragma once

#include "expr/code.h"

#include <cstddef>

namespace expr {

template <typename T>
class Vm {
public:
    static T run(const Code<T>& code, size_t i);
    static void runBlocks(const Code<T>& code, size_t first, size_t count, T* out);
};

extern template class Vm<float>;
extern template class Vm<double>;

} // namespace expr
