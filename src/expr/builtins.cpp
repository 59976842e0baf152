// Table of the built-in functions described in builtins.h, kept in alphabetical order
// so that lookup is a binary search.
#include "expr/builtins.h"

#include <algorithm>

namespace expr {

namespace {

constexpr double kPi = 3.14159265358979323846;

const Builtin kBuiltins[] = {
    {"abs", Builtin::Fixed, Op::Abs, 1, 0},       {"acos", Builtin::Fixed, Op::Acos, 1, 0},
    {"acosh", Builtin::Fixed, Op::Acosh, 1, 0},   {"asin", Builtin::Fixed, Op::Asin, 1, 0},
    {"asinh", Builtin::Fixed, Op::Asinh, 1, 0},   {"atan", Builtin::Fixed, Op::Atan, 1, 0},
    {"atan2", Builtin::Fixed, Op::Atan2, 2, 0},   {"atanh", Builtin::Fixed, Op::Atanh, 1, 0},
    {"avg", Builtin::Avg, Op::Add, 0, 0},         {"ceil", Builtin::Fixed, Op::Ceil, 1, 0},
    {"clamp", Builtin::Fixed, Op::Clamp, 3, 0},   {"cos", Builtin::Fixed, Op::Cos, 1, 0},
    {"cosh", Builtin::Fixed, Op::Cosh, 1, 0},     {"cot", Builtin::Fixed, Op::Cot, 1, 0},
    {"csc", Builtin::Fixed, Op::Csc, 1, 0},
    {"deg2grad", Builtin::Scale, Op::Mul, 1, 10.0 / 9.0},
    {"deg2rad", Builtin::Scale, Op::Mul, 1, kPi / 180.0},
    {"equal", Builtin::Fixed, Op::Equal, 2, 0},   {"erf", Builtin::Fixed, Op::Erf, 1, 0},
    {"erfc", Builtin::Fixed, Op::Erfc, 1, 0},     {"exp", Builtin::Fixed, Op::Exp, 1, 0},
    {"expm1", Builtin::Fixed, Op::Expm1, 1, 0},   {"floor", Builtin::Fixed, Op::Floor, 1, 0},
    {"frac", Builtin::Fixed, Op::Frac, 1, 0},
    {"grad2deg", Builtin::Scale, Op::Mul, 1, 9.0 / 10.0},
    {"hypot", Builtin::Fixed, Op::Hypot, 2, 0},   {"if", Builtin::If, Op::Select, 3, 0},
    {"inrange", Builtin::Fixed, Op::InRange, 3, 0}, {"log", Builtin::Fixed, Op::Log, 1, 0},
    {"log10", Builtin::Fixed, Op::Log10, 1, 0},   {"log1p", Builtin::Fixed, Op::Log1p, 1, 0},
    {"log2", Builtin::Fixed, Op::Log2, 1, 0},     {"logn", Builtin::Fixed, Op::Logn, 2, 0},
    {"max", Builtin::Fold, Op::Max, 0, 0},        {"min", Builtin::Fold, Op::Min, 0, 0},
    {"mul", Builtin::Fold, Op::Mul, 0, 0},        {"ncdf", Builtin::Fixed, Op::Ncdf, 1, 0},
    {"not", Builtin::Fixed, Op::Not, 1, 0},
    {"not_equal", Builtin::Fixed, Op::NotEqual, 2, 0},
    {"pow", Builtin::Fixed, Op::Pow, 2, 0},
    {"rad2deg", Builtin::Scale, Op::Mul, 1, 180.0 / kPi},
    {"root", Builtin::Fixed, Op::Root, 2, 0},     {"round", Builtin::Fixed, Op::Round, 1, 0},
    {"roundn", Builtin::Fixed, Op::Roundn, 2, 0}, {"sec", Builtin::Fixed, Op::Sec, 1, 0},
    {"sgn", Builtin::Fixed, Op::Sgn, 1, 0},       {"sin", Builtin::Fixed, Op::Sin, 1, 0},
    {"sinc", Builtin::Fixed, Op::Sinc, 1, 0},     {"sinh", Builtin::Fixed, Op::Sinh, 1, 0},
    {"sqrt", Builtin::Fixed, Op::Sqrt, 1, 0},     {"sum", Builtin::Fold, Op::Add, 0, 0},
    {"tan", Builtin::Fixed, Op::Tan, 1, 0},       {"tanh", Builtin::Fixed, Op::Tanh, 1, 0},
    {"trunc", Builtin::Fixed, Op::Trunc, 1, 0},
};

} // namespace

const Builtin* findBuiltin(std::string_view lowerName)
{
    // The table is in alphabetical order.
    const Builtin* end = kBuiltins + sizeof kBuiltins / sizeof kBuiltins[0];
    const Builtin* it = std::lower_bound(kBuiltins, end, lowerName,
        [](const Builtin& b, std::string_view name) { return std::string_view(b.name) < name; });
    return (it != end && lowerName == it->name) ? it : nullptr;
}

} // namespace expr
