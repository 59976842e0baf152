// SpreadSheetModel: the points of one Body as a table, one row per point and one column
// per point attribute in the attribute list's name order. The Body is the display Body of
// a graph node, looked up by the node's name on every request and held by shared pointer
// for that one call, or a snapshot of a classic system's points taken on refresh.
#pragma once

#include "geo/body.h"

#include <QAbstractTableModel>

#include <memory>
#include <string>

class SpreadSheetModel : public QAbstractTableModel {
    Q_OBJECT
public:
    explicit SpreadSheetModel(QObject* parent = nullptr);

    // The graph node shown; empty shows nothing.
    std::string nodeName;
    // The classic system shown when no node is; its points are copied on refresh.
    std::string systemName;
    BodyPtr systemBody;

    void setNode(const std::string& name);
    void setSystem(const std::string& name);
    // The Body shown now; null with none.
    BodyPtr currentBody() const;

    // Text of one cell; "exceed" past the attribute list or the attribute's array.
    static QString cellText(const PointData& points, size_t column, size_t row);

    int rowCount(const QModelIndex& parent = QModelIndex()) const override;
    int columnCount(const QModelIndex& parent = QModelIndex()) const override;
    QVariant data(const QModelIndex& index, int role = Qt::DisplayRole) const override;
    QVariant headerData(int section, Qt::Orientation orientation, int role = Qt::DisplayRole) const override;

public slots:
    // The Body may have changed shape: the views read everything again.
    void refresh();
    // Shows the first selected graph node, else the first selected classic system, else nothing.
    void onSelectionChanged();
};
