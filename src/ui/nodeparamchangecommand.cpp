#include "ui/nodeparamchangecommand.h"

#include "ui/uiglobals.h"

#include "app/globals.h"
#include "app/sceneobject.h"
#include "app/simstate.h"
#include "graph/basenode.h"
#include "graph/nodemaster.h"

#include <QString>
#include <cstdio>
#include <utility>

NodeParamChangeCommand::NodeParamChangeCommand(std::string node, std::string rowKey, std::string before,
                                               std::string after)
    : nodeName(std::move(node)), key(std::move(rowKey)), oldText(std::move(before)), newText(std::move(after)),
      nameNow(nodeName)
{
    setText(QString::fromStdString("Change " + key + " of " + nodeName));
}

Parameter* NodeParamChangeCommand::findRow(const std::string& name, const std::string& rowKey)
{
    BaseNode* node = nodeMaster ? nodeMaster->findByName(name) : nullptr;
    if (!node) return nullptr;
    if (Parameter* p = node->params.get(rowKey)) return p;
    if (Parameter* p = node->uiParams.get(rowKey)) return p;
    return node->stateParams.get(rowKey);
}

std::string NodeParamChangeCommand::applyText(const std::string& name, const std::string& rowKey,
                                              const std::string& text, const char* missing)
{
    Parameter* p = findRow(name, rowKey);
    if (!p) {
        std::printf("%s", missing);
        return std::string();
    }
    BaseNode* node = nodeMaster->findByName(name);
    const bool lockedVbo = vboMutex.tryLock(1000);
    const bool lockedGraph = lockedVbo && graphMutex.tryLock(1000);
    if (!lockedGraph) std::printf("Node Param Change: the graph stayed busy; applying %s without the lock.\n", rowKey.c_str());
    // The whole text is replaced (keys included); a typed value over keys is dropped.
    p->text = text;
    p->overridden = false;
    if (p->owner) p->owner->edited = true;
    p->evaluate(simState ? float(simState->frame) : 0.f, 0);
    const std::string after = node->name();
    if (lockedGraph) graphMutex.unlock();
    if (lockedVbo) vboMutex.unlock();
    nodeMaster->onParameterChanged(p);
    return after;
}

void NodeParamChangeCommand::apply(const std::string& text, const char* missing)
{
    const std::string after = applyText(nameNow, key, text, missing);
    if (after.empty()) return;
    const bool renamed = after != nameNow;
    if (renamed && simulation)
        for (SelectionEntry& e : simulation->selection)
            if (e.typeCode == kTypeGraphNode && e.name == nameNow) e.name = after;
    nameNow = after;
    emit UiEvents::instance()->parametersChanged();
    if (renamed) emit UiEvents::instance()->sceneChanged();
    markSceneEdited();
    requestViewsRefresh();
}

void NodeParamChangeCommand::redo()
{
    if (oldText == newText) return;
    apply(newText, "Node Param Change Redo: Parameter not found.\n");
}

void NodeParamChangeCommand::undo()
{
    if (oldText == newText) return;
    apply(oldText, "GeoNode Param Change Undo: Parameter not found.\n");
}
