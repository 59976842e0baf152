// Quaternion blending of keyed rotations. With `quaternionRotation` on, a set whose
// rotateX/Y/Z rows share their key frames is interpolated as one rotation (slerp)
// instead of three independent angles, which avoids the wobble of Euler blending.
// Angles are degrees, applied X first, then Y, then Z (R = Rz * Ry * Rx).
#include "params/parameterset.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

struct Quat {
    double w, x, y, z;
};

const double kDegToRad = M_PI / 180.0;

Quat fromEuler(double rxDeg, double ryDeg, double rzDeg)
{
    const double cx = std::cos(rxDeg * kDegToRad * 0.5), sx = std::sin(rxDeg * kDegToRad * 0.5);
    const double cy = std::cos(ryDeg * kDegToRad * 0.5), sy = std::sin(ryDeg * kDegToRad * 0.5);
    const double cz = std::cos(rzDeg * kDegToRad * 0.5), sz = std::sin(rzDeg * kDegToRad * 0.5);
    return Quat{cz * cy * cx + sz * sy * sx, cz * cy * sx - sz * sy * cx, cz * sy * cx + sz * cy * sx,
                sz * cy * cx - cz * sy * sx};
}

void toEuler(const Quat& q, double& rx, double& ry, double& rz)
{
    const double sinp = std::clamp(2.0 * (q.w * q.y - q.z * q.x), -1.0, 1.0);
    rx = std::atan2(2.0 * (q.w * q.x + q.y * q.z), 1.0 - 2.0 * (q.x * q.x + q.y * q.y)) / kDegToRad;
    ry = std::asin(sinp) / kDegToRad;
    rz = std::atan2(2.0 * (q.w * q.z + q.x * q.y), 1.0 - 2.0 * (q.y * q.y + q.z * q.z)) / kDegToRad;
}

Quat slerp(Quat a, Quat b, double t)
{
    double d = a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z;
    if (d < 0.0) { // take the nearer of b and -b
        b = Quat{-b.w, -b.x, -b.y, -b.z};
        d = -d;
    }
    double wa = 1.0 - t, wb = t;
    if (d < 0.9995) {
        const double theta = std::acos(d);
        const double s = std::sin(theta);
        wa = std::sin((1.0 - t) * theta) / s;
        wb = std::sin(t * theta) / s;
    }
    Quat r{wa * a.w + wb * b.w, wa * a.x + wb * b.x, wa * a.y + wb * b.y, wa * a.z + wb * b.z};
    const double n = std::sqrt(r.w * r.w + r.x * r.x + r.y * r.y + r.z * r.z);
    return Quat{r.w / n, r.x / n, r.y / n, r.z / n};
}

// The key at or below t and the key above t of one row; false where either is missing.
bool keysAround(const Parameter& p, double t, double& f0, double& v0, double& f1, double& v1)
{
    auto above = p.keys.upper_bound(t);
    if (above == p.keys.end() || above == p.keys.begin()) return false;
    auto below = std::prev(above);
    f0 = below->first;
    v0 = below->second.second;
    f1 = above->first;
    v1 = above->second.second;
    return true;
}

} // namespace

void ParameterSet::blendRotationKeys(float frame)
{
    if (rotateXIndex < 0 || rotateYIndex < 0 || rotateZIndex < 0) return;
    Parameter* rows[3] = {&parameters[size_t(rotateXIndex)], &parameters[size_t(rotateYIndex)],
                          &parameters[size_t(rotateZIndex)]};
    if (rows[0]->keys.empty() && rows[1]->keys.empty() && rows[2]->keys.empty()) return;

    double f0[3], v0[3], f1[3], v1[3];
    int inside = 0;
    for (int i = 0; i < 3; ++i) inside += keysAround(*rows[i], frame, f0[i], v0[i], f1[i], v1[i]) ? 1 : 0;
    if (inside == 0) return; // before the first or after the last key: rows hold the key values
    if (inside != 3 || f0[0] != f0[1] || f0[0] != f0[2] || f1[0] != f1[1] || f1[0] != f1[2]) {
        std::printf("%s: Rotation keys are not in sync for quaternion interpolation.\n", name.c_str());
        return;
    }
    const double t = std::clamp((double(frame) - f0[0]) / (f1[0] - f0[0]), 0.0, 1.0);
    const Quat q = slerp(fromEuler(v0[0], v0[1], v0[2]), fromEuler(v1[0], v1[1], v1[2]), t);
    double e[3];
    toEuler(q, e[0], e[1], e[2]);
    for (int i = 0; i < 3; ++i)
        if (rows[i]->value && rows[i]->type == kParamFloat) *static_cast<float*>(rows[i]->value) = float(e[i]);
}
