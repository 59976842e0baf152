// Source: its parameter rows in the editor's order, the matrix and geometry updates, the
// emission state, and the system-independent steps of an emission call: single shot,
// rate gate, base direction and jitter.
#include "particles/source.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "io/object.h"
#include "particles/xform.h"

#include <algorithm>
#include <cmath>

Source::Source(int32_t kind) : PlacedObject(kTypeSource), sourceType(kind)
{
    if (kind == kVolume) rateMultiplier = 0.2f;
    buildParameters();
}

void Source::buildParameters()
{
    ParameterSet& p = params;
    auto row = [&p](void* field, const char* key, const char* label, int type, const char* tip = "") {
        return p.add(Parameter(field, key, label, type, tip));
    };
    auto limits = [](Parameter* r, bool min, float lo, bool max, float hi) {
        r->hasMin = min;
        r->minValue = lo;
        r->hasMax = max;
        r->maxValue = hi;
    };

    addNameAndTransformRows();

    p.addSpecial(102, "Emission:");
    row(&speedMultiplier, "speedMultiplier", "Speed", kParamFloat,
        "The speed of the generated particles in m/s. It's a multiplier on the direction vector below.");
    row(&speedX, "speedX", "Direction X", kParamFloat, "Speed in the local x-direction of the source.");
    row(&speedY, "speedY", "Direction Y", kParamFloat, "Speed in the local y-direction of the source.");
    row(&speedZ, "speedZ", "Direction Z", kParamFloat, "Speed in the local z-direction of the source.");
    row(&parentDirection, "parentDirection", "Parent Direction to Mesh Transform", kParamBool,
        "Turn on to parent the emission plane or the direction vector to the main alembic transform. Please make "
        "sure to write out your alembic file with transforms, not just in deformation mode.");
    row(&velInheritance, "velInheritance", "Vel Inheritance", kParamFloat,
        "The amount of inherited velocity from the source.");
    limits(row(&rateMultiplier, "rateMultiplier", "Rate Multiplier", kParamFloat,
               "Raise this to get a higher frequency emission rate."),
           true, 0.00001f, false, 0.f);
    limits(row(&resolutionMultiplier, "resolutionMultiplier", "Resolution Multiplier", kParamFloat,
               "Adjust the emission resolution."),
           true, 0.00001f, false, 0.f);
    limits(row(&jitter, "jitter", "Jitter", kParamFloat, "Add some jittering. Range 0.0 to 1.0."), true, 0.f, true,
           1.f);
    row(&singleShotFrame, "singleShotFrame", "Single Shot Frame", kParamFloat,
        "The frame on which a single-frame emission should happen. If this is earlier than the playrange start then "
        "emission will be happening constantly.");
    Parameter* kind = row(&sourceType, "sourceType", "Source Type", kParamEnum,
                          "Choose between a plane, volume, mesh or point emission. Mesh emission is experimental and "
                          "Volume emission is the default for geometry.");
    kind->enumEntries = {"Plane", "Mesh", "Volume", "Point"};
    Parameter* normal = row(&meshNormalEmission, "meshNormalEmission", "Mesh Normal Emission", kParamBool,
                            "Turning this on will emit along the mesh face normals.");
    normal->visibleIfInt = &sourceType;
    normal->visibleIntValue = kMesh;
    row(&checkSpace, "checkSpace", "Check For Free Space", kParamBool,
        "Only emits when there's area space for new particles to be emitted.");

    p.addSpecial(102, "Geometry:");
    row(&filePath, "filePath", "File Path", kParamPath,
        "Enter the path to a geometry to load. Shift-click the parameter name to open a file browser.");
    row(&frameOffset, "frameOffset", "Frame Offset", kParamFloat,
        "Where to move the original frame 0 on the timeslider. Positive numbers make the anim start later.");
    row(&timeScale, "timeScale", "Playback Speed", kParamFloat,
        "Speedup or slowdown the playback speed of the animation.");
    row(&timeScaleAnchorFrame, "timeScaleAnchorFrame", "Time Scale Anchor Frame", kParamFloat,
        "Around which frame of the original anim the scaling should happen.");
    row(&bakeScale, "bakeScale", "Bake File Scales", kParamBool,
        "Bake all file internal scale transformations into the mesh and sdf. Can be the case for alembic files with "
        "transformation matrices.");
    row(&readScale, "readScale", "Uniform Scale", kParamFloat,
        "Uniform scale baked into the mesh while reading it. This will happen before creating a volume from the "
        "geometry so voxels remain uninfluenced.");
    p.addSpecial(100);
    row(&voxelSize, "voxelSize", "SDF Volume Voxelsize", kParamFloat,
        "The voxelsize of the volume generated in case of volume emission. Raise this for very large objects and "
        "lower it for a more detailed representation of the actual volume SDF. Check the volume by turning on Draw "
        "SDF. Note that when using the Transform parameters at the top the SDF volume is transformed with it.");
    row(&sdfInnerBand, "sdfInnerBand", "SDF Volume Inner Band", kParamFloat,
        "How far the detail voxels reach into the object. In local space.");
    row(&sdfOuterBand, "sdfOuterBand", "SDF Volume Outer Band", kParamFloat,
        "How far the detail voxels reach away from the surface. In local space.");
    row(&sdfPushOut, "sdfPushOut", "SDF Volume Push Out", kParamFloat,
        "Push in or out the collider's boundary. Positive numbers push out.");

    p.addSpecial(102, "");
    row(&drawMesh, "drawMesh", "Draw Mesh", kParamBool, "Turns the mesh drawing on or off.");
    row(&drawGrid, "drawGrid", "Draw Voxelgrid", kParamBool,
        "Turn on to check the size of the voxels before actually generating the volume.");
    row(&quatInterpol, "quatInterpol", "Use Quaternions", kParamBool,
        "Enable or disable quaternion interpolation for rotations.");
    row(&enabled, "enabled", "Enabled", kParamBool, "Enable or disable the emitter.  [Enter]");
    row(&visible, "visible", "Visibility", kParamBool, "Turn on or off the whole Source's viewport visibility.");

    for (Parameter& r : p.parameters) r.text = r.defaultText;
}

void Source::resetEmission()
{
    lastEmissionTime = -999.f;
    singleShotDone = false;
    pose.reset();
}

SdfBuildSettings Source::sdfSettings() const
{
    SdfBuildSettings s;
    s.voxelSize = voxelSize;
    s.band = sdfInnerBand;
    s.pushOut = sdfPushOut;
    s.invert = false;
    return s;
}

int32_t Source::listIndex() const
{
    if (!simulation) return 0;
    int32_t index = 0;
    for (const SceneObject* o : simulation->objectsById) {
        if (o == this) return index;
        if (o && o->typeCode == kTypeSource) ++index;
    }
    return 0;
}

bool Source::singleShotAllows(float frameF, int32_t startFrame)
{
    if (singleShotFrame >= float(startFrame)) {
        if (singleShotDone) return false;
        if (singleShotFrame - 0.00001f > frameF) return false;
        singleShotDone = true;
    } else {
        singleShotDone = false;
    }
    return true;
}

bool Source::rateGateOpen(float e, float time) const
{
    const float t = time - lastEmissionTime;
    if (sourceType == kPlane) {
        if (rateMultiplier <= 0.00001f) return false;
        return t * speedMultiplier * rateMultiplier + 4.5f * t * t > 1.15f * e;
    }
    return t * rateMultiplier >= e;
}

Vec4f Source::baseDirection() const
{
    const Vec4f d(speedX, speedY, speedZ, 0.f);
    const float len = d.length3();
    return len > 0.f ? d * (speedMultiplier / len) : Vec4f();
}

float Source::jitterAmount() const
{
    return std::isfinite(jitter) ? std::clamp(jitter, 0.f, 1.f) : 0.f;
}
