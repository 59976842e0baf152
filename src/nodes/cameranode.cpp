// Camera: the rows become one point at the camera position with the float attributes
// fov, aspect and overscan and the vector attribute camRotate (degrees). The camera
// looks down its local -Z with +Y up. Alembic cameras aren't read yet.
#include "nodes/cameranode.h"

#include <cstdio>

CameraNode::CameraNode(NodeMaster* master) : GeoNode(master)
{
    setType("Camera");
    addParam(&translateX, "translateX", "Translate X", kParamFloat, "20");
    addParam(&translateY, "translateY", "Translate Y", kParamFloat, "20");
    addParam(&translateZ, "translateZ", "Translate Z", kParamFloat, "20");
    addParam(&rotateX, "rotateX", "Rotate X", kParamFloat, "-45");
    addParam(&rotateY, "rotateY", "Rotate Y", kParamFloat, "45");
    addParam(&rotateZ, "rotateZ", "Rotate Z", kParamFloat, "0");
    addParam(&scaleX, "scaleX", "Scale X", kParamFloat, "1");
    addParam(&scaleY, "scaleY", "Scale Y", kParamFloat, "1");
    addParam(&scaleZ, "scaleZ", "Scale Z", kParamFloat, "1");
    addParam(&fov, "fov", "Field of View", kParamFloat, "45");
    addParam(&aspect, "aspect", "Aspect Ratio", kParamFloat, "16/9");
    addParam(&overscan, "overscan", "Overscan", kParamFloat, "0");
    addParam(&cameraFilePath, "cameraFilePath", "File Path", kParamPath, "",
             "Enter the filepath to the Alembic camera.");
    addParam(&fps, "fps", "FPS", kParamFloat, "24");
    addParam(&frame, "frame", "Frame", kParamFloat, "framef");
    addParam(&readScale, "readScale", "Alembic Scale", kParamFloat, "1");
    addParam(&iconScale, "iconScale", "Icon Scale", kParamFloat, "1");
    addParam(&enableLookThroughControls, "enableLookThroughControls", "Enable Look-Through Controls",
             kParamBool, "false");
    addParam(&quatInterpol, "quatInterpol", "Use Quaternions", kParamBool, "false",
             "Enable or disable quaternion interpolation for rotations.");
    addParam(&showCamera, "visibility", "Visibility", kParamBool, "true");
    addOutput("Output");
}

void CameraNode::checkDirty(DirtyResult& r, const CookCaller& c)
{
    // The frame row only matters for a camera read from a file.
    const Parameter* path = params.get("cameraFilePath");
    if (path && path->text.empty()) {
        timeExcludedKeys = {"frame"};
    } else {
        timeExcludedKeys.clear();
    }
    GeoNode::checkDirty(r, c);
}

void CameraNode::cookBody(BodyPtr& body)
{
    if (params.quaternionRotation != quatInterpol) {
        params.quaternionRotation = quatInterpol;
        params.evaluateAll(context.time, 0);
    }
    if (cameraFilePath.empty()) {
        warnedPath.clear();
    } else if (cameraFilePath != warnedPath) {
        std::printf("%s: Alembic cameras are not supported yet.\n", name().c_str());
        warnedPath = cameraFilePath;
    }
    auto out = std::make_shared<Body>();
    PointData& pd = *out->points;
    pd.addPoint(Vec4f(translateX, translateY, translateZ));
    pd.addAttrib("fov", ATTRIB_FLOAT);
    pd.addAttrib("aspect", ATTRIB_FLOAT);
    pd.addAttrib("overscan", ATTRIB_FLOAT);
    pd.addAttrib("camRotate", ATTRIB_VECTOR);
    (*pd.attribAs<FloatArray>("fov"))[0] = fov;
    (*pd.attribAs<FloatArray>("aspect"))[0] = aspect;
    (*pd.attribAs<FloatArray>("overscan"))[0] = overscan;
    (*pd.attribAs<VecArray>("camRotate"))[0] = Vec4f(rotateX, rotateY, rotateZ);
    body = std::move(out);
}

void CameraNode::draw() {}

void CameraNode::updateViewport() {}
