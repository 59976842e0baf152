// NodesGraphicsView: the edits the node editor makes on the graph: new nodes, copy and
// paste, removal with the means to restore, wires.
#include "ui/nodesgraphicsview.h"

#include "app/globals.h"
#include "app/sceneobject.h"
#include "graph/basenode.h"
#include "graph/nodemaster.h"
#include "graph/plug.h"
#include "ui/addnodecommand.h"
#include "ui/deletecommand.h"
#include "ui/graphnode.h"
#include "ui/nodeparamchangecommand.h"
#include "ui/nodespastedcommand.h"
#include "ui/uiglobals.h"

#include <QApplication>
#include <QClipboard>
#include <QUndoStack>
#include <tinyxml2.h>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <set>

namespace {

// Holds graphMutex for a structural edit when it can be had soon; an edit made while the
// solver keeps it goes on without (the solver only cooks between steps of a running
// simulation, and edits come from a paused one nearly always).
struct GraphEditLock {
    bool locked = graphMutex.tryLock(500);
    GraphEditLock()
    {
        if (!locked) std::printf("node editor: the graph stayed busy; editing without the lock.\n");
    }
    ~GraphEditLock()
    {
        if (locked) graphMutex.unlock();
    }
};

std::string documentText(const tinyxml2::XMLDocument& doc)
{
    tinyxml2::XMLPrinter printer;
    doc.Print(&printer);
    return printer.CStr();
}

std::string lowerCase(std::string s)
{
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

} // namespace

// ---- nodes ----

BaseNode* NodesGraphicsView::createNodeDual(const QString& key, QPointF scenePos, bool wireBehindSelection)
{
    if (!master) return nullptr;
    std::string behind;
    if (wireBehindSelection) {
        const std::vector<BaseNode*> chosen = selectedNodes();
        if (!chosen.empty()) behind = chosen.front()->name();
    }
    auto* command = new AddNodeCommand(key.toStdString(), scenePos, behind);
    undoStack()->push(command); // redo runs here
    const std::string made = command->createdName();
    return made.empty() ? nullptr : master->findByName(made);
}

void NodesGraphicsView::setNodeRow(BaseNode* node, const std::string& key, const std::string& text)
{
    if (!node) return;
    Parameter* row = NodeParamChangeCommand::findRow(node->name(), key);
    if (!row) {
        std::printf("get parameter error - parameter not found! (%s) - node: %s\n", key.c_str(),
                    node->name().c_str());
        return;
    }
    undoStack()->push(new NodeParamChangeCommand(node->name(), key, row->text, text));
    if (nodeEditor)
        if (GraphNode* item = nodeEditor->itemOf(node)) item->updateWithBackend();
}

void NodesGraphicsView::deleteSelected()
{
    std::vector<SelectionEntry> entries;
    for (BaseNode* n : selectedNodes()) entries.push_back(selectionEntryFor(n->name()));
    if (entries.empty()) return;
    undoStack()->push(new DeleteCommand(entries));
}

// ---- copy and paste ----

void NodesGraphicsView::copySelected()
{
    const std::vector<BaseNode*> chosen = selectedNodes();
    if (chosen.empty() || !master) {
        std::printf("nothing selected to copy.\n");
        return;
    }
    master->copyNodes(chosen);
    tinyxml2::XMLDocument doc;
    if (master->saveGraph(std::string(), chosen, &doc) == 0)
        QApplication::clipboard()->setText(QString::fromStdString(documentText(doc)));
}

void NodesGraphicsView::pasteNodes()
{
    if (!master) return;
    std::vector<BaseNode*> created;
    const std::string text = QApplication::clipboard()->text().toStdString();
    tinyxml2::XMLDocument doc;
    {
        GraphEditLock lock;
        const bool fromText = !text.empty() && doc.Parse(text.c_str()) == tinyxml2::XML_SUCCESS &&
                              doc.FirstChildElement("Qorva_ng");
        const int r = fromText ? master->loadGraph(std::string(), created, true, &doc) : master->pasteNodes(created);
        if (r != 0) {
            std::printf("paste: nothing to paste.\n");
            return;
        }
    }
    // the pasted group is centred on the cursor
    const QPointF cursor = cursorScenePos();
    std::vector<std::pair<Parameter*, Parameter*>> rows;
    float cx = 0.f, cy = 0.f;
    for (BaseNode* n : created) {
        Parameter* px = n->uiParams.get("posx");
        Parameter* py = n->uiParams.get("posy");
        for (const char* key : {"posx", "posy"})
            if (!n->uiParams.get(key))
                std::printf("get parameter error - parameter not found! (%s) - node: %s\n", key, n->name().c_str());
        if (!px || !py) continue;
        rows.emplace_back(px, py);
        cx += n->posx;
        cy += n->posy;
    }
    if (!rows.empty()) {
        cx /= float(rows.size());
        cy /= float(rows.size());
    }
    const float dx = float(cursor.x()) - cx, dy = float(cursor.y()) - cy;
    for (auto& r : rows) {
        r.first->text = Parameter::trimmedNumber(*static_cast<float*>(r.first->value) + dx);
        r.second->text = Parameter::trimmedNumber(*static_cast<float*>(r.second->value) + dy);
        r.first->evaluate(0.f, 0);
        r.second->evaluate(0.f, 0);
    }
    syncWithGraph();
    std::vector<std::string> names;
    for (BaseNode* n : created) {
        refreshNode(n);
        names.push_back(n->name());
    }
    emit UiEvents::instance()->sceneChanged();
    selectNodesByName(names);
    markSceneEdited();
    cookGraph();
    undoStack()->push(new NodesPastedCommand(names, "Paste nodes"));
}

// ---- removal and restore ----

std::string NodesGraphicsView::removeNodes(const std::vector<std::string>& names)
{
    if (!master) return std::string();
    std::vector<BaseNode*> doomed;
    for (const std::string& name : names)
        if (BaseNode* n = master->findByName(name))
            if (std::find(doomed.begin(), doomed.end(), n) == doomed.end()) doomed.push_back(n);
    if (doomed.empty()) return std::string();

    tinyxml2::XMLDocument doc;
    master->saveGraph(std::string(), doomed, &doc);
    tinyxml2::XMLElement* root = doc.FirstChildElement("Qorva_ng");
    if (!root) return std::string();
    // wires between a removed node and one that stays, by node and plug name
    tinyxml2::XMLElement* outside = doc.NewElement("outside_wires");
    root->InsertEndChild(outside);
    const std::set<const BaseNode*> in(doomed.begin(), doomed.end());
    for (const BaseNode* n : master->nodes)
        for (const Plug* out : n->outputs)
            for (const Plug* to : out->connections) {
                if (in.count(out->owner) == in.count(to->owner)) continue; // both in or both out
                tinyxml2::XMLElement* w = doc.NewElement("wire");
                w->SetAttribute("from_nodeName", out->owner->name().c_str());
                w->SetAttribute("from_plugName", out->name.c_str());
                w->SetAttribute("from_plugIdx", out->index);
                w->SetAttribute("to_nodeName", to->owner->name().c_str());
                w->SetAttribute("to_plugName", to->name.c_str());
                w->SetAttribute("to_plugIdx", to->index);
                outside->InsertEndChild(w);
            }
    {
        GraphEditLock lock;
        for (BaseNode* n : doomed) {
            master->deleteNode(n, false);
            delete n;
        }
    }
    // the selection forgets the removed nodes
    std::vector<SelectionEntry> kept;
    const std::vector<SelectionEntry> selection = currentSelection();
    for (const SelectionEntry& e : selection)
        if (e.typeCode != kTypeGraphNode || master->findByName(e.name)) kept.push_back(e);
    if (kept.size() != selection.size()) setSelection(kept);
    emit UiEvents::instance()->sceneChanged();
    markSceneEdited();
    cookGraph();
    requestViewsRefresh();
    return documentText(doc);
}

std::vector<std::string> NodesGraphicsView::restoreNodes(const std::string& saved)
{
    std::vector<std::string> restored;
    if (!master || saved.empty()) return restored;
    tinyxml2::XMLDocument doc;
    if (doc.Parse(saved.c_str()) != tinyxml2::XML_SUCCESS || !doc.FirstChildElement("Qorva_ng")) {
        std::printf("restore nodes: the saved text could not be read.\n");
        return restored;
    }
    tinyxml2::XMLElement* root = doc.FirstChildElement("Qorva_ng");
    // the names and keys the nodes had, in file order
    std::vector<std::pair<std::string, std::string>> wanted;
    if (tinyxml2::XMLElement* list = root->FirstChildElement("nodes"))
        for (tinyxml2::XMLElement* e = list->FirstChildElement(); e; e = e->NextSiblingElement()) {
            const tinyxml2::XMLElement* p = e->FirstChildElement("params");
            const char* name = p ? p->Attribute("nodeName") : nullptr;
            wanted.emplace_back(lowerCase(e->Name()), name ? name : "");
        }
    std::vector<BaseNode*> created;
    {
        GraphEditLock lock;
        master->loadGraph(std::string(), created, true, &doc);
        // loaded nodes come in file order, less those that could not be made
        size_t next = 0;
        for (const auto& w : wanted) {
            if (next >= created.size()) break;
            BaseNode* n = created[next];
            if (n->nodeKey != w.first) continue;
            ++next;
            if (!w.second.empty() && n->name() != w.second && !master->findByName(w.second)) n->setName(w.second);
        }
        if (tinyxml2::XMLElement* outside = root->FirstChildElement("outside_wires"))
            for (tinyxml2::XMLElement* w = outside->FirstChildElement("wire"); w; w = w->NextSiblingElement("wire")) {
                BaseNode* from = master->findByName(w->Attribute("from_nodeName") ? w->Attribute("from_nodeName") : "");
                BaseNode* to = master->findByName(w->Attribute("to_nodeName") ? w->Attribute("to_nodeName") : "");
                if (!from || !to) {
                    std::printf("restore nodes: node of a wire not found.\n");
                    continue;
                }
                Plug* a = from->findPlug(w->Attribute("from_plugName") ? w->Attribute("from_plugName") : "", false);
                if (!a || a->isInput()) a = from->outputPlug(w->IntAttribute("from_plugIdx", -1));
                Plug* b = to->findPlug(w->Attribute("to_plugName") ? w->Attribute("to_plugName") : "", false);
                if (!b || !b->isInput()) b = to->inputPlug(w->IntAttribute("to_plugIdx", -1));
                if (!a || !b || master->connectPlugs(a, b) < 0)
                    std::printf("restore nodes: a wire could not be made again.\n");
            }
    }
    syncWithGraph();
    for (BaseNode* n : created) {
        refreshNode(n);
        restored.push_back(n->name());
    }
    emit UiEvents::instance()->sceneChanged();
    markSceneEdited();
    cookGraph();
    requestViewsRefresh();
    return restored;
}

// ---- wires ----

bool NodesGraphicsView::connectPlugs(Plug* a, Plug* b)
{
    if (!master || !a || !b) return false;
    int r = -1;
    {
        GraphEditLock lock;
        r = master->connectPlugs(a, b);
    }
    if (r < 0) return false;
    markSceneEdited();
    cookGraph();
    return true;
}

void NodesGraphicsView::connectSelectedChain(const QList<QGraphicsItem*>& items)
{
    std::vector<GraphNode*> chain;
    for (QGraphicsItem* item : items)
        if (item->type() == GraphNode::Type) chain.push_back(static_cast<GraphNode*>(item));
    if (chain.size() < 2 || !master) return;
    std::stable_sort(chain.begin(), chain.end(), [](const GraphNode* a, const GraphNode* b) {
        return a->pos().y() != b->pos().y() ? a->pos().y() < b->pos().y() : a->pos().x() < b->pos().x();
    });
    {
        GraphEditLock lock;
        for (size_t i = 0; i + 1 < chain.size(); ++i)
            master->connectPlugs(chain[i]->node->outputPlug(0), chain[i + 1]->node->inputPlug(0));
    }
    markSceneEdited();
    cookGraph();
    refreshAllItems();
}

void NodesGraphicsView::cookGraph()
{
    if (!master) return;
    if (!graphMutex.tryLock(100)) {
        std::printf("node editor: the graph is busy; no cook.\n");
        return;
    }
    master->onParameterChanged(nullptr);
    graphMutex.unlock();
}
