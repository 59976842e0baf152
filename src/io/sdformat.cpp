// SD decoding. Reads go through a cursor that knows the file's length, so a count or
// a name length that claims more than the file holds fails before anything is
// allocated. Axis conversion happens here: vertices by the header's axis code, the
// rigid records' vectors and rotation always with x and z swapped.
#include "io/sdformat.h"

#include <sys/stat.h>

#include <iostream>
#include <memory>

#include "geo/body.h"
#include "io/byteio.h"
#include "io/object.h"

namespace fileio {

namespace {

// Sequential reads from a FILE whose size is known; every read is checked against it.
class FileCursor {
public:
    FileCursor(FILE* file, uint64_t size) : file_(file), size_(size) {}

    uint64_t pos() const { return pos_; }
    uint64_t remaining() const { return pos_ <= size_ ? size_ - pos_ : 0; }

    bool seek(uint64_t pos)
    {
        if (pos > size_ || fseeko(file_, off_t(pos), SEEK_SET) != 0) return false;
        pos_ = pos;
        return true;
    }
    bool read(void* out, uint64_t n)
    {
        if (n > remaining()) return false;
        if (n && std::fread(out, 1, size_t(n), file_) != size_t(n)) return false;
        pos_ += n;
        return true;
    }
    template <class T>
    bool get(T& out)
    {
        uint8_t raw[sizeof(T)];
        if (!read(raw, sizeof(T))) return false;
        out = loadLE<T>(raw);
        return true;
    }
    bool skip(uint64_t n) { return n <= remaining() && seek(pos_ + n); }
    // A length-prefixed name.
    bool getString(std::string& out)
    {
        int32_t length = 0;
        if (!get(length) || length < 0 || uint64_t(length) > remaining()) return false;
        out.resize(size_t(length));
        return read(&out[0], uint64_t(length));
    }

private:
    FILE* file_;
    uint64_t size_;
    uint64_t pos_ = 0;
};

int truncated()
{
    std::cout << "truncated sd file.\n";
    return -1;
}

Vec4f vertexAxes(const float v[3], uint8_t axis)
{
    if (axis == 2) return Vec4f(v[0], v[1], -v[2], 0.f);
    return Vec4f(v[2], v[1], v[0], 0.f);
}

Vec4f swapXZ(const float v[3])
{
    return Vec4f(v[2], v[1], v[0], 0.f);
}

} // namespace

int readSdBase(FILE* file, uint64_t fileSize, SdBase& base)
{
    FileCursor in(file, fileSize);
    if (!in.seek(0) || !in.read(base.header, kSdHeaderSize)) return truncated();
    base.frameSize = loadLE<int32_t>(base.header + 38);
    base.hasExtra = base.header[42];
    base.axis = base.header[43];
    base.firstFrame = loadLE<int32_t>(base.header + 75);
    base.lastFrame = loadLE<int32_t>(base.header + 79);
    if (base.frameSize <= 0 || base.lastFrame < base.firstFrame) {
        std::cout << "SD Error: bad frame size or frame range in the header.\n";
        return -1;
    }
    uint8_t deforming = 0;
    if (!in.get(deforming)) return truncated();
    base.deforming = deforming == 1 ? 1 : deforming == 0 ? 0 : -1;
    if (!in.get(base.color[0]) || !in.get(base.color[1]) || !in.get(base.color[2])) return truncated();
    if (!in.getString(base.name) || !in.getString(base.textureName)) return truncated();

    int32_t numVertices = 0, numFaces = 0;
    if (!in.get(numVertices) || !in.get(numFaces)) return truncated();
    if (numVertices < 0 || numFaces < 0 || uint64_t(numVertices) * 12 > in.remaining() ||
        uint64_t(numFaces) * 64 > in.remaining() - uint64_t(numVertices) * 12)
        return truncated();

    std::vector<uint8_t> block(size_t(numVertices) * 12);
    if (!in.read(block.data(), block.size())) return truncated();
    base.vertices.resize(size_t(numVertices));
    for (size_t i = 0; i < base.vertices.size(); ++i) {
        const float v[3] = {loadLE<float>(&block[i * 12]), loadLE<float>(&block[i * 12 + 4]),
                            loadLE<float>(&block[i * 12 + 8])};
        base.vertices[i] = vertexAxes(v, base.axis);
    }
    block.resize(size_t(numFaces) * 64);
    if (!in.read(block.data(), block.size())) return truncated();
    base.faces.resize(size_t(numFaces));
    for (size_t f = 0; f < base.faces.size(); ++f) {
        for (int k = 0; k < 3; ++k) {
            const int32_t index = loadLE<int32_t>(&block[f * 64 + size_t(k) * 4]);
            if (index < 0 || index >= numVertices) {
                std::cout << "SD Error: face " << f << " uses vertex " << index << " of " << numVertices << ".\n";
                return -1;
            }
            base.faces[f][size_t(k)] = index;
        }
    }
    if (base.hasExtra != 0 && !in.skip(24)) return truncated();
    base.framesOffset = in.pos();
    return 0;
}

int readSdFrame(FILE* file, uint64_t fileSize, const SdBase& base, size_t numPositions, int frame, SdFrame& out)
{
    const int64_t range = int64_t(base.lastFrame) - int64_t(base.firstFrame);
    int64_t index = int64_t(frame) - int64_t(base.firstFrame);
    index = index < 0 ? 0 : index > range ? range : index;
    const uint64_t offset = base.framesOffset + uint64_t(index) * uint64_t(base.frameSize);

    FileCursor in(file, fileSize);
    if (offset > fileSize || !in.seek(offset)) {
        std::cout << "fseek error in loadSDFullFrameOrInterpolate()! probably no sd base read?\n";
        return -1;
    }
    if (!in.get(out.frame) || !in.getString(out.name)) return truncated();
    uint8_t fixed[48 + 12 + 12 + 12 + 12 + 72];
    if (!in.read(fixed, sizeof(fixed))) return truncated();
    float m[12];
    for (int i = 0; i < 12; ++i) m[i] = loadLE<float>(fixed + 4 * i);
    // Stored by columns; column j is floats 3j..3j+2. Into this system's axes: R' = S R S
    // with S the x/z swap, so R'[i][j] = R[s(i)][s(j)].
    auto s = [](int i) { return 2 - i; };
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) out.rotation[i * 3 + j] = double(m[3 * s(j) + s(i)]);
    float t[3], sc[3];
    for (int i = 0; i < 3; ++i) {
        t[i] = loadLE<float>(fixed + 48 + 4 * i);
        sc[i] = loadLE<float>(fixed + 72 + 4 * i);
    }
    out.translation = swapXZ(t);
    out.scale = swapXZ(sc);
    out.positions.clear();
    if (numPositions > 0) {
        const size_t n = numPositions;
        if (uint64_t(n) * 12 > in.remaining()) return truncated();
        std::vector<uint8_t> block(n * 12);
        if (!in.read(block.data(), block.size())) return truncated();
        out.positions.resize(n);
        for (size_t i = 0; i < n; ++i) {
            const float v[3] = {loadLE<float>(&block[i * 12]), loadLE<float>(&block[i * 12 + 4]),
                                loadLE<float>(&block[i * 12 + 8])};
            out.positions[i] = vertexAxes(v, base.axis);
        }
    }
    // Records of files with extra data end in 104 more bytes; frames are addressed by
    // frameSize, so they are never read.
    return 0;
}

int readSd(const std::string& path, Body& body, float frame)
{
    Object object;
    if (object.loadSDAtFrame(path, frame) != 0 || object.meshes.empty() || !object.meshes[0]) return -1;
    const ObjectMesh& mesh = *object.meshes[0];
    const double* M = mesh.xform[0];
    const bool posed = !mesh.isDeforming && !object.sdIsDeforming;

    PointData& points = *body.points;
    const size_t base = points.size();
    const size_t n = mesh.vertices.size();
    points.addAttrib("N", ATTRIB_NORMAL);
    if (object.sdIsDeforming) points.addAttrib("v", ATTRIB_VELOCITY);
    points.resizePoints(base + n);
    for (size_t i = 0; i < n; ++i) {
        const Vec4f& p = mesh.vertices[i];
        Vec4f q = p, nrm = i < mesh.normals.size() ? mesh.normals[i] : Vec4f(0.f, 0.f, 1.f, 0.f);
        if (posed) {
            q = Vec4f(float(p.x * M[0] + p.y * M[4] + p.z * M[8] + M[12]), float(p.x * M[1] + p.y * M[5] + p.z * M[9] + M[13]),
                      float(p.x * M[2] + p.y * M[6] + p.z * M[10] + M[14]), 0.f);
            Vec4f r(float(nrm.x * M[0] + nrm.y * M[4] + nrm.z * M[8]), float(nrm.x * M[1] + nrm.y * M[5] + nrm.z * M[9]),
                    float(nrm.x * M[2] + nrm.y * M[6] + nrm.z * M[10]), 0.f);
            const float len = r.length3();
            nrm = len > 0.f ? r * (1.f / len) : nrm;
        }
        points.P[base + i] = q;
        points.N[base + i] = nrm;
        if (object.sdIsDeforming && i < mesh.velocities.size()) points.v[base + i] = mesh.velocities[i];
    }
    for (const ObjectTriangle& t : mesh.triangles) {
        body.prims->addPrim(PrimData::POLYGON);
        body.vertices->addVertexList({uint32_t(base + size_t(t.v2)), uint32_t(base + size_t(t.v1)),
                                      uint32_t(base + size_t(t.v0))});
    }
    body.updateCounts();
    return 0;
}

} // namespace fileio
