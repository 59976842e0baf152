// OpenGLWidget: the viewport. Draws the classic systems, colliders, graph geometry, the
// reference grid, the transform gizmo and a text overlay; Alt with a mouse button moves
// the camera, a plain click picks, a drag on the gizmo edits the transform rows. It reads
// the core only through refreshBuffers, which never waits long for the solver's locks.
#pragma once

#include "app/simulation.h"
#include "ui/transformgizmo.h"
#include "ui/viewportcamera.h"
#include "ui/viewportoverlay.h"
#include "ui/viewportrenderer.h"
#include "ui/viewportscene.h"

#include <QElapsedTimer>
#include <QOpenGLFunctions>
#include <QOpenGLWidget>
#include <QPoint>
#include <string>

class OpenGLWidget : public QOpenGLWidget, protected QOpenGLFunctions {
    Q_OBJECT
public:
    enum GizmoMode { GizmoOff, GizmoTranslate, GizmoRotate, GizmoScale };

    explicit OpenGLWidget(QWidget* parent = nullptr);
    ~OpenGLWidget() override;

    // Copies what is drawn into the viewport's buffers: classic data under vboMutex, graph
    // results under graphMutex, each by tryLock(lockWaitMs); a busy lock keeps the old ones.
    void refreshBuffers(int lockWaitMs);
    bool updateFlag = false; // the widget's own "please repaint" flag
    // Grabs the drawn frame and writes it to the playblast path of the current frame.
    bool savePlayblastImage();
    // Looks through the camera node called `nodeName`; "" goes back to the orbit camera.
    void setCameraNode(const std::string& nodeName);
    // The next camera node after the current one in node order, then the orbit camera again.
    void lookThroughNextCamera();
    void setGizmoMode(GizmoMode mode);
    void toggleGizmoSpace();
    void frameAll();
    // Runs the pick pass and answers the entry drawn at `pos` (typeCode -1 for none).
    SelectionEntry pickAt(const QPoint& pos);

    ViewportCamera camera;
    ViewportScene scene;
    ViewportRenderer renderer;
    TransformGizmo gizmo;
    ViewportOverlay overlay;
    // Display values copied from GlobalSettings at each paint.
    bool drawGrid = true;
    float pointSize = 1.f;
    int particleRenderMode = 0;
    bool wireframe = false;
    bool wireframeOnShaded = true;

    // Camera drag state: the mouse now and at the event before; one flag per button.
    QPoint mousePos;
    QPoint lastMousePos;
    bool dragLeft = false, dragMiddle = false, dragRight = false;
    float dollyAmount = 0.f;
    bool pickRequested = false;
    QPoint pickPos;
    SelectionEntry picked;

protected:
    void initializeGL() override;
    void resizeGL(int w, int h) override;
    void paintGL() override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;

private:
    // Moves the camera by the mouse since the last event and the dolly amount; only with
    // focus and when something moved.
    void updateCamera();
    // The pose of the camera node looked through, refreshed each paint; persp when it's gone.
    void updateCameraNode();
    // Leaves a camera node for the orbit camera at the same place.
    void leaveCameraNode();
    void runPickPass();
    // Index into `list` of the drawable with the most visible pixels within
    // kOcclusionPickRadius of `at` (pixels, top-left origin); -1 when none shows there.
    long occlusionPick(const std::vector<ViewportBuffers*>& list, QPoint at, QSize size);
    static constexpr int kOcclusionPickRadius = 12;
    ViewportRenderer::Frame makeFrame() const;
    QSize pixelSize() const;

    bool glReady = false;
    QElapsedTimer frameTimer;
    float smoothedFps = 0.f;
};
