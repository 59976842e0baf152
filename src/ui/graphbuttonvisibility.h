// GraphButtonVisibility: the eye button on a node in the node editor. A click toggles the
// node's `visibility` row (its result is drawn in the viewport) and asks the views to
// refresh.
#pragma once

#include <QGraphicsObject>

class GraphNode;

class GraphButtonVisibility : public QGraphicsObject {
public:
    enum { Type = QGraphicsItem::UserType + 5 };
    static constexpr qreal kSize = 14.0;

    explicit GraphButtonVisibility(GraphNode* parent);

    GraphNode* owner = nullptr;
    bool state = false;
    bool hovered = false;

    int type() const override { return Type; }
    QRectF boundingRect() const override;
    void paint(QPainter* painter, const QStyleOptionGraphicsItem* option, QWidget* widget) override;
    // Shows `on` without touching the node.
    void setState(bool on);
    // Flips the node's visibility row, as a click does.
    void toggle();

protected:
    void mousePressEvent(QGraphicsSceneMouseEvent* event) override;
    void mouseReleaseEvent(QGraphicsSceneMouseEvent* event) override;
    void hoverEnterEvent(QGraphicsSceneHoverEvent* event) override;
    void hoverLeaveEvent(QGraphicsSceneHoverEvent* event) override;
};
