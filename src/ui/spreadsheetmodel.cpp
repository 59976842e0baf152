#include "ui/spreadsheetmodel.h"

#include "app/globals.h"
#include "app/sceneobject.h"
#include "app/simulation.h"
#include "graph/geonode.h"
#include "graph/nodemaster.h"
#include "ui/uiglobals.h"

#include <QSize>

#include <algorithm>

namespace {

QString number(double v)
{
    return QString::number(v);
}

QString vectorText(const Vec4f& v)
{
    return number(v.x) + ", " + number(v.y) + ", " + number(v.z);
}

QString matrixText(const char* head, const float* m, int n)
{
    QString out = head;
    for (int r = 0; r < n; ++r) {
        for (int c = 0; c < n; ++c) {
            out += number(m[r * n + c]);
            if (c + 1 < n) out += ", ";
        }
        out += "], ";
    }
    return out;
}

template <class A> bool inRange(const void* array, size_t row)
{
    return row < static_cast<const A*>(array)->size();
}

bool isClassicSystem(int typeCode)
{
    return typeCode == kTypeDumbSystem || typeCode == kTypeGranularSystem || typeCode == kTypeSphSystem;
}

// A copy of a classic system's points; null while the solver holds them or without one.
BodyPtr snapshotOf(const std::string& systemName)
{
    if (!simulation || systemName.empty() || !vboMutex.tryLock(5)) return nullptr;
    BodyPtr body = simulation->systemSnapshot(systemName);
    vboMutex.unlock();
    return body;
}

} // namespace

SpreadSheetModel::SpreadSheetModel(QObject* parent) : QAbstractTableModel(parent)
{
    connect(UiEvents::instance(), &UiEvents::selectionChanged, this, &SpreadSheetModel::onSelectionChanged);
    connect(UiEvents::instance(), &UiEvents::viewsNeedRefresh, this, &SpreadSheetModel::refresh);
}

void SpreadSheetModel::setNode(const std::string& name)
{
    beginResetModel();
    nodeName = name;
    systemName.clear();
    systemBody.reset();
    endResetModel();
}

void SpreadSheetModel::setSystem(const std::string& name)
{
    beginResetModel();
    nodeName.clear();
    systemName = name;
    systemBody = snapshotOf(name);
    endResetModel();
}

BodyPtr SpreadSheetModel::currentBody() const
{
    if (!nodeName.empty()) {
        if (!nodeMaster) return nullptr;
        auto* node = dynamic_cast<GeoNode*>(nodeMaster->findByName(nodeName));
        return node ? node->displayBody : nullptr;
    }
    return systemBody;
}

QString SpreadSheetModel::cellText(const PointData& points, size_t column, size_t row)
{
    if (column >= points.names.size() || column >= points.types.size() || column >= points.pointers.size())
        return "exceed";
    const void* a = points.pointers[column];
    if (!a) return "exceed";
    switch (points.types[column]) {
    case ATTRIB_INT:
        if (!inRange<IntArray>(a, row)) return "exceed";
        return QString::number((*static_cast<const IntArray*>(a))[row]);
    case ATTRIB_FLOAT:
        if (!inRange<FloatArray>(a, row)) return "exceed";
        return number((*static_cast<const FloatArray*>(a))[row]);
    case ATTRIB_BOOL:
        if (!inRange<BitArray>(a, row)) return "exceed";
        return static_cast<const BitArray*>(a)->get(row) ? "1" : "0";
    case ATTRIB_STRING:
        if (!inRange<StringArray>(a, row)) return "exceed";
        return QString::fromStdString((*static_cast<const StringArray*>(a))[row]);
    case ATTRIB_VECTOR:
    case ATTRIB_POSITION:
    case ATTRIB_VELOCITY:
    case ATTRIB_COLOR:
    case ATTRIB_NORMAL:
        if (!inRange<VecArray>(a, row)) return "exceed";
        return vectorText((*static_cast<const VecArray*>(a))[row]);
    case ATTRIB_MAT3:
        if (!inRange<Mat3Array>(a, row)) return "exceed";
        return matrixText("Mat3[", (*static_cast<const Mat3Array*>(a))[row].m, 3);
    case ATTRIB_MAT4:
        if (!inRange<Mat4Array>(a, row)) return "exceed";
        return matrixText("Mat4[", (*static_cast<const Mat4Array*>(a))[row].m, 4);
    default:
        return "undef";
    }
}

int SpreadSheetModel::rowCount(const QModelIndex& parent) const
{
    if (parent.isValid()) return 0;
    const BodyPtr body = currentBody();
    return body && body->points ? int(body->points->size()) : 0;
}

int SpreadSheetModel::columnCount(const QModelIndex& parent) const
{
    if (parent.isValid()) return 0;
    const BodyPtr body = currentBody();
    return body && body->points ? int(body->points->numAttribs()) : 0;
}

QVariant SpreadSheetModel::data(const QModelIndex& index, int role) const
{
    if (!index.isValid() || (role != Qt::DisplayRole && role != Qt::SizeHintRole)) return QVariant();
    const BodyPtr body = currentBody();
    if (!body || !body->points) return QVariant();
    const QString text = cellText(*body->points, size_t(index.column()), size_t(index.row()));
    if (role == Qt::SizeHintRole) return QSize(std::max(60, 7 * text.size() + 16), 20);
    return text;
}

QVariant SpreadSheetModel::headerData(int section, Qt::Orientation orientation, int role) const
{
    if (role != Qt::DisplayRole || section < 0) return QVariant();
    if (orientation == Qt::Vertical) return QString::number(section);
    const BodyPtr body = currentBody();
    if (!body || !body->points) return QVariant();
    return QString::fromStdString(body->points->attribName(size_t(section)));
}

void SpreadSheetModel::refresh()
{
    if (!systemName.empty()) {
        if (BodyPtr fresh = snapshotOf(systemName)) systemBody = fresh;
    }
    // A layout change keeps the views' scroll positions while rows and columns may differ.
    emit layoutAboutToBeChanged();
    emit layoutChanged();
    const int rows = rowCount(), columns = columnCount();
    if (rows > 0 && columns > 0) emit dataChanged(index(0, 0), index(rows - 1, columns - 1));
    if (columns > 0) emit headerDataChanged(Qt::Horizontal, 0, columns - 1);
}

void SpreadSheetModel::onSelectionChanged()
{
    const std::vector<SelectionEntry> entries = currentSelection();
    for (const SelectionEntry& e : entries)
        if (e.typeCode == kTypeGraphNode) {
            setNode(e.name);
            return;
        }
    for (const SelectionEntry& e : entries)
        if (isClassicSystem(e.typeCode)) {
            setSystem(e.name);
            return;
        }
    setNode(std::string());
}
