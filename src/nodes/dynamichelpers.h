// Small pieces shared by the dynamic helper nodes: the C-library random numbers of the
// emitters, the per-point value of a row, and the advance of a held dynamic Body.
#pragma once

#include "geo/body.h"
#include "graph/basenode.h"
#include "params/parameter.h"
#include "params/pointexpression.h"

#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace dynamicnodes {

// rand() scaled into [0, 1).
inline float rand01()
{
    return float(double(std::rand()) / (double(RAND_MAX) + 1.0));
}

// A random length in [0, 1) along a direction taken from the cube [-0.5, 0.5)^3, so the
// directions are not uniform over the sphere.
inline Vec4f randomDirection()
{
    const float r = rand01();
    const float x = rand01() - 0.5f, y = rand01() - 0.5f, z = rand01() - 0.5f;
    const float len2 = x * x + y * y + z * z;
    if (!(len2 > 0.f)) return Vec4f(0.f, 0.f, 0.f, 0.f);
    const float s = r / std::sqrt(len2);
    return Vec4f(x * s, y * s, z * s, 0.f);
}

// The row's per-point program compiled over `body` when the row is per point and the
// program compiles; null otherwise (then the row's plain value applies).
inline const PointExpression* perPointProgram(Parameter* row, const BodyPtr& body)
{
    if (!row || !row->isPerPoint) return nullptr;
    row->setPointExpression(body);
    if (!row->pointExpression || !row->pointExpression->valid()) return nullptr;
    return row->pointExpression.get();
}

// The per-point form of a node's "enabled" row over `body`: `mask` is its program, or null
// when the row is a plain value. false (with one printed line) when the row is per point
// but its program doesn't compile: then the node emits nothing.
inline bool enabledMask(BaseNode& node, const BodyPtr& body, const PointExpression*& mask)
{
    Parameter* row = node.params.get("enabled");
    mask = perPointProgram(row, body);
    if (row && row->isPerPoint && !mask) {
        std::printf("%s: the per-point enabled expression doesn't compile; nothing emitted.\n", node.name().c_str());
        return false;
    }
    return true;
}

// One step of a held particle Body: v += force / 0.014 * dt * forceScale where there is a
// A new dynamic Body with the particle channels v, Cd and age, as the origins start it.
inline BodyPtr newParticleBody()
{
    auto body = std::make_shared<Body>();
    body->isDynamic = true;
    body->points->addAttrib("v", ATTRIB_VELOCITY);
    body->points->addAttrib("Cd", ATTRIB_COLOR);
    body->points->addAttrib("age", ATTRIB_FLOAT);
    return body;
}

// `force` channel, P += v * dt, age += dt where there is an `age` channel.
inline void advanceParticles(Body& body, float dt, float forceScale)
{
    PointData& pd = *body.points;
    const size_t n = pd.size();
    if (!pd.hasV || pd.v.size() != n) return;
    const int forceType = pd.attribType("force");
    const VecArray* force =
        forceType >= ATTRIB_VECTOR && forceType <= ATTRIB_NORMAL ? pd.attribAs<VecArray>("force") : nullptr;
    FloatArray* age = pd.attribType("age") == ATTRIB_FLOAT ? pd.attribAs<FloatArray>("age") : nullptr;
    const float k = dt * forceScale / 0.014f;
    for (size_t i = 0; i < n; ++i) {
        Vec4f& v = pd.v[i];
        if (force && i < force->size()) {
            const Vec4f& f = (*force)[i];
            v.x += f.x * k;
            v.y += f.y * k;
            v.z += f.z * k;
        }
        Vec4f& p = pd.P[i];
        p.x += v.x * dt;
        p.y += v.y * dt;
        p.z += v.z * dt;
        if (age && i < age->size()) (*age)[i] += dt;
    }
}

} // namespace dynamicnodes
