#include "ui/graphnode.h"

#include "graph/basenode.h"
#include "graph/geonode.h"
#include "graph/plug.h"
#include "ui/graphbuttonvisibility.h"
#include "ui/graphedge.h"
#include "ui/graphplug.h"

#include <QFont>
#include <QGraphicsTextItem>
#include <QPainter>
#include <QStyleOptionGraphicsItem>
#include <cstdio>

namespace {

const qreal kStripe = 8.0;

QColor unitColor(float r, float g, float b)
{
    auto c = [](float v) { return int(std::min(1.f, std::max(0.f, v)) * 255.f); };
    return QColor(c(r), c(g), c(b));
}

} // namespace

GraphNode::GraphNode(BaseNode* n) : node(n)
{
    setZValue(-1);
    setFlag(QGraphicsItem::ItemIsMovable);
    setFlag(QGraphicsItem::ItemIsSelectable);
    setFlag(QGraphicsItem::ItemSendsGeometryChanges);
    setAcceptHoverEvents(true);
    setHandlesChildEvents(false);

    nameText = new QGraphicsTextItem(this);
    nameText->setDefaultTextColor(QColor(220, 220, 220));
    QFont font = nameText->font();
    font.setPointSizeF(8.5);
    nameText->setFont(font);
    nameText->setAcceptedMouseButtons(Qt::NoButton);
    nameText->setAcceptHoverEvents(false);

    visibilityButton = new GraphButtonVisibility(this);
    visibilityButton->setPos(kWidth - GraphButtonVisibility::kSize - 6.0,
                             (kHeight - GraphButtonVisibility::kSize) / 2.0);
    updateWithBackend();
}

QRectF GraphNode::boundingRect() const
{
    return QRectF(-2, -2, kWidth + 4, kHeight + 4);
}

void GraphNode::paint(QPainter* painter, const QStyleOptionGraphicsItem*, QWidget*)
{
    if (!node) return;
    painter->setRenderHint(QPainter::Antialiasing);
    const QRectF box(0, 0, kWidth, kHeight);
    const bool enabled = node->enabled;

    QColor frame(20, 20, 20);
    qreal frameWidth = 1.0;
    if (purpleMark) {
        frame = QColor(160, 90, 220);
        frameWidth = 2.0;
    }
    if (isSelected()) {
        frame = QColor(255, 170, 40);
        frameWidth = 2.0;
    } else if (hovered) {
        frame = frame.lighter(180);
    }
    painter->setPen(QPen(frame, frameWidth));
    painter->setBrush(enabled ? bodyColor : bodyColor.darker(160));
    painter->drawRoundedRect(box, 5, 5);

    // the node type's colour down the left side
    QColor stripe = unitColor(node->colorR, node->colorG, node->colorB);
    if (!enabled) stripe = stripe.darker(250);
    painter->setPen(Qt::NoPen);
    painter->setBrush(stripe);
    painter->drawRoundedRect(QRectF(1, 1, kStripe, kHeight - 2), 4, 4);

    const QRectF label(kStripe + 5, 5, kWidth - kStripe - GraphButtonVisibility::kSize - 20, kHeight - 10);
    painter->setBrush(labelColor);
    painter->drawRoundedRect(label, 3, 3);

    if (!enabled) { // a disabled node is crossed out
        painter->setPen(QPen(QColor(200, 80, 60, 160), 1.5));
        painter->drawLine(label.topLeft(), label.bottomRight());
        painter->drawLine(label.bottomLeft(), label.topRight());
    }

    const auto* geo = dynamic_cast<const GeoNode*>(node);
    if (geo && geo->error) { // error marker: a red dot on the top right corner
        painter->setPen(QPen(QColor(30, 0, 0), 1.0));
        painter->setBrush(QColor(230, 40, 40));
        painter->drawEllipse(QPointF(kWidth - 2, 2), 5, 5);
    }
}

void GraphNode::rebuildPlugs()
{
    for (GraphPlug* p : inputs) delete p;
    for (GraphPlug* p : outputs) delete p;
    inputs.clear();
    outputs.clear();
    for (Plug* p : node->inputs) inputs.push_back(new GraphPlug(p, this));
    for (Plug* p : node->outputs) outputs.push_back(new GraphPlug(p, this));
    for (GraphPlug* p : inputs) p->setParentItem(this);
    for (GraphPlug* p : outputs) p->setParentItem(this);
}

void GraphNode::placePlugs()
{
    auto spread = [](std::vector<GraphPlug*>& list, qreal y) {
        const qreal step = kWidth / qreal(list.size() + 1);
        for (size_t i = 0; i < list.size(); ++i) list[i]->setPos(step * qreal(i + 1), y);
    };
    spread(inputs, 0.0);
    spread(outputs, kHeight);
}

void GraphNode::updateWithBackend()
{
    std::printf("updateWithBackend...\n");
    if (!node) return;
    // plugs again only when the node's plug lists changed
    bool same = inputs.size() == node->inputs.size() && outputs.size() == node->outputs.size();
    for (size_t i = 0; same && i < inputs.size(); ++i) same = inputs[i]->plug == node->inputs[i];
    for (size_t i = 0; same && i < outputs.size(); ++i) same = outputs[i]->plug == node->outputs[i];
    if (!same) {
        rebuildPlugs();
        placePlugs();
    }
    readingBack = true;
    setPos(node->posx, node->posy);
    readingBack = false;

    nameText->setPlainText(QString::fromStdString(node->name()));
    const QRectF textBox = nameText->boundingRect();
    nameText->setPos(kStripe + 8, (kHeight - textBox.height()) / 2.0);
    purpleMark = node->processFlag;
    visibilityButton->setState(node->visibility);
    const auto* geo = dynamic_cast<const GeoNode*>(node);
    QString tip = QString::fromStdString(node->nodeKey);
    if (geo && geo->error) tip += "\n" + QString::fromStdString(geo->errorText);
    setToolTip(tip);
    adjustEdges();
    update();
}

GraphPlug* GraphNode::plugItem(const Plug* plug) const
{
    for (const std::vector<GraphPlug*>* list : {&inputs, &outputs})
        for (GraphPlug* p : *list)
            if (p->plug == plug) return p;
    return nullptr;
}

void GraphNode::adjustEdges()
{
    for (GraphPlug* p : inputs) p->adjustEdges();
    for (GraphPlug* p : outputs) p->adjustEdges();
}

void GraphNode::writePosition()
{
    if (!node) return;
    const QPointF p = pos();
    for (const char* key : {"posx", "posy"}) {
        Parameter* row = node->uiParams.get(key);
        if (!row) continue;
        row->text = Parameter::trimmedNumber(key[3] == 'x' ? p.x() : p.y());
        row->evaluate(0.f, 0);
    }
}

QVariant GraphNode::itemChange(GraphicsItemChange change, const QVariant& value)
{
    if (change == ItemPositionHasChanged) {
        if (!readingBack) writePosition();
        adjustEdges();
    }
    return QGraphicsItem::itemChange(change, value);
}

void GraphNode::hoverEnterEvent(QGraphicsSceneHoverEvent*)
{
    hovered = true;
    update();
}

void GraphNode::hoverLeaveEvent(QGraphicsSceneHoverEvent*)
{
    hovered = false;
    update();
}
