// The classic SPH system: a resting column keeps its volume, a closed box holds the fluid,
// the pressure and density edge cases, a dam break spreads, scene scaling, bad input
// (non-finite positions, zero resolution), the scene-file round trip, and the SPH nodes:
// the origin advancing its Body and the solver pushing overlapping particles apart.
#include "collidefixtures.h"
#include "nodetestkit.h"

#include "io/binformat.h"
#include "nodes/sphoriginnode.h"
#include "nodes/sphsolvernode.h"
#include "particles/sphkernels.h"
#include "particles/sphparticlesystem.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <string>
#include <unistd.h>

using namespace fixtures;
namespace fs = std::filesystem;

namespace {

class SphTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        resetRunState();
        simulation->clear();
        simState->collideGround = true;
    }

    // An SPH system at `resolution` without collider jitter.
    static SimpleSPHParticleSystem* makeSystem(float resolution, float jitter = 0.f)
    {
        SimpleSPHParticleSystem* s = simulation->createSPHSystem("fluid");
        s->resolution = resolution;
        s->collisionJitter = jitter;
        s->updateDerivedFields();
        return s;
    }

    // A lattice block of nx * ny * nz particles at `spacing` from lo.
    static void fillBlock(SimpleSPHParticleSystem& s, const Vec4f& lo, int nx, int ny, int nz, float spacing)
    {
        for (int z = 0; z < nz; ++z)
            for (int y = 0; y < ny; ++y)
                for (int x = 0; x < nx; ++x)
                    s.addParticle(lo + Vec4f(float(x), float(y), float(z), 0.f) * spacing, Vec4f());
    }

    // A collider that holds particles inside the box lo..hi.
    static CollisionObject* tank(SimpleSPHParticleSystem& s, const Vec4f& lo, const Vec4f& hi)
    {
        CollisionObject* c = addCollider(addObject(boxMesh(lo, hi), "tankGeo"), "tank");
        c->sdfInvert = true;
        c->voxelSize = s.particleSpacing * 0.5f;
        s.connectCollider(c);
        return c;
    }

    // Whole frames at `substeps` substeps each, from frame `first`, as the solver loop runs them.
    static void runFrames(SimpleSPHParticleSystem& s, int frames, int substeps, int first = 0)
    {
        for (int k = first * substeps; k < (first + frames) * substeps; ++k) {
            setClock(k, substeps);
            for (SceneObject* o : simulation->objectsById)
                if (o && o->typeCode == kTypeCollider) static_cast<CollisionObject*>(o)->updateMatrices();
            s.step();
            s.rememberParticleCount();
        }
    }

    static float maxX(const SimpleSPHParticleSystem& s)
    {
        float m = -1e30f;
        for (const Vec4f& p : s.body->points->P) m = std::max(m, p.x);
        return m;
    }
    static float meanY(const SimpleSPHParticleSystem& s)
    {
        double sum = 0.0;
        for (const Vec4f& p : s.body->points->P) sum += p.y;
        return float(sum / double(std::max<size_t>(1, s.particleCount())));
    }
};

TEST_F(SphTest, RestingColumnKeepsItsVolumeOnceSettled)
{
    SimpleSPHParticleSystem* s = makeSystem(20.f);
    const float sp = s->particleSpacing, rc = 0.4f * s->kernelRadius;
    const int nx = 9, ny = 6;
    fillBlock(*s, Vec4f(0.f, s->kernelRadius, 0.f, 0.f), nx, ny, nx, sp);
    const float w = float(nx - 1) * sp;
    tank(*s, Vec4f(-rc, -0.5f, -rc), Vec4f(w + rc, 3.f, w + rc));
    const float floor = s->kernelRadius;
    const float startHeight = meanY(*s) - floor;

    // The weakly compressible fluid first sinks into its own weight, then holds.
    runFrames(*s, 20, 8);
    const float settled = meanY(*s) - floor;
    EXPECT_GT(settled, 0.35f * startHeight);
    float lo = settled, hi = settled;
    for (int f = 20; f < 120; f += 10) {
        runFrames(*s, 10, 8, f);
        const float height = meanY(*s) - floor;
        lo = std::min(lo, height);
        hi = std::max(hi, height);
    }
    EXPECT_EQ(s->particleCount(), size_t(nx * ny * nx));
    EXPECT_GT(lo, 0.95f * settled);
    EXPECT_LT(hi, 1.05f * settled);
    EXPECT_LT(s->maxSpeedLastStep, 1.f);
}

TEST_F(SphTest, ClosedBoxHoldsEveryParticle)
{
    simState->collideGround = false;
    SimpleSPHParticleSystem* s = makeSystem(20.f, 0.75f);
    const Vec4f lo(0.f, 0.f, 0.f, 0.f), hi(0.6f, 0.6f, 0.3f, 0.f);
    tank(*s, lo, hi);
    const float sp = s->particleSpacing;
    fillBlock(*s, Vec4f(0.06f, 0.06f, 0.06f, 0.f), 5, 8, 4, sp);
    const size_t count = s->particleCount();
    runFrames(*s, 24, 8);
    ASSERT_EQ(s->particleCount(), count);
    for (const Vec4f& p : s->body->points->P) {
        EXPECT_GT(p.x, lo.x);
        EXPECT_GT(p.y, lo.y);
        EXPECT_GT(p.z, lo.z);
        EXPECT_LT(p.x, hi.x);
        EXPECT_LT(p.y, hi.y);
        EXPECT_LT(p.z, hi.z);
    }
}

TEST_F(SphTest, PressureIsExactlyZeroAtAndBelowRestDensity)
{
    EXPECT_EQ(sphPressure(1000.f, 1000.f, 0.25f), 0.f);
    EXPECT_EQ(sphPressure(50.f, 1000.f, 0.25f), 0.f);
    EXPECT_EQ(sphPressure(999.99f, 1000.f, 100.f), 0.f);
    EXPECT_FLOAT_EQ(sphPressure(1100.f, 1000.f, 0.25f), 0.25f);

    // A loose lattice (spacing 0.9 h) stays below rest density: no particle feels pressure.
    SimpleSPHParticleSystem* s = makeSystem(20.f);
    simState->collideGround = false;
    fillBlock(*s, Vec4f(), 4, 4, 4, 0.9f * s->kernelRadius);
    s->solveOnCpu();
    for (float p : *s->ch.pressure) EXPECT_EQ(p, 0.f);
    for (float d : *s->ch.density) EXPECT_LT(d, s->restDensity);
}

TEST_F(SphTest, ParticleWithoutNeighboursHasDensityJustOverTheFloor)
{
    SimpleSPHParticleSystem* s = makeSystem(20.f);
    s->addParticle(Vec4f(0.f, 1.f, 0.f, 0.f), Vec4f());
    s->addParticle(Vec4f(5.f, 1.f, 0.f, 0.f), Vec4f());
    s->solveOnCpu();
    for (size_t i = 0; i < 2; ++i) {
        const float d = (*s->ch.density)[i];
        EXPECT_GT(d, kSphDensityFloor);
        EXPECT_LT(d, kSphDensityFloor + 1.f);
        EXPECT_EQ((*s->ch.pressure)[i], 0.f);
    }
}

TEST_F(SphTest, DamBreakSpreadsAlongTheFloor)
{
    SimpleSPHParticleSystem* s = makeSystem(20.f, 0.75f);
    tank(*s, Vec4f(0.f, -0.5f, 0.f, 0.f), Vec4f(1.2f, 2.f, 0.3f, 0.f));
    fillBlock(*s, Vec4f(0.06f, s->kernelRadius, 0.06f, 0.f), 5, 10, 4, s->particleSpacing);
    const float startX = maxX(*s);
    runFrames(*s, 16, 8);
    EXPECT_GT(maxX(*s), startX + 0.3f);
    EXPECT_LT(maxX(*s), 1.2f);
}

TEST_F(SphTest, SceneScaleSolvesScaledButKeepsSceneUnits)
{
    simState->collideGround = false;
    SimpleSPHParticleSystem* plain = makeSystem(20.f);
    SimpleSPHParticleSystem* scaled = simulation->createSPHSystem("scaled");
    scaled->resolution = 20.f;
    scaled->sceneScale = 2.f;
    scaled->updateDerivedFields();
    for (SimpleSPHParticleSystem* s : {plain, scaled}) {
        s->gravityVector.y = 0.f;
        fillBlock(*s, Vec4f(1.f, 1.f, 1.f, 0.f), 4, 4, 4, 0.6f * s->particleSpacing);
        s->addParticle(Vec4f(3.f, 1.f, 1.f, 0.f), Vec4f(1.f, 0.f, 0.f, 0.f));
    }
    runFrames(*plain, 1, 8);
    runFrames(*scaled, 1, 8);
    // A lone particle moves by its own velocity in scene units either way.
    const Vec4f lone = scaled->body->points->P.back();
    EXPECT_NEAR(lone.x, 3.f + 1.f / 24.f, 1e-4f);
    EXPECT_NEAR(lone.y, 1.f, 1e-5f);
    // The block stays where it was in the scene, not at twice its coordinates; scaled,
    // its particles are further apart inside the solve and feel less pressure.
    Vec4f lo, hi;
    scaled->boundingBox(lo, hi);
    EXPECT_GT(lo.x, 0.9f);
    EXPECT_LT(lo.x, 1.1f);
    Vec4f plainLo, plainHi;
    plain->boundingBox(plainLo, plainHi);
    EXPECT_GT(plainHi.x - plainLo.x, hi.x - lo.x);
}

TEST_F(SphTest, NonFinitePositionsAreDroppedWithOneLine)
{
    SimpleSPHParticleSystem* s = makeSystem(20.f);
    fillBlock(*s, Vec4f(0.f, 0.5f, 0.f, 0.f), 3, 3, 3, s->particleSpacing);
    s->addParticle(Vec4f(std::numeric_limits<float>::quiet_NaN(), 0.5f, 0.f, 0.f), Vec4f());
    s->addParticle(Vec4f(0.f, std::numeric_limits<float>::infinity(), 0.f, 0.f), Vec4f());
    testing::internal::CaptureStdout();
    runFrames(*s, 1, 4);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(s->particleCount(), 27u);
    EXPECT_NE(out.find("dropped 2 particles"), std::string::npos) << out;
    for (const Vec4f& p : s->body->points->P) EXPECT_TRUE(std::isfinite(p.x + p.y + p.z));
}

TEST_F(SphTest, NonFiniteCacheParticlesAreSkippedOnImport)
{
    const fs::path path = fs::temp_directory_path() / ("qorva_sph_" + std::to_string(getpid()) + ".bin");
    auto body = std::make_shared<Body>();
    body->points->addAttrib("v", ATTRIB_VELOCITY);
    body->points->addAttrib("id", ATTRIB_INT);
    body->points->addPoint(Vec4f(0.f, 1.f, 0.f, 0.f));
    body->points->addPoint(Vec4f(std::numeric_limits<float>::quiet_NaN(), 1.f, 0.f, 0.f));
    body->points->addPoint(Vec4f(1.f, 1.f, 0.f, 0.f));
    ASSERT_EQ(fileio::writeBin(path.string(), *body), 0);

    SimpleSPHParticleSystem* s = makeSystem(20.f);
    simState->paused = true;
    testing::internal::CaptureStdout();
    const int result = readInitialState(*s, path.string());
    const std::string out = testing::internal::GetCapturedStdout();
    fs::remove(path);
    EXPECT_EQ(result, 0);
    EXPECT_NE(out.find("SPH: importing " + path.string()), std::string::npos) << out;
    EXPECT_NE(out.find("skipped 1 particles"), std::string::npos) << out;
    EXPECT_EQ(s->particleCount(), 2u);
    runFrames(*s, 1, 2);
    EXPECT_EQ(s->particleCount(), 2u);

    testing::internal::CaptureStdout();
    EXPECT_LT(readInitialState(*s, (fs::temp_directory_path() / "qorva_no_such.bin").string()), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(s->particleCount(), 2u) << "a file that can't be opened leaves the system as it was";
}

TEST_F(SphTest, ZeroResolutionIsClampedWithAMessage)
{
    SimpleSPHParticleSystem* s = makeSystem(20.f);
    fillBlock(*s, Vec4f(0.f, 0.5f, 0.f, 0.f), 3, 3, 3, 0.05f);
    s->resolution = 0.f;
    testing::internal::CaptureStdout();
    runFrames(*s, 1, 4);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("resolution 0 is not usable"), std::string::npos) << out;
    EXPECT_TRUE(std::isfinite(s->particleSpacing));
    EXPECT_TRUE(std::isfinite(s->kernelRadius));
    EXPECT_EQ(s->particleCount(), 27u);
    for (const Vec4f& p : s->body->points->P) EXPECT_TRUE(std::isfinite(p.x + p.y + p.z));
}

TEST_F(SphTest, SceneFileKeepsRowsAndLinksAndFindsTheSystemByName)
{
    const fs::path path =
        fs::temp_directory_path() / ("qorva_sph_scene_" + std::to_string(getpid()) + ".qrv");
    SimpleSPHParticleSystem* s = makeSystem(20.f);
    s->params.get("resolution")->text = "14";
    s->params.get("viscosity")->text = "0.3";
    s->params.get("collisionJitter")->text = "0.25";
    s->params.get("exportFormat")->text = "bin";
    s->params.get("useCuda")->text = "true";
    CollisionObject* c = simulation->createCollider("walls");
    s->connectCollider(c);
    std::vector<std::pair<std::string, std::string>> rows;
    for (const Parameter& p : s->params.parameters) rows.emplace_back(p.key, p.text);
    testing::internal::CaptureStdout();
    ASSERT_TRUE(simulation->saveScene(path.string()));
    ASSERT_EQ(simulation->loadScene(path.string()), 0);
    testing::internal::GetCapturedStdout();
    fs::remove(path);

    ASSERT_EQ(simulation->sphSystems.size(), 1u);
    SimpleSPHParticleSystem* back = simulation->sphSystems.front();
    for (const auto& [key, text] : rows) {
        const Parameter* p = back->params.get(key);
        ASSERT_NE(p, nullptr) << key;
        EXPECT_EQ(p->text, text) << key;
    }
    EXPECT_FLOAT_EQ(back->resolution, 14.f);
    EXPECT_FLOAT_EQ(back->particleSpacing, 1.f / 14.f);
    int type = -1;
    EXPECT_EQ(simulation->findByName("fluid", &type), back);
    EXPECT_EQ(type, int(kTypeSphSystem));
    ASSERT_EQ(back->colliderIds.size(), 1u);
    EXPECT_EQ(simulation->objectById(back->colliderIds[0])->name, "walls");
    ASSERT_NE(simulation->systemSnapshot("fluid"), nullptr);
}

TEST_F(SphTest, SnapshotLeavesOutTheWorkingChannels)
{
    SimpleSPHParticleSystem* s = makeSystem(20.f);
    s->addParticle(Vec4f(0.f, 1.f, 0.f, 0.f), Vec4f());
    const BodyPtr snap = simulation->systemSnapshot("fluid");
    ASSERT_NE(snap, nullptr);
    EXPECT_EQ(snap->points->size(), 1u);
    for (const char* gone : {"force", "deleted", "neighbs"})
        EXPECT_FALSE(snap->points->hasAttrib(gone)) << gone;
    for (const char* kept : {"v", "id", "density", "pressure", "Cd"})
        EXPECT_TRUE(snap->points->hasAttrib(kept)) << kept;
}

TEST_F(SphTest, DamBreakSceneEmitsItsColumnInsideTheTank)
{
    testing::internal::CaptureStdout();
    ASSERT_EQ(simulation->loadScene(std::string(QORVA_SOURCE_DIR) + "/scenes/sph_dambreak.qrv"), 0);
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(simulation->sphSystems.size(), 1u);
    SimpleSPHParticleSystem& s = *simulation->sphSystems.front();
    EXPECT_EQ(s.exportFormat, "bin");
    ASSERT_EQ(s.sourceIds.size(), 1u);
    ASSERT_EQ(s.colliderIds.size(), 1u);
    simState->collideGround = true;
    testing::internal::CaptureStdout();
    for (int k = 0; k < 3 * 8; ++k) {
        setClock(k, 8);
        simulation->evaluateParameters(simState->frameF, simState->substep);
        simulation->updateClassicObjects(simState->frameF);
        simulation->stepSystems();
        simulation->rememberParticleCounts();
    }
    testing::internal::GetCapturedStdout();
    EXPECT_GT(s.particleCount(), 1000u);
    EXPECT_LT(s.particleCount(), 10000u);
    Vec4f lo, hi;
    s.boundingBox(lo, hi);
    EXPECT_GT(lo.x, -0.8f);
    EXPECT_LT(hi.x, 0.8f);
    EXPECT_GT(lo.z, -0.25f);
    EXPECT_LT(hi.z, 0.25f);
    EXPECT_GT(lo.y, 0.f);
}

// --- The node forms

class SphNodeTest : public NodeTestBase {};

// A tight cube of n^3 points, `spacing` apart, from `lo`.
BodyPtr cluster(int n, float spacing, const Vec4f& lo)
{
    auto body = std::make_shared<Body>();
    for (int z = 0; z < n; ++z)
        for (int y = 0; y < n; ++y)
            for (int x = 0; x < n; ++x)
                body->points->addPoint(lo + Vec4f(float(x), float(y), float(z), 0.f) * spacing);
    return body;
}

float extentX(const Body& b)
{
    float lo = 1e30f, hi = -1e30f;
    for (const Vec4f& p : b.points->P) {
        lo = std::min(lo, p.x);
        hi = std::max(hi, p.x);
    }
    return hi - lo;
}

TEST_F(SphNodeTest, SolverPushesOverlappingParticlesApart)
{
    auto* solver = make<SPHSolverNode>("sph-solver");
    ASSERT_NE(solver, nullptr);
    BodyPtr body = cluster(3, 0.01f, Vec4f(0.f, 1.f, 0.f, 0.f));
    const float before = extentX(*body);
    solver->solve(*body, 1.f / 24.f);
    EXPECT_GT(extentX(*body), before * 1.5f);
    EXPECT_TRUE(body->points->hasAttrib("v"));
    EXPECT_GT(solver->maxSpeed, 0.f);
    for (const Vec4f& v : body->points->v) EXPECT_LE(v.length3(), solver->clampSpeed + 1e-3f);
    // The derived rows follow the resolution.
    EXPECT_FLOAT_EQ(solver->radius, 0.1f);
    EXPECT_FLOAT_EQ(solver->mass, 0.125f);
}

TEST_F(SphNodeTest, SolverLeavesALooseBodyAtRestAndKeepsItAboveTheGround)
{
    auto* solver = make<SPHSolverNode>("sph-solver");
    ASSERT_NE(solver, nullptr);
    BodyPtr body = cluster(2, 0.5f, Vec4f(0.f, 0.02f, 0.f, 0.f));
    solver->solve(*body, 1.f / 24.f);
    for (const Vec4f& p : body->points->P) EXPECT_GE(p.y, 0.02f - 1e-6f);
    EXPECT_NEAR(body->points->P[0].x, 0.f, 1e-6f);
    EXPECT_NEAR(body->points->P[0].y, solver->radius, 1e-6f) << "below h: lifted onto the ground plane";
    body->points->P[1].x = std::numeric_limits<float>::quiet_NaN();
    testing::internal::CaptureStdout();
    solver->solve(*body, 1.f / 24.f);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(body->points->size(), 7u);
    EXPECT_NE(out.find("dropped 1 points"), std::string::npos) << out;
}

TEST_F(SphNodeTest, OriginHoldsItsBodyAdvancesItAndResetDropsIt)
{
    EXPECT_TRUE(NodeMaster::isKnownKey("sph-origin"));
    EXPECT_TRUE(NodeMaster::isKnownKey("sph-solver"));
    BodyPtr seed = cluster(2, 0.5f, Vec4f(0.f, 1.f, 0.f, 0.f));
    auto* origin = makeWith<SPHOriginNode>("sph-origin", {seed});
    ASSERT_NE(origin, nullptr);
    auto* solver = make<SPHSolverNode>("sph-solver");
    wire(origin, solver);
    set(solver, "collideGroundPlane", "false");
    const bool run = nodeMaster->runFlag;
    nodeMaster->runFlag = true;

    BodyPtr first = pull(solver, 1.f);
    ASSERT_NE(first, nullptr);
    EXPECT_TRUE(first->isDynamic);
    EXPECT_EQ(first->points->size(), 8u);
    EXPECT_TRUE(first->points->hasAttrib("age"));
    ASSERT_EQ(origin->storedBody, first) << "one running Body, held by the origin";
    first->points->v[0] = Vec4f(2.f, 0.f, 0.f, 0.f);
    const Vec4f p0 = first->points->P[0];

    BodyPtr again = pull(solver, 1.f);
    EXPECT_EQ(again->points->P[0], p0) << "the same time is not advanced twice";
    BodyPtr second = pull(solver, 2.f);
    ASSERT_EQ(second, first);
    EXPECT_GT(second->points->P[0].x, p0.x + 0.05f);
    EXPECT_GT((*second->points->attribAs<FloatArray>("age"))[0], 0.f);

    origin->reset();
    EXPECT_EQ(origin->storedBody, nullptr);
    nodeMaster->runFlag = run;
}

} // namespace
