// Operand counts of the formula operations declared in ops.h, used by the graph builder
// and the code generator to know how many inputs a node reads.
#include "expr/ops.h"

namespace expr {

int opArity(Op op)
{
    switch (op) {
#define QORVA_EXPR_ARITY(name, e) case Op::name:
        QORVA_EXPR_UNARY_OPS(QORVA_EXPR_ARITY)
        return 1;
        QORVA_EXPR_BINARY_OPS(QORVA_EXPR_ARITY)
        return 2;
        QORVA_EXPR_TERNARY_OPS(QORVA_EXPR_ARITY)
        return 3;
#undef QORVA_EXPR_ARITY
    default:
        return 0;
    }
}

} // namespace expr
