// Transform helpers: composition in doubles, a general 4x4 inverse by cofactors, and the
// point, direction and gradient maps of the row-vector convention.
#include "particles/xform.h"

#include <cmath>

namespace xform {

namespace {

constexpr double kDegToRad = 0.017453292;

// Row-major 4x4 product in doubles.
void mul(const double* a, const double* b, double* out)
{
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) {
            double s = 0.0;
            for (int k = 0; k < 4; ++k) s += a[r * 4 + k] * b[k * 4 + c];
            out[r * 4 + c] = s;
        }
}

void identity(double* m)
{
    for (int i = 0; i < 16; ++i) m[i] = (i % 5 == 0) ? 1.0 : 0.0;
}

} // namespace

Mat4f compose(const Vec4f& t, const Vec4f& r, const Vec4f& s)
{
    double S[16], X[16], Y[16], Z[16], T[16];
    identity(S);
    S[0] = s.x;
    S[5] = s.y;
    S[10] = s.z;
    // Row-vector rotations: the transposes of the column-vector ones.
    const double a = r.x * kDegToRad, b = r.y * kDegToRad, c = r.z * kDegToRad;
    identity(X);
    X[5] = std::cos(a);
    X[6] = std::sin(a);
    X[9] = -std::sin(a);
    X[10] = std::cos(a);
    identity(Y);
    Y[0] = std::cos(b);
    Y[2] = -std::sin(b);
    Y[8] = std::sin(b);
    Y[10] = std::cos(b);
    identity(Z);
    Z[0] = std::cos(c);
    Z[1] = std::sin(c);
    Z[4] = -std::sin(c);
    Z[5] = std::cos(c);
    identity(T);
    T[12] = t.x;
    T[13] = t.y;
    T[14] = t.z;
    double sx[16], sxy[16], sxyz[16], all[16];
    mul(S, X, sx);
    mul(sx, Y, sxy);
    mul(sxy, Z, sxyz);
    mul(sxyz, T, all);
    return fromDoubles(all);
}

Mat4f fromDoubles(const double m[16])
{
    Mat4f out;
    for (int i = 0; i < 16; ++i) out.m[i] = float(m[i]);
    return out;
}

Mat4f multiply(const Mat4f& a, const Mat4f& b)
{
    double da[16], db[16], out[16];
    for (int i = 0; i < 16; ++i) {
        da[i] = a.m[i];
        db[i] = b.m[i];
    }
    mul(da, db, out);
    return fromDoubles(out);
}

bool invert(const Mat4f& in, Mat4f& out)
{
    double m[16], inv[16];
    for (int i = 0; i < 16; ++i) m[i] = in.m[i];
    inv[0] = m[5] * m[10] * m[15] - m[5] * m[11] * m[14] - m[9] * m[6] * m[15] + m[9] * m[7] * m[14] +
             m[13] * m[6] * m[11] - m[13] * m[7] * m[10];
    inv[4] = -m[4] * m[10] * m[15] + m[4] * m[11] * m[14] + m[8] * m[6] * m[15] - m[8] * m[7] * m[14] -
             m[12] * m[6] * m[11] + m[12] * m[7] * m[10];
    inv[8] = m[4] * m[9] * m[15] - m[4] * m[11] * m[13] - m[8] * m[5] * m[15] + m[8] * m[7] * m[13] +
             m[12] * m[5] * m[11] - m[12] * m[7] * m[9];
    inv[12] = -m[4] * m[9] * m[14] + m[4] * m[10] * m[13] + m[8] * m[5] * m[14] - m[8] * m[6] * m[13] -
              m[12] * m[5] * m[10] + m[12] * m[6] * m[9];
    inv[1] = -m[1] * m[10] * m[15] + m[1] * m[11] * m[14] + m[9] * m[2] * m[15] - m[9] * m[3] * m[14] -
             m[13] * m[2] * m[11] + m[13] * m[3] * m[10];
    inv[5] = m[0] * m[10] * m[15] - m[0] * m[11] * m[14] - m[8] * m[2] * m[15] + m[8] * m[3] * m[14] +
             m[12] * m[2] * m[11] - m[12] * m[3] * m[10];
    inv[9] = -m[0] * m[9] * m[15] + m[0] * m[11] * m[13] + m[8] * m[1] * m[15] - m[8] * m[3] * m[13] -
             m[12] * m[1] * m[11] + m[12] * m[3] * m[9];
    inv[13] = m[0] * m[9] * m[14] - m[0] * m[10] * m[13] - m[8] * m[1] * m[14] + m[8] * m[2] * m[13] +
              m[12] * m[1] * m[10] - m[12] * m[2] * m[9];
    inv[2] = m[1] * m[6] * m[15] - m[1] * m[7] * m[14] - m[5] * m[2] * m[15] + m[5] * m[3] * m[14] +
             m[13] * m[2] * m[7] - m[13] * m[3] * m[6];
    inv[6] = -m[0] * m[6] * m[15] + m[0] * m[7] * m[14] + m[4] * m[2] * m[15] - m[4] * m[3] * m[14] -
             m[12] * m[2] * m[7] + m[12] * m[3] * m[6];
    inv[10] = m[0] * m[5] * m[15] - m[0] * m[7] * m[13] - m[4] * m[1] * m[15] + m[4] * m[3] * m[13] +
              m[12] * m[1] * m[7] - m[12] * m[3] * m[5];
    inv[14] = -m[0] * m[5] * m[14] + m[0] * m[6] * m[13] + m[4] * m[1] * m[14] - m[4] * m[2] * m[13] -
              m[12] * m[1] * m[6] + m[12] * m[2] * m[5];
    inv[3] = -m[1] * m[6] * m[11] + m[1] * m[7] * m[10] + m[5] * m[2] * m[11] - m[5] * m[3] * m[10] -
             m[9] * m[2] * m[7] + m[9] * m[3] * m[6];
    inv[7] = m[0] * m[6] * m[11] - m[0] * m[7] * m[10] - m[4] * m[2] * m[11] + m[4] * m[3] * m[10] +
             m[8] * m[2] * m[7] - m[8] * m[3] * m[6];
    inv[11] = -m[0] * m[5] * m[11] + m[0] * m[7] * m[9] + m[4] * m[1] * m[11] - m[4] * m[3] * m[9] -
              m[8] * m[1] * m[7] + m[8] * m[3] * m[5];
    inv[15] = m[0] * m[5] * m[10] - m[0] * m[6] * m[9] - m[4] * m[1] * m[10] + m[4] * m[2] * m[9] +
              m[8] * m[1] * m[6] - m[8] * m[2] * m[5];
    const double det = m[0] * inv[0] + m[1] * inv[4] + m[2] * inv[8] + m[3] * inv[12];
    // A pose with a zero (or vanishing) scale has no inverse worth using.
    if (!std::isfinite(det) || std::fabs(det) < 1e-30) return false;
    for (int i = 0; i < 16; ++i) out.m[i] = float(inv[i] / det);
    return true;
}

Mat4f scaleFree(const Mat4f& m, bool keepTranslation)
{
    Mat4f out = m;
    for (int r = 0; r < 3; ++r) {
        const double len =
            std::sqrt(double(m.m[r * 4]) * m.m[r * 4] + double(m.m[r * 4 + 1]) * m.m[r * 4 + 1] +
                      double(m.m[r * 4 + 2]) * m.m[r * 4 + 2]);
        if (len > 0.0)
            for (int c = 0; c < 3; ++c) out.m[r * 4 + c] = float(m.m[r * 4 + c] / len);
    }
    if (!keepTranslation) out.m[12] = out.m[13] = out.m[14] = 0.f;
    return out;
}

Vec4f axisScales(const Mat4f& m)
{
    Vec4f s;
    float* v[3] = {&s.x, &s.y, &s.z};
    for (int r = 0; r < 3; ++r)
        *v[r] = std::sqrt(m.m[r * 4] * m.m[r * 4] + m.m[r * 4 + 1] * m.m[r * 4 + 1] +
                          m.m[r * 4 + 2] * m.m[r * 4 + 2]);
    return s;
}

Vec4f point(const Vec4f& p, const Mat4f& m)
{
    const float* a = m.m;
    float x = p.x * a[0] + p.y * a[4] + p.z * a[8] + a[12];
    float y = p.x * a[1] + p.y * a[5] + p.z * a[9] + a[13];
    float z = p.x * a[2] + p.y * a[6] + p.z * a[10] + a[14];
    const float w = p.x * a[3] + p.y * a[7] + p.z * a[11] + a[15];
    if (w != 1.f && w != 0.f) {
        const float k = 1.f / w;
        x *= k;
        y *= k;
        z *= k;
    }
    return Vec4f(x, y, z, p.w);
}

Vec4f direction(const Vec4f& d, const Mat4f& m)
{
    const float* a = m.m;
    return Vec4f(d.x * a[0] + d.y * a[4] + d.z * a[8], d.x * a[1] + d.y * a[5] + d.z * a[9],
                 d.x * a[2] + d.y * a[6] + d.z * a[10], d.w);
}

Vec4f gradient(const Vec4f& g, const Mat4f& m)
{
    const float* a = m.m;
    return Vec4f(a[0] * g.x + a[1] * g.y + a[2] * g.z, a[4] * g.x + a[5] * g.y + a[6] * g.z,
                 a[8] * g.x + a[9] * g.y + a[10] * g.z, 0.f);
}

Mat3f rotationBetween(const Vec4f& from, const Vec4f& to, const Vec4f& halfTurnAxis)
{
    Mat3f r;
    const double len = std::sqrt(double(to.x) * to.x + double(to.y) * to.y + double(to.z) * to.z);
    if (!(len > 1e-12) || !std::isfinite(len)) return r;
    const double a[3] = {from.x, from.y, from.z};
    const double b[3] = {to.x / len, to.y / len, to.z / len};
    const double c = a[0] * b[0] + a[1] * b[1] + a[2] * b[2];
    if (c < -0.999999) { // opposite: R = 2 u u^T - I
        const double u[3] = {halfTurnAxis.x, halfTurnAxis.y, halfTurnAxis.z};
        for (int i = 0; i < 3; ++i)
            for (int j = 0; j < 3; ++j) r.m[i * 3 + j] = float(2.0 * u[i] * u[j] - (i == j ? 1.0 : 0.0));
        return r;
    }
    // Rodrigues with v = a x b: R = I + [v] + [v]^2 / (1 + c)
    const double v[3] = {a[1] * b[2] - a[2] * b[1], a[2] * b[0] - a[0] * b[2], a[0] * b[1] - a[1] * b[0]};
    const double k[9] = {0.0, -v[2], v[1], v[2], 0.0, -v[0], -v[1], v[0], 0.0};
    const double f = 1.0 / (1.0 + c);
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) {
            double k2 = 0.0;
            for (int m = 0; m < 3; ++m) k2 += k[i * 3 + m] * k[m * 3 + j];
            r.m[i * 3 + j] = float((i == j ? 1.0 : 0.0) + k[i * 3 + j] + k2 * f);
        }
    return r;
}

} // namespace xform
