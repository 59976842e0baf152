// Dynamic helper nodes, each on a small hand-checked case: Gravity, Make-Dynamic,
// End-Dynamic, Origin, Clone, Spawn-Node, Dust-Emit, Particle-Burst, Particle-Emit, Emit,
// Collide and Force, plus the bad inputs (empty emitter mesh, non-finite positions).
#include "nodetestkit.h"

#include "nodes/clonenode.h"
#include "nodes/collidenode.h"
#include "nodes/dustemitnode.h"
#include "nodes/emitnode.h"
#include "nodes/enddynamicnode.h"
#include "nodes/forcenode.h"
#include "nodes/gravitynode.h"
#include "nodes/makedynamicnode.h"
#include "nodes/nodetable.h"
#include "nodes/originnode.h"
#include "nodes/particleburstnode.h"
#include "nodes/particleemitnode.h"
#include "nodes/spawnnode.h"

#include <gtest/gtest.h>

#include <openvdb/openvdb.h>
#include <openvdb/tools/LevelSetSphere.h>

#include <boost/filesystem.hpp>

#include <cmath>
#include <fstream>
#include <limits>

namespace {

constexpr float kDt = 0.1f;

BodyPtr movingPoint(const Vec4f& p, const Vec4f& v)
{
    auto b = std::make_shared<Body>();
    b->points->addAttrib("v", ATTRIB_VELOCITY);
    b->points->addPointV(p, v);
    return b;
}

BodyPtr dynamicBody(BodyPtr b)
{
    b->isDynamic = true;
    return b;
}

// One triangle in x-z, its face normal (p2 - p0) x (p1 - p0) along +y.
BodyPtr oneTriangle()
{
    BodyPtr b = pointsBody({Vec4f(0.f, 0.f, 0.f), Vec4f(1.f, 0.f, 0.f), Vec4f(0.f, 0.f, 1.f)});
    b->prims->addPrim(PrimData::POLYGON);
    b->vertices->addVertexList({0, 1, 2});
    return b;
}

// A level-set sphere of `radius` at the origin as the grid "distance" of a new Body.
BodyPtr sphereVolume(float radius, float voxel)
{
    auto grid =
        openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(radius, openvdb::Vec3f(0.f), voxel, 3.f);
    auto b = std::make_shared<Body>();
    b->volumes->setVolume("distance", VOLUME_FLOAT, grid);
    return b;
}

// A Vec3f grid "velocity" of `value`, active over index box [-n, n]^3 at voxel size 0.1.
BodyPtr vectorVolume(const openvdb::Vec3s& value, int n)
{
    auto grid = openvdb::Vec3SGrid::create(openvdb::Vec3s(0.f));
    grid->setTransform(openvdb::math::Transform::createLinearTransform(0.1));
    grid->denseFill(openvdb::CoordBBox(openvdb::Coord(-n), openvdb::Coord(n)), value, true);
    auto b = std::make_shared<Body>();
    b->volumes->setVolume("velocity", VOLUME_VEC3, grid);
    return b;
}

// A unit cube around the origin as OBJ text.
const char* const kCubeObj = "v -0.5 -0.5 0.5\nv 0.5 -0.5 0.5\nv -0.5 0.5 0.5\nv 0.5 0.5 0.5\n"
                             "v -0.5 0.5 -0.5\nv 0.5 0.5 -0.5\nv -0.5 -0.5 -0.5\nv 0.5 -0.5 -0.5\n"
                             "f 1 2 4 3\nf 3 4 6 5\nf 5 6 8 7\nf 7 8 2 1\nf 2 8 6 4\nf 7 1 3 5\n";

class DynamicNodesTest : public NodeTestBase {
protected:
    void SetUp() override
    {
        NodeTestBase::SetUp();
        openvdb::initialize();
        savedDt = nodeMaster->graphDt;
        savedRun = nodeMaster->runFlag;
        nodeMaster->graphDt = kDt;
        nodeMaster->runFlag = true;
        std::srand(7);
    }
    void TearDown() override
    {
        nodeMaster->graphDt = savedDt;
        nodeMaster->runFlag = savedRun;
        NodeTestBase::TearDown();
    }
    float savedDt = 1.f / 24.f;
    bool savedRun = true;
};

TEST_F(DynamicNodesTest, EveryKeyMakesItsNode)
{
    for (const char* key : {"gravity", "make-dynamic", "end-dynamic", "origin", "clone", "dust-emit",
                            "particle-burst", "particle-emit", "emit", "collide", "force"}) {
        BaseNode* node = nodeMaster->createNode(key);
        ASSERT_NE(node, nullptr) << key;
        EXPECT_EQ(node->nodeKey, key);
        EXPECT_FALSE(node->outputs.empty()) << key;
    }
    // Spawn-Node has no place in the node vocabulary: it is made in code only.
    EXPECT_EQ(findNodeMaker("spawn-node"), nullptr);
    SpawnNode spawn(nullptr);
    EXPECT_EQ(spawn.nodeKey, "spawn-node");
}

TEST_F(DynamicNodesTest, GravityAddsGraphDtTimesGravityToVelocity)
{
    auto* g = makeWith<GravityNode>("gravity",
                                    {dynamicBody(movingPoint(Vec4f(0.f, 0.f, 0.f), Vec4f(1.f, 2.f, 3.f)))});
    set(g, "gravityX", "1");
    BodyPtr r = pull(g, 1.f);
    ASSERT_TRUE(r);
    ASSERT_EQ(r->points->size(), 1u);
    EXPECT_FLOAT_EQ(r->points->v[0].x, 1.f + kDt * 1.f);
    EXPECT_FLOAT_EQ(r->points->v[0].y, 2.f - kDt * 9.81f);
    EXPECT_FLOAT_EQ(r->points->v[0].z, 3.f);
    EXPECT_EQ(r->points->P[0], Vec4f(0.f, 0.f, 0.f)); // positions are the solver's

    // No velocities: the Body passes unchanged.
    auto* plain = makeWith<GravityNode>("gravity", {pointsBody({Vec4f(1.f, 1.f, 1.f)})});
    BodyPtr p = pull(plain, 1.f);
    ASSERT_TRUE(p);
    EXPECT_FALSE(p->points->hasV);
}

TEST_F(DynamicNodesTest, MakeDynamicHoldsTheInputAndAdvancesIt)
{
    FixedNode* src = source(movingPoint(Vec4f(0.f, 0.f, 0.f), Vec4f(1.f, 0.f, 0.f)));
    auto* m = make<MakeDynamicNode>("make-dynamic");
    wire(src, m);
    set(m, "setDynamic", "true");
    BodyPtr r = pull(m, 1.f);
    ASSERT_TRUE(r);
    EXPECT_TRUE(r->isDynamic);
    EXPECT_FLOAT_EQ(r->points->P[0].x, 0.f);
    r = pull(m, 2.f);
    ASSERT_TRUE(r);
    EXPECT_FLOAT_EQ(r->points->P[0].x, kDt);
    r = pull(m, 3.f);
    EXPECT_FLOAT_EQ(r->points->P[0].x, 2.f * kDt);
    EXPECT_EQ(src->cooks, 1); // the input is pulled once
    r = pull(m, 3.f);         // the same time again: not moved
    EXPECT_FLOAT_EQ(r->points->P[0].x, 2.f * kDt);

    // Without setDynamic the input passes; disabled gives an empty result.
    auto* off = makeWith<MakeDynamicNode>("make-dynamic", {movingPoint(Vec4f(5.f, 0.f, 0.f), Vec4f())});
    r = pull(off, 1.f);
    ASSERT_TRUE(r);
    EXPECT_FALSE(r->isDynamic);
    EXPECT_FLOAT_EQ(r->points->P[0].x, 5.f);
    set(off, "enabled", "false");
    r = pull(off, 2.f);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 0u);
}

TEST_F(DynamicNodesTest, MakeDynamicWithoutVelocityAddsIt)
{
    auto* m = makeWith<MakeDynamicNode>("make-dynamic", {pointsBody({Vec4f(1.f, 0.f, 0.f)})});
    set(m, "setDynamic", "true");
    BodyPtr r = pull(m, 1.f);
    ASSERT_TRUE(r);
    EXPECT_TRUE(r->points->hasV);
    r = pull(m, 2.f);
    EXPECT_FLOAT_EQ(r->points->P[0].x, 1.f);
}

TEST_F(DynamicNodesTest, EndDynamicClearsIsDynamicAndSetsWasDynamic)
{
    BodyPtr in = dynamicBody(movingPoint(Vec4f(1.f, 2.f, 3.f), Vec4f(0.f, 1.f, 0.f)));
    auto* e = makeWith<EndDynamicNode>("end-dynamic", {in});
    BodyPtr r = pull(e, 1.f);
    ASSERT_TRUE(r);
    EXPECT_FALSE(r->isDynamic);
    EXPECT_TRUE(r->wasDynamic);
    ASSERT_EQ(r->points->size(), 1u);
    EXPECT_EQ(r->points->P[0], Vec4f(1.f, 2.f, 3.f));
    EXPECT_FALSE(checkAt(e, 1.f).dynamic); // what follows is static

    // A chain from Origin: the static copy follows the running Body.
    auto* o = make<OriginNode>("origin");
    auto* end = make<EndDynamicNode>("end-dynamic");
    wire(o, end);
    BodyPtr first = pull(end, 1.f);
    ASSERT_TRUE(first);
    EXPECT_FALSE(first->isDynamic);
    o->held->points->addPointV(Vec4f(0.f, 0.f, 0.f), Vec4f(1.f, 0.f, 0.f));
    BodyPtr second = pull(end, 2.f);
    ASSERT_TRUE(second);
    ASSERT_EQ(second->points->size(), 1u);
    EXPECT_NEAR(second->points->P[0].x, kDt, 1e-6f);
    EXPECT_FALSE(second->isDynamic);
    EXPECT_TRUE(second->wasDynamic);
    EXPECT_TRUE(o->held->isDynamic); // the running Body itself is untouched
}

TEST_F(DynamicNodesTest, OriginAdvancesWithForceAndAge)
{
    auto* o = make<OriginNode>("origin");
    set(o, "forceScale", "2");
    BodyPtr r = pull(o, 1.f);
    ASSERT_TRUE(r);
    EXPECT_TRUE(r->isDynamic);
    EXPECT_TRUE(r->points->hasV);
    EXPECT_TRUE(r->points->hasCd);
    EXPECT_TRUE(r->points->hasAttrib("age"));
    EXPECT_EQ(r->points->size(), 0u);

    PointData& pd = *o->held->points;
    pd.addAttrib("force", ATTRIB_VECTOR);
    pd.addPointV(Vec4f(0.f, 0.f, 0.f), Vec4f(1.f, 0.f, 0.f));
    (*pd.attribAs<VecArray>("force"))[0] = Vec4f(0.f, 0.014f, 0.f);
    r = pull(o, 2.f);
    ASSERT_TRUE(r);
    // v.y = 0.014 / 0.014 * dt * 2 = 0.2; P = v * dt
    EXPECT_NEAR(r->points->v[0].y, 2.f * kDt, 1e-6f);
    EXPECT_NEAR(r->points->P[0].x, kDt, 1e-6f);
    EXPECT_NEAR(r->points->P[0].y, 2.f * kDt * kDt, 1e-6f);
    EXPECT_NEAR((*r->points->attribAs<FloatArray>("age"))[0], kDt, 1e-6f);

    // With the run flag off the held Body is handed out as it is.
    nodeMaster->runFlag = false;
    r = pull(o, 3.f);
    nodeMaster->runFlag = true;
    ASSERT_TRUE(r);
    EXPECT_NEAR(r->points->P[0].x, kDt, 1e-6f);
}

TEST_F(DynamicNodesTest, CloneHandsOutTheInputAndAStaticCopyFromOnePull)
{
    FixedNode* src = source(dynamicBody(movingPoint(Vec4f(1.f, 0.f, 0.f), Vec4f())));
    auto* c = make<CloneNode>("clone");
    wire(src, c);
    auto* dynOut = static_cast<GeoNode*>(nodeMaster->createNode("null"));
    auto* staticOut = static_cast<GeoNode*>(nodeMaster->createNode("null"));
    wire(c, dynOut, 0, 0);
    wire(c, staticOut, 0, 1);
    BodyPtr d, s;
    dynOut->process(d, callerAt(1.f));
    staticOut->process(s, callerAt(1.f));
    ASSERT_TRUE(d);
    ASSERT_TRUE(s);
    EXPECT_TRUE(d->isDynamic);
    EXPECT_FALSE(s->isDynamic);
    EXPECT_TRUE(s->wasDynamic);
    EXPECT_EQ(s->points->P[0], Vec4f(1.f, 0.f, 0.f));
    EXPECT_EQ(src->cooks, 1);
    EXPECT_FLOAT_EQ(c->stamp, 1.f);
}

TEST_F(DynamicNodesTest, SpawnMovesPositionsBeforeVelocities)
{
    BodyPtr in = movingPoint(Vec4f(0.f, 0.f, 0.f), Vec4f(1.f, 0.f, 0.f));
    in->points->addAttrib("force", ATTRIB_VECTOR);
    (*in->points->attribAs<VecArray>("force"))[0] = Vec4f(0.f, 10.f, 0.f);
    auto* s = new SpawnNode(nodeMaster);
    nodeMaster->registerNode(s);
    wire(source(in), s);
    BodyPtr r = pull(s, 1.f);
    ASSERT_TRUE(r);
    EXPECT_TRUE(r->isDynamic);
    // P moved with the old v, then v took the force (mass 1).
    EXPECT_NEAR(r->points->P[0].x, kDt, 1e-6f);
    EXPECT_NEAR(r->points->P[0].y, 0.f, 1e-6f);
    EXPECT_NEAR(r->points->v[0].y, 10.f * kDt, 1e-6f);
    r = pull(s, 2.f);
    EXPECT_NEAR(r->points->P[0].x, 2.f * kDt, 1e-6f);
    EXPECT_NEAR(r->points->P[0].y, 10.f * kDt * kDt, 1e-6f);

    Body noV;
    noV.points->addPoint(Vec4f(1.f, 1.f, 1.f));
    testing::internal::CaptureStdout();
    EXPECT_FALSE(s->step(noV, kDt));
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "no velocity.\n");
}

TEST_F(DynamicNodesTest, DustEmitSmearsPointsBackAlongTheStep)
{
    BodyPtr target = dynamicBody(movingPoint(Vec4f(9.f, 9.f, 9.f), Vec4f()));
    BodyPtr emitter = movingPoint(Vec4f(1.f, 2.f, 3.f), Vec4f(10.f, 0.f, 0.f));
    emitter->points->addPointV(Vec4f(5.f, 5.f, 5.f),
                               Vec4f(0.1f, 0.f, 0.f)); // slow: the default mask skips it
    auto* d = makeWith<DustEmitNode>("dust-emit", {target, emitter});
    set(d, "emissionAmount", "4");
    set(d, "jitter", "0");
    BodyPtr r = pull(d, 1.f);
    ASSERT_TRUE(r);
    ASSERT_EQ(r->points->size(), 5u);
    for (int k = 0; k < 4; ++k) {
        const Vec4f& p = r->points->P[size_t(1 + k)];
        EXPECT_NEAR(p.x, 1.f - 10.f * (float(k) / 4.f) * kDt, 1e-5f) << k;
        EXPECT_FLOAT_EQ(p.y, 2.f);
        EXPECT_FLOAT_EQ(r->points->v[size_t(1 + k)].x, 10.f);
    }
}

TEST_F(DynamicNodesTest, DustEmitWithoutTrailStaysWithinJitter)
{
    BodyPtr target = dynamicBody(std::make_shared<Body>());
    BodyPtr emitter = movingPoint(Vec4f(1.f, 2.f, 3.f), Vec4f(10.f, 0.f, 0.f));
    auto* d = makeWith<DustEmitNode>("dust-emit", {target, emitter});
    set(d, "emissionAmount", "20");
    set(d, "trailLength", "0");
    set(d, "jitter", "0.01");
    BodyPtr r = pull(d, 1.f);
    ASSERT_TRUE(r);
    ASSERT_EQ(r->points->size(), 20u);
    bool anyOffset = false;
    for (const Vec4f& p : r->points->P) {
        const float dist = (p - Vec4f(1.f, 2.f, 3.f)).length3();
        EXPECT_LE(dist, 0.01f + 1e-6f);
        anyOffset = anyOffset || dist > 0.f;
    }
    EXPECT_TRUE(anyOffset);
}

TEST_F(DynamicNodesTest, ParticleBurstEmitsAtTheRateAndAdvances)
{
    ASSERT_FLOAT_EQ(nodeMaster->fps(), 24.f);
    auto* b = make<ParticleBurstNode>("particle-burst");
    set(b, "amount", "24");
    set(b, "translateY", "1");
    BodyPtr r;
    for (int f = 1; f <= 3; ++f) {
        r = pull(b, float(f));
        ASSERT_TRUE(r);
        EXPECT_EQ(r->points->size(), size_t(f)) << f;
    }
    EXPECT_TRUE(r->isDynamic);
    // The first particle has moved twice; its speed is `speed` (4, no randomness).
    const Vec4f v = r->points->v[0];
    EXPECT_NEAR(v.length3(), 4.f, 1e-3f);
    EXPECT_NEAR(r->points->P[0].y, 1.f + 2.f * kDt * v.y, 1e-5f);
    EXPECT_NEAR((*r->points->attribAs<FloatArray>("age"))[0], 2.f * kDt, 1e-6f);
    EXPECT_EQ(r->points->Cd[0], Vec4f(0.9f, 0.9f, 0.9f, 0.f));

    auto* half = make<ParticleBurstNode>("particle-burst");
    set(half, "amount", "12");
    std::vector<size_t> counts;
    for (int f = 1; f <= 4; ++f) counts.push_back(pull(half, float(f))->points->size());
    EXPECT_EQ(counts, (std::vector<size_t>{0, 1, 1, 2}));
}

TEST_F(DynamicNodesTest, ParticleEmitPutsPointsOnTheTriangle)
{
    auto* e =
        makeWith<ParticleEmitNode>("particle-emit", {dynamicBody(std::make_shared<Body>()), oneTriangle()});
    set(e, "speed", "2");
    set(e, "resolution", "4");
    BodyPtr r = pull(e, 1.f);
    ASSERT_TRUE(r);
    // area 0.5 * 14 / spacing 0.25
    ASSERT_EQ(r->points->size(), 28u);
    ASSERT_TRUE(r->points->hasV);
    ASSERT_TRUE(r->points->hasCd);
    EXPECT_TRUE(r->points->hasAttrib("age"));
    for (size_t i = 0; i < r->points->size(); ++i) {
        const Vec4f& p = r->points->P[i];
        EXPECT_FLOAT_EQ(p.y, 0.f);
        EXPECT_GE(p.x, 0.f);
        EXPECT_GE(p.z, 0.f);
        EXPECT_LE(p.x + p.z, 1.f + 1e-5f);
        EXPECT_NEAR(r->points->v[i].y, 2.f, 1e-5f);
        EXPECT_EQ(r->points->Cd[i], Vec4f(0.9f, 0.9f, 0.9f, 0.f));
    }
}

TEST_F(DynamicNodesTest, ParticleEmitFromAnEmptyMeshPrintsAndEmitsNothing)
{
    auto* e = makeWith<ParticleEmitNode>(
        "particle-emit", {dynamicBody(pointsBody({Vec4f(1.f, 1.f, 1.f)})), std::make_shared<Body>()});
    testing::internal::CaptureStdout();
    BodyPtr r = pull(e, 1.f);
    const std::string out = testing::internal::GetCapturedStdout();
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 1u);
    EXPECT_NE(out.find("no polygons"), std::string::npos) << out;

    // A triangle with a NaN corner is skipped with a message.
    BodyPtr bad = oneTriangle();
    bad->points->P[1].x = std::numeric_limits<float>::quiet_NaN();
    auto* e2 = makeWith<ParticleEmitNode>("particle-emit", {dynamicBody(std::make_shared<Body>()), bad});
    testing::internal::CaptureStdout();
    r = pull(e2, 1.f);
    const std::string out2 = testing::internal::GetCapturedStdout();
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 0u);
    EXPECT_NE(out2.find("skipped"), std::string::npos) << out2;
}

TEST_F(DynamicNodesTest, EmitCopiesListedAttributesAndScalesVelocity)
{
    BodyPtr target = dynamicBody(pointsBody({Vec4f(9.f, 9.f, 9.f)}));
    BodyPtr src = movingPoint(Vec4f(1.f, 2.f, 3.f), Vec4f(1.f, 0.f, 0.f));
    src->points->addAttrib("Cd", ATTRIB_COLOR);
    src->points->Cd[0] = Vec4f(0.f, 1.f, 0.f);
    src->points->addAttrib("temperature", ATTRIB_FLOAT);
    auto* e = makeWith<EmitNode>("emit", {target, src});
    set(e, "velScale", "2");
    set(e, "pointSize", "0.25");
    BodyPtr r = pull(e, 1.f);
    ASSERT_TRUE(r);
    ASSERT_EQ(r->points->size(), 2u);
    const PointData& pd = *r->points;
    EXPECT_EQ(pd.P[1], Vec4f(1.f, 2.f, 3.f));
    ASSERT_TRUE(pd.hasV);
    EXPECT_FLOAT_EQ(pd.v[1].x, 2.f);
    ASSERT_TRUE(pd.hasCd);
    EXPECT_EQ(pd.Cd[1], Vec4f(0.f, 1.f, 0.f));
    EXPECT_FALSE(pd.hasAttrib("temperature")); // not listed
    ASSERT_TRUE(pd.hasAttrib("emissionPos"));
    EXPECT_EQ((*pd.attribAs<VecArray>("emissionPos"))[1], Vec4f(1.f, 2.f, 3.f));
    EXPECT_FLOAT_EQ((*pd.attribAs<FloatArray>("width"))[1], 0.25f);
}

TEST_F(DynamicNodesTest, EmitFillsTheInsideVoxelsOfADistanceGrid)
{
    BodyPtr volume = sphereVolume(0.3f, 0.1f);
    size_t inside = 0;
    auto grid = openvdb::gridPtrCast<openvdb::FloatGrid>(volume->volumes->volume("distance"));
    for (auto it = grid->cbeginValueOn(); it; ++it)
        if (*it < 0.f) ++inside;
    ASSERT_GT(inside, 0u);

    BodyPtr target = dynamicBody(movingPoint(Vec4f(9.f, 9.f, 9.f), Vec4f()));
    target->points->addAttrib("Cd", ATTRIB_COLOR);
    auto* e = makeWith<EmitNode>("emit", {target, volume});
    set(e, "oversample", "2");
    BodyPtr r = pull(e, 1.f);
    ASSERT_TRUE(r);
    ASSERT_EQ(r->points->size(), 1u + 2u * inside);
    for (size_t i = 1; i < r->points->size(); ++i) {
        EXPECT_LT(r->points->P[i].length3(), 0.3f + 0.2f);
        EXPECT_EQ(r->points->Cd[i], Vec4f(0.5f, 0.5f, 0.5f, 0.f));
    }

    set(e, "oversample", "0");
    r = pull(e, 2.f);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 1u);
}

TEST_F(DynamicNodesTest, EmitFromAVolumeWithoutDistancePrints)
{
    BodyPtr volume = vectorVolume(openvdb::Vec3s(1.f, 0.f, 0.f), 1);
    auto* e = makeWith<EmitNode>("emit", {dynamicBody(std::make_shared<Body>()), volume});
    testing::internal::CaptureStdout();
    BodyPtr r = pull(e, 1.f);
    const std::string out = testing::internal::GetCapturedStdout();
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 0u);
    EXPECT_NE(out.find("volume doesn't have sdf."), std::string::npos) << out;
}

TEST_F(DynamicNodesTest, CollidePushesOutToCollisionDistance)
{
    BodyPtr in = dynamicBody(movingPoint(Vec4f(0.f, 0.95f, 0.f), Vec4f(1.f, -1.f, 0.f)));
    auto* c = makeWith<CollideNode>("collide", {in, sphereVolume(1.f, 0.05f)});
    set(c, "collDist", "0.1");
    set(c, "friction", "0");
    set(c, "staticFrictionMulti", "0");
    BodyPtr r = pull(c, 1.f);
    ASSERT_TRUE(r);
    EXPECT_NEAR(r->points->P[0].y, 1.1f, 0.01f);
    EXPECT_NEAR(r->points->P[0].x, 0.f, 1e-3f);
    // the tangential part stays, the normal part goes: v = t + c with c = 0
    EXPECT_NEAR(r->points->v[0].x, 1.f, 0.01f);
    EXPECT_NEAR(r->points->v[0].y, 0.f, 0.01f);
}

TEST_F(DynamicNodesTest, CollideDefaultFrictionStopsTangentialMotion)
{
    BodyPtr in = dynamicBody(movingPoint(Vec4f(0.f, 0.95f, 0.f), Vec4f(1.f, -1.f, 0.f)));
    // far away: out of the band, untouched
    in->points->addPointV(Vec4f(0.f, 3.f, 0.f), Vec4f(1.f, -1.f, 0.f));
    in->points->addPointV(Vec4f(std::numeric_limits<float>::quiet_NaN(), 1.f, 0.f), Vec4f(1.f, -1.f, 0.f));
    auto* c = makeWith<CollideNode>("collide", {in, sphereVolume(1.f, 0.05f)});
    set(c, "collDist", "0.1");
    testing::internal::CaptureStdout();
    BodyPtr r = pull(c, 1.f);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("1 points with non-finite positions skipped."), std::string::npos) << out;
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->v[2], Vec4f(1.f, -1.f, 0.f));
    EXPECT_NEAR(r->points->v[0].length3(), 0.f, 1e-4f);
    EXPECT_EQ(r->points->P[1], Vec4f(0.f, 3.f, 0.f));
    EXPECT_EQ(r->points->v[1], Vec4f(1.f, -1.f, 0.f));
}

TEST_F(DynamicNodesTest, CollideWithCollisionOffStillSticks)
{
    BodyPtr in = dynamicBody(movingPoint(Vec4f(0.f, 1.05f, 0.f), Vec4f(2.f, 0.f, 0.f)));
    auto* c = makeWith<CollideNode>("collide", {in, sphereVolume(1.f, 0.05f)});
    set(c, "collide", "false");
    set(c, "collDist", "0.1");
    set(c, "stickDist", "0.1");
    set(c, "stickStrength", "0.5");
    BodyPtr r = pull(c, 1.f);
    ASSERT_TRUE(r);
    EXPECT_NEAR(r->points->v[0].x, 1.f, 1e-5f);
    EXPECT_FLOAT_EQ(r->points->P[0].y, 1.05f);
}

TEST_F(DynamicNodesTest, CollideReadsAndMovesAFileCollider)
{
    namespace fs = boost::filesystem;
    const fs::path dir = fs::temp_directory_path() / fs::unique_path("qorva-collide-%%%%-%%%%");
    fs::create_directories(dir);
    const std::string path = (dir / "cube.obj").string();
    std::ofstream(path, std::ios::binary) << kCubeObj;

    // The cube moved up by 1 spans y 0.5..1.5; the point sits 0.05 under its top.
    BodyPtr in = dynamicBody(movingPoint(Vec4f(0.f, 1.45f, 0.f), Vec4f(0.f, -1.f, 0.f)));
    auto* c = makeWith<CollideNode>("collide", {in});
    set(c, "filePath", path);
    set(c, "translateY", "1");
    set(c, "collDist", "0.1");
    set(c, "sdfOuterBand", "3");
    BodyPtr r = pull(c, 1.f);
    fs::remove_all(dir);
    ASSERT_TRUE(r);
    ASSERT_TRUE(c->sdfBody);
    EXPECT_NEAR(r->points->P[0].y, 1.6f, 0.02f);
    EXPECT_NEAR(r->points->v[0].length3(), 0.f, 1e-4f);
}

TEST_F(DynamicNodesTest, CollideWithoutDistanceGridPrintsAndPasses)
{
    BodyPtr in = dynamicBody(movingPoint(Vec4f(0.f, 0.f, 0.f), Vec4f(1.f, 0.f, 0.f)));
    auto* c = makeWith<CollideNode>("collide", {in, vectorVolume(openvdb::Vec3s(0.f), 1)});
    testing::internal::CaptureStdout();
    BodyPtr r = pull(c, 1.f);
    const std::string out = testing::internal::GetCapturedStdout();
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->v[0], Vec4f(1.f, 0.f, 0.f));
    EXPECT_NE(out.find(": volume doesn't have sdf.\n"), std::string::npos) << out;
}

TEST_F(DynamicNodesTest, ForceAddsDirectionTimesStrengthTimesDt)
{
    BodyPtr in = dynamicBody(movingPoint(Vec4f(0.f, 0.f, 0.f), Vec4f(1.f, 0.f, 0.f)));
    in->points->addPointV(Vec4f(0.f, std::numeric_limits<float>::quiet_NaN(), 0.f), Vec4f(1.f, 0.f, 0.f));
    auto* f = makeWith<ForceNode>("force", {in});
    set(f, "directionY", "1");
    set(f, "strength", "3");
    testing::internal::CaptureStdout();
    BodyPtr r = pull(f, 1.f);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("1 points with non-finite positions skipped."), std::string::npos) << out;
    ASSERT_TRUE(r);
    EXPECT_FLOAT_EQ(r->points->v[0].x, 1.f);
    EXPECT_FLOAT_EQ(r->points->v[0].y, 3.f * kDt);
    EXPECT_EQ(r->points->v[1], Vec4f(1.f, 0.f, 0.f)); // a NaN position is left alone
}

TEST_F(DynamicNodesTest, ForceAsWindBlendsTowardsTheForce)
{
    BodyPtr in = dynamicBody(movingPoint(Vec4f(0.f, 0.f, 0.f), Vec4f(0.f, 0.f, 0.f)));
    auto* f = makeWith<ForceNode>("force", {in});
    set(f, "directionX", "1");
    set(f, "strength", "5");
    set(f, "isWind", "true");
    BodyPtr r = pull(f, 1.f);
    ASSERT_TRUE(r);
    const float b = 0.05f * kDt * 24.f;
    EXPECT_NEAR(r->points->v[0].x, b * 5.f, 1e-5f);
}

TEST_F(DynamicNodesTest, ForceSamplesTheVectorVolumeAndTheMask)
{
    BodyPtr in = dynamicBody(movingPoint(Vec4f(0.f, 0.f, 0.f), Vec4f(0.f, 0.f, 0.f)));
    in->points->addPointV(Vec4f(2.f, 0.f, 0.f), Vec4f(0.f, 0.f, 0.f)); // outside the mask sphere
    auto* f = makeWith<ForceNode>(
        "force", {in, vectorVolume(openvdb::Vec3s(0.f, 0.f, 3.f), 30), sphereVolume(1.f, 0.1f)});
    set(f, "volStrength", "2");
    BodyPtr r = pull(f, 1.f);
    ASSERT_TRUE(r);
    EXPECT_NEAR(r->points->v[0].z, 2.f * 3.f * kDt, 1e-5f);
    EXPECT_EQ(r->points->v[1], Vec4f(0.f, 0.f, 0.f));
}

TEST_F(DynamicNodesTest, ForceOnAVelocityGridChangesItsVoxels)
{
    BodyPtr in = dynamicBody(vectorVolume(openvdb::Vec3s(1.f, 0.f, 0.f), 1));
    auto* f = makeWith<ForceNode>("force", {in});
    set(f, "directionY", "1");
    set(f, "strength", "2");
    BodyPtr r = pull(f, 1.f);
    ASSERT_TRUE(r);
    auto grid = openvdb::gridPtrCast<openvdb::Vec3SGrid>(r->volumes->volume("velocity"));
    ASSERT_TRUE(grid);
    EXPECT_EQ(grid->activeVoxelCount(), 27u);
    for (auto it = grid->cbeginValueOn(); it; ++it) {
        EXPECT_FLOAT_EQ((*it).x(), 1.f);
        EXPECT_NEAR((*it).y(), 2.f * kDt, 1e-6f);
    }
}

TEST_F(DynamicNodesTest, ForceWithVolumeAdvectMovesDensity)
{
    // A smoke Body: velocity and a density blob at the origin; the vector volume blows +x.
    BodyPtr smoke = vectorVolume(openvdb::Vec3s(0.f), 2);
    auto density = openvdb::FloatGrid::create(0.f);
    density->setTransform(openvdb::math::Transform::createLinearTransform(0.1));
    density->tree().setValue(openvdb::Coord(0, 0, 0), 1.f);
    smoke->volumes->setVolume("density", VOLUME_FLOAT, density);
    smoke->isDynamic = true;
    auto* f = makeWith<ForceNode>("force", {smoke, vectorVolume(openvdb::Vec3s(1.f, 0.f, 0.f), 30)});
    set(f, "volAdvect", "true");
    BodyPtr r = pull(f, 1.f);
    ASSERT_TRUE(r);
    auto moved = openvdb::gridPtrCast<openvdb::FloatGrid>(r->volumes->volume("density"));
    ASSERT_TRUE(moved);
    // 1 m/s for 0.1 s is one voxel: the blob now sits at i = 1
    EXPECT_NEAR(moved->tree().getValue(openvdb::Coord(1, 0, 0)), 1.f, 1e-4f);
    EXPECT_NEAR(moved->tree().getValue(openvdb::Coord(0, 0, 0)), 0.f, 1e-4f);
    // the force of the vector volume reached the velocity grid too
    auto vel = openvdb::gridPtrCast<openvdb::Vec3SGrid>(r->volumes->volume("velocity"));
    EXPECT_NEAR(vel->tree().getValue(openvdb::Coord(0, 0, 0)).x(), kDt, 1e-5f);
}

TEST_F(DynamicNodesTest, ForceNoiseMovesPointsWhenItHasStrength)
{
    BodyPtr in = dynamicBody(movingPoint(Vec4f(0.3f, 0.7f, 0.1f), Vec4f(0.f, 0.f, 0.f)));
    auto* f = makeWith<ForceNode>("force", {in});
    set(f, "turbStrength", "1");
    BodyPtr r = pull(f, 1.f);
    ASSERT_TRUE(r);
    EXPECT_GT(r->points->v[0].length3(), 0.f);
    set(f, "noiseType", "Curl");
    r = pull(f, 2.f);
    ASSERT_TRUE(r);
    EXPECT_GT(r->points->v[0].length3(), 0.f);
}

} // namespace
