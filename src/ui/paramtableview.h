// ParamTableView: the table of the parameter editor. Ctrl+left-drag across a value cell
// of a literal number changes it (one undo step for the whole drag); the right button
// asks the editor for the row's context menu.
#pragma once

#include <QPoint>
#include <QTableView>

class ParamTableModel;

class ParamTableView : public QTableView {
    Q_OBJECT
public:
    explicit ParamTableView(QWidget* parent = nullptr);

    ParamTableModel* paramModel() const;

    int dragStartX = 0;

signals:
    void contextMenuForRow(int row, const QPoint& globalPos);

protected:
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void contextMenuEvent(QContextMenuEvent* event) override;
};
