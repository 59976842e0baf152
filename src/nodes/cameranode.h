// Camera: a camera for the viewport and for the nodes that look through one. Its result
// is a single point at the camera carrying the lens and orientation as attributes.
#pragma once

#include "graph/geonode.h"

#include <string>

class CameraNode : public GeoNode {
public:
    explicit CameraNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;
    void checkDirty(DirtyResult& result, const CookCaller& caller) override;
    void draw() override;
    void updateViewport() override;

    float translateX = 20.f, translateY = 20.f, translateZ = 20.f;
    float rotateX = -45.f, rotateY = 45.f, rotateZ = 0.f; // degrees
    float scaleX = 1.f, scaleY = 1.f, scaleZ = 1.f;
    float fov = 45.f; // vertical, degrees
    float aspect = 16.f / 9.f;
    float overscan = 0.f;
    std::string cameraFilePath;
    float fps = 24.f;
    float frame = 0.f;
    float readScale = 1.f;
    float iconScale = 1.f;
    bool enableLookThroughControls = false;
    bool quatInterpol = false;
    bool showCamera = true; // the row "visibility": draw the camera icon

private:
    std::string warnedPath; // the file path last reported as unsupported
};
