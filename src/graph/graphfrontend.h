// GraphFrontend: what the node editor and the other views want to hear of graph edits.
// The node master calls it where one is attached; headless there is none and every
// call is skipped. The window implements it over its QGraphicsScene items.
#pragma once

class BaseNode;
class Plug;

class GraphFrontend {
public:
    virtual ~GraphFrontend() = default;
    virtual void nodeCreated(BaseNode* node) = 0;
    virtual void nodeRemoved(BaseNode* node) = 0;
    virtual void wireAdded(Plug* from, Plug* to) = 0;
    virtual void wireRemoved(Plug* from, Plug* to) = 0;
    // All items made again from the graph, after a load.
    virtual void rebuild() = 0;
    // Viewport repaint, spreadsheet and selection views after a refresh cook.
    virtual void refreshViews() = 0;
};
