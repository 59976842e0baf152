// ViewportBuffers: the viewport's side of one drawable thing (a classic system, a collider,
// a graph node's Body): flat arrays filled on the CPU from the core's data, and the GL
// buffers they are uploaded to before the next paint. Point, mesh and line groups are kept
// apart; a conversion that finds the same source again is skipped.
#pragma once

#include "app/simulation.h"

#include <QMatrix4x4>
#include <QVector3D>
#include <cstddef>
#include <cstdint>
#include <vector>

class Body;
class PointData;
class ObjectMesh;
class QOpenGLFunctions;
class QOpenGLShaderProgram;

class ViewportBuffers {
public:
    ViewportBuffers() = default;
    ViewportBuffers(const ViewportBuffers&) = delete;
    ViewportBuffers& operator=(const ViewportBuffers&) = delete;

    SelectionEntry entry; // what a pick of this drawable selects
    bool pickable = true;
    QMatrix4x4 model;    // local to world
    QMatrix4x4 rotation; // model without translation (for normals)

    std::vector<float> pointPos, pointCol, pointSize; // 3, 3, 1 floats a point
    std::vector<float> meshPos, meshNrm, meshCol;     // triangles, 3 floats a corner each
    std::vector<float> linePos, lineCol;              // segment pairs
    const void* source = nullptr; // the data the arrays were made from
    bool dirty = true;            // the arrays changed since the last upload
    uint64_t version = 0;         // a change count of the source (geometry stamp)
    // Local bounds of what the arrays hold (before `model`).
    QVector3D boundMin{1e30f, 1e30f, 1e30f};
    QVector3D boundMax{-1e30f, -1e30f, -1e30f};

    size_t pointCount() const { return pointSize.size(); }
    size_t meshVertexCount() const { return meshPos.size() / 3; }
    size_t lineVertexCount() const { return linePos.size() / 3; }

    void clearData();
    // Points of a particle list: colour from Cd when present, else `color`; size from the
    // "pscale" channel when present, else `radius`.
    void setPoints(const PointData& points, const QVector3D& color, float radius);
    // A Body as a graph node shows it: polygons (fans, flat or point normals), curves as
    // lines, loose points when it has no primitives, active voxels as points.
    void setBody(const Body& body, const QVector3D& color, float radius, bool flatShading);
    // One mesh part of a classic object, with per-vertex normals.
    void setMesh(const ObjectMesh& mesh, const QVector3D& color);
    void growBounds(const QVector3D& p);

    // GL side; the context is current.
    void upload(QOpenGLFunctions* f);
    void deleteVbos(QOpenGLFunctions* f);
    void deletePointVbos(QOpenGLFunctions* f);
    void deleteMeshVbos(QOpenGLFunctions* f);
    // Draws each group; `idColor` replaces every colour (pick pass) when not null.
    void drawPoints(QOpenGLFunctions* f, QOpenGLShaderProgram& program, const QVector3D* idColor);
    void drawMesh(QOpenGLFunctions* f, QOpenGLShaderProgram& program, const QVector3D* idColor);
    void drawLines(QOpenGLFunctions* f, QOpenGLShaderProgram& program, const QVector3D* idColor);

    // Buffer names: point position, colour, size; mesh position, normal, colour; line position, colour.
    unsigned int vbos[8] = {0, 0, 0, 0, 0, 0, 0, 0};
    size_t uploadedPoints = 0, uploadedMesh = 0, uploadedLines = 0;
};
