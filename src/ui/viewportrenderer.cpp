#include "ui/viewportrenderer.h"

#include "ui/transformgizmo.h"
#include "ui/viewportgrid.h"
#include "ui/viewportscene.h"

#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>

namespace {
// Compatibility-profile switches that the GLES-style function table doesn't name.
constexpr GLenum kProgramPointSize = 0x8642;
constexpr GLenum kPointSprite = 0x8861;
constexpr GLenum kMultisample = 0x809D;
constexpr GLenum kFrontAndBack = 0x0408;
constexpr GLenum kLine = 0x1B01;
constexpr GLenum kFill = 0x1B02;

bool isSelected(const ViewportBuffers& b, const std::vector<SelectionEntry>& selected)
{
    for (const SelectionEntry& e : selected) {
        if (e.typeCode != b.entry.typeCode) continue;
        if (e.id >= 0 ? e.id == b.entry.id : e.name == b.entry.name) return true;
    }
    return false;
}
} // namespace

bool ViewportRenderer::init(QOpenGLFunctions* f)
{
    // glPolygonMode: desktop GL has it, the GLES-style table leaves it out.
    QOpenGLContext* context = QOpenGLContext::currentContext();
    polygonMode = context && !context->isOpenGLES()
                      ? reinterpret_cast<PolygonModeFn>(context->getProcAddress("glPolygonMode"))
                      : nullptr;
    const bool ok = shaders.init();
    ViewportShaders::checkGlError(f, "init");
    return ok;
}

QVector3D ViewportRenderer::idColor(size_t index)
{
    const size_t k = index + 1;
    return QVector3D(float(k & 255) / 255.f, float((k >> 8) & 255) / 255.f, float((k >> 16) & 255) / 255.f);
}

long ViewportRenderer::indexFromColor(QRgb pixel)
{
    const long k = long(qRed(pixel)) | (long(qGreen(pixel)) << 8) | (long(qBlue(pixel)) << 16);
    if (k == 0xFFFFFF || k == 0) return -1;
    return k - 1;
}

void ViewportRenderer::draw(QOpenGLFunctions* f, ViewportScene& scene, const Frame& frame, bool pick,
                            std::vector<ViewportBuffers*>* picked)
{
    if (!shaders.ready || !f) return;
    scene.releaseRetired(f);
    for (int i = 0; i < 8; ++i) f->glDisableVertexAttribArray(GLuint(i));
    f->glViewport(0, 0, frame.size.width(), frame.size.height());
    f->glDisable(GL_BLEND);
    if (frame.scissor.isValid()) {
        f->glEnable(GL_SCISSOR_TEST);
        f->glScissor(frame.scissor.x(), frame.scissor.y(), frame.scissor.width(), frame.scissor.height());
    } else {
        f->glDisable(GL_SCISSOR_TEST);
    }
    f->glDisable(GL_STENCIL_TEST);
    f->glDisable(GL_CULL_FACE);
    f->glEnable(GL_DEPTH_TEST);
    f->glDepthFunc(GL_LESS);
    f->glDepthMask(GL_TRUE);
    f->glEnable(kProgramPointSize);
    if (compatibilityProfile) f->glEnable(kPointSprite);
    if (pick) f->glDisable(kMultisample);
    ViewportShaders::checkGlError(f, "state");

    const std::vector<ViewportBuffers*> drawables = scene.all();
    for (ViewportBuffers* b : drawables) b->upload(f);
    if (picked) picked->clear();
    std::vector<QVector3D> ids(drawables.size());
    for (size_t i = 0; i < drawables.size(); ++i) {
        if (!pick || !drawables[i]->pickable) continue;
        if (picked) {
            ids[i] = idColor(picked->size());
            picked->push_back(drawables[i]);
        }
    }
    const auto idOf = [&](size_t i) -> const QVector3D* { return pick ? &ids[i] : nullptr; };
    const float flat = pick ? 1.f : 0.f;

    // The selection's edges go over its shaded meshes: those fills are pushed back a little
    // in depth so that the edges win the depth test.
    std::vector<bool> highlight(drawables.size(), false);
    for (size_t i = 0; i < drawables.size() && !pick; ++i) highlight[i] = isSelected(*drawables[i], frame.selected);
    const PolygonModeFn setPolygonMode = pick ? nullptr : polygonMode;
    const bool edgesOnly = frame.wireframe && setPolygonMode;
    const bool edgesOver = frame.wireframeOnShaded && setPolygonMode && !edgesOnly;

    QOpenGLShaderProgram& mesh = bindMesh(frame, flat);
    if (edgesOnly) setPolygonMode(kFrontAndBack, kLine);
    for (size_t i = 0; i < drawables.size(); ++i) {
        if (pick && !drawables[i]->pickable) continue;
        const bool offset = edgesOver && highlight[i];
        if (offset) {
            f->glEnable(GL_POLYGON_OFFSET_FILL);
            f->glPolygonOffset(1.f, 1.f);
        }
        drawables[i]->drawMesh(f, mesh, idOf(i));
        if (offset) f->glDisable(GL_POLYGON_OFFSET_FILL);
    }
    const QVector3D mark = highlightColor();
    if (edgesOver || edgesOnly) {
        setPolygonMode(kFrontAndBack, kLine);
        mesh.setUniformValue("flatColor", 1.f);
        f->glDepthFunc(GL_LEQUAL);
        for (size_t i = 0; i < drawables.size(); ++i)
            if (highlight[i]) drawables[i]->drawMesh(f, mesh, &mark);
        f->glDepthFunc(GL_LESS);
        setPolygonMode(kFrontAndBack, kFill);
        mesh.setUniformValue("flatColor", flat);
    }

    QOpenGLShaderProgram& lines = bindLines(frame);
    for (size_t i = 0; i < drawables.size(); ++i) {
        if (pick && !drawables[i]->pickable) continue;
        drawables[i]->drawLines(f, lines, highlight[i] ? &mark : idOf(i));
    }
    if (!pick && frame.drawGrid) {
        if (!gridBuilt) {
            ViewportGrid::fill(grid, infiniteGrid);
            gridBuilt = true;
        }
        grid.upload(f);
        f->glEnable(GL_BLEND);
        f->glBlendFunc(GL_SRC_ALPHA, GL_ONE_MINUS_SRC_ALPHA);
        lines.setUniformValue("fadeDistance", infiniteGrid ? ViewportGrid::kFadeDistance : 0.f);
        grid.drawLines(f, lines, nullptr);
        lines.setUniformValue("fadeDistance", 0.f);
        f->glDisable(GL_BLEND);
    }

    QOpenGLShaderProgram& points = bindPoints(frame, pick || frame.flatDisk, flat);
    for (size_t i = 0; i < drawables.size(); ++i)
        if (!pick || drawables[i]->pickable) drawables[i]->drawPoints(f, points, idOf(i));

    if (!pick && frame.gizmo && frame.gizmo->valid && frame.gizmo->mode != TransformGizmo::Off) {
        f->glDisable(GL_DEPTH_TEST);
        frame.gizmo->fillLines(gizmoLines, frame.gizmoLength);
        gizmoLines.upload(f);
        lines.bind();
        gizmoLines.drawLines(f, lines, nullptr);
        f->glEnable(GL_DEPTH_TEST);
    }
    points.release();
    ViewportShaders::checkGlError(f, pick ? "pick pass" : "draw");
}

void ViewportRenderer::drawFlat(QOpenGLFunctions* f, ViewportBuffers& b, const Frame& frame, const QVector3D& id)
{
    if (!shaders.ready || !f) return;
    b.drawMesh(f, bindMesh(frame, 1.f), &id);
    b.drawLines(f, bindLines(frame), &id);
    QOpenGLShaderProgram& points = bindPoints(frame, true, 1.f);
    b.drawPoints(f, points, &id);
    points.release();
}

QOpenGLShaderProgram& ViewportRenderer::bindMesh(const Frame& frame, float flat)
{
    QOpenGLShaderProgram& mesh = *shaders.mesh;
    ViewportShaders::setViewBlock(mesh, frame.view, frame.proj, frame.nearClip);
    mesh.setUniformValue("flatColor", flat);
    return mesh;
}

QOpenGLShaderProgram& ViewportRenderer::bindLines(const Frame& frame)
{
    QOpenGLShaderProgram& lines = *shaders.lines;
    ViewportShaders::setViewBlock(lines, frame.view, frame.proj, frame.nearClip);
    lines.setUniformValue("fadeDistance", 0.f);
    return lines;
}

QOpenGLShaderProgram& ViewportRenderer::bindPoints(const Frame& frame, bool flatDisk, float flat)
{
    QOpenGLShaderProgram& points = *shaders.points;
    ViewportShaders::setViewBlock(points, frame.view, frame.proj, frame.nearClip);
    points.setUniformValue("perspective", 1.f);
    points.setUniformValue("flatDisk", flatDisk ? 1.f : 0.f);
    points.setUniformValue("flatColor", flat);
    points.setUniformValue("viewportHeight", float(frame.size.height()));
    return points;
}

void ViewportRenderer::release(QOpenGLFunctions* f)
{
    grid.deleteVbos(f);
    gizmoLines.deleteVbos(f);
    gridBuilt = false;
}
