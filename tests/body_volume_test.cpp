// Volumes of a Body: grid creation by VolumeType, replacing a grid under an
// existing key, per-volume attributes, deep copies of grid trees, the grid
// helpers (lookup by a list of names, type codes) and bounds with grids.
// Each case is named for the fault it would catch.
#include <gtest/gtest.h>

#include <openvdb/openvdb.h>

#include "geo/body.h"
#include "geo/gridutil.h"

namespace {

openvdb::FloatGrid::Ptr floatGrid(const std::string& name, float voxelSize = 1.0)
{
    auto grid = openvdb::FloatGrid::create(0.f);
    grid->setName(name);
    grid->setTransform(openvdb::math::Transform::createLinearTransform(voxelSize));
    return grid;
}

float valueAt(const GridBasePtr& grid, int i, int j, int k)
{
    return openvdb::gridConstPtrCast<openvdb::FloatGrid>(grid)->tree().getValue(openvdb::Coord(i, j, k));
}

class VolumeDataTest : public ::testing::Test {
protected:
    VolumeData vols;
};

TEST_F(VolumeDataTest, AddVolumeMakesEmptyNamedGridOfEachType)
{
    EXPECT_EQ(vols.addVolume("mask", VOLUME_BOOL), 1);
    EXPECT_EQ(vols.addVolume("ids", VOLUME_INT), 2);
    EXPECT_EQ(vols.addVolume("density", VOLUME_FLOAT), 3);
    EXPECT_EQ(vols.addVolume("vel", VOLUME_VEC3_RELATIVE), 4);
    EXPECT_EQ(vols.addVolume("bad", 8), -1);
    EXPECT_EQ(vols.size(), 4u);
    EXPECT_TRUE(vols.volume("mask")->isType<openvdb::BoolGrid>());
    EXPECT_TRUE(vols.volume("ids")->isType<openvdb::Int32Grid>());
    auto density = openvdb::gridPtrCast<openvdb::FloatGrid>(vols.volume("density"));
    ASSERT_TRUE(density);
    EXPECT_EQ(density->background(), 0.f);
    EXPECT_EQ(density->activeVoxelCount(), 0u);
    EXPECT_EQ(density->getName(), "density");
    EXPECT_EQ(vols.volume("vel")->getVectorType(), openvdb::VEC_CONTRAVARIANT_RELATIVE);
    EXPECT_EQ(vols.volumeType("vel"), VOLUME_VEC3_RELATIVE);
    EXPECT_EQ(vols.volumeType("nope"), -1);
    EXPECT_EQ(vols.volume("nope"), nullptr);
}

TEST_F(VolumeDataTest, MadeVectorGridsMapBackToTheirCode)
{
    for (int t : {VOLUME_BOOL, VOLUME_INT, VOLUME_FLOAT, VOLUME_VEC3, VOLUME_VEC3_ABSOLUTE,
                  VOLUME_VEC3_NORMALIZE, VOLUME_VEC3_RELATIVE}) {
        GridBasePtr grid = makeGrid(t, "g");
        ASSERT_TRUE(grid) << t;
        EXPECT_EQ(volumeTypeOfGrid(*grid), t);
    }
    EXPECT_TRUE(makeGrid(VOLUME_VEC3_UNKNOWN, "g")->isType<openvdb::Vec3SGrid>());
}

TEST_F(VolumeDataTest, FlatListsFollowKeyOrder)
{
    vols.addVolume("vel", VOLUME_VEC3);
    vols.addVolume("density", VOLUME_FLOAT);
    vols.addVolume("Temp", VOLUME_FLOAT);
    EXPECT_EQ(vols.names, (std::vector<std::string>{"Temp", "density", "vel"}));
    EXPECT_EQ(vols.types, (std::vector<int>{VOLUME_FLOAT, VOLUME_FLOAT, VOLUME_VEC3}));
    for (size_t i = 0; i < 3; ++i) EXPECT_EQ(vols.grids[i], vols.volume(vols.names[i]));
}

TEST_F(VolumeDataTest, SetVolumeReplacesInPlaceUnderADifferentKey)
{
    vols.addAttrib("scale", PRIM_FLOAT);
    vols.addVolume("density", VOLUME_FLOAT);
    auto first = floatGrid("velocity_pressure");
    EXPECT_EQ(vols.setVolume("pressure", VOLUME_FLOAT, first), 2);
    (*vols.attribs.attribAs<FloatArray>("scale")) = {1.f, 2.f};
    auto second = floatGrid("velocity_pressure");
    EXPECT_EQ(vols.setVolume("pressure", VOLUME_FLOAT, second), 2);
    EXPECT_EQ(vols.volume("pressure"), second);
    EXPECT_EQ(vols.volume("pressure")->getName(), "velocity_pressure");
    EXPECT_FALSE(vols.volume("velocity_pressure"));
    EXPECT_EQ(vols.names, (std::vector<std::string>{"density", "pressure"}));
    EXPECT_EQ(vols.grids[1], second);
    EXPECT_EQ(*vols.attribs.attribAs<FloatArray>("scale"), (FloatArray{1.f, 2.f}));
    EXPECT_EQ(vols.setVolume("x", VOLUME_FLOAT, nullptr), -1);
    EXPECT_EQ(vols.size(), 2u);
}

TEST_F(VolumeDataTest, PerVolumeAttributeElementsStayWithTheirGrid)
{
    vols.addVolume("b", VOLUME_FLOAT);
    vols.addAttrib("col", PRIM_COLOR);
    (*vols.attribs.attribAs<VecArray>("col"))[0] = Vec4f(0.5f, 0, 0);
    vols.addVolume("a", VOLUME_FLOAT); // sorts before "b": its element goes first
    const auto& col = *vols.attribs.attribAs<VecArray>("col");
    ASSERT_EQ(col.size(), 2u);
    EXPECT_EQ(col[0], Vec4f(1, 1, 1, 0));
    EXPECT_EQ(col[1], Vec4f(0.5f, 0, 0));
    EXPECT_EQ(vols.removeVolume("a"), 0);
    EXPECT_EQ(vols.removeVolume("a"), -1);
    EXPECT_EQ(*vols.attribs.attribAs<VecArray>("col"), VecArray{Vec4f(0.5f, 0, 0)});
    EXPECT_EQ(vols.names, std::vector<std::string>{"b"});
}

// ---------------------------------------------------------------- deep copies

class VolumeCopyTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        auto grid = floatGrid("density");
        grid->tree().setValue(openvdb::Coord(1, 2, 3), 4.f);
        body.volumes->setVolume("density", VOLUME_FLOAT, grid);
        body.volumes->extraGrids.push_back(floatGrid("spare"));
        body.updateCounts();
    }
    Body body;
};

TEST_F(VolumeCopyTest, CopyOwnsItsGridTrees)
{
    Body copy(body);
    ASSERT_NE(copy.volumes->volume("density"), body.volumes->volume("density"));
    EXPECT_FLOAT_EQ(valueAt(copy.volumes->volume("density"), 1, 2, 3), 4.f);
    openvdb::gridPtrCast<openvdb::FloatGrid>(copy.volumes->volume("density"))
        ->tree()
        .setValue(openvdb::Coord(1, 2, 3), 9.f);
    EXPECT_FLOAT_EQ(valueAt(body.volumes->volume("density"), 1, 2, 3), 4.f);
    EXPECT_EQ(copy.volumes->grids[0], copy.volumes->volume("density"));
    ASSERT_EQ(copy.volumes->extraGrids.size(), 1u);
    EXPECT_NE(copy.volumes->extraGrids[0], body.volumes->extraGrids[0]);
    EXPECT_EQ(copy.numVolumes, 1u);
}

TEST_F(VolumeCopyTest, AssignmentReplacesGridsWithDeepCopies)
{
    Body dst;
    dst.volumes->addVolume("old", VOLUME_BOOL);
    dst = body;
    EXPECT_FALSE(dst.volumes->volume("old"));
    EXPECT_EQ(dst.volumes->names, std::vector<std::string>{"density"});
    ASSERT_NE(dst.volumes->volume("density"), body.volumes->volume("density"));
    EXPECT_FLOAT_EQ(valueAt(dst.volumes->volume("density"), 1, 2, 3), 4.f);
}

TEST_F(VolumeCopyTest, ClearDropsGridsAndCounters)
{
    body.clear();
    EXPECT_EQ(body.volumes->size(), 0u);
    EXPECT_TRUE(body.volumes->grids.empty() && body.volumes->extraGrids.empty());
    EXPECT_EQ(body.numVolumes, 0u);
}

// ---------------------------------------------------------------- helpers

TEST(GridUtilTest, FindGridTakesFirstNameOfTheListThatExists)
{
    VolumeData vols;
    vols.addVolume("velocity", VOLUME_VEC3);
    vols.addVolume("vel", VOLUME_VEC3);
    EXPECT_EQ(findGrid(vols, {"v", "vel", "velocity"}), vols.volume("vel"));
    EXPECT_EQ(findGrid(vols, {"velocity", "vel"}), vols.volume("velocity"));
    EXPECT_EQ(findGrid(vols, {"v", "density"}), nullptr);
    EXPECT_EQ(findGrid(vols, {}), nullptr);
}

TEST(GridUtilTest, VectorTypesMapToVolumeCodes)
{
    EXPECT_EQ(volumeTypeFromVecType(openvdb::VEC_INVARIANT), 3);
    EXPECT_EQ(volumeTypeFromVecType(openvdb::VEC_COVARIANT), 3);
    EXPECT_EQ(volumeTypeFromVecType(openvdb::VEC_COVARIANT_NORMALIZE), 6);
    EXPECT_EQ(volumeTypeFromVecType(openvdb::VEC_CONTRAVARIANT_RELATIVE), 7);
    EXPECT_EQ(volumeTypeFromVecType(openvdb::VEC_CONTRAVARIANT_ABSOLUTE), 4);
    EXPECT_EQ(volumeTypeFromVecType(42), 5);
    EXPECT_EQ(volumeTypeFromVecType(-1), 5);
}

TEST(GridUtilTest, GridValueTypesMapToVolumeCodes)
{
    EXPECT_EQ(volumeTypeOfGrid(*openvdb::BoolGrid::create()), VOLUME_BOOL);
    EXPECT_EQ(volumeTypeOfGrid(*openvdb::Int32Grid::create()), VOLUME_INT);
    EXPECT_EQ(volumeTypeOfGrid(*openvdb::FloatGrid::create()), VOLUME_FLOAT);
    auto vec = openvdb::Vec3SGrid::create();
    vec->setVectorType(openvdb::VEC_COVARIANT);
    EXPECT_EQ(volumeTypeOfGrid(*vec), 3);
    vec->setVectorType(openvdb::VEC_CONTRAVARIANT_ABSOLUTE);
    EXPECT_EQ(volumeTypeOfGrid(*vec), 4);
    EXPECT_EQ(volumeTypeOfGrid(*openvdb::DoubleGrid::create()), -1);
}

// ---------------------------------------------------------------- bounds

TEST(BoundsTest, EmptyBodyGivesInvertedSentinelBox)
{
    Body b;
    b.volumes->addVolume("density", VOLUME_FLOAT); // no active voxel: adds nothing
    Vec4f lo, hi;
    b.getBounds(lo, hi);
    EXPECT_EQ(lo, Vec4f(99999, 99999, 99999));
    EXPECT_EQ(hi, Vec4f(-99999, -99999, -99999));
}

TEST(BoundsTest, PointsAndActiveVoxelsInWorldSpaceWidenTheBox)
{
    Body b;
    b.points->addPoint(Vec4f(0, 0, 0));
    b.points->addPoint(Vec4f(1, 0.5f, -1));
    auto grid = floatGrid("density", 0.5);
    grid->tree().setValue(openvdb::Coord(10, -4, 2), 1.f);
    grid->tree().setValue(openvdb::Coord(12, -4, 3), 1.f);
    b.volumes->setVolume("density", VOLUME_FLOAT, grid);
    Vec4f lo, hi;
    b.getBounds(lo, hi);
    EXPECT_FLOAT_EQ(lo.x, 0.f);
    EXPECT_FLOAT_EQ(lo.y, -2.f);
    EXPECT_FLOAT_EQ(lo.z, -1.f);
    EXPECT_FLOAT_EQ(hi.x, 6.f);
    EXPECT_FLOAT_EQ(hi.y, 0.5f);
    EXPECT_FLOAT_EQ(hi.z, 1.5f);
}

TEST(BoundsTest, GridTransformTranslationIsApplied)
{
    Body b;
    auto grid = floatGrid("density", 1.0);
    grid->transform().postTranslate(openvdb::Vec3d(100, 0, 0));
    grid->tree().setValue(openvdb::Coord(1, 1, 1), 1.f);
    b.volumes->setVolume("density", VOLUME_FLOAT, grid);
    Vec4f lo, hi;
    b.getBounds(lo, hi);
    EXPECT_FLOAT_EQ(lo.x, 101.f);
    EXPECT_FLOAT_EQ(hi.x, 101.f);
    EXPECT_FLOAT_EQ(hi.y, 1.f);
}

} // namespace
