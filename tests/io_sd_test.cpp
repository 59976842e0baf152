// SD geometry and the classic Object that loads it: base part and axis conversion,
// deforming frames blended with velocities, rigid poses blended through quaternions,
// the range ends, refused records, the Body form of a file, loading by extension, and
// a seeded mutation loop over small files made here.
#include "geo/body.h"
#include "io/byteio.h"
#include "io/object.h"
#include "io/sdformat.h"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include <array>
#include <cmath>
#include <fstream>
#include <random>
#include <string>
#include <vector>

namespace fs = boost::filesystem;
using namespace fileio;

namespace {

using V3 = std::array<float, 3>;

struct RigidFrame {
    float matrix[12] = {1, 0, 0, 0, 1, 0, 0, 0, 1, 0, 0, 0};  // by columns, the fourth unused
    V3 translation{0, 0, 0};
    V3 scale{1, 1, 1};
};

// Rotation about the file's y axis, stored by columns.
RigidFrame turnY(float degrees, V3 t = {0, 0, 0}, V3 s = {1, 1, 1})
{
    const float a = degrees * 3.14159265f / 180.f, c = std::cos(a), sn = std::sin(a);
    RigidFrame f;
    const float m[12] = {c, 0, -sn, 0, 1, 0, sn, 0, c, 0, 0, 0};
    std::copy(m, m + 12, f.matrix);
    f.translation = t;
    f.scale = s;
    return f;
}

struct SdRecipe {
    int32_t first = 1, last = 3;
    uint8_t axis = 2;
    uint8_t hasExtra = 0;
    bool deforming = true;
    std::vector<V3> vertices{{0, 0, 0}, {1, 0, 0}, {0, 1, 0}, {0, 0, 1}};
    std::vector<std::array<int32_t, 3>> faces{{0, 1, 2}, {0, 2, 3}};
    std::vector<std::vector<V3>> positions;   // per frame, deforming
    std::vector<RigidFrame> rigid;            // per frame, rigid
    std::vector<int32_t> storedNumbers;       // overrides the frame numbers when given
};

struct Bytes {
    std::vector<uint8_t> b;
    template <class T>
    void put(T v)
    {
        uint8_t raw[sizeof(T)];
        storeLE<T>(raw, v);
        b.insert(b.end(), raw, raw + sizeof(T));
    }
    void put3(const V3& v) { put(v[0]), put(v[1]), put(v[2]); }
    void zeros(size_t n) { b.insert(b.end(), n, 0); }
    void name(const std::string& s)
    {
        put(int32_t(s.size()));
        b.insert(b.end(), s.begin(), s.end());
    }
};

std::vector<uint8_t> makeSd(const SdRecipe& s)
{
    const size_t frames = size_t(s.last - s.first + 1);
    const std::string frameName = "obj";
    const int32_t frameSize = int32_t(8 + frameName.size() + 168 + (s.deforming ? s.vertices.size() * 12 : 0) +
                                      (s.hasExtra == 1 ? 104 : 0));
    Bytes out;
    out.zeros(83);
    storeLE<int32_t>(&out.b[38], frameSize);
    out.b[42] = s.hasExtra;
    out.b[43] = s.axis;
    storeLE<int32_t>(&out.b[75], s.first);
    storeLE<int32_t>(&out.b[79], s.last);
    out.put(uint8_t(s.deforming ? 1 : 0));
    out.put3({0.5f, 0.5f, 0.5f});
    out.name("thing");
    out.name("texture.png");
    out.put(int32_t(s.vertices.size()));
    out.put(int32_t(s.faces.size()));
    for (const V3& v : s.vertices) out.put3(v);
    for (const auto& f : s.faces) {
        out.put(f[0]), out.put(f[1]), out.put(f[2]);
        out.zeros(64 - 12);
    }
    if (s.hasExtra) out.zeros(24);
    for (size_t i = 0; i < frames; ++i) {
        const size_t start = out.b.size();
        out.put(i < s.storedNumbers.size() ? s.storedNumbers[i] : int32_t(s.first + int32_t(i)));
        out.name(frameName);
        const RigidFrame r = i < s.rigid.size() ? s.rigid[i] : RigidFrame();
        for (float m : r.matrix) out.put(m);
        out.put3(r.translation);
        out.zeros(12);
        out.put3(r.scale);
        out.zeros(12 + 72);
        if (s.deforming)
            for (size_t v = 0; v < s.vertices.size(); ++v)
                out.put3(i < s.positions.size() ? s.positions[i][v] : s.vertices[v]);
        if (s.hasExtra == 1) out.zeros(104);
        EXPECT_EQ(out.b.size() - start, size_t(frameSize));
    }
    return out.b;
}

// Three frames of a deforming tetrahedron: the first vertex climbs one unit a frame.
SdRecipe climbing()
{
    SdRecipe s;
    for (int f = 0; f < 3; ++f) {
        std::vector<V3> p = s.vertices;
        p[0] = {0, float(f), 0};
        s.positions.push_back(p);
    }
    return s;
}

void expectNear(const Vec4f& a, const Vec4f& b, float tol = 1e-5f)
{
    EXPECT_NEAR(a.x, b.x, tol);
    EXPECT_NEAR(a.y, b.y, tol);
    EXPECT_NEAR(a.z, b.z, tol);
}

Vec4f posed(const double* M, const Vec4f& p)
{
    return Vec4f(float(p.x * M[0] + p.y * M[4] + p.z * M[8] + M[12]), float(p.x * M[1] + p.y * M[5] + p.z * M[9] + M[13]),
                 float(p.x * M[2] + p.y * M[6] + p.z * M[10] + M[14]));
}

class SdTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir = fs::temp_directory_path() / fs::unique_path("qorva-sd-%%%%-%%%%");
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }
    std::string put(const std::string& name, const std::vector<uint8_t>& bytes) const
    {
        const std::string p = (dir / name).string();
        std::ofstream(p, std::ios::binary).write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
        return p;
    }
    int load(Object& o, const std::string& p, float frame, std::string& out)
    {
        testing::internal::CaptureStdout();
        const int r = o.loadSDAtFrame(p, frame);
        out = testing::internal::GetCapturedStdout();
        return r;
    }
    fs::path dir;
};

TEST_F(SdTest, BaseConvertsAxes)
{
    for (uint8_t axis : {uint8_t(2), uint8_t(0)}) {
        SdRecipe s = climbing();
        s.axis = axis;
        s.vertices[1] = {1, 2, 3};
        s.hasExtra = 1;
        const std::string p = put("b.sd", makeSd(s));
        FILE* f = std::fopen(p.c_str(), "rb");
        SdBase base;
        ASSERT_EQ(readSdBase(f, fs::file_size(p), base), 0);
        std::fclose(f);
        EXPECT_EQ(base.vertices.size(), 4u);
        EXPECT_EQ(base.vertices[1], axis == 2 ? Vec4f(1, 2, -3) : Vec4f(3, 2, 1));
        EXPECT_EQ(base.faces[1], (std::array<int32_t, 3>{0, 2, 3}));
        EXPECT_EQ(base.name, "thing");
        EXPECT_EQ(base.textureName, "texture.png");
        EXPECT_EQ(base.deforming, 1);
        EXPECT_EQ(base.firstFrame, 1);
        EXPECT_EQ(base.lastFrame, 3);
        EXPECT_EQ(base.framesOffset, 83u + 1 + 12 + 9 + 15 + 8 + 4 * 12 + 2 * 64 + 24);
    }
}

TEST_F(SdTest, DeformingFramesBlendWithVelocity)
{
    const std::string p = put("d.sd", makeSd(climbing()));
    Object o;
    std::string out;
    ASSERT_EQ(load(o, p, 1.25f, out), 0);
    EXPECT_EQ(out, "");
    ASSERT_EQ(o.meshes.size(), 1u);
    const ObjectMesh& m = *o.meshes[0];
    EXPECT_TRUE(o.sdIsDeforming);
    EXPECT_TRUE(m.isDeforming);
    EXPECT_TRUE(m.isLoaded);
    expectNear(m.vertices[0], Vec4f(0, 0.25f, 0));
    expectNear(m.velocities[0], Vec4f(0, 24.f, 0));  // one unit per frame at 24 frames a second
    expectNear(m.velocities[1], Vec4f(0, 0, 0));
    EXPECT_NEAR(m.boundMax.y, 1.f, 1e-6);
    EXPECT_EQ(m.triangles.size(), 2u);

    // Past the last frame: the last frame alone, no blend, no velocity.
    ASSERT_EQ(load(o, p, 3.5f, out), 0);
    EXPECT_FALSE(o.meshes[0]->isDeforming);
    expectNear(o.meshes[0]->vertices[0], Vec4f(0, 2, 0));
    expectNear(o.meshes[0]->velocities[0], Vec4f(0, 0, 0));
    // Before the first frame the first one stands in.
    ASSERT_EQ(load(o, p, -4.f, out), 0);
    expectNear(o.meshes[0]->vertices[0], Vec4f(0, 0, 0));
}

TEST_F(SdTest, MismatchedFrameNumberFails)
{
    SdRecipe s = climbing();
    s.storedNumbers = {1, 7, 3};
    const std::string p = put("m.sd", makeSd(s));
    Object o;
    std::string out;
    EXPECT_EQ(load(o, p, 2.f, out), -1);
    EXPECT_EQ(out, "non matching frame\nframeInt: 2..... sdFrame: 7\nSD Error...\n");
    EXPECT_EQ(load(o, p, 1.f, out), -1);  // the blend with frame 2 fails too
    EXPECT_EQ(out, "non matching frame\nframeInt: 2..... sdFrame: 7\n");
}

TEST_F(SdTest, RigidPoseBlendsTheShortWayRound)
{
    SdRecipe s;
    s.deforming = false;
    s.first = 1;
    s.last = 2;
    s.rigid = {turnY(170.f, {1, 2, 3}, {1, 1, 2}), turnY(-170.f, {3, 2, 1}, {1, 1, 2})};
    const std::string p = put("r.sd", makeSd(s));
    Object o;
    std::string out;
    ASSERT_EQ(load(o, p, 1.f, out), 0);
    const ObjectMesh& m = *o.meshes[0];
    EXPECT_FALSE(m.isDeforming);
    // x and z swap on the way in: translation (3, 2, 1), scale (2, 1, 1), and a turn
    // about y of -170 degrees.
    expectNear(o.translate, Vec4f(3, 2, 1));
    expectNear(o.scale, Vec4f(2, 1, 1));
    const float a = -170.f * 3.14159265f / 180.f;
    expectNear(posed(m.xform[0], Vec4f(0.5f, 0, 0)), Vec4f(std::cos(a) + 3, 2, -std::sin(a) + 1), 1e-4f);
    expectNear(posed(m.xform[0], Vec4f(0, 1, 0)), Vec4f(3, 3, 1), 1e-4f);

    ASSERT_EQ(load(o, p, 1.5f, out), 0);
    const ObjectMesh& h = *o.meshes[0];
    expectNear(o.translate, Vec4f(2, 2, 2));
    // Halfway between -170 and 170 the short way is 180, not 0.
    EXPECT_NEAR(h.xform[0][0], -2.0, 1e-3);
    EXPECT_NEAR(h.xform[0][10], -1.0, 1e-3);
    // The pose before this load is kept beside it.
    expectNear(posed(h.xform[1], Vec4f(0, 1, 0)), Vec4f(3, 3, 1), 1e-4f);
}

TEST_F(SdTest, BodyFormOfAFile)
{
    const std::string p = put("b.sd", makeSd(climbing()));
    Body b;
    ASSERT_EQ(readSd(p, b, 2.5f), 0);
    ASSERT_EQ(b.points->size(), 4u);
    expectNear(b.points->P[0], Vec4f(0, 1.5f, 0));
    ASSERT_TRUE(b.points->hasV);
    expectNear(b.points->v[0], Vec4f(0, 24, 0));
    ASSERT_EQ(b.prims->size(), 2u);
    EXPECT_EQ(b.vertices->indices[0], (std::vector<uint32_t>{2, 1, 0}));
    ASSERT_TRUE(b.points->hasN);
    // The file's normals agree with what the Body's own rule gives its reversed lists
    // (points 1 and 3 sit on one face each).
    Body again(b);
    again.computeNormals();
    expectNear(b.points->N[1], again.points->N[1], 2e-3f);
    expectNear(b.points->N[3], again.points->N[3], 2e-3f);
    expectNear(b.points->N[1], Vec4f(0, 0, -1), 1e-5f);  // (p1-p0) x (p2-p0) of face (0, 1, 2)

    SdRecipe s;
    s.deforming = false;
    s.first = s.last = 5;
    s.rigid = {turnY(0.f, {0, 0, 10})};
    Body r;
    ASSERT_EQ(readSd(put("r.sd", makeSd(s)), r, 5.f), 0);
    expectNear(r.points->P[1], Vec4f(11, 0, 0));  // vertex (1, 0, 0) moved by (10, 0, 0)
    EXPECT_FALSE(r.points->hasV);

    Body untouched;
    testing::internal::CaptureStdout();
    EXPECT_EQ(readSd((dir / "none.sd").string(), untouched, 1.f), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error opening the SD-file. loadSDAtFrame().\n");
    EXPECT_EQ(untouched.points->size(), 0u);
}

TEST_F(SdTest, BrokenBasesAreRefused)
{
    SdRecipe s = climbing();
    s.faces.push_back({0, 1, 4});
    Object o;
    std::string out;
    EXPECT_EQ(load(o, put("f.sd", makeSd(s)), 1.f, out), -1);
    EXPECT_NE(out.find("SD Error: face 2 uses vertex 4 of 4."), std::string::npos);

    std::vector<uint8_t> bytes = makeSd(climbing());
    const size_t counts = 83 + 1 + 12 + 9 + 15;
    storeLE<int32_t>(&bytes[counts], 0x7fffffff);  // vertex count far past the file
    Object o2;
    EXPECT_EQ(load(o2, put("v.sd", bytes), 1.f, out), -1);
    EXPECT_EQ(out, "truncated sd file.\nSD Error...\n");
    EXPECT_TRUE(o2.meshes.empty());

    bytes = makeSd(climbing());
    storeLE<int32_t>(&bytes[38], 0);  // frame size
    EXPECT_EQ(load(o2, put("z.sd", bytes), 1.f, out), -1);
    bytes = makeSd(climbing());
    storeLE<int32_t>(&bytes[79], -5);  // last frame before the first
    EXPECT_EQ(load(o2, put("l.sd", bytes), 1.f, out), -1);
}

TEST_F(SdTest, EveryTruncationFailsCleanly)
{
    const std::vector<uint8_t> full = makeSd(climbing());
    for (size_t cut = 0; cut < full.size(); ++cut) {
        Object o;
        std::string out;
        const int r = load(o, put("t.sd", std::vector<uint8_t>(full.begin(), full.begin() + long(cut))), 1.5f, out);
        // Only a file whose frames 1 and 2 are whole can load.
        if (r == 0) {
            ASSERT_GE(cut, full.size() - size_t(loadLE<int32_t>(&full[38])));
        } else {
            ASSERT_EQ(r, -1);
            ASSERT_FALSE(out.empty());
        }
    }
}

TEST_F(SdTest, LoadingByExtension)
{
    Object o;
    const std::string sd = put("g.sd", makeSd(climbing()));
    testing::internal::CaptureStdout();
    EXPECT_EQ(o.loadGeometry(sd, 2.f), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "update geometry ok.\n");
    EXPECT_EQ(o.filePath, sd);

    const std::string obj = (dir / "g.OBJ").string();
    std::ofstream(obj) << "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 3\n";
    testing::internal::CaptureStdout();
    EXPECT_EQ(o.loadGeometry(obj, 0.f), 0);
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(o.meshes.size(), 1u);
    EXPECT_EQ(o.meshes[0]->triangles.size(), 1u);
    EXPECT_FALSE(o.sdBaseLoaded);

    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(o.loadGeometry((dir / "x.prt").string(), 0.f), -1);
    EXPECT_EQ(o.loadGeometry((dir / "missing.sd").string(), 0.f), -1);
    const std::string out = testing::internal::GetCapturedStdout();
    const std::string err = testing::internal::GetCapturedStderr();
    EXPECT_NE(out.find("PRT files are not supported yet."), std::string::npos);
    size_t retries = 0;
    for (size_t at = err.find("a read error happened"); at != std::string::npos; at = err.find("a read error happened", at + 1))
        ++retries;
    EXPECT_EQ(retries, 50u);
    EXPECT_EQ(o.typeCode, kTypeObject);
}

TEST_F(SdTest, MutatedFilesNeverBreakTheReader)
{
    SdRecipe rigid;
    rigid.deforming = false;
    rigid.hasExtra = 1;
    rigid.rigid = {turnY(10.f), turnY(20.f), turnY(30.f)};
    const std::vector<std::vector<uint8_t>> seeds = {makeSd(climbing()), makeSd(rigid)};
    std::mt19937 rng(99173);
    const std::string p = (dir / "m.sd").string();
    for (int iter = 0; iter < 3000; ++iter) {
        std::vector<uint8_t> b = seeds[size_t(iter) % 2];
        const int kind = int(rng() % 4);
        if (kind == 0) {
            for (int k = 1 + int(rng() % 8); k > 0; --k) b[rng() % b.size()] ^= uint8_t(1 + rng() % 255);
        } else if (kind == 1) {
            std::vector<uint8_t> junk(1 + rng() % 64);
            for (auto& c : junk) c = uint8_t(rng());
            b.insert(b.begin() + long(rng() % b.size()), junk.begin(), junk.end());
        } else if (kind == 2) {  // a count or a length from the extremes
            const size_t fields[] = {38, 75, 79, 83 + 13, 83 + 13 + 9, 83 + 13 + 9 + 15, 83 + 13 + 9 + 15 + 4};
            const int32_t values[] = {INT32_MIN, -1, 0, 1, 3, 4, 1000, 1 << 28, INT32_MAX};
            storeLE<int32_t>(&b[fields[rng() % 7]], values[rng() % 9]);
        } else {
            b.resize(rng() % b.size());
        }
        std::ofstream(p, std::ios::binary | std::ios::trunc).write(reinterpret_cast<const char*>(b.data()), std::streamsize(b.size()));
        Object o;
        testing::internal::CaptureStdout();
        const float frame = float(int(rng() % 9) - 3) + 0.5f * float(rng() % 2);
        const int r = o.loadSDAtFrame(p, frame);
        Body body;
        const int r2 = readSd(p, body, frame);
        testing::internal::GetCapturedStdout();
        ASSERT_TRUE(r == 0 || r == -1);
        ASSERT_EQ(r, r2);
        for (const auto& mesh : o.meshes) {
            ASSERT_TRUE(mesh);
            for (const ObjectTriangle& t : mesh->triangles)
                for (int32_t v : {t.v0, t.v1, t.v2}) ASSERT_TRUE(v >= 0 && size_t(v) < mesh->vertices.size());
            ASSERT_EQ(mesh->normals.size(), mesh->vertices.size());
            ASSERT_EQ(mesh->velocities.size(), mesh->vertices.size());
        }
        for (const auto& list : body.vertices->indices)
            for (uint32_t v : list) ASSERT_LT(v, body.points->size());
    }
}

} // namespace
