#include "ui/paramtablemodel.h"

#include "ui/nodeparamchangecommand.h"
#include "ui/paramchangecommand.h"
#include "ui/uiglobals.h"

#include "app/globals.h"
#include "app/sceneobject.h"
#include "app/simstate.h"
#include "graph/nodemaster.h"
#include "params/parameterset.h"

#include <QBrush>
#include <QColor>
#include <QFont>
#include <QUndoStack>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace {

bool readsAsNumber(const std::string& s, double& out)
{
    if (s.empty()) return false;
    char* end = nullptr;
    out = std::strtod(s.c_str(), &end);
    return end && *end == '\0' && end != s.c_str();
}

std::string trimmed(const std::string& s)
{
    const size_t a = s.find_first_not_of(" \t\r\n");
    if (a == std::string::npos) return std::string();
    const size_t b = s.find_last_not_of(" \t\r\n");
    return s.substr(a, b - a + 1);
}

// The number the row's field holds now.
double fieldValue(const Parameter& p)
{
    if (!p.value) return 0.0;
    switch (p.type) {
    case kParamBool: return *static_cast<bool*>(p.value) ? 1.0 : 0.0;
    case kParamFloat: return double(*static_cast<float*>(p.value));
    default: return p.isNumeric() ? double(*static_cast<int32_t*>(p.value)) : 0.0;
    }
}

} // namespace

ParamTableModel::ParamTableModel(QObject* parent) : QAbstractTableModel(parent) {}

void ParamTableModel::setTarget(const SelectionEntry& entry)
{
    target = entry;
    rebuild();
}

void ParamTableModel::clearTarget()
{
    target = SelectionEntry();
    rebuild();
}

void ParamTableModel::rebuild()
{
    beginResetModel();
    rows.clear();
    if (ParameterSet* set = parameterSet())
        for (const Parameter& p : set->parameters)
            if (p.visibility()) rows.push_back(p.index >= 0 ? p.index : int(&p - &set->parameters.front()));
    endResetModel();
}

ParameterSet* ParamTableModel::parameterSet() const
{
    return target.typeCode < 0 ? nullptr : parameterSetOf(target);
}

Parameter* ParamTableModel::parameterAt(int row) const
{
    ParameterSet* set = parameterSet();
    if (!set || row < 0 || size_t(row) >= rows.size() || rows[size_t(row)] >= set->size()) return nullptr;
    return &set->parameters[size_t(rows[size_t(row)])];
}

int ParamTableModel::rowOfKey(const std::string& key) const
{
    for (int r = 0; r < int(rows.size()); ++r)
        if (const Parameter* p = parameterAt(r))
            if (p->key == key) return r;
    return -1;
}

bool ParamTableModel::isNodeTarget() const { return target.typeCode == kTypeGraphNode; }

bool ParamTableModel::isSpecial(const Parameter& p)
{
    return p.key == "blank" || p.key == "label" || p.key == "writeButton";
}

std::string ParamTableModel::displayText(const Parameter& p)
{
    if (isSpecial(p)) return std::string();
    double v = 0.0;
    if (p.type == kParamBool) {
        if (p.text == "true" || p.text == "false") return p.text;
        if (p.text.empty() || readsAsNumber(p.text, v)) return fieldValue(p) != 0.0 ? "true" : "false";
        return p.text; // an expression stays text
    }
    if (p.isListKind()) {
        const auto& entries = p.listEntries();
        if (std::find(entries.begin(), entries.end(), p.text) != entries.end()) return p.text;
        if (readsAsNumber(p.text, v)) {
            const long i = long(v);
            if (i >= 0 && size_t(i) < entries.size()) return entries[size_t(i)];
        }
        return p.text;
    }
    return p.text;
}

bool ParamTableModel::editText(int row, const std::string& input)
{
    Parameter* p = parameterAt(row);
    if (!p || isSpecial(*p) || !p->editable) return false;
    std::string text = p->type == kParamString || p->type == kParamPath ? input : trimmed(input);
    double v = 0.0;
    if (p->type == kParamBool) {
        if (text == "1" || text == "True" || text == "TRUE") text = "true";
        else if (text == "0" || text == "False" || text == "FALSE") text = "false";
    } else if (p->isListKind()) {
        // A chosen entry is written the way the row already writes its value.
        const auto& entries = p->listEntries();
        const auto it = std::find(entries.begin(), entries.end(), text);
        if (it != entries.end() && readsAsNumber(p->text, v)) text = std::to_string(it - entries.begin());
    }
    text = p->clampedText(text);
    if (!p->keys.empty() && readsAsNumber(text, v)) {
        applyOverride(*p, text);
        return true;
    }
    if (text == p->text) return false;
    if (p->type == kParamObjectName && text.empty()) return false;
    pushEdit(target, p->key, p->text, text);
    emit edited(QString::fromStdString(p->key));
    return true;
}

void ParamTableModel::applyOverride(Parameter& p, const std::string& text)
{
    // A number typed over keys holds until the frame changes; the keys stay as they are,
    // so this is no change of the text and no undo step.
    const bool locked = vboMutex.tryLock(1000);
    p.userEdit(text);
    p.evaluate(simState ? float(simState->frame) : 0.f, 0);
    if (locked) vboMutex.unlock();
    if (isNodeTarget() && nodeMaster) nodeMaster->onParameterChanged(&p);
    emit UiEvents::instance()->parametersChanged();
    requestViewsRefresh();
}

void ParamTableModel::pushEdit(const SelectionEntry& entry, const std::string& key, const std::string& oldText,
                               const std::string& newText)
{
    if (entry.typeCode == kTypeGraphNode)
        undoStack()->push(new NodeParamChangeCommand(entry.name, key, oldText, newText));
    else
        undoStack()->push(new ParamChangeCommand(entry.name, key, oldText, newText));
}

bool ParamTableModel::isDraggable(int row) const
{
    const Parameter* p = parameterAt(row);
    double v = 0.0;
    return p && p->editable && (p->type == kParamFloat || p->type == kParamInt) && p->keys.empty() &&
           readsAsNumber(p->text, v);
}

bool ParamTableModel::beginDrag(int row)
{
    if (dragging || !isDraggable(row)) return false;
    Parameter* p = parameterAt(row);
    dragging = true;
    dragRow = row;
    dragKey = p->key;
    dragStartText = dragText = p->text;
    readsAsNumber(p->text, dragStartValue);
    return true;
}

void ParamTableModel::dragBy(int pixels)
{
    if (!dragging) return;
    Parameter* p = parameterAt(dragRow);
    if (!p || p->key != dragKey) return;
    // A step of a hundredth of the start value's order of magnitude per pixel.
    const double magnitude = std::pow(10.0, std::floor(std::log10(std::max(std::fabs(dragStartValue), 1.0))));
    double v = dragStartValue + double(pixels) * magnitude * 0.01;
    if (p->type == kParamInt) v = std::round(dragStartValue + double(pixels) * std::max(magnitude * 0.01, 0.1));
    if (p->hasMin && v < p->minValue) v = p->minValue;
    if (p->hasMax && v > p->maxValue) v = p->maxValue;
    const std::string text = p->type == kParamInt ? std::to_string(long(v)) : Parameter::trimmedNumber(v);
    if (text == dragText) return;
    applyLive(text);
}

void ParamTableModel::applyLive(const std::string& text)
{
    dragText = text;
    if (isNodeTarget())
        NodeParamChangeCommand::applyText(target.name, dragKey, text, "Node Param Change Redo: Parameter not found.\n");
    else
        ParamChangeCommand::applyText(target.name, dragKey, text);
    emit dataChanged(index(dragRow, 0), index(dragRow, 1));
    requestViewsRefresh();
}

bool ParamTableModel::endDrag()
{
    if (!dragging) return false;
    dragging = false;
    if (dragText == dragStartText) return false;
    pushEdit(target, dragKey, dragStartText, dragText);
    emit edited(QString::fromStdString(dragKey));
    return true;
}

int ParamTableModel::rowCount(const QModelIndex& parent) const
{
    return parent.isValid() ? 0 : int(rows.size());
}

int ParamTableModel::columnCount(const QModelIndex& parent) const { return parent.isValid() ? 0 : 2; }

QVariant ParamTableModel::data(const QModelIndex& index, int role) const
{
    const Parameter* p = index.isValid() ? parameterAt(index.row()) : nullptr;
    if (!p) return QVariant();
    const bool valueCell = index.column() == 1;
    switch (role) {
    case Qt::DisplayRole:
        if (!valueCell) return p->key == "blank" ? QString() : QString::fromStdString(p->label);
        if (!p->keys.empty() && !p->overridden) return QString::fromStdString(p->resolved); // the keyed value now
        if (p->overridden) return QString::fromStdString(Parameter::trimmedNumber(p->overrideValue));
        return QString::fromStdString(displayText(*p));
    case Qt::EditRole:
        if (!valueCell) return QString::fromStdString(p->label);
        return QString::fromStdString(p->type == kParamBool || p->isListKind() ? displayText(*p) : p->text);
    case Qt::CheckStateRole:
        if (valueCell && p->type == kParamBool && p->value) return fieldValue(*p) != 0.0 ? Qt::Checked : Qt::Unchecked;
        return QVariant();
    case Qt::ToolTipRole:
        return p->toolTip.empty() ? QVariant() : QVariant(QString::fromStdString(p->toolTip));
    case Qt::BackgroundRole:
        if (p->key == "label") return QBrush(QColor(48, 52, 58));
        if (p->key == "writeButton") return QBrush(QColor(70, 90, 70));
        if (p->overridden) return QBrush(QColor(130, 100, 30)); // a typed value over keys
        if (!p->keys.empty()) return QBrush(QColor(120, 55, 45));  // keyed
        if (p->hasExpression) return QBrush(QColor(40, 75, 115));  // expression, reference or token
        return QVariant();
    case Qt::FontRole:
        if (p->key == "label" || p->key == "writeButton") {
            QFont f;
            f.setBold(true);
            return f;
        }
        return QVariant();
    case Qt::ForegroundRole:
        if (!p->editable) return QBrush(QColor(140, 140, 140));
        return QVariant();
    default:
        return QVariant();
    }
}

bool ParamTableModel::setData(const QModelIndex& index, const QVariant& value, int role)
{
    if (!index.isValid() || index.column() != 1) return false;
    const Parameter* p = parameterAt(index.row());
    if (!p) return false;
    std::string text;
    if (role == Qt::CheckStateRole) {
        if (p->type != kParamBool) return false;
        text = value.toInt() == Qt::Checked ? "true" : "false";
    } else if (role == Qt::EditRole) {
        text = value.type() == QVariant::Bool ? (value.toBool() ? "true" : "false") : value.toString().toStdString();
    } else {
        return false;
    }
    return editText(index.row(), text);
}

Qt::ItemFlags ParamTableModel::flags(const QModelIndex& index) const
{
    const Parameter* p = index.isValid() ? parameterAt(index.row()) : nullptr;
    if (!p) return Qt::NoItemFlags;
    Qt::ItemFlags f = Qt::ItemIsEnabled | Qt::ItemIsSelectable;
    if (index.column() == 1 && !isSpecial(*p) && p->editable) {
        f |= Qt::ItemIsEditable;
        if (p->type == kParamBool) f |= Qt::ItemIsUserCheckable;
    }
    return f;
}

QVariant ParamTableModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role != Qt::DisplayRole || orientation != Qt::Horizontal) return QVariant();
    return section == 0 ? QStringLiteral("Parameter") : QStringLiteral("Value");
}
