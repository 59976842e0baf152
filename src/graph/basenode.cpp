#include "graph/basenode.h"

#include "app/uniquename.h"

#include "graph/nodemaster.h"
#include "graph/plug.h"
#include "graph/vbo.h"

#include <algorithm>
#include <cstdio>

BaseNode::BaseNode(NodeMaster* master) : nodeMaster(master)
{
    const bool talk = master && master->verbose >= 2;
    if (talk)
        std::printf(master ? "in the Base Node: nm is given and defined.\n"
                           : "in the Base Node: no nm given.\n");
    for (ParameterSet* set : {&uiParams, &params, &stateParams}) {
        set->owner = this;
        set->nodeMaster = master;
    }
    params.typeCode = graphType;
    if (master) {
        params.renamer = [this](const std::string& wanted) {
            const std::string got = nodeMaster->uniqueNodeName(wanted, this);
            displayName = got;
            params.name = got;
            return got;
        };
        vbo = std::make_unique<Vbo>();
    }
    addParam(&nameField, "nodeName", "Node Name", kParamObjectName, "base", "The name of the node");
    addParam(&enabled, "enabled", "Enabled", kParamBool, "true", "Toggle node evaluation.");
    uiParams.add(Parameter(&posx, "posx", "Pos X", kParamFloat, "Node Position X"));
    uiParams.add(Parameter(&posy, "posy", "Pos Y", kParamFloat, "Node Position Y"));
    uiParams.add(Parameter(&colorR, "color.r", "Color R", kParamFloat, "Node color r"));
    uiParams.add(Parameter(&colorG, "color.g", "Color G", kParamFloat, "Node color g"));
    uiParams.add(Parameter(&colorB, "color.b", "Color B", kParamFloat, "Node color b"));
    uiParams.add(Parameter(&visibility, "visibility", "Visibility", kParamBool,
                           "Show the result of this node in the viewport."));
    stateParams.add(
        Parameter(&processFlag, "process", "Process", kParamBool, "If it should get cooked until here."));
    uiParams.refreshAllText(true);
    stateParams.refreshAllText(true);
}

BaseNode::~BaseNode()
{
    for (Plug* p : inputs) {
        p->disconnectAll();
        delete p;
    }
    for (Plug* p : outputs) {
        p->disconnectAll();
        delete p;
    }
}

void BaseNode::setType(const std::string& label)
{
    displayName = label;
    nodeKey = label;
    std::transform(nodeKey.begin(), nodeKey.end(), nodeKey.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    nameField = label;
    params.name = label;
    if (Parameter* row = params.get("nodeName")) row->text = label;
}

void BaseNode::setName(const std::string& name)
{
    displayName = name;
    nameField = name;
    params.name = name;
    if (Parameter* row = params.get("nodeName")) {
        row->text = name;
        row->resolved = name;
    }
}

int BaseNode::registerPlug(Plug* plug)
{
    if (!plug) return -1;
    const bool talk = nodeMaster && nodeMaster->verbose >= 2;
    // A node without a graph (a copy) keeps its plugs, unnumbered.
    if (!nodeMaster) {
        // nothing to number it
    } else {
        if (talk) std::printf("Base Node: registerPlug with nodemaster...\n");
        nodeMaster->registerPlug(plug);
    }
    if (talk) std::printf("Base Node: registerPlug: register in node...\n");
    const std::string name =
        uniqueName(plug->name, [this](const std::string& n) { return findPlug(n, false) != nullptr; });
    plug->name = name;
    plug->owner = this;
    std::vector<Plug*>& list = plug->isInput() ? inputs : outputs;
    plug->index = int32_t(list.size());
    list.push_back(plug);
    if (talk) std::printf("plug registering ok.\n");
    return nodeMaster ? plug->id : -1;
}

void BaseNode::deregisterPlug(Plug* plug)
{
    if (!plug) return;
    plug->disconnectAll();
    deregisterPlugQuick(plug);
}

void BaseNode::deregisterPlugQuick(Plug* plug)
{
    if (!plug) return;
    if (nodeMaster) nodeMaster->deregisterPlug(plug);
    for (std::vector<Plug*>* list : {&inputs, &outputs}) {
        auto it = std::find(list->begin(), list->end(), plug);
        if (it == list->end()) continue;
        list->erase(it);
        for (size_t i = 0; i < list->size(); ++i) (*list)[i]->index = int32_t(i);
    }
    delete plug;
}

Parameter* BaseNode::getParam(const std::string& key)
{
    if (Parameter* p = params.get(key)) return p;
    std::printf("get parameter error - parameter not found! (%s) - node: %s\n", key.c_str(), name().c_str());
    return &params.nullParameter;
}

Plug* BaseNode::findPlug(const std::string& plugName) const
{
    return findPlug(plugName, true);
}

Plug* BaseNode::findPlug(const std::string& plugName, bool report) const
{
    for (const std::vector<Plug*>* list : {&inputs, &outputs})
        for (Plug* p : *list)
            if (p->name == plugName) return p;
    if (report) std::printf("Plug \"%s\" not found.\n", plugName.c_str());
    return nullptr;
}

Plug* BaseNode::outputPlug(int index) const
{
    return index >= 0 && size_t(index) < outputs.size() ? outputs[size_t(index)] : nullptr;
}

Plug* BaseNode::inputPlug(int index) const
{
    return index >= 0 && size_t(index) < inputs.size() ? inputs[size_t(index)] : nullptr;
}

Parameter* BaseNode::addParam(void* field, const std::string& key, const std::string& label, int type,
                              const std::string& text, const std::string& tooltip)
{
    Parameter* row = params.add(Parameter(field, key, label, type, tooltip));
    row->text = text;
    if (text.empty()) row->refreshText(true);
    row->defaultText = row->text;
    return row;
}

Parameter* BaseNode::addEnum(int32_t* field, const std::string& key, const std::string& label,
                             const std::vector<std::string>& entries, const std::string& text,
                             const std::string& tooltip)
{
    Parameter* row = params.add(Parameter(field, key, label, kParamEnum, tooltip));
    row->enumEntries = entries;
    row->text = text.empty() ? entries.front() : text;
    row->defaultText = row->text;
    return row;
}

Plug* BaseNode::addInput(const std::string& plugName, bool noCopy)
{
    auto* p = new Plug(this, Plug::INPUT, Plug::BODY, plugName);
    p->noCopy = noCopy;
    registerPlug(p);
    return p;
}

Plug* BaseNode::addOutput(const std::string& plugName)
{
    auto* p = new Plug(this, Plug::OUTPUT, Plug::BODY, plugName);
    registerPlug(p);
    return p;
}
