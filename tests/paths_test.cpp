// Path tokens, cache paths, folder clean-up and file sequences.
#include "testenv.h"

#include "params/parameter.h"
#include "params/parameterset.h"
#include "params/paths.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <fstream>

namespace {

class PathsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        simulation->scenePath = "/a/b/c.qrv";
        simulation->globalSettings->fallbackPathCaches.clear();
        simState->frame = 7;
        simState->frameF = 7.f;
        simState->substep = 0;
        row = set.add(Parameter(&field, "file", "File", kParamPath));
    }
    void TearDown() override
    {
        simulation->scenePath.clear();
        simulation->globalSettings->fallbackPathCaches.clear();
    }
    ParameterSet set;
    std::string field;
    Parameter* row = nullptr;
};

TEST_F(PathsTest, SceneTokensAndFramePadding)
{
    EXPECT_EQ(resolveTokens(*row, "$SCENEFOLDER/$F.abc", 7), "/a/b/0007.abc");
    EXPECT_EQ(resolveTokens(*row, "$SCENENAME.####.bin", 7), "c.0007.bin");
    EXPECT_EQ(resolveTokens(*row, "x.$F.bin", 12345), "x.12345.bin");
    EXPECT_EQ(resolveTokens(*row, "x.$FF.bin", 7.5f), "x.7.500000.bin");
    EXPECT_EQ(resolveTokens(*row, "x.$F.bin", 7.5f), "x.0007.bin") << "$F truncates subframes";
}

TEST_F(PathsTest, LongTokensBeforeShortOnes)
{
    EXPECT_EQ(resolveTokens(*row, "$FILEFOLDER/$FILENAME", 3), "/a/b/c");
    EXPECT_EQ(resolveCacheTokens("$FILEFORMAT/$FORMAT/$F", "sys", "bin"), "bin/bin/0007");
    EXPECT_EQ(resolveTokens(*row, "$STARTFRAME-$ENDFRAME", 3),
              std::to_string(simState->startFrame) + "-" + std::to_string(simState->endFrame));
}

TEST_F(PathsTest, NodeNameOnlyForNodes)
{
    EXPECT_EQ(resolveTokens(*row, "$NODENAME", 1), "$NODENAME");
    set.typeCode = 13;
    set.name = "mesher1";
    EXPECT_EQ(resolveTokens(*row, "$NODENAME.obj", 1), "mesher1.obj");
}

TEST_F(PathsTest, PathRowEvaluatesTokens)
{
    row->text = "$SCENEFOLDER/out/$F.obj";
    row->evaluate(9, 0);
    EXPECT_EQ(field, "/a/b/out/0009.obj");
    EXPECT_TRUE(row->hasExpression);
    EXPECT_TRUE(row->isTimeDependent());
}

TEST_F(PathsTest, GeoTokenFindsTheShippedGeometry)
{
    installRoot = computeInstallRoot();
    const std::string path = resolveTokens(*row, "$GEO/ramp.obj", 1);
    EXPECT_EQ(path, installRoot + "/geo/ramp.obj");
    EXPECT_TRUE(std::filesystem::exists(path)) << "a build folder links geo/ beside the programs";
}

TEST_F(PathsTest, RelativeDots)
{
    EXPECT_EQ(resolveRelativeDots("/a/b/../c"), "/a/c");
    EXPECT_EQ(resolveRelativeDots("/a/b/c/../../d"), "/a/d");
    EXPECT_EQ(resolveRelativeDots("../x"), "../x");
    EXPECT_EQ(resolveRelativeDots("a/../b"), "a/../b") << "no separator before the match";
}

TEST_F(PathsTest, NormalizeAndFolders)
{
    EXPECT_EQ(normalizePath("/a//b///c"), "/a/b/c");
    EXPECT_EQ(normalizePath("//server/share//x"), "//server/share/x");
    EXPECT_EQ(normalizePath("a\\b"), "a/b");
    EXPECT_EQ(folderOf("/a/b/c.qrv"), "/a/b");
    EXPECT_EQ(fileStem("/a/b/c.final.qrv"), "c");
    EXPECT_EQ(folderOf("c.qrv"), "");
}

TEST_F(PathsTest, DefaultCachePath)
{
    EXPECT_EQ(cachePath("sand", "bin"), "/a/b/caches/c/sand.0007.bin");
}

TEST_F(PathsTest, FallbackFolderAndFile)
{
    simState->frame = 10;
    simulation->globalSettings->fallbackPathCaches = "D:/out/";
    EXPECT_EQ(cachePath("mySystem", "bin"), "D:/out/mySystem.0010.bin");
    simulation->globalSettings->fallbackPathCaches = "D:/out";
    EXPECT_EQ(cachePath("mySystem", "bin"), "D:/out/mySystem.0010.bin");
    simulation->globalSettings->fallbackPathCaches = "D:/out/x.bin";
    EXPECT_EQ(cachePath("mySystem", "bin"), "D:/out/x.bin");
}

TEST_F(PathsTest, DotsInFolderNamesStayFolders)
{
    // One file per frame must come out, or every frame overwrites the last.
    simulation->globalSettings->fallbackPathCaches = "./out";
    EXPECT_EQ(cachePath("sys", "bin"), "./out/sys.0007.bin");
    simulation->globalSettings->fallbackPathCaches = "/tmp/run.1";
    EXPECT_EQ(cachePath("sys", "bin"), "/tmp/run.1/sys.0007.bin");
    simulation->globalSettings->fallbackPathCaches = "/tmp/run.1/$SYSTEMNAME";
    EXPECT_EQ(cachePath("sys", "bin"), "/tmp/run.1/sys/sys.0007.bin");
}

TEST_F(PathsTest, EmptySceneNameGivesRootCaches)
{
    simulation->scenePath.clear();
    EXPECT_EQ(cachePath("sys", "bin"), "/caches/sys.0007.bin");
}

TEST_F(PathsTest, HashWidths)
{
    std::string p = "img.#####.png";
    EXPECT_TRUE(replaceHashes(p, 42));
    EXPECT_EQ(p, "img.00042.png");
    p = "img.##.png";
    EXPECT_TRUE(replaceHashes(p, 7));
    EXPECT_EQ(p, "img.07.png");
    p = "img.png";
    EXPECT_FALSE(replaceHashes(p, 7));
}

TEST_F(PathsTest, FileSequences)
{
    const auto dir = std::filesystem::temp_directory_path() / "qorva_seq_test";
    std::filesystem::create_directories(dir);
    auto touch = [&](const std::string& name) { std::ofstream(dir / name) << "x"; };
    touch("part.0012.abc");
    touch("part.0013.abc");
    touch("lonely.0005.abc");
    touch("part.12.abc");
    EXPECT_EQ(checkSequence((dir / "part.0012.abc").string()), (dir / "part.####.abc").string());
    EXPECT_EQ(checkSequence((dir / "part.0013.abc").string()), (dir / "part.####.abc").string());
    EXPECT_EQ(checkSequence((dir / "lonely.0005.abc").string()), "");
    EXPECT_EQ(checkSequence((dir / "part.12.abc").string()), "");
    EXPECT_EQ(checkSequence("noext"), "");
    std::filesystem::remove_all(dir);
}

} // namespace
