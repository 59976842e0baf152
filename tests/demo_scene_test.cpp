// The shipped demo scene run headless through the executable: one readable cache per
// frame and system, sand that keeps coming while the source pours, and two runs with the
// same thread count writing the same bytes.
#include <gtest/gtest.h>

#include "app/globals.h"
#include "geo/body.h"
#include "io/fileio.h"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

int runDemo(const fs::path& out, int endFrame)
{
    const std::string cmd = "cd /tmp && env -u DISPLAY timeout 300 " + std::string(QORVA_BINARY) +
                            " --sim --headless --numthreads 2 --endframe " + std::to_string(endFrame) +
                            " --cachepath " + out.string() + " " + QORVA_SOURCE_DIR +
                            "/scenes/sand_demo.qrv > " + out.string() + ".log 2>&1";
    const int status = std::system(cmd.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

std::string readFile(const fs::path& p)
{
    std::ifstream f(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

size_t countIn(const fs::path& file)
{
    auto body = std::make_shared<Body>();
    if (fileio::read(file.string(), body) != 0) return 0;
    return body->points->size();
}

TEST(DemoScene, RunsHeadlessAndWritesEveryFrameTwiceTheSame)
{
    const fs::path base = fs::temp_directory_path() / ("qorva_demo_" + std::to_string(getpid()));
    fs::remove_all(base);
    fs::create_directories(base);
    const int endFrame = 8;
    ASSERT_EQ(runDemo(base / "a", endFrame), 0) << readFile(base / "a.log");
    ASSERT_EQ(runDemo(base / "b", endFrame), 0);
    const std::string log = readFile(base / "a.log");
    EXPECT_NE(log.find("Object ramp"), std::string::npos) << "the collider found its mesh";
    EXPECT_NE(log.find("sim finished after 9 frames."), std::string::npos);

    for (int f = 0; f <= endFrame; ++f) {
        char name[32];
        for (const char* system : {"sand", "block"}) {
            std::snprintf(name, sizeof(name), "%s.%04d.bin", system, f);
            ASSERT_TRUE(fs::exists(base / "a" / name)) << name;
            EXPECT_GT(countIn(base / "a" / name), 0u) << name;
            EXPECT_TRUE(readFile(base / "a" / name) == readFile(base / "b" / name)) << name << " differs";
        }
    }
    EXPECT_GT(countIn(base / "a" / "sand.0008.bin"), countIn(base / "a" / "sand.0001.bin"))
        << "the source keeps pouring";
    EXPECT_EQ(countIn(base / "a" / "block.0008.bin"), countIn(base / "a" / "block.0000.bin"))
        << "the block is emitted once";
    fs::remove_all(base);
}

} // namespace
