// GraphDragConnectionEdge: the wire drawn from the pressed plug to the cursor while the
// user drags a new connection.
#pragma once

#include <QGraphicsPathItem>

class GraphPlug;

class GraphDragConnectionEdge : public QGraphicsPathItem {
public:
    enum { Type = QGraphicsItem::UserType + 4 };

    explicit GraphDragConnectionEdge(GraphPlug* start);

    GraphPlug* start = nullptr;
    QPointF cursor;

    int type() const override { return Type; }
    // The loose end follows the cursor (scene coordinates).
    void moveLooseEnd(QPointF scenePos);
};
