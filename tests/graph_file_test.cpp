// Graph files and the factory: round trips of texts and wires, files from elsewhere
// (unknown keys, renamed plugs, missing nodes, loops, broken XML), names and colours.
#include "testenv.h"

#include "graph/basenode.h"
#include "graph/geonode.h"
#include "graph/nodemaster.h"
#include "graph/plug.h"

#include <gtest/gtest.h>
#include <tinyxml2.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

std::string readFile(const fs::path& p)
{
    std::ifstream in(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

class GraphFileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        nodeMaster->clearGraph();
        simulation->clear();
        dir = fs::temp_directory_path() / ("qorva_graph_" + std::to_string(getpid()));
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }
    int quietLoad(const std::string& text, bool append = false, std::string* out = nullptr)
    {
        tinyxml2::XMLDocument doc;
        doc.Parse(text.c_str());
        std::vector<BaseNode*> created;
        testing::internal::CaptureStdout();
        const int r = nodeMaster->loadGraph("", created, append, &doc);
        const std::string printed = testing::internal::GetCapturedStdout();
        if (out) *out = printed;
        return r;
    }
    fs::path dir;
};

TEST_F(GraphFileTest, SaveLoadSaveIsByteIdenticalAndKeepsTexts)
{
    BaseNode* a = nodeMaster->createNode("null");
    BaseNode* w = nodeMaster->createNode("write");
    ASSERT_TRUE(a && w);
    w->params.get("writeFilePath")->text = "$SCENEFOLDER/out/$NODENAME.$F.obj";
    a->uiParams.get("posx")->text = "12.5";
    a->uiParams.evaluateAll(1, 0);
    a->stateParams.get("process")->text = "true";
    a->stateParams.evaluateAll(1, 0);
    ASSERT_EQ(nodeMaster->connectPlugs(a->outputPlug(0), w->inputPlug(0)), 0);
    const std::string first = (dir / "g").string();
    ASSERT_EQ(nodeMaster->saveGraph(first, {}, nullptr), 0);
    std::vector<BaseNode*> created;
    testing::internal::CaptureStdout();
    ASSERT_EQ(nodeMaster->loadGraph(first + ".ng", created, false, nullptr), 0);
    testing::internal::GetCapturedStdout();
    ASSERT_EQ(created.size(), 2u);
    BaseNode* w2 = nodeMaster->findByName("Write");
    ASSERT_TRUE(w2);
    EXPECT_EQ(w2->params.get("writeFilePath")->text, "$SCENEFOLDER/out/$NODENAME.$F.obj");
    EXPECT_FLOAT_EQ(nodeMaster->findByName("Null")->posx, 12.5f);
    EXPECT_TRUE(nodeMaster->findByName("Null")->processFlag);
    ASSERT_EQ(w2->inputPlug(0)->connections.size(), 1u);
    const std::string second = (dir / "h").string();
    ASSERT_EQ(nodeMaster->saveGraph(second, {}, nullptr), 0);
    EXPECT_EQ(readFile(first + ".ng"), readFile(second + ".ng"));
}

TEST_F(GraphFileTest, EmptyGraphWritesNothing)
{
    EXPECT_EQ(nodeMaster->saveGraph((dir / "empty").string(), {}, nullptr), -1);
    EXPECT_FALSE(fs::exists(dir / "empty.ng"));
}

TEST_F(GraphFileTest, UnknownAndUnbuiltKeysAreReportedAndUnbuiltOnesKeptForSaving)
{
    const std::string file =
        "<Qorva_ng><nodes>"
        "<null><params nodeName=\"a\" enabled=\"true\"/><ui_params/><node_state/></null>"
        "<smoke-remove><params nodeName=\"m\" voxelSize=\"0.1\"/><ui_params/><node_state/></smoke-remove>"
        "<frobnicate><params nodeName=\"f\"/><ui_params/><node_state/></frobnicate>"
        "</nodes><wires>"
        "<wire from_nodeName=\"a\" to_nodeName=\"m\" from_plugName=\"Output\" to_plugName=\"Input\" "
        "from_plugIdx=\"0\" to_plugIdx=\"0\"/>"
        "</wires></Qorva_ng>";
    std::string printed;
    ASSERT_EQ(quietLoad(file, false, &printed), 0);
    EXPECT_EQ(nodeMaster->nodes.size(), 1u);
    size_t reports = 0;
    for (size_t at = printed.find("ERROR: node not created."); at != std::string::npos;
         at = printed.find("ERROR: node not created.", at + 1))
        ++reports;
    EXPECT_EQ(reports, 2u);
    tinyxml2::XMLDocument out;
    ASSERT_EQ(nodeMaster->saveGraph("", {}, &out), 0);
    tinyxml2::XMLPrinter printer;
    out.Print(&printer);
    const std::string saved = printer.CStr();
    EXPECT_NE(saved.find("voxelSize=\"0.1\""), std::string::npos) << "a known but unbuilt node was lost";
    EXPECT_NE(saved.find("to_nodeName=\"m\""), std::string::npos) << "its wire was lost";
    EXPECT_EQ(saved.find("frobnicate"), std::string::npos);
}

TEST_F(GraphFileTest, BrokenWiresAreSkippedAndRenamedPlugsConnectByIndex)
{
    const std::string file =
        "<Qorva_ng><nodes>"
        "<null><params nodeName=\"a\"/><ui_params/><node_state/></null>"
        "<null><params nodeName=\"b\"/><ui_params/><node_state/></null>"
        "<null><params nodeName=\"c\"/><ui_params/><node_state/></null>"
        "</nodes><wires>"
        "<wire from_nodeName=\"a\" to_nodeName=\"b\" from_plugName=\"Out\" to_plugName=\"In\" "
        "from_plugIdx=\"0\" to_plugIdx=\"0\"/>"
        "<wire from_nodeName=\"b\" to_nodeName=\"zz\" from_plugName=\"Output\" to_plugName=\"Input\"/>"
        "<wire from_nodeName=\"b\" to_nodeName=\"c\" from_plugName=\"Output\" to_plugName=\"Nope\" "
        "from_plugIdx=\"0\" to_plugIdx=\"7\"/>"
        "<wire from_nodeName=\"b\" to_nodeName=\"a\" from_plugName=\"Output\" to_plugName=\"Input\"/>"
        "<wire to_nodeName=\"a\" from_plugName=\"Output\" to_plugName=\"Input\"/>"
        "</wires></Qorva_ng>";
    std::string printed;
    ASSERT_EQ(quietLoad(file, false, &printed), 0);
    ASSERT_EQ(nodeMaster->nodes.size(), 3u);
    BaseNode* a = nodeMaster->findByName("a");
    BaseNode* b = nodeMaster->findByName("b");
    ASSERT_TRUE(a && b);
    EXPECT_EQ(b->inputPlug(0)->connections.size(), 1u) << "renamed plugs connect through their index";
    EXPECT_TRUE(a->inputPlug(0)->connections.empty()) << "a wire closing a loop must be refused";
    EXPECT_NE(printed.find("node not found."), std::string::npos);
    EXPECT_NE(printed.find("load: can't find plug named Nope on node c."), std::string::npos);
    // the refused loop leaves a graph that cooks and ends
    b->processFlag = true;
    nodeMaster->cook(true);
}

TEST_F(GraphFileTest, DuplicateNamesAndMissingElementsStillLoad)
{
    const std::string file =
        "<Qorva_ng><nodes>"
        "<null><params nodeName=\"same\" enabled=\"maybe\"/><ui_params posx=\"abc\"/><node_state/></null>"
        "<null><params nodeName=\"same\"/><ui_params/><node_state/></null>"
        "<null><ui_params/></null>"
        "<null><params nodeName=\"noui\"/></null>"
        "</nodes></Qorva_ng>";
    std::string printed;
    ASSERT_EQ(quietLoad(file, false, &printed), 0);
    ASSERT_EQ(nodeMaster->nodes.size(), 4u);
    EXPECT_EQ(nodeMaster->nodes[0]->name(), "same");
    EXPECT_EQ(nodeMaster->nodes[1]->name(), "same1");
    EXPECT_NE(printed.find("ERROR: no node parameters found."), std::string::npos);
    EXPECT_NE(printed.find("ERROR: no node ui parameters found."), std::string::npos);
    EXPECT_EQ(quietLoad("<Qorva_ng/>"), 5);
    EXPECT_EQ(quietLoad("not xml at all <<<"), 5);
}

TEST_F(GraphFileTest, AppendRenamesAndCarriesTheNewNamesToWires)
{
    const std::string file =
        "<Qorva_ng><nodes>"
        "<null><params nodeName=\"a\"/><ui_params/><node_state/></null>"
        "<null><params nodeName=\"b\"/><ui_params/><node_state/></null>"
        "</nodes><wires><wire from_nodeName=\"a\" to_nodeName=\"b\" from_plugName=\"Output\" "
        "to_plugName=\"Input\"/></wires></Qorva_ng>";
    ASSERT_EQ(quietLoad(file), 0);
    ASSERT_EQ(quietLoad(file, true), 0);
    ASSERT_EQ(nodeMaster->nodes.size(), 4u);
    BaseNode* a1 = nodeMaster->findByName("a1");
    BaseNode* b1 = nodeMaster->findByName("b1");
    ASSERT_TRUE(a1 && b1);
    ASSERT_EQ(b1->inputPlug(0)->connections.size(), 1u);
    EXPECT_EQ(b1->inputPlug(0)->connections.front()->owner, a1);
}

TEST_F(GraphFileTest, MutatedFilesNeverCrashTheLoader)
{
    BaseNode* a = nodeMaster->createNode("null");
    BaseNode* w = nodeMaster->createNode("write");
    nodeMaster->connectPlugs(a->outputPlug(0), w->inputPlug(0));
    tinyxml2::XMLDocument doc;
    ASSERT_EQ(nodeMaster->saveGraph("", {}, &doc), 0);
    tinyxml2::XMLPrinter printer;
    doc.Print(&printer);
    const std::string text = printer.CStr();
    std::mt19937 rng(11);
    for (int round = 0; round < 200; ++round) {
        std::string m = text;
        for (int e = 0, n = 1 + int(rng() % 6); e < n; ++e) {
            const size_t at = rng() % m.size();
            switch (rng() % 3) {
            case 0:
                m[at] = char(rng() % 256);
                break;
            case 1:
                m.erase(at, rng() % 20);
                break;
            default:
                m.insert(at, m.substr(rng() % m.size(), rng() % 30));
                break;
            }
        }
        quietLoad(m);
        for (BaseNode* n : nodeMaster->nodes) n->processFlag = true;
        simState->paused = true; // a paused Write node reads back, it never writes
        nodeMaster->cook(true);
    }
}

TEST_F(GraphFileTest, FactoryKeysNamesAndColours)
{
    BaseNode* n = nodeMaster->createNode("NULL");
    ASSERT_TRUE(n);
    EXPECT_EQ(n->nodeKey, "null");
    EXPECT_EQ(n->name(), "Null");
    simulation->createDumbSystem("Null1");
    BaseNode* n2 = nodeMaster->createNode("null");
    EXPECT_EQ(n2->name(), "Null2") << "nodes and classic objects share one namespace";
    EXPECT_EQ(n->colorR, n2->colorR);
    EXPECT_EQ(n->colorB, n2->colorB);
    BaseNode* w = nodeMaster->createNode("write");
    EXPECT_FALSE(w->colorR == n->colorR && w->colorG == n->colorG && w->colorB == n->colorB);
    EXPECT_EQ(nodeMaster->createNode("no-such-node"), nullptr);
    EXPECT_TRUE(NodeMaster::isKnownKey("jet-flip-solver"));
    EXPECT_FALSE(NodeMaster::isKnownKey("geo-filter"));
    int upres = 0;
    std::set<std::string> all;
    for (const auto& c : nodeMaster->menuCategories) {
        for (const std::string& k : c.keys) {
            all.insert(k);
            if (k == "upres-solver") ++upres;
        }
    }
    EXPECT_EQ(upres, 2);
    EXPECT_EQ(all.size() + 14, 88u);
    EXPECT_EQ(nodeMaster->menuCategories.front().name, "Classic");
}

} // namespace

namespace {

TEST_F(GraphFileTest, CopyWritesOnlyWiresAmongTheChosenAndPastesStepAway)
{
    BaseNode* a = nodeMaster->createNodeAt("null", 0.f, 0.f);
    BaseNode* b = nodeMaster->createNodeAt("null", 100.f, 50.f);
    BaseNode* c = nodeMaster->createNodeAt("null", 200.f, 100.f);
    nodeMaster->connectPlugs(a->outputPlug(0), b->inputPlug(0));
    nodeMaster->connectPlugs(b->outputPlug(0), c->inputPlug(0));
    testing::internal::CaptureStdout();
    ASSERT_EQ(nodeMaster->copyNodes({a, b}), 0);
    testing::internal::GetCapturedStdout();
    const std::string saved = readFile(NodeMaster::clipboardPath() + ".ng");
    size_t wires = 0;
    for (size_t at = saved.find("<wire "); at != std::string::npos; at = saved.find("<wire ", at + 1))
        ++wires;
    EXPECT_EQ(wires, 1u);
    for (int paste = 1; paste <= 3; ++paste) {
        std::vector<BaseNode*> created;
        testing::internal::CaptureStdout();
        ASSERT_EQ(nodeMaster->pasteNodes(created), 0);
        testing::internal::GetCapturedStdout();
        ASSERT_EQ(created.size(), 2u);
        EXPECT_FLOAT_EQ(created[0]->posx, 25.f * float(paste));
        EXPECT_FLOAT_EQ(created[0]->posy, 25.f * float(paste));
        EXPECT_FLOAT_EQ(created[1]->posx, 100.f + 25.f * float(paste));
        ASSERT_EQ(created[1]->inputPlug(0)->connections.size(), 1u);
        EXPECT_EQ(created[1]->inputPlug(0)->connections.front()->owner, created[0])
            << "wires follow the new names";
    }
    EXPECT_EQ(nodeMaster->nodes.size(), 9u);
}

} // namespace

TEST_F(GraphFileTest, AWireLeavesFromTheOutputWhenAnInputSharesItsName)
{
    // Granular-Solver has an input and an output both named "Dynamic-Particles".
    const std::string file =
        "<Qorva_ng><nodes>"
        "<granular-solver><params nodeName=\"s\"/><ui_params/><node_state/></granular-solver>"
        "<null><params nodeName=\"n\"/><ui_params/><node_state/></null>"
        "</nodes><wires>"
        "<wire from_nodeName=\"s\" to_nodeName=\"n\" from_plugName=\"Dynamic-Particles\" to_plugName=\"Input\" "
        "from_plugIdx=\"0\" to_plugIdx=\"0\"/>"
        "</wires></Qorva_ng>";
    ASSERT_EQ(quietLoad(file), 0);
    BaseNode* s = nodeMaster->findByName("s");
    BaseNode* n = nodeMaster->findByName("n");
    ASSERT_TRUE(s && n);
    EXPECT_EQ(s->outputPlug(0)->connections.size(), 1u);
    EXPECT_EQ(n->inputPlug(0)->connections.size(), 1u);
    EXPECT_TRUE(s->inputPlug(0)->connections.empty());
}
