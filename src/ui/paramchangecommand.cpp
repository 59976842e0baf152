#include "ui/paramchangecommand.h"

#include "ui/uiglobals.h"

#include "app/globals.h"
#include "app/sceneobject.h"
#include "app/simstate.h"

#include <QString>
#include <cstdio>
#include <utility>

namespace {

// The selection follows a renamed object.
void renameInSelection(const std::string& from, const std::string& to)
{
    if (!simulation || from == to) return;
    for (SelectionEntry& e : simulation->selection)
        if (e.typeCode != kTypeGraphNode && e.name == from) e.name = to;
}

} // namespace

ParamChangeCommand::ParamChangeCommand(std::string object, std::string rowKey, std::string before, std::string after)
    : objectName(std::move(object)), key(std::move(rowKey)), oldText(std::move(before)), newText(std::move(after)),
      nameAfter(objectName)
{
    setText(QString::fromStdString("Change " + key + " of " + objectName));
}

std::string ParamChangeCommand::applyText(const std::string& name, const std::string& rowKey, const std::string& text)
{
    SceneObject* object = simulation ? simulation->findByName(name) : nullptr;
    if (!object) {
        std::printf("Param Change Undo: ParameterSet not found.\n");
        return std::string();
    }
    Parameter* p = object->params.get(rowKey);
    if (!p) {
        std::printf("Param Change: Parameter not found\n");
        return std::string();
    }
    const bool locked = vboMutex.tryLock(1000);
    if (!locked) std::printf("Param Change: the scene stayed busy; applying %s without the lock.\n", rowKey.c_str());
    // The whole text is replaced (keys included); a typed value over keys is dropped.
    p->text = text;
    p->overridden = false;
    if (p->owner) p->owner->edited = true;
    const float frame = simState ? float(simState->frame) : 0.f;
    object->evaluateParameters(frame, 0);
    const std::string after = object->name;
    if (locked) vboMutex.unlock();
    return after;
}

void ParamChangeCommand::redo()
{
    if (oldText == newText) return;
    apply(newText);
}

void ParamChangeCommand::undo()
{
    if (oldText == newText) return;
    apply(oldText);
}

void ParamChangeCommand::apply(const std::string& text)
{
    const std::string after = applyText(nameAfter, key, text);
    if (after.empty()) return;
    const bool renamed = after != nameAfter;
    renameInSelection(nameAfter, after);
    nameAfter = after;
    emit UiEvents::instance()->parametersChanged();
    if (renamed) emit UiEvents::instance()->sceneChanged();
    markSceneEdited();
    requestViewsRefresh();
}
