// Geometry nodes: Line, Grid, Reverse, Triangulate, Geo-Filter, Merge and Scatter, each
// on a tiny hand-made case (a quad, a few points, a coarse level-set sphere).
#include "nodetestkit.h"

#include "nodes/geofilternode.h"
#include "nodes/gridnode.h"
#include "nodes/linenode.h"
#include "nodes/mergenode.h"
#include "nodes/reversenode.h"
#include "nodes/scatternode.h"
#include "nodes/triangulatenode.h"

#include <gtest/gtest.h>

#include <openvdb/openvdb.h>
#include <openvdb/tools/LevelSetSphere.h>

#include <cmath>

namespace {

BodyPtr quadAndLine()
{
    auto b = std::make_shared<Body>();
    const Vec4f corners[] = {{0, 0, 0}, {1, 0, 0}, {1, 0, 1}, {0, 0, 1}, {3, 0, 0}, {3, 1, 0}};
    for (const Vec4f& p : corners) b->points->addPoint(p);
    b->vertices->addVertexList({0, 1, 2, 3});
    b->prims->addPrim(PrimData::POLYGON);
    b->vertices->addVertexList({4, 5});
    b->prims->addPrim(PrimData::LINE);
    b->updateCounts();
    return b;
}

openvdb::FloatGrid::Ptr sphere(float radius, float voxel)
{
    return openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(radius, openvdb::Vec3f(0.f), voxel);
}

using GeometryNodesTest = NodeTestBase;

TEST_F(GeometryNodesTest, LineRunsUpTheYAxis)
{
    auto* line = make<LineNode>("line");
    set(line, "numPoints", "5");
    set(line, "length", "2");
    BodyPtr r = pullAnew(line);
    ASSERT_TRUE(r);
    ASSERT_EQ(r->points->size(), 5u);
    for (size_t i = 0; i < 5; ++i) EXPECT_EQ(r->points->P[i], Vec4f(0.f, 0.5f * float(i), 0.f));
    ASSERT_EQ(r->prims->size(), 1u);
    EXPECT_EQ(r->prims->kinds[0], uint32_t(PrimData::LINE));
    EXPECT_EQ(r->vertices->indices[0], (std::vector<uint32_t>{0, 1, 2, 3, 4}));
    EXPECT_EQ(r->numVertices, 5u);
    EXPECT_EQ(r->numLineVertices, 5u);

    set(line, "numPoints", "1");
    r = pullAnew(line);
    EXPECT_EQ(r->points->size(), 1u);
    EXPECT_EQ(r->prims->size(), 0u);
    set(line, "numPoints", "0");
    EXPECT_EQ(pullAnew(line)->points->size(), 0u);
}

TEST_F(GeometryNodesTest, GridCountsAndExtents)
{
    auto* grid = make<GridNode>("grid");
    set(grid, "dimX", "2");
    set(grid, "dimZ", "4");
    set(grid, "subdivX", "2");
    set(grid, "subdivZ", "3");
    BodyPtr r = pullAnew(grid);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 12u);
    ASSERT_EQ(r->prims->size(), 6u);
    for (const auto& list : r->vertices->indices) EXPECT_EQ(list.size(), 4u);
    EXPECT_EQ(r->numVertices, 24u);
    EXPECT_EQ(r->pointPrims.size(), 12u);
    EXPECT_EQ(r->pointPrims[4].size(), 4u); // an inner point joins four quads
    Vec4f lo, hi;
    r->getBounds(lo, hi);
    EXPECT_FLOAT_EQ(lo.x, -1.f);
    EXPECT_FLOAT_EQ(hi.x, 1.f);
    EXPECT_FLOAT_EQ(lo.z, -2.f);
    EXPECT_FLOAT_EQ(hi.z, 2.f);
    EXPECT_FLOAT_EQ(lo.y, 0.f);
    EXPECT_FLOAT_EQ(hi.y, 0.f);
    r->computeNormals(false);
    EXPECT_NEAR(r->points->N[5].y, 1.f, 1e-3f);

    auto* defaults = make<GridNode>("grid");
    BodyPtr d = pullAnew(defaults);
    EXPECT_EQ(d->points->size(), 121u);
    EXPECT_EQ(d->prims->size(), 100u);
}

TEST_F(GeometryNodesTest, ReverseFlipsVertexOrder)
{
    auto* rev = makeWith<ReverseNode>("reverse", {quadAndLine()});
    BodyPtr r = pullAnew(rev);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->vertices->indices[0], (std::vector<uint32_t>{3, 2, 1, 0}));
    EXPECT_EQ(r->vertices->indices[1], (std::vector<uint32_t>{5, 4}));
    EXPECT_EQ(r->points->size(), 6u);
}

TEST_F(GeometryNodesTest, TriangulateFansPolygonsAndDropsLines)
{
    BodyPtr in = quadAndLine();
    in->prims->addAttrib("piece", PRIM_INT);
    (*in->prims->attribAs<IntArray>("piece"))[0] = 7;
    auto* tri = makeWith<TriangulateNode>("triangulate", {in});
    BodyPtr r = pullAnew(tri);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 6u);
    ASSERT_EQ(r->prims->size(), 2u);
    EXPECT_EQ(r->vertices->indices[0], (std::vector<uint32_t>{0, 1, 2}));
    EXPECT_EQ(r->vertices->indices[1], (std::vector<uint32_t>{0, 2, 3}));
    EXPECT_EQ(r->prims->kinds[1], uint32_t(PrimData::POLYGON));
    EXPECT_EQ(*r->prims->attribAs<IntArray>("piece"), (IntArray{7, 7}));
    EXPECT_EQ(r->numVertices, 6u);
    EXPECT_EQ(r->numLineVertices, 0u);
}

TEST_F(GeometryNodesTest, GeoFilterRemovesWhatIsNotKept)
{
    BodyPtr in = quadAndLine();
    in->vertices->addAttrib("uv", PRIM_VECTOR);
    in->vertices->uv[0][2] = Vec4f(0.5f, 0.25f, 0.f);
    in->volumes->setVolume("distance", VOLUME_FLOAT, sphere(1.f, 0.5f));
    auto* filter = new GeoFilterNode(nodeMaster);
    nodeMaster->registerNode(filter);
    EXPECT_EQ(filter->nodeKey, "geo-filter");
    wire(source(in), filter);

    BodyPtr r = pullAnew(filter);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->prims->size(), 2u);
    EXPECT_EQ(r->volumes->size(), 1u);

    set(filter, "keepPolys", "false");
    set(filter, "keepPoints", "false");
    set(filter, "keepVolumes", "false");
    r = pullAnew(filter);
    ASSERT_EQ(r->prims->size(), 1u);
    EXPECT_EQ(r->prims->kinds[0], uint32_t(PrimData::LINE));
    ASSERT_EQ(r->points->size(), 2u); // the quad's points went with it
    EXPECT_EQ(r->vertices->indices[0], (std::vector<uint32_t>{0, 1}));
    EXPECT_EQ(r->points->P[1], Vec4f(3.f, 1.f, 0.f));
    EXPECT_EQ(r->volumes->size(), 0u);
    EXPECT_EQ(r->numVertices, 2u);

    set(filter, "keepPoints", "true");
    set(filter, "keepCurves", "false");
    r = pullAnew(filter);
    EXPECT_EQ(r->prims->size(), 0u);
    EXPECT_EQ(r->points->size(), 6u);
    ASSERT_TRUE(r->points->hasAttrib("uv")); // the texture coordinates moved to the points
    EXPECT_EQ((*r->points->attribAs<VecArray>("uv"))[2], Vec4f(0.5f, 0.25f, 0.f));
}

TEST_F(GeometryNodesTest, MergeOfPointSetsUnitesAttributesAndShiftsConstraints)
{
    auto a = std::make_shared<Body>();
    a->points->addAttrib("age", ATTRIB_FLOAT);
    a->points->addPoint(Vec4f(0, 0, 0));
    a->points->addPoint(Vec4f(1, 0, 0));
    (*a->points->attribAs<FloatArray>("age"))[1] = 2.f;
    a->volumes->setVolume("distance", VOLUME_FLOAT, sphere(1.f, 0.5f));
    auto b = std::make_shared<Body>();
    b->points->addAttrib("Cd", ATTRIB_COLOR);
    for (int i = 0; i < 3; ++i) b->points->addPointCd(Vec4f(5.f + float(i), 0, 0), Vec4f(1.f, 0.f, 0.f));
    b->pointConstraints.push_back({0, 2, 2.f, 1.f, 0.f, 0, 0, 0, 0});
    b->edgeConstraints.push_back({1, 2, 1.f, 1.f, 0.f, 0, 0, 0, 0});
    b->volumes->setVolume("density", VOLUME_FLOAT, openvdb::FloatGrid::create());

    auto* merge = make<MergeNode>("merge");
    ASSERT_EQ(merge->inputs.size(), 2u);
    EXPECT_EQ(merge->inputs[1]->name, "Input1");
    wire(source(a), merge, 0);
    wire(source(b), merge, 1);
    BodyPtr r = pullAnew(merge);
    ASSERT_TRUE(r);
    ASSERT_EQ(r->points->size(), 5u);
    EXPECT_EQ(r->points->P[3], Vec4f(6.f, 0, 0));
    EXPECT_EQ(*r->points->attribAs<FloatArray>("age"), (FloatArray{0.f, 2.f, 0.f, 0.f, 0.f}));
    EXPECT_EQ(r->points->Cd[0], Vec4f(1.f, 1.f, 1.f, 0.f));
    EXPECT_EQ(r->points->Cd[4], Vec4f(1.f, 0.f, 0.f, 0.f));
    ASSERT_EQ(r->pointConstraints.size(), 1u);
    EXPECT_EQ(r->pointConstraints[0].a, 2u);
    EXPECT_EQ(r->pointConstraints[0].b, 4u);
    ASSERT_EQ(r->edgeConstraints.size(), 1u);
    EXPECT_EQ(r->edgeConstraints[0].a, 3u);
    EXPECT_EQ(r->prims->size(), 0u);
    ASSERT_EQ(r->volumes->size(), 1u); // grids of the first input only
    EXPECT_TRUE(r->volumes->volume("distance"));
}

TEST_F(GeometryNodesTest, MergeWithMeshAndMissingInputs)
{
    auto* merge = make<MergeNode>("merge");
    EXPECT_FALSE(pullAnew(merge));

    wire(source(quadAndLine()), merge, 1);
    BodyPtr r = pullAnew(merge); // one input: sent as it is
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 6u);

    auto* line = make<LineNode>("line");
    set(line, "numPoints", "3");
    wire(line, merge, 0);
    r = pullAnew(merge);
    ASSERT_EQ(r->points->size(), 9u);
    ASSERT_EQ(r->prims->size(), 3u);
    EXPECT_EQ(r->vertices->indices[1], (std::vector<uint32_t>{3, 4, 5, 6}));
    EXPECT_EQ(r->numVertices, 9u);
}

TEST_F(GeometryNodesTest, ScatterPointDensityIsRepeatable)
{
    auto in = std::make_shared<Body>();
    in->volumes->setVolume("distance", VOLUME_FLOAT, sphere(1.f, 0.25f));
    auto* scatter = make<ScatterNode>("scatter");
    EXPECT_EQ(scatter->inputs[0]->name, "Volume-Input");
    EXPECT_EQ(scatter->outputs[0]->name, "Points-Output");
    wire(source(in), scatter);
    BodyPtr first = pullAnew(scatter);
    BodyPtr second = pullAnew(scatter);
    ASSERT_TRUE(first);
    ASSERT_TRUE(second);
    EXPECT_GT(first->points->size(), 50u);
    EXPECT_EQ(first->points->P, second->points->P);
    EXPECT_EQ(first->volumes->size(), 0u);
    for (const Vec4f& p : first->points->P) EXPECT_LT(p.length3(), 1.3f);

    set(scatter, "pointsPerVoxel", "2");
    EXPECT_GT(pullAnew(scatter)->points->size(), first->points->size());
}

TEST_F(GeometryNodesTest, ScatterGridLayoutOnePointPerInsideVoxel)
{
    openvdb::FloatGrid::Ptr sdf = sphere(1.f, 0.25f);
    size_t expected = 0;
    for (auto it = sdf->cbeginValueOn(); it; ++it)
        if (*it <= 0.f) expected += size_t(it.getVoxelCount());
    auto in = std::make_shared<Body>();
    in->volumes->setVolume("distance", VOLUME_FLOAT, sdf);
    auto* scatter = make<ScatterNode>("scatter");
    set(scatter, "mode", "Grid Layout");
    wire(source(in), scatter);
    BodyPtr r = pullAnew(scatter);
    ASSERT_TRUE(r);
    ASSERT_GT(expected, 0u);
    EXPECT_EQ(r->points->size(), expected);
    for (const Vec4f& p : r->points->P) {
        // voxel centres lie on the 0.25 lattice
        EXPECT_NEAR(p.x / 0.25f, std::round(p.x / 0.25f), 1e-4f);
        EXPECT_LE(p.length3(), 1.f + 1e-4f);
    }
}

TEST_F(GeometryNodesTest, ScatterWithoutUsableGrid)
{
    auto plain = std::make_shared<Body>();
    plain->points->addPoint(Vec4f(1, 2, 3));
    auto* scatter = makeWith<ScatterNode>("scatter", {plain});
    BodyPtr r = pullAnew(scatter); // no grid: the input goes through
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 1u);

    auto other = std::make_shared<Body>();
    other->volumes->setVolume("temperature", VOLUME_FLOAT, openvdb::FloatGrid::create());
    auto* s2 = makeWith<ScatterNode>("scatter", {other});
    testing::internal::CaptureStdout();
    r = pullAnew(s2);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("volume doesn't have sdf or fog volume."),
              std::string::npos);
    EXPECT_EQ(r->points->size(), 0u);
    EXPECT_TRUE(s2->error);

    set(s2, "mode", "Grid Layout");
    testing::internal::CaptureStdout();
    r = pullAnew(s2);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("volume doesn't have sdf."), std::string::npos);
    EXPECT_EQ(r->points->size(), 0u);
}

} // namespace
