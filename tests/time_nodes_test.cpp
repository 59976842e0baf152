// Nodes that work across time or look through a camera: Trail, Timeshift, Camera and
// Project. The time-dependent input is a Transform whose translateX follows the frame.
#include "nodetestkit.h"

#include "graph/plugcache.h"
#include "nodes/cameranode.h"
#include "nodes/projectnode.h"
#include "nodes/timeshiftnode.h"
#include "nodes/trailnode.h"
#include "nodes/xformnode.h"
#include "particles/xform.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace {

class TimeNodesTest : public NodeTestBase {
protected:
    // One point at the origin, moved along x by the frame number ("frame" or another text).
    XformNode* movingPoint(const std::string& translateX = "frame")
    {
        auto* x = makeWith<XformNode>("transform", {pointsBody({Vec4f(0, 0, 0)})});
        set(x, "translateX", translateX);
        return x;
    }
    // A node of `key` reading movingPoint(translateX).
    template <class T> T* onMovingPoint(const std::string& key, const std::string& translateX = "frame")
    {
        T* n = make<T>(key);
        wire(movingPoint(translateX), n);
        return n;
    }
    // A Project of `points` through `cam`; no camera leaves its second input unwired.
    ProjectNode* project(const BodyPtr& points, CameraNode* cam)
    {
        auto* p = makeWith<ProjectNode>("project", {points});
        if (cam) wire(cam, p, 1);
        return p;
    }
};

// ---- Trail ----

TEST_F(TimeNodesTest, TrailWithZeroFramesGivesNoPoints)
{
    auto* t = onMovingPoint<TrailNode>("trail");
    set(t, "frames", "0");
    BodyPtr out = pull(t, 10.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->size(), 0u);
}

TEST_F(TimeNodesTest, TrailMergesTheFramesBefore)
{
    auto* t = onMovingPoint<TrailNode>("trail");
    set(t, "frames", "3");
    BodyPtr out = pull(t, 10.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(sortedXs(out), (std::vector<float>{7, 8, 9}));
    // the next frame moves the whole trail on
    out = pull(t, 11.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(sortedXs(out), (std::vector<float>{8, 9, 10}));
}

TEST_F(TimeNodesTest, TrailSubstepsCookBetweenFrames)
{
    auto* t = onMovingPoint<TrailNode>("trail", "framef");
    set(t, "frames", "2");
    set(t, "substeps", "2");
    BodyPtr out = pull(t, 10.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(sortedXs(out), (std::vector<float>{8, 8.5f, 9, 9.5f}));
}

TEST_F(TimeNodesTest, TrailUnderTheNodeMastersCook)
{
    auto* t = onMovingPoint<TrailNode>("trail");
    set(t, "frames", "2");
    t->processFlag = true;
    const int32_t savedFrame = simState->frame;
    std::vector<std::vector<float>> seen;
    for (int32_t f : {4, 5}) {
        simState->frame = f;
        nodeMaster->cook(true);
        PlugCache::Entry e;
        ASSERT_TRUE(nodeMaster->plugCache->getAt(t->outputPlug(0), float(f), e));
        ASSERT_TRUE(e.body);
        seen.push_back(sortedXs(e.body));
    }
    simState->frame = savedFrame;
    EXPECT_EQ(seen[0], (std::vector<float>{2, 3}));
    EXPECT_EQ(seen[1], (std::vector<float>{3, 4}));
}

// ---- Timeshift ----

TEST_F(TimeNodesTest, TimeshiftDefaultCooksAtTheCurrentFrame)
{
    auto* s = onMovingPoint<TimeshiftNode>("timeshift");
    EXPECT_EQ(s->params.get("frame")->text, "$FF");
    BodyPtr out = pull(s, 7.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->size(), 1u);
    EXPECT_FLOAT_EQ(out->points->P[0].x, 7.f);
    out = pull(s, 8.f);
    ASSERT_TRUE(out);
    EXPECT_FLOAT_EQ(out->points->P[0].x, 8.f);
}

TEST_F(TimeNodesTest, TimeshiftToAFixedFrame)
{
    auto* s = onMovingPoint<TimeshiftNode>("timeshift");
    set(s, "frame", "5");
    BodyPtr out = pull(s, 7.f);
    ASSERT_TRUE(out);
    EXPECT_FLOAT_EQ(out->points->P[0].x, 5.f);
    EXPECT_FALSE(checkAt(s, 12.f).timeDependent); // a fixed frame holds the upstream animation back
    out = pull(s, 12.f);
    ASSERT_TRUE(out);
    EXPECT_FLOAT_EQ(out->points->P[0].x, 5.f);
}

TEST_F(TimeNodesTest, TimeshiftDisabledPassesTheCurrentFrame)
{
    auto* s = onMovingPoint<TimeshiftNode>("timeshift");
    set(s, "frame", "5");
    set(s, "enabled", "false");
    BodyPtr out = pull(s, 9.f);
    ASSERT_TRUE(out);
    EXPECT_FLOAT_EQ(out->points->P[0].x, 9.f);
}

// ---- Camera and Project ----

TEST_F(TimeNodesTest, CameraSendsOnePointWithItsLens)
{
    auto* cam = make<CameraNode>("camera");
    set(cam, "fov", "30");
    BodyPtr out = pull(cam, 1.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->size(), 1u);
    EXPECT_EQ(out->points->P[0], Vec4f(20, 20, 20));
    EXPECT_FLOAT_EQ((*out->points->attribAs<FloatArray>("fov"))[0], 30.f);
    EXPECT_NEAR((*out->points->attribAs<FloatArray>("aspect"))[0], 16.f / 9.f, 1e-5f);
    ASSERT_EQ(out->points->attribType("camRotate"), ATTRIB_VECTOR);
    EXPECT_FLOAT_EQ((*out->points->attribAs<VecArray>("camRotate"))[0].x, -45.f);
}

TEST_F(TimeNodesTest, ProjectPointOnTheViewAxisLandsAtScreenCentre)
{
    // The default camera looks down its -Z turned by its rotation rows.
    auto* cam = make<CameraNode>("camera");
    const Mat4f pose = xform::compose(Vec4f(20, 20, 20), Vec4f(-45, 45, 0), Vec4f(1, 1, 1));
    const Vec4f axis = xform::direction(Vec4f(0, 0, -1), pose);
    const Vec4f ahead = Vec4f(20, 20, 20) + axis * 5.f;
    auto* p = project(pointsBody({ahead, ahead + Vec4f(0, 1, 0)}), cam);
    BodyPtr out = pull(p, 1.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->size(), 2u);
    EXPECT_NEAR(out->points->P[0].x, 0.5f, 1e-4f);
    EXPECT_NEAR(out->points->P[0].y, 0.5f, 1e-4f);
    EXPECT_NEAR(out->points->P[0].z, 5.f, 1e-4f);
    EXPECT_GT(out->points->P[1].y, 0.5f); // world up is up on screen for this camera
}

TEST_F(TimeNodesTest, ProjectIntoANamedAttribute)
{
    auto* cam = make<CameraNode>("camera");
    for (const char* key : {"translateX", "translateY", "rotateX", "rotateY"}) set(cam, key, "0");
    set(cam, "translateZ", "10");
    set(cam, "fov", "90");
    set(cam, "aspect", "2");
    // the second point at depth 4: the right edge, halfway up
    auto* p = project(pointsBody({Vec4f(0, 0, 0), Vec4f(8, 2, 6)}), cam);
    set(p, "posAttrName", "screen");
    BodyPtr out = pull(p, 1.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->attribType("screen"), ATTRIB_VECTOR);
    const VecArray& s = *out->points->attribAs<VecArray>("screen");
    EXPECT_NEAR(s[0].x, 0.5f, 1e-5f);
    EXPECT_NEAR(s[0].y, 0.5f, 1e-5f);
    EXPECT_NEAR(s[0].z, 10.f, 1e-5f);
    EXPECT_NEAR(s[1].x, 1.f, 1e-5f);
    EXPECT_NEAR(s[1].y, 0.75f, 1e-5f);
    EXPECT_NEAR(s[1].z, 4.f, 1e-5f);
    EXPECT_EQ(out->points->P[1], Vec4f(8, 2, 6)); // P stays
}

TEST_F(TimeNodesTest, ProjectWithoutCameraGivesAnEmptyBody)
{
    auto* p = project(pointsBody({Vec4f(1, 2, 3)}), nullptr);
    BodyPtr out = pull(p, 1.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->size(), 0u);
    EXPECT_TRUE(p->error);
}

} // namespace
