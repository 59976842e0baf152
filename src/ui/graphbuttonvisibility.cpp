#include "ui/graphbuttonvisibility.h"

#include "graph/basenode.h"
#include "ui/graphnode.h"
#include "ui/nodesgraphicsview.h"
#include "ui/uiglobals.h"

#include <QGraphicsSceneMouseEvent>
#include <QPainter>

GraphButtonVisibility::GraphButtonVisibility(GraphNode* parent) : QGraphicsObject(parent), owner(parent)
{
    setObjectName("Visibility");
    setZValue(100);
    setAcceptHoverEvents(true);
    setToolTip("Show the result of this node in the viewport");
}

QRectF GraphButtonVisibility::boundingRect() const
{
    return QRectF(0, 0, kSize, kSize);
}

void GraphButtonVisibility::paint(QPainter* painter, const QStyleOptionGraphicsItem*, QWidget*)
{
    painter->setRenderHint(QPainter::Antialiasing);
    const QRectF r = boundingRect().adjusted(1, 1, -1, -1);
    painter->setPen(QPen(hovered ? QColor(220, 220, 220) : QColor(20, 20, 20), 1.0));
    painter->setBrush(state ? QColor(80, 160, 230) : QColor(45, 45, 45));
    painter->drawRoundedRect(r, 3, 3);
    // the eye: an almond with a pupil
    QPainterPath eye;
    const QPointF c = r.center();
    eye.moveTo(c.x() - 5, c.y());
    eye.quadTo(c.x(), c.y() - 5, c.x() + 5, c.y());
    eye.quadTo(c.x(), c.y() + 5, c.x() - 5, c.y());
    painter->setPen(QPen(state ? Qt::white : QColor(120, 120, 120), 1.0));
    painter->setBrush(Qt::NoBrush);
    painter->drawPath(eye);
    painter->setBrush(state ? Qt::white : QColor(120, 120, 120));
    painter->drawEllipse(c, 1.5, 1.5);
}

void GraphButtonVisibility::setState(bool on)
{
    if (state == on) return;
    state = on;
    update();
}

void GraphButtonVisibility::toggle()
{
    BaseNode* node = owner ? owner->node : nullptr;
    if (!node) return;
    const bool on = !node->visibility;
    NodesGraphicsView::setNodeRow(node, "visibility", on ? "true" : "false");
    setState(node->visibility);
    requestViewsRefresh();
}

void GraphButtonVisibility::mousePressEvent(QGraphicsSceneMouseEvent* event)
{
    event->accept(); // keeps the press from selecting or moving the node
}

void GraphButtonVisibility::mouseReleaseEvent(QGraphicsSceneMouseEvent* event)
{
    if (event->button() == Qt::LeftButton && boundingRect().contains(event->pos())) toggle();
    event->accept();
}

void GraphButtonVisibility::hoverEnterEvent(QGraphicsSceneHoverEvent*)
{
    hovered = true;
    update();
}

void GraphButtonVisibility::hoverLeaveEvent(QGraphicsSceneHoverEvent*)
{
    hovered = false;
    update();
}
