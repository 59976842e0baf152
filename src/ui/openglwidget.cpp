#include "ui/openglwidget.h"

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simstate.h"
#include "app/writingqueue.h"
#include "ui/playblastpath.h"
#include "ui/selectioncommand.h"
#include "ui/transformcommand.h"
#include "ui/uiglobals.h"
#include "ui/viewportgrid.h"

#include <QDir>
#include <QImage>
#include <QLinearGradient>
#include <QMouseEvent>
#include <QOpenGLContext>
#include <QOpenGLExtraFunctions>
#include <QOpenGLFramebufferObject>
#include <QPainter>
#include <QUndoStack>
#include <QWheelEvent>
#include <cmath>
#include <cstdio>

OpenGLWidget::OpenGLWidget(QWidget* parent) : QOpenGLWidget(parent)
{
    viewport = this;
    QSurfaceFormat fmt = format();
    fmt.setDepthBufferSize(24);
    fmt.setSamples(simState && !simState->antialiasing ? 0 : 4);
    setFormat(fmt);
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setMinimumSize(64, 64);
    renderer.infiniteGrid = ViewportGrid::infiniteFromConfig();
    if (simState) camera.fov = simState->fov;
    UiEvents* hub = UiEvents::instance();
    connect(hub, &UiEvents::viewsNeedRefresh, this, [this]() { refreshBuffers(5); });
    connect(hub, &UiEvents::sceneChanged, this, [this]() { refreshBuffers(5); });
    connect(hub, &UiEvents::selectionChanged, this, [this]() {
        if (!gizmo.dragging) gizmo.readTarget();
        update();
    });
    connect(hub, &UiEvents::parametersChanged, this, [this]() {
        if (!gizmo.dragging) gizmo.readTarget();
        refreshBuffers(5);
    });
    frameTimer.start();
}

OpenGLWidget::~OpenGLWidget()
{
    if (viewport == this) viewport = nullptr;
    if (glReady && context()) {
        makeCurrent();
        scene.clear();
        scene.releaseRetired(this);
        renderer.release(this);
        renderer.shaders.release();
        doneCurrent();
    }
}

QSize OpenGLWidget::pixelSize() const
{
    const qreal ratio = devicePixelRatioF();
    return QSize(std::max(1, int(std::lround(width() * ratio))), std::max(1, int(std::lround(height() * ratio))));
}

void OpenGLWidget::initializeGL()
{
    initializeOpenGLFunctions();
    renderer.compatibilityProfile = context()->format().profile() != QSurfaceFormat::CoreProfile;
    glReady = renderer.init(this);
    if (!glReady) std::printf("Viewport: OpenGL set-up failed; nothing will be drawn.\n");
}

void OpenGLWidget::resizeGL(int, int)
{
    updateFlag = true;
}

void OpenGLWidget::refreshBuffers(int lockWaitMs)
{
    const bool classic = scene.refreshClassic(lockWaitMs);
    const bool graph = scene.refreshGraph(lockWaitMs);
    if (!gizmo.dragging) gizmo.readTarget();
    if (classic || graph) {
        updateFlag = true;
        update();
    }
}

ViewportRenderer::Frame OpenGLWidget::makeFrame() const
{
    ViewportRenderer::Frame frame;
    frame.size = pixelSize();
    frame.view = camera.viewMatrix();
    frame.proj = camera.projMatrix(float(frame.size.width()) / float(frame.size.height()));
    frame.nearClip = camera.nearClip;
    frame.drawGrid = drawGrid;
    frame.flatDisk = particleRenderMode == 1;
    frame.gizmo = &gizmo;
    frame.gizmoLength = gizmo.handleLength(frame.view, frame.proj, frame.size);
    frame.wireframe = wireframe;
    frame.wireframeOnShaded = wireframeOnShaded;
    if (simulation) frame.selected = simulation->selection;
    return frame;
}

void OpenGLWidget::paintGL()
{
    if (simulation && simulation->globalSettings) {
        const GlobalSettings& g = *simulation->globalSettings;
        drawGrid = g.drawGrid;
        pointSize = g.pointSize;
        particleRenderMode = g.particleRenderMode;
        wireframe = g.wireframe;
        wireframeOnShaded = g.wireframeOnShaded;
    }
    updateCameraNode();
    if (pickRequested) {
        runPickPass();
        return;
    }
    const qint64 ns = frameTimer.nsecsElapsed();
    frameTimer.restart();
    if (ns > 0) {
        const float fps = float(1e9 / double(ns));
        smoothedFps = smoothedFps <= 0.f ? fps : 0.9f * smoothedFps + 0.1f * fps;
    }

    glEnable(0x809D); // multisampling
    glClearColor(45.f / 255.f, 45.f / 255.f, 48.f / 255.f, 1.f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    QPainter painter(this);
    painter.setRenderHints(QPainter::Antialiasing | QPainter::TextAntialiasing);
    QLinearGradient gradient(0, 0, 0, height());
    gradient.setColorAt(0.0, QColor(58, 58, 62));
    gradient.setColorAt(1.0, QColor(34, 34, 36));
    painter.fillRect(rect(), gradient);
    painter.beginNativePainting();
    glClear(GL_DEPTH_BUFFER_BIT);
    glEnable(GL_DEPTH_TEST);
    if (glReady) renderer.draw(this, scene, makeFrame(), false, nullptr);
    glDisable(GL_DEPTH_TEST);
    painter.endNativePainting();

    overlay.cameraPosition = camera.position();
    overlay.particleCount = scene.particleCount;
    overlay.maxSpeed = scene.maxSpeed;
    overlay.maxAccel = scene.maxAccel;
    overlay.drawFps = smoothedFps;
    overlay.cameraName = camera.nodeName;
    overlay.cudaPath = scene.cudaPath;
    overlay.paint(painter);
    painter.end();
    updateFlag = false;
}

void OpenGLWidget::runPickPass()
{
    pickRequested = false;
    picked = SelectionEntry();
    if (!glReady) return;
    makeCurrent();
    const QSize size = pixelSize();
    QOpenGLFramebufferObject fbo(size, QOpenGLFramebufferObject::Depth);
    if (!fbo.isValid() || !fbo.bind()) {
        std::printf("Viewport: the pick buffer could not be made.\n");
        return;
    }
    glDisable(0x809D);
    glViewport(0, 0, size.width(), size.height());
    glClearColor(1.f, 1.f, 1.f, 1.f);
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    std::vector<ViewportBuffers*> list;
    renderer.draw(this, scene, makeFrame(), true, &list);
    glClear(GL_DEPTH_BUFFER_BIT);
    const QImage image = fbo.toImage();
    ViewportShaders::checkGlError(this, "pick pass");
    // the nearest drawn pixel within a few pixels of the click
    const qreal ratio = devicePixelRatioF();
    const int cx = int(pickPos.x() * ratio), cy = int(pickPos.y() * ratio);
    long best = -1;
    int bestDist = 1 << 30;
    for (int dy = -3; dy <= 3; ++dy) {
        for (int dx = -3; dx <= 3; ++dx) {
            const int x = cx + dx, y = cy + dy;
            if (x < 0 || y < 0 || x >= image.width() || y >= image.height()) continue;
            const long index = ViewportRenderer::indexFromColor(image.pixel(x, y));
            if (index < 0 || index >= long(list.size())) continue;
            if (dx * dx + dy * dy < bestDist) {
                bestDist = dx * dx + dy * dy;
                best = index;
            }
        }
    }
    // Nothing under the cursor: the drawable with the most visible pixels in a wider box
    // round the click, counted by occlusion queries (sparse points, thin curves).
    if (best < 0) best = occlusionPick(list, QPoint(cx, cy), size);
    fbo.release();
    if (best >= 0) picked = list[size_t(best)]->entry;
}

long OpenGLWidget::occlusionPick(const std::vector<ViewportBuffers*>& list, QPoint at, QSize size)
{
    constexpr GLenum kSamplesPassed = 0x8914;
    constexpr GLenum kQueryResult = 0x8866;
    QOpenGLContext* gl = context();
    if (list.empty() || !gl || gl->isOpenGLES()) return -1;
    QOpenGLExtraFunctions* x = gl->extraFunctions();
    ViewportRenderer::Frame frame = makeFrame();
    frame.size = size;
    frame.scissor = QRect(at.x() - kOcclusionPickRadius, size.height() - 1 - at.y() - kOcclusionPickRadius,
                          2 * kOcclusionPickRadius + 1, 2 * kOcclusionPickRadius + 1);
    // Depth of everything first, then each drawable again with its own query: what passes
    // the depth test is what of it can be seen.
    glClear(GL_COLOR_BUFFER_BIT | GL_DEPTH_BUFFER_BIT);
    std::vector<ViewportBuffers*> drawn;
    renderer.draw(this, scene, frame, true, &drawn);
    if (drawn.size() != list.size()) return -1;
    std::printf("gen queries.\n");
    std::vector<GLuint> queries(list.size(), 0);
    x->glGenQueries(GLsizei(queries.size()), queries.data());
    glDepthFunc(GL_LEQUAL);
    glColorMask(GL_FALSE, GL_FALSE, GL_FALSE, GL_FALSE);
    for (size_t i = 0; i < list.size(); ++i) {
        x->glBeginQuery(kSamplesPassed, queries[i]);
        renderer.drawFlat(this, *list[i], frame, ViewportRenderer::idColor(i));
        x->glEndQuery(kSamplesPassed);
    }
    glColorMask(GL_TRUE, GL_TRUE, GL_TRUE, GL_TRUE);
    glDepthFunc(GL_LESS);
    glDisable(GL_SCISSOR_TEST);
    std::printf("get query object.\n");
    long best = -1;
    GLuint most = 0;
    for (size_t i = 0; i < list.size(); ++i) {
        GLuint count = 0;
        x->glGetQueryObjectuiv(queries[i], kQueryResult, &count);
        std::printf("pixel count[%zu]: %u\n", i, count);
        if (count > most) {
            most = count;
            best = long(i);
        }
    }
    x->glDeleteQueries(GLsizei(queries.size()), queries.data());
    ViewportShaders::checkGlError(this, "occlusion pick");
    return best;
}

SelectionEntry OpenGLWidget::pickAt(const QPoint& pos)
{
    pickRequested = true;
    pickPos = pos;
    runPickPass();
    return picked;
}

bool OpenGLWidget::savePlayblastImage()
{
    if (!simState || !(simState->writeImages || simState->imageRequested)) return false;
    const std::string pattern = PlayblastPath::pattern();
    if (pattern.empty()) {
        std::printf("Playblast: no path set.\n");
        return false;
    }
    const std::string path = PlayblastPath::forFrame(pattern, simState->frame);
    const std::string folder = PlayblastPath::folderOf(path);
    if (!folder.empty()) QDir().mkpath(QString::fromStdString(folder));
    const QImage image = grabFramebuffer();
    if (image.isNull()) {
        std::printf("Playblast: nothing to grab.\n");
        return false;
    }
    simState->imageRequested = false;
    if (writingQueue && writingQueue->isRunning()) {
        const QImage rgba = image.convertToFormat(QImage::Format_RGBA8888);
        ImageBuffer buffer;
        buffer.width = rgba.width();
        buffer.height = rgba.height();
        buffer.rgba.resize(size_t(buffer.width) * size_t(buffer.height) * 4);
        for (int y = 0; y < buffer.height; ++y)
            std::copy(rgba.constScanLine(y), rgba.constScanLine(y) + buffer.width * 4,
                      buffer.rgba.begin() + std::ptrdiff_t(y) * buffer.width * 4);
        writingQueue->addImage(path, std::move(buffer));
    } else if (!image.save(QString::fromStdString(path))) {
        std::printf("Playblast: could not write %s\n", path.c_str());
        return false;
    }
    std::printf("added  %s\n", path.c_str());
    return true;
}

void OpenGLWidget::setGizmoMode(GizmoMode mode)
{
    gizmo.mode = int(mode);
    gizmo.readTarget();
    update();
}

void OpenGLWidget::toggleGizmoSpace()
{
    gizmo.worldSpace = !gizmo.worldSpace;
    update();
}

void OpenGLWidget::frameAll()
{
    QVector3D min, max;
    scene.bounds(min, max);
    leaveCameraNode();
    camera.frameBounds(min, max);
    updateFlag = true;
    update();
}
