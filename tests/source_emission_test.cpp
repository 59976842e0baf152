// Sources emitting into a granular system: counts and spacing of the plane, mesh, volume
// and point kinds, the rate gate, single-shot frames, reset of the emission state, the
// free-space test, jitter, inherited velocity, emitter ids, determinism, and the quiet
// or printed refusals when geometry is missing.
#include "collidefixtures.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

using namespace fixtures;

namespace {

class SourceEmissionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        resetRunState();
        system = simulation->createGranularSystem("granularEmit");
        system->maxConstraintLength = 0.f;
        system->updateDerivedFields();
    }

    std::vector<Vec4f> positions() const { return system->body->points->P; }

    GranularParticleSystem* system = nullptr;
};

TEST_F(SourceEmissionTest, PlaneEmitsOneLayerAtTheParticleSpacing)
{
    Source* s = addSource(Source::kPlane);
    s->translateY = 2.f;
    s->updateMatrices();
    EXPECT_EQ(emitParticles(*s, *system), 100);  // 10 x 10 at spacing 0.1 on a 1 x 1 plane
    const auto& P = system->body->points->P;
    for (const Vec4f& p : P) {
        EXPECT_FLOAT_EQ(p.y, 2.f);
        EXPECT_GE(p.x, -0.5f);
        EXPECT_LT(p.x, 0.5f);
    }
    EXPECT_NEAR(P[1].z - P[0].z, 0.1f, 1e-6);
    EXPECT_FLOAT_EQ((*system->ch.v)[0].y, -1.f);
    EXPECT_FLOAT_EQ((*system->ch.emissionPos)[7].x, P[7].x);

    // A scaled plane keeps the world spacing and covers more.
    Source* big = addSource(Source::kPlane, nullptr, "bigPlane");
    big->scaleX = big->scaleZ = 2.f;
    big->translateY = 5.f;
    big->updateMatrices();
    EXPECT_EQ(emitParticles(*big, *system), 400);
}

TEST_F(SourceEmissionTest, PlaneWithGeometryEmitsOnePlanePerPartAtItsPose)
{
    auto a = boxMesh(Vec4f(0.f, 0.f, 0.f), Vec4f(1.f, 1.f, 1.f));
    auto b = boxMesh(Vec4f(0.f, 0.f, 0.f), Vec4f(1.f, 1.f, 1.f));
    b->xform[0][13] = b->xform[1][13] = 4.f;  // the second part stands 4 units up
    Object* object = addObject(a, "twoParts");
    object->meshes.push_back(b);
    Source* s = addSource(Source::kPlane, object);
    EXPECT_EQ(emitParticles(*s, *system), 200);
    EXPECT_FLOAT_EQ(system->body->points->P[0].y, 0.f);
    EXPECT_FLOAT_EQ(system->body->points->P[100].y, 4.f);
}

TEST_F(SourceEmissionTest, RateGateEmitsInLayersThatFollowTheSpeed)
{
    Source* s = addSource(Source::kPlane);
    s->checkSpace = false;
    int emissions = 0;
    for (int k = 0; k < 24 * 8; ++k) {  // one second at 192 substeps
        setClock(k, 8);
        s->updateMatrices();
        if (emitParticles(*s, *system) > 0) ++emissions;
    }
    // Layers open when t + 4.5 t^2 > 1.15 * 0.1: every 17 substeps (0.089 s), 12 in a second.
    EXPECT_EQ(emissions, 12);
}

TEST_F(SourceEmissionTest, PlaneAtZeroSpeedStillEmitsOnceFreeFallCoversTheSpacing)
{
    Source* s = addSource(Source::kPlane);
    s->speedMultiplier = 0.f;
    setClock(0, 8);
    EXPECT_EQ(emitParticles(*s, *system), 100);
    setClock(1, 8);  // t = 1/192 s: 4.5 t^2 is far below 0.115
    EXPECT_EQ(emitParticles(*s, *system), 0);
    setClock(40, 8);  // t = 0.2 s
    s->checkSpace = false;
    EXPECT_EQ(emitParticles(*s, *system), 100);
}

TEST_F(SourceEmissionTest, RateAtItsFloorEmitsNothingFromAPlane)
{
    Source* s = addSource(Source::kPlane);
    s->rateMultiplier = 0.00001f;
    EXPECT_EQ(emitParticles(*s, *system), 0);
}

TEST_F(SourceEmissionTest, MeshEmissionCountsFollowTriangleArea)
{
    Object* cube = addObject(boxMesh(Vec4f(-0.5f, -0.5f, -0.5f), Vec4f(0.5f, 0.5f, 0.5f)), "meshCube");
    Source* s = addSource(Source::kMesh, cube);
    s->checkSpace = false;
    // 12 triangles of area 0.5: trunc(0.5 * 14 / local step) each, the step being 0.1f.
    EXPECT_EQ(emitParticles(*s, *system), 12 * int(0.5 * 14.0 / double(0.1f)));
    for (const Vec4f& p : system->body->points->P) {
        const float m = std::max({std::fabs(p.x), std::fabs(p.y), std::fabs(p.z)});
        EXPECT_NEAR(m, 0.5f, 1e-5);  // on the surface
    }
    // Along the interpolated vertex normals: at most the source's speed.
    for (const Vec4f& v : *system->ch.v) EXPECT_LE(v.length3(), 1.f + 1e-4f);
}

TEST_F(SourceEmissionTest, TinyTrianglesEmitByTheirShareTheSameWayEverySubstep)
{
    auto tiny = std::make_shared<ObjectMesh>();
    for (int i = 0; i < 50; ++i) {
        const float x = float(i);
        tiny->vertices.push_back(Vec4f(x, 0.f, 0.f));
        tiny->vertices.push_back(Vec4f(x + 0.02f, 0.f, 0.f));
        tiny->vertices.push_back(Vec4f(x, 0.f, 0.02f));
        ObjectTriangle t;
        t.v0 = 3 * i;
        t.v1 = 3 * i + 1;
        t.v2 = 3 * i + 2;
        t.t0 = t.t1 = t.t2 = -1;
        tiny->triangles.push_back(t);
    }
    tiny->computeTriangleNormals();
    tiny->computeBounds();
    Source* s = addSource(Source::kMesh, addObject(tiny, "tinyTriangles"));
    s->checkSpace = false;
    // Share per triangle: 0.0002 * 14 / 0.1 = 0.028.
    const int first = emitParticles(*s, *system);
    EXPECT_GE(first, 0);
    EXPECT_LE(first, 6);
    const std::vector<Vec4f> before = positions();
    setClock(100, 8);
    EXPECT_EQ(emitParticles(*s, *system), first);
    // The same triangles emit (their samples move with the frame's seed).
    for (int i = 0; i < first; ++i)
        EXPECT_EQ(std::floor(system->body->points->P[size_t(first + i)].x), std::floor(before[size_t(i)].x));
}

TEST_F(SourceEmissionTest, VolumeFillsTheInsideOfTheMesh)
{
    Object* ball = addObject(sphereMesh(0.5f, 24, 48), "ball");
    Source* s = addSource(Source::kVolume, ball);
    EXPECT_FLOAT_EQ(s->rateMultiplier, 0.2f);
    s->voxelSize = 0.05f;
    const int n = emitParticles(*s, *system);
    int surely = 0, maybe = 0;
    for (int i = 0; i <= 10; ++i)
        for (int j = 0; j <= 10; ++j)
            for (int k = 0; k <= 10; ++k) {
                const float r = Vec4f(-0.5f + 0.1f * float(i), -0.5f + 0.1f * float(j), -0.5f + 0.1f * float(k)).length3();
                if (r < 0.49f) ++surely;
                if (r < 0.51f) ++maybe;
            }
    EXPECT_GE(n, surely);
    EXPECT_LE(n, maybe);
    for (const Vec4f& p : system->body->points->P) EXPECT_LT(p.length3(), 0.51f);
}

TEST_F(SourceEmissionTest, VolumeWithoutAGridSaysSoAndWaits)
{
    ObjectMesh broken;
    broken.vertices.assign(3, Vec4f(std::nanf(""), 0.f, 0.f));
    broken.triangles.resize(1);
    Source* s = addSource(Source::kVolume, addObject(std::make_shared<ObjectMesh>(broken), "nanVolume"));
    setClock(5, 8);
    testing::internal::CaptureStdout();
    EXPECT_EQ(emitParticles(*s, *system), 0);
    EXPECT_NE(testing::internal::GetCapturedStdout().find("Source: sdf is not available.\n"), std::string::npos);
    EXPECT_FLOAT_EQ(s->lastEmissionTime, simState->time);
}

TEST_F(SourceEmissionTest, GeometryKindsWithoutAnObjectEmitNothingQuietly)
{
    for (int32_t kind : {Source::kMesh, Source::kVolume, Source::kPoint}) {
        Source* s = addSource(kind, nullptr, "noObject");
        testing::internal::CaptureStdout();
        EXPECT_EQ(emitParticles(*s, *system), 0);
        EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
        EXPECT_FLOAT_EQ(s->lastEmissionTime, -999.f);
    }
    // A geometry object without parts: the plane counts as emitted.
    Source* plane = addSource(Source::kPlane, addObject(nullptr, "noParts"));
    EXPECT_EQ(emitParticles(*plane, *system), 0);
    EXPECT_FLOAT_EQ(plane->lastEmissionTime, simState->time);
}

TEST_F(SourceEmissionTest, PointKindEmitsOneParticlePerVertex)
{
    Object* cube = addObject(boxMesh(Vec4f(-1.f, 0.f, -1.f), Vec4f(1.f, 2.f, 1.f)), "pointCube");
    Source* s = addSource(Source::kPoint, cube);
    s->translateX = 10.f;
    s->updateMatrices();
    EXPECT_EQ(emitParticles(*s, *system), 8);
    EXPECT_FLOAT_EQ(system->body->points->P[0].x, 9.f);
    EXPECT_FLOAT_EQ(system->body->points->P[7].y, 2.f);
}

TEST_F(SourceEmissionTest, FreeSpaceTestKeepsLayersApartUnlessTurnedOff)
{
    Source* s = addSource(Source::kPlane);
    setClock(0, 8);
    EXPECT_EQ(emitParticles(*s, *system), 100);
    setClock(48, 8);  // the gate is open again, the first layer hasn't moved
    EXPECT_EQ(emitParticles(*s, *system), 0);
    s->checkSpace = false;
    setClock(96, 8);
    EXPECT_EQ(emitParticles(*s, *system), 100);
}

TEST_F(SourceEmissionTest, SingleShotFiresOnceAtItsFrame)
{
    Source* s = addSource(Source::kPlane);
    s->singleShotFrame = 10.f;
    s->checkSpace = false;
    std::vector<int> firedAt;
    for (int k = 0; k < 8 * 14; ++k) {
        setClock(k, 8);
        if (emitParticles(*s, *system) > 0) firedAt.push_back(k);
    }
    ASSERT_EQ(firedAt.size(), 1u);
    EXPECT_EQ(firedAt[0], 80);  // frame 10, substep 0
    EXPECT_TRUE(s->singleShotDone);

    // Before the play range: continuous.
    s->singleShotFrame = -1.f;
    int layers = 0;
    for (int k = 8 * 14; k < 8 * 24; ++k) {
        setClock(k, 8);
        if (emitParticles(*s, *system) > 0) ++layers;
    }
    EXPECT_GT(layers, 3);
    EXPECT_FALSE(s->singleShotDone);
}

TEST_F(SourceEmissionTest, ResetClearsTheEmissionState)
{
    Source* s = addSource(Source::kPlane);
    s->singleShotFrame = 0.f;
    setClock(0, 8);
    EXPECT_EQ(emitParticles(*s, *system), 100);
    EXPECT_TRUE(s->singleShotDone);
    EXPECT_NE(s->lastEmissionTime, -999.f);
    EXPECT_EQ(emitParticles(*s, *system), 0);
    s->resetEmission();
    EXPECT_FALSE(s->singleShotDone);
    EXPECT_FLOAT_EQ(s->lastEmissionTime, -999.f);
    EXPECT_FALSE(s->pose.started);
    system->reset();
    system->maxConstraintLength = 0.f;
    EXPECT_EQ(emitParticles(*s, *system), 100);
}

TEST_F(SourceEmissionTest, SameSeedGivesTheSameParticles)
{
    auto run = [&]() {
        system->reset();
        system->sourceIds.clear();
        system->maxConstraintLength = 0.f;
        std::srand(1);
        Object* ball = addObject(sphereMesh(0.4f, 16, 32), "seedBall");
        Source* plane = addSource(Source::kPlane, nullptr, "seedPlane");
        Source* mesh = addSource(Source::kMesh, ball, "seedMesh");
        plane->jitter = mesh->jitter = 0.7f;
        plane->translateY = 3.f;
        plane->rotateX = 20.f;
        mesh->translateX = 2.f;
        system->connectSource(plane);
        system->connectSource(mesh);
        for (int k = 0; k < 40; ++k) {
            setClock(k, 8);
            plane->updateMatrices();
            mesh->updateMatrices();
            substep(*system);
        }
        std::vector<float> out;
        for (const Vec4f& p : system->body->points->P) {
            out.push_back(p.x);
            out.push_back(p.y);
            out.push_back(p.z);
        }
        return out;
    };
    const std::vector<float> a = run();
    const std::vector<float> b = run();
    ASSERT_GT(a.size(), 300u);
    EXPECT_EQ(a, b);
}

TEST_F(SourceEmissionTest, JitterStaysInsideOneStepAndIsClamped)
{
    Source* s = addSource(Source::kPlane);
    s->jitter = 5.f;  // clamped to 1
    EXPECT_FLOAT_EQ(s->jitterAmount(), 1.f);
    s->jitter = -2.f;
    EXPECT_FLOAT_EQ(s->jitterAmount(), 0.f);
    s->jitter = 1.f;
    s->checkSpace = false;
    EXPECT_EQ(emitParticles(*s, *system), 100);
    const auto& P = system->body->points->P;
    bool moved = false;
    for (size_t i = 0; i < P.size(); ++i) {
        const float x = -0.5f + 0.1f * float(i / 10), z = -0.5f + 0.1f * float(i % 10);
        EXPECT_LE(std::fabs(P[i].x - x), 0.05f + 1e-5f);
        EXPECT_LE(std::fabs(P[i].z - z), 0.05f + 1e-5f);
        moved = moved || std::fabs(P[i].x - x) > 1e-4f;
    }
    EXPECT_TRUE(moved);
}

TEST_F(SourceEmissionTest, MovingSourceHandsOnItsVelocity)
{
    Source* s = addSource(Source::kPlane);
    s->speedMultiplier = 0.f;
    s->checkSpace = false;
    setClock(0, 8);
    s->updateMatrices();
    setClock(1, 8);
    s->translateX = 0.1f;  // 0.1 in one substep of 1/192 s
    s->updateMatrices();
    ASSERT_EQ(emitParticles(*s, *system), 100);
    EXPECT_NEAR((*system->ch.v)[0].x, 0.1f * 192.f, 0.01f);
    s->velInheritance = 0.f;
    setClock(100, 8);
    s->translateX = 0.2f;
    s->updateMatrices();
    const size_t first = system->particleCount();
    ASSERT_EQ(emitParticles(*s, *system), 100);
    EXPECT_NEAR((*system->ch.v)[first].x, 0.f, 1e-6);
}

TEST_F(SourceEmissionTest, ParticlesCarryTheIndexOfTheirSource)
{
    Source* a = addSource(Source::kPlane, nullptr, "first");
    Source* b = addSource(Source::kPlane, nullptr, "second");
    b->translateY = 5.f;
    b->updateMatrices();
    emitParticles(*a, *system);
    emitParticles(*b, *system);
    EXPECT_EQ((*system->ch.emitterId)[0], a->listIndex());
    EXPECT_EQ((*system->ch.emitterId)[150], b->listIndex());
    EXPECT_EQ(b->listIndex(), a->listIndex() + 1);
}

TEST_F(SourceEmissionTest, DisabledSourceEmitsNothing)
{
    Source* s = addSource(Source::kPlane);
    s->enabled = false;
    EXPECT_EQ(emitParticles(*s, *system), 0);
}

TEST_F(SourceEmissionTest, RowsFollowTheEditorsOrderWithTheirDefaults)
{
    Source s(Source::kMesh);
    const std::vector<std::string> keys{
        "nodeName", "translateX", "translateY", "translateZ", "rotateX", "rotateY", "rotateZ", "scaleX", "scaleY",
        "scaleZ", "label", "speedMultiplier", "speedX", "speedY", "speedZ", "parentDirection", "velInheritance",
        "rateMultiplier", "resolutionMultiplier", "jitter", "singleShotFrame", "sourceType", "meshNormalEmission",
        "checkSpace", "label", "filePath", "frameOffset", "timeScale", "timeScaleAnchorFrame", "bakeScale",
        "readScale", "blank", "voxelSize", "sdfInnerBand", "sdfOuterBand", "sdfPushOut", "label", "drawMesh",
        "drawGrid", "quatInterpol", "enabled", "visible"};
    ASSERT_EQ(size_t(s.params.size()), keys.size());
    for (size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(s.params.parameters[i].key, keys[i]) << i;
    s.evaluateParameters(0.f, 0);
    EXPECT_EQ(s.sourceType, Source::kMesh);
    EXPECT_FLOAT_EQ(s.speedY, -1.f);
    EXPECT_FLOAT_EQ(s.rateMultiplier, 1.f);
    EXPECT_TRUE(s.params.get("meshNormalEmission")->visibility());
    s.params.get("sourceType")->text = "Volume";
    s.params.get("jitter")->text = "3";
    s.evaluateParameters(0.f, 0);
    EXPECT_EQ(s.sourceType, Source::kVolume);
    EXPECT_FLOAT_EQ(s.jitter, 1.f);
    EXPECT_FALSE(s.params.get("meshNormalEmission")->visibility());
    EXPECT_EQ(s.params.get("enabled")->toolTip.find("Enable or disable the emitter.  [Enter]") != std::string::npos, true);
    EXPECT_FLOAT_EQ(Source(Source::kVolume).rateMultiplier, 0.2f);
}

} // namespace
