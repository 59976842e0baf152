// Primitives of a Body: vertex and primitive attribute rules, appendMesh,
// normals, reversed winding, per-point primitive lists and vertex counters.
// Each case is named for the fault it would catch.
#include <gtest/gtest.h>

#include <cmath>
#include <vector>

#include "geo/body.h"

namespace {

void addPrim(Body& b, uint32_t kind, std::vector<uint32_t> list)
{
    b.prims->addPrim(kind);
    b.vertices->addVertexList(std::move(list));
}

void addPoints(Body& b, const std::vector<Vec4f>& ps)
{
    for (const Vec4f& p : ps) b.points->addPoint(p);
}

void expectNear(const Vec4f& a, const Vec4f& b, float tol = 2e-3f)
{
    EXPECT_NEAR(a.x, b.x, tol);
    EXPECT_NEAR(a.y, b.y, tol);
    EXPECT_NEAR(a.z, b.z, tol);
}

class MeshTest : public ::testing::Test {
protected:
    // A triangle (points 0-2) and, in `quad`, a unit quad (points 0-3), both in z = 0.
    void SetUp() override
    {
        addPoints(tri, {Vec4f(0, 0, 0), Vec4f(1, 0, 0), Vec4f(0, 1, 0)});
        addPrim(tri, PrimData::POLYGON, {0, 1, 2});
        addPoints(quad, {Vec4f(0, 0, 0), Vec4f(0, 1, 0), Vec4f(1, 1, 0), Vec4f(1, 0, 0)});
        addPrim(quad, PrimData::POLYGON, {0, 1, 2, 3});
    }
    Body tri, quad;
};

// ---------------------------------------------------------------- attribute rules

TEST_F(MeshTest, VertexBuiltInsRejectOtherTypes)
{
    EXPECT_EQ(tri.vertices->addAttrib("uv", PRIM_NORMAL), -1);
    EXPECT_EQ(tri.vertices->addAttrib("N", PRIM_VECTOR), -1);
    EXPECT_FALSE(tri.vertices->hasUV || tri.vertices->hasN);
    EXPECT_TRUE(tri.vertices->names.empty());
    EXPECT_EQ(tri.vertices->addAttrib("uv", PRIM_VECTOR), 1);
    EXPECT_EQ(tri.vertices->addAttrib("N", PRIM_NORMAL), 1);
    EXPECT_EQ(tri.vertices->addAttrib("N", PRIM_NORMAL), 0);
    EXPECT_EQ(tri.vertices->attrib("uv"), &tri.vertices->uv);
    ASSERT_EQ(tri.vertices->N.size(), 1u);
    EXPECT_EQ(tri.vertices->N[0], std::vector<Vec4f>(3, Vec4f(0, 0, 1, 0)));
    EXPECT_EQ(tri.vertices->uv[0], std::vector<Vec4f>(3, Vec4f()));
}

TEST_F(MeshTest, NewVertexAttributeIsShapedPerPrimitive)
{
    addPrim(tri, PrimData::LINE, {0, 1});
    EXPECT_EQ(tri.vertices->addAttrib("w", PRIM_FLOAT), 1);
    EXPECT_EQ(tri.vertices->addAttrib("sel", PRIM_BOOL), 1);
    EXPECT_EQ(tri.vertices->addAttrib("bad", 8), -1);
    const auto& w = *tri.vertices->attribAs<std::vector<FloatArray>>("w");
    ASSERT_EQ(w.size(), 2u);
    EXPECT_EQ(w[0].size(), 3u);
    EXPECT_EQ(w[1].size(), 2u);
    const auto& sel = *tri.vertices->attribAs<std::vector<BitArray>>("sel");
    EXPECT_EQ(sel[1].size(), 2u);
    EXPECT_EQ(tri.vertices->names, (std::vector<std::string>{"sel", "w"}));
}

TEST_F(MeshTest, PrimAttributesUsePrimNumberingForDefaults)
{
    EXPECT_EQ(tri.prims->addAttrib("col", PRIM_COLOR), 1);
    EXPECT_EQ(tri.prims->addAttrib("nrm", PRIM_NORMAL), 1);
    EXPECT_EQ(tri.prims->addAttrib("name", PRIM_STRING), 1);
    EXPECT_EQ(tri.prims->addAttrib("nrm", PRIM_INT), 0);
    EXPECT_EQ(tri.prims->attribType("nrm"), PRIM_NORMAL);
    EXPECT_EQ(tri.prims->addPrim(PrimData::LINE), 2);
    EXPECT_EQ(*tri.prims->attribAs<VecArray>("col"), VecArray(2, Vec4f(1, 1, 1, 0)));
    EXPECT_EQ(*tri.prims->attribAs<VecArray>("nrm"), VecArray(2, Vec4f(0, 0, 1, 0)));
    EXPECT_EQ(tri.prims->attribAs<StringArray>("name")->size(), 2u);
    EXPECT_EQ(tri.prims->removeAttrib("col"), 0);
    EXPECT_EQ(tri.prims->removeAttrib("col"), -1);
    EXPECT_EQ(tri.prims->attribName(2), "__internal_exceed__");
}

// ---------------------------------------------------------------- appendMesh

TEST_F(MeshTest, AppendMeshOffsetsIndicesAndKeepsKinds)
{
    addPoints(quad, {Vec4f(5, 5, 5)});
    addPrim(quad, PrimData::LINE, {3, 4});
    tri.appendMesh(quad);
    EXPECT_EQ(tri.points->size(), 8u);
    EXPECT_EQ(tri.points->P[7], Vec4f(5, 5, 5));
    ASSERT_EQ(tri.prims->size(), 3u);
    EXPECT_EQ(tri.prims->kinds, (std::vector<uint32_t>{0, 0, 1}));
    ASSERT_EQ(tri.vertices->size(), 3u);
    EXPECT_EQ(tri.vertices->indices[0], (std::vector<uint32_t>{0, 1, 2}));
    EXPECT_EQ(tri.vertices->indices[1], (std::vector<uint32_t>{3, 4, 5, 6}));
    EXPECT_EQ(tri.vertices->indices[2], (std::vector<uint32_t>{6, 7}));
    EXPECT_EQ(tri.numVertices, 9u);
    EXPECT_EQ(tri.numLineVertices, 2u);
}

TEST_F(MeshTest, AppendMeshGivesIntVertexAttribsZeroPerNewVertex)
{
    tri.vertices->addAttrib("vid", PRIM_INT);
    (*tri.vertices->attribAs<std::vector<IntArray>>("vid"))[0] = {7, 8, 9};
    tri.vertices->addAttrib("uv", PRIM_VECTOR);
    tri.appendMesh(quad);
    const auto& vid = *tri.vertices->attribAs<std::vector<IntArray>>("vid");
    ASSERT_EQ(vid.size(), 2u);
    EXPECT_EQ(vid[0], (IntArray{7, 8, 9}));
    EXPECT_EQ(vid[1], IntArray(4, 0));
    // Other vertex attributes also cover the new primitive, at their defaults.
    ASSERT_EQ(tri.vertices->uv.size(), 2u);
    EXPECT_EQ(tri.vertices->uv[1], std::vector<Vec4f>(4, Vec4f()));
}

TEST_F(MeshTest, AppendMeshLeavesOtherSideAttributesAndConstraintsBehind)
{
    quad.prims->addAttrib("group", PRIM_INT);
    quad.vertices->addAttrib("w", PRIM_FLOAT);
    quad.edgeConstraints.push_back(ConstraintRecord{0, 1, 1, 1, 1, 0, 0, 0, 0});
    tri.prims->addAttrib("col", PRIM_COLOR);
    tri.appendMesh(quad);
    EXPECT_FALSE(tri.prims->hasAttrib("group"));
    EXPECT_FALSE(tri.vertices->hasAttrib("w"));
    EXPECT_TRUE(tri.edgeConstraints.empty());
    EXPECT_EQ(quad.edgeConstraints.size(), 1u);
    EXPECT_EQ(*tri.prims->attribAs<VecArray>("col"), VecArray(2, Vec4f(1, 1, 1, 0)));
}

TEST_F(MeshTest, AppendMeshMergesPointAttributes)
{
    quad.points->addAttrib("Cd", ATTRIB_COLOR);
    quad.points->Cd[0] = Vec4f(1, 0, 0);
    tri.appendMesh(quad);
    ASSERT_TRUE(tri.points->hasCd);
    EXPECT_EQ(tri.points->Cd[0], Vec4f(1, 1, 1, 0));
    EXPECT_EQ(tri.points->Cd[3], Vec4f(1, 0, 0));
}

TEST_F(MeshTest, AppendMeshToItselfDuplicatesWithOffset)
{
    tri.appendMesh(tri);
    EXPECT_EQ(tri.points->size(), 6u);
    ASSERT_EQ(tri.vertices->size(), 2u);
    EXPECT_EQ(tri.vertices->indices[1], (std::vector<uint32_t>{3, 4, 5}));
}

// ---------------------------------------------------------------- normals

TEST_F(MeshTest, TriangleNormalFollowsP2MinusP0CrossP1MinusP0)
{
    tri.computeNormals(false);
    ASSERT_TRUE(tri.points->hasN);
    ASSERT_EQ(tri.points->N.size(), 3u);
    // (0,1,0) x (1,0,0) = (0,0,-1): counter-clockwise seen from +z faces -z.
    for (const Vec4f& n : tri.points->N) expectNear(n, Vec4f(0, 0, -1));
    tri.computeNormals(true);
    for (const Vec4f& n : tri.points->N) expectNear(n, Vec4f(0, 0, 1));
}

TEST_F(MeshTest, QuadGivesFirstThreeCornersNormalToAllFourPoints)
{
    quad.points->P[3] = Vec4f(1, 0, 5); // not planar: the fourth corner must not count
    quad.computeNormals(false);
    // (1,1,0) x (0,1,0) = (0,0,1)
    for (const Vec4f& n : quad.points->N) expectNear(n, Vec4f(0, 0, 1));
}

TEST_F(MeshTest, ExistingNormalsAreResetAndUnusedPointsStayZero)
{
    addPoints(tri, {Vec4f(3, 3, 3)});
    tri.points->addAttrib("N", ATTRIB_NORMAL);
    for (Vec4f& n : tri.points->N) n = Vec4f(5, 5, 5);
    tri.computeNormals(false);
    expectNear(tri.points->N[0], Vec4f(0, 0, -1));
    EXPECT_EQ(tri.points->N[3], Vec4f());
}

TEST_F(MeshTest, LargerFacesWeighMoreInSharedPoints)
{
    Body b;
    // Point 0 is shared by a big triangle facing -z and a small one facing +x.
    addPoints(b, {Vec4f(0, 0, 0), Vec4f(4, 0, 0), Vec4f(0, 4, 0), Vec4f(0, 0, 1), Vec4f(0, 1, 0)});
    addPrim(b, PrimData::POLYGON, {0, 1, 2}); // cross (0,4,0)x(4,0,0) = (0,0,-16)
    addPrim(b, PrimData::POLYGON, {0, 3, 4}); // cross (0,1,0)x(0,0,1) = (1,0,0)
    b.computeNormals(false);
    const float len = std::sqrt(16.f * 16.f + 1.f);
    expectNear(b.points->N[0], Vec4f(1 / len, 0, -16 / len));
}

TEST_F(MeshTest, OnlyTrianglesAndQuadsContribute)
{
    Body b;
    addPoints(b, {Vec4f(0, 0, 0), Vec4f(1, 0, 0), Vec4f(1, 1, 0), Vec4f(0.5f, 2, 0), Vec4f(0, 1, 0)});
    addPrim(b, PrimData::POLYGON, {0, 1, 2, 3, 4});
    addPrim(b, PrimData::LINE, {0, 1});
    b.computeNormals(false);
    for (const Vec4f& n : b.points->N) EXPECT_EQ(n, Vec4f());
}

TEST_F(MeshTest, NormalsIntoCallerArraysAreNormalisedPerPrimAndPoint)
{
    addPoints(tri, {Vec4f(0, 0, 5), Vec4f(0, 3, 5)});
    addPrim(tri, PrimData::LINE, {3, 4});
    VecArray pointN(1, Vec4f(9, 9, 9)), primN;
    tri.computeNormalsInto(pointN, primN);
    ASSERT_EQ(primN.size(), 2u);
    ASSERT_EQ(pointN.size(), 5u);
    expectNear(primN[0], Vec4f(0, 0, -1));
    EXPECT_EQ(primN[1], Vec4f());
    expectNear(pointN[2], Vec4f(0, 0, -1));
    EXPECT_EQ(pointN[3], Vec4f());
    EXPECT_FALSE(tri.points->hasN); // the Body itself is untouched
}

// ---------------------------------------------------------------- winding and point prims

TEST_F(MeshTest, ReversePrimsReversesIndicesAndVertexAttribs)
{
    quad.vertices->addAttrib("uv", PRIM_VECTOR);
    quad.vertices->addAttrib("sel", PRIM_BOOL);
    for (uint32_t i = 0; i < 4; ++i) quad.vertices->uv[0][i] = Vec4f(float(i), 0, 0);
    (*quad.vertices->attribAs<std::vector<BitArray>>("sel"))[0].set(0, true);
    quad.appendMesh(tri);
    quad.reversePrims();
    EXPECT_EQ(quad.vertices->indices[0], (std::vector<uint32_t>{3, 2, 1, 0}));
    EXPECT_EQ(quad.vertices->indices[1], (std::vector<uint32_t>{6, 5, 4}));
    EXPECT_EQ(quad.vertices->uv[0][0], Vec4f(3, 0, 0));
    EXPECT_EQ(quad.vertices->uv[0][3], Vec4f(0, 0, 0));
    const BitArray& sel = (*quad.vertices->attribAs<std::vector<BitArray>>("sel"))[0];
    EXPECT_TRUE(sel.get(3));
    EXPECT_FALSE(sel.get(0));
    // Reversed winding flips the computed normals.
    quad.computeNormals(false);
    expectNear(quad.points->N[0], Vec4f(0, 0, -1));
}

TEST_F(MeshTest, RebuildPointPrimsListsEveryUsingPrimOnce)
{
    addPoints(tri, {Vec4f(1, 1, 0), Vec4f(7, 7, 7)});
    addPrim(tri, PrimData::POLYGON, {1, 3, 2});
    tri.rebuildPointPrims();
    tri.rebuildPointPrims(); // no duplicates from a second run
    ASSERT_EQ(tri.pointPrims.size(), 5u);
    EXPECT_EQ(tri.pointPrims[0], std::vector<int32_t>{0});
    EXPECT_EQ(tri.pointPrims[1], (std::vector<int32_t>{0, 1}));
    EXPECT_EQ(tri.pointPrims[2], (std::vector<int32_t>{0, 1}));
    EXPECT_EQ(tri.pointPrims[3], std::vector<int32_t>{1});
    EXPECT_TRUE(tri.pointPrims[4].empty());
}

TEST_F(MeshTest, CountersTreatTwoVertexPolygonsAsLines)
{
    addPrim(tri, PrimData::POLYGON, {0, 1});
    addPrim(tri, PrimData::LINE, {0, 1, 2});
    tri.updateCounts();
    EXPECT_EQ(tri.numVertices, 8u);
    EXPECT_EQ(tri.numLineVertices, 5u);
    EXPECT_EQ(tri.numVolumes, 0u);
}

TEST(EmptyBodyTest, EveryOperationLeavesEmptyBodyValid)
{
    Body a, b;
    a.appendMesh(b);
    a.computeNormals(true);
    a.reversePrims();
    a.rebuildPointPrims();
    a.points->sortPointsById();
    a.points->resizePoints(0);
    EXPECT_EQ(a.points->size(), 0u);
    EXPECT_TRUE(a.points->hasN);
    EXPECT_EQ(a.prims->size(), 0u);
    EXPECT_TRUE(a.pointPrims.empty());
    Vec4f lo, hi;
    a.getBounds(lo, hi);
    EXPECT_EQ(lo, Vec4f(99999, 99999, 99999));
    EXPECT_EQ(hi, Vec4f(-99999, -99999, -99999));
}

} // namespace
