#include "ui/outlinerview.h"

#include "app/sceneobject.h"
#include "ui/selectioncommand.h"
#include "ui/selectionitemviewmodel.h"
#include "ui/uiglobals.h"

#include <QItemSelectionModel>
#include <QSignalBlocker>
#include <QUndoStack>

#include <cstdio>

OutlinerView::OutlinerView(QWidget* parent) : QListView(parent)
{
    listModel = new SelectionItemViewModel(this);
    setModel(listModel);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setEditTriggers(QAbstractItemView::DoubleClicked | QAbstractItemView::EditKeyPressed);
    connect(this, &QListView::clicked, this, &OutlinerView::onClicked);
    connect(UiEvents::instance(), &UiEvents::sceneChanged, this, &OutlinerView::onSceneChanged);
    connect(UiEvents::instance(), &UiEvents::selectionChanged, this, &OutlinerView::onSelectionChanged);
}

void OutlinerView::onClicked(const QModelIndex& index)
{
    const std::string name = listModel->nameAt(index.row());
    if (name.empty()) return;
    const SelectionEntry entry = selectionEntryFor(name);
    if (entry.typeCode < 0) {
        std::printf("Outliner: %s not found.\n", name.c_str());
        listModel->refresh();
        return;
    }
    const std::vector<SelectionEntry> before = currentSelection();
    const std::vector<SelectionEntry> after{entry};
    const bool same =
        before.size() == 1 && before.front().name == name && before.front().typeCode == entry.typeCode;
    if (!same) undoStack()->push(new SelectionCommand(before, after));
    emit objectClicked(index);
}

void OutlinerView::onSceneChanged()
{
    listModel->refresh();
    onSelectionChanged();
}

void OutlinerView::onSelectionChanged()
{
    listModel->refresh();
    QItemSelectionModel* sel = selectionModel();
    if (!sel) return;
    const QSignalBlocker blocker(sel);
    sel->clearSelection();
    for (const SelectionEntry& e : currentSelection()) {
        if (e.typeCode == kTypeGraphNode) continue;
        const int row = listModel->rowOf(e.name);
        if (row >= 0) sel->select(listModel->index(row), QItemSelectionModel::Select);
    }
    viewport()->update();
}
