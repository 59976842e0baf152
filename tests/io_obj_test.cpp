// OBJ geometry: the text the writer produces for each combination of normals and
// texture coordinates, face order through a write and a read, negative indices, the
// grammar's warnings, scale, the classic triangle loader, and a seeded mutation loop
// over small files that must never crash the reader or leave a bad index behind.
#include "geo/body.h"
#include "io/objectmesh.h"
#include "io/objformat.h"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include <fstream>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace fs = boost::filesystem;
using namespace fileio;

namespace {

size_t countOf(const std::string& text, const std::string& what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) ++n;
    return n;
}

std::string slurp(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    std::stringstream s;
    s << in.rdbuf();
    return s.str();
}

void addPrim(Body& b, uint32_t kind, std::vector<uint32_t> list)
{
    b.prims->addPrim(kind);
    b.vertices->addVertexList(std::move(list));
}

// Four points, a triangle, a quad over them and a line.
Body smallMesh()
{
    Body b;
    b.points->addPoint(Vec4f(0, 0, 0));
    b.points->addPoint(Vec4f(1, 0, 0));
    b.points->addPoint(Vec4f(1, 1, 0.5f));
    b.points->addPoint(Vec4f(0, 1, -0.25f));
    addPrim(b, PrimData::POLYGON, {0, 1, 2});
    addPrim(b, PrimData::POLYGON, {0, 2, 3, 1});
    addPrim(b, PrimData::LINE, {3, 0, 2});
    b.updateCounts();
    return b;
}

// Every primitive's indices below the point count and every array in step.
void expectConsistent(const Body& b)
{
    const size_t n = b.points->size();
    for (size_t i = 0; i < b.points->numAttribs(); ++i) {
        withPointArray(b.points->types[i], b.points->pointers[i], [&](auto& a, const auto&) { ASSERT_EQ(a.size(), n); });
    }
    ASSERT_EQ(b.vertices->indices.size(), b.prims->size());
    for (size_t p = 0; p < b.vertices->indices.size(); ++p) {
        for (uint32_t i : b.vertices->indices[p]) ASSERT_LT(i, n);
        if (b.vertices->hasUV) {
            ASSERT_EQ(b.vertices->uv[p].size(), b.vertices->indices[p].size());
        }
    }
}

class ObjTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir = fs::temp_directory_path() / fs::unique_path("qorva-obj-%%%%-%%%%");
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }
    std::string path(const std::string& name) const { return (dir / name).string(); }
    std::string put(const std::string& name, const std::string& text) const
    {
        std::ofstream(path(name), std::ios::binary) << text;
        return path(name);
    }
    // readObj with its printed lines.
    int read(const std::string& p, Body& b, std::string& out, float scale = 1.f) const
    {
        testing::internal::CaptureStdout();
        const int r = readObj(p, b, scale);
        out = testing::internal::GetCapturedStdout();
        return r;
    }
    fs::path dir;
};

// ---------------------------------------------------------------- writing

TEST_F(ObjTest, PlainMeshText)
{
    ASSERT_EQ(writeObj(path("m.obj"), smallMesh()), 0);
    EXPECT_EQ(slurp(path("m.obj")),
              "# created by Qorva\n\ng default\ns 1\n"
              "v 0 0 0\nv 1 0 0\nv 1 1 0.5\nv 0 1 -0.25\n"
              "f 3 2 1\n"
              "f 2 4 3 1\n"
              "l 4 1 3\n");
}

TEST_F(ObjTest, NormalsAndPointUVText)
{
    Body b = smallMesh();
    b.points->addAttrib("N", ATTRIB_NORMAL);
    b.points->addAttrib("uv", ATTRIB_VECTOR);
    (*b.points->attribAs<VecArray>("uv"))[1] = Vec4f(0.5f, 0.25f, 0);
    ASSERT_EQ(writeObj(path("n.obj"), b), 0);
    const std::string t = slurp(path("n.obj"));
    EXPECT_EQ(countOf(t, "vn 0 0 1\n"), 4u);
    EXPECT_EQ(countOf(t, "vt "), 4u);
    EXPECT_NE(t.find("vt 0.5 0.25 0\n"), std::string::npos);
    EXPECT_NE(t.find("f 3/3/3 2/2/2 1/1/1\n"), std::string::npos);
    EXPECT_NE(t.find("l 4/4 1/1 3/3\n"), std::string::npos);

    b.points->removeAttrib("uv");
    ASSERT_EQ(writeObj(path("n2.obj"), b), 0);
    EXPECT_NE(slurp(path("n2.obj")).find("f 3//3 2//2 1//1\n"), std::string::npos);
}

TEST_F(ObjTest, VertexUVRunsOverAllVertices)
{
    Body b = smallMesh();
    b.vertices->addAttrib("uv", PRIM_VECTOR);
    b.vertices->uv[1][0] = Vec4f(0.75f, 0.5f, 0);
    ASSERT_EQ(writeObj(path("u.obj"), b), 0);
    std::string t = slurp(path("u.obj"));
    EXPECT_EQ(countOf(t, "vt "), 10u);  // 3 + 4 + 3 vertices
    EXPECT_NE(t.find("f 3/3 2/2 1/1\n"), std::string::npos);
    EXPECT_NE(t.find("f 2/7 4/6 3/5 1/4\n"), std::string::npos);  // running t, counted backwards
    EXPECT_NE(t.find("l 4/8 1/9 3/10\n"), std::string::npos);

    b.points->addAttrib("N", ATTRIB_NORMAL);
    ASSERT_EQ(writeObj(path("u2.obj"), b), 0);
    t = slurp(path("u2.obj"));
    EXPECT_NE(t.find("f 2/7/2 4/6/4 3/5/3 1/4/1\n"), std::string::npos);
}

TEST_F(ObjTest, UnwritablePathSaysSo)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(writeObj(path("no/such/folder/x.obj"), smallMesh()), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "OBJ_WRITE - Fatal error!\n  Could not open the output file \"" + path("no/such/folder/x.obj") + "\".\n");
}

// ---------------------------------------------------------------- reading

TEST_F(ObjTest, FacesAreReversedAndLinesKeptInOrder)
{
    const std::string p = put("f.obj", "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nf 1 2 3\nf 1 2 3 4\nl 4 1 2\n");
    Body b;
    std::string out;
    ASSERT_EQ(read(p, b, out), 0);
    EXPECT_EQ(out, "");
    ASSERT_EQ(b.prims->size(), 3u);
    EXPECT_EQ(b.vertices->indices[0], (std::vector<uint32_t>{2, 1, 0}));
    EXPECT_EQ(b.vertices->indices[1], (std::vector<uint32_t>{3, 2, 1, 0}));
    EXPECT_EQ(b.vertices->indices[2], (std::vector<uint32_t>{3, 0, 1}));
    EXPECT_EQ(b.prims->kinds[0], PrimData::POLYGON);
    EXPECT_EQ(b.prims->kinds[2], PrimData::LINE);
    EXPECT_EQ(b.numVertices, 10u);
    EXPECT_FALSE(b.points->hasN);
    EXPECT_FALSE(b.vertices->hasUV);
    expectConsistent(b);
}

TEST_F(ObjTest, RoundTripKeepsPointsAndFaceOrder)
{
    Body b = smallMesh();
    b.points->addAttrib("N", ATTRIB_NORMAL);
    b.points->N[2] = Vec4f(0, 1, 0);
    b.points->addAttrib("uv", ATTRIB_VECTOR);
    (*b.points->attribAs<VecArray>("uv"))[3] = Vec4f(0.125f, 0.875f, 0);
    b.points->P[1] = Vec4f(0.1f, 1e-7f, 12345.678f);
    ASSERT_EQ(writeObj(path("rt.obj"), b), 0);
    Body r;
    std::string out;
    ASSERT_EQ(read(path("rt.obj"), r, out), 0);
    ASSERT_EQ(r.points->size(), 4u);
    for (size_t i = 0; i < 4; ++i) EXPECT_EQ(r.points->P[i], b.points->P[i]) << i;  // exact
    ASSERT_EQ(r.prims->size(), 3u);
    for (size_t p = 0; p < 3; ++p) {
        EXPECT_EQ(r.vertices->indices[p], b.vertices->indices[p]) << p;
        EXPECT_EQ(r.prims->kinds[p], b.prims->kinds[p]);
    }
    ASSERT_TRUE(r.points->hasN);
    EXPECT_EQ(r.points->attribType("N"), ATTRIB_NORMAL);
    EXPECT_EQ(r.points->N[2], Vec4f(0, 1, 0));
    EXPECT_EQ(r.points->N[0], Vec4f(0, 0, 1));
    ASSERT_EQ(r.points->attribType("uv"), ATTRIB_VECTOR);
    EXPECT_EQ((*r.points->attribAs<VecArray>("uv"))[3], Vec4f(0.125f, 0.875f, 0));
    ASSERT_TRUE(r.vertices->hasUV);
    EXPECT_EQ(r.vertices->uv[1][2], Vec4f(0.125f, 0.875f, 0));  // corner 2 of {0, 2, 3, 1} is point 3
    EXPECT_EQ(r.vertices->uv[1][3], Vec4f(0, 0, 0));
    expectConsistent(r);
}

TEST_F(ObjTest, ScaleMultipliesPositionsOnly)
{
    const std::string p = put("s.obj", "v 1 2 3\nv 2 2 2\nv 0 1 0\nvn 0 1 0\nf 1//1 2//1 3//1\n");
    Body b;
    std::string out;
    ASSERT_EQ(read(p, b, out, 0.5f), 0);
    EXPECT_EQ(b.points->P[0], Vec4f(0.5f, 1.f, 1.5f));
    EXPECT_EQ(b.points->N[0], Vec4f(0, 1, 0));
}

TEST_F(ObjTest, NegativeIndicesCountBackFromWhatWasRead)
{
    const std::string p = put("neg.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf -3 -2 -1\nv 5 5 5\nf -4 -3 -1\n");
    Body b;
    std::string out;
    ASSERT_EQ(read(p, b, out), 0);
    ASSERT_EQ(b.prims->size(), 2u);
    EXPECT_EQ(b.vertices->indices[0], (std::vector<uint32_t>{2, 1, 0}));
    EXPECT_EQ(b.vertices->indices[1], (std::vector<uint32_t>{3, 1, 0}));
}

TEST_F(ObjTest, NormalsAndUVsFollowTheCorners)
{
    const std::string p = put("c.obj",
                              "v 0 0 0\nv 1 0 0\nv 0 1 0\nv 1 1 0\n"
                              "vt 0 0\nvt 1 0\nvt 0 1\nvt 0.5 0.5\n"
                              "vn 0 0 1\nvn 0 0 -1\n"
                              "f 1/1/1 2/2/1 3/3/1\n"
                              "f 2/4/2 4/2/2 3/3/2\n");
    Body b;
    std::string out;
    ASSERT_EQ(read(p, b, out), 0);
    // The last corner that used a point wins.
    EXPECT_EQ(b.points->N[0], Vec4f(0, 0, 1));
    EXPECT_EQ(b.points->N[1], Vec4f(0, 0, -1));
    const VecArray& puv = *b.points->attribAs<VecArray>("uv");
    EXPECT_EQ(puv[1], Vec4f(0.5f, 0.5f, 0));
    EXPECT_EQ(puv[0], Vec4f(0, 0, 0));
    EXPECT_EQ(puv[2], Vec4f(0, 1, 0));
    // Vertex uv follows the reversed list: stored corner 0 is the file's last corner.
    EXPECT_EQ(b.vertices->uv[1][0], Vec4f(0, 1, 0));
    EXPECT_EQ(b.vertices->uv[1][2], Vec4f(0.5f, 0.5f, 0));
    EXPECT_EQ(b.vertices->uv[0][2], Vec4f(0, 0, 0));
    expectConsistent(b);
}

TEST_F(ObjTest, FiveVertexFacesWarnOncePerFileAndAreLeftOut)
{
    const std::string p = put("five.obj",
                              "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nv 0 2 0\n"
                              "f 1 2 3 4 5\nf 1 2 3\nf 5 4 3 2 1\n");
    Body b;
    std::string out;
    ASSERT_EQ(read(p, b, out), 0);
    EXPECT_EQ(countOf(out, "Potential issue at face reading... maybe more than 4 vertices per face found. \n"), 1u);
    EXPECT_EQ(b.prims->size(), 1u);
}

TEST_F(ObjTest, LongVertexLinesWarn)
{
    const std::string p = put("long.obj", "v 1 2 3 4 5\r\nv 1 2 3 4\r\nvt 1 2 3 4 5\nvn 1 2 3 4 5 6\n\tv 1 2 3\t4 5\n");
    Body b;
    std::string out;
    ASSERT_EQ(read(p, b, out), 0);
    EXPECT_EQ(countOf(out, "Issue in vertex reading.\n"), 2u);
    EXPECT_EQ(countOf(out, "Issue in vertex texture reading.\n"), 1u);
    EXPECT_EQ(countOf(out, "Issue in vertex normal reading.\n"), 1u);
}

TEST_F(ObjTest, BrokenFilesFailOrSkipWithoutTouchingTheBody)
{
    Body b;
    b.points->addPoint(Vec4f(7, 7, 7));
    std::string out;
    // A zero index is refused by the parser: nothing changes.
    EXPECT_EQ(read(put("zero.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 0 1 2\n"), b, out), -1);
    EXPECT_NE(out.find("OBJ read error"), std::string::npos);
    EXPECT_EQ(b.points->size(), 1u);
    EXPECT_EQ(b.prims->size(), 0u);
    // A missing file fails quietly (the dispatcher's retry reports it).
    EXPECT_EQ(read(path("missing.obj"), b, out), -1);
    EXPECT_EQ(out, "");
    // Out-of-range and too-negative indices leave their face out.
    EXPECT_EQ(read(put("range.obj", "v 0 0 0\nv 1 0 0\nv 0 1 0\nf 1 2 9\nf -7 1 2\nf 1 2 3\nl 1 99\n"), b, out), 0);
    EXPECT_EQ(b.points->size(), 4u);
    ASSERT_EQ(b.prims->size(), 1u);
    EXPECT_EQ(b.vertices->indices[0], (std::vector<uint32_t>{3, 2, 1}));  // offset by the point already there
    EXPECT_EQ(countOf(out, "out of range"), 1u);
    expectConsistent(b);
    // Empty and garbage files give an empty result.
    Body e;
    EXPECT_EQ(read(put("empty.obj", ""), e, out), 0);
    EXPECT_EQ(e.points->size(), 0u);
    EXPECT_EQ(read(put("junk.obj", "\x01\x02 hello\n\n\r\n# only comments\nvx 1 2\n"), e, out), 0);
    EXPECT_EQ(e.points->size(), 0u);
}

// ---------------------------------------------------------------- classic loader

TEST_F(ObjTest, ClassicLoaderCutsQuadsInFileOrder)
{
    const std::string p = put("cl.obj", "v 0 0 0\nv 2 0 0\nv 2 2 0\nv 0 2 0\nvt 0 0\nf 1/1 2/1 3/1 4/1\n");
    ObjectMesh m;
    ASSERT_EQ(loadObjMesh(p, m, 0.5f), 0);
    ASSERT_EQ(m.triangles.size(), 2u);
    EXPECT_EQ(m.triangles[0].v0, 0);
    EXPECT_EQ(m.triangles[0].v1, 1);
    EXPECT_EQ(m.triangles[0].v2, 2);
    EXPECT_EQ(m.triangles[1].v0, 0);
    EXPECT_EQ(m.triangles[1].v1, 2);
    EXPECT_EQ(m.triangles[1].v2, 3);
    EXPECT_EQ(m.triangles[1].n2, 3);
    EXPECT_EQ(m.triangles[1].t2, 0);
    EXPECT_EQ(m.vertices[2], Vec4f(1, 1, 0));
    EXPECT_EQ(m.normals[0], Vec4f(0, 0, 1));  // counter-clockwise in the file faces +z
    EXPECT_EQ(m.velocities.size(), 4u);
    EXPECT_EQ(m.boundMax.x, 1.f);
    EXPECT_TRUE(m.isLoaded);

    testing::internal::CaptureStdout();
    EXPECT_EQ(loadObjMesh(path("none.obj"), m), -1);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Error opening the OBJ-file. loadObj().\n");
}

// ---------------------------------------------------------------- mutation loop

TEST_F(ObjTest, MutatedFilesNeverBreakTheReaders)
{
    const std::string seed =
        "# seed\nmtllib none.mtl\no thing\ng a b\ns 1\n"
        "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 1.5e2\nv -1 -1 -1\n"
        "vt 0 0\nvt 1 0\nvt 1 1\nvn 0 0 1\nvn 1 0 0\n"
        "f 1/1/1 2/2/1 3/3/2\nf 1//1 3//2 4//1 5//2\nf -1 -2 -3\nf 1/1 2/2 3/3 4/1 5/2\n"
        "usemtl x\nl 1 2 3 4\nl -1 -2\np 1\nf 4 5 1\n";
    const char alphabet[] = "0123456789 /-.e\n\r\tvftnlwpgo#\0xX+";
    std::mt19937 rng(77031);
    const std::string p = path("m.obj");
    auto check = [&](const std::string& text) {
        put("m.obj", text);
        Body b;
        b.points->addPoint(Vec4f(1, 1, 1));
        std::string out;
        const int r = read(p, b, out, 2.f);
        ASSERT_TRUE(r == 0 || r == -1) << text;
        if (r == -1) {
            ASSERT_EQ(b.points->size(), 1u);
            ASSERT_EQ(b.prims->size(), 0u);
        }
        expectConsistent(b);
        ObjectMesh m;
        testing::internal::CaptureStdout();
        const int r2 = loadObjMesh(p, m);
        testing::internal::GetCapturedStdout();
        ASSERT_EQ(r, r2);
        for (const ObjectTriangle& t : m.triangles) {
            for (int32_t v : {t.v0, t.v1, t.v2}) {
                ASSERT_GE(v, 0);
                ASSERT_LT(size_t(v), m.vertices.size());
            }
            for (int32_t v : {t.t0, t.t1, t.t2}) ASSERT_LT(v < 0 ? 0 : size_t(v), std::max<size_t>(m.uvs.size(), 1));
        }
        ASSERT_EQ(m.normals.size(), m.vertices.size());
    };
    for (size_t cut = 0; cut <= seed.size(); ++cut) check(seed.substr(0, cut));
    for (int iter = 0; iter < 1500; ++iter) {
        std::string t = seed;
        const int kind = int(rng() % 5);
        if (kind == 0) {
            for (int k = 1 + int(rng() % 6); k > 0; --k) t[rng() % t.size()] = alphabet[rng() % (sizeof(alphabet) - 1)];
        } else if (kind == 1) {
            std::string junk(1 + rng() % 40, ' ');
            for (char& c : junk) c = char(rng() % 256);
            t.insert(rng() % (t.size() + 1), junk);
        } else if (kind == 2) {
            const char* lines[] = {"f 2147483647 1 2\n", "f -2147483648 1 2\n", "v 1e39 -1e39 nan\n", "vt inf\n",
                                   "f 1/99/99 2/-99/1 3/1/-99\n", "l 1\n", "f 1 2\n", "f 1 1 1 1\n",
                                   "v 123456789012345678901234567890 0 0\n", "f 1/ 2/ 3/\n", "f //1 //2 //3\n"};
            t.insert(t.find('\n', rng() % t.size()) + 1, lines[rng() % 11]);
        } else if (kind == 3) {
            t.resize(rng() % t.size());
            if (!t.empty()) t[rng() % t.size()] = alphabet[rng() % (sizeof(alphabet) - 1)];
        } else {
            const size_t a = rng() % t.size(), n = rng() % 40;
            t.insert(rng() % t.size(), t.substr(a, n));
        }
        check(t);
        if (HasFatalFailure()) return;
    }
}

} // namespace
