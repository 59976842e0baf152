// Force: the classic force object of the scene, a transformable field with a uniform or
// radial direction, a box or sphere mask, fractal noise, a wind mode and attenuation for
// large clumps. Simulation owns it; each system's force pass calls applyAll with its
// `forceIds` once a substep, after gravity. The maths per particle is ForceField's.
#pragma once

#include "app/sceneobject.h"
#include "geo/vec.h"
#include "particles/forcefield.h"
#include "particles/particleview.h"

#include <cstdint>
#include <string>
#include <vector>

class Object;

class Force : public SceneObject {
public:
    static constexpr const char* kTypeString = "Force";
    // Entries of the "Force Direction" list.
    enum Direction { kUniform = 0, kRadial = 1 };
    // Entries of the "Noise Type" list; the classic pass always takes the regular noise.
    enum NoiseKind { kRegularNoise = 0, kCurlNoise = 1 };

    explicit Force(int direction = kUniform);

    // Evaluates the rows; an empty name row first takes the registered name.
    void evaluateParameters(float frame, int substep) override;

    // The field of this force at `frameF` (the preparation of a pass). A radial force sets
    // its mask to "Sphere" here, for good. Inactive when a value isn't finite (printed once)
    // or a mask needs an inverse the transform doesn't have.
    ForceField prepare(float frameF);
    // Adds this force to the particles of `view`, or drags them in wind mode; nothing while
    // disabled. Runs on half the solver threads.
    void apply(const ParticleView& view);
    // Applies each id of `forceIds` that resolves to a force in Simulation; others are skipped.
    static void applyAll(const std::vector<int32_t>& forceIds, const ParticleView& view);

    // --- Parameters, in table order (rows in force.cpp)

    float translateX = 0.f, translateY = 0.f, translateZ = 0.f;
    float rotateX = 0.f, rotateY = 0.f, rotateZ = 0.f;
    float scaleX = 1.f, scaleY = 1.f, scaleZ = 1.f;
    bool parentTransform = false;
    std::string filePath;
    int32_t maskType = ForceField::kBox;
    bool isWind = false;
    float windSpeedBlend = 0.01f;
    int32_t forceType = kUniform;
    float directionX = 0.f, directionY = -1.f, directionZ = 0.f;
    float strength = 0.1f;
    float windSpeed = 0.1f;
    float noiseAmp = 0.f;
    int32_t noiseType = kRegularNoise; // kept and saved; read by the dynamic helper nodes only
    float noiseFreq = 1.f;
    float noiseRoughness = 0.5f;
    int32_t noiseOctaves = 3;
    Vec4f noiseOffsetSpeed{0.f, 0.01f, 0.f, 0.f}; // the `noiseOffsetSpeedY` row edits y
    float largestClumps = 5.f;
    float smallestClumps = 3.f;
    float highestDens = 0.f; // kept and saved; no classic pass reads it
    float lowestDens = 0.f;  // likewise
    bool quatInterpol = false;
    // `enabled` is SceneObject's.
    bool visible = true;

    // The geometry object whose transform the force follows with `parentTransform`.
    std::vector<int32_t> geometryIds;

    // The geometry object of geometryIds[0], if it holds at least one mesh part.
    const Object* parentObject() const;

private:
    void buildParameters();
    bool reportedNotFinite = false;
};
