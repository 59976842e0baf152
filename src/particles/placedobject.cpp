// The rows, geometry update and matrices shared by sources and colliders.
#include "particles/placedobject.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "particles/xform.h"

void PlacedObject::addNameAndTransformRows()
{
    ParameterSet& p = params;
    p.add(Parameter(&name, "nodeName", "Object Name", kParamObjectName));
    float* fields[9] = {&translateX, &translateY, &translateZ, &rotateX, &rotateY,
                        &rotateZ,    &scaleX,     &scaleY,     &scaleZ};
    const char* keys[9] = {"translateX", "translateY", "translateZ", "rotateX", "rotateY",
                           "rotateZ",    "scaleX",     "scaleY",     "scaleZ"};
    const char* labels[9] = {"Translate X", "Translate Y", "Translate Z", "Rotation X", "Rotation Y",
                             "Rotation Z",  "Scale X",     "Scale Y",     "Scale Z"};
    for (int i = 0; i < 9; ++i) p.add(Parameter(fields[i], keys[i], labels[i], kParamFloat));
}

void PlacedObject::evaluateParameters(float frame, int substep)
{
    Parameter* nameRow = params.get("nodeName");
    if (nameRow && nameRow->text.empty()) nameRow->text = name;
    params.quaternionRotation = quatInterpol;
    SceneObject::evaluateParameters(frame, substep);
}

void PlacedObject::updateGeometry(float frameF)
{
    Object* object = geometry();
    if (!object) return;
    link.update(*object, filePath, readScale, GeometryLink::fileFrame(frameF, frameOffset, timeScale, timeScaleAnchorFrame));
}

void PlacedObject::updateMatrices()
{
    const Mat4f m = xform::compose(Vec4f(translateX, translateY, translateZ), Vec4f(rotateX, rotateY, rotateZ),
                                   Vec4f(scaleX, scaleY, scaleZ));
    pose.update(m, simState ? simState->time : 0.f);
}
