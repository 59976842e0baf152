// What a force does to the particles of a granular system: uniform forces push along their
// rotated axis, radial ones away from (or toward) their centre, box and sphere masks leave
// the outside alone, the sphere's falloff, wind mode on the relative velocity, clump
// attenuation, noise, and bad input that must neither crash nor poison the particles.
#include "testenv.h"

#include "io/object.h"
#include "particles/force.h"
#include "particles/granularparticlesystem.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <memory>

namespace {

constexpr float kTolerance = 1e-5f;

class ForceFieldTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        simState->numThreads = 2;
        simState->frameF = 0.f;
        simState->dt = 1.f / (8.f * 24.f);
        system = simulation->createGranularSystem("forcegranular");
        system->reset();
        system->forceIds.clear();
    }

    // A new force, registered and connected to the system.
    Force& addForce(int direction = Force::kUniform)
    {
        const int id = simulation->registerObject(std::make_unique<Force>(direction), "force1");
        system->connectById(id);
        return *static_cast<Force*>(simulation->objectById(id));
    }

    int addParticle(const Vec4f& p, const Vec4f& v = Vec4f()) { return system->addParticle(p, v); }

    // The connected forces alone, on a zeroed force channel.
    void applyForces()
    {
        for (Vec4f& f : *system->ch.force) f = Vec4f();
        system->applyForces();
    }

    Vec4f force(int i) const { return (*system->ch.force)[size_t(i)]; }
    Vec4f velocity(int i) const { return (*system->ch.v)[size_t(i)]; }

    static void expectNear(const Vec4f& a, const Vec4f& b, float tolerance = kTolerance)
    {
        EXPECT_NEAR(a.x, b.x, tolerance);
        EXPECT_NEAR(a.y, b.y, tolerance);
        EXPECT_NEAR(a.z, b.z, tolerance);
    }

    GranularParticleSystem* system = nullptr;
};

TEST_F(ForceFieldTest, UniformForcePushesAlongItsAxisAfterRotation)
{
    Force& f = addForce();
    f.maskType = ForceField::kUnbound;
    f.directionX = 1.f;
    f.directionY = 0.f;
    f.strength = 2.f;
    const int a = addParticle(Vec4f(0.f, 1.f, 0.f));
    const int b = addParticle(Vec4f(50.f, -3.f, 7.f));
    applyForces();
    expectNear(force(a), Vec4f(2.f, 0.f, 0.f));
    expectNear(force(b), Vec4f(2.f, 0.f, 0.f));

    // A quarter turn about z takes +x to +y.
    f.rotateZ = 90.f;
    applyForces();
    expectNear(force(a), Vec4f(0.f, 2.f, 0.f));
}

TEST_F(ForceFieldTest, UniformDirectionIsNotNormalised)
{
    Force& f = addForce();
    f.maskType = ForceField::kUnbound;
    f.directionX = 0.f;
    f.directionY = -3.f;
    f.strength = 0.5f;
    const int a = addParticle(Vec4f(0.f, 1.f, 0.f));
    applyForces();
    expectNear(force(a), Vec4f(0.f, -1.5f, 0.f));
}

TEST_F(ForceFieldTest, RadialForcePushesAwayFromItsCentre)
{
    Force& f = addForce(Force::kRadial);
    f.translateX = 1.f;
    f.translateY = 2.f;
    f.scaleX = f.scaleY = f.scaleZ = 4.f; // a sphere of radius 2
    f.strength = 1.f;
    const int right = addParticle(Vec4f(2.f, 2.f, 0.f));  // 1 from the centre along +x
    const int below = addParticle(Vec4f(1.f, 1.5f, 0.f)); // 0.5 along -y
    applyForces();
    // Weight 2|l| with l = offset / 4: 0.5 at distance 1, 0.25 at distance 0.5.
    expectNear(force(right), Vec4f(0.5f, 0.f, 0.f));
    expectNear(force(below), Vec4f(0.f, -0.25f, 0.f));
}

TEST_F(ForceFieldTest, NegativeRadialStrengthPullsTowardTheCentre)
{
    Force& f = addForce(Force::kRadial);
    f.scaleX = f.scaleY = f.scaleZ = 2.f;
    f.strength = -1.f;
    const int a = addParticle(Vec4f(0.f, 0.f, 0.5f));
    applyForces();
    expectNear(force(a), Vec4f(0.f, 0.f, -0.5f));
}

TEST_F(ForceFieldTest, ParticleAtTheRadialCentreReceivesNothing)
{
    Force& f = addForce(Force::kRadial);
    f.translateX = 3.f;
    f.strength = 10.f;
    const int a = addParticle(Vec4f(3.f, 0.f, 0.f));
    applyForces();
    EXPECT_EQ(force(a), Vec4f());
}

TEST_F(ForceFieldTest, RadialForceTurnsItsMaskIntoASphereForGood)
{
    Force& f = addForce(Force::kRadial);
    ASSERT_EQ(f.maskType, ForceField::kBox);
    f.strength = 1.f;
    addParticle(Vec4f(0.1f, 0.f, 0.f));
    applyForces();
    EXPECT_EQ(f.maskType, ForceField::kSphere);
    // The row says so too, so the next evaluation keeps it.
    f.evaluateParameters(1.f, 0);
    EXPECT_EQ(f.maskType, ForceField::kSphere);
    // A box corner inside the unit cube but outside the sphere gets nothing.
    const int corner = addParticle(Vec4f(0.45f, 0.45f, 0.f));
    applyForces();
    EXPECT_EQ(force(corner), Vec4f());
}

TEST_F(ForceFieldTest, BoxMaskLeavesParticlesOutsideAlone)
{
    Force& f = addForce();
    f.maskType = ForceField::kBox;
    f.scaleX = 2.f; // x from -1 to 1; y and z from -0.5 to 0.5
    f.translateY = 1.f;
    const int inside = addParticle(Vec4f(0.99f, 1.4f, -0.4f));
    const int outsideX = addParticle(Vec4f(1.01f, 1.f, 0.f));
    const int outsideY = addParticle(Vec4f(0.f, 0.45f, 0.f));
    applyForces();
    expectNear(force(inside), Vec4f(0.f, -0.1f, 0.f)); // the default force: 0.1 down
    EXPECT_EQ(force(outsideX), Vec4f());
    EXPECT_EQ(force(outsideY), Vec4f());
}

TEST_F(ForceFieldTest, RotatedBoxMaskFollowsItsRotation)
{
    Force& f = addForce();
    f.scaleX = 4.f;   // long along its local x
    f.rotateY = 90.f; // which now lies along world z
    const int alongZ = addParticle(Vec4f(0.f, 0.f, 1.5f));
    const int alongX = addParticle(Vec4f(1.5f, 0.f, 0.f));
    applyForces();
    EXPECT_NE(force(alongZ), Vec4f());
    EXPECT_EQ(force(alongX), Vec4f());
}

TEST_F(ForceFieldTest, ParentTransformMovesTheFieldWithTheGeometry)
{
    // A geometry object whose only mesh part stands 10 along x, turned a quarter about z.
    auto object = std::make_unique<Object>();
    auto part = std::make_shared<ObjectMesh>();
    const double pose[16] = {0, 1, 0, 0, -1, 0, 0, 0, 0, 0, 1, 0, 10, 0, 0, 1};
    std::copy(pose, pose + 16, part->xform[0]);
    object->meshes.push_back(part);
    const int objectId = simulation->registerObject(std::move(object), "forceparent");

    Force& f = addForce();
    f.directionX = 1.f;
    f.directionY = 0.f;
    f.strength = 1.f;
    f.geometryIds = {objectId};
    const int atOrigin = addParticle(Vec4f(0.f, 0.f, 0.f));
    const int atPart = addParticle(Vec4f(10.f, 0.2f, 0.f));
    applyForces();
    EXPECT_NE(force(atOrigin), Vec4f()) << "unparented, the box stays at the origin";
    EXPECT_EQ(force(atPart), Vec4f());

    f.parentTransform = true;
    applyForces();
    EXPECT_EQ(force(atOrigin), Vec4f());
    expectNear(force(atPart), Vec4f(0.f, 1.f, 0.f)); // +x turned to +y with the part
}

TEST_F(ForceFieldTest, SphereMaskLeavesParticlesOutsideAlone)
{
    Force& f = addForce();
    f.maskType = ForceField::kSphere;
    f.scaleX = f.scaleY = f.scaleZ = 2.f; // radius 1
    const int inside = addParticle(Vec4f(0.f, 0.f, 0.99f));
    const int outside = addParticle(Vec4f(0.6f, 0.6f, 0.6f)); // inside the box, outside the sphere
    applyForces();
    EXPECT_NE(force(inside), Vec4f());
    EXPECT_EQ(force(outside), Vec4f());
}

TEST_F(ForceFieldTest, SphereFalloffRisesFromCentreToSurface)
{
    Force& f = addForce();
    f.maskType = ForceField::kSphere;
    f.scaleX = f.scaleY = f.scaleZ = 2.f;
    f.strength = 1.f;
    const int centre = addParticle(Vec4f(0.f, 0.f, 0.f));
    const int quarter = addParticle(Vec4f(0.25f, 0.f, 0.f));
    const int half = addParticle(Vec4f(0.f, 0.5f, 0.f));
    const int surface = addParticle(Vec4f(0.f, 0.f, -1.f));
    applyForces();
    EXPECT_EQ(force(centre), Vec4f());
    expectNear(force(quarter), Vec4f(0.f, -0.25f, 0.f));
    expectNear(force(half), Vec4f(0.f, -0.5f, 0.f));
    expectNear(force(surface), Vec4f(0.f, -1.f, 0.f));
}

TEST_F(ForceFieldTest, WindDragsVelocityTowardTheWindAndNoFurther)
{
    Force& f = addForce();
    f.maskType = ForceField::kUnbound;
    f.isWind = true;
    f.directionX = 1.f;
    f.directionY = 0.f;
    f.windSpeed = 2.f;
    f.strength = 100.f; // not read in wind mode
    f.windSpeedBlend = 0.5f;
    const int still = addParticle(Vec4f(), Vec4f());
    const int withWind = addParticle(Vec4f(1.f, 0.f, 0.f), Vec4f(2.f, 0.f, 0.f));
    const int faster = addParticle(Vec4f(2.f, 0.f, 0.f), Vec4f(4.f, 1.f, 0.f));
    applyForces();
    expectNear(velocity(still), Vec4f(1.f, 0.f, 0.f));
    expectNear(velocity(withWind), Vec4f(2.f, 0.f, 0.f)); // no relative velocity, no change
    expectNear(velocity(faster), Vec4f(3.f, 0.5f, 0.f));  // slowed down to the wind
    for (int i : {still, withWind, faster}) EXPECT_EQ(force(i), Vec4f()) << "wind added a force";
}

TEST_F(ForceFieldTest, WindBlendOfOneSetsTheWindVelocityAtOnce)
{
    Force& f = addForce();
    f.maskType = ForceField::kUnbound;
    f.isWind = true;
    f.directionX = 0.f;
    f.directionY = 0.f;
    f.directionZ = 1.f;
    f.windSpeed = 3.f;
    f.windSpeedBlend = 1.f;
    const int a = addParticle(Vec4f(), Vec4f(-5.f, 2.f, 1.f));
    applyForces();
    expectNear(velocity(a), Vec4f(0.f, 0.f, 3.f));
}

TEST_F(ForceFieldTest, ClumpAttenuationFadesForceOverTheLinkCount)
{
    Force& f = addForce();
    f.maskType = ForceField::kUnbound;
    f.strength = 1.f;
    f.smallestClumps = 3.f;
    f.largestClumps = 5.f;
    for (int n = 0; n <= 6; ++n) {
        const int i = addParticle(Vec4f(float(n), 0.f, 0.f));
        (*system->ch.constrIndices)[size_t(i)].assign(size_t(n), 0);
    }
    applyForces();
    const float expected[] = {1.f, 1.f, 1.f, 1.f, 0.5f, 0.f, 0.f};
    for (int n = 0; n <= 6; ++n) EXPECT_NEAR(force(n).y, -expected[n], kTolerance) << n << " links";
}

TEST_F(ForceFieldTest, ClumpAttenuationWithEqualLimitsIsAStepWithoutNaN)
{
    Force& f = addForce();
    f.maskType = ForceField::kUnbound;
    f.strength = 1.f;
    f.smallestClumps = f.largestClumps = 4.f;
    for (int n : {3, 4, 5}) {
        const int i = addParticle(Vec4f(float(n), 0.f, 0.f));
        (*system->ch.constrIndices)[size_t(i)].assign(size_t(n), 0);
    }
    applyForces();
    EXPECT_NEAR(force(0).y, -1.f, kTolerance);
    EXPECT_EQ(force(1).y, 0.f);
    EXPECT_EQ(force(2).y, 0.f);
}

TEST_F(ForceFieldTest, ClumpAttenuationAlsoWeakensWind)
{
    Force& f = addForce();
    f.maskType = ForceField::kUnbound;
    f.isWind = true;
    f.directionX = 1.f;
    f.directionY = 0.f;
    f.windSpeed = 1.f;
    f.windSpeedBlend = 1.f;
    const int loose = addParticle(Vec4f());
    const int clumped = addParticle(Vec4f(1.f, 0.f, 0.f));
    (*system->ch.constrIndices)[size_t(clumped)].assign(8, 0);
    applyForces();
    expectNear(velocity(loose), Vec4f(1.f, 0.f, 0.f));
    EXPECT_EQ(velocity(clumped), Vec4f());
}

TEST_F(ForceFieldTest, NoiseVariesTheForceOverSpaceAndTime)
{
    Force& f = addForce();
    f.maskType = ForceField::kUnbound;
    f.strength = 0.f;
    f.noiseAmp = 1.f;
    for (int n = 0; n < 20; ++n) addParticle(Vec4f(0.37f * float(n), 0.11f * float(n), 0.23f));
    applyForces();
    const VecArray first = *system->ch.force;
    int differing = 0;
    for (size_t i = 1; i < first.size(); ++i) differing += first[i] != first[0];
    EXPECT_GT(differing, 15) << "the noise doesn't vary over space";
    for (const Vec4f& v : first) {
        EXPECT_LE(std::fabs(v.x), 1.f);
        EXPECT_LE(std::fabs(v.y), 1.f);
        EXPECT_LE(std::fabs(v.z), 1.f);
    }
    // The same frame gives the same noise; a later frame moves it along y.
    applyForces();
    EXPECT_EQ(*system->ch.force, first);
    simState->frameF = 50.f;
    applyForces();
    EXPECT_NE(*system->ch.force, first);
}

TEST_F(ForceFieldTest, NoiseAtOrBelowTheThresholdIsLeftOut)
{
    Force& f = addForce();
    f.maskType = ForceField::kUnbound;
    f.strength = 1.f;
    f.noiseAmp = 0.000001f;
    const int a = addParticle(Vec4f(0.3f, 0.7f, 0.1f));
    applyForces();
    EXPECT_EQ(force(a), Vec4f(0.f, -1.f, 0.f, 0.f));
}

TEST_F(ForceFieldTest, DisabledForceDoesNothing)
{
    Force& f = addForce();
    f.maskType = ForceField::kUnbound;
    f.enabled = false;
    const int a = addParticle(Vec4f(), Vec4f(1.f, 0.f, 0.f));
    applyForces();
    EXPECT_EQ(force(a), Vec4f());
}

TEST_F(ForceFieldTest, IdsThatDontResolveToAForceAreSkipped)
{
    Force& f = addForce();
    f.maskType = ForceField::kUnbound;
    system->forceIds.push_back(99999);
    system->forceIds.push_back(-4);
    system->forceIds.push_back(system->id); // the system itself: not a force
    const int a = addParticle(Vec4f());
    applyForces();
    expectNear(force(a), Vec4f(0.f, -0.1f, 0.f));
}

TEST_F(ForceFieldTest, DeletedParticlesGetNothing)
{
    Force& f = addForce();
    f.maskType = ForceField::kUnbound;
    const int a = addParticle(Vec4f());
    system->ch.deleted->set(size_t(a), true);
    applyForces();
    EXPECT_EQ(force(a), Vec4f());
}

TEST_F(ForceFieldTest, ForcesAddUpAfterGravityInTheStep)
{
    Force& f = addForce();
    f.maskType = ForceField::kUnbound;
    f.directionX = 1.f;
    f.directionY = 0.f;
    f.strength = 0.3f;
    Force& g = addForce();
    g.maskType = ForceField::kUnbound;
    g.strength = 0.2f;
    const int a = addParticle(Vec4f(0.f, 5.f, 0.f));
    system->step();
    const float weight = system->particleMass * system->gravityVector.y;
    expectNear(force(a), Vec4f(0.3f, weight - 0.2f, 0.f));
}

TEST_F(ForceFieldTest, NonFiniteParametersSkipTheForceInsteadOfPoisoningParticles)
{
    const float nan = std::numeric_limits<float>::quiet_NaN();
    const float inf = std::numeric_limits<float>::infinity();
    Force& f = addForce();
    f.maskType = ForceField::kUnbound;
    const int a = addParticle(Vec4f(0.1f, 0.2f, 0.3f), Vec4f(1.f, 0.f, 0.f));
    struct Bad {
        float* field;
        float value;
    };
    // (A NaN noise amplitude fails the "above 0.000001" test and just turns the noise off.)
    const Bad cases[] = {{&f.strength, nan}, {&f.strength, inf}, {&f.directionX, nan}, {&f.rotateY, nan},
                         {&f.rotateY, inf},  {&f.noiseAmp, inf}, {&f.translateX, nan}, {&f.translateX, inf}};
    for (const Bad& bad : cases) {
        const float keep = *bad.field;
        *bad.field = bad.value;
        f.maskType = bad.field == &f.translateX ? ForceField::kBox : ForceField::kUnbound;
        applyForces();
        EXPECT_EQ(force(a), Vec4f());
        EXPECT_EQ(velocity(a), Vec4f(1.f, 0.f, 0.f));
        *bad.field = keep;
    }
    // Wind with a NaN blend likewise.
    f.maskType = ForceField::kUnbound;
    f.isWind = true;
    f.windSpeedBlend = nan;
    applyForces();
    EXPECT_EQ(velocity(a), Vec4f(1.f, 0.f, 0.f));
}

TEST_F(ForceFieldTest, DegenerateNoiseAndScaleNeitherCrashNorHang)
{
    Force& f = addForce();
    f.maskType = ForceField::kBox;
    f.noiseAmp = 1.f;
    f.noiseOctaves = 2000000000; // capped
    f.noiseFreq = 0.f;
    f.noiseRoughness = std::numeric_limits<float>::quiet_NaN();
    for (int n = 0; n < 8; ++n) addParticle(Vec4f(0.05f * float(n), 0.f, 0.f));
    applyForces();
    for (const Vec4f& v : *system->ch.force)
        EXPECT_TRUE(std::isfinite(v.x) && std::isfinite(v.y) && std::isfinite(v.z));

    // A box of zero size holds nothing.
    f.noiseAmp = 0.f;
    f.scaleX = 0.f;
    applyForces();
    for (const Vec4f& v : *system->ch.force) EXPECT_EQ(v, Vec4f());

    // A force without effect.
    f.scaleX = 1.f;
    f.strength = 0.f;
    applyForces();
    for (const Vec4f& v : *system->ch.force) EXPECT_EQ(v, Vec4f());
}

TEST_F(ForceFieldTest, EmptySystemIsFine)
{
    addForce();
    applyForces();
    system->step();
    EXPECT_EQ(system->particleCount(), 0u);
}

} // namespace
