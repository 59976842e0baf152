// ViewportRenderer: the GL drawing of the viewport: uploads what the scene gathered, then
// draws collider and node meshes, node curves, the grid, points, and the gizmo on top. The
// pick pass draws the same things unshaded, each pickable one in its own id colour.
#pragma once

#include "ui/viewportbuffers.h"
#include "ui/viewportshaders.h"

#include <QMatrix4x4>
#include <QRect>
#include <QRgb>
#include <QSize>
#include <vector>

class QOpenGLFunctions;
class TransformGizmo;
class ViewportScene;

class ViewportRenderer {
public:
    ViewportShaders shaders;
    ViewportBuffers grid;
    ViewportBuffers gizmoLines;
    bool infiniteGrid = false;
    bool gridBuilt = false;
    bool compatibilityProfile = true;

    struct Frame {
        QMatrix4x4 view;
        QMatrix4x4 proj;
        float nearClip = 0.05f;
        QSize size;
        bool drawGrid = true;
        bool flatDisk = false;
        const TransformGizmo* gizmo = nullptr; // drawn when valid and not picking
        float gizmoLength = 1.f;
        // Meshes as edges only; edges in the highlight colour over the selection's shaded meshes.
        bool wireframe = false;
        bool wireframeOnShaded = true;
        // The selected objects and nodes: their drawables get the highlight.
        std::vector<SelectionEntry> selected;
        // When valid, drawing is clipped to this box (GL window coordinates).
        QRect scissor;
    };

    // The colour of the selection's edges and lines.
    static QVector3D highlightColor() { return QVector3D(1.f, 0.62f, 0.2f); }

    // Compiles the programs (context current); false when they fail.
    bool init(QOpenGLFunctions* f);
    // Draws into the bound frame buffer. With `pick` every pickable drawable is drawn in
    // the colour of its index in `picked`, which is filled here.
    void draw(QOpenGLFunctions* f, ViewportScene& scene, const Frame& frame, bool pick,
              std::vector<ViewportBuffers*>* picked);
    void release(QOpenGLFunctions* f);
    // Draws one drawable's points, mesh and lines unshaded in `id` (the occlusion pick);
    // the GL state is the caller's.
    void drawFlat(QOpenGLFunctions* f, ViewportBuffers& b, const Frame& frame, const QVector3D& id);

    // Index i as an opaque colour (i + 1 in the low 24 bits); white means nothing.
    static QVector3D idColor(size_t index);
    // The index a pixel of the pick pass names, or -1 for the background.
    static long indexFromColor(QRgb pixel);

private:
    // Each program bound with the frame's view block and its own uniforms.
    QOpenGLShaderProgram& bindMesh(const Frame& frame, float flat);
    QOpenGLShaderProgram& bindLines(const Frame& frame);
    QOpenGLShaderProgram& bindPoints(const Frame& frame, bool flatDisk, float flat);

    // glPolygonMode, found at init; null where the context lacks it (meshes stay shaded).
    using PolygonModeFn = void (*)(unsigned int, unsigned int);
    PolygonModeFn polygonMode = nullptr;
};
