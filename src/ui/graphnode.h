// GraphNode: one node of the graph in the node editor: a rounded box with the node's
// colour stripe, its name, its plugs (inputs on top, outputs below) and its visibility
// button. The item's place mirrors the node's posx/posy rows both ways.
#pragma once

#include <QGraphicsItem>
#include <vector>

class BaseNode;
class GraphButtonVisibility;
class GraphPlug;
class Plug;
class QGraphicsTextItem;

class GraphNode : public QGraphicsItem {
public:
    enum { Type = QGraphicsItem::UserType + 1 };
    static constexpr qreal kWidth = 150.0;
    static constexpr qreal kHeight = 32.0;

    explicit GraphNode(BaseNode* node);

    BaseNode* node = nullptr;
    std::vector<GraphPlug*> inputs;
    std::vector<GraphPlug*> outputs;
    GraphButtonVisibility* visibilityButton = nullptr;
    QGraphicsTextItem* nameText = nullptr;
    QColor bodyColor{60, 60, 60, 255};
    QColor labelColor{30, 30, 30, 255};
    // Drawn with a purple frame: the node is a cook target (its `process` row is on).
    bool purpleMark = false;
    bool hovered = false;

    int type() const override { return Type; }
    QRectF boundingRect() const override;
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget* widget) override;

    // Place, name, colour, flags and plugs read again from the node.
    void updateWithBackend();
    GraphPlug* plugItem(const Plug* plug) const;
    // Every wire of every plug follows the plugs again.
    void adjustEdges();

protected:
    QVariant itemChange(GraphicsItemChange change, const QVariant& value) override;
    void hoverEnterEvent(QGraphicsSceneHoverEvent* event) override;
    void hoverLeaveEvent(QGraphicsSceneHoverEvent* event) override;

private:
    bool readingBack = false; // updateWithBackend is moving the item: no write to the rows
    void rebuildPlugs();
    void placePlugs();
    void writePosition();
};
