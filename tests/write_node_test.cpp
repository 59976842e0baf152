// The Write node: a file per frame by extension, subframes, the data_ attribute rule,
// stitched Alembic falling back or failing cleanly, and read-back while paused.
#include "testenv.h"

#include "graph/nodemaster.h"
#include "graph/plug.h"
#include "io/fileio.h"
#include "nodes/writenode.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

// Four points on a line, moved along x by the frame, with a data_ channel.
class FrameDotsNode : public GeoNode {
public:
    explicit FrameDotsNode(NodeMaster* m) : GeoNode(m)
    {
        setType("FrameDots");
        addParam(&shift, "shift", "Shift", kParamFloat, "frame");
        addOutput("Output");
    }
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override
    {
        for (int i = 0; i < 4; ++i) body->points->addPoint(Vec4f(shift + float(i), 1.f, 0.f, 0.f));
        body->points->addAttrib("data_secret", ATTRIB_FLOAT);
    }
    float shift = 0.f;
};

class WriteNodeTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        nodeMaster->clearGraph();
        simulation->clear();
        dir = fs::temp_directory_path() / ("qorva_write_" + std::to_string(getpid()));
        fs::create_directories(dir);
        simState->startFrame = 1;
        simState->endFrame = 10;
        simState->paused = false;
        src = new FrameDotsNode(nodeMaster);
        nodeMaster->registerNode(src);
        write = static_cast<WriteNode*>(nodeMaster->createNode("write"));
        nodeMaster->connectPlugs(src->outputPlug(0), write->inputPlug(0));
        write->processFlag = true;
    }
    void TearDown() override
    {
        simState->paused = true;
        fs::remove_all(dir);
    }
    void cookFrame(int f)
    {
        simState->frame = f;
        simState->frameF = float(f);
        testing::internal::CaptureStdout();
        nodeMaster->cook(true);
        printed = testing::internal::GetCapturedStdout();
    }
    fs::path dir;
    FrameDotsNode* src = nullptr;
    WriteNode* write = nullptr;
    std::string printed;
};

TEST_F(WriteNodeTest, WritesOneObjPerFrameWithoutDataAttributes)
{
    write->params.get("writeFilePath")->text = dir.string() + "/out/$NODENAME.####.bin";
    for (int f = 1; f <= 3; ++f) cookFrame(f);
    for (int f = 1; f <= 3; ++f) {
        const fs::path p = dir / "out" / ("Write.000" + std::to_string(f) + ".bin");
        ASSERT_TRUE(fs::exists(p)) << p;
        auto body = std::make_shared<Body>();
        ASSERT_EQ(fileio::read(p.string(), body), 0);
        ASSERT_EQ(body->points->size(), 4u);
        EXPECT_FLOAT_EQ(body->points->P[0].x, float(f)) << "each frame's own data";
    }
    EXPECT_NE(printed.find("Write: preparing to write frame: 3"), std::string::npos);
    write->params.get("writeFilePath")->text = dir.string() + "/mesh.$F.obj";
    cookFrame(4);
    EXPECT_TRUE(fs::exists(dir / "mesh.0004.obj"));
}

TEST_F(WriteNodeTest, SubframesAreSkippedUnlessAskedForAndTheBodyStillGoesOn)
{
    write->params.get("writeFilePath")->text = dir.string() + "/s.$FF.bin";
    BodyPtr r;
    CookCaller c;
    c.time = 2.5f;
    testing::internal::CaptureStdout();
    write->process(r, c);
    testing::internal::GetCapturedStdout();
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 4u);
    EXPECT_TRUE(fs::is_empty(dir));
    write->params.get("writeSubframes")->text = "true";
    write->dirty = true;
    testing::internal::CaptureStdout();
    write->process(r, c);
    testing::internal::GetCapturedStdout();
    EXPECT_FALSE(fs::is_empty(dir));
}

TEST_F(WriteNodeTest, DataAttributeRuleLooksAtTheLastOccurrence)
{
    Body b;
    for (const char* n : {"data_a", "x_data_", "data_b_data_c", "keep"}) b.points->addAttrib(n, ATTRIB_FLOAT);
    WriteNode::removeDataAttributes(b);
    EXPECT_FALSE(b.points->hasAttrib("data_a"));
    EXPECT_TRUE(b.points->hasAttrib("x_data_"));
    EXPECT_TRUE(b.points->hasAttrib("data_b_data_c"));
    EXPECT_TRUE(b.points->hasAttrib("keep"));
}

TEST_F(WriteNodeTest, PointTransformsTurnXOntoOrientAndScale)
{
    Body b;
    for (int i = 0; i < 3; ++i) b.points->addPoint(Vec4f());
    b.points->addAttrib("orient", ATTRIB_VECTOR);
    b.points->addAttrib("scale", ATTRIB_FLOAT);
    auto& orient = *b.points->attribAs<VecArray>("orient");
    auto& scale = *b.points->attribAs<FloatArray>("scale");
    orient[0] = Vec4f(0.f, 3.f, 0.f, 0.f);  // +X onto +Y
    orient[1] = Vec4f(-1.f, 0.f, 0.f, 0.f); // opposite: half a turn
    scale = {2.f, 1.f, 1.f};                // point 2 keeps a zero orient
    testing::internal::CaptureStdout();
    write->storePointTransforms(b);
    testing::internal::GetCapturedStdout();
    const auto& m = *b.points->attribAs<Mat3Array>("xform");
    auto apply = [&](size_t i, const Vec4f& v) {
        const float* r = m[i].m;
        return Vec4f(r[0] * v.x + r[1] * v.y + r[2] * v.z, r[3] * v.x + r[4] * v.y + r[5] * v.z,
                     r[6] * v.x + r[7] * v.y + r[8] * v.z, 0.f);
    };
    const Vec4f x0 = apply(0, Vec4f(1.f, 0.f, 0.f, 0.f));
    EXPECT_NEAR(x0.x, 0.f, 1e-6f);
    EXPECT_NEAR(x0.y, 2.f, 1e-6f);
    EXPECT_NEAR(x0.z, 0.f, 1e-6f);
    const Vec4f x1 = apply(1, Vec4f(1.f, 0.f, 0.f, 0.f));
    EXPECT_NEAR(x1.x, -1.f, 1e-6f);
    EXPECT_EQ(m[2], Mat3f()) << "a zero orient gives no turn";
}

TEST_F(WriteNodeTest, StitchingFallsBackToASequenceOrFailsWithoutLosingTheInput)
{
    write->params.get("writeFilePath")->text = dir.string() + "/seq.####.bin";
    write->params.get("stitchedAlembic")->text = "true";
    cookFrame(1);
    EXPECT_FALSE(write->stitchedAlembic);
    EXPECT_EQ(write->params.get("stitchedAlembic")->text, "false");
    EXPECT_TRUE(fs::exists(dir / "seq.0001.bin"));

    write->params.get("writeFilePath")->text = dir.string() + "/one.abc";
    write->params.get("stitchedAlembic")->text = "true";
    BodyPtr r;
    CookCaller c;
    c.time = 2.f;
    simState->frame = 2;
    testing::internal::CaptureStdout();
    write->process(r, c);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("error creating alembic output file."), std::string::npos);
    EXPECT_EQ(write->errorText, "error creating alembic output file.");
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 4u);
}

TEST_F(WriteNodeTest, PausedScrubbingReadsBackAndNeverWrites)
{
    write->params.get("writeFilePath")->text = dir.string() + "/rb.####.bin";
    cookFrame(2);
    simState->paused = true;
    const auto stamp = fs::last_write_time(dir / "rb.0002.bin");
    src->params.get("shift")->text = "100";
    write->dirty = true;
    BodyPtr r;
    CookCaller c;
    c.time = 2.f;
    testing::internal::CaptureStdout();
    write->process(r, c);
    testing::internal::GetCapturedStdout();
    ASSERT_TRUE(r);
    ASSERT_EQ(r->points->size(), 4u);
    EXPECT_FLOAT_EQ(r->points->P[0].x, 2.f) << "shows what was written, not the new input";
    EXPECT_EQ(fs::last_write_time(dir / "rb.0002.bin"), stamp);
    // nothing written for that frame: an empty Body and the error text
    c.time = 7.f;
    simState->frame = 7;
    write->dirty = true;
    testing::internal::CaptureStdout();
    write->process(r, c);
    testing::internal::GetCapturedStdout();
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 0u);
    EXPECT_EQ(write->errorText, "read error.");
}

} // namespace
