// fileio::read and fileio::write: the extension table (upper case included), the
// retry counts and messages for unknown, missing and unfinished formats, the paused
// rule, the folder chain a write makes, and that a failed write never leaves a partial
// file under the final name.
#include "testenv.h"

#include "geo/body.h"
#include "io/fileio.h"
#include "io/tempfile.h"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include <algorithm>
#include <csignal>
#include <fstream>
#include <string>
#include <sys/resource.h>

namespace fs = boost::filesystem;

namespace {

size_t countOf(const std::string& text, const std::string& what)
{
    size_t n = 0;
    for (size_t at = text.find(what); at != std::string::npos; at = text.find(what, at + what.size())) ++n;
    return n;
}

std::shared_ptr<Body> cloud(size_t n)
{
    auto b = std::make_shared<Body>();
    b->points->addAttrib("v", ATTRIB_VELOCITY);
    for (size_t i = 0; i < n; ++i) b->points->addPointV(Vec4f(float(i), 1.f, 2.f), Vec4f(0.f, 0.f, 1.f));
    return b;
}

struct Captured {
    std::string out, err;
};

template <class F>
Captured capture(F&& f)
{
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    f();
    Captured c;
    c.out = testing::internal::GetCapturedStdout();
    c.err = testing::internal::GetCapturedStderr();
    return c;
}

std::vector<std::string> entries(const fs::path& dir)
{
    std::vector<std::string> names;
    for (fs::directory_iterator it(dir); it != fs::directory_iterator(); ++it)
        names.push_back(it->path().filename().string());
    std::sort(names.begin(), names.end());
    return names;
}

class FileIoTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        simState->paused = false;
        dir = fs::temp_directory_path() / fs::unique_path("qorva-fileio-%%%%-%%%%");
        fs::create_directories(dir);
    }
    void TearDown() override
    {
        simState->paused = true;
        fs::permissions(dir, fs::owner_all);
        fs::remove_all(dir);
    }
    std::string path(const std::string& name) const { return (dir / name).string(); }
    fs::path dir;
};

TEST(Extension, LastDotOfTheWholePathLowerCased)
{
    EXPECT_EQ(fileio::extensionOf("/a/b/c.0001.BIN"), "bin");
    EXPECT_EQ(fileio::extensionOf("x.Obj"), "obj");
    EXPECT_EQ(fileio::extensionOf("/a.d/noext"), "d/noext");
    EXPECT_EQ(fileio::extensionOf("NoDot"), "nodot");
    EXPECT_EQ(fileio::parentFolderOf("c:\\caches\\x.bin"), "c:/caches");
    EXPECT_EQ(fileio::parentFolderOf("x.bin"), "");
    EXPECT_EQ(fileio::parentFolderOf("/x.bin"), "/");
}

TEST_F(FileIoTest, UpperCaseExtensionsDispatch)
{
    auto b = cloud(5);
    ASSERT_EQ(fileio::write(path("A.BIN"), b), 0);
    std::shared_ptr<Body> r = std::make_shared<Body>();
    ASSERT_EQ(fileio::read(path("A.BIN"), r), 0);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 5u);

    ASSERT_EQ(fileio::write(path("M.Obj"), b), 0);
    r = std::make_shared<Body>();
    ASSERT_EQ(fileio::read(path("M.Obj"), r, 0.f, 24.f, false, 2.f), 0);
    EXPECT_EQ(r->points->P[3], Vec4f(6.f, 2.f, 4.f));  // scale reaches the OBJ reader
}

TEST_F(FileIoTest, UnknownExtensionTriesThreeTimesAndNullsTheBody)
{
    std::ofstream(path("x.xyz")) << "data";
    std::shared_ptr<Body> r = std::make_shared<Body>();
    int result = 0;
    const Captured c = capture([&] { result = fileio::read(path("x.xyz"), r); });
    EXPECT_EQ(result, -1);
    EXPECT_FALSE(r);
    EXPECT_EQ(countOf(c.out, "reading files with extension \"xyz\" is unsupported.\n"), 3u);
    EXPECT_EQ(countOf(c.err, "a read error happened. retrying... (" + path("x.xyz") + ")\n"), 3u);
}

TEST_F(FileIoTest, MissingFileTriesTwice)
{
    std::shared_ptr<Body> r = std::make_shared<Body>();
    int result = 0;
    const Captured c = capture([&] { result = fileio::read(path("none.bin"), r); });
    EXPECT_EQ(result, -1);
    EXPECT_FALSE(r);
    EXPECT_EQ(countOf(c.err, "a read error happened. retrying..."), 2u);
    EXPECT_EQ(countOf(c.out, "Error opening Particle-BIN-File!"), 0u);  // the existence test comes first
}

TEST_F(FileIoTest, MissingFileWhilePausedTriesOnce)
{
    simState->paused = true;
    std::shared_ptr<Body> r = std::make_shared<Body>();
    int result = 0;
    const Captured c = capture([&] { result = fileio::read(path("none.bin"), r); });
    EXPECT_EQ(result, -1);
    EXPECT_FALSE(r);
    EXPECT_EQ(countOf(c.err, "a read error happened. retrying..."), 1u);
}

TEST_F(FileIoTest, CorruptFileWhilePausedTriesOnce)
{
    simState->paused = true;
    std::ofstream(path("bad.bin")) << "not a bin file";
    std::shared_ptr<Body> r = std::make_shared<Body>();
    const Captured c = capture([&] { EXPECT_EQ(fileio::read(path("bad.bin"), r), -1); });
    EXPECT_EQ(countOf(c.out, "truncated bin file."), 1u);
    EXPECT_EQ(countOf(c.err, "a read error happened. retrying..."), 1u);
}

TEST_F(FileIoTest, CorruptFileTriesThreeTimes)
{
    std::ofstream(path("bad.bin")) << "not a bin file";
    std::shared_ptr<Body> r = std::make_shared<Body>();
    const Captured c = capture([&] { EXPECT_EQ(fileio::read(path("bad.bin"), r), -1); });
    EXPECT_EQ(countOf(c.out, "truncated bin file."), 3u);
    EXPECT_EQ(countOf(c.err, "a read error happened. retrying..."), 3u);
    EXPECT_FALSE(r);
}

TEST_F(FileIoTest, NullSimStateCountsAsRunning)
{
    SimState* saved = simState;
    simState = nullptr;
    std::shared_ptr<Body> r = std::make_shared<Body>();
    const Captured c = capture([&] { EXPECT_EQ(fileio::read(path("none.bin"), r), -1); });
    simState = saved;
    EXPECT_EQ(countOf(c.err, "a read error happened. retrying..."), 2u);
}

TEST_F(FileIoTest, EmptyPathFailsWithoutRetry)
{
    std::shared_ptr<Body> r = std::make_shared<Body>();
    int result = 0;
    const Captured c = capture([&] { result = fileio::read("", r); });
    EXPECT_EQ(result, -1);
    EXPECT_FALSE(r);
    EXPECT_EQ(c.err, "");
}

TEST_F(FileIoTest, UnfinishedFormatsFailAtOnce)
{
    for (const std::string ext : {"prt", "abc", "PRT"}) {
        std::ofstream(path("x." + ext)) << "data";
        std::shared_ptr<Body> r = std::make_shared<Body>();
        int result = 0;
        Captured c = capture([&] { result = fileio::read(path("x." + ext), r); });
        EXPECT_EQ(result, -1);
        EXPECT_FALSE(r);
        EXPECT_EQ(countOf(c.out, "not supported yet."), 1u) << c.out;
        EXPECT_EQ(c.err, "");
        c = capture([&] { result = fileio::write(path("out/y." + ext), cloud(2)); });
        EXPECT_EQ(result, -1);
        EXPECT_EQ(countOf(c.out, "not supported yet."), 1u) << c.out;
        EXPECT_EQ(c.err, "");
        EXPECT_FALSE(fs::exists(path("out")));
    }
}

TEST_F(FileIoTest, WriteCreatesTheFolderChainOnce)
{
    const std::string folder = path("a/b/c");
    Captured c = capture([&] { EXPECT_EQ(fileio::write(folder + "/x.0001.bin", cloud(3)), 0); });
    EXPECT_EQ(countOf(c.out, "created dir: " + folder + "\n"), 1u);
    EXPECT_TRUE(fs::exists(folder + "/x.0001.bin"));
    c = capture([&] { EXPECT_EQ(fileio::write(folder + "/x.0002.bin", cloud(3)), 0); });
    EXPECT_EQ(countOf(c.out, "created dir:"), 0u);
    EXPECT_EQ(c.err, "");
}

TEST_F(FileIoTest, UnknownWriteExtensionRunsFiftyAttempts)
{
    int result = 0;
    const Captured c = capture([&] { result = fileio::write(path("x.xyz"), cloud(1)); });
    EXPECT_EQ(result, -1);
    EXPECT_EQ(countOf(c.out, "writing files with extension \"xyz\" is unsupported.\n"), 50u);
    EXPECT_EQ(countOf(c.err, "a write error happened. retrying...\n"), 50u);
    EXPECT_FALSE(fs::exists(path("x.xyz")));
}

TEST_F(FileIoTest, ParentThatIsAFileFailsWithoutLeavingAnything)
{
    std::ofstream(path("plain")) << "I am a file";
    int result = 0;
    const Captured c = capture([&] { result = fileio::write(path("plain/x.bin"), cloud(2)); });
    EXPECT_EQ(result, -1);
    EXPECT_GE(countOf(c.err, "write error: "), 1u);
    EXPECT_EQ(entries(dir), std::vector<std::string>{"plain"});
}

TEST_F(FileIoTest, FailedRenameKeepsTheFinalNameAndRemovesTheTemporary)
{
    // The final name is a folder: the temporary is complete, the rename must fail.
    fs::create_directories(path("taken.bin/inside"));
    const Captured c = capture([&] { EXPECT_EQ(fileio::write(path("taken.bin"), cloud(10)), -1); });
    EXPECT_EQ(entries(dir), std::vector<std::string>{"taken.bin"});
    EXPECT_TRUE(fs::is_directory(path("taken.bin/inside")));
    const Captured o = capture([&] { EXPECT_EQ(fileio::write(path("taken.obj"), cloud(10)), 0); });
    fs::create_directories(path("dir.obj"));
    const Captured o2 = capture([&] { EXPECT_EQ(fileio::write(path("dir.obj"), cloud(10)), -1); });
    EXPECT_EQ(entries(dir), (std::vector<std::string>{"dir.obj", "taken.bin", "taken.obj"}));
}

TEST_F(FileIoTest, WriteCutShortKeepsTheOldFile)
{
    // The old cache stays whole when a new write runs out of room half-way.
    ASSERT_EQ(fileio::write(path("keep.bin"), cloud(3)), 0);
    ASSERT_EQ(fileio::write(path("keep.obj"), cloud(3)), 0);
    const auto oldBin = fs::file_size(path("keep.bin"));
    const auto oldObj = fs::file_size(path("keep.obj"));

    std::signal(SIGXFSZ, SIG_IGN);
    rlimit saved;
    ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
    rlimit small = saved;
    small.rlim_cur = 4096;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &small), 0);
    int binResult = 0, objResult = 0;
    capture([&] {
        binResult = fileio::write(path("keep.bin"), cloud(100000));
        objResult = fileio::write(path("keep.obj"), cloud(100000));
    });
    setrlimit(RLIMIT_FSIZE, &saved);
    std::signal(SIGXFSZ, SIG_DFL);

    EXPECT_EQ(binResult, -1);
    EXPECT_EQ(objResult, -1);
    EXPECT_EQ(fs::file_size(path("keep.bin")), oldBin);
    EXPECT_EQ(fs::file_size(path("keep.obj")), oldObj);
    EXPECT_EQ(entries(dir), (std::vector<std::string>{"keep.bin", "keep.obj"}));
    std::shared_ptr<Body> r = std::make_shared<Body>();
    EXPECT_EQ(fileio::read(path("keep.bin"), r), 0);
    EXPECT_EQ(r->points->size(), 3u);
}

TEST_F(FileIoTest, FrameInfoReachesTheBinHeader)
{
    fileio::BinFrameInfo info;
    info.time = 4.f;
    info.frame = 96;
    info.fps = 24.f;
    ASSERT_EQ(fileio::write(path("i.bin"), cloud(1), &info), 0);
    fileio::BinHeader h;
    std::vector<fileio::BinParticle> ps;
    ASSERT_EQ(fileio::readBinParticles(path("i.bin"), ps, &h), 0);
    EXPECT_EQ(h.frame, 96);
    EXPECT_EQ(h.time, 4.f);
}

TEST_F(FileIoTest, NullBodyIsNotWritten)
{
    std::shared_ptr<Body> none;
    const Captured c = capture([&] { EXPECT_EQ(fileio::write(path("n.bin"), none), -1); });
    EXPECT_FALSE(fs::exists(path("n.bin")));
}

TEST_F(FileIoTest, TempFileCommitAndDiscard)
{
    {
        TempFile t(path("t.dat"));
        ASSERT_TRUE(t.isOpen());
        EXPECT_TRUE(t.write("abc", 3));
        EXPECT_FALSE(fs::exists(path("t.dat")));
        EXPECT_TRUE(t.commit());
    }
    EXPECT_EQ(fs::file_size(path("t.dat")), 3u);
    {
        TempFile t(path("u.dat"));
        t.write("abc", 3);
    }
    EXPECT_EQ(entries(dir), std::vector<std::string>{"t.dat"});
}

} // namespace
