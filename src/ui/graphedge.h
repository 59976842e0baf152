// GraphEdge: one wire of the graph in the node editor, a bezier curve from an output plug
// (bottom of its node) down into an input plug (top of its node).
#pragma once

#include <QGraphicsPathItem>

class GraphPlug;

class GraphEdge : public QGraphicsPathItem {
public:
    enum { Type = QGraphicsItem::UserType + 3 };

    // `from` is the output, `to` the input; the edge enters both plugs' lists.
    GraphEdge(GraphPlug* from, GraphPlug* to);
    // Leaves both plugs' lists.
    ~GraphEdge() override;

    GraphPlug* from = nullptr;
    GraphPlug* to = nullptr;

    int type() const override { return Type; }
    // The curve follows the plugs' places again.
    void adjust();
    // The wire's curve between two scene points, output end first.
    static QPainterPath curve(QPointF start, QPointF end);
};
