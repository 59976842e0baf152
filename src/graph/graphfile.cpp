// Graph files (.ng, the graph inside a scene, the clipboard form): every value is a row's
// text, the node's type is its element's name, wires name their nodes and plugs.
#include "graph/graphfile.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "graph/geonode.h"
#include "graph/graphfrontend.h"
#include "graph/nodemaster.h"
#include "graph/plug.h"
#include "io/tempfile.h"

#include <tinyxml2.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <set>

using tinyxml2::XMLDocument;
using tinyxml2::XMLElement;
using tinyxml2::XMLPrinter;

namespace {

void writeParams(XMLElement* element, const ParameterSet& set)
{
    for (const Parameter& row : set.parameters) {
        if (row.key == "blank" || row.key == "label" || row.key == "writeButton") continue;
        element->SetAttribute(row.key.c_str(), row.text.c_str());
    }
}

std::string elementText(const XMLElement* e)
{
    XMLPrinter printer;
    e->Accept(&printer);
    return printer.CStr();
}

void addKeptXml(XMLElement* parent, const std::string& text)
{
    XMLDocument scratch;
    if (scratch.Parse(text.c_str()) != tinyxml2::XML_SUCCESS || !scratch.RootElement()) return;
    parent->InsertEndChild(scratch.RootElement()->DeepClone(parent->GetDocument()));
}

} // namespace

void readParams(ParameterSet& set, const XMLElement* element)
{
    if (!element) return;
    set.name = element->Name();
    const float frame = simState ? float(simState->frame) : 0.f;
    for (Parameter& row : set.parameters) {
        if (row.key == "blank" || row.key == "label" || row.key == "writeButton") continue;
        const char* value = element->Attribute(row.key.c_str());
        if (!value && row.key == "x") value = element->Attribute("attribSetValueX");
        if (!value && row.key == "y") value = element->Attribute("attribSetValueY");
        if (!value && row.key == "z") value = element->Attribute("attribSetValueZ");
        if (!value) {
            std::printf(
                "param \"%s\" not found in file to open. Skipping. String reading. (Error: nullptr)\n",
                row.key.c_str());
            continue;
        }
        row.text = value;
        row.evaluate(frame, 0);
        if (row.hasExpression) row.isLiteral = false;
    }
}

int NodeMaster::saveGraph(const std::string& path, const std::vector<BaseNode*>& selection,
                          XMLDocument* document)
{
    if (nodes.empty() && keptNodeXml.empty()) return -1;
    if (verbose >= 1) std::printf("saving nodes..\n");
    XMLDocument own;
    XMLDocument* doc = document ? document : &own;
    XMLElement* root = doc->NewElement("Qorva_ng");
    doc->InsertEndChild(root);
    XMLElement* list = doc->NewElement("nodes");
    root->InsertEndChild(list);

    const std::vector<BaseNode*>& chosen = selection.empty() ? nodes : selection;
    for (BaseNode* n : chosen) {
        XMLElement* e = doc->NewElement(n->nodeKey.c_str());
        list->InsertEndChild(e);
        XMLElement* p = doc->NewElement("params");
        writeParams(p, n->params);
        e->InsertEndChild(p);
        n->uiParams.refreshAllText(true);
        XMLElement* ui = doc->NewElement("ui_params");
        writeParams(ui, n->uiParams);
        e->InsertEndChild(ui);
        n->stateParams.refreshAllText(true);
        XMLElement* st = doc->NewElement("node_state");
        writeParams(st, n->stateParams);
        e->InsertEndChild(st);
    }
    if (selection.empty())
        for (const std::string& text : keptNodeXml) addKeptXml(list, text);

    XMLElement* wires = doc->NewElement("wires");
    root->InsertEndChild(wires);
    auto writeWire = [&](const Plug* from, const Plug* to) {
        XMLElement* w = doc->NewElement("wire");
        w->SetAttribute("from_nodeName", from->owner->name().c_str());
        w->SetAttribute("to_nodeName", to->owner->name().c_str());
        w->SetAttribute("from_plugName", from->name.c_str());
        w->SetAttribute("to_plugName", to->name.c_str());
        w->SetAttribute("from_plugType", Plug::directionNames[size_t(from->direction)].c_str());
        w->SetAttribute("to_plugType", Plug::directionNames[size_t(to->direction)].c_str());
        w->SetAttribute("from_dataType", Plug::typeNames[size_t(from->dataType)].c_str());
        w->SetAttribute("to_dataType", Plug::typeNames[size_t(to->dataType)].c_str());
        w->SetAttribute("from_plugIdx", from->index);
        w->SetAttribute("to_plugIdx", to->index);
        wires->InsertEndChild(w);
    };
    if (!selection.empty()) {
        const std::set<const BaseNode*> in(selection.begin(), selection.end());
        for (BaseNode* n : selection)
            for (Plug* out : n->outputs)
                for (Plug* to : out->connections)
                    if (in.count(to->owner)) writeWire(out, to);
    } else {
        for (Plug* p : plugs)
            if (p->direction == Plug::OUTPUT)
                for (Plug* to : p->connections) writeWire(p, to);
        for (const std::string& text : keptWireXml) addKeptXml(wires, text);
    }
    if (!document) {
        XMLPrinter printer;
        doc->Print(&printer);
        TempFile out(path + ".ng");
        if (!out.isOpen() || !out.write(printer.CStr(), size_t(printer.CStrSize() - 1)) || !out.commit()) {
            std::printf("could not write %s.ng\n", path.c_str());
            return -1;
        }
    }
    return 0;
}

int NodeMaster::loadGraph(const std::string& path, std::vector<BaseNode*>& created, bool append,
                          XMLDocument* document)
{
    if (!append) clearGraph();
    XMLDocument own;
    XMLDocument* doc = document;
    if (!doc) {
        doc = &own;
        own.LoadFile(path.c_str());
    }
    XMLElement* root = doc->FirstChildElement("Qorva_ng");
    XMLElement* list = root ? root->FirstChildElement("nodes") : nullptr;
    if (!list) return 5;
    if (verbose >= 1) std::printf("\nloading real nodes...\n");

    std::map<std::string, std::string> renamed; // name in the file -> name now
    std::set<std::string> keptNames;
    for (XMLElement* e = list->FirstChildElement(); e; e = e->NextSiblingElement()) {
        if (verbose) std::printf("* loading \"%s\" node\n", e->Name());
        BaseNode* node = createNode(e->Name());
        if (!node) {
            std::printf("ERROR: node not created.\n");
            if (isKnownKey(e->Name())) { // a type this build can't make yet: keep its text
                keptNodeXml.push_back(elementText(e));
                if (const XMLElement* p = e->FirstChildElement("params"))
                    if (const char* n = p->Attribute("nodeName")) keptNames.insert(n);
            }
            continue;
        }
        created.push_back(node);
        const XMLElement* p = e->FirstChildElement("params");
        if (!p) {
            std::printf("ERROR: no node parameters found.\n");
            continue;
        }
        const std::string givenName = node->name();
        readParams(node->params, p);
        const char* fileName = p->Attribute("nodeName");
        const XMLElement* ui = e->FirstChildElement("ui_params");
        bool complete = ui != nullptr;
        if (!ui)
            std::printf("ERROR: no node ui parameters found.\n");
        else
            readParams(node->uiParams, ui);
        const XMLElement* st = complete ? e->FirstChildElement("node_state") : nullptr;
        if (complete && !st) std::printf("ERROR: no node state parameters found.\n");
        if (st) readParams(node->stateParams, st);
        // the name row renamed the node through the graph's unique-name rule
        node->setName(node->nameField.empty() ? givenName : node->nameField);
        nodeColor(node, node->colorR, node->colorG, node->colorB);
        node->uiParams.refreshAllText(true);
        if (fileName) renamed[fileName] = node->name();
    }

    XMLElement* wires = root->FirstChildElement("wires");
    if (!wires) return 0;
    if (verbose) std::printf("\nloading real wires...\n");
    for (XMLElement* w = wires->FirstChildElement("wire"); w; w = w->NextSiblingElement("wire")) {
        const char* fromName = w->Attribute("from_nodeName");
        const char* toName = w->Attribute("to_nodeName");
        const char* fromPlug = w->Attribute("from_plugName");
        const char* toPlug = w->Attribute("to_plugName");
        if (!fromName || !toName || !fromPlug || !toPlug) continue;
        if (keptNames.count(fromName) || keptNames.count(toName)) {
            keptWireXml.push_back(elementText(w));
            continue;
        }
        std::string a = fromName, b = toName;
        if (append) {
            if (renamed.count(a)) a = renamed[a];
            if (renamed.count(b)) b = renamed[b];
        }
        BaseNode* from = findByName(a);
        BaseNode* to = findByName(b);
        if (!from || !to) {
            std::printf("node not found.\n");
            continue;
        }
        const int fromIdx = w->IntAttribute("from_plugIdx", -1);
        const int toIdx = w->IntAttribute("to_plugIdx", -1);
        // A wire runs from an output to an input; a name that finds a plug of the other
        // direction (a node may have an input and an output of one name) falls back to the index.
        Plug* pa = from->findPlug(fromPlug, false);
        if (!pa || pa->isInput()) pa = from->outputPlug(fromIdx) ? from->outputPlug(fromIdx) : pa;
        if (!pa) pa = from->inputPlug(fromIdx);
        Plug* pb = to->findPlug(toPlug, false);
        if (!pb || !pb->isInput()) pb = to->inputPlug(toIdx) ? to->inputPlug(toIdx) : pb;
        if (!pb) pb = to->outputPlug(toIdx);
        if (!pa || !pb) {
            std::printf("load: can't find plug named %s on node %s.\n", pa ? toPlug : fromPlug,
                        pa ? b.c_str() : a.c_str());
            continue;
        }
        Plug::connect(pa, pb);
    }
    if (verbose) std::printf("reading done.\n");
    if (frontend) frontend->rebuild();
    return 0;
}
