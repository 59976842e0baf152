#include "ui/uiglobals.h"

#include "app/globals.h"
#include "app/sceneobject.h"
#include "graph/basenode.h"
#include "graph/nodemaster.h"

#include <QMetaObject>
#include <QUndoStack>

MainWindow* mainWindow = nullptr;
OpenGLWidget* viewport = nullptr;
NodesGraphicsView* nodeEditor = nullptr;
ParameterEditor* parameterEditor = nullptr;

QUndoStack* undoStack()
{
    static QUndoStack* stack = new QUndoStack();
    return stack;
}

UiEvents* UiEvents::instance()
{
    static UiEvents* hub = new UiEvents();
    return hub;
}

void requestViewsRefresh()
{
    QMetaObject::invokeMethod(UiEvents::instance(), "viewsNeedRefresh", Qt::QueuedConnection);
}

void markSceneEdited()
{
    emit UiEvents::instance()->sceneEdited();
}

void setSelection(const std::vector<SelectionEntry>& entries)
{
    if (simulation) simulation->selection = entries;
    emit UiEvents::instance()->selectionChanged();
}

std::vector<SelectionEntry> currentSelection()
{
    return simulation ? simulation->selection : std::vector<SelectionEntry>();
}

SelectionEntry selectionEntryFor(const std::string& name)
{
    SelectionEntry entry;
    entry.name = name;
    if (simulation) {
        int type = -1;
        if (SceneObject* object = simulation->findByName(name, &type)) {
            entry.typeCode = object->typeCode;
            entry.id = object->id;
            return entry;
        }
    }
    if (nodeMaster) {
        if (BaseNode* node = nodeMaster->findByName(name)) {
            entry.typeCode = kTypeGraphNode;
            entry.id = node->id;
        }
    }
    return entry;
}

ParameterSet* parameterSetOf(const SelectionEntry& entry)
{
    if (entry.typeCode == kTypeGraphNode) return nodeMaster ? nodeMaster->paramSetOf(entry.name) : nullptr;
    if (!simulation) return nullptr;
    SceneObject* object = simulation->findByName(entry.name);
    return object ? &object->params : nullptr;
}
