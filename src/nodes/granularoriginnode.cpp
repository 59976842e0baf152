// Granular-Origin: the first cook makes the dynamic Body, every later cook at a new time
// moves its points by their velocity over the graph's step. Reset drops the Body, so the
// next run starts again from the input.
#include "nodes/granularoriginnode.h"

#include "graph/plug.h"

#include <cmath>
#include <cstdio>

GranularOriginNode::GranularOriginNode(NodeMaster* master) : GeoNode(master)
{
    setType("Granular-Origin");
    addParam(&resolution, "resolution", "Resolution", kParamFloat, "10",
             "Resolution and Density define the mass of a particle.");
    addParam(&density, "density", "Density", kParamFloat, "1",
             "Resolution and Density define the mass of a particle.");
    Parameter* r = addParam(&radius, "radius", "Radius", kParamFloat, "0.05",
                            "Derived radius from resolution - do a sim step to see updated value.");
    r->editable = false;
    addParam(&particleStiffness, "particleStiffness", "Partcl. Stiffness", kParamFloat, "100",
             "Controls how strongly particles push-away each other.");
    addParam(&constraintStiffness, "constraintStiffness", "Constr. Stiffness", kParamFloat, "100",
             "Controls how strong the connections between particles are. Lower values make them break very "
             "easily.");
    addParam(&slushiness, "slushiness", "Slushiness", kParamFloat, "0",
             "Inversely controls the explosiveness of impacts (intended range 0.0 to 1.0)");
    addParam(&plasticity, "plasticity", "Plasticity", kParamFloat, "0",
             "Enables plastic deformations for constraints. Intended range is 0.0 to 1.0");
    addParam(&friction, "friction", "Friction", kParamFloat, "10",
             "Amount of friction between individual particles. Note that too high values can make it look "
             "clumpy.");
    addParam(&attraction, "attraction", "Attraction", kParamFloat, "0",
             "Controls the attraction force between particles.");
    addParam(&stackHelp, "stackHelp", "Stack Help", kParamBool, "false",
             "Makes individual particles stack more when turned on.");
    addParam(&relinkEveryNthStep, "relinkEveryNthStep", "Relink every n-th step", kParamInt, "2",
             "Recreates every n-th substep in a frame.");
    addParam(&relinkThreshold, "relinkThreshold", "Relink Thresh", kParamFloat, "0",
             "Recreates constraints when velocities between particles are below this threshold speed.");
    addParam(&maxConstraintLength, "maxConstraintLength", "Constr. Max Length", kParamFloat, "3",
             "Maximum search distance for initial constraint creation. Multiplier of the particle radius.");
    addParam(&maxConstraintStretch, "maxConstraintStretch", "Constr. Max Stretch", kParamFloat, "1.06",
             "Maximum allowed stretching amount of constraints before breaking.");
    addParam(&removeStrands, "removeStrands", "Remove Wires", kParamBool, "false",
             "Remove particle strands looking like wires.");
    addParam(&enableSleeping, "enableSleeping", "Enable Sleeping", kParamBool, "false",
             "Stationary particles can become inactive and speed up the simulation this way.");
    addParam(&startAsleep, "startAsleep", "Start Asleep", kParamBool, "false",
             "All particles start as sleeping particles.");
    addParam(&sleepVelThreshold, "sleepVelThreshold", "Velocity Threshold", kParamFloat, "0.01",
             "Particles have to be moving slower than this threshold for being considered for sleeping.");
    addParam(&sleepDelay, "sleepDelay", "Sleep Delay", kParamFloat, "0.1",
             "Delay in seconds before particles start to sleep.");
    addParam(&iterations, "iterations", "Iterations", kParamInt, "3",
             "More iterations help the solver to more accurately resolve constraints. Done per substep.");
    addParam(&groundPlaneFriction, "groundPlaneFriction", "Ground Friction", kParamFloat, "10",
             "Amount of friction with the ground plane.");
    addParam(&damping, "damping", "Damping", kParamFloat, "0", "General damping.");
    addParam(&clampAcceleration, "clampAcceleration", "Clamp Acceleration", kParamFloat, "1",
             "Limit accelerations caused by interparticle dynamics.");
    addParam(&clampSpeed, "clampSpeed", "Clamp Speed", kParamFloat, "200", "Limit maximum particle speed.");
    addParam(&freezeThreshold, "freezeThreshold", "Freeze Threshold", kParamFloat, "0.01",
             "Particles stop drifting if velocity is below this threshold.");
    addInput("Input", true);
    addOutput("Dynamic-Particles");
    dynamic = true;
}

void GranularOriginNode::addGranularChannels(Body& body)
{
    PointData& pts = *body.points;
    pts.addAttrib("v", ATTRIB_VELOCITY);
    pts.addAttrib("Cd", ATTRIB_COLOR);
    pts.addAttrib("force", ATTRIB_VECTOR);
    pts.addAttrib("data_constrIndices", ATTRIB_INT_LIST);
    pts.addAttrib("data_constrDistances", ATTRIB_FLOAT_LIST);
    pts.addAttrib("data_deleted", ATTRIB_BOOL);
    pts.addAttrib("data_restingTime", ATTRIB_FLOAT);
    pts.addAttrib("data_sleeping", ATTRIB_BOOL);
    pts.addAttrib("data_stick", ATTRIB_FLOAT);
    pts.addAttrib("data_velPrev", ATTRIB_VELOCITY);
}

void GranularOriginNode::checkDirty(DirtyResult& r, const CookCaller& c)
{
    storeCaller(c);
    for (Plug* in : inputs) checkInput(in, c.time);
    checkOwnParameters();
    // The chain's state changes with every step: always dynamic and time dependent.
    dynamic = true;
    timeDependent = true;
    reportDirty(r);
}

void GranularOriginNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock = beginProcess(c);
    if (resolution > 0.f) radius = 0.5f / resolution;
    // A cached time, or the run flag off: hand out what is held.
    if (storedBody && (c.time == storedTime || !isRunFlagOn())) {
        finishProcess(result, c, storedBody, true);
        return;
    }
    if (!storedBody) {
        BodyPtr seed;
        fetchInput(seed, 0);
        auto body = seed ? std::make_shared<Body>(*seed) : std::make_shared<Body>();
        body->isDynamic = true;
        body->isCached = false;
        addGranularChannels(*body);
        finishProcess(result, c, std::move(body), false);
        return;
    }
    if (enabled) {
        PointData& pts = *storedBody->points;
        const float dt = context.graphDt;
        if (pts.hasV && pts.v.size() == pts.size()) {
            for (size_t i = 0; i < pts.size(); ++i) pts.P[i] += pts.v[i] * dt;
        }
    }
    finishProcess(result, c, storedBody, false);
}
