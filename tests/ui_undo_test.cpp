// Undo commands: selection, add, delete with connections, paste, and parameter edits
// that find their object or node by name at undo time.
#include "uitestenv.h"

#include "ui/addcommand.h"
#include "ui/deletecommand.h"
#include "ui/nodeparamchangecommand.h"
#include "ui/paramchangecommand.h"
#include "ui/pastecommand.h"
#include "ui/selectioncommand.h"

#include "graph/basenode.h"
#include "particles/collisionobject.h"
#include "particles/granularparticlesystem.h"
#include "particles/source.h"

#include <QUndoStack>
#include <gtest/gtest.h>

#include <algorithm>

namespace {

class UndoTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        resetSceneRecords();
        simState->frame = 0;
    }
    void TearDown() override { undoStack()->clear(); }

    static SelectionEntry entryOf(const std::string& name) { return selectionEntryFor(name); }
    static std::vector<std::string> selectedNames()
    {
        std::vector<std::string> out;
        for (const SelectionEntry& e : currentSelection()) out.push_back(e.name);
        return out;
    }
    template <class T>
    static T* find(const std::string& name)
    {
        return dynamic_cast<T*>(simulation->findByName(name));
    }
    static bool has(const std::vector<int32_t>& ids, int id) { return std::find(ids.begin(), ids.end(), id) != ids.end(); }
};

TEST_F(UndoTest, SelectionCommandUndoRedo)
{
    simulation->createGranularSystem("granular1");
    simulation->createCollider("collider1");
    setSelection({entryOf("granular1")});
    undoStack()->push(new SelectionCommand(currentSelection(), {entryOf("collider1")}));
    EXPECT_EQ(selectedNames(), std::vector<std::string>{"collider1"});
    undoStack()->undo();
    EXPECT_EQ(selectedNames(), std::vector<std::string>{"granular1"});
    undoStack()->redo();
    EXPECT_EQ(selectedNames(), std::vector<std::string>{"collider1"});
    undoStack()->push(new SelectionCommand(currentSelection(), {}));
    EXPECT_TRUE(currentSelection().empty());
    undoStack()->undo();
    EXPECT_EQ(selectedNames(), std::vector<std::string>{"collider1"});
    EXPECT_EQ(currentSelection().front().typeCode, int(kTypeCollider));
}

TEST_F(UndoTest, AddCommandUndoRemovesRedoRecreatesSameName)
{
    simulation->createGranularSystem("granular1");
    setSelection({entryOf("granular1")});
    auto* add = new AddCommand(kTypeGranularSystem);
    undoStack()->push(add);
    const std::string made = add->createdName();
    EXPECT_EQ(made, "granular2");
    ASSERT_NE(find<GranularParticleSystem>(made), nullptr);
    EXPECT_EQ(simulation->granularSystems.size(), 2u);
    EXPECT_EQ(selectedNames(), std::vector<std::string>{made});
    undoStack()->undo();
    EXPECT_EQ(find<GranularParticleSystem>(made), nullptr);
    EXPECT_EQ(simulation->granularSystems.size(), 1u);
    EXPECT_EQ(selectedNames(), std::vector<std::string>{"granular1"});
    undoStack()->redo();
    EXPECT_NE(find<GranularParticleSystem>(made), nullptr);
    EXPECT_EQ(add->createdName(), made);
}

TEST_F(UndoTest, DeleteColliderRestoresRowsAndConnections)
{
    GranularParticleSystem* g = simulation->createGranularSystem("granular1");
    CollisionObject* c = simulation->createCollider("collider1");
    ASSERT_TRUE(g->connectCollider(c));
    c->params.get("friction")->text = "7";
    c->evaluateParameters(0.f, 0);
    undoStack()->push(new DeleteCommand({entryOf("collider1")}));
    EXPECT_EQ(simulation->findByName("collider1"), nullptr);
    EXPECT_TRUE(simulation->colliders.empty());
    undoStack()->undo();
    auto* back = find<CollisionObject>("collider1");
    ASSERT_NE(back, nullptr);
    EXPECT_FLOAT_EQ(back->friction, 7.f);
    EXPECT_EQ(back->params.get("friction")->text, "7");
    EXPECT_TRUE(has(g->colliderIds, back->id));
    EXPECT_EQ(selectedNames(), std::vector<std::string>{"collider1"});
}

TEST_F(UndoTest, DeleteSourceAndSystemRestoresTheLinkBetweenThem)
{
    GranularParticleSystem* g = simulation->createGranularSystem("granular1");
    Source* s = simulation->createSource("source1");
    ASSERT_TRUE(g->connectSource(s));
    undoStack()->push(new DeleteCommand({entryOf("source1"), entryOf("granular1")}));
    EXPECT_EQ(simulation->findByName("source1"), nullptr);
    EXPECT_EQ(simulation->findByName("granular1"), nullptr);
    undoStack()->undo();
    auto* sys = find<GranularParticleSystem>("granular1");
    auto* src = find<Source>("source1");
    ASSERT_NE(sys, nullptr);
    ASSERT_NE(src, nullptr);
    EXPECT_TRUE(has(sys->sourceIds, src->id));
    undoStack()->redo();
    EXPECT_EQ(simulation->findByName("granular1"), nullptr);
}

TEST_F(UndoTest, ParamChangeFindsARecreatedObjectByName)
{
    CollisionObject* c = simulation->createCollider("collider1");
    const std::string oldText = c->params.get("friction")->text;
    const float oldValue = c->friction;
    undoStack()->push(new ParamChangeCommand("collider1", "friction", oldText, "5"));
    EXPECT_FLOAT_EQ(c->friction, 5.f);
    undoStack()->push(new DeleteCommand({entryOf("collider1")}));
    undoStack()->undo(); // the collider is made again: a new object under the old name
    auto* back = find<CollisionObject>("collider1");
    ASSERT_NE(back, nullptr);
    EXPECT_FLOAT_EQ(back->friction, 5.f);
    undoStack()->undo();
    EXPECT_FLOAT_EQ(back->friction, oldValue);
    EXPECT_EQ(back->params.get("friction")->text, oldText);
    undoStack()->redo();
    EXPECT_FLOAT_EQ(back->friction, 5.f);
}

TEST_F(UndoTest, ParamChangeOnAMissingObjectDoesNothing)
{
    ParamChangeCommand missing("nothing", "friction", "1", "2");
    missing.redo();
    missing.undo();
    CollisionObject* c = simulation->createCollider("collider1");
    ParamChangeCommand noRow("collider1", "noSuchRow", "1", "2");
    noRow.redo();
    EXPECT_NE(c->params.get("friction"), nullptr);
}

TEST_F(UndoTest, ParamChangeOfTheNameRowFollowsTheRename)
{
    simulation->createCollider("collider1");
    undoStack()->push(new ParamChangeCommand("collider1", "nodeName", "collider1", "wall"));
    EXPECT_NE(simulation->findByName("wall"), nullptr);
    undoStack()->undo();
    EXPECT_NE(simulation->findByName("collider1"), nullptr);
    EXPECT_EQ(simulation->findByName("wall"), nullptr);
    undoStack()->redo();
    EXPECT_NE(simulation->findByName("wall"), nullptr);
}

TEST_F(UndoTest, NodeParamChangeOnANode)
{
    BaseNode* node = nodeMaster->createNode("grid");
    ASSERT_NE(node, nullptr);
    const std::string name = node->name();
    undoStack()->push(new NodeParamChangeCommand(name, "subdivX", "10", "4"));
    EXPECT_EQ(*static_cast<int32_t*>(node->getParam("subdivX")->value), 4);
    undoStack()->undo();
    EXPECT_EQ(*static_cast<int32_t*>(node->getParam("subdivX")->value), 10);
    EXPECT_EQ(node->getParam("subdivX")->text, "10");
    // the editor rows of a node are found too
    undoStack()->push(new NodeParamChangeCommand(name, "posx", node->uiParams.get("posx")->text, "120"));
    EXPECT_FLOAT_EQ(node->posx, 120.f);
    NodeParamChangeCommand gone("noSuchNode", "subdivX", "1", "2");
    gone.redo();
}

TEST_F(UndoTest, CopyAndPasteACollider)
{
    CollisionObject* c = simulation->createCollider("collider1");
    c->params.get("staticGrip")->text = "3";
    c->evaluateParameters(0.f, 0);
    const std::string text = copyObjectText("collider1");
    ASSERT_FALSE(text.empty());
    EXPECT_EQ(objectTextType(text), int(kTypeCollider));
    auto* paste = new PasteCommand(kTypeCollider, text);
    undoStack()->push(paste);
    ASSERT_EQ(paste->name, "collider2");
    auto* copy = find<CollisionObject>("collider2");
    ASSERT_NE(copy, nullptr);
    EXPECT_FLOAT_EQ(copy->staticGrip, 3.f);
    EXPECT_EQ(selectedNames(), std::vector<std::string>{"collider2"});
    undoStack()->undo();
    EXPECT_EQ(simulation->findByName("collider2"), nullptr);
    EXPECT_EQ(copyObjectText("nothing"), "");
}

} // namespace
