// Scalar maths behind the formula language's built-in functions that the C library
// does not provide directly (sgn, sinc, ncdf, roundn, the epsilon comparisons).
// Used by the operation table in ops.h, so folding and both interpreters share them.
#pragma once

#include <cmath>

namespace expr {

// The tolerance exprtk uses for its normalised comparisons and its `epsilon` constant.
template <typename T> constexpr T formulaEpsilon();
template <> constexpr float formulaEpsilon<float>() { return 0.000001f; }
template <> constexpr double formulaEpsilon<double>() { return 0.0000000001; }

template <typename T> inline T sgnOf(T x)
{
    return x > T(0) ? T(1) : (x < T(0) ? T(-1) : T(0));
}

template <typename T> inline T sincOf(T x)
{
    return std::fabs(x) >= formulaEpsilon<T>() ? std::sin(x) / x : T(1);
}

// Standard normal cumulative distribution.
template <typename T> inline T ncdfOf(T x)
{
    return T(0.5) * std::erfc(-x * T(0.70710678118654752440));
}

// x rounded half away from zero to n decimals; n is floored and kept to 0..15.
template <typename T> inline T roundnOf(T x, T n)
{
    static const T powers[16] = {T(1e0),  T(1e1),  T(1e2),  T(1e3),  T(1e4),  T(1e5),
                                 T(1e6),  T(1e7),  T(1e8),  T(1e9),  T(1e10), T(1e11),
                                 T(1e12), T(1e13), T(1e14), T(1e15)};
    int digits = 0;
    if (n >= T(15))
        digits = 15;
    else if (n >= T(0))
        digits = static_cast<int>(n);
    const T p = powers[digits];
    return x < T(0) ? std::ceil(x * p - T(0.5)) / p : std::floor(x * p + T(0.5)) / p;
}

// Equality within a tolerance scaled by the larger magnitude (at least 1).
template <typename T> inline T approxEqual(T a, T b)
{
    const T scale = std::fmax(T(1), std::fmax(std::fabs(a), std::fabs(b)));
    return std::fabs(a - b) <= scale * formulaEpsilon<T>() ? T(1) : T(0);
}

} // namespace expr
