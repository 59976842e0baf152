// ParamItemDelegate: the editor of a value cell: a combo box of the entries for list rows
// and bool rows, a line edit for everything else (numbers stay text, so keyframes and
// expressions can be typed).
#pragma once

#include <QStyledItemDelegate>

class ParamItemDelegate : public QStyledItemDelegate {
    Q_OBJECT
public:
    explicit ParamItemDelegate(QObject* parent = nullptr);

    QWidget* createEditor(QWidget* parent, const QStyleOptionViewItem& option, const QModelIndex& index) const override;
    void setEditorData(QWidget* editor, const QModelIndex& index) const override;
    void setModelData(QWidget* editor, QAbstractItemModel* model, const QModelIndex& index) const override;
};
