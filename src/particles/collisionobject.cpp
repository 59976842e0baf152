// CollisionObject: its parameter rows in the editor's order, the per-substep matrix and
// geometry updates, and the prepare step of its distance grids.
#include "particles/collisionobject.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "io/object.h"
#include "particles/objectsdf.h"
#include "particles/xform.h"

#include <algorithm>
#include <cstdio>

CollisionObject::CollisionObject() : PlacedObject(kTypeCollider)
{
    buildParameters();
}

CollisionObject::~CollisionObject()
{
    std::printf("deleting collider\n");
}

void CollisionObject::buildParameters()
{
    ParameterSet& p = params;
    auto row = [&p](void* field, const char* key, const char* label, int type, const char* tip = "") {
        return p.add(Parameter(field, key, label, type, tip));
    };

    addNameAndTransformRows();

    p.addSpecial(102, "Particle Interaction:");
    row(&collide, "collide", "Enable Collision", kParamBool, "Turn collisions on or off.");
    row(&friction, "friction", "Friction", kParamFloat, "The friction between particles and the collider's surface.");
    row(&staticGrip, "staticGrip", "Static Grip", kParamFloat, "How quickly the static grip takes over.");
    row(&deleteParticles, "deleteParticles", "Delete Particles", kParamBool,
        "Turn this on to remove particles that are inside the object. Best results are achieved when Enable "
        "Collision above is turned off.");
    row(&stickStrength, "stickStrength", "Stick Strength", kParamFloat,
        "Blends in the collider's velocity into the particles' velocity. Use Stick Distance to control how far this "
        "effect reaches.");
    row(&xformStick, "xformStick", "Transform Stick", kParamBool,
        "Uses the object's transform (UI params & Alembic) to achieve the sticking effect. This will remove "
        "particle-drift. Stick Strength needs to be set to 1 as well. Only recomended for transforming objects (not "
        "deforming).");
    Parameter* lock = row(&xformStickLockFrame, "xformStickLockFrame", "Lock On Frame", kParamInt,
                          "Enter the frame number from which on particles should maintain their relative positions. "
                          "Default is the startfame.");
    lock->defaultText = "$STARTFRAME";
    lock->visibleIfBool = &xformStick;
    lock->visibleBoolValue = true;
    row(&stickDist, "stickDist", "Stick Distance", kParamFloat,
        "Set the size of the influence layer around the collider in worldspace units.");
    row(&stickFalloff, "stickFalloff", "Stick Falloff", kParamFloat);
    row(&attraction, "attraction", "Attraction", kParamFloat, "Strength of attraction force towards the surface.");
    row(&attractionDist, "attractionDist", "Attraction Distance", kParamFloat,
        "Distance to collider in which particles get attracted.");
    row(&awakenParticles, "awakenParticles", "Wake-up Particles", kParamBool,
        "Use Collider to wake up particles when in certain distance to it.");
    row(&awakenDistance, "awakenDistance", "Wake-up Distance", kParamFloat,
        "Distance threshold for waking-up particles. Please make sure there's enough SDF Band.");
    Parameter* mode = row(&stickWeightMapMode, "stickWeightMapMode", "Stick Weight Map Mode", kParamEnum,
                          "Set to either leave the stick allowance weight map as is or alter the weight map when "
                          "inside this collider to the value below. This is only relevant to the granular particle "
                          "system.");
    mode->enumEntries = {"No change", "Set when inside", "Set when inside on first frame"};
    Parameter* setVal = row(&stickWeightMapSetVal, "stickWeightMapSetVal", "Stick Weight Map Set Value", kParamFloat,
                            "Set the system's stick weight map channel when inside the object.");
    setVal->visibleIfInt = &stickWeightMapMode;
    setVal->visibleIntValue = kStickMapNoChange;
    setVal->visibleNegate = true;

    p.addSpecial(102, "Geometry:");
    row(&filePath, "filePath", "File Path", kParamPath, "The file path of the geometry to load.");
    row(&frameOffset, "frameOffset", "Frame Offset", kParamFloat,
        "Where to move the original frame 0 on the timeslider. Positive numbers make the anim start later.");
    row(&timeScale, "timeScale", "Playback Speed", kParamFloat,
        "Speedup or slowdown the playback speed of the animation.");
    row(&timeScaleAnchorFrame, "timeScaleAnchorFrame", "Time Scale Anchor Frame", kParamFloat,
        "Around which frame of the original anim the scaling should happen.");
    row(&bakeScale, "bakeScale", "Bake File Scales", kParamBool,
        "Bake all file internal scale transformations into the mesh and sdf.");
    row(&readScale, "readScale", "Uniform Mesh Scale (Read-Scaling)", kParamFloat,
        "Uniform scale baked into the mesh while reading it. This will happen before creating a volume from the "
        "geometry so voxels remain uninfluenced.");
    row(&voxelSize, "voxelSize", "SDF Voxelsize", kParamFloat, "Defines the size of one voxel in local space.");
    Parameter* band = row(&sdfInnerBand, "sdfInnerBand", "SDF Band", kParamFloat,
                          "How far the voxel definition reaches in and out of the object. In voxel units.");
    band->hasMin = true;
    band->minValue = 1.f;
    row(&sdfPushOut, "sdfPushOut", "SDF Push Out (offset)", kParamFloat,
        "Push in or out the collider's boundary. Positive numbers push out. Make sure the SDF Band (above) is large "
        "enough.");
    row(&velocityScale, "velocityScale", "Velocity Scale", kParamFloat,
        "Scale all velocities coming from mesh transformations or deformations.");
    row(&sdfInvert, "sdfInvert", "Invert Collider", kParamBool,
        "INverting the collider enables to fill the inside of objects.");
    row(&sdfUpdateEveryNthStep, "sdfUpdateEveryNthStep", "Update SDF every n-th step", kParamInt,
        "Update th SDF every n-th step in a frame.");

    p.addSpecial(102, "");
    row(&drawMesh, "drawMesh", "Draw Mesh", kParamBool, "Turns the mesh drawing on or off.");
    row(&drawSDF, "drawSDF", "Draw SDF", kParamBool,
        "Draws the SDF as points in the viewport. If nothing is shown please simulate a frame to update it.");
    row(&drawGrid, "drawGrid", "Draw Voxelgrid", kParamBool);
    row(&quatInterpol, "quatInterpol", "Use Quaternions", kParamBool,
        "Enable or disable quaternion interpolation for rotation values above.");
    row(&enabled, "enabled", "Enabled", kParamBool, "Enable or disable the collision.");
    row(&visible, "visible", "Visibilty", kParamBool, "Controllable with Ctrl+h and Shift+h in the viewport.");

    for (Parameter& r : p.parameters) r.text = r.defaultText;
}

void CollisionObject::resetState()
{
    pose.reset();
}

SdfBuildSettings CollisionObject::sdfSettings() const
{
    SdfBuildSettings s;
    s.voxelSize = voxelSize;
    s.band = std::max(sdfInnerBand, 1.f);
    s.pushOut = sdfPushOut;
    s.invert = sdfInvert;
    return s;
}

int CollisionObject::prepareSdf(bool force)
{
    Object* object = geometry();
    if (!object) {
        std::printf("Mesh geo is not available yet...\n");
        return 0;
    }
    sdfUpdateEveryNthStep = std::max(sdfUpdateEveryNthStep, int32_t(1));
    const int substep = simState ? simState->substep : 0;
    return prepareObjectSdf(*object, sdfSettings(), force, substep % sdfUpdateEveryNthStep == 0);
}
