#include "ui/paramtableview.h"

#include "ui/paramitemdelegate.h"
#include "ui/paramtablemodel.h"

#include <QContextMenuEvent>
#include <QHeaderView>
#include <QMouseEvent>

ParamTableView::ParamTableView(QWidget* parent) : QTableView(parent)
{
    setItemDelegate(new ParamItemDelegate(this));
    setEditTriggers(QAbstractItemView::EditKeyPressed | QAbstractItemView::AnyKeyPressed);
    setSelectionBehavior(QAbstractItemView::SelectRows);
    setSelectionMode(QAbstractItemView::SingleSelection);
    setAlternatingRowColors(false);
    setWordWrap(false);
    verticalHeader()->setVisible(false);
    verticalHeader()->setDefaultSectionSize(22);
    horizontalHeader()->setStretchLastSection(true);
    horizontalHeader()->setVisible(false);
    setMouseTracking(false);
}

ParamTableModel* ParamTableView::paramModel() const { return qobject_cast<ParamTableModel*>(model()); }

void ParamTableView::mousePressEvent(QMouseEvent* event)
{
    ParamTableModel* m = paramModel();
    const QModelIndex index = indexAt(event->pos());
    if (m && event->button() == Qt::LeftButton && (event->modifiers() & Qt::ControlModifier) && index.isValid() &&
        index.column() == 1 && m->beginDrag(index.row())) {
        dragStartX = event->pos().x();
        event->accept();
        return;
    }
    QTableView::mousePressEvent(event);
}

void ParamTableView::mouseMoveEvent(QMouseEvent* event)
{
    ParamTableModel* m = paramModel();
    if (m && m->dragging) {
        m->dragBy(event->pos().x() - dragStartX);
        event->accept();
        return;
    }
    QTableView::mouseMoveEvent(event);
}

void ParamTableView::mouseReleaseEvent(QMouseEvent* event)
{
    ParamTableModel* m = paramModel();
    if (m && m->dragging && event->button() == Qt::LeftButton) {
        m->dragBy(event->pos().x() - dragStartX);
        m->endDrag();
        event->accept();
        return;
    }
    QTableView::mouseReleaseEvent(event);
}

void ParamTableView::contextMenuEvent(QContextMenuEvent* event)
{
    const QModelIndex index = indexAt(event->pos());
    if (!index.isValid()) return;
    selectRow(index.row());
    emit contextMenuForRow(index.row(), event->globalPos());
}
