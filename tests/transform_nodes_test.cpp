// Nodes that move and place geometry: Transform, Noise, Copy, Deform and Point-Match, each
// on a few hand-placed points fed from a fixed source.
#include "nodetestkit.h"

#include "nodes/copynode.h"
#include "nodes/deformnode.h"
#include "nodes/noisenode.h"
#include "nodes/pointmatchnode.h"
#include "nodes/xformnode.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <vector>

namespace {

BodyPtr threePoints()
{
    return pointsBody({Vec4f(1, 0, 0), Vec4f(0, 1, 0), Vec4f(0, 0, 1)});
}

void expectNear(const Vec4f& got, const Vec4f& want, float tol = 1e-5f)
{
    EXPECT_NEAR(got.x, want.x, tol);
    EXPECT_NEAR(got.y, want.y, tol);
    EXPECT_NEAR(got.z, want.z, tol);
}

using TransformNodesTest = NodeTestBase;

// ---- Transform ----

TEST_F(TransformNodesTest, TransformTranslates)
{
    auto* x = makeWith<XformNode>("transform", {threePoints()});
    set(x, "translateX", "1");
    set(x, "translateY", "2");
    set(x, "translateZ", "3");
    BodyPtr out = pull(x, 1.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->size(), 3u);
    expectNear(out->points->P[0], Vec4f(2, 2, 3));
    expectNear(out->points->P[1], Vec4f(1, 3, 3));
    expectNear(out->points->P[2], Vec4f(1, 2, 4));
}

TEST_F(TransformNodesTest, TransformRotatesAboutZ)
{
    auto* x = makeWith<XformNode>("transform", {threePoints()});
    set(x, "rotateZ", "90");
    BodyPtr out = pull(x, 1.f);
    ASSERT_TRUE(out);
    expectNear(out->points->P[0], Vec4f(0, 1, 0));
    expectNear(out->points->P[1], Vec4f(-1, 0, 0));
    expectNear(out->points->P[2], Vec4f(0, 0, 1));
}

TEST_F(TransformNodesTest, TransformScalesTimesUniformScale)
{
    auto* x = makeWith<XformNode>("transform", {threePoints()});
    set(x, "scaleY", "2");
    set(x, "scaleZ", "3");
    set(x, "unifScale", "2");
    BodyPtr out = pull(x, 1.f);
    ASSERT_TRUE(out);
    expectNear(out->points->P[0], Vec4f(2, 0, 0));
    expectNear(out->points->P[1], Vec4f(0, 4, 0));
    expectNear(out->points->P[2], Vec4f(0, 0, 6));
}

TEST_F(TransformNodesTest, TransformInverseUndoesTheSameRows)
{
    auto* a = makeWith<XformNode>("transform", {threePoints()});
    auto* b = make<XformNode>("transform");
    wire(a, b);
    for (XformNode* n : {a, b}) {
        set(n, "translateX", "1");
        set(n, "translateZ", "-4");
        set(n, "rotateY", "30");
        set(n, "rotateX", "10");
        set(n, "scaleX", "2");
    }
    set(b, "inverse", "true");
    BodyPtr moved = pull(a, 1.f);
    ASSERT_TRUE(moved);
    EXPECT_GT(std::fabs(moved->points->P[0].x - 1.f), 0.5f); // the first one does move
    BodyPtr back = pull(b, 1.f);
    ASSERT_TRUE(back);
    expectNear(back->points->P[0], Vec4f(1, 0, 0), 1e-4f);
    expectNear(back->points->P[1], Vec4f(0, 1, 0), 1e-4f);
    expectNear(back->points->P[2], Vec4f(0, 0, 1), 1e-4f);
}

TEST_F(TransformNodesTest, TransformTurnsVelocitiesAndNormals)
{
    BodyPtr in = pointsBody({Vec4f(1, 0, 0)});
    in->points->addAttrib("v", ATTRIB_VELOCITY);
    in->points->addAttrib("N", ATTRIB_NORMAL);
    in->points->v[0] = Vec4f(1, 0, 0);
    in->points->N[0] = Vec4f(1, 0, 0);
    auto* x = makeWith<XformNode>("transform", {in});
    set(x, "translateX", "5");
    set(x, "scaleX", "3");
    set(x, "rotateZ", "90");
    BodyPtr out = pull(x, 1.f);
    ASSERT_TRUE(out);
    expectNear(out->points->P[0], Vec4f(5, 3, 0));
    expectNear(out->points->v[0], Vec4f(0, 3, 0)); // a direction: scaled and turned, not moved
    expectNear(out->points->N[0], Vec4f(0, 1, 0)); // a normal: turned, unit length
}

TEST_F(TransformNodesTest, TransformVelocityFromAnimatedRows)
{
    auto* x = makeWith<XformNode>("transform", {threePoints()});
    set(x, "translateX", "frame * 2");
    set(x, "calcVelFromAnims", "true");
    BodyPtr out = pull(x, 5.f);
    ASSERT_TRUE(out);
    ASSERT_TRUE(out->points->hasV);
    const float fps = nodeMaster->fps();
    expectNear(out->points->P[0], Vec4f(11, 0, 0));
    for (size_t i = 0; i < 3; ++i) expectNear(out->points->v[i], Vec4f(2 * fps, 0, 0), 1e-3f);
}

// ---- Noise ----

TEST_F(TransformNodesTest, NoiseIsDeterministicAndMovesPoints)
{
    const BodyPtr in = pointsBody({Vec4f(0.1f, 0.2f, 0.3f), Vec4f(1.7f, -0.4f, 2.2f), Vec4f(-3, 1, 0.5f)});
    std::vector<BodyPtr> outs;
    for (int k = 0; k < 2; ++k) {
        auto* n = makeWith<NoiseNode>("noise", {in});
        set(n, "noiseAmp", "0.5");
        set(n, "noisePhase", "0.3");
        set(n, "noiseOctaves", "3");
        outs.push_back(pull(n, 2.f));
        ASSERT_TRUE(outs.back());
    }
    bool moved = false;
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(outs[0]->points->P[i], outs[1]->points->P[i]);
        const Vec4f d = outs[0]->points->P[i] - in->points->P[i];
        EXPECT_LE(d.length3(), 0.5f * std::sqrt(3.f) + 1e-4f);
        moved = moved || d.length3() > 1e-4f;
    }
    EXPECT_TRUE(moved);
}

TEST_F(TransformNodesTest, NoiseWithZeroAmpChangesNothing)
{
    const BodyPtr in = threePoints();
    auto* n = makeWith<NoiseNode>("noise", {in});
    set(n, "noiseAmp", "0");
    set(n, "affectVel", "true");
    BodyPtr out = pull(n, 3.f);
    ASSERT_TRUE(out);
    ASSERT_TRUE(out->points->hasV);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(out->points->P[i], in->points->P[i]);
        EXPECT_EQ(out->points->v[i], Vec4f());
    }
}

TEST_F(TransformNodesTest, NoiseVelocityIsTheOffsetPerStep)
{
    const BodyPtr in = pointsBody({Vec4f(0.25f, 0.5f, 0.75f), Vec4f(2, 1, -1)});
    auto* moving = make<NoiseNode>("noise");
    auto* vel = make<NoiseNode>("noise");
    for (NoiseNode* n : {moving, vel}) {
        wire(source(in), n);
        set(n, "noiseType", "Curl");
        set(n, "noisePhase", "0");
    }
    set(vel, "affectPos", "false");
    set(vel, "affectVel", "true");
    BodyPtr a = pull(moving, 1.f);
    BodyPtr b = pull(vel, 1.f);
    ASSERT_TRUE(a && b);
    ASSERT_TRUE(b->points->hasV);
    const float dt = nodeMaster->graphDt;
    for (size_t i = 0; i < 2; ++i) {
        EXPECT_EQ(b->points->P[i], in->points->P[i]);
        const Vec4f offset = a->points->P[i] - in->points->P[i];
        EXPECT_GT(offset.length3(), 1e-4f);
        expectNear(b->points->v[i] * dt, offset, 1e-4f);
    }
}

TEST_F(TransformNodesTest, NoisePerPointEnabledMasks)
{
    const BodyPtr in = pointsBody({Vec4f(0, 0.3f, 0.1f), Vec4f(1, 0.3f, 0.1f), Vec4f(2, 0.3f, 0.1f)});
    auto* n = makeWith<NoiseNode>("noise", {in});
    set(n, "enabled", "@P.x > 0.5");
    set(n, "noisePhase", "0.7");
    BodyPtr out = pull(n, 1.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->P[0], in->points->P[0]);
    EXPECT_NE(out->points->P[1], in->points->P[1]);
    EXPECT_NE(out->points->P[2], in->points->P[2]);
}

// ---- Copy ----

TEST_F(TransformNodesTest, CopyPlacesOneCopyPerPointWithItsAttributes)
{
    BodyPtr object = pointsBody({Vec4f(0, 0, 0), Vec4f(0, 1, 0)});
    BodyPtr targets = pointsBody({Vec4f(10, 0, 0), Vec4f(20, 0, 0), Vec4f(30, 0, 0)});
    targets->points->addAttrib("Cd", ATTRIB_COLOR);
    for (size_t i = 0; i < 3; ++i) targets->points->Cd[i] = Vec4f(0.1f * float(i), 0.5f, 1.f);
    auto* c = makeWith<CopyNode>("copy", {object, targets});
    BodyPtr out = pull(c, 1.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->size(), 6u);
    ASSERT_TRUE(out->points->hasCd);
    for (size_t i = 0; i < 3; ++i)
        for (size_t k = 0; k < 2; ++k) {
            expectNear(out->points->P[i * 2 + k], Vec4f(10.f * float(i + 1), float(k), 0));
            EXPECT_EQ(out->points->Cd[i * 2 + k], targets->points->Cd[i]);
        }
}

TEST_F(TransformNodesTest, CopyScaleTimesPointScale)
{
    BodyPtr object = pointsBody({Vec4f(0, 1, 0)});
    BodyPtr targets = pointsBody({Vec4f(10, 0, 0), Vec4f(20, 0, 0)});
    targets->points->addAttrib("scale", ATTRIB_FLOAT);
    (*targets->points->attribAs<FloatArray>("scale"))[0] = 3.f;
    (*targets->points->attribAs<FloatArray>("scale"))[1] = 0.5f;
    auto* c = makeWith<CopyNode>("copy", {object, targets});
    set(c, "scale", "2");
    BodyPtr out = pull(c, 1.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->size(), 2u);
    expectNear(out->points->P[0], Vec4f(10, 6, 0));
    expectNear(out->points->P[1], Vec4f(20, 1, 0));
}

TEST_F(TransformNodesTest, CopyOrientsPlusZOntoTheAttribute)
{
    BodyPtr object = pointsBody({Vec4f(0, 0, 1), Vec4f(1, 0, 0)});
    BodyPtr targets = pointsBody({Vec4f(5, 0, 0), Vec4f(0, 5, 0), Vec4f(0, 0, 5)});
    targets->points->addAttrib("dir", ATTRIB_VECTOR);
    auto& dir = *targets->points->attribAs<VecArray>("dir");
    dir[0] = Vec4f(0, 2, 0);  // +Z onto +Y
    dir[1] = Vec4f(0, 0, -3); // half a turn
    dir[2] = Vec4f(0, 0, 0);  // no direction: unturned
    auto* c = makeWith<CopyNode>("copy", {object, targets});
    set(c, "orientAttribName", "dir");
    BodyPtr out = pull(c, 1.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->size(), 6u);
    expectNear(out->points->P[0], Vec4f(5, 1, 0));
    expectNear(out->points->P[1], Vec4f(6, 0, 0)); // x is the rotation axis: kept
    expectNear(out->points->P[2], Vec4f(0, 5, -1));
    expectNear(out->points->P[4], Vec4f(0, 0, 6));
    expectNear(out->points->P[5], Vec4f(1, 0, 5));
}

TEST_F(TransformNodesTest, CopyOfAMeshOffsetsItsVertices)
{
    BodyPtr object = pointsBody({Vec4f(0, 0, 0), Vec4f(1, 0, 0), Vec4f(0, 1, 0)});
    object->prims->addPrim(PrimData::POLYGON);
    object->vertices->addVertexList({0, 1, 2});
    object->updateCounts();
    BodyPtr targets = pointsBody({Vec4f(0, 0, 0), Vec4f(0, 0, 3)});
    auto* c = makeWith<CopyNode>("copy", {object, targets});
    BodyPtr out = pull(c, 1.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->size(), 6u);
    ASSERT_EQ(out->prims->size(), 2u);
    EXPECT_EQ(out->vertices->indices[1], (std::vector<uint32_t>{3, 4, 5}));
    expectNear(out->points->P[4], Vec4f(1, 0, 3));
}

// ---- Deform ----

class DeformFixture : public TransformNodesTest {
protected:
    DeformNode* deformer(const BodyPtr& geo, const BodyPtr& rest, const BodyPtr& animated)
    {
        return makeWith<DeformNode>("deform", {geo, rest, animated});
    }
    static BodyPtr shifted(const BodyPtr& b, const Vec4f& by)
    {
        auto out = std::make_shared<Body>(*b);
        for (Vec4f& p : out->points->P) p += by;
        return out;
    }
};

TEST_F(DeformFixture, DeformFollowsATranslatedInfluence)
{
    BodyPtr rest =
        pointsBody({Vec4f(0, 0, 0), Vec4f(0.5f, 0, 0), Vec4f(0, 0.5f, 0), Vec4f(0.3f, 0.3f, 0.3f)});
    BodyPtr geo =
        pointsBody({Vec4f(0.1f, 0.1f, 0), Vec4f(0.4f, 0.2f, 0.1f), Vec4f(0.2f, 0.3f, 0.2f), Vec4f(9, 9, 9)});
    auto* d = deformer(geo, rest, shifted(rest, Vec4f(0.5f, -0.25f, 1)));
    set(d, "radius", "1");
    BodyPtr out = pull(d, 1.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->size(), 4u);
    for (size_t i = 0; i < 3; ++i) expectNear(out->points->P[i], geo->points->P[i] + Vec4f(0.5f, -0.25f, 1));
    expectNear(out->points->P[3], Vec4f(9, 9, 9)); // out of reach of every influence point
}

TEST_F(DeformFixture, DeformWeighsNearInfluenceMore)
{
    BodyPtr rest = pointsBody({Vec4f(0, 0, 0), Vec4f(1, 0, 0)});
    BodyPtr animated = pointsBody({Vec4f(0, 1, 0), Vec4f(1, 0, 0)}); // only the first one moves
    BodyPtr geo = pointsBody({Vec4f(0.25f, 0, 0)});
    auto* d = deformer(geo, rest, animated);
    set(d, "radius", "2");
    BodyPtr out = pull(d, 1.f);
    ASSERT_TRUE(out);
    // weights 1/0.25 and 1/0.75: the mean shift is 0.75 of the first point's
    expectNear(out->points->P[0], Vec4f(0.25f, 0.75f, 0));
}

TEST_F(DeformFixture, DeformLargeInfluenceGoesThroughTheGrid)
{
    BodyPtr rest = std::make_shared<Body>();
    for (int x = 0; x < 20; ++x)
        for (int y = 0; y < 20; ++y)
            for (int z = 0; z < 15; ++z) rest->points->addPoint(Vec4f(0.1f * x, 0.1f * y, 0.1f * z));
    ASSERT_GE(rest->points->size(), 5000u);
    BodyPtr geo = pointsBody({Vec4f(0.55f, 0.55f, 0.55f), Vec4f(1.01f, 0.2f, 0.7f), Vec4f(30, 0, 0)});
    auto* d = deformer(geo, rest, shifted(rest, Vec4f(0, 0.25f, 0)));
    set(d, "radius", "0.3");
    BodyPtr out = pull(d, 1.f);
    ASSERT_TRUE(out);
    expectNear(out->points->P[0], Vec4f(0.55f, 0.8f, 0.55f));
    expectNear(out->points->P[1], Vec4f(1.01f, 0.45f, 0.7f));
    expectNear(out->points->P[2], Vec4f(30, 0, 0));
}

TEST_F(DeformFixture, DeformWithoutProxyPassesTheGeometry)
{
    BodyPtr geo = threePoints();
    auto* d = deformer(geo, nullptr, nullptr);
    BodyPtr out = pull(d, 1.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->size(), 3u);
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(out->points->P[i], geo->points->P[i]);
}

TEST_F(DeformFixture, DeformEmissionPosServesAsRest)
{
    BodyPtr animated = pointsBody({Vec4f(0, 2, 0), Vec4f(1, 2, 0)});
    animated->points->addAttrib("emissionPos", ATTRIB_VECTOR);
    (*animated->points->attribAs<VecArray>("emissionPos"))[0] = Vec4f(0, 0, 0);
    (*animated->points->attribAs<VecArray>("emissionPos"))[1] = Vec4f(1, 0, 0);
    BodyPtr geo = pointsBody({Vec4f(0.5f, 0, 0)});
    auto* d = deformer(geo, nullptr, animated);
    set(d, "radius", "1");
    set(d, "emissionPosRef", "true");
    BodyPtr out = pull(d, 1.f);
    ASSERT_TRUE(out);
    expectNear(out->points->P[0], Vec4f(0.5f, 2, 0));
}

// ---- Point-Match ----

TEST_F(TransformNodesTest, PointMatchSnapsToNearestWithVelocity)
{
    BodyPtr pts = pointsBody({Vec4f(0, 0, 0), Vec4f(5, 0, 0), Vec4f(-2, 3, 0)});
    BodyPtr influence = pointsBody({Vec4f(100, 0, 0), Vec4f(5, 0, 2), Vec4f(0, 1, 0), Vec4f(-2, 3.5f, 0)});
    auto* m = makeWith<PointMatchNode>("point-match", {pts, influence});
    BodyPtr out = pull(m, 1.f);
    ASSERT_TRUE(out);
    ASSERT_TRUE(out->points->hasV);
    const float fps = nodeMaster->fps();
    expectNear(out->points->P[0], Vec4f(0, 1, 0));
    expectNear(out->points->P[1], Vec4f(5, 0, 2));
    expectNear(out->points->P[2], Vec4f(-2, 3.5f, 0));
    expectNear(out->points->v[0], Vec4f(0, fps, 0), 1e-3f);
    expectNear(out->points->v[1], Vec4f(0, 0, 2 * fps), 1e-3f);
    expectNear(out->points->v[2], Vec4f(0, 0.5f * fps, 0), 1e-3f);
}

TEST_F(TransformNodesTest, PointMatchWithoutInfluencePasses)
{
    BodyPtr pts = threePoints();
    auto* m = makeWith<PointMatchNode>("point-match", {pts, std::make_shared<Body>()});
    BodyPtr out = pull(m, 1.f);
    ASSERT_TRUE(out);
    EXPECT_FALSE(out->points->hasV);
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(out->points->P[i], pts->points->P[i]);
}

} // namespace
