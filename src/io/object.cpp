// Object: loading by extension with retries, the OBJ part, and the SD frame logic:
// rigid records set the pose (rotations blended as quaternions, the short way round),
// deforming records set every vertex, with velocities from the step to the next frame.
#include "io/object.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <iostream>
#include <thread>

#include "app/globals.h"
#include "app/simstate.h"
#include "io/fileio.h"
#include "io/objformat.h"

namespace {

const double kRadToDeg = 180.0 / std::atan2(0.0, -1.0);
const double kDegToRad = 0.017453292;

struct Quat {
    double w = 1, x = 0, y = 0, z = 0;
};

// R = Rz(c) * Ry(b) * Rx(a): x turns first. Row-major 3x3, column vectors.
void rotationFromEuler(const Vec4f& degrees, double R[9])
{
    const double a = degrees.x * kDegToRad, b = degrees.y * kDegToRad, c = degrees.z * kDegToRad;
    const double ca = std::cos(a), sa = std::sin(a), cb = std::cos(b), sb = std::sin(b);
    const double cc = std::cos(c), sc = std::sin(c);
    R[0] = cc * cb;  R[1] = cc * sb * sa - sc * ca;  R[2] = cc * sb * ca + sc * sa;
    R[3] = sc * cb;  R[4] = sc * sb * sa + cc * ca;  R[5] = sc * sb * ca - cc * sa;
    R[6] = -sb;      R[7] = cb * sa;                 R[8] = cb * ca;
}

// The angles of rotationFromEuler, in degrees; columns are normalised first so that a
// matrix that carries scale still gives its rotation.
Vec4f eulerFromRotation(const double in[9])
{
    double R[9];
    std::copy(in, in + 9, R);
    for (int j = 0; j < 3; ++j) {
        const double len = std::sqrt(R[j] * R[j] + R[3 + j] * R[3 + j] + R[6 + j] * R[6 + j]);
        if (len > 0)
            for (int i = 0; i < 3; ++i) R[3 * i + j] /= len;
    }
    const double sb = std::max(-1.0, std::min(1.0, -R[6]));
    double a, b = std::asin(sb), c;
    if (std::fabs(sb) < 0.9999999) {
        a = std::atan2(R[7], R[8]);
        c = std::atan2(R[3], R[0]);
    } else {
        a = std::atan2(-R[5], R[4]);
        c = 0;
    }
    return Vec4f(float(a * kRadToDeg), float(b * kRadToDeg), float(c * kRadToDeg), 0.f);
}

Quat quatFromRotation(const double R[9])
{
    Quat q;
    const double trace = R[0] + R[4] + R[8];
    if (trace > 0) {
        const double s = 2 * std::sqrt(trace + 1);
        q = {s / 4, (R[7] - R[5]) / s, (R[2] - R[6]) / s, (R[3] - R[1]) / s};
    } else if (R[0] > R[4] && R[0] > R[8]) {
        const double s = 2 * std::sqrt(1 + R[0] - R[4] - R[8]);
        q = {(R[7] - R[5]) / s, s / 4, (R[1] + R[3]) / s, (R[2] + R[6]) / s};
    } else if (R[4] > R[8]) {
        const double s = 2 * std::sqrt(1 + R[4] - R[0] - R[8]);
        q = {(R[2] - R[6]) / s, (R[1] + R[3]) / s, s / 4, (R[5] + R[7]) / s};
    } else {
        const double s = 2 * std::sqrt(1 + R[8] - R[0] - R[4]);
        q = {(R[3] - R[1]) / s, (R[2] + R[6]) / s, (R[5] + R[7]) / s, s / 4};
    }
    return q;
}

void rotationFromQuat(const Quat& q, double R[9])
{
    const double w = q.w, x = q.x, y = q.y, z = q.z;
    R[0] = 1 - 2 * (y * y + z * z); R[1] = 2 * (x * y - w * z);     R[2] = 2 * (x * z + w * y);
    R[3] = 2 * (x * y + w * z);     R[4] = 1 - 2 * (x * x + z * z); R[5] = 2 * (y * z - w * x);
    R[6] = 2 * (x * z - w * y);     R[7] = 2 * (y * z + w * x);     R[8] = 1 - 2 * (x * x + y * y);
}

// Spherical interpolation the short way round.
Quat slerp(const Quat& a, Quat b, double t)
{
    double d = a.w * b.w + a.x * b.x + a.y * b.y + a.z * b.z;
    if (d < 0) {
        b = {-b.w, -b.x, -b.y, -b.z};
        d = -d;
    }
    double ka = 1 - t, kb = t;
    if (d < 0.9995) {
        const double theta = std::acos(std::min(1.0, d));
        const double s = std::sin(theta);
        ka = std::sin((1 - t) * theta) / s;
        kb = std::sin(t * theta) / s;
    }
    Quat q{ka * a.w + kb * b.w, ka * a.x + kb * b.x, ka * a.y + kb * b.y, ka * a.z + kb * b.z};
    const double len = std::sqrt(q.w * q.w + q.x * q.x + q.y * q.y + q.z * q.z);
    if (len > 0) q = {q.w / len, q.x / len, q.y / len, q.z / len};
    return q;
}

void sleepMs(int ms)
{
    std::this_thread::sleep_for(std::chrono::milliseconds(ms));
}

} // namespace

Object::Object() : SceneObject(kTypeObject)
{
    params.add(Parameter(&name, "nodeName", "Object Name", kParamObjectName));
    params.add(Parameter(&filePath, "filePath", "File Path", kParamPath, "The geometry file (.obj or .sd)."));
}

void Object::buildPose(double M[16]) const
{
    double R[9];
    rotationFromEuler(rotate, R);
    const double s[3] = {scale.x, scale.y, scale.z};
    const double t[3] = {translate.x, translate.y, translate.z};
    // Row r of S * R^T (rows are the turned, scaled axes), then the translation row.
    for (int r = 0; r < 3; ++r) {
        for (int c = 0; c < 3; ++c) M[r * 4 + c] = s[r] * R[c * 3 + r];
        M[r * 4 + 3] = 0;
    }
    M[12] = t[0];
    M[13] = t[1];
    M[14] = t[2];
    M[15] = 1;
}

int Object::loadGeometry(const std::string& path, float frame)
{
    const std::string extension = fileio::extensionOf(path);
    if (extension == "prt") {
        std::cout << "PRT files are not supported yet. (" << path << ")\n";
        return -1;
    }
    if (extension == "abc") {
        std::cout << "Alembic files are not supported yet. (" << path << ")\n";
        return -1;
    }
    if (extension != "obj" && extension != "sd") {
        std::cout << "reading files with extension \"" << extension << "\" is unsupported.\n";
        return -1;
    }
    for (int attempt = 0; attempt < 50; ++attempt) {
        int result = -1;
        try {
            if (extension == "obj") {
                for (auto& mesh : meshes)
                    if (mesh) mesh->isLoaded = mesh->isDeforming = false;
                result = loadObj(path);
            } else {
                result = loadSDAtFrame(path, frame);
            }
        } catch (const std::exception& e) {
            std::cerr << "read error: " << e.what() << " (" << path << ")\n";
        }
        if (result == 0) {
            std::cout << "update geometry ok.\n";
            return 0;
        }
        std::cerr << "a read error happened. retrying... (" << path << ")\n";
        sleepMs(1);
    }
    return -1;
}

int Object::loadObj(const std::string& path)
{
    auto mesh = std::make_shared<ObjectMesh>();
    if (fileio::loadObjMesh(path, *mesh, readScale) != 0) return -1;
    meshes.assign(1, mesh);
    filePath = path;
    sdBaseLoaded = false;
    ++geometryStamp;
    return 0;
}

int Object::loadSDAtFrame(const std::string& path, float frame)
{
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!file) {
        std::cout << "Error opening the SD-file. loadSDAtFrame().\n";
        return -1;
    }
    struct stat st;
    if (fstat(fileno(file.get()), &st) != 0) {
        std::cout << "Error opening the SD-file. loadSDAtFrame().\n";
        return -1;
    }
    const uint64_t fileSize = uint64_t(st.st_size);
    if (path != filePath) sdBaseLoaded = false;

    if (!sdBaseLoaded) {
        fileio::SdBase base;
        if (fileio::readSdBase(file.get(), fileSize, base) != 0) {
            std::cout << "SD Error...\n";
            return -1;
        }
        std::copy(base.header, base.header + fileio::kSdHeaderSize, sdHeader);
        sdFirstFrame = base.firstFrame;
        sdLastFrame = base.lastFrame;
        sdFrameSize = base.frameSize;
        sdFramesOffset = base.framesOffset;
        sdHasExtra = base.hasExtra;
        sdAxis = base.axis;
        if (base.deforming >= 0) sdIsDeforming = base.deforming == 1;

        auto mesh = std::make_shared<ObjectMesh>();
        mesh->vertices = std::move(base.vertices);
        for (Vec4f& p : mesh->vertices) p = p * readScale;
        mesh->velocities.assign(mesh->vertices.size(), Vec4f());
        mesh->triangles.reserve(base.faces.size());
        for (const auto& f : base.faces) {
            ObjectTriangle t;
            t.v0 = t.n0 = f[0];
            t.v1 = t.n1 = f[1];
            t.v2 = t.n2 = f[2];
            t.t0 = t.t1 = t.t2 = -1;
            mesh->triangles.push_back(t);
        }
        mesh->computeTriangleNormals();
        mesh->computeBounds();
        base.faces.clear();
        base.vertices.clear();
        sdBase_ = std::move(base);
        meshes.assign(1, mesh);
        filePath = path;
        translate = Vec4f();
        rotate = Vec4f();
        scale = Vec4f(1.f, 1.f, 1.f, 0.f);
        sdBaseLoaded = true;
        ++geometryStamp;
    }
    for (auto& mesh : meshes)
        if (mesh) std::copy(mesh->xform[0], mesh->xform[0] + 16, mesh->xform[1]);

    const double whole = std::floor(double(frame));
    const int frameInt = int(std::max(-2147483647.0, std::min(2147483646.0, whole)));
    const float t = float(double(frame) - whole);
    if (readSdRecord(file.get(), fileSize, frameInt, false, 0.f) != 0) {
        std::cout << "SD Error...\n";
        return -1;
    }
    return readSdRecord(file.get(), fileSize, frameInt + 1, true, t);
}

int Object::readSdRecord(FILE* file, uint64_t fileSize, int frame, bool blend, float t)
{
    if (meshes.empty()) {
        std::cout << "Error: loadSD_FI... no mesh.\n";
        return -1;
    }
    if (!meshes[0]) {
        std::cout << "Error: loadSD_FI... mesh is null.\n";
        return -1;
    }
    ObjectMesh& mesh = *meshes[0];
    if (frame < sdFirstFrame || frame > sdLastFrame) {
        mesh.isDeforming = false;
        if (blend) return 0;
    }
    fileio::SdFrame record;
    const size_t numPositions = sdIsDeforming ? mesh.vertices.size() : 0;
    if (fileio::readSdFrame(file, fileSize, sdBase_, numPositions, frame, record) != 0) return -1;
    // Outside the range the clamped record stands in for the frame.
    const int expected = std::max(sdFirstFrame, std::min(sdLastFrame, frame));
    if (record.frame != expected) {
        std::cout << "non matching frame\n";
        std::cout << "frameInt: " << frame << "..... sdFrame: " << record.frame << "\n";
        return -1;
    }

    if (sdIsDeforming) {
        // Deforming frames keep the stamp: their grids follow at the collider's own rate.
        for (Vec4f& p : record.positions) p = p * readScale;
        mesh.resetBounds();
        const size_t n = std::min(mesh.vertices.size(), record.positions.size());
        if (!blend) {
            for (size_t i = 0; i < n; ++i) {
                mesh.vertices[i] = record.positions[i];
                mesh.growBounds(mesh.vertices[i]);
            }
            mesh.velocities.assign(mesh.vertices.size(), Vec4f());
        } else {
            mesh.isDeforming = true;
            const float fps = simState ? simState->fps : 24.f;
            mesh.velocities.resize(mesh.vertices.size());
            for (size_t i = 0; i < n; ++i) {
                const Vec4f d = record.positions[i] - mesh.vertices[i];
                mesh.vertices[i] += d * t;
                mesh.velocities[i] = d * fps;
                mesh.growBounds(mesh.vertices[i]);
            }
        }
        mesh.computeTriangleNormals();
    } else if (!blend) {
        mesh.isDeforming = false;
        record.translation = record.translation * readScale;
        translate = record.translation;
        scale = record.scale;
        rotate = eulerFromRotation(record.rotation);
        buildPose(mesh.xform[0]);
    } else {
        record.translation = record.translation * readScale;
        translate += (record.translation - translate) * t;
        scale += (record.scale - scale) * t;
        double R0[9];
        rotationFromEuler(rotate, R0);
        double R1[9];
        rotationFromEuler(eulerFromRotation(record.rotation), R1);  // without any scale it carries
        const Quat q = slerp(quatFromRotation(R0), quatFromRotation(R1), double(t));
        double R[9];
        rotationFromQuat(q, R);
        rotate = eulerFromRotation(R);
        buildPose(mesh.xform[0]);
    }
    mesh.isLoaded = true;
    return 0;
}
