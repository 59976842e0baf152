// NodesGraphicsView: keys, mouse and the drag of wires.
#include "ui/nodesgraphicsview.h"

#include "app/globals.h"
#include "graph/basenode.h"
#include "graph/nodemaster.h"
#include "graph/plug.h"
#include "graph/plugcache.h"
#include "ui/addnodecommand.h"
#include "ui/connectcommand.h"
#include "ui/graphbuttonvisibility.h"
#include "ui/graphdragconnectionedge.h"
#include "ui/graphnode.h"
#include "ui/graphplug.h"
#include "ui/nodeparamchangecommand.h"
#include "ui/searchablemenu.h"
#include "ui/uiglobals.h"

#include <QCursor>
#include <QGraphicsScene>
#include <QKeyEvent>
#include <QMouseEvent>
#include <QScrollBar>
#include <QUndoStack>
#include <QWheelEvent>
#include <cmath>
#include <cstdio>

namespace {

// The node types of the letter keys.
const char* letterKey(int key)
{
    switch (key) {
    case Qt::Key_M: return "mesh-to-volume";
    case Qt::Key_N: return "null";
    case Qt::Key_P: return "particle-to-volume";
    case Qt::Key_R: return "read";
    case Qt::Key_T: return "transform";
    case Qt::Key_V: return "volume-to-mesh";
    case Qt::Key_W: return "write";
    default: return nullptr;
    }
}

} // namespace

// ---- keys ----

void NodesGraphicsView::toggleRowOfSelected(const std::string& key)
{
    const std::vector<BaseNode*> chosen = selectedNodes();
    if (chosen.empty()) return;
    undoStack()->beginMacro(QString::fromStdString("Toggle " + key));
    for (BaseNode* n : chosen) {
        const Parameter* row = NodeParamChangeCommand::findRow(n->name(), key);
        const bool on = row && row->text == "true";
        if (key == "visibility" && master && master->verbose) std::printf(on ? "aus\n" : "an\n");
        setNodeRow(n, key, on ? "false" : "true");
    }
    undoStack()->endMacro();
}

SearchableMenu* NodesGraphicsView::makeCreateMenu(QPointF scenePos)
{
    std::vector<SearchableMenu::Category> categories;
    if (master)
        for (const NodeMaster::MenuCategory& c : master->menuCategories) {
            SearchableMenu::Category cat;
            cat.name = QString::fromStdString(c.name);
            for (const std::string& k : c.keys) cat.keys.push_back(QString::fromStdString(k));
            categories.push_back(cat);
        }
    auto* menu = new SearchableMenu(categories, this);
    connect(menu, &SearchableMenu::nodeChosen, this, [scenePos](const QString& key) {
        undoStack()->push(new AddNodeCommand(key.toStdString(), scenePos));
    });
    return menu;
}

bool NodesGraphicsView::event(QEvent* e)
{
    // Tab would move the focus on; here it opens the creation menu
    if (e->type() == QEvent::KeyPress && static_cast<QKeyEvent*>(e)->key() == Qt::Key_Tab) {
        keyPressEvent(static_cast<QKeyEvent*>(e));
        return true;
    }
    return QGraphicsView::event(e);
}

void NodesGraphicsView::keyPressEvent(QKeyEvent* e)
{
    const Qt::KeyboardModifiers mods = e->modifiers() & ~Qt::KeypadModifier;
    const int key = e->key();
    if (key == Qt::Key_Tab) {
        const QPointF at = cursorScenePos();
        SearchableMenu* menu = makeCreateMenu(at);
        menu->setAttribute(Qt::WA_DeleteOnClose);
        menu->popup(QCursor::pos());
        return;
    }
    if (key == Qt::Key_Return || key == Qt::Key_Enter) {
        toggleRowOfSelected("visibility");
        refreshAllItems();
        requestViewsRefresh();
        return;
    }
    if (key == Qt::Key_1 && mods == Qt::ControlModifier) {
        toggleRowOfSelected("process");
        refreshAllItems();
        if (master && graphMutex.tryLock(100)) {
            master->cook(false);
            graphMutex.unlock();
        }
        requestViewsRefresh();
        return;
    }
    if (key == Qt::Key_X && mods == Qt::ShiftModifier) {
        // takes the selected nodes out of their wires, the wire bridged over them
        if (master)
            for (BaseNode* n : selectedNodes()) master->extractNode(n, true);
        syncWithGraph();
        markSceneEdited();
        return;
    }
    if (key == Qt::Key_Delete || key == Qt::Key_Backspace) {
        deleteSelected();
        return;
    }
    if (mods != Qt::NoModifier && mods != Qt::ShiftModifier) {
        QGraphicsView::keyPressEvent(e);
        return;
    }
    if (const char* type = letterKey(key)) {
        createNodeDual(type, cursorScenePos(), true);
        return;
    }
    switch (key) {
    case Qt::Key_A: fitAll(); return;
    case Qt::Key_F: fitSelected(); return;
    case Qt::Key_C:
        if (master && master->plugCache) master->plugCache->print();
        return;
    case Qt::Key_D: {
        const std::vector<BaseNode*> chosen = selectedNodes();
        if (!chosen.empty()) setNodeRow(chosen.front(), "enabled", chosen.front()->enabled ? "false" : "true");
        return;
    }
    case Qt::Key_S: connectSelectedChain(graphicsScene->selectedItems()); return;
    default: break;
    }
    QGraphicsView::keyPressEvent(e);
}

// ---- mouse ----

GraphPlug* NodesGraphicsView::plugAt(QPoint viewPos) const
{
    for (QGraphicsItem* item : items(viewPos))
        if (item->type() == GraphPlug::Type) return static_cast<GraphPlug*>(item);
    return nullptr;
}

void NodesGraphicsView::mousePressEvent(QMouseEvent* e)
{
    if (e->button() == Qt::MiddleButton) {
        panning = true;
        panStart = e->pos();
        viewport()->setCursor(Qt::ClosedHandCursor);
        e->accept();
        return;
    }
    if (e->button() == Qt::LeftButton)
        if (GraphPlug* plug = plugAt(e->pos())) {
            beginPlugDrag(plug);
            e->accept();
            return;
        }
    QGraphicsView::mousePressEvent(e);
    moveStart.clear();
    if (e->button() == Qt::LeftButton)
        for (QGraphicsItem* item : graphicsScene->selectedItems())
            if (item->type() == GraphNode::Type) {
                const BaseNode* node = static_cast<GraphNode*>(item)->node;
                moveStart.emplace_back(node->name(), QPointF(node->posx, node->posy));
            }
}

void NodesGraphicsView::finishNodeMove()
{
    std::vector<std::pair<std::string, QPointF>> moved;
    for (const auto& [name, from] : moveStart) {
        const BaseNode* node = master ? master->findByName(name) : nullptr;
        if (node && QPointF(node->posx, node->posy) != from) moved.emplace_back(name, from);
    }
    moveStart.clear();
    if (moved.empty()) return;
    undoStack()->beginMacro("Move nodes");
    for (const auto& [name, from] : moved) {
        const BaseNode* node = master->findByName(name);
        const QPointF to(node->posx, node->posy);
        undoStack()->push(new NodeParamChangeCommand(name, "posx", Parameter::trimmedNumber(from.x()), Parameter::trimmedNumber(to.x())));
        undoStack()->push(new NodeParamChangeCommand(name, "posy", Parameter::trimmedNumber(from.y()), Parameter::trimmedNumber(to.y())));
    }
    undoStack()->endMacro();
}

void NodesGraphicsView::mouseMoveEvent(QMouseEvent* e)
{
    lastCursorScenePos = mapToScene(e->pos());
    if (panning) {
        const QPoint delta = e->pos() - panStart;
        panStart = e->pos();
        horizontalScrollBar()->setValue(horizontalScrollBar()->value() - delta.x());
        verticalScrollBar()->setValue(verticalScrollBar()->value() - delta.y());
        return;
    }
    if (dragEdge) {
        movePlugDrag(lastCursorScenePos);
        return;
    }
    QGraphicsView::mouseMoveEvent(e);
}

void NodesGraphicsView::mouseReleaseEvent(QMouseEvent* e)
{
    if (panning && e->button() == Qt::MiddleButton) {
        panning = false;
        viewport()->unsetCursor();
        return;
    }
    if (dragEdge && e->button() == Qt::LeftButton) {
        endPlugDrag(plugAt(e->pos()));
        return;
    }
    QGraphicsView::mouseReleaseEvent(e);
    if (e->button() == Qt::LeftButton) finishNodeMove();
}

void NodesGraphicsView::wheelEvent(QWheelEvent* e)
{
    const qreal factor = e->angleDelta().y() > 0 ? 1.15 : 1.0 / 1.15;
    const qreal zoom = transform().m11() * factor;
    if (zoom < 0.05 || zoom > 8.0) return;
    scale(factor, factor);
}

// ---- wire drag ----

void NodesGraphicsView::beginPlugDrag(GraphPlug* plug)
{
    if (!plug || !plug->plug) return;
    delete dragEdge;
    dragEdge = nullptr;
    GraphPlug* start = plug;
    // pulling the wire end off an input: the wire goes, the drag goes on from its source
    if (plug->isInput() && !plug->plug->connections.empty() && master) {
        Plug* source = plug->plug->connections.front();
        GraphPlug* sourceItem = plugItemOf(source);
        auto* pull = new ConnectCommand(source, plug->plug);
        pull->disconnecting = true;
        pull->setText("Disconnect");
        undoStack()->push(pull);
        if (sourceItem) start = sourceItem;
    }
    dragEdge = new GraphDragConnectionEdge(start);
    graphicsScene->addItem(dragEdge);
}

void NodesGraphicsView::movePlugDrag(QPointF scenePos)
{
    if (dragEdge) dragEdge->moveLooseEnd(scenePos);
}

bool NodesGraphicsView::endPlugDrag(GraphPlug* target)
{
    if (!dragEdge) return false;
    GraphPlug* start = dragEdge->start;
    delete dragEdge;
    dragEdge = nullptr;
    plugDragDone = true;
    if (!target || !start || target == start) return false;
    Plug* a = start->plug;
    Plug* b = target->plug;
    // a wire the rules refuse goes through the plain path for its message and no undo step
    if (a->isInput() == b->isInput() || a->dataType != b->dataType || a->owner == b->owner) return connectPlugs(a, b);
    undoStack()->push(new ConnectCommand(a, b));
    Plug* in = a->isInput() ? a : b;
    return in->sourcePlug() == (a->isInput() ? b : a);
}

// ---- view ----

void NodesGraphicsView::fitAll()
{
    QRectF box = graphicsScene->itemsBoundingRect();
    if (box.isEmpty()) box = QRectF(-200, -150, 400, 300);
    fitBox(box.adjusted(-40, -40, 40, 40));
}

void NodesGraphicsView::fitBox(const QRectF& box)
{
    fitInView(box, Qt::KeepAspectRatio);
    // a long chain in a short dock would shrink the labels past reading: keep them legible
    // and show the start of the chain instead
    constexpr double kSmallestScale = 0.6;
    if (transform().m11() < kSmallestScale) {
        setTransform(QTransform::fromScale(kSmallestScale, kSmallestScale));
        centerOn(QPointF(box.center().x(), box.top() + viewport()->height() / (2.0 * kSmallestScale)));
    }
}

void NodesGraphicsView::fitSelected()
{
    QRectF box;
    for (QGraphicsItem* item : graphicsScene->selectedItems()) box |= item->sceneBoundingRect();
    if (box.isEmpty()) {
        fitAll();
        return;
    }
    fitBox(box.adjusted(-80, -80, 80, 80));
}

QPointF NodesGraphicsView::cursorScenePos() const
{
    const QPoint local = viewport()->mapFromGlobal(QCursor::pos());
    if (viewport()->rect().contains(local)) return mapToScene(local);
    return mapToScene(viewport()->rect().center());
}

void NodesGraphicsView::drawBackground(QPainter* painter, const QRectF& rect)
{
    painter->fillRect(rect, QColor(40, 40, 40));
    const qreal step = 25.0;
    const qreal left = std::floor(rect.left() / step) * step;
    const qreal top = std::floor(rect.top() / step) * step;
    QVector<QLineF> fine, coarse;
    for (qreal x = left; x < rect.right(); x += step)
        (std::fmod(std::abs(x), step * 5) < 0.5 ? coarse : fine).push_back(QLineF(x, rect.top(), x, rect.bottom()));
    for (qreal y = top; y < rect.bottom(); y += step)
        (std::fmod(std::abs(y), step * 5) < 0.5 ? coarse : fine).push_back(QLineF(rect.left(), y, rect.right(), y));
    painter->setPen(QPen(QColor(46, 46, 46), 0));
    painter->drawLines(fine);
    painter->setPen(QPen(QColor(52, 52, 52), 0));
    painter->drawLines(coarse);
}
