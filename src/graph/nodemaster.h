// NodeMaster: owner of the procedural graph's nodes, plugs and wires, and the driver of a
// cook: it marks what the targets reach, asks every target what changed, pulls regular
// targets on threads of their own and then steps the dynamic chains in order.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace tinyxml2 {
class XMLDocument;
}

class BaseNode;
class GeoNode;
class GraphFrontend;
class Parameter;
class ParameterSet;
class Plug;
class PlugCache;
class Simulation;

class NodeMaster {
public:
    struct MenuCategory {
        std::string name;
        std::vector<std::string> keys;
    };

    NodeMaster();
    ~NodeMaster();
    NodeMaster(const NodeMaster&) = delete;
    NodeMaster& operator=(const NodeMaster&) = delete;

    std::vector<MenuCategory> menuCategories;
    std::vector<BaseNode*> nodes; // owned, in creation order
    std::vector<Plug*> plugs;     // owned by their nodes
    int32_t nextNodeId = 2048;
    int32_t nextPlugId = 0;
    int32_t verbose = 0;
    bool autoRefresh = true;
    bool runFlag = true;
    float graphDt = 1.f / 24.f;
    float lastCookTime = -1.f;
    Simulation* simulation = nullptr;
    GraphFrontend* frontend = nullptr; // the node editor, when a window exists
    std::unique_ptr<PlugCache> plugCache;
    // Node elements of a loaded file whose key no class answers, and the wires touching
    // them, kept as XML text so that saving the graph does not lose them.
    std::vector<std::string> keptNodeXml;
    std::vector<std::string> keptWireXml;

    // Cooking.
    void cook(bool run);
    void runSystemNodes();
    void resetNodes();
    // resetNodes, and the graph's kept state is dropped too (scene cleared).
    void resetAll();
    void onParameterChanged(Parameter* parameter);

    // Factory: a new node for the key (any case), named uniquely and registered; null
    // for a key no class answers.
    BaseNode* createNode(const std::string& key);
    static bool isKnownKey(const std::string& key);
    void nodeColor(const BaseNode* node, float& r, float& g, float& b) const;

    void registerNode(BaseNode* node);
    void registerPlug(Plug* plug);
    void deregisterPlug(Plug* plug);
    BaseNode* findById(int32_t id) const;
    BaseNode* findByName(const std::string& name) const;
    ParameterSet* paramSetOf(const std::string& name) const;
    ParameterSet* findNodeParameters(const std::string& name) const { return paramSetOf(name); }
    Parameter* getParam(const std::string& name, const std::string& key) const;
    std::string uniqueNodeName(const std::string& name, const BaseNode* except = nullptr) const;
    std::vector<GeoNode*> getGeoNodes() const;
    std::vector<GeoNode*> getProcessNodes() const;

    // Wires and edits. connectPlugs takes the two plugs in either order.
    int connectPlugs(Plug* a, Plug* b);
    int connectNodes(BaseNode* a, BaseNode* b);
    void disconnectPlugs(Plug* a, Plug* b);
    // Takes a node out of the graph without destroying it; with `bridge` its first
    // input's source is wired to its first output's targets. The caller owns it after.
    int deleteNode(BaseNode* node, bool bridge);
    void insertOnWire(BaseNode* node, Plug* from, Plug* to);
    void extractNode(BaseNode* node, bool bridge);
    // Destroys every node (and the kept texts), ids back to their start.
    void clearGraph();

    // Graph files: `path` without ".ng"; a document given is filled or read instead of
    // a file. saveGraph: -1 with no nodes, else 0. loadGraph: 5 without the root or
    // its node list, else 0.
    int saveGraph(const std::string& path, const std::vector<BaseNode*>& selection,
                  tinyxml2::XMLDocument* document);
    int loadGraph(const std::string& path, std::vector<BaseNode*>& created, bool append,
                  tinyxml2::XMLDocument* document);

    // The clipboard: copy writes the chosen nodes and the wires among them to a graph file in
    // the system's temporary folder; each paste appends them again, 25 units further along
    // both axes than the paste before, selected as `created`.
    int copyNodes(const std::vector<BaseNode*>& selection);
    int pasteNodes(std::vector<BaseNode*>& created);
    static std::string clipboardPath(); // without the ".ng" that saveGraph adds
    float copyCenterX = 0.f, copyCenterY = 0.f;

    // A node made by key at a place in the node editor; null for an unknown key.
    BaseNode* createNodeAt(const std::string& key, float x, float y);

    // SimState's values as node code sees them.
    int32_t frame() const;
    float currentTime() const;
    float fps() const;
};
