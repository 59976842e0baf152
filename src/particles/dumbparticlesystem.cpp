// The dumb system's rows, particles and its substep.
#include "particles/dumbparticlesystem.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "particles/dumbtraits.h"
#include "particles/force.h"
#include "particles/particleview.h"
#include "particles/rampcolour.h"

#include <algorithm>
#include <cmath>
#include <omp.h>

namespace {

int workerCount(bool half)
{
    const int n = simState ? std::max(1, simState->numThreads) : 1;
    return half ? std::max(1, n / 2) : n;
}

} // namespace

DumbParticleSystem::DumbParticleSystem() : SceneObject(kTypeDumbSystem), body(std::make_shared<Body>())
{
    reset(true);
    ParameterSet& p = params;
    p.add(Parameter(&name, "nodeName", "Object Name", kParamObjectName));
    p.add(Parameter(&radius, "radius", "Radius", kParamFloat));
    p.add(Parameter(&mass, "mass", "Mass", kParamFloat));
    p.add(Parameter(&friction, "friction", "Friction", kParamFloat));
    p.add(Parameter(&whiteWaterSpeed, "whiteWaterSpeed", "Whitewater Speed", kParamFloat));
    p.add(Parameter(&groundPlaneFriction, "groundPlaneFriction", "Ground Friction", kParamFloat));
    p.add(Parameter(&damping, "damping", "Damping", kParamFloat));
    p.add(Parameter(&gravityVector.y, "gravity", "Gravity", kParamFloat));
    p.add(Parameter(&trackUVs, "trackUVs", "Track UVs", kParamBool,
                    "Tracks UVs on the particles coming from the emission geometry."));
    p.add(Parameter(&exportFormat, "exportFormat", "Export Format", kParamString));
    p.add(Parameter(&visible, "visible", "Visibility", kParamBool));
    for (Parameter& row : p.parameters)
        if (row.key != "nodeName") row.text = row.defaultText;
}

void DumbParticleSystem::reset(bool clear)
{
    body->clear();
    PointData& pts = *body->points;
    pts.addAttrib("v", ATTRIB_VELOCITY);
    pts.addAttrib("force", ATTRIB_VECTOR);
    pts.addAttrib("id", ATTRIB_INT);
    pts.addAttrib("Cd", ATTRIB_COLOR);
    pts.addAttrib("width", ATTRIB_FLOAT);
    pts.addAttrib("deleted", ATTRIB_BOOL);
    pts.addAttrib("stick", ATTRIB_FLOAT);
    pts.addAttrib("emissionPos", ATTRIB_POSITION);
    if (clear) particleCount = -1;
}

int DumbParticleSystem::addParticle(const Vec4f& position, const Vec4f& velocity)
{
    PointData& pts = *body->points;
    const int i = pts.addPointV(position, velocity);
    ++particleCount;
    (*pts.attribAs<IntArray>("id"))[size_t(i)] = particleCount;
    (*pts.attribAs<VecArray>("emissionPos"))[size_t(i)] = position;
    (*pts.attribAs<FloatArray>("stick"))[size_t(i)] = 1.f;
    pts.Cd[size_t(i)] = Vec4f(0.5f, 0.5f, 0.5f, 0.5f);
    (*pts.attribAs<FloatArray>("width"))[size_t(i)] = radius;
    return i;
}

int DumbParticleSystem::addParticleWithUv(const Vec4f& position, const Vec4f& velocity, const Vec4f& uv)
{
    const int i = addParticle(position, velocity);
    PointData& pts = *body->points;
    if (trackUVs) {
        pts.addAttrib("uv", ATTRIB_VECTOR);
        (*pts.attribAs<VecArray>("uv"))[size_t(i)] = uv;
    } else if (pts.hasAttrib("uv")) {
        pts.removeAttrib("uv");
    }
    return i;
}

void DumbParticleSystem::boundingBox(Vec4f& min, Vec4f& max) const
{
    min = Vec4f(99999.f, 99999.f, 99999.f, 0.f);
    max = Vec4f(-99999.f, -99999.f, -99999.f, 0.f);
    for (const Vec4f& p : body->points->P) {
        min = Vec4f(std::min(min.x, p.x), std::min(min.y, p.y), std::min(min.z, p.z), 0.f);
        max = Vec4f(std::max(max.x, p.x), std::max(max.y, p.y), std::max(max.z, p.z), 0.f);
    }
}

BodyPtr DumbParticleSystem::exportBody() const
{
    auto out = std::make_shared<Body>();
    out->points = body->points->copyPointsExcept(exportExcludedChannels);
    return out;
}

void DumbParticleSystem::step()
{
    maxSpeedLastStep = -1.f;
    if (!enabled) return;
    emitPass();
    integrate();
    forcePass();
    applyForces();
    if (!simState || simState->collideGround) groundPass();
    collidePass();
    removeDeleted();
}

void DumbParticleSystem::removeDeleted()
{
    PointData& pts = *body->points;
    const BitArray* deleted = pts.attribAs<BitArray>("deleted");
    if (!deleted) return;
    // From the back, so that the point moved into a freed slot has been looked at already.
    for (size_t i = pts.size(); i-- > 0;)
        if (deleted->get(i)) pts.removePoint(i);
}

void DumbParticleSystem::emitPass()
{
    emitFromSources(*this);
}

void DumbParticleSystem::integrate()
{
    PointData& pts = *body->points;
    const float dt = simState ? simState->dt : 0.f;
    const VecArray& force = *pts.attribAs<VecArray>("force");
    const int64_t n = int64_t(pts.size());
    float fastest = maxSpeedLastStep;
#pragma omp parallel for schedule(static) num_threads(workerCount(false)) reduction(max : fastest)
    for (int64_t i = 0; i < n; ++i) {
        Vec4f& p = pts.P[size_t(i)];
        Vec4f& v = pts.v[size_t(i)];
        p += v * dt;
        v += force[size_t(i)] * dt; // the force pass already holds mass times gravity
        const float speed = v.length3();
        pts.Cd[size_t(i)] = rampColour(speed, whiteWaterSpeed);
        fastest = std::max(fastest, speed);
    }
    maxSpeedLastStep = fastest;
    lastSolvedTime = simState ? simState->time : 0.f;
}

void DumbParticleSystem::forcePass()
{
    PointData& pts = *body->points;
    const float dt = simState ? simState->dt : 0.f;
    const float k = std::min((simState ? simState->damping : 0.f) * dt, 1.f);
    VecArray& force = *pts.attribAs<VecArray>("force");
    const BitArray& deleted = *pts.attribAs<BitArray>("deleted");
    const Vec4f weight = gravityVector * mass;
    const int64_t n = int64_t(pts.size());
#pragma omp parallel for schedule(static) num_threads(workerCount(true))
    for (int64_t i = 0; i < n; ++i) {
        if (deleted.get(size_t(i))) continue;
        force[size_t(i)] = weight;
        pts.v[size_t(i)] *= 1.f - k;
    }
}

void DumbParticleSystem::applyForces()
{
    Force::applyAll(forceIds, particleView(*this));
}

void DumbParticleSystem::groundPass()
{
    PointData& pts = *body->points;
    const float dt = simState ? simState->dt : 0.f;
    const float g = 1.f - std::min(groundPlaneFriction * dt, 1.f);
    const BitArray& deleted = *pts.attribAs<BitArray>("deleted");
    const int64_t n = int64_t(pts.size());
#pragma omp parallel for schedule(static) num_threads(workerCount(false))
    for (int64_t i = 0; i < n; ++i) {
        if (deleted.get(size_t(i))) continue;
        Vec4f& p = pts.P[size_t(i)];
        if (p.y >= radius) continue;
        Vec4f& v = pts.v[size_t(i)];
        p.y = radius;
        v.x *= g;
        v.z *= g;
        if (v.y < 0.f) v.y *= -0.01f;
    }
}

void DumbParticleSystem::collidePass()
{
    ::collidePass(*this);
}
