// The operations a compiled formula is made of and what each one computes. Every place
// that evaluates an operation (constant folding, the per-element interpreter, the block
// interpreter) expands the tables below, so all of them agree to the bit. Operands are
// named a, b, c in order; truth is "not zero", and logic results are 1 or 0.
#pragma once

#include "expr/mathfn.h"

#include <cmath>
#include <cstdint>

namespace expr {

#define QORVA_EXPR_UNARY_OPS(X)                                                            \
    X(Neg, -a)                                                                             \
    X(Not, a == T(0) ? T(1) : T(0))                                                        \
    X(Abs, std::fabs(a))                                                                   \
    X(Acos, std::acos(a))                                                                  \
    X(Acosh, std::acosh(a))                                                                \
    X(Asin, std::asin(a))                                                                  \
    X(Asinh, std::asinh(a))                                                                \
    X(Atan, std::atan(a))                                                                  \
    X(Atanh, std::atanh(a))                                                                \
    X(Ceil, std::ceil(a))                                                                  \
    X(Cos, std::cos(a))                                                                    \
    X(Cosh, std::cosh(a))                                                                  \
    X(Cot, T(1) / std::tan(a))                                                             \
    X(Csc, T(1) / std::sin(a))                                                             \
    X(Sec, T(1) / std::cos(a))                                                             \
    X(Erf, std::erf(a))                                                                    \
    X(Erfc, std::erfc(a))                                                                  \
    X(Exp, std::exp(a))                                                                    \
    X(Expm1, std::expm1(a))                                                                \
    X(Floor, std::floor(a))                                                                \
    X(Frac, a - std::trunc(a))                                                             \
    X(Log, std::log(a))                                                                    \
    X(Log10, std::log10(a))                                                                \
    X(Log1p, std::log1p(a))                                                                \
    X(Log2, std::log2(a))                                                                  \
    X(Ncdf, ncdfOf(a))                                                                     \
    X(Round, std::round(a))                                                                \
    X(Sgn, sgnOf(a))                                                                       \
    X(Sin, std::sin(a))                                                                    \
    X(Sinc, sincOf(a))                                                                     \
    X(Sinh, std::sinh(a))                                                                  \
    X(Sqrt, std::sqrt(a))                                                                  \
    X(Tan, std::tan(a))                                                                    \
    X(Tanh, std::tanh(a))                                                                  \
    X(Trunc, std::trunc(a))

#define QORVA_EXPR_BINARY_OPS(X)                                                           \
    X(Add, a + b)                                                                          \
    X(Sub, a - b)                                                                          \
    X(Mul, a * b)                                                                          \
    X(Div, a / b)                                                                          \
    X(Mod, std::fmod(a, b))                                                                \
    X(Pow, std::pow(a, b))                                                                 \
    X(Lt, a < b ? T(1) : T(0))                                                             \
    X(Le, a <= b ? T(1) : T(0))                                                            \
    X(Gt, a > b ? T(1) : T(0))                                                             \
    X(Ge, a >= b ? T(1) : T(0))                                                            \
    X(Eq, a == b ? T(1) : T(0))                                                            \
    X(Ne, a != b ? T(1) : T(0))                                                            \
    X(And, (a != T(0)) & (b != T(0)) ? T(1) : T(0))                                        \
    X(Or, (a != T(0)) | (b != T(0)) ? T(1) : T(0))                                         \
    X(Xor, (a != T(0)) != (b != T(0)) ? T(1) : T(0))                                       \
    X(Nand, (a != T(0)) & (b != T(0)) ? T(0) : T(1))                                       \
    X(Nor, (a != T(0)) | (b != T(0)) ? T(0) : T(1))                                        \
    X(Xnor, (a != T(0)) == (b != T(0)) ? T(1) : T(0))                                      \
    X(Min, b < a ? b : a)                                                                  \
    X(Max, a < b ? b : a)                                                                  \
    X(Atan2, std::atan2(a, b))                                                             \
    X(Hypot, std::hypot(a, b))                                                             \
    X(Logn, std::log(a) / std::log(b))                                                     \
    X(Root, std::pow(a, T(1) / b))                                                         \
    X(Roundn, roundnOf(a, b))                                                              \
    X(Equal, approxEqual(a, b))                                                            \
    X(NotEqual, T(1) - approxEqual(a, b))

#define QORVA_EXPR_TERNARY_OPS(X)                                                          \
    X(Clamp, b < a ? a : (b > c ? c : b))                                                  \
    X(InRange, (a <= b) & (b <= c) ? T(1) : T(0))                                          \
    X(Select, a != T(0) ? b : c)

enum class Op : uint8_t {
    Const, // a compile-time value; never an instruction
    Load,  // a symbol's binding
    Call,  // a fixed-arity function from the symbol table
    CallGeneric,
#define QORVA_EXPR_NAME(name, e) name,
    QORVA_EXPR_UNARY_OPS(QORVA_EXPR_NAME) QORVA_EXPR_BINARY_OPS(QORVA_EXPR_NAME)
        QORVA_EXPR_TERNARY_OPS(QORVA_EXPR_NAME)
#undef QORVA_EXPR_NAME
};

// Number of value operands of a pure operation; 0 for Const, Load and calls.
int opArity(Op op);

// The value of a pure operation on the given operands (unused ones are ignored).
template <typename T> inline T evalOp(Op op, T a, T b, T c)
{
    switch (op) {
#define QORVA_EXPR_CASE(name, e) case Op::name: return (e);
        QORVA_EXPR_UNARY_OPS(QORVA_EXPR_CASE)
        QORVA_EXPR_BINARY_OPS(QORVA_EXPR_CASE)
        QORVA_EXPR_TERNARY_OPS(QORVA_EXPR_CASE)
#undef QORVA_EXPR_CASE
    default:
        (void)b;
        (void)c;
        return T(0);
    }
}

} // namespace expr
