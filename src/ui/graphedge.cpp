#include "ui/graphedge.h"

#include "ui/graphplug.h"

#include <QPen>
#include <algorithm>
#include <cmath>

GraphEdge::GraphEdge(GraphPlug* a, GraphPlug* b) : from(a), to(b)
{
    setZValue(-2);
    setFlag(QGraphicsItem::ItemIsSelectable, false);
    QColor c = from ? from->typeColor() : QColor(150, 175, 210);
    setPen(QPen(c, 2.0, Qt::SolidLine, Qt::RoundCap));
    if (from) from->edges.push_back(this);
    if (to) to->edges.push_back(this);
    adjust();
}

GraphEdge::~GraphEdge()
{
    if (from) from->removeEdge(this);
    if (to) to->removeEdge(this);
}

QPainterPath GraphEdge::curve(QPointF start, QPointF end)
{
    const qreal bend = std::max<qreal>(30.0, std::abs(end.y() - start.y()) * 0.5);
    QPainterPath path(start);
    path.cubicTo(start + QPointF(0, bend), end - QPointF(0, bend), end);
    return path;
}

void GraphEdge::adjust()
{
    if (!from || !to) return;
    setPath(curve(from->scenePos(), to->scenePos()));
}
