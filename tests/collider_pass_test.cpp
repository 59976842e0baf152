// The collide pass on a granular system: no tunnelling at the CFL-limited speed, friction
// and static grip on slopes, sinks (delete inside), the push-out edge at one radius,
// wake-up, the stick weight map, stick and transform stick, moving colliders, inverted
// colliders, and the messages for dead ids and missing geometry.
#include "collidefixtures.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

using namespace fixtures;

namespace {

class ColliderPassTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        resetRunState();
        system = simulation->createGranularSystem("granularColl");
        system->maxConstraintLength = 0.f;
        system->freezeThreshold = 0.f;
        system->updateDerivedFields();
    }

    // A collider over a closed box lo..hi.
    CollisionObject* boxCollider(const Vec4f& lo, const Vec4f& hi, float voxelSize = 0.05f)
    {
        CollisionObject* c = addCollider(addObject(boxMesh(lo, hi), "box"), "boxCollider");
        c->voxelSize = voxelSize;
        system->connectCollider(c);
        return c;
    }

    // Runs `n` substeps from substep `first` at `substeps` per frame.
    void run(int first, int n, int substeps = 8)
    {
        for (int k = first; k < first + n; ++k) {
            setClock(k, substeps);
            for (SceneObject* o : simulation->objectsById)
                if (o && o->typeCode == kTypeCollider) static_cast<CollisionObject*>(o)->updateMatrices();
            substep(*system);
        }
    }

    GranularParticleSystem* system = nullptr;
};

TEST_F(ColliderPassTest, StreamAtTheCflSpeedDoesNotTunnelThroughATwoVoxelWall)
{
    // A wall 0.1 thick (two voxels of 0.05) across x = 1; a 6 x 6 stream heads for it
    // at a speed whose substep travel is the CFL limit (0.5 of a particle spacing).
    boxCollider(Vec4f(1.f, -1.f, -1.f), Vec4f(1.1f, 2.f, 1.f));
    system->gravityVector.y = 0.f;
    const float speed = 20.f;
    const int substeps = int(std::ceil(speed / (0.5f * system->particleSpacing) / 24.f));
    for (int a = 0; a < 6; ++a)
        for (int b = 0; b < 6; ++b)
            for (int k = 0; k < 4; ++k)
                system->addParticle(Vec4f(0.6f - 0.3f * float(k), 0.2f + 0.15f * float(a), -0.4f + 0.15f * float(b)),
                                    Vec4f(speed, 0.f, 0.f));
    run(0, 3 * substeps, substeps);
    ASSERT_EQ(system->particleCount(), 144u);
    for (const Vec4f& p : system->body->points->P) {
        EXPECT_LE(p.x, 1.f - 0.9f * system->particleRadius);
        EXPECT_GE(p.x, 0.f);
    }
}

// Distance slid along a slope of `degrees` in one second by a particle resting on it.
float slide(GranularParticleSystem& g, CollisionObject& ramp, float degrees, float friction, float grip)
{
    ramp.friction = friction;
    ramp.staticGrip = grip;
    ramp.rotateZ = degrees;
    g.reset();
    g.maxConstraintLength = 0.f;
    g.freezeThreshold = 0.f;
    const float a = degrees * 0.017453292f;
    // On the top face (y = 0 in the slab's space), one radius above it.
    const Vec4f start(-std::sin(a) * g.particleRadius, std::cos(a) * g.particleRadius, 0.f);
    g.addParticle(start, Vec4f());
    for (int k = 0; k < 24 * 8; ++k) {
        setClock(k, 8);
        ramp.updateMatrices();
        substep(g);
    }
    const Vec4f d = g.body->points->P[0] - start;
    return d.length3();
}

TEST_F(ColliderPassTest, FrictionSlowsSlidingMoreAsItRises)
{
    CollisionObject* ramp = boxCollider(Vec4f(-3.f, -0.4f, -1.f), Vec4f(3.f, 0.f, 1.f));
    const float none = slide(*system, *ramp, 20.f, 0.f, 0.f);
    const float some = slide(*system, *ramp, 20.f, 5.f, 0.f);
    const float lots = slide(*system, *ramp, 20.f, 18.f, 0.f);
    EXPECT_GT(none, 1.0f);  // free sliding: g sin(20) / 2 is about 1.7
    EXPECT_GT(none, some * 1.2f);
    EXPECT_GT(some, lots * 1.2f);
    EXPECT_LT(lots, 0.5f);
}

TEST_F(ColliderPassTest, StaticGripHoldsAParticleOnAGentleSlope)
{
    CollisionObject* ramp = boxCollider(Vec4f(-3.f, -0.4f, -1.f), Vec4f(3.f, 0.f, 1.f));
    const float held = slide(*system, *ramp, 10.f, 18.f, 6.f);
    const float sliding = slide(*system, *ramp, 10.f, 18.f, 0.f);
    EXPECT_LT(held, 0.01f);
    EXPECT_GT(sliding, 5.f * held);
    EXPECT_GT(sliding, 0.02f);
}

TEST_F(ColliderPassTest, SinkRemovesExactlyTheParticlesInsideIt)
{
    CollisionObject* sink = boxCollider(Vec4f(-0.5f, 0.f, -0.5f), Vec4f(0.5f, 1.1f, 0.5f));
    sink->deleteParticles = true;
    sink->collide = false;
    system->gravityVector.y = 0.f;
    int inside = 0;
    for (int i = 0; i < 20; ++i)
        for (int j = 0; j < 10; ++j) {
            const Vec4f p(-1.f + 0.1f * float(i) + 0.05f, 0.15f + 0.1f * float(j), 0.f);
            if (std::fabs(p.x) < 0.5f) ++inside;
            system->addParticle(p, Vec4f());
        }
    ASSERT_EQ(inside, 100);
    run(0, 2);
    EXPECT_EQ(system->particleCount(), 200u - 100u);
    for (const Vec4f& p : system->body->points->P) EXPECT_GT(std::fabs(p.x), 0.5f);
}

TEST_F(ColliderPassTest, ParticleExactlyOneRadiusAwayIsNeitherPushedNorSlowed)
{
    CollisionObject* floor = boxCollider(Vec4f(-2.f, -1.f, -2.f), Vec4f(2.f, 0.f, 2.f), 0.1f);
    floor->collide = true;
    system->addParticle(Vec4f(0.f, 0.2f, 0.f), Vec4f(1.f, 0.f, 0.f));
    setClock(0, 8);
    system->updateDerivedFields();
    system->ensureChannels();
    // At one radius (and a hair, as trilinear sampling of the plane is exact only to
    // rounding): not pushed, not rubbed.
    const float atRadius = system->particleRadius * 1.0005f;
    system->body->points->P[0] = Vec4f(0.f, atRadius, 0.f);
    (*system->ch.v)[0] = Vec4f(1.f, 0.f, 0.f);
    collidePass(*system);
    EXPECT_EQ(system->body->points->P[0].y, atRadius);
    EXPECT_EQ((*system->ch.v)[0].x, 1.f);
    // Half a radius closer: pushed back out to one radius and rubbed.
    system->body->points->P[0] = Vec4f(0.f, 0.5f * system->particleRadius, 0.f);
    collidePass(*system);
    EXPECT_NEAR(system->body->points->P[0].y, system->particleRadius, 2e-3);
    EXPECT_LT((*system->ch.v)[0].x, 1.f);
}

TEST_F(ColliderPassTest, CollidersWakeSleepersAndPaintTheStickMap)
{
    CollisionObject* c = boxCollider(Vec4f(-1.f, -1.f, -1.f), Vec4f(1.f, 0.f, 1.f));
    c->stickWeightMapMode = CollisionObject::kStickMapSetInside;
    c->stickWeightMapSetVal = 0.25f;
    system->gravityVector.y = 0.f;
    system->addParticle(Vec4f(0.f, 0.2f, 0.f), Vec4f());   // near: woken, not painted
    system->addParticle(Vec4f(0.f, 0.02f, 0.f), Vec4f());  // inside the radius: painted
    system->addParticle(Vec4f(0.f, 5.f, 0.f), Vec4f());    // far: untouched
    system->ensureChannels();
    for (size_t i = 0; i < 3; ++i) system->ch.sleeping->set(i, true);
    setClock(0, 8);
    collidePass(*system);
    EXPECT_FALSE(system->ch.sleeping->get(0));
    EXPECT_FALSE(system->ch.sleeping->get(1));
    EXPECT_TRUE(system->ch.sleeping->get(2));
    EXPECT_FLOAT_EQ((*system->ch.stick)[0], 1.f);
    EXPECT_FLOAT_EQ((*system->ch.stick)[1], 0.25f);
    EXPECT_FLOAT_EQ((*system->ch.stick)[2], 1.f);
}

TEST_F(ColliderPassTest, MovingColliderCarriesAStuckParticle)
{
    CollisionObject* c = boxCollider(Vec4f(-1.f, -1.f, -1.f), Vec4f(1.f, 0.f, 1.f));
    c->stickStrength = 1.f;
    c->stickDist = 0.2f;
    system->gravityVector.y = 0.f;
    system->addParticle(Vec4f(0.f, 0.1f, 0.f), Vec4f());
    // The box slides along x at 2 units a second.
    for (int k = 0; k < 16; ++k) {
        setClock(k, 8);
        c->translateX = 2.f * simState->time;
        c->updateMatrices();
        substep(*system);
    }
    EXPECT_NEAR((*system->ch.v)[0].x, 2.f, 0.05f);
    EXPECT_GT(system->body->points->P[0].x, 0.1f);
}

TEST_F(ColliderPassTest, TransformStickLocksParticlesToTheColliderAndNamesItsChannels)
{
    CollisionObject* c = boxCollider(Vec4f(-1.f, -1.f, -1.f), Vec4f(1.f, 0.f, 1.f));
    c->stickStrength = 1.f;
    c->xformStick = true;
    c->xformStickLockFrame = 0;
    system->gravityVector.y = 0.f;
    system->addParticle(Vec4f(0.3f, 0.1f, 0.2f), Vec4f());
    for (int k = 0; k < 24; ++k) {
        setClock(k, 8);
        c->translateY = 0.5f * simState->time;
        c->rotateY = 30.f * simState->time;
        c->updateMatrices();
        substep(*system);
    }
    const PointData& pts = *system->body->points;
    ASSERT_EQ(pts.attribType("__stick_0"), ATTRIB_INT);
    ASSERT_EQ(pts.attribType("__stickpos_0"), ATTRIB_VECTOR);
    EXPECT_EQ((*pts.attribAs<IntArray>("__stick_0"))[0], 1);
    // The particle keeps its place in the collider's space.
    Mat4f inverse;
    ASSERT_TRUE(xform::invert(c->pose.current, inverse));
    const Vec4f local = xform::point(pts.P[0], inverse);
    EXPECT_NEAR(local.x, 0.3f, 0.02f);
    EXPECT_NEAR(local.y, 0.1f, 0.02f);
    EXPECT_NEAR(local.z, 0.2f, 0.02f);
    // Cached output leaves the per-collider channels out.
    EXPECT_FALSE(system->exportBody()->points->hasAttrib("__stick_0"));
}

TEST_F(ColliderPassTest, DeformingMeshVelocityReachesStuckParticles)
{
    auto moving = boxMesh(Vec4f(-1.f, -1.f, -1.f), Vec4f(1.f, 0.f, 1.f));
    moving->velocities.assign(moving->vertices.size(), Vec4f(0.f, 0.f, 1.5f));
    CollisionObject* c = addCollider(addObject(moving, "movingMesh"), "movingCollider");
    c->voxelSize = 0.05f;
    c->stickStrength = 1.f;
    c->velocityScale = 2.f;
    system->connectCollider(c);
    system->gravityVector.y = 0.f;
    system->addParticle(Vec4f(0.f, 0.1f, 0.f), Vec4f());
    run(0, 4);
    EXPECT_NEAR((*system->ch.v)[0].z, 3.f, 1e-3);
}

TEST_F(ColliderPassTest, DeformingPartsRebuildEveryNthSubstepOnly)
{
    auto mesh = boxMesh(Vec4f(-1.f, -1.f, -1.f), Vec4f(1.f, 0.f, 1.f));
    mesh->isDeforming = true;
    Object* object = addObject(mesh, "deforming");
    CollisionObject* c = addCollider(object, "deformingCollider");
    c->sdfUpdateEveryNthStep = 3;
    setClock(0, 6);
    ASSERT_EQ(c->prepareSdf(), 1);
    GridBasePtr grid = object->partSdfs[0].sdfGrid;
    int rebuilt = 0;
    for (int k = 1; k < 6; ++k) {
        setClock(k, 6);
        c->prepareSdf();
        if (object->partSdfs[0].sdfGrid != grid) ++rebuilt;
        grid = object->partSdfs[0].sdfGrid;
    }
    EXPECT_EQ(rebuilt, 1);  // substep 3 of 0..5
    c->sdfUpdateEveryNthStep = 0;  // raised to 1: every substep
    for (int k = 0; k < 3; ++k) {
        setClock(k, 6);
        c->prepareSdf();
        EXPECT_NE(object->partSdfs[0].sdfGrid, grid);
        grid = object->partSdfs[0].sdfGrid;
    }
    EXPECT_EQ(c->sdfUpdateEveryNthStep, 1);
}

TEST_F(ColliderPassTest, GeometryFileIsReadOnceAndAMissingFileOnlyOnce)
{
    Object* object = addObject(nullptr, "fileObject");
    CollisionObject* c = addCollider(object, "fileCollider");
    c->filePath = "/nonexistent/qorva/ramp.obj";
    testing::internal::CaptureStdout();
    c->updateGeometry(0.f);
    c->updateGeometry(0.5f);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "geometry file not found: /nonexistent/qorva/ramp.obj\n");
    EXPECT_TRUE(object->meshes.empty());

    c->filePath = std::string(QORVA_SOURCE_DIR) + "/geo/ramp.obj";
    testing::internal::CaptureStdout();
    c->updateGeometry(1.f);
    c->updateGeometry(2.f);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "update geometry ok.\n");
    ASSERT_EQ(object->meshes.size(), 1u);
    const float top = object->meshes[0]->boundMax.y;
    const uint64_t stamp = object->geometryStamp;

    c->readScale = 2.f;
    testing::internal::CaptureStdout();
    c->updateGeometry(2.f);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), " updating reading scaling\nupdate geometry ok.\n");
    EXPECT_NEAR(object->meshes[0]->boundMax.y, 2.f * top, 1e-5);
    EXPECT_GT(object->geometryStamp, stamp);
    EXPECT_FLOAT_EQ(GeometryLink::fileFrame(10.f, 2.f, 0.5f, 4.f), 6.f);
}

TEST_F(ColliderPassTest, InvertedColliderHoldsParticlesInside)
{
    CollisionObject* c = boxCollider(Vec4f(-1.f, -1.f, -1.f), Vec4f(1.f, 1.f, 1.f));
    c->sdfInvert = true;
    system->addParticle(Vec4f(0.f, 0.f, 0.f), Vec4f(0.f, -3.f, 0.f));
    run(0, 48);
    const Vec4f p = system->body->points->P[0];
    EXPECT_GT(p.y, -1.f + 0.5f * system->particleRadius);
    EXPECT_LT(std::fabs(p.x), 1.f);
}

TEST_F(ColliderPassTest, DeadIdsAndMissingGeometryPrintAndTheRunGoesOn)
{
    CollisionObject* empty = addCollider(nullptr, "noGeometry");
    system->connectCollider(empty);
    system->colliderIds.push_back(999999);
    CollisionObject* broken = addCollider(addObject(nullptr, "emptyObject"), "emptyGeometry");
    system->connectCollider(broken);
    system->addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f());
    testing::internal::CaptureStdout();
    run(0, 4);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("collide with connected: id already deleted?\n"), std::string::npos);
    EXPECT_NE(out.find("Mesh geo is not available yet...\n"), std::string::npos);
    EXPECT_EQ(system->particleCount(), 1u);
    EXPECT_LT(system->body->points->P[0].y, 1.f);  // still falling
}

TEST_F(ColliderPassTest, PartWithABrokenGridSaysSoEverySubstep)
{
    ObjectMesh nanMesh;
    nanMesh.vertices.assign(3, Vec4f(std::nanf(""), 0.f, 0.f));
    nanMesh.triangles.resize(1);
    CollisionObject* c = addCollider(addObject(std::make_shared<ObjectMesh>(nanMesh), "nanObject"), "nanCollider");
    system->connectCollider(c);
    system->addParticle(Vec4f(0.f, 1.f, 0.f), Vec4f());
    testing::internal::CaptureStdout();
    run(0, 2);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("coll: no sdf available.\n"), std::string::npos);
    EXPECT_EQ(system->particleCount(), 1u);
}

TEST_F(ColliderPassTest, DisabledColliderAndDisabledCollisionLeaveParticlesAlone)
{
    CollisionObject* c = boxCollider(Vec4f(-1.f, -1.f, -1.f), Vec4f(1.f, 0.f, 1.f));
    system->gravityVector.y = 0.f;
    system->addParticle(Vec4f(0.f, 0.01f, 0.f), Vec4f());
    setClock(0, 8);
    c->enabled = false;
    system->ensureChannels();
    collidePass(*system);
    EXPECT_FLOAT_EQ(system->body->points->P[0].y, 0.01f);
    c->enabled = true;
    c->collide = false;
    collidePass(*system);
    EXPECT_FLOAT_EQ(system->body->points->P[0].y, 0.01f);
    c->collide = true;
    collidePass(*system);
    EXPECT_NEAR(system->body->points->P[0].y, system->particleRadius, 2e-3);
}

TEST_F(ColliderPassTest, GranularStepEmitsAndCollidesThroughItsConnectedObjects)
{
    // A plane source 1 unit above a floor collider whose top is at y = 0.5.
    CollisionObject* floor = boxCollider(Vec4f(-2.f, -0.5f, -2.f), Vec4f(2.f, 0.5f, 2.f));
    Source* source = addSource(Source::kPlane, nullptr, "dropper");
    source->translateY = 1.5f;
    source->singleShotFrame = 0.f;
    source->updateMatrices();
    system->connectSource(source);
    for (int k = 0; k < 24 * 8; ++k) {
        setClock(k, 8);
        source->updateMatrices();
        floor->updateMatrices();
        system->step();
        system->rememberParticleCount();
    }
    ASSERT_EQ(system->particleCount(), 100u);
    for (size_t i = 0; i < system->particleCount(); ++i) {
        EXPECT_NEAR(system->body->points->P[i].y, 0.5f + system->particleRadius, 0.01f);
        EXPECT_EQ((*system->ch.emitterId)[i], source->listIndex());
    }
}

TEST_F(ColliderPassTest, DumbRulesPushOnlyFromInsideAndOntoTheSurface)
{
    CollisionObject* c = boxCollider(Vec4f(-1.f, -1.f, -1.f), Vec4f(1.f, 0.f, 1.f), 0.05f);
    Vec4f P[2] = {Vec4f(0.f, 0.02f, 0.f), Vec4f(0.f, -0.03f, 0.f)};
    Vec4f v[2] = {Vec4f(0.f, -1.f, 0.f), Vec4f(0.5f, -1.f, 0.f)};
    CollideView view;
    view.count = 2;
    view.P = P;
    view.v = v;
    view.dt = 1.f / 192.f;
    view.radius = 0.05f;
    const std::vector<int32_t> ids{c->id};
    collideParticles(view, CollideRules::dumb(), ids);
    EXPECT_FLOAT_EQ(P[0].y, 0.02f);  // outside the surface: left alone
    EXPECT_FLOAT_EQ(v[0].y, -1.f);
    EXPECT_NEAR(P[1].y, 0.f, 2e-3);  // inside: onto the surface, not a radius out
    EXPECT_NEAR(v[1].y, 0.f, 1e-4);
    EXPECT_LT(v[1].x, 0.5f);  // rubbed by friction * dt, whatever the gravity
}

TEST_F(ColliderPassTest, RowsFollowTheEditorsOrderWithTheirDefaults)
{
    CollisionObject c;
    const std::vector<std::string> keys{"nodeName", "translateX", "translateY", "translateZ", "rotateX", "rotateY",
                                        "rotateZ", "scaleX", "scaleY", "scaleZ", "label", "collide", "friction",
                                        "staticGrip", "deleteParticles", "stickStrength", "xformStick",
                                        "xformStickLockFrame", "stickDist", "stickFalloff", "attraction",
                                        "attractionDist", "awakenParticles", "awakenDistance", "stickWeightMapMode",
                                        "stickWeightMapSetVal", "label", "filePath", "frameOffset", "timeScale",
                                        "timeScaleAnchorFrame", "bakeScale", "readScale", "voxelSize", "sdfInnerBand",
                                        "sdfPushOut", "velocityScale", "sdfInvert", "sdfUpdateEveryNthStep", "label",
                                        "drawMesh", "drawSDF", "drawGrid", "quatInterpol", "enabled", "visible"};
    ASSERT_EQ(size_t(c.params.size()), keys.size());
    for (size_t i = 0; i < keys.size(); ++i) EXPECT_EQ(c.params.parameters[i].key, keys[i]) << i;
    simState->startFrame = 7;
    c.evaluateParameters(0.f, 0);
    EXPECT_EQ(c.xformStickLockFrame, 7);
    EXPECT_FLOAT_EQ(c.friction, 18.f);
    EXPECT_FLOAT_EQ(c.staticGrip, 6.f);
    EXPECT_FLOAT_EQ(c.sdfInnerBand, 5.f);
    EXPECT_EQ(c.sdfUpdateEveryNthStep, 2);
    EXPECT_EQ(c.params.get("stickWeightMapMode")->enumEntries.size(), 3u);
    EXPECT_EQ(c.params.get("visible")->label, "Visibilty");
    c.params.get("sdfInnerBand")->text = "0.2";
    c.evaluateParameters(0.f, 0);
    EXPECT_FLOAT_EQ(c.sdfInnerBand, 1.f);
    simState->startFrame = 0;
}

} // namespace
