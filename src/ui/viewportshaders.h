// ViewportShaders: the viewport's GLSL 1.20 programs: points (discs or shaded spheres),
// shaded meshes and coloured lines. Each one reads the view block (view, proj, viewInv,
// projInv, nearClip); `flatColor` makes a program write its colour unshaded, which the
// pick pass uses to draw id colours.
#pragma once

#include <QMatrix4x4>
#include <memory>

class QOpenGLShaderProgram;
class QOpenGLFunctions;

class ViewportShaders {
public:
    ViewportShaders();
    ~ViewportShaders();

    std::unique_ptr<QOpenGLShaderProgram> points;
    std::unique_ptr<QOpenGLShaderProgram> mesh;
    std::unique_ptr<QOpenGLShaderProgram> lines;
    bool ready = false;

    // Compiles and links all programs in the current context; false (and a printed line)
    // when one fails.
    bool init();
    // Frees the programs (context current).
    void release();
    // Feeds the view block to `program` (bound here).
    static void setViewBlock(QOpenGLShaderProgram& program, const QMatrix4x4& view, const QMatrix4x4& proj,
                             float nearClip);
    // Prints the name of each pending GL error, prefixed with `where`; false when there was one.
    static bool checkGlError(QOpenGLFunctions* f, const char* where);
};
