#include "ui/viewportshaders.h"

#include <QOpenGLFunctions>
#include <QOpenGLShaderProgram>
#include <cstdio>

namespace {

const char* kViewBlock = R"(
uniform mat4 view;
uniform mat4 proj;
uniform mat4 viewInv;
uniform mat4 projInv;
uniform float nearClip;
)";

const char* kPointVertex = R"(
attribute vec3 position;
attribute vec3 color;
attribute float size;
uniform float perspective;
uniform float flatDisk;
uniform float viewportHeight;
varying vec3 vColor;
void main()
{
    vec4 eye = view * vec4(position, 1.0);
    gl_Position = proj * eye;
    float px;
    if (perspective > 0.5) {
        float depth = max(-eye.z, nearClip);
        px = 2.0 * size * proj[1][1] * 0.5 * viewportHeight / depth;
    } else {
        px = size;
    }
    gl_PointSize = clamp(px, 1.0, 64.0);
    vColor = color;
}
)";

const char* kPointFragment = R"(
uniform float flatDisk;
uniform float flatColor;
varying vec3 vColor;
void main()
{
    vec2 c = gl_PointCoord * 2.0 - vec2(1.0);
    float r2 = dot(c, c);
    if (r2 > 1.0) discard;
    if (flatColor > 0.5 || flatDisk > 0.5) {
        gl_FragColor = vec4(vColor, 1.0);
        return;
    }
    float nz = sqrt(1.0 - r2);
    float light = 0.45 + 0.55 * clamp(dot(vec3(c.x, -c.y, nz), normalize(vec3(0.35, 0.45, 0.8))), 0.0, 1.0);
    gl_FragColor = vec4(vColor * light, 1.0);
}
)";

const char* kMeshVertex = R"(
attribute vec3 position;
attribute vec3 normal;
attribute vec3 color;
attribute float alpha;
uniform mat4 modelMatrix;
uniform mat4 model_rotationMatrix;
varying vec3 vNormal;
varying vec3 vColor;
varying float vAlpha;
void main()
{
    vec4 world = modelMatrix * vec4(position, 1.0);
    gl_Position = proj * view * world;
    vNormal = (view * (model_rotationMatrix * vec4(normal, 0.0))).xyz;
    vColor = color;
    vAlpha = alpha;
}
)";

const char* kMeshFragment = R"(
uniform float flatColor;
varying vec3 vNormal;
varying vec3 vColor;
varying float vAlpha;
void main()
{
    if (flatColor > 0.5) {
        gl_FragColor = vec4(vColor, 1.0);
        return;
    }
    float len = length(vNormal);
    float facing = len > 0.0 ? abs(vNormal.z) / len : 1.0;
    float light = 0.3 + 0.7 * facing;
    gl_FragColor = vec4(vColor * light, vAlpha);
}
)";

const char* kLineVertex = R"(
attribute vec3 position;
attribute vec3 color;
uniform mat4 modelMatrix;
uniform float fadeDistance;
varying vec4 vColor;
void main()
{
    vec4 world = modelMatrix * vec4(position, 1.0);
    gl_Position = proj * view * world;
    float a = 1.0;
    if (fadeDistance > 0.0) {
        vec3 eye = viewInv[3].xyz;
        a = clamp(1.0 - length(world.xyz - eye) / fadeDistance, 0.0, 1.0);
    }
    vColor = vec4(color, a);
}
)";

const char* kLineFragment = R"(
varying vec4 vColor;
void main()
{
    if (vColor.a <= 0.0) discard;
    gl_FragColor = vColor;
}
)";

std::unique_ptr<QOpenGLShaderProgram> build(const char* name, const char* vertex, const char* fragment)
{
    auto program = std::make_unique<QOpenGLShaderProgram>();
    const QByteArray head = QByteArray("#version 120\n") + kViewBlock;
    bool ok = program->addShaderFromSourceCode(QOpenGLShader::Vertex, head + vertex) &&
              program->addShaderFromSourceCode(QOpenGLShader::Fragment, QByteArray("#version 120\n") + fragment);
    // attribute 0 must be an array in a compatibility context: give it to the positions
    program->bindAttributeLocation("position", 0);
    ok = ok && program->link();
    if (!ok) {
        std::printf("Viewport: the %s shader failed: %s\n", name, program->log().toLocal8Bit().constData());
        return nullptr;
    }
    return program;
}

} // namespace

ViewportShaders::ViewportShaders() = default;
ViewportShaders::~ViewportShaders() = default;

bool ViewportShaders::init()
{
    points = build("point", kPointVertex, kPointFragment);
    mesh = build("mesh", kMeshVertex, kMeshFragment);
    lines = build("line", kLineVertex, kLineFragment);
    ready = points && mesh && lines;
    return ready;
}

void ViewportShaders::release()
{
    points.reset();
    mesh.reset();
    lines.reset();
    ready = false;
}

void ViewportShaders::setViewBlock(QOpenGLShaderProgram& program, const QMatrix4x4& view, const QMatrix4x4& proj,
                                   float nearClip)
{
    program.bind();
    program.setUniformValue("view", view);
    program.setUniformValue("proj", proj);
    program.setUniformValue("viewInv", view.inverted());
    program.setUniformValue("projInv", proj.inverted());
    program.setUniformValue("nearClip", nearClip);
}

bool ViewportShaders::checkGlError(QOpenGLFunctions* f, const char* where)
{
    if (!f) return true;
    bool clean = true;
    for (int guard = 0; guard < 16; ++guard) {
        const GLenum e = f->glGetError();
        if (e == GL_NO_ERROR) break;
        clean = false;
        const char* name = "UNKNOWN_ERROR";
        switch (e) {
        case GL_INVALID_OPERATION: name = "INVALID_OPERATION"; break;
        case GL_INVALID_ENUM: name = "INVALID_ENUM"; break;
        case GL_INVALID_VALUE: name = "INVALID_VALUE"; break;
        case GL_OUT_OF_MEMORY: name = "OUT_OF_MEMORY"; break;
        case GL_INVALID_FRAMEBUFFER_OPERATION: name = "INVALID_FRAMEBUFFER_OPERATION"; break;
        default: break;
        }
        std::printf("GL error %s (%s)\n", name, where);
    }
    return clean;
}
