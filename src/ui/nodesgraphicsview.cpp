#include "ui/nodesgraphicsview.h"

#include "app/globals.h"
#include "app/sceneobject.h"
#include "graph/basenode.h"
#include "graph/nodemaster.h"
#include "graph/plug.h"
#include "ui/graphdragconnectionedge.h"
#include "ui/graphedge.h"
#include "ui/graphnode.h"
#include "ui/graphplug.h"
#include "ui/uiglobals.h"

#include <QGraphicsScene>
#include <QThread>
#include <algorithm>
#include <cstdio>
#include <set>

NodesGraphicsView::NodesGraphicsView(NodeMaster* nm, QWidget* parent) : QGraphicsView(parent), master(nm)
{
    graphicsScene = new QGraphicsScene(this);
    graphicsScene->setSceneRect(-20000, -20000, 40000, 40000);
    setScene(graphicsScene);
    setRenderHint(QPainter::Antialiasing);
    setViewportUpdateMode(QGraphicsView::FullViewportUpdate);
    setDragMode(QGraphicsView::RubberBandDrag);
    setTransformationAnchor(QGraphicsView::AnchorUnderMouse);
    setFocusPolicy(Qt::StrongFocus);
    setMouseTracking(true);
    setWindowTitle("Node Editor");
    if (master) master->frontend = this;
    nodeEditor = this;
    connect(graphicsScene, &QGraphicsScene::selectionChanged, this, &NodesGraphicsView::onSceneSelectionChanged);
    connect(UiEvents::instance(), &UiEvents::selectionChanged, this,
            &NodesGraphicsView::onExternalSelectionChanged);
    connect(UiEvents::instance(), &UiEvents::sceneChanged, this, &NodesGraphicsView::syncWithGraph);
    connect(UiEvents::instance(), &UiEvents::parametersChanged, this, &NodesGraphicsView::refreshAllItems);
    rebuild();
    centerOn(0, 0);
}

NodesGraphicsView::~NodesGraphicsView()
{
    if (master && master->frontend == this) master->frontend = nullptr;
    if (nodeEditor == this) nodeEditor = nullptr;
    disconnect(graphicsScene, nullptr, this, nullptr);
    syncingSelection = true;
    clearItems();
}

bool NodesGraphicsView::onGuiThread() const
{
    return QThread::currentThread() == thread();
}

// ---- items ----

GraphNode* NodesGraphicsView::itemOf(const BaseNode* node) const
{
    auto it = nodeItems.find(node);
    return it == nodeItems.end() ? nullptr : it->second;
}

GraphPlug* NodesGraphicsView::plugItemOf(const Plug* plug) const
{
    GraphNode* item = plug ? itemOf(plug->owner) : nullptr;
    return item ? item->plugItem(plug) : nullptr;
}

GraphEdge* NodesGraphicsView::edgeOf(const Plug* from, const Plug* to) const
{
    for (GraphEdge* e : edges)
        if (e->from && e->to && e->from->plug == from && e->to->plug == to) return e;
    return nullptr;
}

void NodesGraphicsView::addEdgeItem(Plug* from, Plug* to)
{
    if (!from || !to) return;
    if (from->isInput()) std::swap(from, to);
    if (edgeOf(from, to)) return;
    GraphPlug* a = plugItemOf(from);
    GraphPlug* b = plugItemOf(to);
    if (!a || !b) return;
    auto* edge = new GraphEdge(a, b);
    graphicsScene->addItem(edge);
    edges.push_back(edge);
    a->update();
    b->update();
}

void NodesGraphicsView::removeEdgeItem(GraphEdge* edge)
{
    edges.erase(std::remove(edges.begin(), edges.end(), edge), edges.end());
    delete edge;
}

void NodesGraphicsView::removeNodeItem(const BaseNode* node)
{
    GraphNode* item = itemOf(node);
    if (!item) return;
    if (dragEdge && dragEdge->start && dragEdge->start->node == item) {
        delete dragEdge;
        dragEdge = nullptr;
    }
    for (GraphEdge* e : std::vector<GraphEdge*>(edges))
        if ((e->from && e->from->node == item) || (e->to && e->to->node == item)) removeEdgeItem(e);
    nodeItems.erase(node);
    delete item;
}

void NodesGraphicsView::clearItems()
{
    delete dragEdge;
    dragEdge = nullptr;
    for (GraphEdge* e : edges) delete e;
    edges.clear();
    for (auto& entry : nodeItems) delete entry.second;
    nodeItems.clear();
}

void NodesGraphicsView::refreshNode(BaseNode* node)
{
    if (GraphNode* item = itemOf(node)) item->updateWithBackend();
    syncWithGraph();
}

void NodesGraphicsView::refreshAllItems()
{
    for (auto& entry : nodeItems) entry.second->updateWithBackend();
    syncWithGraph(); // a node whose plugs changed lost its wires' items
}

void NodesGraphicsView::syncWithGraph()
{
    if (!master) return;
    const std::set<const BaseNode*> alive(master->nodes.begin(), master->nodes.end());
    std::vector<const BaseNode*> gone;
    for (auto& entry : nodeItems)
        if (!alive.count(entry.first)) gone.push_back(entry.first);
    const bool wasSyncing = syncingSelection;
    syncingSelection = true;
    for (const BaseNode* n : gone) removeNodeItem(n);
    for (BaseNode* n : master->nodes)
        if (!itemOf(n)) nodeCreated(n);
    // wires: drop those the graph lost (or whose plugs went), add the missing ones
    for (GraphEdge* e : std::vector<GraphEdge*>(edges)) {
        const bool wired = e->from && e->to && std::find(e->from->plug->connections.begin(),
                                                         e->from->plug->connections.end(),
                                                         e->to->plug) != e->from->plug->connections.end();
        if (!wired) removeEdgeItem(e);
    }
    for (BaseNode* n : master->nodes)
        for (Plug* out : n->outputs)
            for (Plug* to : out->connections) addEdgeItem(out, to);
    syncingSelection = wasSyncing;
}

// ---- GraphFrontend ----

void NodesGraphicsView::nodeCreated(BaseNode* node)
{
    if (!onGuiThread()) {
        QMetaObject::invokeMethod(this, [this] { rebuild(); }, Qt::QueuedConnection);
        return;
    }
    if (!node || itemOf(node)) return;
    auto* item = new GraphNode(node);
    graphicsScene->addItem(item);
    nodeItems[node] = item;
}

void NodesGraphicsView::nodeRemoved(BaseNode* node)
{
    if (!onGuiThread()) {
        QMetaObject::invokeMethod(this, [this] { rebuild(); }, Qt::QueuedConnection);
        return;
    }
    const bool wasSyncing = syncingSelection;
    syncingSelection = true;
    removeNodeItem(node);
    syncingSelection = wasSyncing;
}

void NodesGraphicsView::wireAdded(Plug* from, Plug* to)
{
    if (!onGuiThread()) {
        QMetaObject::invokeMethod(this, [this] { rebuild(); }, Qt::QueuedConnection);
        return;
    }
    addEdgeItem(from, to);
}

void NodesGraphicsView::wireRemoved(Plug* from, Plug* to)
{
    if (!onGuiThread()) {
        QMetaObject::invokeMethod(this, [this] { rebuild(); }, Qt::QueuedConnection);
        return;
    }
    if (from && from->isInput()) std::swap(from, to);
    if (GraphEdge* e = edgeOf(from, to)) {
        GraphPlug* a = e->from;
        GraphPlug* b = e->to;
        removeEdgeItem(e);
        if (a) a->update();
        if (b) b->update();
    }
}

void NodesGraphicsView::rebuild()
{
    if (!onGuiThread()) {
        QMetaObject::invokeMethod(this, [this] { rebuild(); }, Qt::QueuedConnection);
        return;
    }
    std::vector<std::string> selected;
    for (BaseNode* n : selectedNodes()) selected.push_back(n->name());
    syncingSelection = true;
    clearItems();
    if (master) {
        for (BaseNode* n : master->nodes) nodeCreated(n);
        syncWithGraph();
    }
    for (const std::string& name : selected)
        if (BaseNode* n = master ? master->findByName(name) : nullptr)
            if (GraphNode* item = itemOf(n)) item->setSelected(true);
    syncingSelection = false;
}

void NodesGraphicsView::refreshViews()
{
    requestViewsRefresh();
    QMetaObject::invokeMethod(this, [this] { refreshAllItems(); }, Qt::QueuedConnection);
}

// ---- selection ----

std::vector<BaseNode*> NodesGraphicsView::selectedNodes() const
{
    // in the graph's order: the scene's own order of selected items changes from run to run
    std::vector<BaseNode*> out;
    if (!master) return out;
    for (BaseNode* n : master->nodes)
        if (GraphNode* item = itemOf(n))
            if (item->isSelected()) out.push_back(n);
    return out;
}

void NodesGraphicsView::selectNodesByName(const std::vector<std::string>& names)
{
    const bool wasSyncing = syncingSelection;
    syncingSelection = true;
    graphicsScene->clearSelection();
    for (const std::string& name : names)
        if (BaseNode* n = master ? master->findByName(name) : nullptr)
            if (GraphNode* item = itemOf(n)) item->setSelected(true);
    syncingSelection = wasSyncing;
    onSceneSelectionChanged();
}

void NodesGraphicsView::onSceneSelectionChanged()
{
    if (syncingSelection) return;
    std::vector<SelectionEntry> entries;
    for (BaseNode* n : selectedNodes()) {
        SelectionEntry e;
        e.typeCode = kTypeGraphNode;
        e.id = n->id;
        e.name = n->name();
        entries.push_back(e);
    }
    if (entries.empty()) {
        // a click on empty graph leaves a selection of classic objects alone
        bool graphSelected = false;
        for (const SelectionEntry& e : currentSelection()) graphSelected |= e.typeCode == kTypeGraphNode;
        if (!graphSelected) return;
    }
    syncingSelection = true;
    setSelection(entries);
    syncingSelection = false;
}

void NodesGraphicsView::onExternalSelectionChanged()
{
    if (syncingSelection) return;
    syncingSelection = true;
    std::set<std::string> wanted;
    for (const SelectionEntry& e : currentSelection())
        if (e.typeCode == kTypeGraphNode) wanted.insert(e.name);
    for (auto& entry : nodeItems) entry.second->setSelected(wanted.count(entry.first->name()) != 0);
    syncingSelection = false;
}
