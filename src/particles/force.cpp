// The force object's rows, in the order the parameter editor shows them, and the
// preparation of its field: transform, inverse, rotated direction, noise and clump ramp,
// single-threaded once per call; the particle loop itself is ForceField::apply.
#include "particles/force.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "io/object.h"
#include "particles/xform.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

// Noise below this amplitude is left out, and all its work with it.
constexpr float kNoiseAmpMin = 0.000001f;

// Force passes run on half the solver threads, at least one.
int forceThreads()
{
    return simState ? std::max(1, simState->numThreads / 2) : 1;
}

bool finite(const Vec4f& v)
{
    return std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z);
}

bool finite(const Mat4f& m)
{
    for (const float f : m.m)
        if (!std::isfinite(f)) return false;
    return true;
}

} // namespace

Force::Force(int direction) : SceneObject(kTypeForce), forceType(direction == kRadial ? kRadial : kUniform)
{
    buildParameters();
}

void Force::buildParameters()
{
    ParameterSet& p = params;
    p.add(Parameter(&name, "nodeName", "Object Name", kParamObjectName));
    p.add(Parameter(&translateX, "translateX", "Translate X", kParamFloat));
    p.add(Parameter(&translateY, "translateY", "Translate Y", kParamFloat));
    p.add(Parameter(&translateZ, "translateZ", "Translate Z", kParamFloat));
    p.add(Parameter(&rotateX, "rotateX", "Rotation X", kParamFloat));
    p.add(Parameter(&rotateY, "rotateY", "Rotation Y", kParamFloat));
    p.add(Parameter(&rotateZ, "rotateZ", "Rotation Z", kParamFloat));
    p.add(Parameter(&scaleX, "scaleX", "Scale X", kParamFloat));
    p.add(Parameter(&scaleY, "scaleY", "Scale Y", kParamFloat));
    p.add(Parameter(&scaleZ, "scaleZ", "Scale Z", kParamFloat));
    p.add(Parameter(
        &parentTransform, "parentTransform", "Parent Transform to Alembic Transform", kParamBool,
        "Turn on to parent the transform to the main alembic transform. Please make sure to write out "
        "your alembic file with transforms, not just in deformation mode. Currently Alembic files have "
        "to contain mesh geometry (not single transforms)."));
    p.add(Parameter(&filePath, "filePath", "Alembic File Path", kParamPath,
                    "The file path of the geometry to load."));

    p.addSpecial(102, "");
    p.addSpecial(102, "Force Type:");
    p.add(Parameter(&maskType, "maskType", "Force Area", kParamDomainKind));
    p.add(Parameter(&isWind, "isWind", "Is Wind", kParamBool,
                    "Enable wind mode where particles will not go faster than strength."));
    Parameter* blend = p.add(Parameter(&windSpeedBlend, "windSpeedBlend", "Air Thickness", kParamFloat,
                                       "How thick the air is or how much the wind speed is blended into the "
                                       "particles velocity. Range between 0 and 1."));
    blend->visibleIfBool = &isWind;
    blend->visibleBoolValue = true;

    p.addSpecial(102, "");
    p.addSpecial(102, "Direction & Strength:");
    p.add(Parameter(&forceType, "forceType", "Force Direction", kParamFalloffKind));
    p.add(Parameter(&directionX, "directionX", "Direction X", kParamFloat,
                    "The x direction component of the force."));
    p.add(Parameter(&directionY, "directionY", "Direction Y", kParamFloat,
                    "The y direction component of the force."));
    p.add(Parameter(&directionZ, "directionZ", "Direction Z", kParamFloat,
                    "The z direction component of the force."));
    p.add(Parameter(&strength, "strength", "Force Strength", kParamFloat,
                    "Strength of the force. In wind-mode this defines the wind speed in meters per second."));
    p.add(Parameter(&windSpeed, "windSpeed", "Wind Speed", kParamFloat,
                    "In wind-mode this defines the wind speed in meters per second."));

    p.addSpecial(102, "Turbulence:");
    p.add(Parameter(&noiseAmp, "noiseAmp", "Noise Amp", kParamFloat, "The strength of the used noise."));
    p.add(Parameter(&noiseType, "noiseType", "Noise Type", kParamNoiseKind,
                    "Use a regular turbulent noise or a curl noise."));
    p.add(Parameter(&noiseFreq, "noiseFreq", "Noise Freq", kParamFloat));
    p.add(Parameter(&noiseRoughness, "noiseRoughness", "Noise Roughness", kParamFloat));
    p.add(Parameter(&noiseOctaves, "noiseOctaves", "Noise Octaves", kParamInt));
    p.add(Parameter(&noiseOffsetSpeed.y, "noiseOffsetSpeedY", "Noise Offset Speed Y", kParamFloat));

    p.addSpecial(102, "Drag/Wind Effect Strength:");
    p.add(Parameter(&largestClumps, "largestClumps", "Largest Clumps", kParamFloat,
                    "Force or wind is zero for particle clumps larger than or equal to this number."));
    p.add(Parameter(
        &smallestClumps, "smallestClumps", "Smallest Clumps", kParamFloat,
        "Force or wind is fully activated for particle clumps smaller than or equal to this number."));
    p.add(Parameter(
        &highestDens, "highestDens", "Highest Density", kParamFloat,
        "Force or wind (drag) is zero for particles with density larger than or equal to this number."));
    p.add(
        Parameter(&lowestDens, "lowestDens", "Lowest Density", kParamFloat,
                  "Force or wind is fully activated for particles with density smaller than or equal to this "
                  "number."));

    p.add(Parameter(&quatInterpol, "quatInterpol", "Use Quaternions", kParamBool,
                    "Enable or disable quaternion interpolation for rotations."));
    p.add(Parameter(&enabled, "enabled", "Enabled", kParamBool));
    p.add(Parameter(&visible, "visible", "Visibilty", kParamBool));

    for (Parameter& row : p.parameters) row.text = row.defaultText;
}

void Force::evaluateParameters(float frame, int substep)
{
    Parameter* row = params.get("nodeName");
    if (row && row->text.empty()) row->text = name;
    params.quaternionRotation = quatInterpol;
    SceneObject::evaluateParameters(frame, substep);
}

ForceField Force::prepare(float frameF)
{
    ForceField field;
    if (forceType == kRadial && maskType != ForceField::kSphere) {
        maskType = ForceField::kSphere;
        if (Parameter* row = params.get("maskType")) row->text = "Sphere";
    }
    field.area =
        maskType == ForceField::kUnbound || maskType == ForceField::kSphere ? maskType : ForceField::kBox;
    field.radial = forceType == kRadial;
    field.wind = isWind;

    // The object's pose, composed as the colliders' is. Parented, the pose of the geometry
    // object's last mesh part follows it; the sphere's inverse leaves that part's scale out.
    const Vec4f rotation(rotateX, rotateY, rotateZ);
    const Mat4f own =
        xform::compose(Vec4f(translateX, translateY, translateZ), rotation, Vec4f(scaleX, scaleY, scaleZ));
    Mat4f matrix = own;
    Mat4f sphereMatrix = own;
    Mat4f turn = xform::compose(Vec4f(), rotation, Vec4f(1.f, 1.f, 1.f));
    if (const Object* parent = parentTransform ? parentObject() : nullptr) {
        const Mat4f part = xform::fromDoubles(parent->meshes.back()->xform[0]);
        matrix = xform::multiply(own, part);
        sphereMatrix = xform::multiply(own, xform::scaleFree(part, true));
        turn = xform::multiply(turn, xform::scaleFree(part, false));
    }
    if (field.area != ForceField::kUnbound) {
        // A zero scale has no inverse: the mask holds no particle and the force does nothing.
        if (!xform::invert(matrix, field.toLocal) || !xform::invert(sphereMatrix, field.toSphere))
            return field;
    }
    // Rotated, not normalised: its length is part of the strength.
    field.direction = xform::direction(Vec4f(directionX, directionY, directionZ), turn);
    field.magnitude = isWind ? windSpeed : strength;
    field.windBlend = windSpeedBlend;

    field.noiseOn = noiseAmp > kNoiseAmpMin;
    if (field.noiseOn) {
        const float scale = 1.f / noiseFreq; // the fractal then samples at position * noiseFreq
        field.noise = FractalNoise(Vec4f(scale, scale, scale), noiseOctaves, noiseRoughness);
        field.noiseAmp = noiseAmp;
        field.noiseShift = noiseOffsetSpeed * frameF;
    }
    field.smallestClumps = smallestClumps;
    field.largestClumps = largestClumps;

    const bool finiteValues =
        finite(field.direction) && std::isfinite(field.magnitude) &&
        (!field.wind || std::isfinite(field.windBlend)) &&
        (!field.noiseOn || std::isfinite(field.noiseAmp)) &&
        (field.area == ForceField::kUnbound || (finite(field.toLocal) && finite(field.toSphere)));
    if (!finiteValues) {
        if (!reportedNotFinite)
            std::printf("force %s: a parameter is not a number; the force is skipped.\n", name.c_str());
        reportedNotFinite = true;
        return field;
    }
    reportedNotFinite = false;
    field.active = true;
    return field;
}

const Object* Force::parentObject() const
{
    if (geometryIds.empty() || !simulation) return nullptr;
    const SceneObject* o = simulation->objectById(geometryIds.front());
    const Object* object = o && o->typeCode == kTypeObject ? static_cast<const Object*>(o) : nullptr;
    return object && !object->meshes.empty() && object->meshes.back() ? object : nullptr;
}

void Force::apply(const ParticleView& view)
{
    if (!enabled) return;
    const ForceField field = prepare(simState ? simState->frameF : 0.f);
    field.apply(view, forceThreads());
}

void Force::applyAll(const std::vector<int32_t>& forceIds, const ParticleView& view)
{
    if (!simulation) return;
    for (const int32_t id : forceIds) {
        SceneObject* object = simulation->objectById(id);
        if (!object || object->typeCode != kTypeForce) continue;
        if (Force* force = dynamic_cast<Force*>(object)) force->apply(view);
    }
}
