// The node editor: items follow the graph, edits go through the undo stack, wires survive
// a delete and its undo, the creation menu lists every category and filters.
#include "uitestenv.h"

#include "nodes/nodetable.h"

#include "app/sceneobject.h"
#include "graph/basenode.h"
#include "graph/geonode.h"
#include "graph/plug.h"
#include "ui/addnodecommand.h"
#include "ui/graphbuttonvisibility.h"
#include "ui/graphedge.h"
#include "ui/graphnode.h"
#include "ui/graphplug.h"
#include "ui/nodesgraphicsview.h"
#include "ui/searchablemenu.h"

#include <QApplication>
#include <QGraphicsScene>
#include <QImage>
#include <QKeyEvent>
#include <QLineEdit>
#include <QMouseEvent>
#include <gtest/gtest.h>
#include <memory>

namespace {

class NodeEditorTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        resetSceneRecords();
        simState->paused = true;
        simState->headless = false; // the nodes keep a display result
        nodeMaster->autoRefresh = true;
        view = std::make_unique<NodesGraphicsView>(nodeMaster);
        view->resize(600, 400);
    }
    void TearDown() override
    {
        undoStack()->clear();
        view.reset();
        nodeMaster->clearGraph();
        simState->headless = true;
    }

    int countItems(int type) const
    {
        int n = 0;
        for (QGraphicsItem* item : view->graphScene()->items()) n += item->type() == type;
        return n;
    }
    // A node made through the undo stack, as the menu makes it.
    BaseNode* add(const std::string& key, QPointF pos)
    {
        auto* command = new AddNodeCommand(key, pos);
        undoStack()->push(command);
        return nodeMaster->findByName(command->createdName());
    }
    // The drag from the first output of `a` released over the first input of `b`.
    bool dragWire(BaseNode* a, BaseNode* b)
    {
        view->beginPlugDrag(view->plugItemOf(a->outputPlug(0)));
        view->movePlugDrag(QPointF(10, 10));
        return view->endPlugDrag(view->plugItemOf(b->inputPlug(0)));
    }

    std::unique_ptr<NodesGraphicsView> view;
};

TEST_F(NodeEditorTest, ViewAttachesItselfToTheGraph)
{
    EXPECT_EQ(nodeMaster->frontend, view.get());
    EXPECT_EQ(nodeEditor, view.get());
    view.reset();
    EXPECT_EQ(nodeMaster->frontend, nullptr);
    EXPECT_EQ(nodeEditor, nullptr);
}

TEST_F(NodeEditorTest, BuildsCooksAndUndoesAGraph)
{
    BaseNode* line = add("line", QPointF(0, 0));
    BaseNode* xform = add("transform", QPointF(0, 120));
    ASSERT_NE(line, nullptr);
    ASSERT_NE(xform, nullptr);
    EXPECT_EQ(countItems(GraphNode::Type), 2);
    EXPECT_FLOAT_EQ(view->itemOf(xform)->pos().y(), 120.f);
    // the new node is selected
    ASSERT_EQ(currentSelection().size(), 1u);
    EXPECT_EQ(currentSelection()[0].name, xform->name());

    ASSERT_TRUE(dragWire(line, xform));
    EXPECT_EQ(countItems(GraphEdge::Type), 1);
    EXPECT_EQ(xform->inputPlug(0)->sourcePlug(), line->outputPlug(0));

    NodesGraphicsView::setNodeRow(xform, "process", "true");
    NodesGraphicsView::setNodeRow(xform, "visibility", "true");
    NodesGraphicsView::setNodeRow(xform, "translateX", "2");
    nodeMaster->cook(false);
    auto* geo = dynamic_cast<GeoNode*>(xform);
    ASSERT_NE(geo, nullptr);
    ASSERT_TRUE(geo->displayBody);
    ASSERT_EQ(geo->displayBody->points->size(), 10u);
    EXPECT_FLOAT_EQ(geo->displayBody->points->P[0].x, 2.f);

    const std::string name = xform->name();
    for (int i = 0; i < 5; ++i) undoStack()->undo(); // three rows, the wire, then the creation
    EXPECT_EQ(nodeMaster->findByName(name), nullptr);
    EXPECT_EQ(countItems(GraphNode::Type), 1);
    EXPECT_EQ(countItems(GraphEdge::Type), 0);
    EXPECT_EQ(countItems(GraphPlug::Type), 1); // the line's output
    undoStack()->redo();
    BaseNode* again = nodeMaster->findByName(name);
    ASSERT_NE(again, nullptr);
    EXPECT_EQ(again->nodeKey, "transform");
    EXPECT_EQ(countItems(GraphNode::Type), 2);
}

TEST_F(NodeEditorTest, AWireIsOneUndoStepAndUndoGivesBackTheWireItReplaced)
{
    BaseNode* first = add("line", QPointF(0, 0));
    BaseNode* second = add("line", QPointF(200, 0));
    BaseNode* xform = add("transform", QPointF(0, 120));
    ASSERT_TRUE(dragWire(first, xform));
    const int steps = undoStack()->count();
    ASSERT_TRUE(dragWire(second, xform)); // replaces the first wire
    EXPECT_EQ(undoStack()->count(), steps + 1);
    EXPECT_EQ(xform->inputPlug(0)->sourcePlug(), second->outputPlug(0));
    undoStack()->undo();
    EXPECT_EQ(xform->inputPlug(0)->sourcePlug(), first->outputPlug(0));
    EXPECT_EQ(countItems(GraphEdge::Type), 1);
    undoStack()->undo();
    EXPECT_EQ(xform->inputPlug(0)->sourcePlug(), nullptr);
    EXPECT_EQ(countItems(GraphEdge::Type), 0);
    undoStack()->redo();
    undoStack()->redo();
    EXPECT_EQ(xform->inputPlug(0)->sourcePlug(), second->outputPlug(0));
    // a wire the rules refuse leaves no step behind
    const int before = undoStack()->count();
    EXPECT_FALSE(dragWire(xform, xform));
    EXPECT_EQ(undoStack()->count(), before);
}

TEST_F(NodeEditorTest, PullingAWireOffItsInputIsOneUndoStep)
{
    BaseNode* line = add("line", QPointF(0, 0));
    BaseNode* xform = add("transform", QPointF(0, 120));
    ASSERT_TRUE(dragWire(line, xform));
    const int steps = undoStack()->count();
    view->beginPlugDrag(view->plugItemOf(xform->inputPlug(0)));
    EXPECT_FALSE(view->endPlugDrag(nullptr)); // let go over nothing
    EXPECT_EQ(xform->inputPlug(0)->sourcePlug(), nullptr);
    EXPECT_EQ(countItems(GraphEdge::Type), 0);
    EXPECT_EQ(undoStack()->count(), steps + 1);
    undoStack()->undo();
    EXPECT_EQ(xform->inputPlug(0)->sourcePlug(), line->outputPlug(0));
    EXPECT_EQ(countItems(GraphEdge::Type), 1);
    undoStack()->redo();
    EXPECT_EQ(xform->inputPlug(0)->sourcePlug(), nullptr);
}

TEST_F(NodeEditorTest, DraggingNodesIsOneUndoStep)
{
    BaseNode* n = add("null", QPointF(0, 0));
    view->show();
    view->selectNodesByName({n->name()});
    QApplication::processEvents();
    const QPoint at = view->mapFromScene(view->itemOf(n)->sceneBoundingRect().center());
    const int steps = undoStack()->count();
    auto send = [&](QEvent::Type type, QPoint p, Qt::MouseButton button, Qt::MouseButtons held) {
        QMouseEvent e(type, p, view->viewport()->mapToGlobal(p), button, held, Qt::NoModifier);
        QApplication::sendEvent(view->viewport(), &e);
    };
    send(QEvent::MouseButtonPress, at, Qt::LeftButton, Qt::LeftButton);
    send(QEvent::MouseMove, at + QPoint(30, 20), Qt::NoButton, Qt::LeftButton);
    send(QEvent::MouseMove, at + QPoint(60, 40), Qt::NoButton, Qt::LeftButton);
    send(QEvent::MouseButtonRelease, at + QPoint(60, 40), Qt::LeftButton, Qt::NoButton);
    ASSERT_NE(n->posx, 0.f) << "the drag did not move the node";
    EXPECT_EQ(undoStack()->count(), steps + 1);
    const float movedX = n->posx;
    undoStack()->undo();
    EXPECT_FLOAT_EQ(n->posx, 0.f);
    EXPECT_FLOAT_EQ(n->posy, 0.f);
    EXPECT_EQ(view->itemOf(n)->pos(), QPointF(0, 0));
    undoStack()->redo();
    EXPECT_FLOAT_EQ(n->posx, movedX);
}

TEST_F(NodeEditorTest, DeleteAndUndoBringTheWireBack)
{
    BaseNode* line = add("line", QPointF(0, 0));
    BaseNode* xform = add("transform", QPointF(0, 120));
    ASSERT_TRUE(dragWire(line, xform));
    const std::string name = xform->name(), lineName = line->name();
    view->selectNodesByName({name});
    ASSERT_EQ(view->selectedNodes().size(), 1u);
    view->deleteSelected();
    EXPECT_EQ(nodeMaster->findByName(name), nullptr);
    EXPECT_EQ(countItems(GraphNode::Type), 1);
    EXPECT_EQ(countItems(GraphEdge::Type), 0);
    EXPECT_TRUE(line->outputPlug(0)->connections.empty());

    undoStack()->undo();
    BaseNode* back = nodeMaster->findByName(name);
    ASSERT_NE(back, nullptr);
    ASSERT_NE(back->inputPlug(0)->sourcePlug(), nullptr);
    EXPECT_EQ(back->inputPlug(0)->sourcePlug()->owner->name(), lineName);
    EXPECT_EQ(countItems(GraphEdge::Type), 1);
    EXPECT_EQ(countItems(GraphNode::Type), 2);
}

TEST_F(NodeEditorTest, RemoveAndRestoreKeepNamesAndOutsideWires)
{
    BaseNode* line = add("line", QPointF(0, 0));
    BaseNode* xform = add("transform", QPointF(0, 100));
    BaseNode* null = add("null", QPointF(0, 200));
    ASSERT_TRUE(view->connectPlugs(line->outputPlug(0), xform->inputPlug(0)));
    ASSERT_TRUE(view->connectPlugs(xform->outputPlug(0), null->inputPlug(0)));
    NodesGraphicsView::setNodeRow(xform, "translateY", "3");
    const std::string name = xform->name();

    const std::string saved = view->removeNodes({name});
    ASSERT_FALSE(saved.empty());
    EXPECT_EQ(nodeMaster->findByName(name), nullptr);
    EXPECT_EQ(nodeMaster->nodes.size(), 2u);
    EXPECT_EQ(countItems(GraphEdge::Type), 0);

    const std::vector<std::string> restored = view->restoreNodes(saved);
    ASSERT_EQ(restored.size(), 1u);
    EXPECT_EQ(restored[0], name);
    BaseNode* back = nodeMaster->findByName(name);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(back->params.get("translateY")->text, "3");
    EXPECT_EQ(back->inputPlug(0)->sourcePlug(), line->outputPlug(0));
    ASSERT_EQ(back->outputPlug(0)->connections.size(), 1u);
    EXPECT_EQ(back->outputPlug(0)->connections[0], null->inputPlug(0));
    EXPECT_EQ(countItems(GraphEdge::Type), 2);
    EXPECT_EQ(countItems(GraphNode::Type), 3);
    EXPECT_TRUE(view->restoreNodes("not a graph").empty());
}

TEST_F(NodeEditorTest, ItemPlaceMirrorsThePositionRows)
{
    BaseNode* n = add("null", QPointF(10, 20));
    GraphNode* item = view->itemOf(n);
    ASSERT_NE(item, nullptr);
    item->setPos(55, -30);
    EXPECT_FLOAT_EQ(n->posx, 55.f);
    EXPECT_EQ(n->uiParams.get("posy")->text, "-30");
    n->uiParams.get("posx")->text = "200";
    n->uiParams.get("posx")->evaluate(0.f, 0);
    item->updateWithBackend();
    EXPECT_FLOAT_EQ(item->pos().x(), 200.0);
}

TEST_F(NodeEditorTest, SelectionGoesBothWays)
{
    BaseNode* a = add("null", QPointF(0, 0));
    BaseNode* b = add("null", QPointF(0, 100));
    view->graphScene()->clearSelection();
    view->itemOf(a)->setSelected(true);
    ASSERT_EQ(currentSelection().size(), 1u);
    EXPECT_EQ(currentSelection()[0].typeCode, int(kTypeGraphNode));
    EXPECT_EQ(currentSelection()[0].name, a->name());
    setSelection({selectionEntryFor(b->name())});
    EXPECT_FALSE(view->itemOf(a)->isSelected());
    EXPECT_TRUE(view->itemOf(b)->isSelected());
    ASSERT_EQ(currentSelection().size(), 1u);
    EXPECT_EQ(currentSelection()[0].name, b->name());
}

TEST_F(NodeEditorTest, VisibilityButtonTogglesTheRowUndoably)
{
    BaseNode* n = add("null", QPointF(0, 0));
    GraphButtonVisibility* button = view->itemOf(n)->visibilityButton;
    ASSERT_NE(button, nullptr);
    EXPECT_EQ(button->objectName(), "Visibility");
    EXPECT_EQ(button->zValue(), 100.0);
    EXPECT_FALSE(n->visibility);
    button->toggle();
    EXPECT_TRUE(n->visibility);
    EXPECT_TRUE(button->state);
    undoStack()->undo();
    EXPECT_FALSE(n->visibility);
}

TEST_F(NodeEditorTest, LetterKeyWiresANewNodeBehindTheSelection)
{
    BaseNode* line = add("line", QPointF(0, 0));
    NodesGraphicsView::setNodeRow(line, "visibility", "true");
    view->selectNodesByName({line->name()});
    QKeyEvent press(QEvent::KeyPress, Qt::Key_T, Qt::NoModifier, "t");
    QApplication::sendEvent(view.get(), &press);
    ASSERT_EQ(nodeMaster->nodes.size(), 2u);
    BaseNode* made = nodeMaster->nodes.back();
    EXPECT_EQ(made->nodeKey, "transform");
    EXPECT_EQ(made->inputPlug(0)->sourcePlug(), line->outputPlug(0));
    EXPECT_TRUE(made->visibility);
    EXPECT_FALSE(line->visibility);
    EXPECT_FALSE(view->itemOf(line)->visibilityButton->state);
    undoStack()->undo();
    EXPECT_EQ(nodeMaster->nodes.size(), 1u);
    EXPECT_TRUE(line->visibility);
}

TEST_F(NodeEditorTest, CreationMenuListsCategoriesAndFilters)
{
    std::unique_ptr<SearchableMenu> menu(view->makeCreateMenu(QPointF(5, 5)));
    EXPECT_EQ(menu->title(), "create node");
    ASSERT_EQ(menu->categoryMenus.size(), nodeMaster->menuCategories.size());
    for (size_t i = 0; i < menu->categoryMenus.size(); ++i) {
        EXPECT_EQ(menu->categoryMenus[i]->title().toStdString(), nodeMaster->menuCategories[i].name);
        EXPECT_EQ(size_t(menu->categoryMenus[i]->actions().size()), nodeMaster->menuCategories[i].keys.size());
    }
    const int all = menu->visibleEntries().size();
    menu->searchField->setText("volume");
    const QStringList found = menu->visibleEntries();
    EXPECT_GT(found.size(), 3);
    EXPECT_LT(found.size(), all);
    for (const QString& key : found) EXPECT_TRUE(key.contains("volume")) << key.toStdString();
    EXPECT_FALSE(menu->categoryMenus[0]->menuAction()->isVisible());

    menu->searchField->setText("nul"); // "null" and "granular-solver": names starting so come first
    ASSERT_EQ(menu->visibleEntries(), (QStringList{"null", "granular-solver"}));
    ASSERT_TRUE(menu->chooseFirstMatch());
    ASSERT_EQ(nodeMaster->nodes.size(), 1u);
    EXPECT_EQ(nodeMaster->nodes[0]->nodeKey, "null");
    EXPECT_FLOAT_EQ(nodeMaster->nodes[0]->posx, 5.f);
    EXPECT_EQ(undoStack()->count(), 1);
    menu->searchField->setText("");
    EXPECT_EQ(menu->visibleEntries().size(), all);
}

TEST_F(NodeEditorTest, NodeTypesNotBuiltYetAreGreyedOutAndNeverMatched)
{
    std::unique_ptr<SearchableMenu> menu(view->makeCreateMenu(QPointF(0, 0)));
    QStringList unbuilt;
    for (const QMenu* sub : menu->categoryMenus)
        for (const QAction* a : sub->actions()) {
            const bool buildable = findNodeMaker(a->data().toString().toStdString()) != nullptr;
            EXPECT_EQ(a->isEnabled(), buildable) << a->data().toString().toStdString();
            if (!buildable) unbuilt.push_back(a->data().toString());
        }
    for (const QString& key : unbuilt) EXPECT_FALSE(menu->matches(key).contains(key)) << key.toStdString();
}

TEST_F(NodeEditorTest, PaintsBodyBackgroundAndDisabledLook)
{
    BaseNode* n = add("line", QPointF(0, 0));
    GraphNode* item = view->itemOf(n);
    view->show();
    view->centerOn(item);
    auto pixelAt = [&](QPointF local) {
        const QImage image = view->viewport()->grab().toImage();
        return QColor(image.pixel(view->mapFromScene(item->mapToScene(local))));
    };
    const QPointF body(60, 2.6); // above the name label, below the frame
    EXPECT_EQ(pixelAt(body), QColor(60, 60, 60));
    const QImage image = view->viewport()->grab().toImage();
    EXPECT_EQ(QColor(image.pixel(view->mapFromScene(item->mapToScene(QPointF(60, -80))))).red(), 40);
    NodesGraphicsView::setNodeRow(n, "enabled", "false");
    view->itemOf(n)->update();
    EXPECT_LT(pixelAt(body).red(), 60);
}

TEST_F(NodeEditorTest, TabOpensTheCreationMenu)
{
    view->show();
    QKeyEvent press(QEvent::KeyPress, Qt::Key_Tab, Qt::NoModifier);
    QApplication::sendEvent(view.get(), &press);
    auto* menu = view->findChild<SearchableMenu*>();
    ASSERT_NE(menu, nullptr);
    EXPECT_TRUE(menu->isVisible());
    menu->close();
}

TEST_F(NodeEditorTest, RestoreUnderATakenNameGetsAFreeOne)
{
    BaseNode* a = add("null", QPointF(0, 0));
    const std::string name = a->name();
    const std::string saved = view->removeNodes({name});
    BaseNode* other = add("null", QPointF(0, 50)); // takes the free name
    ASSERT_EQ(other->name(), name);
    const std::vector<std::string> restored = view->restoreNodes(saved);
    ASSERT_EQ(restored.size(), 1u);
    EXPECT_NE(restored[0], name);
    BaseNode* back = nodeMaster->findByName(restored[0]);
    ASSERT_NE(back, nullptr);
    EXPECT_EQ(view->itemOf(back)->nameText->toPlainText().toStdString(), restored[0]);
    EXPECT_EQ(countItems(GraphNode::Type), 2);
}

TEST_F(NodeEditorTest, CopyAndPasteMakeSelectedCopies)
{
    BaseNode* line = add("line", QPointF(0, 0));
    BaseNode* xform = add("transform", QPointF(0, 100));
    ASSERT_TRUE(view->connectPlugs(line->outputPlug(0), xform->inputPlug(0)));
    NodesGraphicsView::setNodeRow(xform, "translateZ", "4");
    view->selectNodesByName({line->name(), xform->name()});
    view->copySelected();
    view->pasteNodes();
    ASSERT_EQ(nodeMaster->nodes.size(), 4u);
    BaseNode* pastedLine = nodeMaster->nodes[2];
    BaseNode* pastedXform = nodeMaster->nodes[3];
    ASSERT_EQ(pastedLine->nodeKey, "line");
    ASSERT_EQ(pastedXform->nodeKey, "transform");
    EXPECT_NE(pastedXform->name(), xform->name());
    ASSERT_NE(pastedXform->params.get("translateZ"), nullptr);
    EXPECT_EQ(pastedXform->params.get("translateZ")->text, "4");
    EXPECT_EQ(pastedXform->inputPlug(0)->sourcePlug(), pastedLine->outputPlug(0));
    EXPECT_FLOAT_EQ(pastedXform->posy - pastedLine->posy, 100.f); // the layout travels along
    const std::vector<BaseNode*> chosen = view->selectedNodes();
    ASSERT_EQ(chosen.size(), 2u);
    EXPECT_EQ(countItems(GraphEdge::Type), 2);

    // the paste is one undo step; redo brings the copies back under their names, wired
    const std::string pastedName = pastedXform->name();
    undoStack()->undo();
    EXPECT_EQ(nodeMaster->nodes.size(), 2u);
    EXPECT_EQ(nodeMaster->findByName(pastedName), nullptr);
    EXPECT_EQ(countItems(GraphEdge::Type), 1);
    undoStack()->redo();
    ASSERT_EQ(nodeMaster->nodes.size(), 4u);
    BaseNode* back = nodeMaster->findByName(pastedName);
    ASSERT_NE(back, nullptr);
    ASSERT_NE(back->inputPlug(0)->sourcePlug(), nullptr);
    EXPECT_EQ(back->inputPlug(0)->sourcePlug()->owner->nodeKey, "line");
}

} // namespace
