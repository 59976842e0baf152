// Source: the classic emitter (type code 5). A transform, emission settings and an
// optional geometry object; once a substep it adds particles to each classic system it
// is connected to, from a plane, a mesh's surface, a mesh's volume (through the part's
// distance grid) or a mesh's points. The emission itself is one generic routine over
// the systems (emission.h); this class holds the rows, matrices and emission state.
#pragma once

#include "particles/placedobject.h"
#include "particles/meshsdf.h"

#include <cstdint>
#include <string>
#include <vector>

class Object;

class Source : public PlacedObject {
public:
    static constexpr const char* kTypeString = "Source";

    // Entries of sourceType.
    enum Kind : int32_t { kPlane = 0, kMesh = 1, kVolume = 2, kPoint = 3 };

    explicit Source(int32_t kind = kPlane);

    // The emission state a reset clears: lastEmissionTime, singleShotDone, the previous pose.
    void resetEmission();
    // The build settings of a volume source's distance grids.
    SdfBuildSettings sdfSettings() const;
    // Position of this source among the sources of Simulation, in creation order; 0 if
    // it isn't registered. Written to the emitterId channel.
    int32_t listIndex() const;

    // --- The steps of an emission call that don't depend on the system (emission.h)

    // The single-shot rule at fractional frame `frameF`: false when this call must not emit.
    bool singleShotAllows(float frameF, int32_t startFrame);
    // The rate gate for emission spacing `e` at `time` (seconds).
    bool rateGateOpen(float e, float time) const;
    // normalise(speedX, speedY, speedZ) * speedMultiplier in the source's own axes.
    Vec4f baseDirection() const;
    float jitterAmount() const;

    // --- Rows, in the editor's order after the name and transform rows of PlacedObject

    float speedMultiplier = 1.f;
    float speedX = 0.f;
    float speedY = -1.f;
    float speedZ = 0.f;
    bool parentDirection = true;
    float velInheritance = 1.f;
    float rateMultiplier = 1.f;
    float resolutionMultiplier = 1.f;
    float jitter = 0.f;
    float singleShotFrame = -1.f;
    int32_t sourceType = kPlane;
    bool meshNormalEmission = true;
    bool checkSpace = true;
    bool bakeScale = true;
    float voxelSize = 0.1f;
    float sdfInnerBand = 3.f;
    float sdfOuterBand = 3.f;  // kept and saved; the volume grid uses the inner band both ways
    float sdfPushOut = 0.f;
    bool drawMesh = true;
    bool drawGrid = false;
    // `enabled` is SceneObject's.
    bool visible = true;

    // --- Fixed fields and emission state

    float lastEmissionTime = -999.f;
    bool singleShotDone = false;
    float planeSizeX = 1.f;  // the plane spans +-0.5 of these before the source's scale
    float planeSizeZ = 1.f;

private:
    void buildParameters();
};
