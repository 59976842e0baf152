// The main window's keyboard: play and pause, the gizmo modes, display toggles on the
// global settings, hiding, frame stepping, and copy, cut and paste of objects and nodes.
#include "ui/mainwindow.h"

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/sceneobject.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "graph/basenode.h"
#include "graph/nodemaster.h"
#include "ui/deletecommand.h"
#include "ui/nodeparamchangecommand.h"
#include "ui/nodesgraphicsview.h"
#include "ui/keyframes.h"
#include "ui/openglwidget.h"
#include "ui/paramchangecommand.h"
#include "ui/paramtablemodel.h"
#include "ui/pastecommand.h"
#include "ui/uiglobals.h"

#include <QApplication>
#include <QClipboard>
#include <QKeyEvent>
#include <QUndoStack>
#include <cstdio>


// Sets or deletes keys at the present frame on three transform rows ("translate", "rotate"
// or "scale") of every selected object, as one undo step.
void MainWindow::keyTransform(const char* prefix, bool remove)
{
    const std::vector<SelectionEntry> selection = currentSelection();
    if (selection.empty()) return;
    undoStack()->beginMacro(remove ? "Delete keys" : "Set keys");
    for (const SelectionEntry& e : selection) {
        ParameterSet* set = parameterSetOf(e);
        if (!set) continue;
        for (const char* axis : {"X", "Y", "Z"}) {
            const std::string key = std::string(prefix) + axis;
            const Parameter* row = set->get(key);
            if (!row) continue;
            const double frame = double(simState->frame);
            std::string text = textWithKey(*row, frame, fieldValue(*row));
            if (remove && !textWithoutKey(*row, frame, text)) continue;
            ParamTableModel::pushEdit(e, key, row->text, text);
        }
    }
    undoStack()->endMacro();
}

void MainWindow::toggleGlobalRow(const char* key)
{
    GlobalSettings* settings = simulation->globalSettings;
    Parameter* row = settings ? settings->params.get(key) : nullptr;
    if (!row) return;
    const bool on = row->text == "1" || row->text == "true";
    undoStack()->push(new ParamChangeCommand(settings->name, key, row->text, on ? "0" : "1"));
    if (glWidget) glWidget->update();
}

void MainWindow::setSelectedVisibility(bool visible)
{
    const std::vector<SelectionEntry> selection = currentSelection();
    if (selection.empty()) return;
    std::printf(visible ? "unhide\n" : "hide\n");
    std::fflush(stdout);
    undoStack()->beginMacro(visible ? "Show" : "Hide");
    for (const SelectionEntry& e : selection) {
        if (e.typeCode == kTypeGraphNode) {
            if (Parameter* row = master->getParam(e.name, "visibility"))
                undoStack()->push(new NodeParamChangeCommand(e.name, "visibility", row->text, visible ? "1" : "0"));
        } else if (ParameterSet* set = parameterSetOf(e)) {
            if (Parameter* row = set->get("visible"))
                undoStack()->push(new ParamChangeCommand(e.name, "visible", row->text, visible ? "true" : "false"));
        }
    }
    undoStack()->endMacro();
    requestViewsRefresh();
}

void MainWindow::keyPressEvent(QKeyEvent* event)
{
    const Qt::KeyboardModifiers mods = event->modifiers();
    const bool ctrl = mods & Qt::ControlModifier;
    const bool shift = mods & Qt::ShiftModifier;
    switch (event->key()) {
    case Qt::Key_Space:
        togglePlay();
        return;
    case Qt::Key_W:
    case Qt::Key_E:
    case Qt::Key_R: {
        if (mods != Qt::NoModifier) {
            // with a modifier: key the selected objects' transform; Shift takes the key out
            const char* prefix = event->key() == Qt::Key_W ? "translate" : event->key() == Qt::Key_E ? "rotate" : "scale";
            const char* line = event->key() == Qt::Key_W ? (shift ? "key del pos\n" : "key pos\n")
                             : event->key() == Qt::Key_E ? (shift ? "key del rot\n" : "key rot\n")
                                                         : (shift ? "key del scale\n" : "key scale\n");
            std::printf("%s", line);
            std::fflush(stdout);
            keyTransform(prefix, shift);
            return;
        }
        if (glWidget)
            glWidget->setGizmoMode(event->key() == Qt::Key_W   ? OpenGLWidget::GizmoTranslate
                                   : event->key() == Qt::Key_E ? OpenGLWidget::GizmoRotate
                                                               : OpenGLWidget::GizmoScale);
        return;
    }
    case Qt::Key_Q:
        if (glWidget) glWidget->setGizmoMode(OpenGLWidget::GizmoOff);
        return;
    case Qt::Key_M:
        if (glWidget) glWidget->toggleGizmoSpace();
        return;
    case Qt::Key_G:
        toggleGlobalRow(shift ? "collideGround" : "drawGrid");
        return;
    case Qt::Key_X:
        if (ctrl) break;
        toggleGlobalRow(shift ? "wireframeOnShaded" : "wireframe");
        return;
    case Qt::Key_H:
        if (ctrl) setSelectedVisibility(false);
        else if (shift) setSelectedVisibility(true);
        return;
    case Qt::Key_C:
        if (ctrl) copy();
        else if (glWidget) glWidget->lookThroughNextCamera();
        return;
    case Qt::Key_V:
        if (ctrl) paste();
        return;
    case Qt::Key_F:
        if (glWidget) glWidget->frameAll();
        return;
    default:
        break;
    }
    QMainWindow::keyPressEvent(event);
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event)
{
    if (event->type() == QEvent::KeyPress) {
        auto* key = static_cast<QKeyEvent*>(event);
        // arrows step frames unless a text field or a list wants them
        QWidget* focus = QApplication::focusWidget();
        const bool editing = focus && (focus->inherits("QLineEdit") || focus->inherits("QAbstractItemView") ||
                                       focus->inherits("QAbstractSpinBox"));
        if (!editing && (key->key() == Qt::Key_Left || key->key() == Qt::Key_Right) && watched == focus) {
            stepFrame(key->key() == Qt::Key_Left ? -1 : 1);
            return true;
        }
    } else if (event->type() == QEvent::KeyRelease) {
        auto* key = static_cast<QKeyEvent*>(event);
        if (key->key() == Qt::Key_Control && nodeView && nodeView->plugDragDone) {
            std::printf("control release after plug drag\n");
            nodeView->plugDragDone = false;
        }
    }
    return QMainWindow::eventFilter(watched, event);
}

void MainWindow::copy()
{
    const std::vector<SelectionEntry> selection = currentSelection();
    if (nodeView && (nodeView->hasFocus() || (!selection.empty() && selection.front().typeCode == kTypeGraphNode))) {
        nodeView->copySelected();
        return;
    }
    if (selection.empty() || selection.front().typeCode > kTypeCollider) return;
    const std::string text = copyObjectText(selection.front().name);
    if (!text.empty()) QApplication::clipboard()->setText(QString::number(selection.front().typeCode) + "\n" + QString::fromStdString(text));
}

void MainWindow::paste()
{
    const QString text = QApplication::clipboard()->text();
    const int newline = text.indexOf('\n');
    bool isObject = false;
    const int typeCode = newline > 0 ? text.left(newline).toInt(&isObject) : -1;
    if (isObject && typeCode >= 0 && typeCode <= kTypeCollider) {
        undoStack()->push(new PasteCommand(typeCode, text.mid(newline + 1).toStdString()));
        return;
    }
    if (nodeView) nodeView->pasteNodes();
}

void MainWindow::cut()
{
    copy();
    const std::vector<SelectionEntry> selection = currentSelection();
    if (selection.empty() || selection.front().typeCode == kTypeGlobalSettings) return;
    undoStack()->push(new DeleteCommand(selection));
}
