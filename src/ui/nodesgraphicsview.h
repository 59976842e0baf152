// NodesGraphicsView: the node editor. It shows the node master's graph as items of its own
// scene (GraphNode, GraphPlug, GraphEdge), hears the node master's edits through the
// GraphFrontend calls, and turns the user's keys, clicks and drags into graph edits.
#pragma once

#include "graph/graphfrontend.h"

#include <QGraphicsView>
#include <QPointF>
#include <map>
#include <string>
#include <vector>

class BaseNode;
class GraphDragConnectionEdge;
class GraphEdge;
class GraphNode;
class GraphPlug;
class NodeMaster;
class Plug;
class SearchableMenu;

class NodesGraphicsView : public QGraphicsView, public GraphFrontend {
    Q_OBJECT
public:
    explicit NodesGraphicsView(NodeMaster* master, QWidget* parent = nullptr);
    ~NodesGraphicsView() override;

    NodeMaster* master = nullptr;
    std::map<const BaseNode*, GraphNode*> nodeItems;
    std::vector<GraphEdge*> edges;
    GraphDragConnectionEdge* dragEdge = nullptr;
    QPointF lastCursorScenePos;

    QGraphicsScene* graphScene() const { return graphicsScene; }
    GraphNode* itemOf(const BaseNode* node) const;
    GraphPlug* plugItemOf(const Plug* plug) const;
    GraphEdge* edgeOf(const Plug* from, const Plug* to) const;

    // Selection.
    std::vector<BaseNode*> selectedNodes() const;
    void selectNodesByName(const std::vector<std::string>& names);

    // Edits (nodesgraphicsviewedits.cpp).
    BaseNode* createNodeDual(const QString& key, QPointF scenePos, bool wireBehindSelection);
    void copySelected();
    void pasteNodes();
    // Saves the named nodes and every wire touching them as text, then deletes them.
    std::string removeNodes(const std::vector<std::string>& names);
    // Loads what removeNodes saved, under the same names, with the outside wires again.
    std::vector<std::string> restoreNodes(const std::string& saved);
    // Connects two plugs (either order) by the node master's rule; true when wired.
    bool connectPlugs(Plug* a, Plug* b);
    // Wires the selected nodes one after the other, top to bottom, then cooks.
    void connectSelectedChain(const QList<QGraphicsItem*>& items);
    void deleteSelected();
    // The node creation menu, filled from the node master's categories; a choice pushes
    // an AddNodeCommand at `scenePos`.
    SearchableMenu* makeCreateMenu(QPointF scenePos);
    // Sets a row of a node as an undoable edit.
    static void setNodeRow(BaseNode* node, const std::string& key, const std::string& text);

    // Cooks the graph if nobody else holds it and the refresh is wanted.
    void cookGraph();
    void fitAll();
    void fitSelected();
    // Fits the view to a scene rectangle, never zooming out so far that labels can't be read.
    void fitBox(const QRectF& box);
    // After a left release: the selected nodes that moved since the press, as one undo step.
    void finishNodeMove();
    // One node's item (place, name, plugs, button) read from the node again.
    void refreshNode(BaseNode* node);
    void refreshAllItems();
    // Items made or dropped where the graph has or lacks nodes and wires.
    void syncWithGraph();
    // The scene point under the mouse, or the view's centre when the mouse is elsewhere.
    QPointF cursorScenePos() const;

    // GraphFrontend.
    void nodeCreated(BaseNode* node) override;
    void nodeRemoved(BaseNode* node) override;
    void wireAdded(Plug* from, Plug* to) override;
    void wireRemoved(Plug* from, Plug* to) override;
    void rebuild() override;
    void refreshViews() override;

    // The drag of a wire, as the mouse makes it (public for tests and the main window).
    void beginPlugDrag(GraphPlug* plug);
    void movePlugDrag(QPointF scenePos);
    // Ends the drag over `target` (null: over nothing); true when a wire was made.
    bool endPlugDrag(GraphPlug* target);
    // Where the selected nodes stood when a left press began: their move is one undo step.
    std::vector<std::pair<std::string, QPointF>> moveStart;
    bool plugDragDone = false; // a drag ended since the last check of the main window

protected:
    bool event(QEvent* event) override;
    void keyPressEvent(QKeyEvent* event) override;
    void mousePressEvent(QMouseEvent* event) override;
    void mouseMoveEvent(QMouseEvent* event) override;
    void mouseReleaseEvent(QMouseEvent* event) override;
    void wheelEvent(QWheelEvent* event) override;
    void drawBackground(QPainter* painter, const QRectF& rect) override;

private:
    QGraphicsScene* graphicsScene = nullptr;
    bool syncingSelection = false;
    bool panning = false;
    QPoint panStart;

    GraphPlug* plugAt(QPoint viewPos) const;
    void addEdgeItem(Plug* from, Plug* to);
    void removeEdgeItem(GraphEdge* edge);
    void removeNodeItem(const BaseNode* node);
    void clearItems();
    void onSceneSelectionChanged();
    void onExternalSelectionChanged();
    bool onGuiThread() const;
    void toggleRowOfSelected(const std::string& key);
};
