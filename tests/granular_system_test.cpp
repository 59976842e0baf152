// The granular system as data: channels after a reset, ids, adding particles, stable
// compaction with constraint renumbering, connections, export exclusions, bounds, the
// parameter table, and the force and ground passes on their own.
#include "testenv.h"

#include "particles/granularparticlesystem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

namespace {

constexpr float kSubstep = 1.f / (8.f * 24.f);

// Stands in for sources, colliders and forces, whose classes come later.
class PlainObject : public SceneObject {
public:
    explicit PlainObject(int type) : SceneObject(type) {}
};

class GranularSystemTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        simState->dt = kSubstep;
        simState->numThreads = 2;
        simState->collideGround = true;
        simState->cudaAvailable = false;
        simState->damping = 0.f;
    }

    static std::vector<int32_t> ids(const GranularParticleSystem& s) { return *s.ch.id; }
};

TEST_F(GranularSystemTest, ResetMakesEveryChannelWithItsType)
{
    GranularParticleSystem s;
    const PointData& pts = *s.body->points;
    const std::vector<std::pair<std::string, int>> expected{
        {"v", ATTRIB_VELOCITY},        {"force", ATTRIB_VECTOR},          {"Cd", ATTRIB_COLOR},
        {"id", ATTRIB_INT},            {"posPrev", ATTRIB_POSITION},      {"numContacts", ATTRIB_INT},
        {"neighbs", ATTRIB_INT_LIST},  {"constrIndices", ATTRIB_INT_LIST}, {"constrDists", ATTRIB_FLOAT_LIST},
        {"restingTime", ATTRIB_FLOAT}, {"sleeping", ATTRIB_BOOL},         {"emitterId", ATTRIB_INT},
        {"stick", ATTRIB_FLOAT},       {"emissionPos", ATTRIB_POSITION},  {"deleted", ATTRIB_BOOL},
        {"width", ATTRIB_FLOAT}};
    for (const auto& [name, type] : expected) EXPECT_EQ(pts.attribType(name), type) << name;
    EXPECT_EQ(pts.numAttribs(), expected.size() + 1);  // and P
    EXPECT_FALSE(pts.hasAttrib("uv"));
    EXPECT_FALSE(pts.hasAttrib("maxStretch"));
}

TEST_F(GranularSystemTest, ResetRestartsCountersAndKeepsWorkingCapacity)
{
    GranularParticleSystem s;
    for (int n = 0; n < 10; ++n) s.addParticle(Vec4f(float(n), 1.f, 0.f), Vec4f());
    s.step();
    s.rememberParticleCount();
    s.reset();
    EXPECT_EQ(s.particleCount(), 0u);
    EXPECT_EQ(s.nextParticleId, -1);
    EXPECT_EQ(s.lastParticleCount, 0);
    EXPECT_EQ(s.maxSpeedLastStep, -1.f);
    EXPECT_EQ(s.hash.cellSize, s.particleRadius);
    EXPECT_EQ(s.hash.tableSize, 260000u);
    EXPECT_TRUE(s.sortedOrder.empty());
    EXPECT_GE(s.sortedOrder.capacity(), 3000u);
    EXPECT_GE(s.sortedPos.capacity(), 3000u);
    EXPECT_GE(s.hashKeys.capacity(), 3000u);
}

TEST_F(GranularSystemTest, DerivedFieldsFollowTheResolution)
{
    GranularParticleSystem s;
    EXPECT_FLOAT_EQ(s.particleRadius, 0.05f);
    EXPECT_FLOAT_EQ(s.particleMass, 0.001f);
    s.resolution = 20.f;
    s.updateDerivedFields();
    EXPECT_FLOAT_EQ(s.particleSpacing, 0.05f);
    EXPECT_FLOAT_EQ(s.particleRadius, 0.025f);
    EXPECT_FLOAT_EQ(s.particleMass, 0.000125f);
    EXPECT_FLOAT_EQ(s.hash.cellSize, 0.05f);
}

TEST_F(GranularSystemTest, AddedParticleCarriesIdBirthPlaceStickAndWidth)
{
    GranularParticleSystem s;
    s.stickAttrInitialVal = 0.7f;
    const Vec4f p(1.f, 2.f, 3.f), v(0.f, -1.f, 0.f);
    EXPECT_EQ(s.addParticle(p, v), 0);
    EXPECT_EQ(s.addParticle(p, v), 1);
    EXPECT_EQ(ids(s), (std::vector<int32_t>{0, 1}));
    EXPECT_EQ((*s.ch.v)[1], v);
    EXPECT_EQ((*s.ch.emissionPos)[1], p);
    EXPECT_EQ((*s.ch.posPrev)[1], p);
    EXPECT_FLOAT_EQ((*s.ch.stick)[1], 0.7f);
    EXPECT_FLOAT_EQ((*s.ch.width)[1], 0.1f);
    EXPECT_FALSE(s.ch.sleeping->get(1));
    EXPECT_EQ(s.sortedOrder, (std::vector<uint32_t>{0, 1}));
    EXPECT_EQ(s.sortedPos.size(), 2u);
    EXPECT_EQ(s.hashKeys.size(), 2u);

    s.enableSleeping = true;
    s.startAsleep = true;
    s.addParticle(p, v);
    EXPECT_TRUE(s.ch.sleeping->get(2));
}

TEST_F(GranularSystemTest, UvChannelLivesOnlyWhileTracking)
{
    GranularParticleSystem s;
    s.trackUVs = true;
    s.addParticle(Vec4f(), Vec4f(), Vec4f(0.25f, 0.5f, 0.f));
    ASSERT_TRUE(s.body->points->hasAttrib("uv"));
    EXPECT_EQ((*s.ch.uv)[0], Vec4f(0.25f, 0.5f, 0.f));
    s.trackUVs = false;
    s.addParticle(Vec4f(), Vec4f(), Vec4f(0.75f, 0.5f, 0.f));
    EXPECT_FALSE(s.body->points->hasAttrib("uv"));
    EXPECT_EQ(s.ch.uv, nullptr);
    EXPECT_EQ(s.particleCount(), 2u);
}

TEST_F(GranularSystemTest, FirstIdIsZeroAndIdsAreNeverReused)
{
    GranularParticleSystem s;
    for (int n = 0; n < 5; ++n) s.addParticle(Vec4f(float(n), 1.f, 0.f), Vec4f());
    s.ch.deleted->set(1, true);
    s.ch.deleted->set(4, true);
    s.compact();
    EXPECT_EQ(ids(s), (std::vector<int32_t>{0, 2, 3}));
    s.addParticle(Vec4f(), Vec4f());
    EXPECT_EQ(ids(s), (std::vector<int32_t>{0, 2, 3, 5}));
}

TEST_F(GranularSystemTest, CompactionKeepsOrderAndRenumbersConstraintPartners)
{
    GranularParticleSystem s;
    for (int n = 0; n < 6; ++n) s.addParticle(Vec4f(float(n), 1.f, 0.f), Vec4f(0.f, float(n), 0.f));
    IntListArray& partners = *s.ch.constrIndices;
    FloatListArray& rests = *s.ch.constrDists;
    partners[0] = {1, 3, 5};
    rests[0] = {0.1f, 0.3f, 0.5f};
    partners[3] = {0, 2};
    rests[3] = {3.0f, 3.2f};
    partners[5] = {4};
    rests[5] = {5.4f};
    s.ch.deleted->set(1, true);
    s.ch.deleted->set(4, true);
    s.constraintsDirty = false;
    s.compact();

    ASSERT_EQ(s.particleCount(), 4u);
    EXPECT_EQ(ids(s), (std::vector<int32_t>{0, 2, 3, 5}));
    EXPECT_EQ(s.body->points->P[2], Vec4f(3.f, 1.f, 0.f));
    EXPECT_EQ((*s.ch.v)[3], Vec4f(0.f, 5.f, 0.f));
    EXPECT_EQ(s.ch.deleted->size(), 4u);
    for (size_t i = 0; i < 4; ++i) EXPECT_FALSE(s.ch.deleted->get(i));
    // Particle 0 lost partner 1 (the last entry took its place), then 5 -> 3 and 3 -> 2.
    EXPECT_EQ(partners[0], (std::vector<int32_t>{3, 2}));
    EXPECT_EQ(rests[0], (std::vector<float>{0.5f, 0.3f}));
    EXPECT_EQ(partners[2], (std::vector<int32_t>{0, 1}));
    EXPECT_EQ(rests[2], (std::vector<float>{3.0f, 3.2f}));
    EXPECT_TRUE(partners[3].empty());
    EXPECT_TRUE(rests[3].empty());
    EXPECT_TRUE(s.constraintsDirty);
}

TEST_F(GranularSystemTest, CompactionWithNothingDeletedChangesNothing)
{
    GranularParticleSystem s;
    for (int n = 0; n < 4; ++n) s.addParticle(Vec4f(float(n), 1.f, 0.f), Vec4f());
    (*s.ch.constrIndices)[2] = {3};
    const VecArray before = s.body->points->P;
    s.compact();
    EXPECT_EQ(s.body->points->P, before);
    EXPECT_EQ((*s.ch.constrIndices)[2], (std::vector<int32_t>{3}));
}

TEST_F(GranularSystemTest, DeletedParticlesLeaveWithinTheStep)
{
    GranularParticleSystem s;
    for (int n = 0; n < 4; ++n) s.addParticle(Vec4f(float(n), 1.f, 0.f), Vec4f());
    s.ch.deleted->set(0, true);
    s.step();
    EXPECT_EQ(s.particleCount(), 3u);
    EXPECT_EQ(ids(s), (std::vector<int32_t>{1, 2, 3}));
}

TEST_F(GranularSystemTest, ConnectFilesIdsByTheObjectsType)
{
    GranularParticleSystem s;
    const int source = simulation->registerObject(std::make_unique<PlainObject>(kTypeSource), "src");
    const int collider = simulation->registerObject(std::make_unique<PlainObject>(kTypeCollider), "col");
    const int force = simulation->registerObject(std::make_unique<PlainObject>(kTypeForce), "frc");
    const int other = simulation->registerObject(std::make_unique<PlainObject>(kTypeObject), "obj");

    EXPECT_TRUE(s.connectById(source));
    EXPECT_TRUE(s.connectById(collider));
    EXPECT_TRUE(s.connectById(force));
    EXPECT_FALSE(s.connectById(other));
    EXPECT_FALSE(s.connectById(99999));
    EXPECT_FALSE(s.connectById(source)) << "an id is filed once";
    EXPECT_EQ(s.sourceIds, std::vector<int32_t>{source});
    EXPECT_EQ(s.colliderIds, std::vector<int32_t>{collider});
    EXPECT_EQ(s.forceIds, std::vector<int32_t>{force});

    const int second = simulation->registerObject(std::make_unique<PlainObject>(kTypeSource), "src");
    EXPECT_TRUE(s.connectById(second));
    EXPECT_EQ(s.sourceIds, (std::vector<int32_t>{source, second}));
    EXPECT_TRUE(s.connectSource(simulation->objectById(source), true)) << "replace clears the list first";
    EXPECT_EQ(s.sourceIds, std::vector<int32_t>{source});
}

TEST_F(GranularSystemTest, ConnectingNothingPrintsAndFails)
{
    GranularParticleSystem s;
    testing::internal::CaptureStdout();
    EXPECT_FALSE(s.connectSource(nullptr));
    EXPECT_FALSE(s.connectCollider(nullptr));
    EXPECT_FALSE(s.connectForce(nullptr));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "there's a problem. connect source\nthere's a problem. connect collider\n"
              "there's a problem. connect force\n");
}

TEST_F(GranularSystemTest, ExportLeavesOutWorkingAndStickChannels)
{
    GranularParticleSystem s;
    s.body->points->addAttrib("__stick_0", ATTRIB_INT);
    s.body->points->addAttrib("__stickpos_0", ATTRIB_VECTOR);
    s.body->points->addAttrib("__sticky", ATTRIB_FLOAT);  // no prefix match: kept
    s.ensureChannels();
    for (int n = 0; n < 3; ++n) s.addParticle(Vec4f(float(n), 1.f, 0.f), Vec4f(1.f, 0.f, 0.f));

    const BodyPtr out = s.exportBody();
    const PointData& pts = *out->points;
    EXPECT_EQ(pts.size(), 3u);
    for (const char* gone : {"force", "deleted", "numContacts", "posPrev", "restingTime", "neighbs",
                             "constrIndices", "constrDists", "stick", "__stick_0", "__stickpos_0"})
        EXPECT_FALSE(pts.hasAttrib(gone)) << gone;
    for (const char* kept : {"v", "Cd", "id", "sleeping", "emitterId", "emissionPos", "width", "__sticky"})
        EXPECT_TRUE(pts.hasAttrib(kept)) << kept;
    EXPECT_EQ(pts.P[2], Vec4f(2.f, 1.f, 0.f));
    EXPECT_EQ((*pts.attribAs<IntArray>("id"))[2], 2);
    EXPECT_TRUE(s.body->points->hasAttrib("force")) << "the system keeps its own channels";
}

TEST_F(GranularSystemTest, BoundingBoxStartsInvertedAndCoversAllPositions)
{
    GranularParticleSystem s;
    Vec4f lo, hi;
    s.boundingBox(lo, hi);
    EXPECT_EQ(lo.x, 99999.f);
    EXPECT_EQ(hi.y, -99999.f);
    s.addParticle(Vec4f(1.f, -2.f, 3.f), Vec4f());
    s.addParticle(Vec4f(-1.f, 5.f, 0.f), Vec4f());
    s.boundingBox(lo, hi);
    EXPECT_EQ(lo, Vec4f(-1.f, -2.f, 0.f));
    EXPECT_EQ(hi, Vec4f(1.f, 5.f, 3.f));
}

TEST_F(GranularSystemTest, NearestDistanceSeesOnlyHashedParticles)
{
    GranularParticleSystem s;
    s.addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f());
    s.addParticle(Vec4f(0.06f, 1.f, 0.f), Vec4f());
    s.rebuildQueryHash();
    EXPECT_NEAR(s.nearestDistance(Vec4f(0.f, 1.05f, 0.f)), 0.05f, 1e-6f);
    s.addParticle(Vec4f(0.f, 1.05f, 0.f), Vec4f());  // not in the hash until the next rebuild
    EXPECT_NEAR(s.nearestDistance(Vec4f(0.f, 1.05f, 0.f)), 0.05f, 1e-6f);
    EXPECT_EQ(s.nearestDistance(Vec4f(3.f, 3.f, 3.f)), kNoNeighbourDistance);
}

TEST_F(GranularSystemTest, ForcePassAssignsGravityAndDamps)
{
    GranularParticleSystem s;
    s.addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f(2.f, 0.f, 0.f));
    s.addParticle(Vec4f(1.f, 1.f, 0.f), Vec4f(2.f, 0.f, 0.f));
    (*s.ch.force)[0] = Vec4f(5.f, 5.f, 5.f);
    s.ch.deleted->set(1, true);
    simState->damping = 12.f;
    s.forcePass();
    simState->damping = 0.f;
    EXPECT_FLOAT_EQ((*s.ch.force)[0].y, -9.81f * 0.001f);
    EXPECT_EQ((*s.ch.force)[0].x, 0.f) << "gravity replaces what was there";
    EXPECT_FLOAT_EQ((*s.ch.v)[0].x, 2.f * (1.f - 12.f * kSubstep));
    EXPECT_EQ((*s.ch.v)[1].x, 2.f) << "deleted particles are left alone";
}

TEST_F(GranularSystemTest, GroundPassLiftsAndBrakes)
{
    GranularParticleSystem s;
    s.addParticle(Vec4f(0.f, 0.01f, 0.f), Vec4f(1.f, -2.f, 1.f));
    s.addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f(1.f, -2.f, 1.f));
    s.groundPass();
    const float keep = 1.f - 10.f * kSubstep;
    EXPECT_EQ(s.body->points->P[0].y, s.particleRadius);
    EXPECT_FLOAT_EQ((*s.ch.v)[0].x, keep);
    EXPECT_FLOAT_EQ((*s.ch.v)[0].y, 0.02f);
    EXPECT_EQ((*s.ch.v)[1], Vec4f(1.f, -2.f, 1.f));
}

TEST_F(GranularSystemTest, SolveStampsTheFrameTime)
{
    GranularParticleSystem s;
    s.addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f());
    simState->frameF = 12.25f;
    s.step();
    EXPECT_EQ(s.lastSolvedTime, 12.25f);
    simState->frameF = 0.f;
}

class GranularParameterTest : public GranularSystemTest {
protected:
    static std::vector<std::string> keys(const GranularParticleSystem& s)
    {
        std::vector<std::string> out;
        for (const Parameter& row : s.params.parameters)
            if (row.key != "label" && row.key != "blank") out.push_back(row.key);
        return out;
    }
    static std::vector<std::string> captions(const GranularParticleSystem& s)
    {
        std::vector<std::string> out;
        for (const Parameter& row : s.params.parameters)
            if (row.key == "label") out.push_back(row.label);
        return out;
    }
    static void set(GranularParticleSystem& s, const std::string& key, const std::string& text)
    {
        Parameter* row = s.params.get(key);
        ASSERT_NE(row, nullptr) << key;
        row->text = text;
        row->evaluate(0.f, 0);
    }
};

TEST_F(GranularParameterTest, RowsComeInTableOrder)
{
    GranularParticleSystem s;
    EXPECT_EQ(keys(s),
              (std::vector<std::string>{
                  "nodeName", "resolution", "gravity", "groundPlaneFriction", "freezeThreshold",
                  "freezeMinContacts", "colorScale", "particleStiffness", "friction", "attraction", "slushiness",
                  "constraintStiffness", "maxConstraintStretch", "maxConstraintLength", "removeStrands",
                  "plasticity", "relinkThreshold", "relinkEveryNthStep", "enableSleeping", "colorSleeping",
                  "startAsleep", "sleepVelThreshold", "sleepDelay", "allowSleepingToMove",
                  "wakeupByVelocityThreshold", "iterations", "damping", "clampAcceleration", "clampSpeed",
                  "initialStateFilePath", "trackUVs", "useCuda", "exportFormat", "enabled", "visible",
                  "showExtraParams", "breakConstraintsNoisy", "breakConstrNoisyScaleX", "breakConstrNoisyScaleY",
                  "breakConstrNoisyScaleZ", "breakConstrNoisyOctaves", "breakConstrNoisyRoughness",
                  "stickAttrInitialVal", "colorStickiness", "unstickByVelocityThreshold"}));
    EXPECT_EQ(captions(s), (std::vector<std::string>{"General:", "Particle-Interaction:", "Constraints:",
                                                     "Sleeping:", "Solver Details:", "",
                                                     "Initial Constraint Breakup:", "Collider Stick-Behavior:"}));
    EXPECT_EQ(s.params.get("particleStiffness")->label, "Particle Stiffness/Push-Away");
    EXPECT_EQ(s.params.get("nodeName")->type, kParamObjectName);
    EXPECT_EQ(s.params.get("initialStateFilePath")->type, kParamPath);
    EXPECT_EQ(s.params.get("exportFormat")->type, kParamString);
    EXPECT_EQ(s.params.get("freezeMinContacts")->type, kParamInt);
    EXPECT_EQ(s.params.get("slushiness")->toolTip,
              "<b>Slushiness:</b><br><i>(slushiness)</i><br><br>Inversely controls the explosiveness of impacts "
              "(intended range 0.0 to 1.0)");
    EXPECT_EQ(s.params.get("visible")->toolTip, "<b>Visibility:</b><br><i>(visible)</i>");
}

TEST_F(GranularParameterTest, DefaultsEvaluateToTheFieldValues)
{
    GranularParticleSystem s;
    s.params.evaluateAll(0.f, 0);
    EXPECT_EQ(s.params.get("gravity")->text, "-9.81");
    EXPECT_EQ(s.params.get("exportFormat")->text, "abc");
    EXPECT_EQ(s.params.get("enabled")->text, "true");
    EXPECT_FLOAT_EQ(s.gravityVector.y, -9.81f);
    EXPECT_FLOAT_EQ(s.maxConstraintStretch, 1.06f);
    EXPECT_EQ(s.iterations, 3);
    EXPECT_EQ(s.exportFormat, "abc");
    EXPECT_TRUE(s.enabled);
    EXPECT_TRUE(s.visible);
}

TEST_F(GranularParameterTest, LimitsClampTheirRows)
{
    GranularParticleSystem s;
    set(s, "slushiness", "3");
    EXPECT_EQ(s.slushiness, 1.f);
    set(s, "slushiness", "-1");
    EXPECT_EQ(s.slushiness, 0.f);
    set(s, "maxConstraintLength", "12");
    EXPECT_EQ(s.maxConstraintLength, 10.f);
    set(s, "friction", "-4");
    EXPECT_EQ(s.friction, 0.f);
    set(s, "plasticity", "2");
    EXPECT_EQ(s.plasticity, 1.f);
    set(s, "gravity", "-20");
    EXPECT_EQ(s.gravityVector, Vec4f(0.f, -20.f, 0.f, 0.f)) << "the row edits only y";
}

TEST_F(GranularParameterTest, DampingRowEditsTheSharedValue)
{
    GranularParticleSystem a, b;
    set(a, "damping", "0.5");
    EXPECT_EQ(simState->damping, 0.5f);
    EXPECT_EQ(b.params.get("damping")->value, &simState->damping);
    simState->damping = 0.f;
}

TEST_F(GranularParameterTest, ExtraRowsShowOnlyOnRequest)
{
    GranularParticleSystem s;
    const Parameter* noisy = s.params.get("breakConstraintsNoisy");
    const Parameter* stick = s.params.get("unstickByVelocityThreshold");
    const Parameter* cuda = s.params.get("useCuda");
    EXPECT_FALSE(noisy->visibility());
    EXPECT_FALSE(stick->visibility());
    EXPECT_TRUE(s.params.get("showExtraParams")->visibility());
    set(s, "showExtraParams", "true");
    EXPECT_TRUE(noisy->visibility());
    EXPECT_TRUE(stick->visibility());
    EXPECT_FALSE(cuda->visibility());
    simState->cudaAvailable = true;
    EXPECT_TRUE(cuda->visibility());
    simState->cudaAvailable = false;
}

TEST_F(GranularParameterTest, EvaluationKeepsTheRegisteredName)
{
    auto owned = std::make_unique<GranularParticleSystem>();
    GranularParticleSystem* s = owned.get();
    simulation->registerObject(std::move(owned), "granular");
    s->evaluateParameters(0.f, 0);
    EXPECT_EQ(s->name, "granular");
    set(*s, "nodeName", "sand");
    EXPECT_EQ(s->name, "sand");
}

} // namespace
