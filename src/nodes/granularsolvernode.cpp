// Granular-Solver: the solve of a granular node chain. The classic system's passes do the
// work (constraint creation, neighbour search, iteration and constraint passes), run by a
// GranularParticleSystem in its node form; the Body's `data_` channels stand in for the
// system's own per-particle state, and what the Body doesn't carry lives on this node.
// After the iterations the working copy is written back: positions, damped velocities,
// drag along the normals and a colour by constraint count. The node doesn't integrate:
// the origin moves the points by their velocity at the next cook.
#include "nodes/granularsolvernode.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "particles/granularparticlesystem.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

// Points with a position or velocity that isn't finite sit out the solve, parked far below
// the scene one apart (each in a cell of its own), and get their values back afterwards.
constexpr float kParkDepth = -1.0e6f;
constexpr float kParkSpacing = 4.f;
// Colour by constraint count: full brightness at this many constraints.
constexpr float kColourConstraints = 6.f;

template <class A> A* channel(PointData& pts, const char* name, int type)
{
    if (pts.attribType(name) != type) return nullptr;
    A* a = pts.attribAs<A>(name);
    return a && a->size() == pts.size() ? a : nullptr;
}

BitArray* bitChannel(PointData& pts, const char* name)
{
    if (pts.attribType(name) != ATTRIB_BOOL) return nullptr;
    auto* a = pts.attribAs<BitArray>(name);
    return a && a->size() == pts.size() ? a : nullptr;
}

bool finite(const Vec4f& v)
{
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

int threadCount()
{
    return simState ? std::max(1, simState->numThreads) : 1;
}

} // namespace

GranularSolverNode::GranularSolverNode(NodeMaster* master) : GeoNode(master)
{
    setType("Granular-Solver");
    params.addSpecial(102, "General:");
    addParam(&resolution, "resolution", "Resolution", kParamFloat, "10",
             "Resolution and Density define the mass of a particle.");
    addParam(&groundPlaneFriction, "groundPlaneFriction", "Ground Friction", kParamFloat, "10",
             "Amount of friction with the ground plane.");
    addParam(&freezeThreshold, "freezeThreshold", "Freeze Threshold", kParamFloat, "0.01",
             "Particles stop drifting if velocity is below this threshold.");

    params.addSpecial(102, "Particle-Interaction:");
    addParam(&particleStiffness, "particleStiffness", "Partcl. Stiffness", kParamFloat, "100",
             "Controls how strongly particles push-away each other.");
    addParam(&friction, "friction", "Friction", kParamFloat, "10",
             "Amount of friction between individual particles. Note that too high values can make it look "
             "clumpy.");
    addParam(&attraction, "attraction", "Attraction", kParamFloat, "0",
             "Controls the attraction force between particles.");
    addParam(&slushiness, "slushiness", "Slushiness", kParamFloat, "0",
             "Inversely controls the explosiveness of impacts (intended range 0.0 to 1.0)");
    addParam(&stackHelp, "stackHelp", "Stack Help", kParamBool, "false",
             "Makes individual particles stack more when turned on.");

    params.addSpecial(102, "Constraints:");
    addParam(&constraintStiffness, "constraintStiffness", "Constr. Stiffness", kParamFloat, "100",
             "Controls how strong the connections between particles are. Lower values make them break very "
             "easily.");
    addParam(&maxConstraintStretch, "maxConstraintStretch", "Constr. Break Stretch", kParamFloat, "1.06",
             "Maximum allowed stretching amount of constraints before breaking.");
    addParam(&maxConstraintLength, "maxConstraintLength", "Constr. Search Distance", kParamFloat, "3",
             "Maximum search distance for constraint creation. Multiplier on particle radius.");
    addParam(&removeStrands, "removeStrands", "Remove Wires", kParamBool, "false",
             "Remove particle strands looking like wires.");
    addParam(&plasticity, "plasticity", "Plasticity", kParamFloat, "0",
             "Enables plastic deformations for constraints. Intended range is 0.0 to 1.0");
    addParam(&relinkThreshold, "relinkThreshold", "Relink Thresh", kParamFloat, "0", "Recreate constraints.");
    addParam(&relinkEveryNthStep, "relinkEveryNthStep", "Relink every n-th step", kParamInt, "2",
             "Recreate every n-th step in a frame.");
    addParam(&createConstraints, "createConstraints", "Create Constraints", kParamBool, "false",
             "Create initial constraints.");

    params.addSpecial(102, "Sleeping:");
    addParam(&enableSleeping, "enableSleeping", "Enable Sleeping", kParamBool, "false",
             "Stationary particles can become inactive and speed up the simulation this way.");
    addParam(&startAsleep, "startAsleep", "Start Asleep", kParamBool, "false",
             "All particles start as sleeping particles.");
    addParam(&sleepVelThreshold, "sleepVelThreshold", "Velocity Threshold", kParamFloat, "0.01",
             "Particles have to be moving slower than this threshold for being considered for sleeping.");
    addParam(&sleepDelay, "sleepDelay", "Sleep Delay", kParamFloat, "0.1",
             "Delay in seconds before particles start to sleep.");

    params.addSpecial(102, "Solver Details:");
    addParam(&iterations, "iterations", "Iterations", kParamInt, "3",
             "More iterations help the solver to more accurately resolve constraints. Done per substep.");
    addParam(&damping, "damping", "Damping", kParamFloat, "0", "General damping.");
    addParam(&clampAcceleration, "clampAcceleration", "Clamp Acceleration", kParamFloat, "1",
             "Limit accelerations caused by interparticle dynamics.");
    addParam(&clampSpeed, "clampSpeed", "Clamp Speed", kParamFloat, "200", "Limit maximum particle speed.");

    params.addSpecial(102, "Granular Cloth:");
    addParam(&clothInflate, "clothInflate", "Cloth Inflate", kParamFloat, "0",
             "Inflate cloth objects. Points need defined normals.");
    addParam(&clothKeepVolume, "clothKeepVolume", "Cloth Keep Volume", kParamBool, "false",
             "Tries to keep the volume of the pressurized mesh.");
    addParam(&volumeTarget, "volumeTarget", "Cloth Volume Target", kParamFloat, "500",
             "Target volume area to keep.");
    addParam(&volumePressureScale, "volumePressureScale", "Cloth Volume Pressure Scale", kParamFloat, "1",
             "Scales the compression pressure.");
    addParam(&clothDrag, "clothDrag", "Cloth Drag", kParamFloat, "0.5");

    params.addSpecial(100);
    addParam(&breakConstraintsNoisy, "breakConstraintsNoisy", "Noisy Pre-Breakup", kParamBool, "false",
             "Use a noise to pre-breakup some constraints on emission.");
    addParam(&breakConstrNoisyScaleX, "breakConstrNoisyScaleX", "Noise Scale X", kParamFloat, "1",
             "Controls the pre-breakup noise scale.");
    addParam(&breakConstrNoisyScaleY, "breakConstrNoisyScaleY", "Noise Scale Y", kParamFloat, "1",
             "Controls the pre-breakup noise scale.");
    addParam(&breakConstrNoisyScaleZ, "breakConstrNoisyScaleZ", "Noise Scale Z", kParamFloat, "1",
             "Controls the pre-breakup noise scale.");
    addParam(&breakConstrNoisyOctaves, "breakConstrNoisyOctaves", "Noise Octaves", kParamFloat, "2",
             "Controls the pre-breakup noise octaves.");
    addParam(&breakConstrNoisyRoughness, "breakConstrNoisyRoughness", "Noise Roughness", kParamFloat, "0.5",
             "Controls the pre-breakup noise roughness.");
    params.addSpecial(100);
    addParam(&stickAttrInitialVal, "stickAttrInitialVal", "Stick Weight Map Initial Value", kParamFloat, "1",
             "Initial value for the Stick Parameter extra channel.");
    addParam(&unstickByVelocityThreshold, "unstickByVelocityThreshold", "Un-Stick By Vel Thresh", kParamFloat,
             "1000", "Set stick value to zero when faster than this velocity.");
    addParam(&wakeupByVelocityThreshold, "wakeupByVelocityThreshold", "Wakeup by Vel Thresh", kParamFloat,
             "1000", "Wakeup when faster than this velocity.");

    addInput("Dynamic-Particles", true);
    addOutput("Dynamic-Particles");
}

GranularSolverNode::~GranularSolverNode() = default;

void GranularSolverNode::reset()
{
    GeoNode::reset();
    lastParticleCount = 0;
    maxSpeed = 0.f;
    neighbs.clear();
    numContacts.clear();
    forceWork.clear();
    deletedWork.clear();
    sleepingWork.clear();
    restingWork.clear();
    stickWork.clear();
    tearLists.clear();
    core.reset();
}

void GranularSolverNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    BodyPtr body;
    fetchInput(body, 0);
    if (body && enabled) solve(body, context.graphDt);
    finishProcess(result, c, std::move(body), false);
}

float GranularSolverNode::meshVolume(const Body&)
{
    // The enclosed volume of the primitives comes with the cloth tools; until then no
    // volume is known and Keep Volume applies no pressure.
    return 0.f;
}

void GranularSolverNode::tearByChannels(Body&, const std::vector<std::pair<int, int>>&)
{
    // Cutting primitives along broken constraints belongs to the cloth tools; the kept
    // constraints stay in the Body until then.
}

void GranularSolverNode::copyRowsToCore()
{
    GranularParticleSystem& g = *core;
    g.resolution = resolution;
    g.density = 1.f;
    g.updateDerivedFields();
    g.groundPlaneFriction = groundPlaneFriction;
    g.freezeThreshold = freezeThreshold;
    g.particleStiffness = particleStiffness;
    g.friction = friction;
    g.attraction = attraction;
    g.slushiness = slushiness;
    g.constraintStiffness = constraintStiffness;
    g.maxConstraintStretch = maxConstraintStretch;
    g.maxConstraintLength = maxConstraintLength;
    g.removeStrands = removeStrands;
    g.plasticity = plasticity;
    g.relinkThreshold = relinkThreshold;
    g.relinkEveryNthStep = relinkEveryNthStep;
    g.enableSleeping = enableSleeping;
    g.startAsleep = startAsleep;
    g.sleepVelThreshold = sleepVelThreshold;
    g.sleepDelay = sleepDelay;
    // Sleeping particles are simply skipped by the node's iterations.
    g.allowSleepingToMove = false;
    g.wakeupByVelocityThreshold = wakeupByVelocityThreshold;
    g.unstickByVelocityThreshold = unstickByVelocityThreshold;
    g.iterations = std::max(1, iterations);
    g.clampAcceleration = clampAcceleration;
    g.clampSpeed = clampSpeed;
    g.breakConstraintsNoisy = breakConstraintsNoisy;
    g.breakConstrNoisyScaleX = breakConstrNoisyScaleX;
    g.breakConstrNoisyScaleY = breakConstrNoisyScaleY;
    g.breakConstrNoisyScaleZ = breakConstrNoisyScaleZ;
    g.breakConstrNoisyOctaves = breakConstrNoisyOctaves;
    g.breakConstrNoisyRoughness = breakConstrNoisyRoughness;
    g.stickAttrInitialVal = stickAttrInitialVal;
}

void GranularSolverNode::solve(const BodyPtr& body, float dt)
{
    PointData& pts = *body->points;
    pts.addAttrib("v", ATTRIB_VELOCITY);
    pts.addAttrib("data_constrIndices", ATTRIB_INT_LIST);
    pts.addAttrib("data_constrDistances", ATTRIB_FLOAT_LIST);
    if (!(resolution > 0.f) || !std::isfinite(resolution)) {
        std::printf("granular-solver: resolution must be above 0.\n");
        return;
    }
    particleSpacing = 1.f / resolution;
    particleRadius = 0.5f / resolution;
    particleMass = particleSpacing * particleSpacing * particleSpacing;
    const size_t n = pts.size();
    if (n == 0) return;
    if (!simState) {
        std::printf("granular-solver: no run state, solve skipped.\n");
        return;
    }
    if (!core) core = std::make_unique<GranularParticleSystem>();
    auto* partners = channel<IntListArray>(pts, "data_constrIndices", ATTRIB_INT_LIST);
    auto* rests = channel<FloatListArray>(pts, "data_constrDistances", ATTRIB_FLOAT_LIST);
    if (!partners || !rests || !pts.hasV || pts.v.size() != n) {
        std::printf("granular-solver: a channel has the wrong type, solve skipped.\n");
        return;
    }

    // Points that can't take part: a position or velocity that isn't a finite number.
    std::vector<uint32_t> parked;
    std::vector<std::pair<Vec4f, Vec4f>> parkedValues;
    for (size_t i = 0; i < n; ++i)
        if (!finite(pts.P[i]) || !finite(pts.v[i])) parked.push_back(uint32_t(i));
    if (!parked.empty()) {
        std::printf("granular-solver: %zu points with NaN or inf position or velocity skipped.\n",
                    parked.size());
        for (size_t p = 0; p < parked.size(); ++p) {
            const uint32_t i = parked[p];
            parkedValues.emplace_back(pts.P[i], pts.v[i]);
            pts.P[i] = Vec4f(kParkDepth - kParkSpacing * float(p), kParkDepth, kParkDepth, 0.f);
            pts.v[i] = Vec4f();
        }
    }

    // The per-particle state the passes read: the Body's channels where it has them.
    BitArray* deletedIn = bitChannel(pts, "data_deleted");
    deletedWork.resize(n);
    for (size_t i = 0; i < n; ++i) deletedWork.set(i, deletedIn && deletedIn->get(i));
    for (const uint32_t i : parked) deletedWork.set(i, true);
    BitArray* sleeping = bitChannel(pts, "data_sleeping");
    if (!sleeping) {
        sleepingWork.resize(n);
        for (size_t i = 0; i < n; ++i) sleepingWork.set(i, false);
        sleeping = &sleepingWork;
    }
    FloatArray* resting = channel<FloatArray>(pts, "data_restingTime", ATTRIB_FLOAT);
    if (!resting) {
        restingWork.assign(n, 0.f);
        resting = &restingWork;
    }
    FloatArray* stick = channel<FloatArray>(pts, "data_stick", ATTRIB_FLOAT);
    if (!stick) {
        stickWork.assign(n, stickAttrInitialVal);
        stick = &stickWork;
    }
    VecArray* force = channel<VecArray>(pts, "force", ATTRIB_VECTOR);
    if (!force) {
        forceWork.assign(n, Vec4f());
        force = &forceWork;
    }
    numContacts.assign(n, 0);
    neighbs.resize(n);
    FloatArray* pinned = channel<FloatArray>(pts, "pinned", ATTRIB_FLOAT);
    VecArray* pinnedPos = channel<VecArray>(pts, "pinnedPos", ATTRIB_VECTOR);
    if (!pinnedPos) pinnedPos = channel<VecArray>(pts, "pinnedPos", ATTRIB_POSITION);
    const bool hasPrims = body->prims && body->prims->size() > 0;
    const bool hasNormals = pts.hasN && pts.N.size() == n;

    // The core runs on this Body through the channel view.
    copyRowsToCore();
    GranularParticleSystem& g = *core;
    const BodyPtr home = g.body;
    g.body = body;
    g.ch = GranularParticleSystem::Channels();
    g.ch.P = &pts.P;
    g.ch.v = &pts.v;
    g.ch.force = force;
    g.ch.numContacts = &numContacts;
    g.ch.neighbs = &neighbs;
    g.ch.constrIndices = partners;
    g.ch.constrDists = rests;
    g.ch.restingTime = resting;
    g.ch.sleeping = sleeping;
    g.ch.stick = stick;
    g.ch.deleted = &deletedWork;
    g.ch.maxStretch = channel<FloatArray>(pts, "maxStretch", ATTRIB_FLOAT);
    g.nodeForm = GranularParticleSystem::NodeForm();
    g.nodeForm.on = true;
    g.nodeForm.dt = dt;
    g.nodeForm.stackHelp = stackHelp;
    g.nodeForm.pinned = pinned && pinnedPos ? pinned->data() : nullptr;
    g.nodeForm.pinnedPos = pinned && pinnedPos ? pinnedPos->data() : nullptr;
    g.nodeForm.normals = hasNormals ? pts.N.data() : nullptr;
    g.nodeForm.inflate = hasNormals ? clothInflate : 0.f;
    tearLists.assign(hasPrims ? size_t(threadCount()) : 0, {});
    g.nodeForm.tearLists = hasPrims ? &tearLists : nullptr;

    if (createConstraints && maxConstraintLength > 0.f) {
        if (lastParticleCount < 1) {
            g.createConstraints(0);
            std::printf("created constraints initially\n");
        } else if (size_t(lastParticleCount) < n) {
            g.createConstraints(lastParticleCount);
            std::printf("created constraints from idx %d\n", lastParticleCount);
        }
    }
    g.searchNeighbours(particleSpacing);
    lastParticleCount = int32_t(n);
    maxSpeed = 0.f;
    g.checkNaN();
    if (hasPrims && clothKeepVolume) {
        // Keep Volume scales an outward push by how far the mesh is below volumeTarget; with
        // no volume known (meshVolume) there is nothing to push.
        const float volume = meshVolume(*body);
        if (volume > 0.f) g.nodeForm.inflate += (volumeTarget - volume) / volumeTarget * volumePressureScale;
    }
    for (int it = 0; it < g.iterations; ++it) g.iterate(it);
    std::vector<std::pair<int, int>> tears;
    for (const auto& list : tearLists) tears.insert(tears.end(), list.begin(), list.end());

    // Write back, per slot.
    const float keep = 1.f - std::min(dt * damping, 1.f);
    const float drag = clothDrag * dt;
    VecArray* Cd = pts.hasCd && pts.Cd.size() == n ? &pts.Cd : nullptr;
    BitArray* sleepingOut = bitChannel(pts, "data_sleeping");
    bool outOfBounds = false;
    float fastest = 0.f;
    for (size_t k = 0; k < n; ++k) {
        const uint32_t i = g.sortedOrder[k];
        if (i >= n) {
            outOfBounds = true;
            continue;
        }
        if (deletedWork.get(i)) continue;
        pts.P[i] = g.sortedPos[k];
        Vec4f v = g.sortedVel[k] * keep;
        if (hasNormals) {
            const Vec4f& nrm = pts.N[i];
            v -= nrm * (v.dot3(nrm) * drag);
        }
        pts.v[i] = v;
        fastest = std::max(fastest, v.length3());
        if (sleepingOut) sleepingOut->set(i, (g.sortedFlags[k] & GranularParticleSystem::kFlagSleeping) != 0);
        if (Cd) {
            const float c = float((*partners)[i].size());
            (*Cd)[i] =
                c <= kColourConstraints
                    ? Vec4f(c / kColourConstraints * 0.5f, c / kColourConstraints * 0.8f, 1.f, 0.f) * 2.f
                    : Vec4f(0.9f, 0.95f, 1.f, 0.f) * 2.f;
        }
    }
    if (outOfBounds) std::printf(" warning: out of bounds index.\n");
    maxSpeed = fastest;
    for (size_t p = 0; p < parked.size(); ++p) {
        pts.P[parked[p]] = parkedValues[p].first;
        pts.v[parked[p]] = parkedValues[p].second;
    }

    g.body = home;
    g.ch = GranularParticleSystem::Channels();
    g.nodeForm = GranularParticleSystem::NodeForm();
    if (hasPrims) tearByChannels(*body, tears);
}
