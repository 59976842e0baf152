// A scene holding a classic system and a graph, run headless through the executable: the
// Write node's OBJ per frame and the system's BIN per frame both reach disk, the graph
// moves from frame to frame, and the scene's graph survives a save and a load.
#include "testenv.h"

#include "app/application.h"
#include "geo/body.h"
#include "graph/basenode.h"
#include "io/fileio.h"
#include "particles/dumbparticlesystem.h"
#include "particles/source.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::string readFile(const fs::path& p)
{
    std::ifstream f(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

class GraphSceneTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        dir = fs::temp_directory_path() / ("qorva_graphscene_" + std::to_string(getpid()));
        fs::remove_all(dir);
        fs::create_directories(dir);
    }
    void TearDown() override
    {
        if (!HasFailure()) fs::remove_all(dir);
    }
    // The shipped demo, with its Write node pointed into `dir` and a plain particle system added.
    fs::path makeScene()
    {
        testing::internal::CaptureStdout();
        const int opened = openScene(std::string(QORVA_SOURCE_DIR) + "/scenes/graph_demo.qrv");
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(opened, 0);
        BaseNode* write = nodeMaster->findByName("sway");
        EXPECT_TRUE(write);
        if (write) write->params.get("writeFilePath")->text = "$SCENEFOLDER/meshes/$NODENAME.$F.obj";
        DumbParticleSystem* dots = simulation->createDumbSystem("dots");
        dots->exportFormat = "bin";
        dots->params.get("exportFormat")->text = "bin";
        Source* pour = simulation->createSource("pour");
        pour->params.get("sourceType")->text = "Plane";
        pour->params.get("translateY")->text = "2";
        pour->params.evaluateAll(1, 0);
        dots->connectSource(pour);
        const fs::path scene = dir / "scene.qrv";
        EXPECT_TRUE(simulation->saveScene(scene.string()));
        return scene;
    }
    fs::path dir;
};

TEST_F(GraphSceneTest, HeadlessRunWritesTheGraphAndTheSystemEveryFrame)
{
    const fs::path scene = makeScene();
    const std::string cmd = "cd /tmp && env -u DISPLAY timeout 300 " + std::string(QORVA_BINARY) +
                            " --sim --headless --numthreads 2 --endframe 4 --cachepath " +
                            (dir / "caches").string() + " " + scene.string() + " > " +
                            (dir / "log").string() + " 2>&1";
    const int status = std::system(cmd.c_str());
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << readFile(dir / "log");
    std::string previous;
    for (int f = 1; f <= 4; ++f) {
        char name[32];
        std::snprintf(name, sizeof(name), "sway.%04d.obj", f);
        const fs::path mesh = dir / "meshes" / name;
        ASSERT_TRUE(fs::exists(mesh)) << name << "\n" << readFile(dir / "log");
        auto body = std::make_shared<Body>();
        ASSERT_EQ(fileio::read(mesh.string(), body), 0);
        EXPECT_GT(body->points->size(), 100u);
        const std::string text = readFile(mesh);
        EXPECT_NE(text, previous) << "the graph must move from frame to frame";
        previous = text;
        std::snprintf(name, sizeof(name), "dots.%04d.bin", f);
        EXPECT_TRUE(fs::exists(dir / "caches" / name)) << name;
    }
}

TEST_F(GraphSceneTest, SceneSaveAndLoadKeepTheGraph)
{
    const fs::path scene = makeScene();
    const size_t nodes = nodeMaster->nodes.size();
    testing::internal::CaptureStdout();
    ASSERT_EQ(openScene(scene.string()), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(nodeMaster->nodes.size(), nodes);
    ASSERT_TRUE(nodeMaster->findByName("keepHalf"));
    EXPECT_EQ(nodeMaster->findByName("keepHalf")->params.get("enabled")->text, "@P.x > 0.6 || @P.z > 1.2");
    ASSERT_TRUE(simulation->saveScene((dir / "again.qrv").string()));
    EXPECT_EQ(readFile(scene), readFile(dir / "again.qrv"));
}

} // namespace
