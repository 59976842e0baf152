// The force as a scene object: its rows in editor order with their labels and defaults,
// list rows that take names, the wind row shown only in wind mode, and connecting a force
// to a granular system by id.
#include "testenv.h"

#include "particles/dumbparticlesystem.h"
#include "particles/force.h"
#include "particles/granularparticlesystem.h"

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

namespace {

class ForceObjectTest : public ::testing::Test {
protected:
    void SetUp() override { ensureSceneRecords(); }
};

TEST_F(ForceObjectTest, RowsFollowTheEditorOrderWithTheirLabels)
{
    Force f;
    const std::vector<std::pair<std::string, std::string>> expected{
        {"nodeName", "Object Name"},
        {"translateX", "Translate X"},
        {"translateY", "Translate Y"},
        {"translateZ", "Translate Z"},
        {"rotateX", "Rotation X"},
        {"rotateY", "Rotation Y"},
        {"rotateZ", "Rotation Z"},
        {"scaleX", "Scale X"},
        {"scaleY", "Scale Y"},
        {"scaleZ", "Scale Z"},
        {"parentTransform", "Parent Transform to Alembic Transform"},
        {"filePath", "Alembic File Path"},
        {"label", ""},
        {"label", "Force Type:"},
        {"maskType", "Force Area"},
        {"isWind", "Is Wind"},
        {"windSpeedBlend", "Air Thickness"},
        {"label", ""},
        {"label", "Direction & Strength:"},
        {"forceType", "Force Direction"},
        {"directionX", "Direction X"},
        {"directionY", "Direction Y"},
        {"directionZ", "Direction Z"},
        {"strength", "Force Strength"},
        {"windSpeed", "Wind Speed"},
        {"label", "Turbulence:"},
        {"noiseAmp", "Noise Amp"},
        {"noiseType", "Noise Type"},
        {"noiseFreq", "Noise Freq"},
        {"noiseRoughness", "Noise Roughness"},
        {"noiseOctaves", "Noise Octaves"},
        {"noiseOffsetSpeedY", "Noise Offset Speed Y"},
        {"label", "Drag/Wind Effect Strength:"},
        {"largestClumps", "Largest Clumps"},
        {"smallestClumps", "Smallest Clumps"},
        {"highestDens", "Highest Density"},
        {"lowestDens", "Lowest Density"},
        {"quatInterpol", "Use Quaternions"},
        {"enabled", "Enabled"},
        {"visible", "Visibilty"},
    };
    ASSERT_EQ(f.params.size(), int(expected.size()));
    for (size_t r = 0; r < expected.size(); ++r) {
        EXPECT_EQ(f.params.parameters[r].key, expected[r].first) << "row " << r;
        EXPECT_EQ(f.params.parameters[r].label, expected[r].second) << "row " << r;
    }
    EXPECT_EQ(f.typeCode, kTypeForce);
    EXPECT_STREQ(Force::kTypeString, "Force");
}

TEST_F(ForceObjectTest, DefaultsSurviveAnEvaluation)
{
    Force f;
    f.name = "f";
    f.evaluateParameters(0.f, 0);
    EXPECT_EQ(f.maskType, ForceField::kBox);
    EXPECT_EQ(f.forceType, Force::kUniform);
    EXPECT_FALSE(f.isWind);
    EXPECT_FLOAT_EQ(f.windSpeedBlend, 0.01f);
    EXPECT_FLOAT_EQ(f.directionY, -1.f);
    EXPECT_FLOAT_EQ(f.strength, 0.1f);
    EXPECT_FLOAT_EQ(f.windSpeed, 0.1f);
    EXPECT_FLOAT_EQ(f.noiseAmp, 0.f);
    EXPECT_EQ(f.noiseType, Force::kRegularNoise);
    EXPECT_FLOAT_EQ(f.noiseFreq, 1.f);
    EXPECT_FLOAT_EQ(f.noiseRoughness, 0.5f);
    EXPECT_EQ(f.noiseOctaves, 3);
    EXPECT_FLOAT_EQ(f.noiseOffsetSpeed.y, 0.01f);
    EXPECT_FLOAT_EQ(f.largestClumps, 5.f);
    EXPECT_FLOAT_EQ(f.smallestClumps, 3.f);
    EXPECT_FLOAT_EQ(f.scaleX, 1.f);
    EXPECT_TRUE(f.enabled);
    EXPECT_TRUE(f.visible);
    EXPECT_EQ(f.name, "f");
}

TEST_F(ForceObjectTest, ForceCreatedAsRadialKeepsThatAsItsDefault)
{
    Force f(Force::kRadial);
    f.evaluateParameters(0.f, 0);
    EXPECT_EQ(f.forceType, Force::kRadial);
}

TEST_F(ForceObjectTest, ListRowsTakeTheirEntryNames)
{
    Force f;
    f.params.get("maskType")->text = "Sphere";
    f.params.get("forceType")->text = "Radial";
    f.params.get("noiseType")->text = "Curl";
    f.evaluateParameters(0.f, 0);
    EXPECT_EQ(f.maskType, ForceField::kSphere);
    EXPECT_EQ(f.forceType, Force::kRadial);
    EXPECT_EQ(f.noiseType, Force::kCurlNoise);
}

TEST_F(ForceObjectTest, AirThicknessShowsOnlyInWindMode)
{
    Force f;
    const Parameter* blend = f.params.get("windSpeedBlend");
    ASSERT_NE(blend, nullptr);
    EXPECT_FALSE(blend->visibility());
    f.isWind = true;
    EXPECT_TRUE(blend->visibility());
}

TEST_F(ForceObjectTest, ConnectingByIdFilesTheForce)
{
    GranularParticleSystem* s = simulation->createGranularSystem("connecting");
    const int id = simulation->registerObject(std::make_unique<Force>(), "force1");
    EXPECT_TRUE(s->connectById(id));
    ASSERT_EQ(s->forceIds.size(), 1u);
    EXPECT_EQ(s->forceIds[0], id);
    EXPECT_FALSE(s->connectById(id)) << "filed twice";
}

TEST_F(ForceObjectTest, TheSamePassServesTheDumbSystemWithoutClumps)
{
    DumbParticleSystem dumb;
    dumb.addParticle(Vec4f(0.f, 0.f, 0.f), Vec4f());
    dumb.addParticle(Vec4f(5.f, 0.f, 0.f), Vec4f());
    const int id = simulation->registerObject(std::make_unique<Force>(), "force1");
    Force& f = *static_cast<Force*>(simulation->objectById(id));
    f.strength = 2.f; // a unit box round the origin
    const ParticleView view = particleView(dumb);
    ASSERT_EQ(view.count, 2u);
    EXPECT_EQ(view.links, nullptr);
    Force::applyAll({id}, view);
    const VecArray& force = *dumb.body->points->attribAs<VecArray>("force");
    EXPECT_EQ(force[0], Vec4f(0.f, -2.f, 0.f, 0.f));
    EXPECT_EQ(force[1], Vec4f());
}

} // namespace
