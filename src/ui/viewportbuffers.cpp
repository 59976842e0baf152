#include "ui/viewportbuffers.h"

#include "geo/body.h"
#include "io/objectmesh.h"
#include "ui/viewportshaders.h"
#include "ui/viewportvolume.h"

#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>
#include <algorithm>
#include <cmath>

namespace {

void push3(std::vector<float>& a, float x, float y, float z)
{
    a.push_back(x);
    a.push_back(y);
    a.push_back(z);
}

void push3(std::vector<float>& a, const Vec4f& v)
{
    push3(a, v.x, v.y, v.z);
}

Vec4f normalised(const Vec4f& v)
{
    const float len = v.length3();
    return len > 1e-20f ? v * (1.f / len) : Vec4f(0.f, 1.f, 0.f);
}

// Binds one float array to an attribute, or sets the attribute constant when the buffer is missing.
void bindAttrib(QOpenGLFunctions* f, QOpenGLShaderProgram& program, const char* name, unsigned int vbo, int width,
                const float* constant)
{
    const int loc = program.attributeLocation(name);
    if (loc < 0) return;
    if (vbo && !constant) {
        f->glBindBuffer(GL_ARRAY_BUFFER, vbo);
        f->glEnableVertexAttribArray(GLuint(loc));
        f->glVertexAttribPointer(GLuint(loc), width, GL_FLOAT, GL_FALSE, 0, nullptr);
        return;
    }
    f->glDisableVertexAttribArray(GLuint(loc));
    const float one[3] = {1.f, 1.f, 1.f};
    const float* v = constant ? constant : one;
    if (width == 1) f->glVertexAttrib1f(GLuint(loc), v[0]);
    else f->glVertexAttrib3f(GLuint(loc), v[0], v[1], v[2]);
}

void releaseAttribs(QOpenGLFunctions* f, QOpenGLShaderProgram& program, std::initializer_list<const char*> names)
{
    for (const char* name : names) {
        const int loc = program.attributeLocation(name);
        if (loc >= 0) f->glDisableVertexAttribArray(GLuint(loc));
    }
    f->glBindBuffer(GL_ARRAY_BUFFER, 0);
}

void fill(QOpenGLFunctions* f, unsigned int& vbo, const std::vector<float>& data)
{
    if (data.empty()) return;
    if (!vbo) f->glGenBuffers(1, &vbo);
    f->glBindBuffer(GL_ARRAY_BUFFER, vbo);
    f->glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(data.size() * sizeof(float)), data.data(), GL_DYNAMIC_DRAW);
}

} // namespace

void ViewportBuffers::clearData()
{
    pointPos.clear();
    pointCol.clear();
    pointSize.clear();
    meshPos.clear();
    meshNrm.clear();
    meshCol.clear();
    linePos.clear();
    lineCol.clear();
    boundMin = QVector3D(1e30f, 1e30f, 1e30f);
    boundMax = QVector3D(-1e30f, -1e30f, -1e30f);
    dirty = true;
}

void ViewportBuffers::growBounds(const QVector3D& p)
{
    boundMin = QVector3D(std::min(boundMin.x(), p.x()), std::min(boundMin.y(), p.y()), std::min(boundMin.z(), p.z()));
    boundMax = QVector3D(std::max(boundMax.x(), p.x()), std::max(boundMax.y(), p.y()), std::max(boundMax.z(), p.z()));
}

void ViewportBuffers::setPoints(const PointData& points, const QVector3D& color, float radius)
{
    const size_t n = points.size();
    // a colour channel left at its default white carries no colour: the system's own shows
    bool useCd = false;
    if (points.hasCd && points.Cd.size() == n)
        for (size_t i = 0; i < n && !useCd; ++i)
            useCd = points.Cd[i].x != 1.f || points.Cd[i].y != 1.f || points.Cd[i].z != 1.f;
    const FloatArray* pscale = points.attribType("pscale") == ATTRIB_FLOAT ? points.attribAs<FloatArray>("pscale") : nullptr;
    if (pscale && pscale->size() != n) pscale = nullptr;
    pointPos.reserve(pointPos.size() + 3 * n);
    pointCol.reserve(pointCol.size() + 3 * n);
    pointSize.reserve(pointSize.size() + n);
    for (size_t i = 0; i < n; ++i) {
        const Vec4f& p = points.P[i];
        push3(pointPos, p);
        if (useCd) push3(pointCol, points.Cd[i]);
        else push3(pointCol, color.x(), color.y(), color.z());
        pointSize.push_back(pscale ? (*pscale)[i] : radius);
        growBounds(QVector3D(p.x, p.y, p.z));
    }
    dirty = true;
}

void ViewportBuffers::setBody(const Body& body, const QVector3D& color, float radius, bool flatShading)
{
    const PointData& pts = *body.points;
    const VertexData& verts = *body.vertices;
    const PrimData& prims = *body.prims;
    if (prims.size() == 0) setPoints(pts, color, radius);
    const size_t np = pts.size();
    const bool useCd = pts.hasCd && pts.Cd.size() == np;
    VecArray pointNormals, primNormals;
    if (prims.size() > 0) body.computeNormalsInto(pointNormals, primNormals);
    const QVector3D meshGrey(0.62f, 0.62f, 0.62f);
    for (size_t p = 0; p < prims.size() && p < verts.indices.size(); ++p) {
        const std::vector<uint32_t>& idx = verts.indices[p];
        bool valid = true;
        for (uint32_t i : idx) valid = valid && i < np;
        if (!valid) continue;
        const auto colorOf = [&](uint32_t i, const QVector3D& fallback) {
            if (useCd) return QVector3D(pts.Cd[i].x, pts.Cd[i].y, pts.Cd[i].z);
            return fallback;
        };
        if (prims.kinds[p] == PrimData::LINE || idx.size() == 2) {
            for (size_t k = 0; k + 1 < idx.size(); ++k) {
                for (uint32_t i : {idx[k], idx[k + 1]}) {
                    push3(linePos, pts.P[i]);
                    const QVector3D c = colorOf(i, QVector3D(0.85f, 0.85f, 0.7f));
                    push3(lineCol, c.x(), c.y(), c.z());
                    growBounds(QVector3D(pts.P[i].x, pts.P[i].y, pts.P[i].z));
                }
            }
            continue;
        }
        if (idx.size() < 3) continue;
        const Vec4f faceN = p < primNormals.size() ? primNormals[p] : Vec4f(0.f, 1.f, 0.f);
        for (size_t k = 1; k + 1 < idx.size(); ++k) {
            for (uint32_t i : {idx[0], idx[k], idx[k + 1]}) {
                push3(meshPos, pts.P[i]);
                const Vec4f n = flatShading || i >= pointNormals.size() ? faceN : pointNormals[i];
                push3(meshNrm, normalised(n));
                const QVector3D c = colorOf(i, meshGrey);
                push3(meshCol, c.x(), c.y(), c.z());
                growBounds(QVector3D(pts.P[i].x, pts.P[i].y, pts.P[i].z));
            }
        }
    }
    if (body.volumes && body.volumes->size() > 0) {
        const size_t before = pointSize.size();
        ViewportVolume::appendVoxelPoints(*body.volumes, pointPos, pointCol, pointSize, ViewportVolume::kMaxPoints);
        for (size_t i = before; i < pointSize.size(); ++i)
            growBounds(QVector3D(pointPos[3 * i], pointPos[3 * i + 1], pointPos[3 * i + 2]));
    }
    dirty = true;
}

void ViewportBuffers::setMesh(const ObjectMesh& mesh, const QVector3D& color)
{
    const size_t nv = mesh.vertices.size();
    const bool haveNormals = mesh.normals.size() == nv;
    for (const ObjectTriangle& t : mesh.triangles) {
        const int32_t c[3] = {t.v0, t.v1, t.v2};
        if (c[0] < 0 || c[1] < 0 || c[2] < 0 || size_t(c[0]) >= nv || size_t(c[1]) >= nv || size_t(c[2]) >= nv)
            continue;
        const Vec4f& a = mesh.vertices[size_t(c[0])];
        const Vec4f faceN = normalised((mesh.vertices[size_t(c[1])] - a).cross3(mesh.vertices[size_t(c[2])] - a));
        for (int32_t i : c) {
            const Vec4f& p = mesh.vertices[size_t(i)];
            push3(meshPos, p);
            push3(meshNrm, haveNormals ? normalised(mesh.normals[size_t(i)]) : faceN);
            push3(meshCol, color.x(), color.y(), color.z());
            growBounds(QVector3D(p.x, p.y, p.z));
        }
    }
    dirty = true;
}

void ViewportBuffers::upload(QOpenGLFunctions* f)
{
    if (!dirty || !f) return;
    fill(f, vbos[0], pointPos);
    fill(f, vbos[1], pointCol);
    fill(f, vbos[2], pointSize);
    fill(f, vbos[3], meshPos);
    fill(f, vbos[4], meshNrm);
    fill(f, vbos[5], meshCol);
    fill(f, vbos[6], linePos);
    fill(f, vbos[7], lineCol);
    f->glBindBuffer(GL_ARRAY_BUFFER, 0);
    uploadedPoints = pointCount();
    uploadedMesh = meshVertexCount();
    uploadedLines = lineVertexCount();
    dirty = false;
    ViewportShaders::checkGlError(f, "upload");
}

void ViewportBuffers::deletePointVbos(QOpenGLFunctions* f)
{
    f->glDeleteBuffers(3, vbos);
    vbos[0] = vbos[1] = vbos[2] = 0;
    uploadedPoints = 0;
}

void ViewportBuffers::deleteMeshVbos(QOpenGLFunctions* f)
{
    f->glDeleteBuffers(5, vbos + 3);
    for (int i = 3; i < 8; ++i) vbos[i] = 0;
    uploadedMesh = uploadedLines = 0;
}

void ViewportBuffers::deleteVbos(QOpenGLFunctions* f)
{
    if (!f) return;
    deletePointVbos(f);
    deleteMeshVbos(f);
    dirty = true;
}

void ViewportBuffers::drawPoints(QOpenGLFunctions* f, QOpenGLShaderProgram& program, const QVector3D* idColor)
{
    if (uploadedPoints == 0 || !vbos[0]) return;
    const float id[3] = {idColor ? idColor->x() : 0.f, idColor ? idColor->y() : 0.f, idColor ? idColor->z() : 0.f};
    bindAttrib(f, program, "position", vbos[0], 3, nullptr);
    bindAttrib(f, program, "color", vbos[1], 3, idColor ? id : nullptr);
    bindAttrib(f, program, "size", vbos[2], 1, nullptr);
    f->glDrawArrays(GL_POINTS, 0, GLsizei(uploadedPoints));
    releaseAttribs(f, program, {"position", "color", "size"});
}

void ViewportBuffers::drawMesh(QOpenGLFunctions* f, QOpenGLShaderProgram& program, const QVector3D* idColor)
{
    if (uploadedMesh == 0 || !vbos[3]) return;
    const float id[3] = {idColor ? idColor->x() : 0.f, idColor ? idColor->y() : 0.f, idColor ? idColor->z() : 0.f};
    const float one = 1.f;
    program.setUniformValue("modelMatrix", model);
    program.setUniformValue("model_rotationMatrix", rotation);
    bindAttrib(f, program, "position", vbos[3], 3, nullptr);
    bindAttrib(f, program, "normal", vbos[4], 3, nullptr);
    bindAttrib(f, program, "color", vbos[5], 3, idColor ? id : nullptr);
    bindAttrib(f, program, "alpha", 0, 1, &one);
    f->glDrawArrays(GL_TRIANGLES, 0, GLsizei(uploadedMesh));
    releaseAttribs(f, program, {"position", "normal", "color"});
}

void ViewportBuffers::drawLines(QOpenGLFunctions* f, QOpenGLShaderProgram& program, const QVector3D* idColor)
{
    if (uploadedLines == 0 || !vbos[6]) return;
    const float id[3] = {idColor ? idColor->x() : 0.f, idColor ? idColor->y() : 0.f, idColor ? idColor->z() : 0.f};
    program.setUniformValue("modelMatrix", model);
    bindAttrib(f, program, "position", vbos[6], 3, nullptr);
    bindAttrib(f, program, "color", vbos[7], 3, idColor ? id : nullptr);
    f->glDrawArrays(GL_LINES, 0, GLsizei(uploadedLines));
    releaseAttribs(f, program, {"position", "color"});
}
