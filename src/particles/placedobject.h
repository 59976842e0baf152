// PlacedObject: what a source and a collider share: a transform of nine rows (translate,
// rotate in degrees, scale), a geometry object read from a file path with a frame offset
// and playback speed, and the history of their world matrix. The two classes add their
// own rows around these and their own uses of the geometry.
#pragma once

#include "app/sceneobject.h"
#include "particles/geometrylink.h"
#include "particles/posehistory.h"

#include <cstdint>
#include <string>
#include <vector>

class Object;

class PlacedObject : public SceneObject {
public:
    explicit PlacedObject(int type) : SceneObject(type) {}

    // Evaluates the rows; quatInterpol switches the rotation rows to quaternion blending.
    void evaluateParameters(float frame, int substep) override;
    // The geometry object (geometryIds[0]), or null.
    Object* geometry() const { return GeometryLink::resolve(geometryIds); }
    // Hands the path and read scale to the geometry object and re-reads it when needed,
    // at the file frame of `frameF` (the update step of the solver loop).
    void updateGeometry(float frameF);
    // Rebuilds the world matrix from the transform rows; the current one becomes the previous.
    void updateMatrices();

    float translateX = 0.f, translateY = 0.f, translateZ = 0.f;
    float rotateX = 0.f, rotateY = 0.f, rotateZ = 0.f;
    float scaleX = 1.f, scaleY = 1.f, scaleZ = 1.f;
    std::string filePath;
    float frameOffset = 0.f;
    float timeScale = 1.f;
    float timeScaleAnchorFrame = 0.f;
    float readScale = 1.f;
    bool quatInterpol = false;
    std::vector<int32_t> geometryIds; // only the first entry is used
    PoseHistory pose;
    GeometryLink link;

protected:
    // The name row and the nine transform rows, the first ten rows of both tables.
    void addNameAndTransformRows();
};
