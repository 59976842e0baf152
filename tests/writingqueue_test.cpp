// The background writer: job order, the in-flight job that `isEmpty` misses and `isIdle`
// counts, folder creation, and failing images that are dropped after five tries.
#include "testenv.h"

#include "app/writingqueue.h"
#include "geo/body.h"

#include <gtest/gtest.h>

#include <QThread>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <unistd.h>
#include <mutex>

namespace fs = std::filesystem;

namespace {

ImageBuffer smallImage(uint8_t shade)
{
    ImageBuffer img;
    img.width = 4;
    img.height = 3;
    img.rgba.assign(4 * 3 * 4, shade);
    for (size_t i = 3; i < img.rgba.size(); i += 4) img.rgba[i] = 0; // transparent on purpose
    return img;
}

Body smallBody(int n)
{
    Body b;
    b.points->addAttrib("id", 0);
    for (int i = 0; i < n; ++i) b.points->addPoint(Vec4f(float(i), 1.f, 2.f, 0.f));
    return b;
}

class WritingQueueTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        dir = fs::temp_directory_path() / ("qorva_wq_" + std::to_string(::getpid()) + "_" +
                                           ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir);
        queue.bodyDelayMs = 1;
        queue.imageDelayMs = 1;
        queue.idleSleepMs = 50;
        queue.imageRetryDelayMs = 5;
        queue.onJobDone = [this](const std::string& path, bool ok) {
            std::lock_guard<std::mutex> lock(orderMutex);
            order.push_back(fs::path(path).filename().string() + (ok ? "" : "!"));
            if (slowJobs) QThread::msleep(300);
        };
    }
    void TearDown() override { fs::remove_all(dir); }
    bool waitIdle(int ms = 20000)
    {
        const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(ms);
        while (!queue.isIdle())
            if (std::chrono::steady_clock::now() > end) return false;
            else QThread::msleep(2);
        return true;
    }
    fs::path dir;
    WritingQueue queue;
    std::mutex orderMutex;
    std::vector<std::string> order;
    std::atomic<bool> slowJobs{false};
};

TEST_F(WritingQueueTest, BodiesAndImagesAlternateEachInOrder)
{
    for (int i = 0; i < 3; ++i) queue.addImage((dir / ("i" + std::to_string(i) + ".png")).string(), smallImage(10));
    for (int i = 0; i < 3; ++i) queue.addBody((dir / ("b" + std::to_string(i) + ".bin")).string(), smallBody(5));
    queue.addImage((dir / "i3.png").string(), smallImage(10));
    queue.start();
    ASSERT_TRUE(waitIdle());
    EXPECT_EQ(order, (std::vector<std::string>{"b0.bin", "i0.png", "b1.bin", "i1.png", "b2.bin", "i2.png", "i3.png"}));
    for (const auto& name : order) EXPECT_TRUE(fs::exists(dir / name)) << name;
}

TEST_F(WritingQueueTest, IdleCountsTheJobBeingWritten)
{
    slowJobs = true;
    queue.start();
    queue.addBody((dir / "slow.bin").string(), smallBody(10));
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!queue.isEmpty() && std::chrono::steady_clock::now() < end) QThread::msleep(1);
    ASSERT_TRUE(queue.isEmpty());
    EXPECT_FALSE(queue.isIdle()) << "an exit must not happen while the last file is written";
    ASSERT_TRUE(waitIdle());
    EXPECT_TRUE(fs::exists(dir / "slow.bin"));
}

TEST_F(WritingQueueTest, QueuedBodyIsACopy)
{
    Body b = smallBody(3);
    queue.addBody((dir / "copy.bin").string(), b);
    b.points->P[0] = Vec4f(99.f, 99.f, 99.f, 0.f);
    QMutexLocker lock(&queue.mutex);
    EXPECT_EQ(queue.bodies.front()->points->P[0].x, 0.f);
}

TEST_F(WritingQueueTest, ImageFolderIsCreatedAndAlphaForced)
{
    const fs::path path = dir / "deep" / "er" / "img.0001.png";
    queue.addImage(path.string(), smallImage(200));
    {
        QMutexLocker lock(&queue.mutex);
        EXPECT_EQ(queue.images.front().rgba[3], 255) << "alpha is forced opaque when queued";
    }
    testing::internal::CaptureStdout();
    EXPECT_EQ(queue.flush(), 0);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_TRUE(fs::exists(path));
    EXPECT_NE(out.find("created dir: "), std::string::npos);
}

TEST_F(WritingQueueTest, UnwritableImageIsDroppedAfterFiveTriesAndNextJobRuns)
{
    fs::create_directories(dir);
    { std::ofstream(dir / "afile") << "x"; }
    queue.addImage((dir / "afile" / "img.png").string(), smallImage(1)); // parent is a file
    queue.addImage((dir / "ok.png").string(), smallImage(1));
    testing::internal::CaptureStderr();
    testing::internal::CaptureStdout();
    EXPECT_EQ(queue.flush(), 1);
    testing::internal::GetCapturedStdout();
    const std::string err = testing::internal::GetCapturedStderr();
    size_t n = 0;
    for (size_t p = err.find("image write error"); p != std::string::npos; p = err.find("image write error", p + 1)) ++n;
    EXPECT_EQ(n, 5u);
    EXPECT_TRUE(fs::exists(dir / "ok.png"));
    EXPECT_EQ(order.back(), "ok.png");
}

} // namespace
