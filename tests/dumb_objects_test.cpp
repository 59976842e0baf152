// The dumb system with connected objects: sources emitting into it (a layer every
// substep, as its free-space test always passes; spacing from its radius and emission
// density; uvs; the same particles from the same seed), particles landing on a box and
// sliding down the ramp of geo/ramp.obj without passing through, and sinks.
#include "collidefixtures.h"

#include "particles/dumbparticlesystem.h"
#include "particles/dumbtraits.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <string>
#include <vector>

using namespace fixtures;

namespace {

class DumbObjectsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        resetRunState();
        system = simulation->createDumbSystem("dumbObjects");
        system->gravityVector.y = -9.81f;
        system->mass = 1.f;
    }

    // A collider over a closed box lo..hi, connected to the system.
    CollisionObject* boxCollider(const Vec4f& lo, const Vec4f& hi, float voxelSize = 0.05f)
    {
        CollisionObject* c = addCollider(addObject(boxMesh(lo, hi), "dumbBox"), "dumbBoxCollider");
        c->voxelSize = voxelSize;
        system->connectCollider(c);
        return c;
    }

    // Runs `n` substeps from substep `first` at 8 per frame; `each` sees the system after
    // every substep.
    template <class F>
    void run(int first, int n, F each)
    {
        for (int k = first; k < first + n; ++k) {
            setClock(k, 8);
            for (SceneObject* o : simulation->objectsById) {
                if (o && o->typeCode == kTypeCollider) static_cast<CollisionObject*>(o)->updateMatrices();
                if (o && o->typeCode == kTypeSource) static_cast<Source*>(o)->updateMatrices();
            }
            system->step();
            each(k);
        }
    }
    void run(int first, int n)
    {
        run(first, n, [](int) {});
    }

    const BitArray& deleted() const { return *system->body->points->attribAs<BitArray>("deleted"); }

    DumbParticleSystem* system = nullptr;
};

TEST_F(DumbObjectsTest, PlaneSourceAddsALayerEverySubstepWithoutAFreeSpaceTest)
{
    Source* s = addSource(Source::kPlane, nullptr, "dumbPlane");
    s->translateY = 2.f;
    s->rateMultiplier = 100.f;  // the gate opens every substep
    ASSERT_TRUE(s->checkSpace);
    system->connectSource(s);
    run(0, 5, [&](int k) {
        // Layers 0.005 apart would fail any real free-space test at spacing 0.1.
        EXPECT_EQ(system->size(), size_t(100 * (k + 1))) << "substep " << k;
    });
    const PointData& pts = *system->body->points;
    ASSERT_EQ(pts.size(), 500u);
    const IntArray& ids = *pts.attribAs<IntArray>("id");
    const FloatArray& width = *pts.attribAs<FloatArray>("width");
    for (size_t i = 0; i < pts.size(); ++i) {
        EXPECT_EQ(ids[i], int32_t(i));
        EXPECT_FLOAT_EQ(width[i], system->radius);
        EXPECT_GE(pts.P[i].x, -0.5f);
        EXPECT_LT(pts.P[i].x, 0.5f);
    }
    EXPECT_EQ(system->particleCount, 499);
    EXPECT_FLOAT_EQ((*pts.attribAs<VecArray>("emissionPos"))[0].y, 2.f);
    EXPECT_NEAR(pts.P[1].z - pts.P[0].z, 0.1f, 1e-6);  // 2 x radius apart
    EXPECT_FALSE(pts.hasAttrib("uv"));
}

TEST_F(DumbObjectsTest, SpacingFollowsRadiusAndEmissionDensity)
{
    Source* a = addSource(Source::kPlane, nullptr, "densityPlane");
    system->emissionDensity = 2.f;
    EXPECT_EQ(emitParticles(*a, *system), 400);  // spacing 0.05 on a 1 x 1 plane
    Source* b = addSource(Source::kPlane, nullptr, "radiusPlane");
    system->emissionDensity = 1.f;
    system->radius = 0.1f;
    EXPECT_EQ(emitParticles(*b, *system), 25);  // spacing 0.2
    Source* c = addSource(Source::kPlane, nullptr, "finePlane");
    c->resolutionMultiplier = 2.f;
    EXPECT_EQ(emitParticles(*c, *system), 100);  // spacing 0.1 again
    EXPECT_FLOAT_EQ((*system->body->points->attribAs<FloatArray>("width")).back(), 0.1f);
}

TEST_F(DumbObjectsTest, TrackedUvsComeFromThePlane)
{
    system->trackUVs = true;
    Source* s = addSource(Source::kPlane, nullptr, "uvPlane");
    ASSERT_EQ(emitParticles(*s, *system), 100);
    const PointData& pts = *system->body->points;
    ASSERT_TRUE(pts.hasAttrib("uv"));
    const VecArray& uv = *pts.attribAs<VecArray>("uv");
    for (size_t i = 0; i < pts.size(); ++i) {
        EXPECT_NEAR(uv[i].x, pts.P[i].x + 0.5f, 1e-5);
        EXPECT_NEAR(uv[i].y, pts.P[i].z + 0.5f, 1e-5);
    }
}

TEST_F(DumbObjectsTest, SameSeedGivesTheSameParticles)
{
    auto once = [&]() {
        system->reset();
        system->sourceIds.clear();
        std::srand(1);
        Object* ball = addObject(sphereMesh(0.4f, 16, 32), "dumbSeedBall");
        Source* plane = addSource(Source::kPlane, nullptr, "dumbSeedPlane");
        Source* mesh = addSource(Source::kMesh, ball, "dumbSeedMesh");
        plane->jitter = mesh->jitter = 0.7f;
        plane->translateY = 3.f;
        plane->rotateX = 20.f;
        mesh->translateX = 2.f;
        system->connectSource(plane);
        system->connectSource(mesh);
        std::vector<size_t> counts;
        run(0, 40, [&](int) { counts.push_back(system->size()); });
        std::vector<float> out;
        for (const Vec4f& p : system->body->points->P) {
            out.push_back(p.x);
            out.push_back(p.y);
            out.push_back(p.z);
        }
        return std::make_pair(counts, out);
    };
    const auto a = once();
    const auto b = once();
    ASSERT_GT(a.second.size(), 300u);
    EXPECT_EQ(a.first, b.first);
    EXPECT_EQ(a.second, b.second);
}

TEST_F(DumbObjectsTest, FallingParticlesStopOnABoxAndMissItBeside)
{
    boxCollider(Vec4f(-2.f, -0.5f, -2.f), Vec4f(2.f, 0.5f, 2.f));
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j) system->addParticle(Vec4f(-1.f + float(i), 1.5f, -1.f + float(j)), Vec4f());
    system->addParticle(Vec4f(3.f, 1.5f, 0.f), Vec4f());  // beside the box
    const PointData& pts = *system->body->points;
    run(0, 192, [&](int k) {
        for (size_t i = 0; i < 9; ++i) ASSERT_GE(pts.P[i].y, 0.49f) << "particle " << i << " at substep " << k;
    });
    for (size_t i = 0; i < 9; ++i) {
        EXPECT_NEAR(pts.P[i].y, 0.5f, 0.01f) << "on the surface, not a radius above it";
        EXPECT_NEAR(pts.v[i].y, 0.f, 0.1f);
        EXPECT_FALSE(deleted().get(i));
    }
    EXPECT_LT(pts.P[9].y, -2.f) << "beside the box it falls on";
}

TEST_F(DumbObjectsTest, ParticlesSlideDownTheRampWithoutPassingThrough)
{
    Object* object = addObject(nullptr, "dumbRampObject");
    CollisionObject* ramp = addCollider(object, "dumbRamp");
    ramp->filePath = std::string(QORVA_SOURCE_DIR) + "/geo/ramp.obj";
    ramp->voxelSize = 0.05f;
    ramp->friction = 0.f;
    ramp->updateGeometry(0.f);
    ASSERT_EQ(object->meshes.size(), 1u);
    system->connectCollider(ramp);

    // The top face: through (0, 1, 0), normal (sin 15, cos 15, 0).
    const float sn = std::sin(15.f * 3.14159265f / 180.f), cs = std::cos(15.f * 3.14159265f / 180.f);
    auto above = [&](const Vec4f& p) { return p.x * sn + (p.y - 1.f) * cs; };
    const std::vector<float> starts{-1.f, -0.5f, 0.f, 0.5f};
    for (float x : starts) system->addParticle(Vec4f(x, 2.5f, 0.f), Vec4f());
    const PointData& pts = *system->body->points;
    run(0, 144, [&](int k) {
        for (size_t i = 0; i < starts.size(); ++i)
            ASSERT_GE(above(pts.P[i]), -0.02f) << "particle " << i << " at substep " << k;
    });
    for (size_t i = 0; i < starts.size(); ++i) {
        EXPECT_NEAR(above(pts.P[i]), 0.f, 0.02f) << "resting on the top face";
        EXPECT_GT(pts.P[i].x, starts[i] + 0.1f) << "slid downhill";
        EXPECT_LT(pts.P[i].x, 1.9f);
    }
}

TEST_F(DumbObjectsTest, SourceAboveAFloorFillsItThroughTheStep)
{
    boxCollider(Vec4f(-2.f, -0.5f, -2.f), Vec4f(2.f, 0.5f, 2.f));
    Source* source = addSource(Source::kPlane, nullptr, "dumbDropper");
    source->translateY = 1.5f;
    source->singleShotFrame = 0.f;
    system->connectSource(source);
    run(0, 24 * 8);
    ASSERT_EQ(system->size(), 100u);
    for (const Vec4f& p : system->body->points->P) EXPECT_NEAR(p.y, 0.5f, 0.01f);
}

TEST_F(DumbObjectsTest, SinkRemovesExactlyTheParticlesInsideIt)
{
    CollisionObject* sink = boxCollider(Vec4f(-0.5f, 0.f, -0.5f), Vec4f(0.5f, 1.1f, 0.5f));
    sink->deleteParticles = true;
    sink->collide = false;
    system->gravityVector.y = 0.f;
    for (int i = 0; i < 20; ++i)
        for (int j = 0; j < 10; ++j)
            system->addParticle(Vec4f(-1.f + 0.1f * float(i) + 0.05f, 0.15f + 0.1f * float(j), 0.f), Vec4f());
    run(0, 2);
    const PointData& pts = *system->body->points;
    ASSERT_EQ(pts.size(), 100u) << "the particles inside the sink leave within the substep";
    for (size_t i = 0; i < pts.size(); ++i) {
        EXPECT_GE(std::fabs(pts.P[i].x), 0.5f) << "particle " << i << " survived inside the sink";
        EXPECT_FALSE(deleted().get(i));
    }
}

TEST_F(DumbObjectsTest, ViewLeavesOutTheChannelsTheSystemLacks)
{
    system->addParticle(Vec4f(), Vec4f());
    CollideView view = CollideTraits<DumbParticleSystem>::view(*system);
    EXPECT_EQ(view.count, 1u);
    EXPECT_NE(view.P, nullptr);
    EXPECT_NE(view.v, nullptr);
    EXPECT_NE(view.force, nullptr);
    EXPECT_NE(view.deleted, nullptr);
    EXPECT_NE(view.stick, nullptr);
    EXPECT_EQ(view.posPrev, nullptr);
    EXPECT_EQ(view.sleeping, nullptr);
    EXPECT_EQ(view.restingTime, nullptr);
    EXPECT_FLOAT_EQ(view.radius, system->radius);
    EXPECT_FLOAT_EQ(view.mass, system->mass);
    EXPECT_FLOAT_EQ(view.gravityY, -9.81f);
}

} // namespace
