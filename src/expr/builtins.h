// The formula language's built-in functions (exprtk's maths library): how each name maps
// onto the operations of ops.h. Names are matched without regard to case. The parser
// turns a call into nodes; SymbolTable refuses user functions with these names.
#pragma once

#include "expr/ops.h"

#include <string_view>

namespace expr {

struct Builtin {
    enum Form : uint8_t {
        Fixed,  // `op` applied to exactly `arity` arguments
        Fold,   // `op` folded left over one or more arguments (min, max, sum, mul)
        Avg,    // sum of one or more arguments over their count
        Scale,  // the one argument times `factor` (deg2rad, ...)
        If      // if(c, a, b): parsed by the parser itself
    };
    const char* name;
    Form form;
    Op op;
    int arity;
    double factor;
};

// The built-in named `lowerName` (already lower case), or null.
const Builtin* findBuiltin(std::string_view lowerName);

} // namespace expr
