#include "ui/graphdragconnectionedge.h"

#include "ui/graphedge.h"
#include "ui/graphplug.h"

#include <QPen>

GraphDragConnectionEdge::GraphDragConnectionEdge(GraphPlug* plug) : start(plug)
{
    setZValue(50);
    setAcceptedMouseButtons(Qt::NoButton);
    setPen(QPen(QColor(230, 230, 230), 1.5, Qt::DashLine, Qt::RoundCap));
    moveLooseEnd(plug ? plug->scenePos() : QPointF());
}

void GraphDragConnectionEdge::moveLooseEnd(QPointF scenePos)
{
    cursor = scenePos;
    if (!start) return;
    const QPointF anchor = start->scenePos();
    // the curve always runs from the output side to the input side
    setPath(start->isInput() ? GraphEdge::curve(cursor, anchor) : GraphEdge::curve(anchor, cursor));
}
