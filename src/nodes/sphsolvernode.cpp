// SPH-Solver: scale, gather (hash and sorted copies), density, pair forces, integration,
// scale back and the ground plane, on the sorted copies; then the copy back to the Body
// with damping and the speed colour. `force` is consumed by the integration and cleared,
// so that what upstream helpers add acts once.
#include "nodes/sphsolvernode.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "graph/nodemaster.h"
#include "particles/rampcolour.h"
#include "particles/sphkernels.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

int threadCount()
{
    return simState ? std::max(1, simState->numThreads) : 1;
}

bool finite3(const Vec4f& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

template <class A> A* channelOf(PointData& pts, const char* name, int type)
{
    if (pts.attribType(name) != type) return nullptr;
    A* a = pts.template attribAs<A>(name);
    return a && a->size() == pts.size() ? a : nullptr;
}

} // namespace

SPHSolverNode::SPHSolverNode(NodeMaster* master) : GeoNode(master)
{
    setType("SPH-Solver");
    params.addSpecial(102, "Dynamics");
    addParam(&resolution, "resolution", "Resolution", kParamFloat, "20");
    addParam(&restDensity, "restDensity", "Density", kParamFloat, "1000");
    addParam(&radiusMulti, "radiusMulti", "Radius Multi", kParamFloat, "1");
    addParam(&radius, "radius", "Radius", kParamFloat, "0.1",
             "The radius is controlled by the resolution parameter above.")
        ->editable = false;
    addParam(&mass, "mass", "Mass", kParamFloat, "0.125")->editable = false;
    addParam(&viscosity, "viscosity", "Viscosity", kParamFloat, "0.2");
    addParam(&stringiness, "stringiness", "Stringiness", kParamFloat, "0.5");
    addParam(&surfaceTensionWeight, "surfaceTensionWeight", "Surface Tension", kParamFloat, "0.05");
    addParam(&pressureScale, "pressureScale", "Pressure Scale", kParamFloat, "0.2");
    addParam(&whiteWaterSpeed, "whiteWaterSpeed", "Whitewater Speed", kParamFloat, "8");
    addParam(&sceneScale, "sceneScale", "Scene Scale", kParamFloat, "1",
             "Scales the particles before solving to get a different scale behaviour.");
    addParam(&collideGroundPlane, "collideGroundPlane", "Ground Plane Collision", kParamBool, "true",
             "Turn on or off collisions with the ground plane.");
    addParam(&groundPlaneFriction, "groundPlaneFriction", "Ground Friction", kParamFloat, "0.5");
    addParam(&damping, "damping", "Damping", kParamFloat, "0");
    addParam(&clampForce, "clampForce", "Clamp Force", kParamFloat, "80",
             "Limits the force for each particle");
    addParam(&clampSpeed, "clampSpeed", "Clamp Speed", kParamFloat, "30", "Limit maximum particle speed.");
    addInput("Input");
    addOutput("Output");
}

void SPHSolverNode::reset()
{
    GeoNode::reset();
    work = SphArrays();
    maxSpeed = 0.f;
}

void SPHSolverNode::updateDerived()
{
    float res = resolution;
    if (!(res >= 0.01f) || !std::isfinite(res)) {
        if (!warnedResolution)
            std::printf("%s: resolution %g is not usable, using 0.01.\n", name().c_str(), double(res));
        warnedResolution = true;
        res = 0.01f;
    } else {
        warnedResolution = false;
    }
    const float multi = std::isfinite(radiusMulti) && radiusMulti > 0.f ? radiusMulti : 1.f;
    const float spacing = 1.f / res;
    radius = 2.f * spacing * multi;
    mass = spacing * spacing * spacing * restDensity;
    for (const char* key : {"radius", "mass"})
        if (Parameter* row = getParam(key)) row->refreshText(true);
}

void SPHSolverNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    BodyPtr body;
    fetchInput(body, 0);
    if (body && enabled) solve(*body, context.graphDt);
    finishProcess(result, c, std::move(body), false);
}

void SPHSolverNode::solve(Body& body, float dt)
{
    updateDerived();
    const bool print = context.print;
    const float h = radius;
    if (print) std::printf("cellsize: %g\n", double(h));
    PointData& pts = *body.points;
    pts.addAttrib("v", ATTRIB_VELOCITY);
    pts.addAttrib("force", ATTRIB_VECTOR);
    pts.addAttrib("Cd", ATTRIB_COLOR);

    // Points that aren't finite can't be hashed or solved: they leave the Body.
    size_t dropped = 0;
    for (size_t i = 0; i < pts.size();) {
        if (finite3(pts.P[i]) && finite3(pts.v[i])) {
            ++i;
            continue;
        }
        pts.removePoint(i);
        ++dropped;
    }
    if (dropped > 0)
        std::printf("%s: dropped %zu points with a non-finite position or velocity.\n", name().c_str(),
                    dropped);
    const size_t n = pts.size();
    if (n == 0) return;
    VecArray& force = *pts.attribAs<VecArray>("force");
    const int threads = threadCount();
    const int64_t count = int64_t(n);

    const bool scaled = sceneScale != 1.f && sceneScale > 0.f && std::isfinite(sceneScale);
    if (print) std::printf("scale\n");
    if (scaled) {
        for (size_t i = 0; i < n; ++i) {
            pts.P[i] *= sceneScale;
            pts.v[i] *= sceneScale;
        }
    }

    if (print) std::printf("gather\n");
    work.sort(pts.P.data(), pts.v.data(), n, h, threads);
    SphPassData data;
    data.arrays = &work;
    data.force = force.data();
    if (const FloatArray* a = channelOf<FloatArray>(pts, "viscosity", ATTRIB_FLOAT))
        data.viscosity = a->data();
    if (const FloatArray* a = channelOf<FloatArray>(pts, "surfaceTension", ATTRIB_FLOAT))
        data.surfaceTension = a->data();
    const SphConstants k = makeSphConstants(h, mass, restDensity, pressureScale, resolution, viscosity,
                                            stringiness, surfaceTensionWeight, clampForce, true);
    if (print) std::printf("dens\n");
    sphDensityPass(k, data, threads);
    if (print) std::printf("force\n");
    sphForcePass(k, data, threads);

    if (print) std::printf("integ\n");
    const float invMass = mass > 0.f ? 1.f / mass : 0.f;
    float fastest = 0.f;
#pragma omp parallel for schedule(static) num_threads(threads) reduction(max : fastest)
    for (int64_t s = 0; s < count; ++s) {
        const uint32_t i = work.sortedOrder[size_t(s)];
        Vec4f vNew = work.sortedVel[size_t(s)] + force[i] * (invMass * dt);
        force[i] = Vec4f();
        Vec4f& p = work.sortedPos[size_t(s)];
        p.x += vNew.x * dt;
        p.y += vNew.y * dt;
        p.z += vNew.z * dt;
        const float speed = vNew.length3();
        if (speed > clampSpeed && speed > 0.f) vNew *= clampSpeed / speed;
        work.sortedVel[size_t(s)] = vNew;
        fastest = std::max(fastest, speed);
    }
    maxSpeed = fastest;

    if (print) std::printf("scale back\n");
    if (scaled) {
        const float inv = 1.f / sceneScale;
        for (size_t s = 0; s < n; ++s) {
            work.sortedPos[s] *= inv;
            work.sortedVel[s] *= inv;
        }
    }
    if (collideGroundPlane) {
        const float g = 1.f - std::min(groundPlaneFriction * dt * 2.5f * 0.1f, 1.f);
        for (size_t s = 0; s < n; ++s) {
            Vec4f& p = work.sortedPos[s];
            if (!(p.y < h)) continue;
            p.y = h;
            Vec4f& v = work.sortedVel[s];
            v.x *= g;
            v.z *= g;
            if (v.y < 0.f) v.y = 0.f;
        }
    }

    if (print) std::printf("writing back...\n");
    const float keep = 1.f - std::min(dt * damping, 1.f);
    for (size_t s = 0; s < n; ++s) {
        const uint32_t i = work.sortedOrder[s];
        if (i >= n) {
            std::printf("TOO MUCH!!\n");
            continue;
        }
        pts.P[i] = work.sortedPos[s];
        pts.v[i] = work.sortedVel[s] * keep;
        pts.Cd[i] = rampColour(pts.v[i].length3(), kColourSpeed);
    }
    if (print) std::printf("done.\n");
}
