#include "ui/addnodecommand.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "graph/basenode.h"
#include "graph/nodemaster.h"
#include "graph/plug.h"
#include "ui/graphnode.h"
#include "ui/nodesgraphicsview.h"
#include "ui/uiglobals.h"

#include <QString>
#include <cstdio>

namespace {

// Nodes whose result is wanted in the viewport as soon as they exist.
bool showsAtOnce(const std::string& key)
{
    return key == "camera" || key == "mesher" || key == "stitcher";
}

} // namespace

AddNodeCommand::AddNodeCommand(const std::string& k, QPointF p, const std::string& behind)
    : key(k), pos(p), behindName(behind), before(currentSelection())
{
    setText(QString::fromStdString("Add node " + key));
}

void AddNodeCommand::setRow(BaseNode* node, const std::string& rowKey, const std::string& text)
{
    if (!node) return;
    Parameter* row = node->params.get(rowKey);
    if (!row) row = node->uiParams.get(rowKey);
    if (!row) row = node->stateParams.get(rowKey);
    if (!row) {
        std::printf("get parameter error - parameter not found! (%s) - node: %s\n", rowKey.c_str(),
                    node->name().c_str());
        return;
    }
    row->text = text;
    row->evaluate(simState ? float(simState->frame) : 0.f, 0);
}

void AddNodeCommand::redo()
{
    if (!nodeMaster) return;
    BaseNode* node = nullptr;
    BaseNode* behind = behindName.empty() ? nullptr : nodeMaster->findByName(behindName);
    {
        const bool locked = graphMutex.tryLock(500);
        node = nodeMaster->createNodeAt(key, float(pos.x()), float(pos.y()));
        if (node && !name.empty() && node->name() != name && !nodeMaster->findByName(name)) {
            node->setName(name);
        }
        if (node && behind) {
            nodeMaster->connectPlugs(behind->outputPlug(0), node->inputPlug(0));
            behindWasVisible = behind->visibility;
            setRow(node, "visibility", behindWasVisible ? "true" : "false");
            setRow(behind, "visibility", "false");
        }
        if (node && showsAtOnce(node->nodeKey)) setRow(node, "visibility", "true");
        if (locked) graphMutex.unlock();
    }
    if (!node) {
        std::printf("could not create a node of type \"%s\".\n", key.c_str());
        return;
    }
    name = node->name();
    if (nodeEditor) {
        nodeEditor->refreshNode(node);
        if (behind) nodeEditor->refreshNode(behind);
    }
    emit UiEvents::instance()->sceneChanged();
    SelectionEntry entry = selectionEntryFor(name);
    setSelection({entry});
    markSceneEdited();
    if (showsAtOnce(node->nodeKey) && graphMutex.tryLock(500)) {
        nodeMaster->cook(false);
        graphMutex.unlock();
        if (nodeMaster->frontend) nodeMaster->frontend->refreshViews();
    } else if (nodeEditor) {
        nodeEditor->cookGraph();
    }
    requestViewsRefresh();
}

void AddNodeCommand::undo()
{
    if (!nodeMaster || name.empty()) return;
    BaseNode* node = nodeMaster->findByName(name);
    if (!node) {
        std::printf("Add node undo: node %s not found.\n", name.c_str());
        return;
    }
    if (nodeEditor) {
        nodeEditor->removeNodes({name});
    } else {
        const bool locked = graphMutex.tryLock(500);
        nodeMaster->deleteNode(node, false);
        delete node;
        if (locked) graphMutex.unlock();
    }
    if (BaseNode* behind = behindName.empty() ? nullptr : nodeMaster->findByName(behindName)) {
        setRow(behind, "visibility", behindWasVisible ? "true" : "false");
        if (nodeEditor) nodeEditor->refreshNode(behind);
    }
    emit UiEvents::instance()->sceneChanged();
    setSelection(before);
    markSceneEdited();
    if (nodeEditor) nodeEditor->cookGraph();
    requestViewsRefresh();
}
