// The window's shared records: the global pointers of its parts, the one undo stack, a
// hub of signals the views listen to, and the selection helpers every view goes through.
// Nothing here exists in a headless run; tests make the parts they need themselves.
#pragma once

#include "app/sceneobject.h"
#include "app/simulation.h"

#include <QObject>
#include <string>
#include <vector>

class MainWindow;
class OpenGLWidget;
class NodesGraphicsView;
class ParameterEditor;
class ParameterSet;
class QUndoStack;

extern MainWindow* mainWindow;
extern OpenGLWidget* viewport;
extern NodesGraphicsView* nodeEditor;
extern ParameterEditor* parameterEditor;

// The one undo stack of the process (made on first use).
QUndoStack* undoStack();

// Signals between the views. Emitted on the main thread only; code on the solver
// thread calls requestViewsRefresh(), which queues the signal.
class UiEvents : public QObject {
    Q_OBJECT
public:
    static UiEvents* instance();

signals:
    // Simulation::selection changed: parameter editor, outliner, viewport, spreadsheet.
    void selectionChanged();
    // Objects or nodes were added, removed or renamed: outliner, node editor.
    void sceneChanged();
    // A row's text changed through an edit or an undo: parameter editor, viewport.
    void parametersChanged();
    // Frame changed or a cook finished: viewport buffers, spreadsheet.
    void viewsNeedRefresh();
    // The scene now differs from its file (title gets " *").
    void sceneEdited();
};

// Queues UiEvents::viewsNeedRefresh from any thread.
void requestViewsRefresh();
// Emits sceneEdited.
void markSceneEdited();

// Selection. Entries of graph nodes carry kTypeGraphNode, the node's id and name.
// setSelection writes Simulation::selection and emits selectionChanged.
void setSelection(const std::vector<SelectionEntry>& entries);
std::vector<SelectionEntry> currentSelection();
// The classic object or node called `name`; typeCode -1 when nothing has that name.
SelectionEntry selectionEntryFor(const std::string& name);
// The rows of an entry's object or node, found by name; null when it is gone.
ParameterSet* parameterSetOf(const SelectionEntry& entry);
