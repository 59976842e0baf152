// The granular node chain and the bridge to the classic systems: Granular-Origin and
// Granular-Solver (cached times, constraints present but not created, a settling pile on a
// classic collider), Import-System and Export-System, Collide-Classic, and bad input.
#include "collidefixtures.h"
#include "nodetestkit.h"

#include "nodes/collideclassicnode.h"
#include "nodes/exportsystemnode.h"
#include "nodes/granularoriginnode.h"
#include "nodes/granularsolvernode.h"
#include "nodes/importsystemnode.h"
#include "nodes/systemnodes.h"
#include "particles/granularparticlesystem.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace {

// Adds gravity to the velocity of the dynamic Body passing through, once per cook.
class TestGravityNode : public GeoNode {
public:
    explicit TestGravityNode(NodeMaster* master) : GeoNode(master)
    {
        setType("Test-Gravity");
        addInput("Input", true);
        addOutput("Output");
    }
    void process(BodyPtr& result, const CookCaller& c) override
    {
        std::unique_lock<std::mutex> lock;
        if (prologue(result, c, lock)) return;
        BodyPtr body;
        fetchInput(body, 0);
        if (body && body->points->hasV)
            for (Vec4f& v : body->points->v) v.y -= 9.81f * context.graphDt;
        finishProcess(result, c, std::move(body), false);
    }
};

class GranularNodesTest : public NodeTestBase {
protected:
    void SetUp() override
    {
        NodeTestBase::SetUp();
        fixtures::resetRunState();
        savedDt = nodeMaster->graphDt;
        nodeMaster->runFlag = true;
    }
    void TearDown() override
    {
        nodeMaster->graphDt = savedDt;
        for (SceneObject* o : made) simulation->removeObject(o);
        NodeTestBase::TearDown();
    }

    TestGravityNode* gravity()
    {
        auto* n = new TestGravityNode(nodeMaster);
        nodeMaster->registerNode(n);
        return n;
    }
    GranularParticleSystem* granularSystem(const std::string& name)
    {
        GranularParticleSystem* g = simulation->createGranularSystem(name);
        made.push_back(g);
        return g;
    }

    float savedDt = 1.f / 24.f;
    std::vector<SceneObject*> made;
};

float distance(const Vec4f& a, const Vec4f& b)
{
    return (a - b).length3();
}

// Two points 0.12 apart, linked both ways with rest length 0.115, and a third point 0.11
// from the first with no links.
BodyPtr linkedPair()
{
    BodyPtr b =
        pointsBody({Vec4f(0.f, 1.f, 0.f, 0.f), Vec4f(0.12f, 1.f, 0.f, 0.f), Vec4f(0.f, 1.11f, 0.f, 0.f)});
    b->points->addAttrib("data_constrIndices", ATTRIB_INT_LIST);
    b->points->addAttrib("data_constrDistances", ATTRIB_FLOAT_LIST);
    auto& partners = *b->points->attribAs<IntListArray>("data_constrIndices");
    auto& rests = *b->points->attribAs<FloatListArray>("data_constrDistances");
    partners[0] = {1};
    partners[1] = {0};
    rests[0] = {0.115f};
    rests[1] = {0.115f};
    return b;
}

TEST_F(GranularNodesTest, CookingACachedTimeDoesNotMoveTheParticles)
{
    auto* origin = makeWith<GranularOriginNode>("granular-origin", {pointsBody({Vec4f(0.f, 2.f, 0.f, 0.f)})});
    TestGravityNode* g = gravity();
    auto* solver = make<GranularSolverNode>("granular-solver");
    wire(origin, g);
    wire(g, solver);
    pull(solver, 1.f);
    const float y1 = pull(solver, 2.f)->points->P[0].y;
    const float y2 = pull(solver, 3.f)->points->P[0].y;
    EXPECT_LT(y2, y1); // a new time moves the point
    const BodyPtr again = pull(solver, 3.f);
    ASSERT_EQ(again->points->size(), 1u);
    EXPECT_EQ(again->points->P[0].y, y2);
    EXPECT_EQ(pull(solver, 3.f)->points->P[0].y, y2);
}

TEST_F(GranularNodesTest, ConstraintsOffBuildsNoneButSolvesThosePresent)
{
    nodeMaster->graphDt = 1.f / 240.f;
    auto* origin = makeWith<GranularOriginNode>("granular-origin", {linkedPair()});
    auto* solver = make<GranularSolverNode>("granular-solver");
    wire(origin, solver);
    BodyPtr out;
    for (int f = 1; f <= 5; ++f) out = pull(solver, float(f));
    ASSERT_EQ(out->points->size(), 3u);
    const auto& partners = *out->points->attribAs<IntListArray>("data_constrIndices");
    EXPECT_TRUE(partners[2].empty());
    ASSERT_EQ(partners[0].size(), 1u);
    EXPECT_EQ(partners[0][0], 1);
    const float d = distance(out->points->P[0], out->points->P[1]);
    EXPECT_LT(d, 0.119f); // pulled toward the rest length
    EXPECT_GT(d, 0.105f);

    // With creation on, the same input links the free point too.
    nodeMaster->clearGraph();
    auto* origin2 = makeWith<GranularOriginNode>("granular-origin", {linkedPair()});
    auto* creating = make<GranularSolverNode>("granular-solver");
    set(creating, "createConstraints", "true");
    wire(origin2, creating);
    out = pull(creating, 1.f);
    EXPECT_FALSE((*out->points->attribAs<IntListArray>("data_constrIndices"))[2].empty());
}

TEST_F(GranularNodesTest, BrokenConstraintsStayWhileTheBodyHasPrimitives)
{
    nodeMaster->graphDt = 1.f / 240.f;
    for (const bool withPrims : {false, true}) {
        nodeMaster->clearGraph();
        BodyPtr in = linkedPair();
        in->points->P[1].x = 0.3f; // far beyond the break stretch
        if (withPrims) in->prims->addPrim(PrimData::LINE);
        auto* origin = makeWith<GranularOriginNode>("granular-origin", {in});
        auto* solver = make<GranularSolverNode>("granular-solver");
        wire(origin, solver);
        const BodyPtr out = pull(solver, 1.f);
        ASSERT_TRUE(out);
        const auto& partners = *out->points->attribAs<IntListArray>("data_constrIndices");
        EXPECT_EQ(partners[0].size(), withPrims ? 1u : 0u);
        EXPECT_EQ(partners[1].size(), withPrims ? 1u : 0u);
    }
}

TEST_F(GranularNodesTest, NodeChainSettlesAPileOnAClassicCollider)
{
    nodeMaster->graphDt = 1.f / 240.f;
    CollisionObject* ground = fixtures::addCollider(
        fixtures::addObject(fixtures::boxMesh(Vec4f(-2.f, -1.f, -2.f), Vec4f(2.f, 0.f, 2.f)), "pileGround"),
        "pileGroundCollider");
    made.push_back(ground);
    ground->voxelSize = 0.05f;

    // A 4 x 5 x 4 block, slightly jittered, at the particle spacing above the ground.
    std::vector<Vec4f> block;
    for (int x = 0; x < 4; ++x)
        for (int y = 0; y < 5; ++y)
            for (int z = 0; z < 4; ++z) {
                const float j = 0.004f * float((x * 7 + y * 13 + z * 5) % 5) - 0.008f;
                block.push_back(Vec4f(0.1f * float(x) + j, 0.3f + 0.1f * float(y), 0.1f * float(z) - j, 0.f));
            }
    auto* origin = makeWith<GranularOriginNode>("granular-origin", {pointsBody(block)});
    TestGravityNode* g = gravity();
    auto* solver = make<GranularSolverNode>("granular-solver");
    auto* collide = make<CollideClassicNode>("collide-classic");
    set(collide, "colliderName", ground->name);
    wire(origin, g);
    wire(g, solver);
    wire(solver, collide);

    const float r = 0.05f;
    float lowest = 1.f;
    BodyPtr out;
    for (int f = 1; f <= 240; ++f) {
        out = pull(collide, float(f));
        ASSERT_TRUE(out);
        for (const Vec4f& p : out->points->P) lowest = std::min(lowest, p.y);
    }
    const PointData& pts = *out->points;
    ASSERT_EQ(pts.size(), block.size());
    // Never through the ground, and at rest on it.
    EXPECT_GT(lowest, -0.5f * r);
    float minY = 1.f, minPair = 1.f;
    Vec4f momentum;
    for (size_t i = 0; i < pts.size(); ++i) {
        ASSERT_TRUE(std::isfinite(pts.P[i].y));
        minY = std::min(minY, pts.P[i].y);
        momentum += pts.v[i];
        for (size_t j = i + 1; j < pts.size(); ++j) minPair = std::min(minPair, distance(pts.P[i], pts.P[j]));
    }
    EXPECT_GT(minY, 0.5f * r);
    EXPECT_LT(minY, 2.f * r);
    // Overlaps resolved: the closest pair is close to touching.
    EXPECT_GT(minPair, 1.8f * r);
    // Settled: the mean velocity is small.
    EXPECT_LT(momentum.length3() / float(pts.size()), 0.2f);
}

TEST_F(GranularNodesTest, ImportSystemWithAnUnknownNameGivesAnEmptyOutput)
{
    GranularParticleSystem* sys = granularSystem("importSand");
    sys->addParticle(Vec4f(1.f, 2.f, 3.f, 0.f), Vec4f());
    auto* import = make<ImportSystemNode>("import-system");
    set(import, "name", "noSuchSystem");
    BodyPtr out = pull(import, 1.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->size(), 0u);

    set(import, "name", sys->name);
    out = pull(import, 2.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->size(), 1u);
    EXPECT_TRUE(out->wasDynamic);
    EXPECT_FLOAT_EQ(out->points->P[0].z, 3.f);
}

TEST_F(GranularNodesTest, ExportSystemWithAnEmptyInputLeavesTheSystem)
{
    GranularParticleSystem* sys = granularSystem("exportSand");
    sys->addParticle(Vec4f(1.f, 2.f, 3.f, 0.f), Vec4f());
    sys->addParticle(Vec4f(4.f, 5.f, 6.f, 0.f), Vec4f());
    auto* exporter = makeWith<ExportSystemNode>("export-system", {std::make_shared<Body>()});
    set(exporter, "name", sys->name);
    pull(exporter, 1.f);
    ASSERT_EQ(sys->particleCount(), 2u);
    EXPECT_FLOAT_EQ(sys->body->points->P[1].y, 5.f);

    testing::internal::CaptureStdout();
    auto* lost = makeWith<ExportSystemNode>("export-system", {pointsBody({Vec4f(0.f, 0.f, 0.f, 0.f)})});
    set(lost, "name", "noSuchSystem");
    const BodyPtr passed = pull(lost, 1.f);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("no system found.\n"), std::string::npos);
    ASSERT_TRUE(passed);
    EXPECT_EQ(passed->points->size(), 1u);
}

TEST_F(GranularNodesTest, ExportThenImportKeepsPointsAndAttributes)
{
    GranularParticleSystem* sys = granularSystem("roundTrip");
    sys->addParticle(Vec4f(9.f, 9.f, 9.f, 0.f), Vec4f());
    BodyPtr in =
        pointsBody({Vec4f(0.f, 1.f, 0.f, 0.f), Vec4f(1.f, 2.f, 3.f, 0.f), Vec4f(-1.f, 0.5f, 2.f, 0.f)});
    in->points->addAttrib("temperature", ATTRIB_FLOAT);
    auto& t = *in->points->attribAs<FloatArray>("temperature");
    t = {10.f, 20.f, 30.f};
    auto* exporter = makeWith<ExportSystemNode>("export-system", {in});
    set(exporter, "name", sys->name);
    pull(exporter, 1.f);
    auto* import = make<ImportSystemNode>("import-system");
    set(import, "name", sys->name);
    const BodyPtr out = pull(import, 1.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->size(), 3u);
    ASSERT_EQ(out->points->attribType("temperature"), ATTRIB_FLOAT);
    const auto& back = *out->points->attribAs<FloatArray>("temperature");
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_FLOAT_EQ(out->points->P[i].x, in->points->P[i].x);
        EXPECT_FLOAT_EQ(out->points->P[i].y, in->points->P[i].y);
        EXPECT_FLOAT_EQ(out->points->P[i].z, in->points->P[i].z);
        EXPECT_FLOAT_EQ(back[i], t[i]);
    }
}

TEST_F(GranularNodesTest, CollideClassicPushesPointsOutOfAClassicCollider)
{
    CollisionObject* box = fixtures::addCollider(
        fixtures::addObject(fixtures::boxMesh(Vec4f(-1.f, -1.f, -1.f), Vec4f(1.f, 0.f, 1.f)), "pushBox"),
        "pushBoxCollider");
    made.push_back(box);
    box->voxelSize = 0.05f;
    BodyPtr in = pointsBody({Vec4f(0.f, -0.03f, 0.f, 0.f), Vec4f(0.3f, 0.5f, 0.f, 0.f)});
    auto* collide = makeWith<CollideClassicNode>("collide-classic", {in});
    set(collide, "colliderName", box->name);
    const BodyPtr out = pull(collide, 1.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->size(), 2u);
    EXPECT_NEAR(out->points->P[0].y, 0.05f, 0.01f); // on the surface at one radius
    EXPECT_FLOAT_EQ(out->points->P[1].y, 0.5f);     // far away: untouched
    for (const char* name :
         {"posPrev", "force", "deleted", "stick", "sleeping", "restingTime", "constrIndices"})
        EXPECT_NE(out->points->attribType(name), ATTRIB_NONE) << name;
}

TEST_F(GranularNodesTest, NanPositionsPrintAndAreSkipped)
{
    CollisionObject* box = fixtures::addCollider(
        fixtures::addObject(fixtures::boxMesh(Vec4f(-1.f, -1.f, -1.f), Vec4f(1.f, 0.f, 1.f)), "nanBox"),
        "nanBoxCollider");
    made.push_back(box);
    box->voxelSize = 0.05f;
    const float nan = std::numeric_limits<float>::quiet_NaN();
    BodyPtr in = pointsBody({Vec4f(nan, 0.f, 0.f, 0.f), Vec4f(0.f, -0.03f, 0.f, 0.f)});
    auto* collide = makeWith<CollideClassicNode>("collide-classic", {in});
    set(collide, "colliderName", box->name);
    testing::internal::CaptureStdout();
    BodyPtr out = pull(collide, 1.f);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("NaN issue occured in collide-classic node.\n"),
              std::string::npos);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->size(), 2u);
    EXPECT_TRUE(std::isnan(out->points->P[0].x));
    EXPECT_NEAR(out->points->P[1].y, 0.05f, 0.01f);

    // The solver: one line, the bad point kept as it was, the others solved.
    nodeMaster->clearGraph();
    BodyPtr overlap = pointsBody({Vec4f(0.f, 1.f, 0.f, 0.f), Vec4f(0.05f, 1.f, 0.f, 0.f),
                                  Vec4f(std::numeric_limits<float>::infinity(), 1.f, 0.f, 0.f)});
    auto* origin = makeWith<GranularOriginNode>("granular-origin", {overlap});
    auto* solver = make<GranularSolverNode>("granular-solver");
    wire(origin, solver);
    testing::internal::CaptureStdout();
    out = pull(solver, 1.f);
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_NE(text.find("1 points with NaN or inf"), std::string::npos) << text;
    ASSERT_TRUE(out);
    EXPECT_TRUE(std::isinf(out->points->P[2].x));
    EXPECT_GT(distance(out->points->P[0], out->points->P[1]), 0.05f); // pushed apart
}

TEST_F(GranularNodesTest, SystemNodesRunTheirSourcesEmission)
{
    auto* sph = new SPHSystemNode(nodeMaster);
    nodeMaster->registerNode(sph);
    sph->setName("fluidNode");
    auto* src = new SourceSystemNode(nodeMaster);
    nodeMaster->registerNode(src);
    src->setName("tapNode");
    ASSERT_EQ(nodeMaster->connectPlugs(src->outputPlug(0), sph->inputPlug(0)), 0);
    simState->time = 1.f;
    simState->frameF = 24.f;
    testing::internal::CaptureStdout();
    nodeMaster->runSystemNodes();
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_NE(text.find("RUNNING SPH SYSTEM NODE! - name: fluidNode"), std::string::npos) << text;
    EXPECT_NE(text.find("  connected source name: tapNode"), std::string::npos) << text;
    ASSERT_TRUE(sph->body);
    EXPECT_GT(sph->body->points->size(), 0u);
    sph->reset();
    EXPECT_EQ(sph->body->points->size(), 0u);
    EXPECT_EQ(sph->objectId, -1);
}

} // namespace
