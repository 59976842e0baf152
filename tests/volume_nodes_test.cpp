// Volume nodes on small level-set spheres (voxel 0.1, radius 0.5) and constant fields: CSG,
// erosion, filtering, gradients, inversion, resampling, sampling at points, scaling,
// adding, meshing, tiles and the domain box.
#include "nodetestkit.h"

#include "geo/attribtypes.h"
#include "nodes/nodetable.h"
#include "nodes/voldomainnode.h"
#include "nodes/volumeaddnode.h"
#include "nodes/volumecsgnode.h"
#include "nodes/volumeerodenode.h"
#include "nodes/volumefilternode.h"
#include "nodes/volumegradientnode.h"
#include "nodes/volumeinvertnode.h"
#include "nodes/volumeresamplenode.h"
#include "nodes/volumesamplenode.h"
#include "nodes/volumescalenode.h"
#include "nodes/volumetilesnode.h"
#include "nodes/volumetomeshnode.h"

#include <openvdb/openvdb.h>
#include <openvdb/tools/LevelSetSphere.h>

#include <cmath>
#include <string>

namespace {

using VolumeNodesTest = NodeTestBase;

openvdb::FloatGrid::Ptr sphere(float radius, const openvdb::Vec3f& centre, float voxel = 0.1f,
                               float halfWidth = 3.f)
{
    return openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(radius, centre, voxel, halfWidth);
}

// A Body holding `grid` under `key` (the grid named as its key).
BodyPtr volumeBody(const GridBasePtr& grid, const std::string& key, int type)
{
    auto b = std::make_shared<Body>();
    grid->setName(key);
    b->volumes->setVolume(key, type, grid);
    return b;
}

BodyPtr sphereBody(float radius, const openvdb::Vec3f& centre, float voxel = 0.1f, float halfWidth = 3.f)
{
    return volumeBody(sphere(radius, centre, voxel, halfWidth), "distance", VOLUME_FLOAT);
}

// A float grid of `value` over the voxels of the index box [lo, hi]^3 (voxel 0.1).
openvdb::FloatGrid::Ptr constantFloat(float value, int lo, int hi)
{
    auto grid = openvdb::FloatGrid::create(0.f);
    grid->setTransform(openvdb::math::Transform::createLinearTransform(0.1));
    grid->denseFill(openvdb::CoordBBox(openvdb::Coord(lo), openvdb::Coord(hi)), value, true);
    return grid;
}

openvdb::Vec3SGrid::Ptr constantVector(const openvdb::Vec3s& value, int lo, int hi)
{
    auto grid = openvdb::Vec3SGrid::create(openvdb::Vec3s(0.f));
    grid->setTransform(openvdb::math::Transform::createLinearTransform(0.1));
    grid->denseFill(openvdb::CoordBBox(openvdb::Coord(lo), openvdb::Coord(hi)), value, true);
    return grid;
}

openvdb::FloatGrid::Ptr floatGrid(const BodyPtr& b, const std::string& key)
{
    return b ? openvdb::gridPtrCast<openvdb::FloatGrid>(b->volumes->volume(key)) : nullptr;
}

// The value of the float grid `key` at the voxel nearest to a world position.
float valueAt(const BodyPtr& b, const std::string& key, double x, double y, double z)
{
    auto grid = floatGrid(b, key);
    EXPECT_TRUE(grid) << key;
    if (!grid) return NAN;
    return grid->tree().getValue(grid->transform().worldToIndexCellCentered(openvdb::Vec3d(x, y, z)));
}

openvdb::Vec3s vectorAt(const BodyPtr& b, const std::string& key, double x, double y, double z)
{
    auto grid = openvdb::gridPtrCast<openvdb::Vec3SGrid>(b->volumes->volume(key));
    EXPECT_TRUE(grid) << key;
    if (!grid) return openvdb::Vec3s(NAN);
    return grid->tree().getValue(grid->transform().worldToIndexCellCentered(openvdb::Vec3d(x, y, z)));
}

// ---- CSG ----

TEST_F(VolumeNodesTest, UnionHoldsBothSpheres)
{
    auto* node = makeWith<VolumeUnionNode>(
        "volume-union", {sphereBody(0.5f, {0, 0, 0}, 0.1f, 2.f), sphereBody(0.5f, {0.6f, 0, 0}, 0.1f, 2.f)});
    BodyPtr out = pullAnew(node);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->volumes->size(), 1u);
    EXPECT_LT(valueAt(out, "distance", 0, 0, 0), 0.f);
    EXPECT_LT(valueAt(out, "distance", 0.6, 0, 0), 0.f);
    EXPECT_NEAR(valueAt(out, "distance", 1.1, 0, 0), 0.f, 0.06f) << "the right end of the union";
    EXPECT_NEAR(valueAt(out, "distance", -0.5, 0, 0), 0.f, 0.06f) << "the left end of the union";
    EXPECT_GT(valueAt(out, "distance", 1.2, 0, 0), 0.f);
    EXPECT_EQ(floatGrid(out, "distance")->getName(), "distance");
}

TEST_F(VolumeNodesTest, DifferenceRemovesTheOverlap)
{
    auto* node = makeWith<VolumeDifferenceNode>(
        "volume-difference", {sphereBody(0.5f, {0, 0, 0}), sphereBody(0.5f, {0.6f, 0, 0})});
    BodyPtr out = pullAnew(node);
    ASSERT_TRUE(out);
    EXPECT_LT(valueAt(out, "distance", -0.2, 0, 0), 0.f);
    EXPECT_GT(valueAt(out, "distance", 0.3, 0, 0), 0.f) << "inside both";
    EXPECT_GT(valueAt(out, "distance", 0.6, 0, 0), 0.f);
}

TEST_F(VolumeNodesTest, IntersectionKeepsOnlyTheOverlap)
{
    auto* node = makeWith<VolumeIntersectionNode>(
        "volume-intersection", {sphereBody(0.5f, {0, 0, 0}), sphereBody(0.5f, {0.6f, 0, 0})});
    BodyPtr out = pullAnew(node);
    ASSERT_TRUE(out);
    EXPECT_LT(valueAt(out, "distance", 0.3, 0, 0), 0.f);
    EXPECT_GT(valueAt(out, "distance", -0.2, 0, 0), 0.f);
    EXPECT_GT(valueAt(out, "distance", 0.8, 0, 0), 0.f);
}

TEST_F(VolumeNodesTest, CsgResamplesTheSecondGridIntoTheFirstTransform)
{
    auto* node = makeWith<VolumeUnionNode>(
        "volume-union", {sphereBody(0.5f, {0, 0, 0}), sphereBody(0.3f, {1.0f, 0, 0}, 0.05f)});
    BodyPtr out = pullAnew(node);
    ASSERT_TRUE(out);
    auto grid = floatGrid(out, "distance");
    ASSERT_TRUE(grid);
    EXPECT_NEAR(grid->voxelSize()[0], 0.1, 1e-6);
    EXPECT_LT(valueAt(out, "distance", 1.0, 0, 0), 0.f);
    EXPECT_NEAR(valueAt(out, "distance", 1.3, 0, 0), 0.f, 0.06f);
}

TEST_F(VolumeNodesTest, FastOffRebuildsWithHalfWidthsOfThreeVoxels)
{
    auto* node = makeWith<VolumeUnionNode>(
        "volume-union", {sphereBody(0.5f, {0, 0, 0}, 0.1f, 2.f), sphereBody(0.5f, {0.6f, 0, 0}, 0.1f, 2.f)});
    BodyPtr out = pullAnew(node);
    ASSERT_TRUE(floatGrid(out, "distance"));
    EXPECT_NEAR(floatGrid(out, "distance")->background(), 0.2f, 1e-6f) << "fast keeps the input's band";
    set(node, "fast", "false");
    out = pullAnew(node);
    auto grid = floatGrid(out, "distance");
    ASSERT_TRUE(grid);
    EXPECT_NEAR(grid->background(), 0.3f, 1e-6f);
    EXPECT_EQ(grid->getGridClass(), openvdb::GRID_LEVEL_SET);
    EXPECT_LT(valueAt(out, "distance", 0.6, 0, 0), 0.f);
}

TEST_F(VolumeNodesTest, SecondInputWithoutSdfPassesTheFirst)
{
    BodyPtr second = volumeBody(constantFloat(1.f, -2, 2), "density", VOLUME_FLOAT);
    auto* node = makeWith<VolumeUnionNode>("volume-union", {sphereBody(0.5f, {0, 0, 0}), second});
    testing::internal::CaptureStdout();
    BodyPtr out = pullAnew(node);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "volume B doesn't have sdf.\n");
    ASSERT_TRUE(out);
    EXPECT_EQ(out->volumes->size(), 1u);
    auto grid = floatGrid(out, "distance");
    ASSERT_TRUE(grid);
    EXPECT_EQ(grid->activeVoxelCount(), sphere(0.5f, {0, 0, 0})->activeVoxelCount());
    EXPECT_FLOAT_EQ(valueAt(out, "distance", 0.4, 0, 0),
                    valueAt(sphereBody(0.5f, {0, 0, 0}), "distance", 0.4, 0, 0));
}

TEST_F(VolumeNodesTest, FirstInputWithoutSdfPrintsAndPasses)
{
    auto* node = makeWith<VolumeIntersectionNode>(
        "volume-intersection", {pointsBody({Vec4f(1, 2, 3)}), sphereBody(0.5f, {0, 0, 0})});
    testing::internal::CaptureStdout();
    BodyPtr out = pullAnew(node);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "volume doesn't have sdf.\n");
    ASSERT_TRUE(out);
    EXPECT_EQ(out->volumes->size(), 0u);
    EXPECT_EQ(xs(out), std::vector<float>{1.f});
}

// ---- level-set edits ----

TEST_F(VolumeNodesTest, InvertFlipsTheSign)
{
    auto* node = makeWith<VolumeInvertNode>("volume-invert", {sphereBody(0.5f, {0, 0, 0})});
    BodyPtr out = pullAnew(node);
    EXPECT_GT(valueAt(out, "distance", 0, 0, 0), 0.f);
    EXPECT_LT(valueAt(out, "distance", 0.7, 0, 0), 0.f);
}

TEST_F(VolumeNodesTest, ErodeShrinksTheSurface)
{
    auto* node = makeWith<VolumeErodeNode>("volume-erode", {sphereBody(0.5f, {0, 0, 0})});
    EXPECT_LT(valueAt(sphereBody(0.5f, {0, 0, 0}), "distance", 0.45, 0, 0), 0.f);
    set(node, "erodeAmount", "0.15");
    BodyPtr out = pullAnew(node);
    EXPECT_GT(valueAt(out, "distance", 0.45, 0, 0), 0.f) << "just inside becomes outside";
    EXPECT_LT(valueAt(out, "distance", 0, 0, 0), 0.f);
}

TEST_F(VolumeNodesTest, ErodeWithAMaskOnlyShrinksInsideTheMask)
{
    BodyPtr mask = sphereBody(0.3f, {0.5f, 0, 0});
    auto* node = makeWith<VolumeErodeNode>("volume-erode", {sphereBody(0.5f, {0, 0, 0}), mask});
    set(node, "erodeAmount", "0.15");
    BodyPtr out = pullAnew(node);
    EXPECT_GT(valueAt(out, "distance", 0.45, 0, 0), 0.f) << "inside the mask";
    EXPECT_LT(valueAt(out, "distance", -0.45, 0, 0), 0.f) << "away from the mask";

    set(node, "invertMask", "true");
    out = pullAnew(node);
    EXPECT_LT(valueAt(out, "distance", 0.45, 0, 0), 0.f);
    EXPECT_GT(valueAt(out, "distance", -0.45, 0, 0), 0.f);
}

TEST_F(VolumeNodesTest, ErodeWithoutSdfPrintsTheNodeName)
{
    auto* node = makeWith<VolumeErodeNode>("volume-erode", {pointsBody({Vec4f()})});
    testing::internal::CaptureStdout();
    BodyPtr out = pullAnew(node);
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_EQ(text, node->name() + ": main volume doesn't have sdf.\n");
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->size(), 1u);
}

TEST_F(VolumeNodesTest, FilterKeepsTheSolid)
{
    BodyPtr in = sphereBody(0.5f, {0, 0, 0});
    auto* node = makeWith<VolumeFilterNode>("volume-filter", {in});
    EXPECT_EQ(node->params.get("filterType")->text, "Gauss");
    EXPECT_EQ(node->params.get("filterWidth")->text, "1");
    EXPECT_EQ(node->params.get("filterIterations")->text, "1");
    EXPECT_EQ(node->params.get("filterStrength")->text, "0.3");
    BodyPtr out = pullAnew(node);
    ASSERT_TRUE(floatGrid(out, "distance"));
    EXPECT_LT(valueAt(out, "distance", 0, 0, 0), 0.f);
    EXPECT_LT(valueAt(out, "distance", 0.3, 0, 0), 0.f);
    EXPECT_GT(valueAt(out, "distance", 0.7, 0, 0), 0.f);
    // smoothing pulls a convex surface in a little
    EXPECT_GT(valueAt(out, "distance", 0.5, 0, 0), valueAt(in, "distance", 0.5, 0, 0) + 0.005f);
}

TEST_F(VolumeNodesTest, GradientWritesAVectorGridUnderItsName)
{
    auto* node = makeWith<VolumeGradientNode>("volume-gradient", {sphereBody(0.5f, {0, 0, 0})});
    set(node, "volName", "push");
    set(node, "scale", "2");
    BodyPtr out = pullAnew(node);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->volumes->volumeType("push"), VOLUME_VEC3);
    const openvdb::Vec3s g = vectorAt(out, "push", 0.5, 0, 0);
    EXPECT_NEAR(g.x(), 2.f, 0.3f) << "twice the unit gradient, pointing out";
    EXPECT_NEAR(g.y(), 0.f, 0.1f);
    EXPECT_TRUE(floatGrid(out, "distance")) << "the distance grid stays";

    set(node, "normalize", "true");
    set(node, "scale", "1");
    out = pullAnew(node);
    EXPECT_EQ(out->volumes->volumeType("push"), VOLUME_VEC3_NORMALIZE);
    const openvdb::Vec3s n = vectorAt(out, "push", 0, 0.5, 0);
    EXPECT_NEAR(n.length(), 1.f, 1e-4f);
    EXPECT_NEAR(n.y(), 1.f, 0.05f);
    EXPECT_EQ(out->volumes->volume("push")->getName(), "push");
}

TEST_F(VolumeNodesTest, ResampleToCoarserVoxelsKeepsTheSurface)
{
    BodyPtr in = sphereBody(0.5f, {0, 0, 0});
    in->volumes->setVolume("density", VOLUME_FLOAT, constantFloat(1.f, -3, 3));
    auto* node = makeWith<VolumeResampleNode>("volume-resample", {in});
    set(node, "voxelSize", "0.2");
    BodyPtr out = pullAnew(node);
    auto grid = floatGrid(out, "distance");
    ASSERT_TRUE(grid);
    EXPECT_NEAR(grid->voxelSize()[0], 0.2, 1e-6);
    EXPECT_EQ(grid->getGridClass(), openvdb::GRID_LEVEL_SET);
    EXPECT_NEAR(grid->background(), 0.6f, 1e-5f) << "three voxels of half width, as before";
    EXPECT_LT(valueAt(out, "distance", 0, 0, 0), 0.f);
    EXPECT_GT(valueAt(out, "distance", 0.8, 0, 0), 0.f);
    auto density = floatGrid(out, "density");
    ASSERT_TRUE(density);
    EXPECT_NEAR(density->voxelSize()[0], 0.2, 1e-6);
    EXPECT_EQ(density->getGridClass(), openvdb::GRID_FOG_VOLUME);
    EXPECT_NEAR(valueAt(out, "density", 0, 0, 0), 1.f, 1e-5f);
}

// ---- sampling ----

TEST_F(VolumeNodesTest, SampleOfAMissingGridLeavesThePoints)
{
    auto* node = makeWith<VolumeSampleNode>(
        "volume-sample", {pointsBody({Vec4f(0, 0, 0), Vec4f(1, 0, 0)}), sphereBody(0.5f, {})});
    set(node, "attribName", "v");
    testing::internal::CaptureStdout();
    BodyPtr out = pullAnew(node);
    const std::string text = testing::internal::GetCapturedStdout();
    EXPECT_NE(text.find("volume not found."), std::string::npos) << text;
    EXPECT_NE(text.find("velocity not found."), std::string::npos) << text;
    ASSERT_TRUE(out);
    EXPECT_FALSE(out->points->hasV);
    EXPECT_EQ(xs(out), (std::vector<float>{0.f, 1.f}));
}

TEST_F(VolumeNodesTest, SampleSetsAddsAndMaxesAVectorField)
{
    BodyPtr pts = pointsBody({Vec4f(0, 0, 0), Vec4f(0.23f, 0.11f, -0.3f)});
    pts->points->addAttrib("v", ATTRIB_VELOCITY);
    pts->points->v = {Vec4f(1, 1, 1), Vec4f(5, 0, 10)};
    BodyPtr vol = volumeBody(constantVector(openvdb::Vec3s(1, 2, 3), -10, 10), "velocity", VOLUME_VEC3);
    auto* node = makeWith<VolumeSampleNode>("volume-sample", {pts, vol});
    set(node, "attribName", "v");
    set(node, "multiplier", "2");
    BodyPtr out = pullAnew(node);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->v[0], Vec4f(2, 4, 6));
    EXPECT_EQ(out->points->v[1], Vec4f(2, 4, 6));

    set(node, "mode", "Add");
    out = pullAnew(node);
    EXPECT_EQ(out->points->v[0], Vec4f(3, 5, 7));
    EXPECT_EQ(out->points->v[1], Vec4f(7, 4, 16));

    set(node, "mode", "Max");
    out = pullAnew(node);
    EXPECT_EQ(out->points->v[0], Vec4f(2, 4, 6));
    EXPECT_EQ(out->points->v[1], Vec4f(5, 4, 10));
}

TEST_F(VolumeNodesTest, SampleMakesAFloatAttributeAndHonoursTheLimits)
{
    BodyPtr pts = pointsBody({Vec4f(0, 0, 0), Vec4f(0.8f, 0, 0)});
    BodyPtr vol = sphereBody(0.5f, {0, 0, 0});
    vol->volumes->setVolume("temperature", VOLUME_FLOAT, constantFloat(4.f, -20, 20));
    vol->volumes->setVolume("density", VOLUME_FLOAT, constantFloat(1.f, -2, 2));
    auto* node = makeWith<VolumeSampleNode>("volume-sample", {pts, vol});
    set(node, "volumeName", "temperature");
    set(node, "attribName", "heat");
    BodyPtr out = pullAnew(node);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->attribType("heat"), ATTRIB_FLOAT);
    auto* heat = static_cast<FloatArray*>(out->points->attrib("heat"));
    EXPECT_FLOAT_EQ((*heat)[0], 4.f);
    EXPECT_FLOAT_EQ((*heat)[1], 4.f);

    set(node, "limit", "Inside Smoke");
    out = pullAnew(node);
    heat = static_cast<FloatArray*>(out->points->attrib("heat"));
    EXPECT_FLOAT_EQ((*heat)[0], 4.f);
    EXPECT_FLOAT_EQ((*heat)[1], 0.f) << "outside the density";

    set(node, "limit", "Inside Solid");
    out = pullAnew(node);
    heat = static_cast<FloatArray*>(out->points->attrib("heat"));
    EXPECT_FLOAT_EQ((*heat)[0], 4.f);
    EXPECT_FLOAT_EQ((*heat)[1], 0.f) << "outside the sphere";
}

// ---- scaling and adding ----

TEST_F(VolumeNodesTest, ScaleMultipliesTheDensity)
{
    auto* node =
        makeWith<VolumeScaleNode>("volume-scale", {volumeBody(constantFloat(0.5f, -3, 3), "density", 2)});
    set(node, "scale", "3");
    BodyPtr out = pullAnew(node);
    EXPECT_FLOAT_EQ(valueAt(out, "density", 0, 0, 0), 1.5f);
    EXPECT_FLOAT_EQ(valueAt(out, "density", 0.3, 0.3, -0.3), 1.5f);
}

TEST_F(VolumeNodesTest, ScaleWithAMaskOnlyScalesInsideIt)
{
    auto* node = makeWith<VolumeScaleNode>(
        "volume-scale", {volumeBody(constantFloat(1.f, -10, 10), "density", 2), sphereBody(0.4f, {0, 0, 0})});
    set(node, "scale", "3");
    BodyPtr out = pullAnew(node);
    EXPECT_NEAR(valueAt(out, "density", 0, 0, 0), 3.f, 1e-5f);
    EXPECT_NEAR(valueAt(out, "density", 0.9, 0, 0), 1.f, 1e-5f);
}

TEST_F(VolumeNodesTest, AddSumsTwoDensities)
{
    auto* node = makeWith<VolumeAddNode>("volume-add", {volumeBody(constantFloat(1.f, -5, 0), "density", 2),
                                                        volumeBody(constantFloat(2.f, -2, 5), "fog", 2)});
    BodyPtr out = pullAnew(node);
    ASSERT_TRUE(out);
    EXPECT_FLOAT_EQ(valueAt(out, "density", -0.4, -0.4, -0.4), 1.f);
    EXPECT_FLOAT_EQ(valueAt(out, "density", -0.1, -0.1, -0.1), 3.f);
    EXPECT_FLOAT_EQ(valueAt(out, "density", 0.3, 0.3, 0.3), 2.f);
    EXPECT_FALSE(out->volumes->volume("fog")) << "nothing of the second input is kept";
}

TEST_F(VolumeNodesTest, AddOfDifferentValueTypesPassesTheFirst)
{
    auto* node = makeWith<VolumeAddNode>(
        "volume-add", {volumeBody(constantFloat(1.f, -2, 2), "density", 2),
                       volumeBody(constantVector(openvdb::Vec3s(1.f), -2, 2), "velocity", VOLUME_VEC3)});
    set(node, "volChoiceB", "Velocity");
    testing::internal::CaptureStdout();
    BodyPtr out = pullAnew(node);
    EXPECT_FALSE(testing::internal::GetCapturedStdout().empty());
    EXPECT_FLOAT_EQ(valueAt(out, "density", 0, 0, 0), 1.f);
}

// ---- meshes ----

TEST_F(VolumeNodesTest, VolumeToMeshGivesPointsOnTheSphere)
{
    auto* node = makeWith<VolumeToMeshNode>("volume-to-mesh", {sphereBody(0.5f, {0, 0, 0})});
    BodyPtr out = pullAnew(node);
    ASSERT_TRUE(out);
    ASSERT_GT(out->points->size(), 20u);
    EXPECT_GT(out->prims->size(), 0u);
    for (const Vec4f& p : out->points->P) EXPECT_NEAR(p.length3(), 0.5f, 0.05f);
}

TEST_F(VolumeNodesTest, TilesGiveOneBoxPerLeaf)
{
    auto grid = sphere(0.5f, {0, 0, 0});
    auto* node = makeWith<VolumeTilesNode>("volume-tiles", {volumeBody(grid, "distance", VOLUME_FLOAT)});
    BodyPtr out = pullAnew(node);
    ASSERT_TRUE(out);
    const size_t boxes = grid->tree().leafCount();
    ASSERT_GT(boxes, 0u);
    EXPECT_EQ(out->points->size(), 8 * boxes);
    EXPECT_EQ(out->prims->size(), 6 * boxes);
    // the mesh spans the leaves' voxels, half a voxel beyond the outermost voxel centres
    openvdb::CoordBBox leaves;
    grid->tree().evalLeafBoundingBox(leaves);
    Vec4f lo, hi;
    out->getBounds(lo, hi);
    EXPECT_NEAR(lo.x, (leaves.min().x() - 0.5) * 0.1, 1e-5);
    EXPECT_NEAR(hi.y, (leaves.max().y() + 0.5) * 0.1, 1e-5);
    EXPECT_NEAR(hi.z, (leaves.max().z() + 0.5) * 0.1, 1e-5);
}

// "voldomain" has no place in the node menus, so the test makes the node itself.
VolDomainNode* domainNode(const BodyPtr& in)
{
    auto* node = new VolDomainNode(nodeMaster);
    nodeMaster->registerNode(node);
    auto* from = new FixedNode(nodeMaster, in);
    nodeMaster->registerNode(from);
    EXPECT_EQ(nodeMaster->connectPlugs(from->outputPlug(0), node->inputPlug(0)), 0);
    return node;
}

TEST_F(VolumeNodesTest, VoldomainBoxesTheActiveVoxels)
{
    BodyPtr in = volumeBody(constantFloat(1.f, -3, 5), "density", 2);
    auto* node = domainNode(in);
    BodyPtr out = pullAnew(node);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->size(), 8u);
    EXPECT_EQ(out->prims->size(), 6u);
    Vec4f lo, hi;
    out->getBounds(lo, hi);
    EXPECT_NEAR(lo.x, -0.3f, 1e-5f);
    EXPECT_NEAR(hi.z, 0.5f, 1e-5f);
    out->computeNormals();
    const Vec4f centre = (lo + hi) * 0.5f;
    for (size_t i = 0; i < out->points->size(); ++i)
        EXPECT_GT(out->points->N[i].dot3(out->points->P[i] - centre), 0.f) << "faces point out";

    auto* empty = domainNode(pointsBody({Vec4f()}));
    out = pullAnew(empty);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->size(), 0u);
}

TEST_F(VolumeNodesTest, EveryKeyMakesItsNode)
{
    for (const char* key :
         {"volume-add", "volume-difference", "volume-erode", "volume-filter", "volume-gradient",
          "volume-intersection", "volume-invert", "volume-resample", "volume-sample", "volume-scale",
          "volume-tiles", "volume-to-mesh", "volume-union", "voldomain"}) {
        NodeMaker make = findNodeMaker(key);
        ASSERT_NE(make, nullptr) << key;
        BaseNode* node = make(nodeMaster);
        nodeMaster->registerNode(node);
        EXPECT_EQ(node->nodeKey, key);
        EXPECT_FALSE(node->outputs.empty()) << key;
    }
}

} // namespace
