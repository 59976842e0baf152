// The viewport under a virtual X server: what it draws of classic systems, colliders, the
// grid and graph nodes, picking, the playblast capture, camera moves, gizmo drags with
// their undo step, and a refresh that finds the classic data locked.
// OpenVDB (and TBB under it) before Qt, whose `emit` keyword TBB's headers use as a name.
#include <openvdb/openvdb.h>
#include <openvdb/tools/LevelSetSphere.h>

#include "uitestenv.h"

#include "geo/body.h"
#include "geo/volumedata.h"
#include "graph/geonode.h"
#include "graph/vbo.h"
#include "particles/collisionobject.h"
#include "particles/granularparticlesystem.h"
#include "ui/openglwidget.h"
#include "ui/transformcommand.h"
#include "ui/uiglobals.h"
#include "ui/viewportrenderer.h"
#include "ui/viewportvolume.h"
#include "ui/viewportoverlay.h"

#include <gtest/gtest.h>

#include <QDir>
#include <QFileInfo>
#include <QImage>
#include <QMouseEvent>
#include <QTemporaryDir>
#include <QUndoStack>
#include <QWheelEvent>

#include <functional>
#include <future>
#include <memory>
#include <thread>

namespace {

// The image below the text overlay, whose fps line changes from frame to frame.
const QRect kBelowText(0, 220, 640, 260);

// Pixels of `image` inside the square of half size `r` around `c` for which `pred` holds.
int countPixels(const QImage& image, QPointF c, int r, const std::function<bool(QRgb)>& pred)
{
    int n = 0;
    for (int y = int(c.y()) - r; y <= int(c.y()) + r; ++y)
        for (int x = int(c.x()) - r; x <= int(c.x()) + r; ++x)
            if (x >= 0 && y >= 0 && x < image.width() && y < image.height() && pred(image.pixel(x, y))) ++n;
    return n;
}

bool isSand(QRgb p)
{
    return qRed(p) > 90 && qRed(p) > qGreen(p) && qGreen(p) > qBlue(p) && qRed(p) - qBlue(p) > 35;
}

bool isGrey(QRgb p)
{
    return qRed(p) > 70 && std::abs(qRed(p) - qGreen(p)) < 10 && std::abs(qGreen(p) - qBlue(p)) < 10;
}

// The selection's edge colour, give or take the rasteriser's blending.
bool isHighlight(QRgb p)
{
    const QVector3D c = ViewportRenderer::highlightColor() * 255.f;
    return std::abs(qRed(p) - int(c.x())) < 30 && std::abs(qGreen(p) - int(c.y())) < 30 &&
           std::abs(qBlue(p) - int(c.z())) < 30;
}

bool isBlue(QRgb p)
{
    return qBlue(p) > 100 && qBlue(p) > qRed(p) + 40;
}

int differingPixels(const QImage& a, const QImage& b, QRect area)
{
    int n = 0;
    for (int y = area.top(); y <= area.bottom(); ++y)
        for (int x = area.left(); x <= area.right(); ++x)
            if (a.pixel(x, y) != b.pixel(x, y)) ++n;
    return n;
}

class GlViewport : public ::testing::Test {
protected:
    void SetUp() override
    {
        resetSceneRecords();
        simState->headless = false;
        simState->frame = 0;
        widget = std::make_unique<OpenGLWidget>();
        widget->resize(640, 480);
        widget->show();
        process();
        widget->camera.target = QVector3D(0.f, 0.3f, 0.f);
        widget->camera.distance = 6.f;
        widget->camera.yaw = 0.f;
        widget->camera.pitch = 20.f;
        simulation->globalSettings->drawGrid = false;
    }
    void TearDown() override
    {
        widget.reset();
        simState->headless = true;
        resetSceneRecords();
    }
    static void process()
    {
        for (int i = 0; i < 3; ++i) QCoreApplication::processEvents();
    }
    QImage grab()
    {
        widget->refreshBuffers(50);
        return widget->grabFramebuffer().convertToFormat(QImage::Format_RGB32);
    }
    QPointF screenOf(const QVector3D& world) const
    {
        const QSize size(widget->width(), widget->height());
        const QMatrix4x4 proj = widget->camera.projMatrix(float(size.width()) / float(size.height()));
        return TransformGizmo::toScreen(world, proj * widget->camera.viewMatrix(), size);
    }
    // A 10 x 10 x 10 block of grains, spacing 0.1, centred at `centre`.
    GranularParticleSystem* sandBlock(const QVector3D& centre)
    {
        GranularParticleSystem* g = simulation->createGranularSystem("sand");
        for (int i = 0; i < 10; ++i)
            for (int j = 0; j < 10; ++j)
                for (int k = 0; k < 10; ++k)
                    g->addParticle(Vec4f(centre.x() + 0.1f * (i - 4.5f), centre.y() + 0.1f * (j - 4.5f),
                                         centre.z() + 0.1f * (k - 4.5f)),
                                   Vec4f());
        return g;
    }
    CollisionObject* boxCollider(float x)
    {
        CollisionObject* c = simulation->createCollider("box");
        c->filePath = std::string(QORVA_SOURCE_DIR) + "/geo/block.obj";
        c->params.get("filePath")->text = c->filePath;
        EXPECT_TRUE(simulation->connectObject(c->name, false));
        c->translateX = x;
        c->params.get("translateX")->text = Parameter::trimmedNumber(x);
        return c;
    }
    void focus()
    {
        widget->activateWindow();
        QApplication::setActiveWindow(widget.get());
        widget->setFocus();
        process();
    }
    void mouse(QEvent::Type type, QPoint pos, Qt::MouseButton button, Qt::KeyboardModifiers mods)
    {
        const Qt::MouseButtons buttons = type == QEvent::MouseButtonRelease ? Qt::NoButton : Qt::MouseButtons(button);
        QMouseEvent event(type, pos, widget->mapToGlobal(pos), type == QEvent::MouseMove ? Qt::NoButton : button,
                          buttons, mods);
        QApplication::sendEvent(widget.get(), &event);
    }

    std::unique_ptr<OpenGLWidget> widget;
};

TEST_F(GlViewport, GrainsColliderAndGridAreDrawn)
{
    sandBlock(QVector3D(1.2f, 0.5f, 0.f));
    boxCollider(-1.2f);
    simulation->globalSettings->drawGrid = true;
    const QImage image = grab();
    ASSERT_EQ(image.size(), QSize(640, 480));
    EXPECT_EQ(viewport, widget.get());

    const QPointF sand = screenOf(QVector3D(1.2f, 0.5f, 0.f));
    const QPointF box = screenOf(QVector3D(-1.2f, 0.f, 0.f));
    EXPECT_GT(countPixels(image, sand, 10, isSand), 300);
    EXPECT_EQ(countPixels(image, box, 10, isSand), 0);
    EXPECT_GT(countPixels(image, box, 10, isGrey), 300);
    EXPECT_EQ(countPixels(image, sand, 10, isGrey), 0);

    // the grid: the ground in front of the objects changes when it is switched off
    simulation->globalSettings->drawGrid = false;
    const QImage noGrid = grab();
    const QRect ground(0, 400, 640, 80);
    EXPECT_GT(differingPixels(image, noGrid, ground), 500);
    EXPECT_EQ(differingPixels(noGrid, grab(), kBelowText), 0);
}

TEST_F(GlViewport, GraphNodeShowsWhileVisible)
{
    auto* node = dynamic_cast<GeoNode*>(nodeMaster->createNode("grid"));
    ASSERT_NE(node, nullptr);
    node->params.get("dimX")->text = "3";
    node->params.get("dimZ")->text = "3";
    const QImage empty = grab();

    node->visibility = true;
    CookCaller caller;
    caller.time = nodeMaster->currentTime();
    BodyPtr result;
    node->process(result, caller);
    ASSERT_TRUE(result);
    const QImage shown = grab();
    const QRect centre(220, 200, 200, 120);
    EXPECT_GT(differingPixels(empty, shown, centre), 5000);
    EXPECT_GT(countPixels(shown, screenOf(QVector3D(0.f, 0.f, 0.f)), 20, isGrey), 1000);

    node->visibility = false;
    const QImage hidden = grab();
    EXPECT_EQ(differingPixels(empty, hidden, centre), 0);
}

TEST_F(GlViewport, SelectionGetsEdgesAndWireframeDrawsEdgesOnly)
{
    boxCollider(0.f);
    const QPointF box = screenOf(QVector3D(0.f, 0.f, 0.f));
    const QImage plain = grab();
    EXPECT_EQ(countPixels(plain, box, 60, isHighlight), 0);
    const int filled = countPixels(plain, box, 60, isGrey);
    EXPECT_GT(filled, 1000);

    setSelection({selectionEntryFor("box")});
    ASSERT_EQ(currentSelection().front().typeCode, kTypeCollider);
    const QImage selected = grab();
    EXPECT_GT(countPixels(selected, box, 60, isHighlight), 50);
    EXPECT_GT(countPixels(selected, box, 60, isGrey), filled / 2) << "the faces stay shaded under the edges";

    simulation->globalSettings->wireframeOnShaded = false;
    EXPECT_EQ(countPixels(grab(), box, 60, isHighlight), 0);

    // Edges only: the faces are gone, the selection keeps its edge colour.
    simulation->globalSettings->wireframe = true;
    const QImage wire = grab();
    EXPECT_LT(countPixels(wire, box, 60, isGrey), filled / 4);
    EXPECT_GT(countPixels(wire, box, 60, isHighlight), 50);
    setSelection({});
    EXPECT_EQ(countPixels(grab(), box, 60, isHighlight), 0);
}

TEST_F(GlViewport, VolumesShowAsPointsWithinTheBudget)
{
    // A fog cube of 20^3 voxels left of the centre and a level-set sphere right of it.
    auto body = std::make_shared<Body>();
    body->volumes = std::make_unique<VolumeData>();
    openvdb::FloatGrid::Ptr fog = openvdb::FloatGrid::create(0.f);
    fog->setTransform(openvdb::math::Transform::createLinearTransform(0.04));
    fog->fill(openvdb::CoordBBox(openvdb::Coord(-40, -10, -10), openvdb::Coord(-21, 9, 9)), 1.f, true);
    body->volumes->setVolume("density", VOLUME_FLOAT, fog);
    openvdb::FloatGrid::Ptr sphere =
        openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(0.4f, openvdb::Vec3f(1.2f, 0.f, 0.f), 0.04f);
    body->volumes->setVolume("surface", VOLUME_FLOAT, sphere);

    std::vector<float> pos, col, size;
    const size_t all = ViewportVolume::appendVoxelPoints(*body->volumes, pos, col, size, ViewportVolume::kMaxPoints);
    EXPECT_GT(all, 1000u);
    EXPECT_LE(all, 8000u + sphere->activeVoxelCount()) << "whole leaves of fog are tiles: one point each";
    EXPECT_EQ(pos.size(), 3 * all);
    pos.clear(), col.clear(), size.clear();
    EXPECT_LE(ViewportVolume::appendVoxelPoints(*body->volumes, pos, col, size, 1000), 1000u);

    auto* node = dynamic_cast<GeoNode*>(nodeMaster->createNode("grid"));
    ASSERT_NE(node, nullptr);
    node->visibility = true;
    const QImage empty = grab();
    node->updateDisplay(body);
    const QImage shown = grab();
    const QPointF fogAt = screenOf(QVector3D(-1.2f, 0.f, 0.f));
    const QPointF sphereAt = screenOf(QVector3D(1.2f, 0.f, 0.f));
    EXPECT_GT(countPixels(shown, fogAt, 15, isGrey), 300);
    EXPECT_EQ(countPixels(empty, fogAt, 15, isGrey), 0);
    EXPECT_GT(countPixels(shown, sphereAt, 15, isBlue), 300);
    EXPECT_EQ(countPixels(shown, fogAt, 15, isBlue), 0);
}

TEST_F(GlViewport, ClickPicksTheSystemUnderTheCursorAndUndoRestores)
{
    GranularParticleSystem* g = sandBlock(QVector3D(0.f, 0.3f, 0.f));
    boxCollider(-2.f);
    grab();
    const QPoint at = screenOf(QVector3D(0.f, 0.3f, 0.f)).toPoint();
    EXPECT_EQ(widget->pickAt(at).name, g->name);
    EXPECT_EQ(widget->pickAt(screenOf(QVector3D(-2.f, 0.f, 0.f)).toPoint()).name, "box");
    EXPECT_EQ(widget->pickAt(QPoint(5, 470)).typeCode, -1);

    mouse(QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::NoModifier);
    mouse(QEvent::MouseButtonRelease, at, Qt::LeftButton, Qt::NoModifier);
    ASSERT_EQ(currentSelection().size(), 1u);
    EXPECT_EQ(currentSelection().front().name, g->name);
    EXPECT_EQ(currentSelection().front().typeCode, kTypeGranularSystem);
    undoStack()->undo();
    EXPECT_TRUE(currentSelection().empty());
}

TEST_F(GlViewport, AClickBesideALoneGrainStillPicksItByOcclusionQueries)
{
    GranularParticleSystem* g = simulation->createGranularSystem("lone");
    g->addParticle(Vec4f(0.f, 0.3f, 0.f), Vec4f());
    const QImage image = grab();
    const QPoint at = screenOf(QVector3D(0.f, 0.3f, 0.f)).toPoint();
    // The grain's disc ends a few pixels from its centre: 10 pixels off is beyond the
    // id pass's reach and within the occlusion box.
    ASSERT_EQ(countPixels(image, at + QPoint(10, 0), 3, isSand), 0);
    EXPECT_EQ(widget->pickAt(at).name, g->name);
    testing::internal::CaptureStdout();
    EXPECT_EQ(widget->pickAt(at + QPoint(10, 0)).name, g->name);
    const std::string log = testing::internal::GetCapturedStdout();
    EXPECT_NE(log.find("gen queries."), std::string::npos);
    EXPECT_NE(log.find("pixel count[0]: "), std::string::npos);
    EXPECT_EQ(widget->pickAt(at + QPoint(40, 0)).typeCode, -1);
}

TEST_F(GlViewport, PlayblastWritesTheFramesImage)
{
    sandBlock(QVector3D(0.f, 0.3f, 0.f));
    widget->refreshBuffers(50);
    QTemporaryDir dir;
    ASSERT_TRUE(dir.isValid());
    simState->writeImages = true;
    simState->frame = 7;

    testing::internal::CaptureStdout();
    EXPECT_FALSE(widget->savePlayblastImage());
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Playblast: no path set.\n");

    const std::string pattern = dir.path().toStdString() + "/shots/out.####.png";
    simulation->globalSettings->fallbackPathImages = pattern;
    testing::internal::CaptureStdout();
    EXPECT_TRUE(widget->savePlayblastImage());
    const std::string expected = dir.path().toStdString() + "/shots/out.0007.png";
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "added  " + expected + "\n");
    QImage written(QString::fromStdString(expected));
    ASSERT_FALSE(written.isNull());
    EXPECT_EQ(written.size(), QSize(640, 480));
    EXPECT_GT(countPixels(written.convertToFormat(QImage::Format_RGB32), screenOf(QVector3D(0.f, 0.3f, 0.f)), 10, isSand),
              300);

    // a folder in the row gets out.%04d.png; the scene's folder is the default
    simulation->globalSettings->fallbackPathImages.clear();
    simulation->scenePath = dir.path().toStdString() + "/shot.qrv";
    simulation->sceneName = "shot";
    simState->frame = 12;
    testing::internal::CaptureStdout();
    EXPECT_TRUE(widget->savePlayblastImage());
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(QFileInfo::exists(dir.path() + "/images/shot/out.0012.png"));
    simState->writeImages = false;
    EXPECT_FALSE(widget->savePlayblastImage());
}

TEST_F(GlViewport, WheelDollyChangesTheImageAndTumbleKeepsTheObjectInView)
{
    sandBlock(QVector3D(0.f, 0.3f, 0.f));
    focus();
    ASSERT_TRUE(widget->hasFocus());
    int edits = 0;
    QObject::connect(UiEvents::instance(), &UiEvents::sceneEdited, widget.get(), [&edits]() { ++edits; });
    const QImage before = grab();
    const float distance = widget->camera.distance;
    QWheelEvent wheel(QPointF(320, 240), QPointF(widget->mapToGlobal(QPoint(320, 240))), QPoint(), QPoint(0, 120), Qt::NoButton,
                      Qt::NoModifier, Qt::NoScrollPhase, false);
    QApplication::sendEvent(widget.get(), &wheel);
    EXPECT_TRUE(wheel.isAccepted());
    EXPECT_LT(widget->camera.distance, distance);
    EXPECT_EQ(edits, 1);
    const QImage closer = grab();
    EXPECT_GT(differingPixels(before, closer, QRect(0, 0, 640, 480)), 2000);
    EXPECT_GT(countPixels(closer, QPointF(320, 240), 60, isSand), countPixels(before, QPointF(320, 240), 60, isSand));

    const float yaw = widget->camera.yaw;
    mouse(QEvent::MouseButtonPress, QPoint(300, 240), Qt::LeftButton, Qt::AltModifier);
    EXPECT_TRUE(widget->dragLeft);
    mouse(QEvent::MouseMove, QPoint(340, 250), Qt::LeftButton, Qt::AltModifier);
    mouse(QEvent::MouseMove, QPoint(380, 260), Qt::LeftButton, Qt::AltModifier);
    mouse(QEvent::MouseButtonRelease, QPoint(380, 260), Qt::LeftButton, Qt::AltModifier);
    EXPECT_FALSE(widget->dragLeft);
    EXPECT_NE(widget->camera.yaw, yaw);
    EXPECT_TRUE(currentSelection().empty()); // an Alt drag never picks
    const QImage turned = grab();
    EXPECT_GT(differingPixels(closer, turned, QRect(0, 0, 640, 480)), 500);
    EXPECT_GT(countPixels(turned, screenOf(QVector3D(0.f, 0.3f, 0.f)), 10, isSand), 300);
}

TEST_F(GlViewport, GizmoDragMovesTheColliderAndUndoPutsItBack)
{
    CollisionObject* c = boxCollider(0.f);
    grab();
    setSelection({selectionEntryFor("box")});
    widget->setGizmoMode(OpenGLWidget::GizmoTranslate);
    ASSERT_TRUE(widget->gizmo.valid);
    const QSize size(640, 480);
    const QMatrix4x4 view = widget->camera.viewMatrix(), proj = widget->camera.projMatrix(640.f / 480.f);
    const float length = widget->gizmo.handleLength(view, proj, size);
    const QPoint start = screenOf(QVector3D(0.7f * length, 0.f, 0.f)).toPoint();
    ASSERT_EQ(widget->gizmo.hitTest(start, proj * view, size, length), 0);
    mouse(QEvent::MouseButtonPress, start, Qt::LeftButton, Qt::NoModifier);
    ASSERT_TRUE(widget->gizmo.dragging);
    mouse(QEvent::MouseMove, start + QPoint(60, 0), Qt::LeftButton, Qt::NoModifier);
    EXPECT_GT(c->translateX, 0.3f);
    const float moved = c->translateX;
    mouse(QEvent::MouseButtonRelease, start + QPoint(60, 0), Qt::LeftButton, Qt::NoModifier);
    ASSERT_EQ(undoStack()->count(), 1);
    EXPECT_EQ(undoStack()->text(0), "Transform Object");
    EXPECT_EQ(c->params.get("translateX")->text, Parameter::trimmedNumber(moved));
    EXPECT_EQ(selectionEntryFor("box").name, "box"); // the drag didn't pick
    undoStack()->undo();
    EXPECT_FLOAT_EQ(c->translateX, 0.f);
    EXPECT_EQ(c->params.get("translateX")->text, "0");
    undoStack()->redo();
    EXPECT_FLOAT_EQ(c->translateX, moved);
}

TEST_F(GlViewport, TransformCommandOnANodeFindsItByName)
{
    BaseNode* node = nodeMaster->createNode("transform");
    ASSERT_NE(node, nullptr);
    const float before[9] = {0, 0, 0, 0, 0, 0, 1, 1, 1};
    const float after[9] = {1, 2, 3, 0, 45, 0, 2, 2, 2};
    auto* command = new TransformCommand(node->name(), true, before, after);
    EXPECT_EQ(command->text(), "Transform GeoNode");
    undoStack()->push(command);
    EXPECT_EQ(node->params.get("translateY")->text, "2");
    EXPECT_EQ(node->params.get("rotateY")->text, "45");
    undoStack()->undo();
    EXPECT_EQ(node->params.get("translateY")->text, "0");
    EXPECT_EQ(node->params.get("scaleZ")->text, "1");

    BaseNode* removed = node;
    nodeMaster->deleteNode(removed, false);
    delete removed;
    testing::internal::CaptureStdout();
    undoStack()->redo();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Transform Command: GeoNode not found.\n");
}

TEST_F(GlViewport, LockedClassicDataKeepsTheOldBuffers)
{
    GranularParticleSystem* g = sandBlock(QVector3D(0.f, 0.3f, 0.f));
    const QImage before = grab();
    for (Vec4f& p : g->body->points->P) p.x += 1.5f;

    std::promise<void> locked, release;
    std::thread holder([&]() {
        vboMutex.lock();
        locked.set_value();
        release.get_future().wait();
        vboMutex.unlock();
    });
    locked.get_future().wait();
    widget->refreshBuffers(20); // returns without the lock
    const QImage whileLocked = widget->grabFramebuffer().convertToFormat(QImage::Format_RGB32);
    release.set_value();
    holder.join();
    EXPECT_EQ(differingPixels(before, whileLocked, kBelowText), 0);

    const QImage after = grab();
    EXPECT_GT(differingPixels(before, after, kBelowText), 1000);
}

TEST_F(GlViewport, LooksThroughCameraNodesInTurn)
{
    sandBlock(QVector3D(0.f, 0.f, 0.f));
    BaseNode* cam = nodeMaster->createNode("camera");
    ASSERT_NE(cam, nullptr);
    const QImage persp = grab();
    widget->lookThroughNextCamera();
    EXPECT_EQ(widget->camera.nodeName, cam->name());
    EXPECT_LT((widget->camera.position() - QVector3D(20.f, 20.f, 20.f)).length(), 1e-3f);
    const QImage through = grab();
    EXPECT_GT(differingPixels(persp, through, kBelowText), 500);
    EXPECT_GT(countPixels(through, screenOf(QVector3D(0.f, 0.f, 0.f)), 10, isSand), 50);
    widget->lookThroughNextCamera(); // the only camera: back to persp
    EXPECT_TRUE(widget->camera.nodeName.empty());
    testing::internal::CaptureStdout();
    widget->setCameraNode("nothing");
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Viewport: no camera node called nothing.\n");
    EXPECT_TRUE(widget->camera.nodeName.empty());
}

TEST(ViewportOverlayText, LinesInOrder)
{
    ensureApplication();
    ensureSceneRecords();
    ViewportOverlay overlay;
    overlay.cameraPosition = QVector3D(1.f, 2.5f, -3.f);
    overlay.particleCount = 1200;
    simState->frameF = 3.5f;
    simState->writeCaches = true;
    const QStringList lines = overlay.lines();
    ASSERT_GE(lines.size(), 14);
    EXPECT_EQ(lines[0], "cam x : 1.000");
    EXPECT_EQ(lines[1], "cam y : 2.500");
    EXPECT_EQ(lines[2], "cam z : -3.000");
    EXPECT_EQ(lines[3], "particlecount: 1200");
    EXPECT_EQ(lines[8], "Frame: 3.500");
    EXPECT_EQ(lines[11], "Camera: persp");
    EXPECT_TRUE(lines[12].startsWith("sim time: "));
    EXPECT_EQ(lines[13], "out: cache");
    simState->writeCaches = false;
    simState->frameF = 0.f;
}

} // namespace
