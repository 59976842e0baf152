#include "ui/viewportcamera.h"

#include <algorithm>
#include <cmath>

namespace {
constexpr float kDegToRad = 0.017453292f;
}

QVector3D ViewportCamera::position() const
{
    if (!nodeName.empty()) return nodeWorld.column(3).toVector3D();
    const float p = pitch * kDegToRad, y = yaw * kDegToRad;
    const QVector3D dir(std::cos(p) * std::sin(y), std::sin(p), std::cos(p) * std::cos(y));
    return target + dir * distance;
}

QMatrix4x4 ViewportCamera::viewMatrix() const
{
    if (!nodeName.empty()) return nodeWorld.inverted();
    QMatrix4x4 view;
    view.lookAt(position(), target, QVector3D(0.f, 1.f, 0.f));
    return view;
}

QMatrix4x4 ViewportCamera::projMatrix(float aspect) const
{
    QMatrix4x4 proj;
    const float f = nodeName.empty() ? fov : nodeFov;
    proj.perspective(std::clamp(f, 1.f, 170.f), aspect > 0.f ? aspect : 1.f, nearClip, farClip);
    return proj;
}

void ViewportCamera::tumble(float dx, float dy)
{
    yaw -= dx * 0.4f;
    pitch = std::clamp(pitch + dy * 0.4f, -89.f, 89.f);
    yaw = std::fmod(yaw, 360.f);
}

void ViewportCamera::track(float dx, float dy, int viewportHeight)
{
    const QMatrix4x4 inv = viewMatrix().inverted();
    const QVector3D right = inv.column(0).toVector3D();
    const QVector3D up = inv.column(1).toVector3D();
    // one pixel moves the target by one pixel's size at the target's depth
    const float pixel = 2.f * distance * std::tan(0.5f * fov * kDegToRad) / float(std::max(viewportHeight, 1));
    target += (-dx * right + dy * up) * pixel;
}

void ViewportCamera::dolly(float amount)
{
    distance = std::clamp(distance * std::exp(-amount * 0.01f), 0.01f, 10000.f);
}

void ViewportCamera::frameBounds(const QVector3D& min, const QVector3D& max)
{
    if (min.x() > max.x() || min.y() > max.y() || min.z() > max.z()) {
        target = QVector3D();
        distance = 18.f;
        return;
    }
    target = 0.5f * (min + max);
    const float radius = std::max(0.5f * (max - min).length(), 0.1f);
    distance = std::clamp(radius / std::sin(0.5f * fov * kDegToRad) * 1.1f, 0.05f, 10000.f);
}

void ViewportCamera::setNodePose(const std::string& name, const float translate[3], const float rotate[3],
                                 float fovDegrees)
{
    nodeName = name;
    nodeWorld.setToIdentity();
    nodeWorld.translate(translate[0], translate[1], translate[2]);
    nodeWorld.rotate(rotate[2], 0.f, 0.f, 1.f);
    nodeWorld.rotate(rotate[1], 0.f, 1.f, 0.f);
    nodeWorld.rotate(rotate[0], 1.f, 0.f, 0.f);
    nodeFov = fovDegrees;
}
