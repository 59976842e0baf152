#include "ui/transformgizmo.h"

#include "app/sceneobject.h"
#include "params/parameterset.h"
#include "ui/uiglobals.h"
#include "ui/viewportbuffers.h"

#include <algorithm>
#include <cmath>

const char* const TransformGizmo::kKeys[9] = {"translateX", "translateY", "translateZ", "rotateX", "rotateY",
                                              "rotateZ",    "scaleX",     "scaleY",     "scaleZ"};

namespace {

constexpr float kPi = 3.14159265f;
constexpr int kRingSegments = 48;
constexpr float kHitPixels = 8.f;

QVector3D axisColor(int i, bool highlighted)
{
    if (highlighted) return QVector3D(1.f, 0.9f, 0.1f);
    return QVector3D(i == 0 ? 0.95f : 0.15f, i == 1 ? 0.9f : 0.15f, i == 2 ? 0.95f : 0.2f);
}

float segmentDistance(const QPointF& p, const QPointF& a, const QPointF& b)
{
    const QPointF ab = b - a;
    const double len2 = QPointF::dotProduct(ab, ab);
    const double t = len2 > 0.0 ? std::clamp(QPointF::dotProduct(p - a, ab) / len2, 0.0, 1.0) : 0.0;
    const QPointF d = p - (a + ab * t);
    return float(std::sqrt(QPointF::dotProduct(d, d)));
}

// Two unit vectors spanning the plane normal to `n`.
void planeBasis(const QVector3D& n, QVector3D& u, QVector3D& v)
{
    const QVector3D helper = std::fabs(n.y()) < 0.9f ? QVector3D(0.f, 1.f, 0.f) : QVector3D(1.f, 0.f, 0.f);
    u = QVector3D::crossProduct(n, helper).normalized();
    v = QVector3D::crossProduct(n, u).normalized();
}

} // namespace

bool TransformGizmo::readRows(ParameterSet* rows, float out[9])
{
    if (!rows) return false;
    for (int i = 0; i < 9; ++i) {
        Parameter* p = rows->get(kKeys[i]);
        if (!p || !p->value || p->type != kParamFloat) return false;
        out[i] = *static_cast<float*>(p->value);
    }
    return true;
}

bool TransformGizmo::readTarget()
{
    valid = false;
    if (mode == Off) return false;
    for (const SelectionEntry& entry : currentSelection()) {
        if (readRows(parameterSetOf(entry), values)) {
            name = entry.name;
            isNode = entry.typeCode == kTypeGraphNode;
            valid = true;
            return true;
        }
    }
    return false;
}

QVector3D TransformGizmo::axisDir(int i) const
{
    QVector3D e(i == 0 ? 1.f : 0.f, i == 1 ? 1.f : 0.f, i == 2 ? 1.f : 0.f);
    if (worldSpace && mode != Scale) return e;
    QMatrix4x4 r;
    r.rotate(values[5], 0.f, 0.f, 1.f);
    r.rotate(values[4], 0.f, 1.f, 0.f);
    r.rotate(values[3], 1.f, 0.f, 0.f);
    return r.mapVector(e).normalized();
}

QPointF TransformGizmo::toScreen(const QVector3D& world, const QMatrix4x4& viewProj, QSize size)
{
    const QVector4D c = viewProj * QVector4D(world, 1.f);
    const float w = std::fabs(c.w()) > 1e-6f ? c.w() : 1e-6f;
    return QPointF((c.x() / w + 1.0) * 0.5 * size.width(), (1.0 - c.y() / w) * 0.5 * size.height());
}

float TransformGizmo::handleLength(const QMatrix4x4& view, const QMatrix4x4& proj, QSize size, float pixels) const
{
    const float depth = std::max(-(view.map(origin())).z(), 0.05f);
    const float focal = proj(1, 1) * 0.5f * float(std::max(size.height(), 1));
    return focal > 0.f ? pixels * depth / focal : 1.f;
}

void TransformGizmo::fillLines(ViewportBuffers& out, float length) const
{
    out.clearData();
    out.pickable = false;
    const QVector3D o = origin();
    const auto segment = [&out](const QVector3D& a, const QVector3D& b, const QVector3D& c) {
        out.linePos.insert(out.linePos.end(), {a.x(), a.y(), a.z(), b.x(), b.y(), b.z()});
        out.lineCol.insert(out.lineCol.end(), {c.x(), c.y(), c.z(), c.x(), c.y(), c.z()});
    };
    for (int i = 0; i < 3; ++i) {
        const QVector3D d = axisDir(i);
        const QVector3D c = axisColor(i, i == axis || (!dragging && i == hoverAxis));
        if (mode == Rotate) {
            QVector3D u, v;
            planeBasis(d, u, v);
            for (int k = 0; k < kRingSegments; ++k) {
                const float a0 = 2.f * kPi * float(k) / kRingSegments, a1 = 2.f * kPi * float(k + 1) / kRingSegments;
                segment(o + length * (std::cos(a0) * u + std::sin(a0) * v),
                        o + length * (std::cos(a1) * u + std::sin(a1) * v), c);
            }
            continue;
        }
        const QVector3D tip = o + d * length;
        segment(o, tip, c);
        QVector3D u, v;
        planeBasis(d, u, v);
        const float s = length * 0.08f;
        if (mode == Translate) {
            const QVector3D back = tip - d * (2.f * s);
            for (const QVector3D& side : {u, v, -u, -v}) segment(tip, back + side * s, c);
        } else {
            const QVector3D corners[4] = {tip + (u + v) * s, tip + (u - v) * s, tip + (-u - v) * s, tip + (-u + v) * s};
            for (int k = 0; k < 4; ++k) segment(corners[k], corners[(k + 1) % 4], c);
        }
    }
    out.dirty = true;
}

int TransformGizmo::hitTest(const QPointF& pos, const QMatrix4x4& viewProj, QSize size, float length) const
{
    if (!valid || mode == Off) return -1;
    int best = -1;
    float bestDist = kHitPixels;
    const QVector3D o = origin();
    for (int i = 0; i < 3; ++i) {
        const QVector3D d = axisDir(i);
        float dist = 1e9f;
        if (mode == Rotate) {
            QVector3D u, v;
            planeBasis(d, u, v);
            QPointF prev = toScreen(o + length * u, viewProj, size);
            for (int k = 1; k <= kRingSegments; ++k) {
                const float a = 2.f * kPi * float(k) / kRingSegments;
                const QPointF next = toScreen(o + length * (std::cos(a) * u + std::sin(a) * v), viewProj, size);
                dist = std::min(dist, segmentDistance(pos, prev, next));
                prev = next;
            }
        } else {
            dist = segmentDistance(pos, toScreen(o, viewProj, size), toScreen(o + d * length, viewProj, size));
        }
        if (dist < bestDist) {
            bestDist = dist;
            best = i;
        }
    }
    return best;
}

void TransformGizmo::begin(int handle, const QPointF& pos)
{
    dragging = handle >= 0;
    axis = handle;
    startPos = pos;
    std::copy(values, values + 9, startValues);
}

bool TransformGizmo::dragTo(const QPointF& pos, const QMatrix4x4& viewProj, QSize size, float length)
{
    if (!dragging || axis < 0) return false;
    const QPointF delta = pos - startPos;
    float next[9];
    std::copy(startValues, startValues + 9, next);
    // the handle's screen direction at the drag's start
    float savedValues[9];
    std::copy(values, values + 9, savedValues);
    std::copy(startValues, startValues + 9, values);
    const QVector3D d = axisDir(axis);
    const QPointF a = toScreen(origin(), viewProj, size);
    const QPointF screenAxis = toScreen(origin() + d * length, viewProj, size) - a;
    std::copy(savedValues, savedValues + 9, values);
    const double axisLen2 = QPointF::dotProduct(screenAxis, screenAxis);
    const float along = axisLen2 > 1.0 ? float(QPointF::dotProduct(delta, screenAxis) / axisLen2) : 0.f;
    if (mode == Translate) {
        for (int k = 0; k < 3; ++k) next[k] = startValues[k] + along * length * d[k];
    } else if (mode == Rotate) {
        next[3 + axis] = startValues[3 + axis] + float(delta.x() - delta.y()) * 0.5f;
    } else if (mode == Scale) {
        next[6 + axis] = std::max(startValues[6 + axis] * (1.f + along), 0.001f);
    }
    bool changed = false;
    for (int k = 0; k < 9; ++k) {
        changed = changed || next[k] != values[k];
        values[k] = next[k];
    }
    return changed;
}
