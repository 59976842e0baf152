// The viewport's camera and mouse handling: camera drags, the wheel, camera nodes,
// picking and gizmo drags.
#include "ui/openglwidget.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "graph/basenode.h"
#include "graph/nodemaster.h"
#include "nodes/cameranode.h"
#include "ui/selectioncommand.h"
#include "ui/transformcommand.h"
#include "ui/uiglobals.h"

#include <QMouseEvent>
#include <QUndoStack>
#include <QWheelEvent>
#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

CameraNode* findCameraNode(const std::string& name)
{
    if (!nodeMaster || name.empty()) return nullptr;
    return dynamic_cast<CameraNode*>(nodeMaster->findByName(name));
}

} // namespace

void OpenGLWidget::mousePressEvent(QMouseEvent* event)
{
    lastMousePos = mousePos;
    mousePos = event->pos();
    const bool alt = event->modifiers() & Qt::AltModifier;
    if (alt) {
        if (!dragLeft && !dragMiddle && !dragRight) {
            dragLeft = event->button() == Qt::LeftButton;
            dragMiddle = event->button() == Qt::MiddleButton;
            dragRight = event->button() == Qt::RightButton;
        }
        event->accept();
        return;
    }
    if (event->button() != Qt::LeftButton) return;
    if (gizmo.valid && gizmo.mode != TransformGizmo::Off) {
        const ViewportRenderer::Frame frame = makeFrame();
        const qreal ratio = devicePixelRatioF();
        const int handle = gizmo.hitTest(QPointF(event->pos()) * ratio, frame.proj * frame.view, frame.size,
                                         frame.gizmoLength);
        if (handle >= 0) {
            gizmo.begin(handle, QPointF(event->pos()) * ratio);
            event->accept();
            return;
        }
    }
    const std::vector<SelectionEntry> before = currentSelection();
    const SelectionEntry hit = pickAt(event->pos());
    std::vector<SelectionEntry> after;
    if (hit.typeCode >= 0) after.push_back(hit);
    const bool same = before.size() == after.size() && (after.empty() || before.front().name == after.front().name);
    if (!same) undoStack()->push(new SelectionCommand(before, after));
    event->accept();
}

void OpenGLWidget::mouseMoveEvent(QMouseEvent* event)
{
    lastMousePos = mousePos;
    mousePos = event->pos();
    if (gizmo.dragging) {
        const ViewportRenderer::Frame frame = makeFrame();
        if (gizmo.dragTo(QPointF(event->pos()) * devicePixelRatioF(), frame.proj * frame.view, frame.size,
                         frame.gizmoLength)) {
            TransformCommand::applyValues(gizmo.name, gizmo.isNode, gizmo.values); // refreshes the views
        }
        update();
        return;
    }
    if (dragLeft || dragMiddle || dragRight) {
        updateCamera();
        return;
    }
    if (gizmo.valid && gizmo.mode != TransformGizmo::Off) {
        const ViewportRenderer::Frame frame = makeFrame();
        const int hover = gizmo.hitTest(QPointF(event->pos()) * devicePixelRatioF(), frame.proj * frame.view,
                                        frame.size, frame.gizmoLength);
        if (hover != gizmo.hoverAxis) {
            gizmo.hoverAxis = hover;
            update();
        }
    }
}

void OpenGLWidget::mouseReleaseEvent(QMouseEvent* event)
{
    lastMousePos = mousePos;
    mousePos = event->pos();
    if (event->button() == Qt::LeftButton) dragLeft = false;
    if (event->button() == Qt::MiddleButton) dragMiddle = false;
    if (event->button() == Qt::RightButton) dragRight = false;
    if (gizmo.dragging && event->button() == Qt::LeftButton) {
        gizmo.dragging = false;
        gizmo.axis = -1;
        bool changed = false;
        for (int i = 0; i < 9; ++i) changed = changed || gizmo.values[i] != gizmo.startValues[i];
        if (changed) undoStack()->push(new TransformCommand(gizmo.name, gizmo.isNode, gizmo.startValues, gizmo.values));
        update();
    }
    event->accept();
}

void OpenGLWidget::wheelEvent(QWheelEvent* event)
{
    dollyAmount = float(std::lround(event->angleDelta().y() / 8.0)) * 2.f;
    updateCamera();
    dollyAmount = 0.f;
    event->accept();
}

void OpenGLWidget::updateCamera()
{
    if (!hasFocus()) return;
    const QPoint delta = mousePos - lastMousePos;
    const bool moved = (delta.x() != 0 || delta.y() != 0) && (dragLeft || dragMiddle || dragRight);
    if (!moved && dollyAmount == 0.f) return;
    if (simState) simState->viewportRedraw = true;
    leaveCameraNode();
    if (dragLeft) camera.tumble(float(delta.x()), float(delta.y()));
    else if (dragMiddle) camera.track(float(delta.x()), float(delta.y()), height());
    else if (dragRight) camera.dolly(float(delta.x() - delta.y()));
    if (dollyAmount != 0.f) camera.dolly(dollyAmount);
    updateFlag = true;
    update();
    markSceneEdited();
    if (simState) simState->viewportRedraw = false;
}

void OpenGLWidget::setCameraNode(const std::string& nodeName)
{
    if (nodeName.empty()) {
        camera.clearNode();
    } else if (!findCameraNode(nodeName)) {
        std::printf("Viewport: no camera node called %s.\n", nodeName.c_str());
        return;
    } else {
        camera.nodeName = nodeName;
        updateCameraNode();
    }
    updateFlag = true;
    update();
}

void OpenGLWidget::lookThroughNextCamera()
{
    if (!nodeMaster) return;
    std::vector<std::string> names;
    for (BaseNode* node : nodeMaster->nodes)
        if (dynamic_cast<CameraNode*>(node)) names.push_back(node->name());
    std::string next;
    if (camera.nodeName.empty()) {
        if (!names.empty()) next = names.front();
    } else {
        for (size_t i = 0; i < names.size(); ++i)
            if (names[i] == camera.nodeName && i + 1 < names.size()) next = names[i + 1];
    }
    setCameraNode(next);
}

void OpenGLWidget::updateCameraNode()
{
    if (camera.nodeName.empty()) return;
    CameraNode* node = findCameraNode(camera.nodeName);
    if (!node) {
        camera.clearNode();
        return;
    }
    const float t[3] = {node->translateX, node->translateY, node->translateZ};
    const float r[3] = {node->rotateX, node->rotateY, node->rotateZ};
    camera.setNodePose(camera.nodeName, t, r, node->fov);
}

void OpenGLWidget::leaveCameraNode()
{
    if (camera.nodeName.empty()) return;
    const QVector3D pos = camera.position();
    const QVector3D back = camera.nodeWorld.column(2).toVector3D().normalized(); // towards the camera
    camera.clearNode();
    camera.pitch = std::asin(std::clamp(back.y(), -1.f, 1.f)) * 57.29578f;
    camera.yaw = std::atan2(back.x(), back.z()) * 57.29578f;
    camera.target = pos - back * camera.distance;
}
