// SelectionItemViewModel: the names of the scene's classic objects, one row each, in the
// order GlobalSettings, systems, geometry objects, sources, colliders, forces. Editing a
// row renames its object through the object's name row.
#pragma once

#include <QAbstractListModel>

#include <string>
#include <vector>

class SelectionItemViewModel : public QAbstractListModel {
    Q_OBJECT
public:
    explicit SelectionItemViewModel(QObject* parent = nullptr);

    std::vector<std::string> names;

    // The names as Simulation's lists hold them now.
    static std::vector<std::string> sceneObjectNames();
    std::string nameAt(int row) const;
    // Row of `name`; -1 when it is not listed.
    int rowOf(const std::string& name) const;

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    bool setData(const QModelIndex& index, const QVariant& value, int role = Qt::EditRole) override;
    Qt::ItemFlags flags(const QModelIndex& index) const override;

public slots:
    // Reads the names again; emits only when something differs, otherwise repaints.
    void refresh();
};
