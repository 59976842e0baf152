// The SPH system's rows, particles, cache import and the passes of its substep other than
// the solve: emission, gravity and damping, external forces, colliders with a jittered
// contact distance, compaction and the ground plane.
#include "particles/sphparticlesystem.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "io/binformat.h"
#include "io/fileio.h"
#include "particles/collidetraits.h"
#include "particles/emission.h"
#include "particles/force.h"
#include "particles/particleview.h"
#include "particles/rampcolour.h"

#include <QMutexLocker>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>

// --- The system's part in the shared passes

template <> struct CollideTraits<SimpleSPHParticleSystem> {
    static CollideView view(SimpleSPHParticleSystem& s)
    {
        const auto& ch = s.ch;
        CollideView v;
        v.count = s.particleCount();
        v.P = ch.P ? ch.P->data() : nullptr;
        v.v = ch.v && ch.v->size() == v.count ? ch.v->data() : nullptr;
        v.force = ch.force && ch.force->size() == v.count ? ch.force->data() : nullptr;
        v.deleted = ch.deleted && ch.deleted->size() == v.count ? ch.deleted : nullptr;
        v.stick = ch.stick && ch.stick->size() == v.count ? ch.stick->data() : nullptr;
        v.points = s.body->points.get();
        // Every particle has its own contact distance; `radius` is the largest of them, so
        // that the pass looks far enough.
        v.contactDist = s.contactDist.size() == v.count ? s.contactDist.data() : nullptr;
        v.radius = s.kernelRadius * (0.4f + 0.5f * std::max(s.collisionJitter, 0.f));
        v.mass = s.particleMass;
        v.gravityY = s.gravityVector.y;
        v.dt = simState ? simState->dt : 0.f;
        v.numThreads = simState ? simState->numThreads : 1;
        return v;
    }

    static CollideRules rules(const SimpleSPHParticleSystem&) { return CollideRules::sph(); }
};

template <> struct EmitTraits<SimpleSPHParticleSystem> {
    static float spacing(const SimpleSPHParticleSystem& s, float resolutionMultiplier)
    {
        return s.particleSpacing / resolutionMultiplier / SimpleSPHParticleSystem::kEmissionDensity;
    }
    static void rebuildHash(SimpleSPHParticleSystem& s) { s.rebuildQueryHash(); }
    static float nearestDistance(const SimpleSPHParticleSystem& s, const Vec4f& p)
    {
        return s.nearestDistance(p);
    }
    static void addParticle(SimpleSPHParticleSystem& s, const Vec4f& p, const Vec4f& v, const Vec4f& uv,
                            int32_t emitterId)
    {
        const int i = s.addParticle(p, v, uv);
        if (s.ch.emitterId && size_t(i) < s.ch.emitterId->size()) (*s.ch.emitterId)[size_t(i)] = emitterId;
    }
    static bool trackUVs(const SimpleSPHParticleSystem& s) { return s.trackUVs; }
};

namespace {

int threadCount(bool half)
{
    const int n = simState ? std::max(1, simState->numThreads) : 1;
    return half ? std::max(1, n / 2) : n;
}

// The run's random number for a particle id, in [0, 1); 0.5 (no jitter) without a table.
float randomOf(int32_t id)
{
    if (!simState || simState->randomTable.empty()) return 0.5f;
    const size_t n = std::min<size_t>(1000, simState->randomTable.size());
    const int64_t k = int64_t(id) % int64_t(n);
    return simState->randomTable[size_t(k < 0 ? k + int64_t(n) : k)];
}

template <class A> A* channelOf(PointData& pts, const char* name, int type)
{
    if (pts.attribType(name) != type) return nullptr;
    return pts.template attribAs<A>(name);
}

} // namespace

// --- Rows

SimpleSPHParticleSystem::SimpleSPHParticleSystem()
    : SceneObject(kTypeSphSystem), body(std::make_shared<Body>())
{
    reset();
    buildParameters();
}

SimpleSPHParticleSystem::~SimpleSPHParticleSystem() = default;

void SimpleSPHParticleSystem::buildParameters()
{
    ParameterSet& p = params;
    auto limitMin = [](Parameter* row, float v) {
        row->hasMin = true;
        row->minValue = v;
        return row;
    };
    auto limitMax = [](Parameter* row, float v) {
        row->hasMax = true;
        row->maxValue = v;
        return row;
    };

    p.add(Parameter(&name, "nodeName", "Object Name", kParamObjectName));
    p.add(Parameter(&resolution, "resolution", "Resolution", kParamFloat,
                    "More resolution will creat emore particles and finer results."));
    limitMax(
        limitMin(p.add(Parameter(&radiusMulti, "radiusMulti", "Radius Multi", kParamFloat,
                                 "Particle smoothing radii are getting controlled by the resolution setting. "
                                 "This parameter will scale this resulting smoothing radius, the default is "
                                 "1.1. Going higher might make the sim more stable or realistic, but also "
                                 "slower. It will usually also make the sim more viscous so some settings "
                                 "might need to get altered.")),
                 0.1f),
        10.f);
    p.add(Parameter(&gravityVector.y, "gravity", "Gravity", kParamFloat, "The gravity of the sim."));
    p.add(Parameter(&groundPlaneFriction, "groundPlaneFriction", "Ground Friction", kParamFloat,
                    "The friction of the ground plane, if active."));
    p.add(Parameter(&whiteWaterSpeed, "whiteWaterSpeed", "Whitewater Speed", kParamFloat,
                    "Veloities larger than this speed will make particles appear white in the viewport."));
    limitMin(p.add(Parameter(&restDensity, "restDensity", "Density", kParamFloat,
                             "Higher values will make particles move closer together.")),
             0.0001f);
    limitMin(
        p.add(Parameter(&viscosity, "viscosity", "Viscosity", kParamFloat,
                        "Larger values will make the fluid appear more viscous. Best looks are achieved by "
                        "also raising Stringiness below.")),
        0.0001f);
    limitMin(p.add(Parameter(&stringiness, "stringiness", "Stringiness", kParamFloat)), 0.0001f);
    p.add(Parameter(&surfaceTensionWeight, "surfaceTensionWeight", "Surface Tension", kParamFloat,
                    "Higher values will make the fluid look more blobby."));
    p.add(Parameter(
        &pressureScale, "pressureScale", "Pressure Scale", kParamFloat,
        "Higher values will make the fluid more splashy and explosive. You might need more substeps "
        "to keep the sim stable."));

    p.addSpecial(102, "Solver Details:");
    p.add(Parameter(&clampForce, "clampForce", "Clamp Force", kParamFloat,
                    "Limits the force for each particle"));
    limitMax(limitMin(p.add(Parameter(&collisionJitter, "collisionJitter", "Collision Jitter", kParamFloat,
                                      "Creates randomness when in contact with colliders")),
                      0.f),
             1.f);
    if (simState) p.add(Parameter(&simState->damping, "damping", "Damping", kParamFloat));
    limitMin(p.add(Parameter(&sceneScale, "sceneScale", "Scene Scale", kParamFloat,
                             "Scales the particles before solving to get a different scale behaviour.")),
             0.0001f);
    p.add(Parameter(&initialStateFilePath, "initialStateFilePath", "Initial State Cache File", kParamPath,
                    "Enter an existing cache file path to use as the initial state."));
    p.add(Parameter(&useCuda, "useCuda", "Use CUDA", kParamBool, "Simulate on the GPU using CUDA."));
    p.add(Parameter(&trackUVs, "trackUVs", "Track UVs", kParamBool,
                    "Tracks UVs on the particles coming from the emission geometry."));
    p.add(Parameter(&exportFormat, "exportFormat", "Export Format", kParamString,
                    "Enter either abc, prt or bin."));
    p.add(Parameter(&enabled, "enabled", "Enabled", kParamBool,
                    "Enable or disable the simulation of the system."));
    p.add(Parameter(&visible, "visible", "Visibility", kParamBool, "Show the particles in the viewport."));

    for (Parameter& row : p.parameters) row.text = row.defaultText;
}

void SimpleSPHParticleSystem::evaluateParameters(float frame, int substep)
{
    Parameter* row = params.get("nodeName");
    if (row && row->text.empty()) row->text = name;
    SceneObject::evaluateParameters(frame, substep);
}

// --- Particles and lifecycle

void SimpleSPHParticleSystem::updateDerivedFields()
{
    float res = resolution;
    if (!(res >= kMinResolution) || !std::isfinite(res)) {
        if (!warnedResolution)
            std::printf("SPH %s: resolution %g is not usable, using %g.\n", name.c_str(), double(res),
                        double(kMinResolution));
        warnedResolution = true;
        res = std::isfinite(res) && res > kMinResolution ? res : kMinResolution;
    } else {
        warnedResolution = false;
    }
    const float multi = std::isfinite(radiusMulti) && radiusMulti > 0.f ? radiusMulti : 1.1f;
    particleSpacing = 1.f / res;
    kernelRadius = 2.f * particleSpacing * multi;
    particleMass = particleSpacing * particleSpacing * particleSpacing * restDensity;
}

void SimpleSPHParticleSystem::ensureChannels()
{
    PointData& pts = *body->points;
    pts.addAttrib("v", ATTRIB_VELOCITY);
    pts.addAttrib("id", ATTRIB_INT);
    pts.addAttrib("force", ATTRIB_VECTOR);
    pts.addAttrib("Cd", ATTRIB_COLOR);
    pts.addAttrib("neighbs", ATTRIB_INT_LIST);
    pts.addAttrib("density", ATTRIB_FLOAT);
    pts.addAttrib("pressure", ATTRIB_FLOAT);
    pts.addAttrib("emitterId", ATTRIB_INT);
    pts.addAttrib("stick", ATTRIB_FLOAT);
    pts.addAttrib("emissionPos", ATTRIB_POSITION);
    pts.addAttrib("deleted", ATTRIB_BOOL);
    pts.addAttrib("width", ATTRIB_FLOAT);
    ch = Channels();
    ch.P = &pts.P;
    ch.v = pts.hasV ? &pts.v : nullptr;
    ch.Cd = pts.hasCd ? &pts.Cd : nullptr;
    ch.id = channelOf<IntArray>(pts, "id", ATTRIB_INT);
    ch.force = channelOf<VecArray>(pts, "force", ATTRIB_VECTOR);
    ch.neighbs = channelOf<IntListArray>(pts, "neighbs", ATTRIB_INT_LIST);
    ch.density = channelOf<FloatArray>(pts, "density", ATTRIB_FLOAT);
    ch.pressure = channelOf<FloatArray>(pts, "pressure", ATTRIB_FLOAT);
    ch.emitterId = channelOf<IntArray>(pts, "emitterId", ATTRIB_INT);
    ch.stick = channelOf<FloatArray>(pts, "stick", ATTRIB_FLOAT);
    ch.emissionPos = channelOf<VecArray>(pts, "emissionPos", ATTRIB_POSITION);
    ch.deleted = channelOf<BitArray>(pts, "deleted", ATTRIB_BOOL);
    ch.width = channelOf<FloatArray>(pts, "width", ATTRIB_FLOAT);
    ch.viscosity = channelOf<FloatArray>(pts, "viscosity", ATTRIB_FLOAT);
    ch.surfaceTension = channelOf<FloatArray>(pts, "surfaceTension", ATTRIB_FLOAT);
    ch.uv = channelOf<VecArray>(pts, "uv", ATTRIB_VECTOR);
    // The Body may have been replaced from outside: the query hash no longer describes it.
    queryHashReady = false;
}

void SimpleSPHParticleSystem::reset()
{
    updateDerivedFields();
    body->clear();
    ensureChannels();
    work = SphArrays();
    contactDist.clear();
    queryHashReady = false;
    lastParticleCount = 0;
    nextParticleId = -1;
    maxSpeedLastStep = -1.f;
    work.hash.cellSize = kernelRadius;
    work.hash.tableSize = hashTableSize(0);
}

int SimpleSPHParticleSystem::addParticle(const Vec4f& position, const Vec4f& velocity)
{
    PointData& pts = *body->points;
    const size_t i = size_t(pts.addPoint(position));
    if (ch.v) (*ch.v)[i] = velocity;
    if (ch.id) (*ch.id)[i] = ++nextParticleId;
    if (ch.emissionPos) (*ch.emissionPos)[i] = position;
    if (ch.stick) (*ch.stick)[i] = 1.f;
    if (ch.width) (*ch.width)[i] = particleSpacing;
    if (ch.Cd) (*ch.Cd)[i] = rampColour(velocity.length3(), whiteWaterSpeed);
    queryHashReady = false;
    return int(i);
}

int SimpleSPHParticleSystem::addParticle(const Vec4f& position, const Vec4f& velocity, const Vec4f& uv)
{
    PointData& pts = *body->points;
    if (trackUVs && !ch.uv) {
        pts.addAttrib("uv", ATTRIB_VECTOR);
        ensureChannels();
    } else if (!trackUVs && ch.uv) {
        pts.removeAttrib("uv");
        ensureChannels();
    }
    const int index = addParticle(position, velocity);
    if (ch.uv) (*ch.uv)[size_t(index)] = uv;
    return index;
}

BodyPtr SimpleSPHParticleSystem::exportBody() const
{
    auto out = std::make_shared<Body>();
    out->points = body->points->copyPointsExcept(exportExclusions());
    return out;
}

void SimpleSPHParticleSystem::boundingBox(Vec4f& min, Vec4f& max) const
{
    min = Vec4f(99999.f, 99999.f, 99999.f, 0.f);
    max = Vec4f(-99999.f, -99999.f, -99999.f, 0.f);
    for (const Vec4f& p : body->points->P) {
        min = Vec4f(std::min(min.x, p.x), std::min(min.y, p.y), std::min(min.z, p.z), 0.f);
        max = Vec4f(std::max(max.x, p.x), std::max(max.y, p.y), std::max(max.z, p.z), 0.f);
    }
}

void SimpleSPHParticleSystem::rebuildQueryHash()
{
    work.hash.cellSize = kernelRadius;
    buildParticleHash(*body, work.hash, work.hashKeys, work.sortedOrder, work.cellStart, work.cellEnd,
                      threadCount(false));
    queryHashReady = true;
}

float SimpleSPHParticleSystem::nearestDistance(const Vec4f& p) const
{
    if (!queryHashReady || work.sortedOrder.size() != particleCount()) return kNoNeighbourDistance;
    return nearestParticleDistance(p, body->points->P.data(), work.sortedOrder.data(), work.hash, work.cellStart,
                                   work.cellEnd);
}

// --- The substep

void SimpleSPHParticleSystem::step()
{
    updateDerivedFields();
    if (!enabled) return;
    ensureChannels();
    emitPass();
    solvePass();
    forcePass();
    applyForces();
    collidePass();
    compact();
    if (!simState || simState->collideGround) groundPass();
}

void SimpleSPHParticleSystem::emitPass()
{
    emitFromSources(*this);
}

void SimpleSPHParticleSystem::solvePass()
{
    if (useCuda && !warnedCuda) {
        std::printf("SPH %s: solving on the CPU.\n", name.c_str());
        warnedCuda = true;
    }
    solveOnCpu();
}

void SimpleSPHParticleSystem::forcePass()
{
    if (!ch.force || !ch.v || !ch.deleted) return;
    const float dt = simState ? simState->dt : 0.f;
    const float keep = 1.f - std::min((simState ? simState->damping : 0.f) * dt, 1.f);
    const Vec4f weight = gravityVector * particleMass;
    VecArray& force = *ch.force;
    VecArray& v = *ch.v;
    const BitArray& deleted = *ch.deleted;
    const int64_t n = int64_t(particleCount());
#pragma omp parallel for schedule(static) num_threads(threadCount(true))
    for (int64_t i = 0; i < n; ++i) {
        if (deleted.get(size_t(i))) continue;
        force[size_t(i)] = weight;
        v[size_t(i)] *= keep;
    }
}

void SimpleSPHParticleSystem::applyForces()
{
    ParticleView view;
    const size_t n = particleCount();
    if (!ch.v || !ch.force || ch.v->size() != n || ch.force->size() != n) return;
    view.count = n;
    view.P = ch.P->data();
    view.v = ch.v->data();
    view.force = ch.force->data();
    if (ch.deleted && ch.deleted->size() == n) view.deleted = ch.deleted;
    Force::applyAll(forceIds, view);
}

float SimpleSPHParticleSystem::jitterOffset(int32_t id) const
{
    return (randomOf(id) - 0.5f) * kernelRadius * collisionJitter;
}

void SimpleSPHParticleSystem::collidePass()
{
    if (colliderIds.empty()) return;
    const size_t n = particleCount();
    contactDist.resize(n);
    const float base = kernelRadius * 0.4f;
    for (size_t i = 0; i < n; ++i) contactDist[i] = base + (ch.id ? jitterOffset((*ch.id)[i]) : 0.f);
    ::collidePass(*this);
}

void SimpleSPHParticleSystem::compact()
{
    if (!ch.deleted) return;
    PointData& pts = *body->points;
    BitArray& deleted = *ch.deleted;
    size_t i = 0;
    while (i < pts.size()) {
        if (!deleted.get(i)) {
            ++i;
            continue;
        }
        // removePoint moves the last particle here, with all its channels; look again.
        pts.removePoint(i);
        queryHashReady = false;
    }
}

void SimpleSPHParticleSystem::groundPass()
{
    if (!ch.v || !ch.deleted) return;
    const float dt = simState ? simState->dt : 0.f;
    const float g = 1.f - std::min(groundPlaneFriction * dt * 0.1f, 1.f);
    const bool jitter = collisionJitter > 0.00001f;
    VecArray& P = *ch.P;
    VecArray& v = *ch.v;
    const BitArray& deleted = *ch.deleted;
    const IntArray* ids = ch.id;
    const int64_t n = int64_t(particleCount());
#pragma omp parallel for schedule(static) num_threads(threadCount(true))
    for (int64_t k = 0; k < n; ++k) {
        const size_t i = size_t(k);
        if (deleted.get(i)) continue;
        float floor = kernelRadius;
        if (jitter && ids) floor += jitterOffset((*ids)[i]);
        Vec4f& p = P[i];
        if (!(p.y < floor)) continue;
        p.y = floor;
        Vec4f& w = v[i];
        w.x *= g;
        w.z *= g;
        if (w.y < 0.f) w.y *= -0.01f;
    }
}

// --- Cache import

int readInitialState(SimpleSPHParticleSystem& system, const std::string& path)
{
    std::printf("SPH: importing %s\n", path.c_str());
    if (!std::ifstream(path, std::ios::binary)) {
        std::printf("cannot open %s\n", path.c_str());
        return -1;
    }
    const std::string ext = fileio::extensionOf(path);
    if (ext == "prt" || ext == "abc") {
        std::printf("ERROR: reading .%s particle caches is not supported yet: %s\n", ext.c_str(),
                    path.c_str());
        return -1;
    }
    try {
        std::vector<fileio::BinParticle> particles;
        fileio::BinHeader header;
        if (fileio::readBinParticles(path, particles, &header) != 0)
            throw std::runtime_error("unreadable cache");
        QMutexLocker lock(&vboMutex);
        system.reset();
        size_t skipped = 0;
        for (const fileio::BinParticle& p : particles) {
            const Vec4f pos(p.pos[0], p.pos[1], p.pos[2], 0.f);
            const Vec4f vel(p.vel[0], p.vel[1], p.vel[2], 0.f);
            if (!std::isfinite(pos.x + pos.y + pos.z) || !std::isfinite(vel.x + vel.y + vel.z)) {
                ++skipped;
                continue;
            }
            const int i = system.addParticle(pos, vel);
            if (system.ch.id) (*system.ch.id)[size_t(i)] = int32_t(p.id);
        }
        if (skipped > 0)
            std::printf("SPH: skipped %zu particles with non-finite position or velocity in %s\n", skipped,
                        path.c_str());
        // New particles must not reuse an id that came from the file.
        if (system.ch.id)
            for (int32_t id : *system.ch.id) system.nextParticleId = std::max(system.nextParticleId, id);
        system.lastParticleCount = int32_t(system.particleCount());
        system.lastSolvedTime = simState ? simState->frameF : 0.f;
        std::printf("reading done.\n");
        return 0;
    } catch (const std::exception& e) {
        std::printf("ERROR: %s\n", e.what());
    } catch (...) {
        std::printf("ERROR: unknown\n");
    }
    QMutexLocker lock(&vboMutex);
    system.reset();
    return -1;
}
