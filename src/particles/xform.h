// Transform helpers of the classic sources and colliders: a pose from translate, rotate
// (degrees, about X, then Y, then Z) and scale, in the row-vector convention that the
// geometry objects use (p' = p * M, translation in the last row), with products,
// inverses and the maps of points, directions and distance-field gradients.
#pragma once

#include "geo/vec.h"

namespace xform {

// Scale, then rotation about X, Y, Z in degrees (0.017453292 rad each), then translation.
// Composed in doubles, stored as floats.
Mat4f compose(const Vec4f& translate, const Vec4f& rotateDegrees, const Vec4f& scale);
// The row-major double pose of a mesh part, as floats.
Mat4f fromDoubles(const double m[16]);
// p * a * b: first a, then b.
Mat4f multiply(const Mat4f& a, const Mat4f& b);
// False (and `out` untouched) when the matrix can't be inverted.
bool invert(const Mat4f& m, Mat4f& out);
// The same matrix without scale (rows normalised); keepTranslation clears row 3 if false.
Mat4f scaleFree(const Mat4f& m, bool keepTranslation);
// Length of each of the first three rows: how much the local axes stretch.
Vec4f axisScales(const Mat4f& m);

// (x, y, z, 1) * m with the perspective divide; w of p is kept.
Vec4f point(const Vec4f& p, const Mat4f& m);
// (x, y, z, 0) * m: the linear part only; w of d is kept.
Vec4f direction(const Vec4f& d, const Mat4f& m);
// The gradient of a field read through `m` (a map from this space into the field's
// space), in this space: m's linear part times g as a column.
Vec4f gradient(const Vec4f& g, const Mat4f& m);

// The shortest rotation taking the unit vector `from` onto the direction of `to`, for
// column vectors (row-major m[row * 3 + col]); identity for a `to` without length, half a
// turn about the unit `halfTurnAxis` when `to` points the opposite way.
Mat3f rotationBetween(const Vec4f& from, const Vec4f& to, const Vec4f& halfTurnAxis);

} // namespace xform
