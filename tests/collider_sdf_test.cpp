// Collider distance fields: the transform helper against the geometry object's pose,
// sign and distance of cube and sphere meshes against analytic values, trilinear values
// and gradient normals on a known field, band, push out and inversion, and the refusal
// of broken input (missing, empty and NaN meshes, bad voxel sizes, over-budget grids).
#include "collidefixtures.h"

#include "particles/meshsdf.h"
#include "particles/objectsdf.h"
#include "particles/sdfsampler.h"
#include "particles/xform.h"

#include <gtest/gtest.h>

#include <openvdb/openvdb.h>

#include <cmath>
#include <limits>
#include <string>

using namespace fixtures;

namespace {

class ColliderSdfTest : public ::testing::Test {
protected:
    void SetUp() override { resetRunState(); }

    // Builds the grid of `mesh` and answers its sampler (invalid on failure).
    static SdfSampler build(const ObjectMesh& mesh, float voxelSize, float band = 3.f, float pushOut = 0.f,
                            bool invert = false)
    {
        SdfBuildSettings s;
        s.voxelSize = voxelSize;
        s.band = band;
        s.pushOut = pushOut;
        s.invert = invert;
        ObjectPartSdf part;
        if (buildMeshSdf(mesh, s, part) != 0) return SdfSampler(nullptr);
        return SdfSampler(part.sdfGrid, part.velocityGrid, part.uvwGrid);
    }

    static float sampleAt(SdfSampler& sdf, const Vec4f& local)
    {
        return sdf.distance(xform::point(local, sdf.gridToIndex()));
    }

    static Vec4f normalAt(SdfSampler& sdf, const Vec4f& local)
    {
        const Vec4f g = xform::gradient(sdf.gradient(xform::point(local, sdf.gridToIndex())), sdf.gridToIndex());
        const float len = g.length3();
        return len > 0.f ? g * (1.f / len) : g;
    }
};

TEST_F(ColliderSdfTest, ComposedPoseMatchesTheGeometryObjectsPose)
{
    Object o;
    o.translate = Vec4f(1.f, -2.f, 3.f);
    o.rotate = Vec4f(30.f, -45.f, 60.f);
    o.scale = Vec4f(2.f, 0.5f, 1.5f);
    double pose[16];
    o.buildPose(pose);
    const Mat4f m = xform::compose(o.translate, o.rotate, o.scale);
    for (int i = 0; i < 16; ++i) EXPECT_NEAR(m.m[i], pose[i], 1e-5) << i;
}

TEST_F(ColliderSdfTest, RotationTurnsXFirstThenYThenZ)
{
    // 90 degrees about z takes x to y in the row-vector convention.
    const Mat4f z = xform::compose(Vec4f(), Vec4f(0.f, 0.f, 90.f), Vec4f(1.f, 1.f, 1.f));
    const Vec4f p = xform::point(Vec4f(1.f, 0.f, 0.f), z);
    EXPECT_NEAR(p.x, 0.f, 1e-6);
    EXPECT_NEAR(p.y, 1.f, 1e-6);
    // x then y: (0,1,0) about x by 90 goes to (0,0,1), about y by 90 to (1,0,0).
    const Mat4f xy = xform::compose(Vec4f(), Vec4f(90.f, 90.f, 0.f), Vec4f(1.f, 1.f, 1.f));
    const Vec4f q = xform::point(Vec4f(0.f, 1.f, 0.f), xy);
    EXPECT_NEAR(q.x, 1.f, 1e-6);
    EXPECT_NEAR(q.y, 0.f, 1e-6);
    EXPECT_NEAR(q.z, 0.f, 1e-6);
}

TEST_F(ColliderSdfTest, InverseUndoesTheTransformAndRefusesZeroScale)
{
    const Mat4f m = xform::compose(Vec4f(4.f, 5.f, 6.f), Vec4f(10.f, 20.f, 30.f), Vec4f(2.f, 3.f, 0.5f));
    Mat4f inv;
    ASSERT_TRUE(xform::invert(m, inv));
    const Vec4f p(0.3f, -1.2f, 7.f);
    const Vec4f back = xform::point(xform::point(p, m), inv);
    EXPECT_NEAR(back.x, p.x, 1e-4);
    EXPECT_NEAR(back.y, p.y, 1e-4);
    EXPECT_NEAR(back.z, p.z, 1e-4);
    const Mat4f flat = xform::compose(Vec4f(), Vec4f(), Vec4f(1.f, 0.f, 1.f));
    EXPECT_FALSE(xform::invert(flat, inv));
}

TEST_F(ColliderSdfTest, CubeDistanceHasTheRightSignAndSizeInsideAndOutside)
{
    const auto cube = boxMesh(Vec4f(-0.5f, -0.5f, -0.5f), Vec4f(0.5f, 0.5f, 0.5f));
    SdfSampler sdf = build(*cube, 0.05f, 5.f);
    ASSERT_TRUE(sdf.valid());
    EXPECT_NEAR(sampleAt(sdf, Vec4f(0.6f, 0.f, 0.f)), 0.1f, 0.02f);
    EXPECT_NEAR(sampleAt(sdf, Vec4f(0.f, -0.65f, 0.f)), 0.15f, 0.02f);
    EXPECT_NEAR(sampleAt(sdf, Vec4f(0.4f, 0.f, 0.f)), -0.1f, 0.02f);
    EXPECT_NEAR(sampleAt(sdf, Vec4f(0.f, 0.f, -0.38f)), -0.12f, 0.02f);
    // Deep inside is beyond the band: negative; far outside: out of band.
    EXPECT_LT(sampleAt(sdf, Vec4f(0.f, 0.f, 0.f)), 0.f);
    EXPECT_TRUE(sdf.outOfBand(sampleAt(sdf, Vec4f(3.f, 0.f, 0.f))));
}

TEST_F(ColliderSdfTest, SphereDistanceFollowsTheRadius)
{
    const auto sphere = sphereMesh(1.f, 48, 96);
    SdfSampler sdf = build(*sphere, 0.04f, 4.f);
    ASSERT_TRUE(sdf.valid());
    for (const Vec4f dir : {Vec4f(1.f, 0.f, 0.f), Vec4f(0.f, 0.f, -1.f), Vec4f(0.577f, 0.577f, 0.577f)}) {
        for (float r : {0.9f, 0.95f, 1.05f, 1.12f}) {
            const Vec4f p = dir * (r / dir.length3());
            EXPECT_NEAR(sampleAt(sdf, p), r - 1.f, 0.015f) << "radius " << r;
            const Vec4f n = normalAt(sdf, p);
            EXPECT_GT(n.dot3(dir * (1.f / dir.length3())), 0.98f) << "radius " << r;
        }
    }
}

TEST_F(ColliderSdfTest, TrilinearValueAndGradientOfAKnownLinearField)
{
    // f(x, y, z) = 2x - y + 0.5z in world units on voxels of 0.25: trilinear sampling
    // reproduces a linear field exactly, and its gradient is the constant (2, -1, 0.5).
    openvdb::initialize();
    openvdb::FloatGrid::Ptr grid = openvdb::FloatGrid::create(100.f);
    grid->setTransform(openvdb::math::Transform::createLinearTransform(0.25));
    auto acc = grid->getAccessor();
    for (int i = -4; i <= 4; ++i)
        for (int j = -4; j <= 4; ++j)
            for (int k = -4; k <= 4; ++k)
                acc.setValue(openvdb::Coord(i, j, k), 0.25f * (2.f * float(i) - float(j) + 0.5f * float(k)));
    SdfSampler sdf(grid);
    ASSERT_TRUE(sdf.valid());
    EXPECT_FLOAT_EQ(sdf.voxelSize(), 0.25f);
    EXPECT_FLOAT_EQ(sdf.background(), 100.f);
    const Vec4f p(0.3f, -0.41f, 0.17f);
    EXPECT_NEAR(sampleAt(sdf, p), 2.f * p.x - p.y + 0.5f * p.z, 1e-5);
    const Vec4f idx = xform::point(p, sdf.gridToIndex());
    EXPECT_NEAR(idx.x, 1.2f, 1e-5);
    const Vec4f g = sdf.gradient(idx);  // per index unit: world slope times the voxel size
    EXPECT_NEAR(g.x, 0.5f, 1e-5);
    EXPECT_NEAR(g.y, -0.25f, 1e-5);
    EXPECT_NEAR(g.z, 0.125f, 1e-5);
    const Vec4f world = xform::gradient(g, sdf.gridToIndex());
    EXPECT_NEAR(world.x, 2.f, 1e-4);
    EXPECT_NEAR(world.y, -1.f, 1e-4);
    EXPECT_NEAR(world.z, 0.5f, 1e-4);
    // Out-of-range and NaN positions read as background, never as a voxel.
    EXPECT_EQ(sdf.distance(Vec4f(std::nanf(""), 0.f, 0.f)), 100.f);
    EXPECT_EQ(sdf.distance(Vec4f(1e12f, 0.f, 0.f)), 100.f);
}

TEST_F(ColliderSdfTest, PushOutGrowsAndInvertFlipsTheSurface)
{
    const auto cube = boxMesh(Vec4f(-0.5f, -0.5f, -0.5f), Vec4f(0.5f, 0.5f, 0.5f));
    SdfSampler grown = build(*cube, 0.05f, 4.f, 0.15f);
    ASSERT_TRUE(grown.valid());
    EXPECT_NEAR(sampleAt(grown, Vec4f(0.65f, 0.f, 0.f)), 0.f, 0.02f);
    EXPECT_NEAR(sampleAt(grown, Vec4f(0.5f, 0.f, 0.f)), -0.15f, 0.03f);

    SdfSampler inverted = build(*cube, 0.05f, 4.f, 0.f, true);
    ASSERT_TRUE(inverted.valid());
    EXPECT_LT(inverted.background(), 0.f);
    EXPECT_NEAR(sampleAt(inverted, Vec4f(0.4f, 0.f, 0.f)), 0.1f, 0.02f);
    EXPECT_NEAR(sampleAt(inverted, Vec4f(0.6f, 0.f, 0.f)), -0.1f, 0.02f);
    // Far outside the original cube is now deep inside: in band, never skipped.
    EXPECT_FALSE(inverted.outOfBand(sampleAt(inverted, Vec4f(5.f, 0.f, 0.f))));
    // The original inside, beyond the band, is now far outside.
    EXPECT_TRUE(inverted.outOfBand(sampleAt(inverted, Vec4f(0.f, 0.f, 0.f))));
}

TEST_F(ColliderSdfTest, VertexVelocitiesAndUvsReachTheirGrids)
{
    auto cube = boxMesh(Vec4f(-0.5f, -0.5f, -0.5f), Vec4f(0.5f, 0.5f, 0.5f));
    cube->velocities.assign(cube->vertices.size(), Vec4f(0.f, 2.f, 0.f));
    cube->uvs = {Vec4f(0.25f, 0.75f, 0.f)};
    for (ObjectTriangle& t : cube->triangles) t.t0 = t.t1 = t.t2 = 0;
    SdfSampler sdf = build(*cube, 0.05f, 3.f);
    ASSERT_TRUE(sdf.hasVelocity());
    ASSERT_TRUE(sdf.hasUvw());
    const Vec4f idx = xform::point(Vec4f(0.55f, 0.1f, 0.f), sdf.gridToIndex());
    EXPECT_NEAR(sdf.velocity(idx).y, 2.f, 1e-4);
    EXPECT_NEAR(sdf.uvw(idx).x, 0.25f, 1e-4);
    EXPECT_NEAR(sdf.uvw(idx).y, 0.75f, 1e-4);

    // A static mesh without uvs makes neither grid.
    SdfSampler plain = build(*boxMesh(Vec4f(-0.5f, -0.5f, -0.5f), Vec4f(0.5f, 0.5f, 0.5f)), 0.05f, 3.f);
    EXPECT_FALSE(plain.hasVelocity());
    EXPECT_FALSE(plain.hasUvw());
}

TEST_F(ColliderSdfTest, EmptyMeshIsRefusedWithTheNotAvailableMessage)
{
    ObjectMesh empty;
    ObjectPartSdf part;
    testing::internal::CaptureStdout();
    EXPECT_EQ(buildMeshSdf(empty, SdfBuildSettings(), part), -1);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Mesh geo is not available yet...\n"), std::string::npos);
    EXPECT_FALSE(part.sdfGrid);
}

TEST_F(ColliderSdfTest, NaNVerticesAndBrokenTrianglesAreSkippedNotBuilt)
{
    auto cube = boxMesh(Vec4f(-0.5f, -0.5f, -0.5f), Vec4f(0.5f, 0.5f, 0.5f));
    const float nan = std::numeric_limits<float>::quiet_NaN();
    cube->vertices.push_back(Vec4f(nan, 0.f, 0.f));
    ObjectTriangle bad;
    bad.v0 = 0;
    bad.v1 = 1;
    bad.v2 = int32_t(cube->vertices.size()) - 1;  // the NaN vertex
    cube->triangles.push_back(bad);
    bad.v2 = 999;  // out of range
    cube->triangles.push_back(bad);
    bad.v2 = 1;  // zero area
    cube->triangles.push_back(bad);
    testing::internal::CaptureStdout();
    SdfSampler sdf = build(*cube, 0.05f);
    const std::string out = testing::internal::GetCapturedStdout();
    ASSERT_TRUE(sdf.valid());
    EXPECT_NE(out.find("3 of 15 triangles skipped"), std::string::npos) << out;
    EXPECT_NEAR(sampleAt(sdf, Vec4f(0.6f, 0.f, 0.f)), 0.1f, 0.02f);

    // Only NaN: nothing to build.
    ObjectMesh allNan;
    allNan.vertices.assign(3, Vec4f(nan, nan, nan));
    allNan.triangles.resize(1);
    allNan.triangles[0].v1 = 1;
    allNan.triangles[0].v2 = 2;
    ObjectPartSdf part;
    testing::internal::CaptureStdout();
    EXPECT_EQ(buildMeshSdf(allNan, SdfBuildSettings(), part), -1);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Mesh geo is not available yet...\n"), std::string::npos);
}

TEST_F(ColliderSdfTest, ZeroNegativeAndNaNVoxelSizesAreRefused)
{
    const auto cube = boxMesh(Vec4f(-0.5f, -0.5f, -0.5f), Vec4f(0.5f, 0.5f, 0.5f));
    for (float vs : {0.f, -0.1f, std::numeric_limits<float>::quiet_NaN(), std::numeric_limits<float>::infinity()}) {
        SdfBuildSettings s;
        s.voxelSize = vs;
        ObjectPartSdf part;
        testing::internal::CaptureStdout();
        EXPECT_EQ(buildMeshSdf(*cube, s, part), -1) << vs;
        EXPECT_NE(testing::internal::GetCapturedStdout().find("SDF: the voxel size must be above 0"), std::string::npos);
    }
}

TEST_F(ColliderSdfTest, GridsOverTheVoxelBudgetAreRefusedBeforeAnyWork)
{
    // A 100-unit box at voxels of 0.001 would need some 10^11 voxels.
    const auto big = boxMesh(Vec4f(-50.f, -50.f, -50.f), Vec4f(50.f, 50.f, 50.f));
    SdfBuildSettings s;
    s.voxelSize = 0.001f;
    EXPECT_GT(estimateSdfVoxels(*big, s), kSdfVoxelBudget);
    ObjectPartSdf part;
    testing::internal::CaptureStdout();
    EXPECT_EQ(buildMeshSdf(*big, s, part), -1);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("over the budget of 200000000"), std::string::npos);

    // A long sliver has almost no area but a long tube of band round it.
    ObjectMesh sliver;
    sliver.vertices = {Vec4f(0.f, 0.f, 0.f), Vec4f(1000.f, 0.f, 0.f), Vec4f(1000.f, 1e-6f, 0.f)};
    sliver.triangles.resize(1);
    sliver.triangles[0].v1 = 1;
    sliver.triangles[0].v2 = 2;
    s.voxelSize = 0.0005f;
    EXPECT_GT(estimateSdfVoxels(sliver, s), kSdfVoxelBudget);

    // A huge band counts too.
    s.voxelSize = 0.1f;
    s.band = 1e6f;
    EXPECT_GT(estimateSdfVoxels(*boxMesh(Vec4f(0.f, 0.f, 0.f), Vec4f(1.f, 1.f, 1.f)), s), kSdfVoxelBudget);
}

TEST_F(ColliderSdfTest, PrepareRebuildsOnlyWhenSettingsOrGeometryChange)
{
    Object* object = addObject(boxMesh(Vec4f(-0.5f, -0.5f, -0.5f), Vec4f(0.5f, 0.5f, 0.5f)), "prepared");
    SdfBuildSettings s;
    s.voxelSize = 0.1f;
    EXPECT_EQ(prepareObjectSdf(*object, s, false, false), 1);
    const GridBasePtr first = object->partSdfs[0].sdfGrid;
    EXPECT_EQ(prepareObjectSdf(*object, s, false, true), 1);
    EXPECT_EQ(object->partSdfs[0].sdfGrid, first);  // same settings, static mesh: kept
    s.pushOut = 0.05f;
    prepareObjectSdf(*object, s, false, false);
    EXPECT_NE(object->partSdfs[0].sdfGrid, first);
    const GridBasePtr second = object->partSdfs[0].sdfGrid;
    ++object->geometryStamp;
    prepareObjectSdf(*object, s, false, false);
    EXPECT_NE(object->partSdfs[0].sdfGrid, second);
    const GridBasePtr third = object->partSdfs[0].sdfGrid;
    prepareObjectSdf(*object, s, true, false);
    EXPECT_NE(object->partSdfs[0].sdfGrid, third);
}

TEST_F(ColliderSdfTest, AFailedBuildIsNotRetriedEverySubstep)
{
    ObjectMesh broken;
    broken.vertices.assign(3, Vec4f(std::nanf(""), 0.f, 0.f));
    auto mesh = std::make_shared<ObjectMesh>(broken);
    Object* object = addObject(mesh, "broken");
    SdfBuildSettings s;
    testing::internal::CaptureStdout();
    EXPECT_EQ(prepareObjectSdf(*object, s, false, false), 0);
    EXPECT_EQ(prepareObjectSdf(*object, s, false, false), 0);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(out, "Mesh geo is not available yet...\n");
}

TEST_F(ColliderSdfTest, ObjFileOfTheDemoRampBuildsAValidGrid)
{
    Object* object = addObject(nullptr, "ramp");
    ASSERT_EQ(object->loadGeometry(std::string(QORVA_SOURCE_DIR) + "/geo/ramp.obj", 0.f), 0);
    ASSERT_EQ(object->meshes.size(), 1u);
    SdfBuildSettings s;
    s.voxelSize = 0.05f;
    EXPECT_EQ(prepareObjectSdf(*object, s, false, false), 1);
}

} // namespace
