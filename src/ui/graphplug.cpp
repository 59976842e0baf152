#include "ui/graphplug.h"

#include "graph/plug.h"
#include "ui/graphedge.h"

#include <QPainter>
#include <algorithm>

GraphPlug::GraphPlug(Plug* p, GraphNode* owner) : plug(p), node(owner)
{
    setAcceptHoverEvents(true);
    setZValue(2);
    if (plug) {
        const size_t type = size_t(std::max(0, plug->dataType));
        const std::string typeName = type < Plug::typeNames.size() ? Plug::typeNames[type] : std::string("?");
        setToolTip(QString::fromStdString(plug->name + " (" + typeName + ")"));
    }
}

GraphPlug::~GraphPlug()
{
    for (GraphEdge* e : edges) {
        if (e->from == this) e->from = nullptr;
        if (e->to == this) e->to = nullptr;
    }
}

QRectF GraphPlug::boundingRect() const
{
    const qreal r = kRadius + 3.0; // a little larger than drawn: easier to hit
    return QRectF(-r, -r, 2 * r, 2 * r);
}

bool GraphPlug::isInput() const
{
    return plug && plug->isInput();
}

QColor GraphPlug::typeColor() const
{
    switch (plug ? plug->dataType : 0) {
    case Plug::SOURCE: return QColor(110, 200, 110);
    case Plug::FORCE: return QColor(220, 200, 90);
    case Plug::COLLIDER: return QColor(220, 110, 100);
    case Plug::SINK: return QColor(170, 120, 220);
    default: return QColor(150, 175, 210);
    }
}

void GraphPlug::paint(QPainter* painter, const QStyleOptionGraphicsItem*, QWidget*)
{
    painter->setRenderHint(QPainter::Antialiasing);
    const QColor base = typeColor();
    painter->setPen(QPen(hovered ? Qt::white : QColor(20, 20, 20), 1.2));
    painter->setBrush(hovered ? base.lighter(140) : base);
    const qreal r = hovered ? kRadius + 1.5 : kRadius;
    painter->drawEllipse(QPointF(0, 0), r, r);
    if (plug && plug->connections.empty()) { // unwired: a dark centre
        painter->setPen(Qt::NoPen);
        painter->setBrush(QColor(40, 40, 40));
        painter->drawEllipse(QPointF(0, 0), r * 0.4, r * 0.4);
    }
}

void GraphPlug::removeEdge(GraphEdge* edge)
{
    edges.erase(std::remove(edges.begin(), edges.end(), edge), edges.end());
    update();
}

void GraphPlug::adjustEdges()
{
    for (GraphEdge* e : edges) e->adjust();
}

void GraphPlug::hoverEnterEvent(QGraphicsSceneHoverEvent*)
{
    hovered = true;
    update();
}

void GraphPlug::hoverLeaveEvent(QGraphicsSceneHoverEvent*)
{
    hovered = false;
    update();
}
