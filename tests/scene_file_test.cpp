// Scene files: save-load-save stability, every row surviving, broken and partial files,
// name clashes, the graph root kept, and a fuzz loop over mutated scenes.
#include "app/application.h"
#include "testenv.h"

#include "particles/dumbparticlesystem.h"
#include "io/object.h"
#include "particles/collisionobject.h"
#include "particles/force.h"
#include "particles/source.h"
#include "particles/granularparticlesystem.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::string readFile(const fs::path& p)
{
    std::ifstream f(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

void writeFile(const fs::path& p, const std::string& text)
{
    std::ofstream(p, std::ios::binary) << text;
}

class SceneFileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        dir = fs::temp_directory_path() / ("qorva_scene_" + std::to_string(getpid()));
        fs::create_directories(dir);
        simulation->clear();
        nodeMaster->clearGraph();
    }
    void TearDown() override { fs::remove_all(dir); }
    // Loads with standard output captured into `out`.
    int quietLoad(const fs::path& p, std::string* out = nullptr)
    {
        testing::internal::CaptureStdout();
        const int r = simulation->loadScene(p.string());
        const std::string text = testing::internal::GetCapturedStdout();
        if (out) *out = text;
        return r;
    }
    void buildScene()
    {
        GranularParticleSystem* g = simulation->createGranularSystem("sand");
        g->params.get("friction")->text = "4.5";
        g->params.get("exportFormat")->text = "bin";
        g->params.get("initialStateFilePath")->text = "$SCENEFOLDER/init.bin";
        DumbParticleSystem* d = simulation->createDumbSystem("rain");
        d->params.get("gravity")->text = "-9.81";
        d->params.get("mass")->text = "frame * 0.1";
        simulation->globalSettings->params.get("endFrame")->text = "48";
        g->connectById(d->id); // not a source, collider or force: refused
        Force* f = simulation->createForce("wind");
        f->params.get("strength") ? (void)(f->params.get("strength")->text = "3") : (void)0;
        g->connectForce(f);
        d->connectForce(f);
        CollisionObject* c = simulation->createCollider("ramp");
        c->params.get("filePath")->text = std::string(QORVA_SOURCE_DIR) + "/geo/ramp.obj";
        c->params.get("friction")->text = "7";
        Source* src = simulation->createSource("pour");
        src->params.get("sourceType")->text = "Point";
        g->connectCollider(c);
        g->connectSource(src);
        for (SceneObject* o : simulation->objectsById)
            if (o) o->evaluateParameters(0, 0);
        testing::internal::CaptureStdout();
        simulation->connectObject("ramp", false);
        testing::internal::GetCapturedStdout();
    }
    fs::path dir;
};

TEST_F(SceneFileTest, SaveLoadSaveGivesTheSameFile)
{
    buildScene();
    const fs::path a = dir / "a.qrv", b = dir / "b.qrv";
    ASSERT_TRUE(simulation->saveScene(a.string()));
    EXPECT_EQ(simulation->sceneName, "a");
    ASSERT_EQ(quietLoad(a), 0);
    ASSERT_TRUE(simulation->saveScene(b.string()));
    EXPECT_EQ(readFile(a), readFile(b));
    // Every list is written, in its place, even when empty.
    const std::string text = readFile(a);
    size_t last = 0;
    for (const char* tag : {"<dumbParticleSystems>", "<granularParticleSystems>", "<SPHParticleSystems/>",
                            "<objects>", "<sources>", "<colliders>", "<forces>", "<connections>",
                            "<simpleSPHParticleSystems/>"}) {
        const size_t at = text.find(tag, last);
        ASSERT_NE(at, std::string::npos) << tag;
        last = at;
    }
    EXPECT_EQ(simulation->colliders.size(), 1u);
    EXPECT_FLOAT_EQ(simulation->colliders[0]->friction, 7.f);
    EXPECT_EQ(simulation->sources[0]->sourceType, Source::kPoint);
}

TEST_F(SceneFileTest, RowsAndNamesSurvive)
{
    buildScene();
    const fs::path a = dir / "rows.qrv";
    ASSERT_TRUE(simulation->saveScene(a.string()));
    simulation->clear();
    ASSERT_EQ(quietLoad(a), 0);
    ASSERT_EQ(simulation->granularSystems.size(), 1u);
    ASSERT_EQ(simulation->dumbSystems.size(), 1u);
    const GranularParticleSystem& g = *simulation->granularSystems[0];
    EXPECT_EQ(g.name, "sand");
    EXPECT_FLOAT_EQ(g.friction, 4.5f);
    EXPECT_EQ(g.exportFormat, "bin");
    EXPECT_EQ(g.params.get("initialStateFilePath")->text, "$SCENEFOLDER/init.bin");
    EXPECT_EQ(simulation->dumbSystems[0]->name, "rain");
    EXPECT_EQ(simulation->dumbSystems[0]->params.get("mass")->text, "frame * 0.1");
    EXPECT_EQ(simulation->globalSettings->params.get("endFrame")->text, "48");
    EXPECT_EQ(simState->endFrame, 48);
    EXPECT_EQ(simulation->findByName("sand"), &g);
    ASSERT_EQ(simulation->forces.size(), 1u);
    ASSERT_EQ(g.forceIds.size(), 1u);
    EXPECT_EQ(simulation->objectById(g.forceIds[0])->name, "wind");
    ASSERT_EQ(simulation->dumbSystems[0]->forceIds.size(), 1u);
    ASSERT_EQ(g.colliderIds.size(), 1u);
    EXPECT_EQ(simulation->objectById(g.colliderIds[0])->name, "ramp");
}

TEST_F(SceneFileTest, GeometryLinksSurviveAndUnusedObjectsArePruned)
{
    const std::string ramp = std::string(QORVA_SOURCE_DIR) + "/geo/ramp.obj";
    CollisionObject* c = simulation->createCollider("ramp");
    c->params.get("filePath")->text = ramp;
    Source* src = simulation->createSource("pour");
    GranularParticleSystem* g = simulation->createGranularSystem("sand");
    g->connectCollider(c);
    g->connectSource(src);
    for (SceneObject* o : simulation->objectsById)
        if (o) o->evaluateParameters(0, 0);
    testing::internal::CaptureStdout();
    ASSERT_TRUE(simulation->connectObject("ramp", false));
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(simulation->objects.size(), 1u);
    simulation->createObject("orphan"); // nothing refers to it
    const fs::path a = dir / "links.qrv";
    ASSERT_TRUE(simulation->saveScene(a.string()));
    EXPECT_NE(readFile(a).find("Object_1"), std::string::npos) << "an unused object is still saved";

    std::string out;
    ASSERT_EQ(quietLoad(a, &out), 0);
    EXPECT_NE(out.find("Warning! Unconnected node(s) detected."), std::string::npos);
    EXPECT_NE(out.find("removed 1 unreferenced nodes."), std::string::npos);
    ASSERT_EQ(simulation->colliders.size(), 1u);
    ASSERT_EQ(simulation->objects.size(), 1u);
    CollisionObject* loaded = simulation->colliders[0];
    ASSERT_EQ(loaded->geometryIds.size(), 1u);
    const auto* object = dynamic_cast<Object*>(simulation->objectById(loaded->geometryIds[0]));
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->filePath, ramp);
    EXPECT_FALSE(object->meshes.empty()) << "the geometry was loaded";
    const GranularParticleSystem& sand = *simulation->granularSystems[0];
    ASSERT_EQ(sand.colliderIds.size(), 1u);
    EXPECT_EQ(sand.colliderIds[0], loaded->id);
    ASSERT_EQ(sand.sourceIds.size(), 1u);
    EXPECT_EQ(simulation->objectById(sand.sourceIds[0])->name, "pour");
}

TEST_F(SceneFileTest, LinkToNothingIsReportedAndSkipped)
{
    writeFile(dir / "dangling.qrv",
              "<Qorva><nodes><colliders><Collider_0 nodeName=\"c\"/></colliders></nodes><connections><colliders>"
              "<Collider_0><inputObject>ghost</inputObject></Collider_0></colliders><granularParticleSystems>"
              "<GranularParticleSystem_0><inputSource>x</inputSource></GranularParticleSystem_0>"
              "</granularParticleSystems></connections></Qorva>");
    std::string out;
    ASSERT_EQ(quietLoad(dir / "dangling.qrv", &out), 0);
    EXPECT_NE(out.find("there's a problem. Collider"), std::string::npos);
    EXPECT_NE(out.find("connection node1 is null"), std::string::npos);
    ASSERT_EQ(simulation->colliders.size(), 1u);
    EXPECT_TRUE(simulation->colliders[0]->geometryIds.empty());
}

TEST_F(SceneFileTest, BrokenFilesReportAndLeaveAnEmptyScene)
{
    buildScene();
    std::string out;
    EXPECT_NE(quietLoad(dir / "missing.qrv", &out), 0);
    EXPECT_NE(out.find("Error: "), std::string::npos);
    EXPECT_TRUE(simulation->granularSystems.empty());

    writeFile(dir / "text.qrv", "this is not xml <<<");
    EXPECT_NE(quietLoad(dir / "text.qrv"), 0);
    writeFile(dir / "noroot.qrv", "<Other><nodes/></Other>");
    EXPECT_EQ(quietLoad(dir / "noroot.qrv"), 5);
    writeFile(dir / "nonodes.qrv", "<Qorva><version/></Qorva>");
    EXPECT_EQ(quietLoad(dir / "nonodes.qrv"), 5);
    EXPECT_EQ(simulation->sceneName, "nonodes");
}

TEST_F(SceneFileTest, EmptyNodesLoadDefaultsAndMissingRowsAreReported)
{
    writeFile(dir / "empty.qrv", "<Qorva><nodes/></Qorva>");
    EXPECT_EQ(quietLoad(dir / "empty.qrv"), 0);
    ASSERT_NE(simulation->globalSettings, nullptr);
    writeFile(dir / "old.qrv",
              "<Qorva><nodes><granularParticleSystems><GranularParticleSystem_0 nodeName=\"old\" friction=\"2\" "
              "unknownRow=\"1\"/></granularParticleSystems><unknownList><X/></unknownList></nodes></Qorva>");
    std::string out;
    ASSERT_EQ(quietLoad(dir / "old.qrv", &out), 0);
    EXPECT_NE(out.find("param \"resolution\" not found in file to open."), std::string::npos);
    ASSERT_EQ(simulation->granularSystems.size(), 1u);
    EXPECT_FLOAT_EQ(simulation->granularSystems[0]->friction, 2.f);
    EXPECT_FLOAT_EQ(simulation->granularSystems[0]->resolution, 10.f) << "a missing row keeps its default";
}

TEST_F(SceneFileTest, DuplicateNamesAreCountedUp)
{
    writeFile(dir / "dup.qrv",
              "<Qorva><nodes><dumbParticleSystems><DumbParticleSystem_0 nodeName=\"p\"/><DumbParticleSystem_1 "
              "nodeName=\"p\"/></dumbParticleSystems></nodes></Qorva>");
    ASSERT_EQ(quietLoad(dir / "dup.qrv"), 0);
    ASSERT_EQ(simulation->dumbSystems.size(), 2u);
    EXPECT_EQ(simulation->dumbSystems[0]->name, "p");
    EXPECT_EQ(simulation->dumbSystems[1]->name, "p1");
}

TEST_F(SceneFileTest, GraphRootAheadIsFoundAndKept)
{
    writeFile(dir / "graph.qrv",
              "<Qorva_ng><nodes><null><params nodeName=\"grid1\" enabled=\"true\"/><ui_params/><node_state/>"
              "</null></nodes></Qorva_ng>\n<Qorva><nodes><dumbParticleSystems>"
              "<DumbParticleSystem_0 nodeName=\"d\"/></dumbParticleSystems></nodes></Qorva>");
    testing::internal::CaptureStdout();
    const int opened = openScene((dir / "graph.qrv").string());
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(opened, 0);
    ASSERT_NE(nodeMaster->findByName("grid1"), nullptr);
    EXPECT_EQ(simulation->dumbSystems.size(), 1u);
    ASSERT_TRUE(simulation->saveScene((dir / "graph2.qrv").string()));
    const std::string saved = readFile(dir / "graph2.qrv");
    EXPECT_NE(saved.find("grid1"), std::string::npos);
    EXPECT_LT(saved.find("Qorva_ng"), saved.find("<Qorva>"));
}

TEST_F(SceneFileTest, FailedSaveKeepsThePreviousFile)
{
    buildScene();
    const fs::path a = dir / "keep.qrv";
    ASSERT_TRUE(simulation->saveScene(a.string()));
    const std::string before = readFile(a);
    fs::create_directories(dir / "blocked.qrv"); // a folder where the file should go
    EXPECT_FALSE(simulation->saveScene((dir / "blocked.qrv").string()));
    EXPECT_EQ(readFile(a), before);
    for (const auto& e : fs::directory_iterator(dir))
        EXPECT_EQ(e.path().filename().string().find(".tmp"), std::string::npos) << "temporary left behind";
}

TEST_F(SceneFileTest, MutatedScenesNeverCrashTheLoader)
{
    buildScene();
    const fs::path good = dir / "good.qrv";
    ASSERT_TRUE(simulation->saveScene(good.string()));
    const std::string text = readFile(good);
    std::mt19937 rng(7);
    const fs::path bad = dir / "bad.qrv";
    for (int round = 0; round < 300; ++round) {
        std::string m = text;
        const int edits = 1 + int(rng() % 8);
        for (int e = 0; e < edits; ++e) {
            const size_t at = rng() % m.size();
            switch (rng() % 4) {
            case 0: m[at] = char(rng() % 256); break;
            case 1: m.erase(at, std::min<size_t>(m.size() - at, rng() % 40)); break;
            case 2: m.insert(at, m.substr(rng() % m.size(), rng() % 60)); break;
            default: m.resize(at); break;
            }
            if (m.empty()) m = "<";
        }
        writeFile(bad, m);
        quietLoad(bad);
    }
    EXPECT_EQ(quietLoad(good), 0) << "the loader still works after the fuzz";
}

} // namespace
