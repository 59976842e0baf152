// OBJ reading and writing. The file is read in one go and handed to tinyobjloader
// through a stream over that memory; a quick pass over the same text gives the line
// warnings of this system's OBJ grammar. Every index that comes out of the parser is
// checked before it is used. Writing formats numbers with std::to_chars (shortest
// text that reads back to the same float) into a buffer flushed in large blocks.
#include "io/objformat.h"

#include <tiny_obj_loader.h>

#include <sys/stat.h>

#include <algorithm>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <iostream>
#include <istream>
#include <memory>
#include <streambuf>
#include <vector>

#include "geo/body.h"
#include "io/objectmesh.h"
#include "io/tempfile.h"

namespace fileio {

namespace {

const char* const kFaceSizeWarning =
    "Potential issue at face reading... maybe more than 4 vertices per face found. \n";

// A read-only stream buffer over a block of memory.
class MemoryBuffer : public std::streambuf {
public:
    MemoryBuffer(char* begin, char* end) { setg(begin, begin, end); }
};

// Reads the whole file; false when it doesn't open or can't be read.
bool readWholeFile(const std::string& path, std::string& text)
{
    std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path.c_str(), "rb"), &std::fclose);
    if (!file) return false;
    struct stat st;
    if (fstat(fileno(file.get()), &st) != 0 || st.st_size < 0) return false;
    text.resize(size_t(st.st_size));
    const size_t got = text.empty() ? 0 : std::fread(&text[0], 1, text.size(), file.get());
    text.resize(got);
    return true;
}

bool isBlank(char c)
{
    return c == ' ' || c == '\t';
}

// The grammar's token checks on "v", "vt" and "vn" lines: more than four values after
// the keyword is reported, once per line. Tokens of only a carriage return don't count.
void checkVertexLines(const std::string& text)
{
    const char* p = text.data();
    const char* end = p + text.size();
    while (p < end) {
        const char* eol = static_cast<const char*>(std::memchr(p, '\n', size_t(end - p)));
        if (!eol) eol = end;
        const char* q = p;
        while (q < eol && isBlank(*q)) ++q;
        if (q < eol && *q == 'v') {
            const char* keyEnd = q;
            while (keyEnd < eol && !isBlank(*keyEnd)) ++keyEnd;
            const std::string key(q, size_t(keyEnd - q));
            const char* message = nullptr;
            if (key == "v" || key == "v\r") message = "Issue in vertex reading.\n";
            else if (key == "vt" || key == "vt\r") message = "Issue in vertex texture reading.\n";
            else if (key == "vn" || key == "vn\r") message = "Issue in vertex normal reading.\n";
            if (message) {
                int tokens = 0;
                const char* t = keyEnd;
                while (t < eol) {
                    while (t < eol && isBlank(*t)) ++t;
                    const char* s = t;
                    while (t < eol && !isBlank(*t)) ++t;
                    if (t > s && !(t - s == 1 && *s == '\r')) ++tokens;
                }
                if (tokens > 4) std::cout << message;
            }
        }
        p = eol + 1;
    }
}

struct ParsedObj {
    tinyobj::attrib_t attrib;
    std::vector<tinyobj::shape_t> shapes;
};

enum ParseResult { kParsed = 0, kParseFailed = -1, kOpenFailed = -2 };

ParseResult parseObj(const std::string& path, ParsedObj& out)
{
    std::string text;
    if (!readWholeFile(path, text)) return kOpenFailed;
    checkVertexLines(text);
    MemoryBuffer buffer(&text[0], &text[0] + text.size());
    std::istream stream(&buffer);
    std::vector<tinyobj::material_t> materials;
    std::string warn, err;
    const bool ok = tinyobj::LoadObj(&out.attrib, &out.shapes, &materials, &warn, &err, &stream, nullptr,
                                     /*triangulate*/ false, /*default_vcols_fallback*/ false);
    if (!ok) {
        const size_t eol = err.find('\n');
        std::cout << "OBJ read error: " << err.substr(0, eol) << " (" << path << ")\n";
        return kParseFailed;
    }
    return kParsed;
}

// One face or line corner as the parser gives it, indices zero-based (-1: none).
struct Corner {
    int point, texcoord, normal;
};

// Walks the parsed primitives in file order per shape (faces, then lines) and calls
// face(corners, n) for each three- or four-vertex face and line(corners, n) for each
// line whose every vertex index lies below `numPoints`. Faces of other sizes and
// corners out of range are left out with one warning each per file. False when the
// face sizes don't add up to the index list (a face of more than 255 vertices).
template <class Face, class Line>
bool walkPrimitives(const ParsedObj& obj, size_t numPoints, Face&& face, Line&& line)
{
    bool warnedSize = false, warnedIndex = false;
    std::vector<Corner> corners;
    auto collect = [&](const std::vector<tinyobj::index_t>& indices, size_t offset, size_t n) {
        corners.clear();
        for (size_t k = 0; k < n; ++k) {
            const tinyobj::index_t& ix = indices[offset + k];
            if (ix.vertex_index < 0 || size_t(ix.vertex_index) >= numPoints) {
                if (!warnedIndex) std::cout << "OBJ primitive with a vertex index out of range left out.\n";
                warnedIndex = true;
                return false;
            }
            corners.push_back({ix.vertex_index, ix.texcoord_index, ix.normal_index});
        }
        return true;
    };
    for (const tinyobj::shape_t& shape : obj.shapes) {
        const auto& faceIndices = shape.mesh.indices;
        size_t offset = 0;
        for (unsigned char count : shape.mesh.num_face_vertices) {
            const size_t n = count;
            if (offset + n > faceIndices.size()) return false;
            if (n == 3 || n == 4) {
                if (collect(faceIndices, offset, n)) face(corners.data(), n);
            } else if (n >= 5 && !warnedSize) {
                std::cout << kFaceSizeWarning;
                warnedSize = true;
            }
            offset += n;
        }
        if (offset != faceIndices.size()) {
            std::cout << kFaceSizeWarning;
            return false;
        }
        const auto& lineIndices = shape.lines.indices;
        offset = 0;
        for (int count : shape.lines.num_line_vertices) {
            if (count < 0 || offset + size_t(count) > lineIndices.size()) return false;
            const size_t n = size_t(count);
            if (collect(lineIndices, offset, n)) line(corners.data(), n);
            offset += n;
        }
    }
    return true;
}

// ----------------------------------------------------------------------------- writing

class TextOut {
public:
    explicit TextOut(TempFile& file) : file_(file) { buffer_.reserve(kFlushAt + 256); }

    void text(const char* s, size_t n) { buffer_.append(s, n); maybeFlush(); }
    void text(const char* s) { text(s, std::strlen(s)); }
    void number(float f)
    {
        char tmp[32];
        const auto r = std::to_chars(tmp, tmp + sizeof(tmp), f);
        buffer_.append(tmp, size_t(r.ptr - tmp));
    }
    void number(size_t n)
    {
        char tmp[24];
        const auto r = std::to_chars(tmp, tmp + sizeof(tmp), n);
        buffer_.append(tmp, size_t(r.ptr - tmp));
    }
    void ch(char c) { buffer_.push_back(c); }
    void vectorLine(const char* key, const Vec4f& v)
    {
        buffer_.append(key);
        number(v.x);
        ch(' ');
        number(v.y);
        ch(' ');
        number(v.z);
        ch('\n');
        maybeFlush();
    }
    bool finish()
    {
        const bool ok = file_.write(buffer_.data(), buffer_.size());
        buffer_.clear();
        return ok && ok_;
    }

private:
    static constexpr size_t kFlushAt = size_t(4) << 20;
    void maybeFlush()
    {
        if (buffer_.size() < kFlushAt) return;
        ok_ = file_.write(buffer_.data(), buffer_.size()) && ok_;
        buffer_.clear();
    }
    TempFile& file_;
    std::string buffer_;
    bool ok_ = true;
};

} // namespace

int readObj(const std::string& path, Body& body, float scale)
{
    ParsedObj obj;
    if (parseObj(path, obj) != kParsed) return -1;
    const tinyobj::attrib_t& a = obj.attrib;
    const size_t numPoints = a.vertices.size() / 3;
    const size_t numNormals = a.normals.size() / 3;
    const size_t numTexcoords = a.texcoords.size() / 2;

    // Primitives first, into flat lists, so that a refused file leaves the Body alone.
    std::vector<uint32_t> kinds;
    std::vector<size_t> starts;      // first corner of each primitive
    std::vector<Corner> corners;     // in stored order (faces reversed)
    const bool ok = walkPrimitives(
        obj, numPoints,
        [&](const Corner* c, size_t n) {
            kinds.push_back(PrimData::POLYGON);
            starts.push_back(corners.size());
            for (size_t k = n; k-- > 0;) corners.push_back(c[k]);
        },
        [&](const Corner* c, size_t n) {
            kinds.push_back(PrimData::LINE);
            starts.push_back(corners.size());
            corners.insert(corners.end(), c, c + n);
        });
    if (!ok) return -1;
    starts.push_back(corners.size());

    PointData& points = *body.points;
    const size_t base = points.size();
    points.P.reserve(base + numPoints);
    for (size_t i = 0; i < numPoints; ++i)
        points.P.emplace_back(float(a.vertices[3 * i]) * scale, float(a.vertices[3 * i + 1]) * scale,
                              float(a.vertices[3 * i + 2]) * scale, 0.f);
    points.resizePoints(base + numPoints);

    const size_t firstPrim = body.prims->size();
    for (size_t p = 0; p < kinds.size(); ++p) {
        std::vector<uint32_t> list;
        list.reserve(starts[p + 1] - starts[p]);
        for (size_t c = starts[p]; c < starts[p + 1]; ++c) list.push_back(uint32_t(base + size_t(corners[c].point)));
        body.prims->addPrim(kinds[p]);
        body.vertices->addVertexList(std::move(list));
    }

    // Corners in file order: a face's stored corners backwards, a line's forwards.
    auto forEachCornerInFileOrder = [&](auto&& f) {
        for (size_t p = 0; p < kinds.size(); ++p) {
            const size_t s = starts[p], e = starts[p + 1];
            if (kinds[p] == PrimData::POLYGON)
                for (size_t c = e; c-- > s;) f(p, c - s, corners[c]);
            else
                for (size_t c = s; c < e; ++c) f(p, c - s, corners[c]);
        }
    };

    if (numNormals > 0) {
        points.addAttrib("N", ATTRIB_NORMAL);
        VecArray& N = points.N;
        forEachCornerInFileOrder([&](size_t, size_t, const Corner& c) {
            if (c.normal < 0 || size_t(c.normal) >= numNormals) return;
            const size_t k = size_t(c.normal) * 3;
            N[base + size_t(c.point)] = Vec4f(float(a.normals[k]), float(a.normals[k + 1]), float(a.normals[k + 2]), 0.f);
        });
    }
    if (numTexcoords > 0) {
        VertexData& vertices = *body.vertices;
        vertices.addAttrib("uv", PRIM_VECTOR);
        points.addAttrib("uv", ATTRIB_VECTOR);
        VecArray* pointUV = points.attribType("uv") == ATTRIB_VECTOR ? points.attribAs<VecArray>("uv") : nullptr;
        forEachCornerInFileOrder([&](size_t p, size_t j, const Corner& c) {
            Vec4f uv;
            if (c.texcoord >= 0 && size_t(c.texcoord) < numTexcoords) {
                const size_t k = size_t(c.texcoord) * 2;
                uv = Vec4f(float(a.texcoords[k]), float(a.texcoords[k + 1]), 0.f, 0.f);
            }
            vertices.uv[firstPrim + p][j] = uv;
            if (pointUV) (*pointUV)[base + size_t(c.point)] = uv;
        });
    }
    body.updateCounts();
    return 0;
}

int writeObj(const std::string& path, const Body& body)
{
    TempFile file(path);
    if (!file.isOpen()) {
        std::cout << "OBJ_WRITE - Fatal error!\n";
        std::cout << "  Could not open the output file \"" << path << "\".\n";
        return -1;
    }
    const PointData& points = *body.points;
    const VertexData& vertices = *body.vertices;
    const size_t numPrims = std::min(vertices.indices.size(), body.prims->kinds.size());

    TextOut out(file);
    out.text("# created by Qorva\n\ng default\ns 1\n");
    for (const Vec4f& p : points.P) out.vectorLine("v ", p);
    const bool hasN = points.hasN;
    if (hasN)
        for (const Vec4f& n : points.N) out.vectorLine("vn ", n);

    // Texture coordinates: a point uv wins; else the vertex uv, one per vertex.
    enum { kNoUV, kPointUV, kVertexUV } uvMode = kNoUV;
    if (points.attribType("uv") == ATTRIB_VECTOR) {
        uvMode = kPointUV;
        for (const Vec4f& uv : *points.attribAs<VecArray>("uv")) out.vectorLine("vt ", uv);
    } else if (vertices.hasUV) {
        uvMode = kVertexUV;
        for (size_t p = 0; p < numPrims; ++p) {
            const size_t n = vertices.indices[p].size();
            const std::vector<Vec4f>* uvs = p < vertices.uv.size() ? &vertices.uv[p] : nullptr;
            for (size_t j = 0; j < n; ++j)
                out.vectorLine("vt ", uvs && j < uvs->size() ? (*uvs)[j] : Vec4f());
        }
    }

    size_t vertexBase = 0;  // running index of the first vertex uv of a primitive
    for (size_t p = 0; p < numPrims; ++p) {
        const std::vector<uint32_t>& list = vertices.indices[p];
        const bool isLine = body.prims->kinds[p] == PrimData::LINE;
        const size_t n = list.size();
        out.ch(isLine ? 'l' : 'f');
        for (size_t k = 0; k < n; ++k) {
            // Faces go out in reverse order of their list, lines as they are.
            const size_t j = isLine ? k : n - 1 - k;
            const size_t pt = size_t(list[j]) + 1;
            out.ch(' ');
            out.number(pt);
            if (uvMode == kPointUV) {
                out.ch('/');
                out.number(pt);
            } else if (uvMode == kVertexUV) {
                out.ch('/');
                out.number(vertexBase + j + 1);
            }
            if (hasN && !isLine) {
                out.ch('/');
                if (uvMode == kNoUV) out.ch('/');
                out.number(pt);
            }
        }
        out.text("\n", 1);
        vertexBase += n;
    }
    if (!out.finish() || !file.commit()) {
        std::cout << "OBJ_WRITE - Fatal error!\n";
        std::cout << "  Could not write the output file \"" << path << "\".\n";
        return -1;
    }
    return 0;
}

int loadObjMesh(const std::string& path, ObjectMesh& mesh, float scale)
{
    ParsedObj obj;
    const ParseResult parsed = parseObj(path, obj);
    if (parsed == kOpenFailed) std::cout << "Error opening the OBJ-file. loadObj().\n";
    if (parsed != kParsed) return -1;
    const tinyobj::attrib_t& a = obj.attrib;
    const size_t numPoints = a.vertices.size() / 3;
    const size_t numNormals = a.normals.size() / 3;
    const size_t numTexcoords = a.texcoords.size() / 2;

    std::vector<ObjectTriangle> triangles;
    std::vector<Vec4f> normals(numPoints, Vec4f(0.f, 0.f, 0.f, 0.f));
    bool fileNormals = numNormals > 0;
    auto addTriangle = [&](const Corner& c0, const Corner& c1, const Corner& c2) {
        ObjectTriangle t;
        t.v0 = t.n0 = c0.point;
        t.v1 = t.n1 = c1.point;
        t.v2 = t.n2 = c2.point;
        auto tex = [&](int i) { return i >= 0 && size_t(i) < numTexcoords ? i : -1; };
        t.t0 = tex(c0.texcoord);
        t.t1 = tex(c1.texcoord);
        t.t2 = tex(c2.texcoord);
        triangles.push_back(t);
    };
    const bool ok = walkPrimitives(
        obj, numPoints,
        [&](const Corner* c, size_t n) {
            addTriangle(c[0], c[1], c[2]);
            if (n == 4) addTriangle(c[0], c[2], c[3]);
            if (fileNormals)
                for (size_t k = 0; k < n; ++k)
                    if (c[k].normal >= 0 && size_t(c[k].normal) < numNormals) {
                        const size_t i = size_t(c[k].normal) * 3;
                        normals[size_t(c[k].point)] =
                            Vec4f(float(a.normals[i]), float(a.normals[i + 1]), float(a.normals[i + 2]), 0.f);
                    }
        },
        [](const Corner*, size_t) {});
    if (!ok) return -1;

    mesh.vertices.resize(numPoints);
    for (size_t i = 0; i < numPoints; ++i)
        mesh.vertices[i] = Vec4f(float(a.vertices[3 * i]) * scale, float(a.vertices[3 * i + 1]) * scale,
                                 float(a.vertices[3 * i + 2]) * scale, 0.f);
    if (!fileNormals) {
        // Area-weighted face normals, counter-clockwise faces facing out.
        for (const ObjectTriangle& t : triangles) {
            const Vec4f& p0 = mesh.vertices[size_t(t.v0)];
            const Vec4f c = (mesh.vertices[size_t(t.v1)] - p0).cross3(mesh.vertices[size_t(t.v2)] - p0);
            normals[size_t(t.v0)] += c;
            normals[size_t(t.v1)] += c;
            normals[size_t(t.v2)] += c;
        }
        for (Vec4f& n : normals) {
            const float len = n.length3();
            n = len > 0.f ? n * (1.f / len) : Vec4f(0.f, 0.f, 1.f, 0.f);
        }
    }
    mesh.normals = std::move(normals);
    mesh.velocities.assign(numPoints, Vec4f());
    mesh.uvs.resize(numTexcoords);
    for (size_t i = 0; i < numTexcoords; ++i)
        mesh.uvs[i] = Vec4f(float(a.texcoords[2 * i]), float(a.texcoords[2 * i + 1]), 0.f, 0.f);
    mesh.triangles = std::move(triangles);
    mesh.computeBounds();
    mesh.isDeforming = false;
    mesh.isLoaded = true;
    return 0;
}

} // namespace fileio
