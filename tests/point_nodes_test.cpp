// Point nodes: Point, Point-Delete (indices, mask volume, per-point mask, bad index
// text), Sort-Points, Split on both outputs and Switch, each on a few hand-made points.
#include "nodetestkit.h"

#include "nodes/pointdeletenode.h"
#include "nodes/pointnode.h"
#include "nodes/sortpointsnode.h"
#include "nodes/splitnode.h"
#include "nodes/switchnode.h"

#include <gtest/gtest.h>

#include <openvdb/openvdb.h>
#include <openvdb/tools/LevelSetSphere.h>

namespace {

BodyPtr pointsAlongX(int count)
{
    auto b = std::make_shared<Body>();
    b->points->addAttrib("id", ATTRIB_INT);
    for (int i = 0; i < count; ++i) {
        b->points->addPoint(Vec4f(float(i), 0.f, 0.f));
        (*b->points->attribAs<IntArray>("id"))[size_t(i)] = 10 + i;
    }
    return b;
}

using PointNodesTest = NodeTestBase;

TEST_F(PointNodesTest, PointWithoutInputMakesOnePointAtItsPosition)
{
    auto* p = make<PointNode>("point");
    set(p, "posX", "1");
    set(p, "posY", "2");
    set(p, "posZ", "-3");
    BodyPtr r = pullAnew(p);
    ASSERT_TRUE(r);
    ASSERT_EQ(r->points->size(), 1u);
    EXPECT_EQ(r->points->P[0], Vec4f(1.f, 2.f, -3.f));
}

TEST_F(PointNodesTest, PointAppendsToInputAndRemovesMesh)
{
    BodyPtr in = pointsAlongX(3);
    in->vertices->addVertexList({0, 1, 2});
    in->prims->addPrim(PrimData::POLYGON);
    auto* p = makeWith<PointNode>("point", {in});
    BodyPtr r = pullAnew(p);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 4u);
    EXPECT_EQ(r->prims->size(), 1u);
    EXPECT_EQ((*r->points->attribAs<IntArray>("id"))[3], 0); // new point at defaults

    set(p, "removeMesh", "true");
    set(p, "addPoint", "false");
    r = pullAnew(p);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 3u);
    EXPECT_EQ(r->prims->size(), 0u);
    EXPECT_EQ(r->vertices->size(), 0u);
    EXPECT_EQ(r->numVertices, 0u);
}

TEST_F(PointNodesTest, PointDeleteByIndices)
{
    auto* d = makeWith<PointDeleteNode>("point-delete", {pointsAlongX(4)});
    set(d, "indices", "0 2");
    BodyPtr r = pullAnew(d);
    ASSERT_TRUE(r);
    EXPECT_EQ(sortedXs(r), (std::vector<float>{1.f, 3.f}));
    // removePoint moves the last point into the freed slot
    EXPECT_EQ(xs(r), (std::vector<float>{3.f, 1.f}));
    EXPECT_FALSE(r->points->hasAttrib("__internal"));
    EXPECT_FALSE(d->error);

    set(d, "indices", "1, 7, -2");
    r = pullAnew(d);
    EXPECT_EQ(sortedXs(r), (std::vector<float>{0.f, 2.f, 3.f}));
}

TEST_F(PointNodesTest, PointDeleteBadIndexTextGivesErrorAndEmptyBody)
{
    auto* d = makeWith<PointDeleteNode>("point-delete", {pointsAlongX(4)});
    set(d, "indices", "1 two");
    testing::internal::CaptureStdout();
    BodyPtr r = pullAnew(d);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("invalid stoi argument"), std::string::npos);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 0u);
    EXPECT_TRUE(d->error);

    set(d, "indices", "99999999999");
    testing::internal::CaptureStdout();
    r = pullAnew(d);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("stoi argument out of range"), std::string::npos);
    EXPECT_EQ(r->points->size(), 0u);

    set(d, "indices", "3");
    r = pullAnew(d);
    EXPECT_EQ(r->points->size(), 3u);
    EXPECT_FALSE(d->error);
}

TEST_F(PointNodesTest, PointDeleteByMaskVolume)
{
    auto points = std::make_shared<Body>();
    points->points->addPoint(Vec4f(0.f, 0.f, 0.f));
    points->points->addPoint(Vec4f(3.f, 0.f, 0.f));
    points->points->addPoint(Vec4f(0.f, 1.1f, 0.f)); // just outside the sphere
    auto mask = std::make_shared<Body>();
    mask->volumes->setVolume(
        "distance", VOLUME_FLOAT,
        openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(1.f, openvdb::Vec3f(0.f), 0.1f));
    auto* d = makeWith<PointDeleteNode>("point-delete", {points, mask});
    BodyPtr r = pullAnew(d);
    ASSERT_TRUE(r);
    EXPECT_EQ(sortedXs(r), (std::vector<float>{0.f, 3.f}));
    const Vec4f& kept = r->points->P[0].x == 0.f ? r->points->P[0] : r->points->P[1];
    EXPECT_FLOAT_EQ(kept.y, 1.1f); // the centre point went, the one just outside stayed

    set(d, "proximity", "0.2"); // reaches the point just outside
    r = pullAnew(d);
    EXPECT_EQ(xs(r), (std::vector<float>{3.f}));

    set(d, "proximity", "0");
    set(d, "invertVolume", "true");
    r = pullAnew(d);
    ASSERT_EQ(r->points->size(), 1u);
    EXPECT_EQ(r->points->P[0], Vec4f(0.f, 0.f, 0.f));
}

TEST_F(PointNodesTest, PointDeleteWithPerPointEnabled)
{
    auto* d = makeWith<PointDeleteNode>("point-delete", {pointsAlongX(4)});
    set(d, "enabled", "@P.x > 1.5");
    BodyPtr r = pullAnew(d);
    EXPECT_EQ(sortedXs(r), (std::vector<float>{0.f, 1.f}));

    // with indices the formula only restricts them
    set(d, "indices", "0 3");
    r = pullAnew(d);
    EXPECT_EQ(sortedXs(r), (std::vector<float>{0.f, 1.f, 2.f}));

    set(d, "enabled", "false");
    r = pullAnew(d);
    EXPECT_EQ(r->points->size(), 4u);
}

TEST_F(PointNodesTest, PointDeleteDropsPrimitivesOfDeletedPoints)
{
    BodyPtr in = pointsAlongX(5);
    in->vertices->addVertexList({0, 1, 2});
    in->prims->addPrim(PrimData::POLYGON);
    in->vertices->addVertexList({3, 4});
    in->prims->addPrim(PrimData::LINE);
    in->pointConstraints.push_back({3, 4, 1.f, 1.f, 0.f, 0, 0, 0, 0});
    auto* d = makeWith<PointDeleteNode>("point-delete", {in});
    set(d, "indices", "1");
    BodyPtr r = pullAnew(d);
    ASSERT_TRUE(r);
    ASSERT_EQ(r->points->size(), 4u);
    ASSERT_EQ(r->prims->size(), 1u);
    EXPECT_EQ(r->prims->kinds[0], uint32_t(PrimData::LINE));
    // the line still joins the points at x 3 and 4
    const auto& line = r->vertices->indices[0];
    ASSERT_EQ(line.size(), 2u);
    EXPECT_EQ(r->points->P[line[0]].x, 3.f);
    EXPECT_EQ(r->points->P[line[1]].x, 4.f);
    ASSERT_EQ(r->pointConstraints.size(), 1u);
    EXPECT_EQ(r->points->P[r->pointConstraints[0].a].x + r->points->P[r->pointConstraints[0].b].x, 7.f);
    EXPECT_EQ(r->numVertices, 2u);
}

TEST_F(PointNodesTest, SortPointsByIdAndByOtherAttributes)
{
    auto in = std::make_shared<Body>();
    in->points->addAttrib("id", ATTRIB_INT);
    in->points->addAttrib("age", ATTRIB_FLOAT);
    in->points->addAttrib("name", ATTRIB_STRING);
    const int ids[] = {3, 1, 2, 0};
    const float ages[] = {0.5f, -1.f, 0.5f, 0.2f};
    const char* names[] = {"d", "b", "a", "c"};
    for (int i = 0; i < 4; ++i) {
        in->points->addPoint(Vec4f(float(i), 0.f, 0.f));
        (*in->points->attribAs<IntArray>("id"))[size_t(i)] = ids[i];
        (*in->points->attribAs<FloatArray>("age"))[size_t(i)] = ages[i];
        (*in->points->attribAs<StringArray>("name"))[size_t(i)] = names[i];
    }
    auto* s = makeWith<SortPointsNode>("sort-points", {in});
    EXPECT_EQ(s->params.get("sortAttribName")->text, "id");
    BodyPtr r = pullAnew(s);
    EXPECT_EQ(xs(r), (std::vector<float>{3.f, 1.f, 2.f, 0.f}));
    EXPECT_EQ(*r->points->attribAs<IntArray>("id"), (IntArray{0, 1, 2, 3}));

    set(s, "sortAttribName", "age"); // stable: the two 0.5 keep their order
    r = pullAnew(s);
    EXPECT_EQ(xs(r), (std::vector<float>{1.f, 3.f, 0.f, 2.f}));
    EXPECT_EQ(*r->points->attribAs<IntArray>("id"), (IntArray{1, 0, 3, 2}));

    set(s, "sortAttribName", "name");
    r = pullAnew(s);
    EXPECT_EQ(xs(r), (std::vector<float>{2.f, 1.f, 3.f, 0.f}));

    set(s, "sortAttribName", "missing");
    r = pullAnew(s);
    EXPECT_EQ(xs(r), (std::vector<float>{0.f, 1.f, 2.f, 3.f}));
}

TEST_F(PointNodesTest, SplitSendsMarkedPointsToSecondOutput)
{
    auto* sp = make<SplitNode>("split");
    ASSERT_EQ(sp->outputs.size(), 2u);
    EXPECT_EQ(sp->outputs[0]->name, "Remaining-Output");
    EXPECT_EQ(sp->outputs[1]->name, "Split-Condition-Output");
    wire(source(pointsAlongX(5)), sp);
    set(sp, "splitCondition", "@P.x > 2.5");
    BodyPtr rest = pullAnew(sp, 0);
    BodyPtr marked = pullAnew(sp, 1);
    EXPECT_EQ(xs(rest), (std::vector<float>{0.f, 1.f, 2.f}));
    EXPECT_EQ(xs(marked), (std::vector<float>{3.f, 4.f}));
    EXPECT_EQ(*marked->points->attribAs<IntArray>("id"), (IntArray{13, 14}));
    EXPECT_FALSE(rest->points->hasAttrib("__internal"));
    EXPECT_FALSE(marked->points->hasAttrib("__internal"));
}

TEST_F(PointNodesTest, SplitWithoutRemoveFromInputKeepsMarkedPointsOnBothOutputs)
{
    auto* sp = makeWith<SplitNode>("split", {pointsAlongX(4)});
    set(sp, "splitCondition", "@P.x < 1.5");
    set(sp, "removeFromInput", "false");
    BodyPtr rest = pullAnew(sp, 0);
    BodyPtr marked = pullAnew(sp, 1);
    EXPECT_EQ(xs(rest), (std::vector<float>{0.f, 1.f, 2.f, 3.f}));
    EXPECT_EQ(xs(marked), (std::vector<float>{0.f, 1.f}));

    set(sp, "splitCondition", "true"); // a plain value marks every point
    set(sp, "removeFromInput", "true");
    EXPECT_EQ(pullAnew(sp, 0)->points->size(), 0u);
    EXPECT_EQ(pullAnew(sp, 1)->points->size(), 4u);
}

TEST_F(PointNodesTest, SwitchPassesTheChosenInputOnly)
{
    FixedNode* a = source(pointsAlongX(1));
    FixedNode* b = source(pointsAlongX(2));
    auto* sw = make<SwitchNode>("switch");
    ASSERT_EQ(sw->inputs.size(), 2u);
    EXPECT_EQ(sw->inputs[0]->name, "Input");
    EXPECT_EQ(sw->inputs[1]->name, "Input1");
    wire(a, sw, 0);
    wire(b, sw, 1);

    EXPECT_EQ(pullAnew(sw)->points->size(), 1u);
    set(sw, "input", "1");
    a->cooks = 0;
    EXPECT_EQ(pullAnew(sw)->points->size(), 2u);
    EXPECT_EQ(a->cooks, 0);
    set(sw, "input", "7"); // clamped to the last input
    EXPECT_EQ(pullAnew(sw)->points->size(), 2u);
    set(sw, "input", "-4");
    EXPECT_EQ(pullAnew(sw)->points->size(), 1u);
    set(sw, "input", "1");
    set(sw, "enabled", "false");
    EXPECT_EQ(pullAnew(sw)->points->size(), 1u);

    // the change check follows the chosen input alone
    set(sw, "enabled", "true");
    sw->params.evaluateAll(1.f, 0);
    a->checks = b->checks = 0;
    checkAt(sw, 1.f, true);
    EXPECT_EQ(a->checks, 0);
    EXPECT_EQ(b->checks, 1);
}

TEST_F(PointNodesTest, SwitchWithoutInputsSendsNothing)
{
    auto* sw = make<SwitchNode>("switch");
    EXPECT_FALSE(pullAnew(sw)); // plugs unwired
    while (!sw->inputs.empty()) sw->deregisterPlug(sw->inputs.back());
    EXPECT_EQ(sw->chosenInput(), -1);
    checkAt(sw, 1.f, true);
    EXPECT_FALSE(pullAnew(sw));
}

} // namespace
