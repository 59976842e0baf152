// GraphPlug: one plug of a node in the node editor, a small circle on the node's edge:
// inputs along the top, outputs along the bottom. It knows the wires drawn to it so that
// they follow when its node moves.
#pragma once

#include <QGraphicsItem>
#include <vector>

class GraphEdge;
class GraphNode;
class Plug;

class GraphPlug : public QGraphicsItem {
public:
    enum { Type = QGraphicsItem::UserType + 2 };
    static constexpr qreal kRadius = 5.0;

    GraphPlug(Plug* plug, GraphNode* node);
    // Wires still drawn to the plug lose this end; the view drops them.
    ~GraphPlug() override;

    Plug* plug = nullptr;
    GraphNode* node = nullptr;
    std::vector<GraphEdge*> edges;
    bool hovered = false;

    int type() const override { return Type; }
    QRectF boundingRect() const override;
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget* widget) override;

    bool isInput() const;
    // The colour of the plug's data type, shared with the wires.
    QColor typeColor() const;
    void removeEdge(GraphEdge* edge);
    // Every wire of this plug follows the plug's place again.
    void adjustEdges();

protected:
    void hoverEnterEvent(QGraphicsSceneHoverEvent* event) override;
    void hoverLeaveEvent(QGraphicsSceneHoverEvent* event) override;
};
