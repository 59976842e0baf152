// Attribute nodes on small hand-computed cases: creating and removing attributes, normals,
// the two speed ramps, and the curvature of flat and curved meshes.
#include "nodetestkit.h"

#include "nodes/attribcreatenode.h"
#include "nodes/attribremovenode.h"
#include "nodes/attribrenamenode.h"
#include "nodes/attribscalenode.h"
#include "nodes/colorbyvelnode.h"
#include "nodes/meshcurvaturenode.h"
#include "nodes/normalsnode.h"

#include <cmath>

namespace {

using AttributeNodesTest = NodeTestBase;

// A 2 x 2 quad grid in the xz plane (9 points), y given per point by `height`.
BodyPtr quadGrid(float (*height)(float, float))
{
    auto b = std::make_shared<Body>();
    for (int z = 0; z < 3; ++z)
        for (int x = 0; x < 3; ++x)
            b->points->addPoint(Vec4f(float(x), height(float(x), float(z)), float(z), 0.f));
    for (uint32_t z = 0; z < 2; ++z)
        for (uint32_t x = 0; x < 2; ++x) {
            const uint32_t a = z * 3 + x;
            b->prims->addPrim(PrimData::POLYGON);
            b->vertices->addVertexList({a, a + 3, a + 4, a + 1});
        }
    b->updateCounts();
    return b;
}

TEST_F(AttributeNodesTest, CreateAddsTheChosenTypeAndRemoveTakesItAway)
{
    auto* create = makeWith<AttribCreateNode>("attrib-create", {pointsBody({Vec4f(), Vec4f(1, 0, 0)})});
    set(create, "attribName", "mass");
    BodyPtr out = pull(create, 1.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->attribType("mass"), ATTRIB_FLOAT);
    set(create, "attribType", "Vector");
    out = pull(create, 1.f);
    EXPECT_EQ(out->points->attribType("mass"), ATTRIB_VECTOR);

    auto* remove = make<AttribRemoveNode>("attrib-remove");
    wire(create, remove);
    set(remove, "attribName", "mass");
    out = pull(remove, 1.f);
    ASSERT_TRUE(out);
    EXPECT_FALSE(out->points->hasAttrib("mass"));
    set(remove, "attribName", "P");
    out = pull(remove, 1.f);
    EXPECT_EQ(out->points->size(), 2u) << "positions stay";
}

TEST_F(AttributeNodesTest, NormalsOfAFlatGridPointAlongY)
{
    auto* normals = makeWith<NormalsNode>("normals", {quadGrid([](float, float) { return 0.f; })});
    BodyPtr out = pull(normals, 1.f);
    ASSERT_TRUE(out && out->points->hasN);
    for (const Vec4f& n : out->points->N) {
        EXPECT_NEAR(std::fabs(n.y), 1.f, 1e-3f); // the normaliser is a fast approximation
        EXPECT_NEAR(n.x, 0.f, 1e-6f);
    }
}

TEST_F(AttributeNodesTest, ColorByVelRamps)
{
    EXPECT_EQ(ColorByVelNode::colorOf(2.f, 0, 1.f), Vec4f(0.9f, 0.95f, 1.f, 0.f));
    const Vec4f half = ColorByVelNode::colorOf(0.5f, 0, 1.f);
    EXPECT_FLOAT_EQ(half.x, 0.25f);
    EXPECT_FLOAT_EQ(half.y, 0.4f);
    EXPECT_EQ(ColorByVelNode::colorOf(0.f, 1, 1.f), Vec4f(0.f, 0.f, 1.f, 0.f)) << "slow is blue";
    EXPECT_EQ(ColorByVelNode::colorOf(0.5f, 1, 1.f), Vec4f(0.f, 1.f, 0.f, 0.f)) << "middle is green";
    EXPECT_EQ(ColorByVelNode::colorOf(5.f, 1, 1.f), Vec4f(1.f, 0.f, 0.f, 0.f)) << "fast is red";
    EXPECT_EQ(ColorByVelNode::colorOf(1.f, 0, 0.f), Vec4f(0.9f, 0.95f, 1.f, 0.f)) << "maxVel 0 tops out";

    BodyPtr still = pointsBody({Vec4f()});
    auto* plain = makeWith<ColorByVelNode>("color-by-vel", {still});
    BodyPtr out = pull(plain, 1.f);
    ASSERT_TRUE(out);
    EXPECT_FALSE(out->points->hasCd) << "no v: the Body passes unchanged";

    BodyPtr moving = pointsBody({Vec4f(), Vec4f()});
    moving->points->addAttrib("v", ATTRIB_VELOCITY);
    moving->points->v[1] = Vec4f(3.f, 4.f, 0.f, 0.f);
    auto* heat = makeWith<ColorByVelNode>("color-by-vel", {moving});
    set(heat, "mode", "Heat");
    set(heat, "maxVel", "5");
    out = pull(heat, 1.f);
    ASSERT_TRUE(out && out->points->hasCd);
    EXPECT_EQ(out->points->Cd[0], Vec4f(0.f, 0.f, 1.f, 0.f));
    EXPECT_EQ(out->points->Cd[1], Vec4f(1.f, 0.f, 0.f, 0.f));
}

TEST_F(AttributeNodesTest, CurvatureIsZeroOnAFlatGridAndNotOnABentOne)
{
    auto* flat = makeWith<MeshCurvatureNode>("mesh-curvature", {quadGrid([](float, float) { return 0.f; })});
    BodyPtr out = pull(flat, 1.f);
    ASSERT_TRUE(out);
    const auto* k = out->points->attribAs<FloatArray>("curvature");
    ASSERT_TRUE(k);
    for (float v : *k) EXPECT_FLOAT_EQ(v, 0.f);

    auto* bent = makeWith<MeshCurvatureNode>(
        "mesh-curvature", {quadGrid([](float x, float) { return 0.5f * (x - 1.f) * (x - 1.f); })});
    out = pull(bent, 1.f);
    ASSERT_TRUE(out);
    k = out->points->attribAs<FloatArray>("curvature");
    ASSERT_TRUE(k);
    float most = 0.f;
    for (float v : *k) most = std::max(most, std::fabs(v));
    EXPECT_GT(most, 0.05f);
    // a degenerate edge (two corners on one spot) adds nothing and breaks nothing
    BodyPtr degenerate = quadGrid([](float, float) { return 0.f; });
    degenerate->points->P[1] = degenerate->points->P[0];
    auto* d = makeWith<MeshCurvatureNode>("mesh-curvature", {degenerate});
    out = pull(d, 1.f);
    ASSERT_TRUE(out);
    for (float v : *out->points->attribAs<FloatArray>("curvature")) EXPECT_TRUE(std::isfinite(v));
}

} // namespace

namespace {

TEST_F(AttributeNodesTest, RenameMovesValuesAndGridsAndScaleMultiplies)
{
    BodyPtr in = pointsBody({Vec4f(), Vec4f(1, 0, 0)});
    in->points->addAttrib("v", ATTRIB_VELOCITY);
    in->points->v[1] = Vec4f(1.f, 2.f, 3.f, 0.f);
    in->points->addAttrib("mass", ATTRIB_FLOAT);
    (*in->points->attribAs<FloatArray>("mass"))[1] = 4.f;
    in->volumes->addVolume("density", VOLUME_FLOAT);
    auto* rename = makeWith<AttribRenameNode>("attrib-rename", {in});
    set(rename, "attribName", "v");
    set(rename, "attribNewName", "vel");
    BodyPtr out = pull(rename, 1.f);
    ASSERT_TRUE(out);
    EXPECT_FALSE(out->points->hasV);
    ASSERT_TRUE(out->points->attribAs<VecArray>("vel"));
    EXPECT_EQ((*out->points->attribAs<VecArray>("vel"))[1], Vec4f(1.f, 2.f, 3.f, 0.f));

    auto* grid = makeWith<AttribRenameNode>("attrib-rename", {in});
    set(grid, "attribName", "density");
    set(grid, "attribNewName", "fog");
    out = pull(grid, 1.f);
    ASSERT_TRUE(out);
    EXPECT_TRUE(out->volumes->volume("fog"));
    EXPECT_FALSE(out->volumes->volume("density"));

    auto* scale = make<AttribScaleNode>("attrib-scale");
    wire(rename, scale);
    set(scale, "attribName_a", "vel");
    set(scale, "scale", "2");
    out = pull(scale, 1.f);
    ASSERT_TRUE(out);
    EXPECT_EQ((*out->points->attribAs<VecArray>("vel"))[1], Vec4f(2.f, 4.f, 6.f, 0.f));
    set(scale, "attribName_a", "mass");
    out = pull(scale, 1.f);
    EXPECT_FLOAT_EQ((*out->points->attribAs<FloatArray>("mass"))[1], 8.f);
    set(scale, "attribName_a", "nothing");
    testing::internal::CaptureStdout();
    out = pull(scale, 1.f);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("doesn't exist"), std::string::npos);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->size(), 2u) << "a missing attribute passes the Body";
}

} // namespace
