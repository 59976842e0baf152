// ViewportCamera: the viewport's perspective camera. It orbits a target point (yaw and
// pitch in degrees, a distance), or, while looking through a camera node, takes that
// node's world matrix and lens. Builds the view and projection matrices the shaders read.
#pragma once

#include <QMatrix4x4>
#include <QVector3D>
#include <string>

class ViewportCamera {
public:
    QVector3D target{0.f, 0.f, 0.f};
    float distance = 18.f;
    float yaw = 35.f;   // degrees about the up axis
    float pitch = 25.f; // degrees above the horizon
    float fov = 60.f;   // vertical, degrees
    float nearClip = 0.05f;
    float farClip = 20000.f;

    // Looking through a camera node: its world matrix (no scale) and vertical fov.
    std::string nodeName; // empty: the orbit camera ("persp")
    QMatrix4x4 nodeWorld;
    float nodeFov = 45.f;

    QVector3D position() const;
    QMatrix4x4 viewMatrix() const;
    QMatrix4x4 projMatrix(float aspect) const;

    // Mouse drags in pixels; dolly > 0 moves towards the target.
    void tumble(float dx, float dy);
    void track(float dx, float dy, int viewportHeight);
    void dolly(float amount);
    // Target at the centre of the box and a distance that shows all of it.
    void frameBounds(const QVector3D& min, const QVector3D& max);
    // Takes the pose of a camera node's rows (translate, rotate in degrees X then Y then Z).
    void setNodePose(const std::string& name, const float translate[3], const float rotate[3], float fovDegrees);
    // Back to the orbit camera.
    void clearNode() { nodeName.clear(); }
};
