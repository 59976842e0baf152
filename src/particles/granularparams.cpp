// The rows of a granular system, in the order the parameter editor shows them. Each row
// is bound to a field of the system (damping to the one value in SimState); the extra
// sections show only while showExtraParams is on, useCuda only where CUDA runs.
#include "particles/granularparticlesystem.h"

#include "app/globals.h"
#include "app/simstate.h"

void GranularParticleSystem::buildParameters()
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
    auto extra = [this](Parameter* row) {
        row->visibleIfBool = &showExtraParams;
        row->visibleBoolValue = true;
        return row;
    };

    p.add(Parameter(&name, "nodeName", "Object Name", kParamObjectName, "The system's name."));

    p.addSpecial(102, "General:");
    p.add(Parameter(&resolution, "resolution", "Resolution", kParamFloat,
                    "Resolution and Density define the mass of a particle."));
    p.add(Parameter(&gravityVector.y, "gravity", "Gravity", kParamFloat));
    p.add(Parameter(&groundPlaneFriction, "groundPlaneFriction", "Ground Friction", kParamFloat,
                    "Amount of friction with the ground plane."));
    p.add(Parameter(&freezeThreshold, "freezeThreshold", "Freeze Threshold", kParamFloat,
                    "Particles stop drifting if velocity is below this threshold."));
    p.add(Parameter(&freezeMinContacts, "freezeMinContacts", "Freeze Min Contacts", kParamInt,
                    "Minimum number of contacts to other particles a particle must have to stop moving."));
    p.add(Parameter(&colorScale, "colorScale", "Color Scale", kParamFloat,
                    "Controls how bright the particles are getting displayed."));

    p.addSpecial(102, "Particle-Interaction:");
    limitMin(p.add(Parameter(&particleStiffness, "particleStiffness", "Particle Stiffness/Push-Away", kParamFloat,
                             "Controls how strongly particles push-away each other.")),
             0.f);
    limitMin(p.add(Parameter(&friction, "friction", "Friction", kParamFloat,
                             "Amount of friction between individual particles. Note that too high values can "
                             "make it look clumpy.")),
             0.f);
    limitMin(p.add(Parameter(&attraction, "attraction", "Attraction", kParamFloat,
                             "Controls the attraction force between particles.")),
             0.f);
    limitMax(limitMin(p.add(Parameter(&slushiness, "slushiness", "Slushiness", kParamFloat,
                                      "Inversely controls the explosiveness of impacts (intended range 0.0 to "
                                      "1.0)")),
                      0.f),
             1.f);

    p.addSpecial(102, "Constraints:");
    limitMin(p.add(Parameter(&constraintStiffness, "constraintStiffness", "Constraint Stiffness", kParamFloat,
                             "Controls how strong the connections between particles are. Lower values make them "
                             "break very easily.")),
             0.f);
    p.add(Parameter(&maxConstraintStretch, "maxConstraintStretch", "Constr. Break Stretch", kParamFloat,
                    "Maximum allowed stretching amount of constraints before breaking."));
    limitMax(p.add(Parameter(&maxConstraintLength, "maxConstraintLength", "Constr. Search Distance", kParamFloat,
                             "Maximum search distance for initial constraint creation. Multiplier of the particle "
                             "radius. Parameter was named Constr. Max Length before.")),
             10.f);
    p.add(Parameter(&removeStrands, "removeStrands", "Remove Wires", kParamBool,
                    "Remove particle strands looking like wires."));
    limitMax(limitMin(p.add(Parameter(&plasticity, "plasticity", "Plasticity", kParamFloat,
                                      "Enables plastic deformations for constraints. Intended range is 0.0 to "
                                      "1.0")),
                      0.f),
             1.f);
    p.add(Parameter(&relinkThreshold, "relinkThreshold", "Relink Thresh", kParamFloat,
                    "Recreates constraints when velocities between particles are below this threshold speed."));
    p.add(Parameter(&relinkEveryNthStep, "relinkEveryNthStep", "Relink every n-th step", kParamInt,
                    "Recreates every n-th substep in a frame."));

    p.addSpecial(102, "Sleeping:");
    p.add(Parameter(&enableSleeping, "enableSleeping", "Enable Sleeping", kParamBool,
                    "Stationary particles can become inactive and speed up the simulation this way."));
    p.add(Parameter(&colorSleeping, "colorSleeping", "Visualize Sleeping", kParamBool,
                    "Show sleeping particles as red in the viewport."));
    p.add(Parameter(&startAsleep, "startAsleep", "Start Asleep", kParamBool,
                    "All particles start as sleeping particles."));
    p.add(Parameter(&sleepVelThreshold, "sleepVelThreshold", "Velocity Threshold", kParamFloat,
                    "Particles have to be moving slower than this threshold for being considered for sleeping."));
    p.add(Parameter(&sleepDelay, "sleepDelay", "Sleep Delay", kParamFloat,
                    "Delay in seconds before particles start to sleep."));
    p.add(Parameter(&allowSleepingToMove, "allowSleepingToMove", "Allow Sleeping to get moved", kParamBool,
                    "Allow sleeping particles to change position."));
    p.add(Parameter(&wakeupByVelocityThreshold, "wakeupByVelocityThreshold", "Wakeup by Vel Thresh", kParamFloat,
                    "Wakeup when faster than this velocity."));

    p.addSpecial(102, "Solver Details:");
    p.add(Parameter(&iterations, "iterations", "Iterations", kParamInt,
                    "More iterations help the solver to more accurately resolve constraints. Done per "
                    "substep."));
    p.add(Parameter(&simState->damping, "damping", "Damping", kParamFloat, "General damping."));
    p.add(Parameter(&clampAcceleration, "clampAcceleration", "Clamp Acceleration", kParamFloat,
                    "Limit accelerations caused by interparticle dynamics."));
    p.add(Parameter(&clampSpeed, "clampSpeed", "Clamp Speed", kParamFloat, "Limit maximum particle speed."));

    p.addSpecial(102, "");
    p.add(Parameter(&initialStateFilePath, "initialStateFilePath", "Initial State Cache File", kParamPath,
                    "Enter an existing cache file path to use as the initial state."));
    p.add(Parameter(&trackUVs, "trackUVs", "Track UVs", kParamBool,
                    "Tracks UVs on the particles coming from the emission geometry."));
    Parameter* cuda = p.add(Parameter(&useCuda, "useCuda", "Use CUDA", kParamBool, "Simulate on the GPU using CUDA."));
    cuda->visibleIfBool = &simState->cudaAvailable;
    cuda->visibleBoolValue = true;
    p.add(Parameter(&exportFormat, "exportFormat", "Export Format", kParamString,
                    "Enter \"prt\", \"abc\" or \"bin\"."));
    p.add(Parameter(&enabled, "enabled", "Enabled", kParamBool, "Enable or disable the system."));
    p.add(Parameter(&visible, "visible", "Visibility", kParamBool));
    p.add(Parameter(&showExtraParams, "showExtraParams", "Show Extra Params", kParamBool,
                    "Shows some extra parameters for special cases."));

    extra(p.addSpecial(102, "Initial Constraint Breakup:"));
    extra(p.add(Parameter(&breakConstraintsNoisy, "breakConstraintsNoisy", "Noisy Pre-Breakup", kParamBool,
                          "Use a noise to pre-breakup some constraints on emission.")));
    extra(p.add(Parameter(&breakConstrNoisyScaleX, "breakConstrNoisyScaleX", "Noise Scale X", kParamFloat,
                          "Controls the pre-breakup noise scale.")));
    extra(p.add(Parameter(&breakConstrNoisyScaleY, "breakConstrNoisyScaleY", "Noise Scale Y", kParamFloat,
                          "Controls the pre-breakup noise scale.")));
    extra(p.add(Parameter(&breakConstrNoisyScaleZ, "breakConstrNoisyScaleZ", "Noise Scale Z", kParamFloat,
                          "Controls the pre-breakup noise scale.")));
    extra(p.add(Parameter(&breakConstrNoisyOctaves, "breakConstrNoisyOctaves", "Noise Octaves", kParamFloat,
                          "Controls the pre-breakup noise octaves.")));
    extra(p.add(Parameter(&breakConstrNoisyRoughness, "breakConstrNoisyRoughness", "Noise Roughness", kParamFloat,
                          "Controls the pre-breakup noise roughness.")));

    extra(p.addSpecial(102, "Collider Stick-Behavior:"));
    extra(p.add(Parameter(&stickAttrInitialVal, "stickAttrInitialVal", "Stick Weight Map Initial Value", kParamFloat,
                          "Initial value for the Stick Parameter extra channel.")));
    extra(p.add(Parameter(&colorStickiness, "colorStickiness", "Visualize Stick Weight Map", kParamBool,
                          "Particles with stick value of 1.0 will be rendered in green.")));
    extra(p.add(Parameter(&unstickByVelocityThreshold, "unstickByVelocityThreshold", "Un-Stick By Vel Thresh",
                          kParamFloat, "Set stick value to zero when faster than this velocity.")));

    for (Parameter& row : p.parameters) row.text = row.defaultText;
}

void GranularParticleSystem::evaluateParameters(float frame, int substep)
{
    Parameter* row = params.get("nodeName");
    if (row && row->text.empty()) row->text = name;
    SceneObject::evaluateParameters(frame, substep);
}
