// The collide pass. Per part, the matrices are fixed first (world to the part's local
// space, to the grid's index space and back, the previous pose for surface velocity);
// then a parallel loop with one SdfSampler per thread runs the steps of one particle.
// A particle away from the part costs one matrix product and a box test.
#include "particles/collidepass.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "geo/pointdata.h"
#include "io/object.h"
#include "particles/collisionobject.h"
#include "particles/sdfsampler.h"
#include "particles/xform.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

CollideRules CollideRules::granular()
{
    return CollideRules();
}

CollideRules CollideRules::sph()
{
    CollideRules r;
    r.frictionScale = 0.1f;
    r.staticGrip = false;
    r.frictionBelow = 0.001f;
    r.keepNormalSurfaceSpeed = true;
    r.transformStick = false;
    r.paintWeightMap = false;
    r.weighted = false;
    return r;
}

CollideRules CollideRules::dumb()
{
    CollideRules r;
    r.staticGrip = false;
    r.frictionBelow = 0.f;
    r.insideOnly = true;
    r.supportWeighted = false;
    r.trackPosition = false;
    r.weighted = false;
    r.transformStick = false;
    r.stickInAttractionLayer = true;
    r.paintWeightMap = false;
    return r;
}

namespace {

// The pair of per-collider channels of Transform Stick; null while they don't exist.
struct StickChannels {
    int32_t* locked = nullptr;
    Vec4f* anchor = nullptr;  // index-space position at the lock frame
};

StickChannels makeStickChannels(PointData& points, int slot)
{
    const std::string on = "__stick_" + std::to_string(slot);
    const std::string at = "__stickpos_" + std::to_string(slot);
    points.addAttrib(on, ATTRIB_INT);
    points.addAttrib(at, ATTRIB_VECTOR);
    if (points.attribType(on) != ATTRIB_INT || points.attribType(at) != ATTRIB_VECTOR) return {};
    return {points.attribAs<IntArray>(on)->data(), points.attribAs<VecArray>(at)->data()};
}

Vec4f normalised(const Vec4f& v)
{
    const float len = v.length3();
    return len > 0.f ? v * (1.f / len) : v;
}

// Everything the particle steps read, fixed for one part of one collider.
struct PartPass {
    PartPass(const CollisionObject& collider, const CollideRules& r, CollideView& v, StickChannels s)
        : c(collider), rules(r), view(v), stick(s)
    {
    }

    const CollisionObject& c;
    const CollideRules& rules;
    CollideView& view;
    StickChannels stick;
    Mat4f toLocal, prevFromLocal, localToWorld, worldToIndex, indexToWorld, gridToIndex;
    Vec4f boxMin, boxMax;
    bool uniform = true;
    float uniformScale = 1.f;
    float meanScale = 1.f;
    bool hasVelocity = false;
    float reach = 0.5f, influence = 0.f, bandLimit = 0.f;
    float frictionDt = 0.f, staticFrictionDt = 0.f, invDt = 0.f;
    int frame = 0, startFrame = 0;

    // World distance of sample s with index-space gradient g.
    float worldDistance(float s, const Vec4f& g) const
    {
        const Vec4f local = xform::gradient(g, gridToIndex);
        const float len = local.length3();
        if (!(len > 0.f)) return s * meanScale;
        return s * xform::direction(local, localToWorld).length3() / len;
    }

    void particle(size_t i, SdfSampler& sdf) const;
    void respond(size_t i, float d, const Vec4f& n, const Vec4f& surface) const;
};

void PartPass::particle(size_t i, SdfSampler& sdf) const
{
    Vec4f* P = view.P;
    Vec4f* v = view.v;
    Vec4f p = P[i];
    const Vec4f local = xform::point(p, toLocal);
    const float weight = rules.weighted && view.stick ? view.stick[i] : 1.f;

    // Transform stick: a locked particle rides on the collider's transform.
    if (stick.locked) {
        if (frame < c.xformStickLockFrame) {
            stick.locked[i] = 0;
        } else if (stick.locked[i] != 0 && weight > 0.0001f) {
            v[i] = (p - xform::point(local, prevFromLocal)) * invDt;
            const Vec4f anchor = xform::point(stick.anchor[i], indexToWorld);
            p = (p - anchor) * (1.f - weight) + anchor;
            P[i] = p;
            if (!hasVelocity) return;
        }
    }
    if (local.x < boxMin.x - reach || local.y < boxMin.y - reach || local.z < boxMin.z - reach ||
        local.x > boxMax.x + reach || local.y > boxMax.y + reach || local.z > boxMax.z + reach)
        return;

    const Vec4f idx = xform::point(p, worldToIndex);
    const float s = sdf.distance(idx);
    if (sdf.outOfBand(s)) return;
    if (std::isnan(v[i].x) || std::isnan(v[i].y) || std::isnan(v[i].z)) {
        std::printf("is nan!!\n");
        return;
    }
    Vec4f g;
    bool haveGradient = false;
    float d = s * uniformScale;
    if (!uniform) {
        g = sdf.gradient(idx);
        haveGradient = true;
        d = worldDistance(s, g);
    }
    if (d >= bandLimit) return;

    if (c.awakenParticles && d < c.awakenDistance) {
        if (view.sleeping) view.sleeping->clearAtomic(i);
        if (view.restingTime) view.restingTime[i] = 0.f;
    }
    if (c.deleteParticles && d < 0.00001f) {
        if (view.sleeping) view.sleeping->setAtomic(i);
        if (view.deleted) view.deleted->setAtomic(i);
    }
    if (d > influence) return;

    if (!haveGradient) g = sdf.gradient(idx);
    const Vec4f n = normalised(xform::gradient(g, worldToIndex));
    Vec4f surface = (p - xform::point(local, prevFromLocal)) * invDt;
    if (hasVelocity) surface += xform::direction(sdf.velocity(idx), localToWorld);
    surface *= c.velocityScale;

    if (d < c.attractionDist && d > -0.1f && c.attraction != 0.f && view.force)
        view.force[i] -= n * (c.attraction * weight * view.mass);

    const bool asleep = view.sleeping && view.sleeping->get(i);
    if (rules.stickInAttractionLayer) {
        if (d < c.attractionDist && d > -0.1f)
            v[i] = surface * c.stickStrength + v[i] * (1.f - c.stickStrength);
    } else if (d < c.stickDist && c.stickStrength > 0.0000001f) {
        const float w = c.stickStrength * weight;
        if (c.xformStick) {
            if (stick.locked && w > 0.9f && frame == c.xformStickLockFrame) {
                stick.locked[i] = 1;
                stick.anchor[i] = idx;
                return;
            }
        } else {
            v[i] = v[i] * (1.f - w) + surface * w;
            if (w > 0.9999f && !asleep && view.posPrev) P[i] = view.posPrev[i] + v[i] * view.dt;
        }
    }
    if (d >= (view.contactDist ? view.contactDist[i] : view.radius)) return;
    respond(i, d, n, surface);
}

// Steps 16 on: weight map, push out, friction; only for particles inside the radius.
void PartPass::respond(size_t i, float d, const Vec4f& n, const Vec4f& surface) const
{
    if (rules.paintWeightMap && view.stick) {
        if (c.stickWeightMapMode == CollisionObject::kStickMapSetInside ||
            (c.stickWeightMapMode == CollisionObject::kStickMapSetInsideFirstFrame && frame == startFrame))
            view.stick[i] = c.stickWeightMapSetVal;
    }
    if (!c.collide) return;
    Vec4f* P = view.P;
    Vec4f* v = view.v;
    if (rules.insideOnly) {
        if (d > 0.f) return;
        P[i] -= n * d;
    } else {
        P[i] += n * ((view.contactDist ? view.contactDist[i] : view.radius) - d);
    }
    if (view.sleeping && view.sleeping->get(i)) return;

    const Vec4f rel = v[i] - surface;
    const float vn = rel.dot3(n);
    if (!(vn < rules.frictionBelow)) return;
    const Vec4f tang = rel - n * vn;
    const float support = rules.supportWeighted ? std::max(n.y * (view.gravityY / -9.81f), 0.f) : 1.f;
    const float k = rules.staticGrip && tang.dot3(tang) < c.staticGrip * view.radius ? staticFrictionDt : frictionDt;
    const Vec4f slid = tang * (1.f - std::min(support * k, 1.f));
    if (rules.keepNormalSurfaceSpeed) {
        const Vec4f normalPart = n * surface.dot3(n);
        v[i] = (surface - normalPart) + normalPart * c.velocityScale + slid;
    } else {
        v[i] = slid + surface;
    }
    if (rules.trackPosition && view.posPrev) {
        const Vec4f move = view.posPrev[i] + v[i] * view.dt - P[i];
        P[i] += move - n * move.dot3(n);
    }
}

// Fixes the matrices of one part; false when the part can't be used this substep.
bool setUpPart(PartPass& pass, const CollisionObject& c, const ObjectMesh& mesh, const SdfSampler& sdf)
{
    const Mat4f partNow = xform::fromDoubles(mesh.xform[0]);
    const Mat4f partBefore = xform::fromDoubles(mesh.xform[1]);
    pass.localToWorld = xform::multiply(partNow, c.pose.current);
    if (!xform::invert(pass.localToWorld, pass.toLocal)) return false;
    pass.prevFromLocal = xform::multiply(partBefore, c.pose.previous);
    pass.gridToIndex = sdf.gridToIndex();
    pass.worldToIndex = xform::multiply(pass.toLocal, sdf.gridToIndex());
    pass.indexToWorld = xform::multiply(sdf.indexToGrid(), pass.localToWorld);
    const Vec4f scales = xform::axisScales(pass.localToWorld);
    const float largest = std::max({scales.x, scales.y, scales.z});
    pass.uniform = std::fabs(scales.x - scales.y) <= 1e-5f * largest && std::fabs(scales.x - scales.z) <= 1e-5f * largest;
    pass.uniformScale = scales.x;
    pass.meanScale = (scales.x + scales.y + scales.z) / 3.f;
    pass.boxMin = mesh.boundMin;
    pass.boxMax = mesh.boundMax;
    return true;
}

} // namespace

void collideWithCollider(CollisionObject& c, CollideView& view, const CollideRules& rules, int& stickSlot)
{
    if (view.count == 0 || !view.P || !view.v || !(view.dt > 0.f)) return;
    c.sdfInnerBand = std::max(c.sdfInnerBand, 1.f);
    if (!c.pose.started) c.updateMatrices();
    if (!c.pose.invertible) return;
    c.prepareSdf();
    Object* object = c.geometry();
    if (!object) return;

    StickChannels stick;
    if (rules.transformStick && c.xformStick && c.stickStrength > 0.9999f && view.points)
        stick = makeStickChannels(*view.points, stickSlot++);

    const float frictionDt = c.friction * view.dt * rules.frictionScale;
    float reach = std::max(c.attractionDist, 0.5f);
    if (c.awakenParticles) reach = std::max(reach, c.awakenDistance);

    for (size_t part = 0; part < object->meshes.size() && part < object->partSdfs.size(); ++part) {
        const ObjectPartSdf& grids = object->partSdfs[part];
        const ObjectMesh* mesh = object->meshes[part].get();
        if (!grids.valid || !mesh) {
            std::printf("coll: no sdf available.\n");
            continue;
        }
        SdfSampler probe(grids.sdfGrid);
        PartPass pass(c, rules, view, stick);
        if (!probe.valid() || !setUpPart(pass, c, *mesh, probe)) continue;
        pass.hasVelocity = grids.hasVelocity && grids.velocityGrid;
        pass.reach = reach;
        pass.influence = std::max({view.radius, c.attractionDist, c.stickDist});
        pass.bandLimit = c.sdfInnerBand * c.voxelSize;
        pass.frictionDt = frictionDt;
        pass.staticFrictionDt = frictionDt * c.staticFrictionFactor;
        pass.invDt = 1.f / view.dt;
        pass.frame = simState ? simState->frame : 0;
        pass.startFrame = simState ? simState->startFrame : 0;

        const int64_t n = int64_t(view.count);
        const BitArray* deleted = view.deleted;
#pragma omp parallel num_threads(std::max(1, view.numThreads))
        {
            SdfSampler sdf(grids.sdfGrid, pass.hasVelocity ? grids.velocityGrid : nullptr);
#pragma omp for schedule(static)
            for (int64_t i = 0; i < n; ++i) {
                if (deleted && deleted->get(size_t(i))) continue;
                pass.particle(size_t(i), sdf);
            }
        }
    }
}

void collideParticles(CollideView& view, const CollideRules& rules, const std::vector<int32_t>& colliderIds)
{
    if (!simulation || colliderIds.empty()) return;
    int stickSlot = 0;
    for (int32_t id : colliderIds) {
        SceneObject* o = simulation->objectById(id);
        if (!o || o->typeCode != kTypeCollider) {
            std::printf("collide with connected: id already deleted?\n");
            continue;
        }
        CollisionObject& collider = *static_cast<CollisionObject*>(o);
        if (!collider.enabled) continue;
        collideWithCollider(collider, view, rules, stickSlot);
    }
}
