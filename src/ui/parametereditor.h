// ParameterEditor: the dock "Parameters". Shows the rows of the first selected classic
// object or graph node through ParamTableModel and ParamTableView, follows the selection
// and every change of parameters, and offers the row's context menu (keys, reset to
// default, initial state file). Path rows open a file dialog on double click.
#pragma once

#include "app/simulation.h"

#include <QDockWidget>
#include <string>

class ParamTableModel;
class ParamTableView;
class QModelIndex;

class ParameterEditor : public QDockWidget {
    Q_OBJECT
public:
    explicit ParameterEditor(QWidget* parent = nullptr);
    ~ParameterEditor() override;

    ParamTableModel* model = nullptr;
    ParamTableView* table = nullptr;

    // Read and cleared by the main window's loop: a path row of a classic object changed.
    bool filePathChanged = false;
    std::string changedObjectName;
    bool otherFlag = false;

    // The dock's title for the rows of `entry`.
    static QString titleFor(const SelectionEntry& entry);
    static bool isPathKey(const std::string& key);

    // Row actions; each accepted one is one undo step.
    bool resetToDefault(int row);
    bool setKey(int row);
    bool deleteKey(int row);
    // Writes the selected system's present particles to its initial state file and
    // points its initialStateFilePath there.
    bool makeInitialStateFile();
    // Shows nothing until the next refresh with a selection.
    void clearTarget();

public slots:
    void refresh();
    void onTableDoubleClicked(const QModelIndex& index);
    void onTableClicked(const QModelIndex& index);
    void showContextMenu(int row, const QPoint& globalPos);
    void onEdited(const QString& key);

signals:
    // Shift+click on a write button row of the node or object called `name`.
    void writeRequested(const QString& name);

private:
    // A path row's new text from a file dialog (or the collider list); true when edited.
    bool choosePath(int row);
};
