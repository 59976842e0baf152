// Lowers the value graph to a flat program (code.h): keeps only what the result needs,
// orders it so that operands needing more registers go first, puts everything that does
// not vary per element in the uniform part, and assigns slots with reuse.
#pragma once

#include "expr/code.h"
#include "expr/formula.h"
#include "expr/graph.h"

#include <string>

namespace expr {

template <typename T>
class CodeGen {
public:
    // Fills `code` with the program computing node `root`; false with `error` if it
    // would need more than kMaxSlots slots.
    static bool generate(const Graph<T>& graph, int root, const SymbolTable<T>& symbols,
                         Code<T>& code, std::string& error);
};

extern template class CodeGen<float>;
extern template class CodeGen<double>;

} // namespace expr
