#include "ui/selectionitemviewmodel.h"

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/sceneobject.h"
#include "app/simulation.h"
#include "ui/paramchangecommand.h"
#include "ui/uiglobals.h"

#include <QUndoStack>

#include <QFont>

#include <cstdio>

SelectionItemViewModel::SelectionItemViewModel(QObject* parent) : QAbstractListModel(parent)
{
    names = sceneObjectNames();
}

std::vector<std::string> SelectionItemViewModel::sceneObjectNames()
{
    std::vector<std::string> out;
    if (!simulation) return out;
    // Registry order within each kind is the order of creation, as in Simulation's lists.
    static const int kinds[] = {kTypeGlobalSettings, kTypeDumbSystem, kTypeGranularSystem, kTypeSphSystem,
                                kTypeObject,         kTypeSource,     kTypeCollider,       kTypeForce};
    for (int kind : kinds)
        for (const SceneObject* o : simulation->objectsById)
            if (o && o->typeCode == kind) out.push_back(o->name);
    return out;
}

std::string SelectionItemViewModel::nameAt(int row) const
{
    return row >= 0 && row < int(names.size()) ? names[size_t(row)] : std::string();
}

int SelectionItemViewModel::rowOf(const std::string& name) const
{
    for (size_t i = 0; i < names.size(); ++i)
        if (names[i] == name) return int(i);
    return -1;
}

int SelectionItemViewModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(names.size());
}

QVariant SelectionItemViewModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || index.row() >= int(names.size())) return QVariant();
    const std::string& name = names[size_t(index.row())];
    if (role == Qt::DisplayRole || role == Qt::EditRole) return QString::fromStdString(name);
    if (role == Qt::FontRole) {
        for (const SelectionEntry& e : currentSelection())
            if (e.typeCode != kTypeGraphNode && e.name == name) {
                QFont font;
                font.setBold(true);
                return font;
            }
    }
    return QVariant();
}

bool SelectionItemViewModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (!index.isValid() || role != Qt::EditRole || index.row() >= int(names.size()) || !simulation)
        return false;
    const std::string oldName = names[size_t(index.row())];
    const std::string wanted = value.toString().trimmed().toStdString();
    if (wanted.empty() || wanted == oldName) return false;
    SceneObject* object = simulation->findByName(oldName);
    Parameter* row = object ? object->params.get("nodeName") : nullptr;
    if (!row) {
        std::printf("Outliner: %s cannot be renamed.\n", oldName.c_str());
        return false;
    }
    // The name row renames through Simulation, which keeps names unique; as an undo step
    // the command follows the object under its new name and keeps the selection on it.
    undoStack()->push(new ParamChangeCommand(oldName, "nodeName", row->text, wanted));
    names[size_t(index.row())] = object->name;
    emit dataChanged(index, index);
    return true;
}

Qt::ItemFlags SelectionItemViewModel::flags(const QModelIndex& index) const
{
    if (!index.isValid()) return Qt::NoItemFlags;
    Qt::ItemFlags f = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (simulation && simulation->globalSettings && nameAt(index.row()) != simulation->globalSettings->name)
        f |= Qt::ItemIsEditable;
    return f;
}

void SelectionItemViewModel::refresh()
{
    std::vector<std::string> fresh = sceneObjectNames();
    if (fresh != names) {
        beginResetModel();
        names.swap(fresh);
        endResetModel();
    } else if (!names.empty()) {
        emit dataChanged(index(0), index(int(names.size()) - 1));
    }
}
