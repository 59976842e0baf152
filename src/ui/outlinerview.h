// OutlinerView: the scene's objects as a plain list. A click selects the object (one undo
// step) and reports the row; a double click renames it in place.
#pragma once

#include <QListView>

class SelectionItemViewModel;

class OutlinerView : public QListView {
    Q_OBJECT
public:
    explicit OutlinerView(QWidget* parent = nullptr);

    SelectionItemViewModel* listModel = nullptr;

signals:
    void objectClicked(const QModelIndex& index);

public slots:
    // Selects the object of the row through the undo stack and emits objectClicked.
    void onClicked(const QModelIndex& index);
    // The rows follow the scene's objects.
    void onSceneChanged();
    // The highlighted rows follow Simulation::selection.
    void onSelectionChanged();
};
