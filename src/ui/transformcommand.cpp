#include "ui/transformcommand.h"

#include "app/globals.h"
#include "app/sceneobject.h"
#include "graph/nodemaster.h"
#include "ui/transformgizmo.h"
#include "ui/uiglobals.h"

#include <QString>
#include <algorithm>
#include <cstdio>

TransformCommand::TransformCommand(std::string objectName, bool node, const float before[9], const float after[9])
    : name(std::move(objectName)), isNode(node)
{
    std::copy(before, before + 9, oldValues);
    std::copy(after, after + 9, newValues);
    setText(isNode ? QStringLiteral("Transform GeoNode") : QStringLiteral("Transform Object"));
}

void TransformCommand::undo()
{
    applyValues(name, isNode, oldValues);
}

void TransformCommand::redo()
{
    applyValues(name, isNode, newValues);
}

bool TransformCommand::applyValues(const std::string& name, bool isNode, const float values[9])
{
    ParameterSet* rows = nullptr;
    if (isNode) rows = nodeMaster ? nodeMaster->paramSetOf(name) : nullptr;
    else if (simulation)
        if (SceneObject* object = simulation->findByName(name)) rows = &object->params;
    if (!rows) {
        std::printf(isNode ? "Transform Command: GeoNode not found.\n" : "Transform Command: object not found.\n");
        return false;
    }
    Parameter* last = nullptr;
    for (int i = 0; i < 9; ++i) {
        Parameter* row = rows->get(TransformGizmo::kKeys[i]);
        if (!row || !row->value) continue;
        const std::string text = Parameter::trimmedNumber(values[i]);
        row->userEdit(text);
        row->apply(true, double(values[i]), text);
        last = row;
    }
    if (isNode && nodeMaster && last) nodeMaster->onParameterChanged(last);
    emit UiEvents::instance()->parametersChanged();
    markSceneEdited();
    requestViewsRefresh();
    return true;
}
