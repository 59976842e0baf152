// BaseNode: what every node of the procedural graph has: its three parameter sets, its
// plugs, its place and colour in the node editor, its identity. The cook itself is
// GeoNode's; system nodes sit directly under this class.
#pragma once

#include "params/parameterset.h"

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

class NodeMaster;
class Plug;
class Vbo;

class BaseNode {
public:
    explicit BaseNode(NodeMaster* master);
    virtual ~BaseNode();
    BaseNode(const BaseNode&) = delete;
    BaseNode& operator=(const BaseNode&) = delete;

    // Slots in order: draw the result, move it to the viewport's buffers, drop state.
    virtual void draw() = 0;
    virtual void updateViewport() = 0;
    virtual void reset() = 0;

    ParameterSet uiParams;    // posx, posy, color.r/g/b, visibility
    ParameterSet params;      // nodeName, enabled, then the node's own rows; named as the node
    ParameterSet stateParams; // process
    std::vector<Plug*> inputs;
    std::vector<Plug*> outputs;
    bool processFlag = false; // bound to the row "process": the node is a cook target
    bool visibility = false;
    bool enabled = true;
    float posx = 0.f, posy = 0.f;
    float colorR = 0.f, colorG = 0.f, colorB = 0.f;
    std::mutex nodeMutex; // held from beginProcess to the end of process; not re-entrant
    int32_t graphType = 13;
    int32_t id = -1;
    std::string displayName = "base";
    std::string nodeKey = "base"; // the label in lower case; never changes after setType
    std::string nameField;        // bound to the nodeName row
    NodeMaster* nodeMaster = nullptr;
    std::unique_ptr<Vbo> vbo;

    const std::string& name() const { return params.name; }
    void setType(const std::string& label);
    void setName(const std::string& name);
    // Registers a plug with the node master, makes its name unique on this node and
    // appends it; the node owns it from then on. -1 without a node master.
    int registerPlug(Plug* plug);
    void deregisterPlug(Plug* plug);      // unwires, forgets and frees the plug
    void deregisterPlugQuick(Plug* plug); // forgets and frees it; the caller unwired it
    Parameter* getParam(const std::string& key);
    Plug* findPlug(const std::string& name) const; // prints when missing
    Plug* findPlug(const std::string& name, bool report) const;
    Plug* outputPlug(int index) const;
    Plug* inputPlug(int index) const;

    // Declaring rows: `field` bound, text as given (the row's default).
    Parameter* addParam(void* field, const std::string& key, const std::string& label, int type,
                        const std::string& text, const std::string& tooltip = std::string());
    Parameter* addEnum(int32_t* field, const std::string& key, const std::string& label,
                       const std::vector<std::string>& entries, const std::string& text,
                       const std::string& tooltip = std::string());
    // Convenience: a new input or output plug of data type BODY, registered.
    Plug* addInput(const std::string& name, bool noCopy = false);
    Plug* addOutput(const std::string& name);
};
