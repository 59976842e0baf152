// NodeMaster: node and plug registration, names, the factory, wire edits and the cook.
#include "graph/nodemaster.h"

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "app/uniquename.h"
#include "graph/geonode.h"
#include "graph/graphfrontend.h"
#include "graph/plug.h"
#include "graph/plugcache.h"
#include "nodes/nodetable.h"
#include "nodes/systemnodes.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <set>
#include <thread>

namespace {

// Keys the factory knows without a menu place.
const char* const kUnlistedKeys[] = {
    "granular-origin", "particle-mesh", "attrib-create",   "dust-emit",   "volume-add",  "smoke-grid-modify",
    "particle-burst",  "particle-emit", "jet-flip-solver", "flip-origin", "flip-solver", "attrib-blur",
    "sph-origin",      "sph-solver"};

std::vector<NodeMaster::MenuCategory> makeMenu()
{
    return {
        {"Classic", {"camera", "stitcher", "mesher", "import-system", "export-system", "collide-classic"}},
        {"Deform", {"deform"}},
        {"Upres Grains", {"upres", "upres-solver"}},
        {"Dynamics", {"gravity",      "force",           "make-dynamic",
                      "end-dynamic",  "origin",          "emit",
                      "clone",        "collide",         "foam-emit",
                      "spray-emit",   "granular-solver", "cloth-constraints",
                      "cloth-solver", "cloth-guide",     "visualize-constraints",
                      "upres-solver", "smoke-origin",    "smoke-emit",
                      "smoke-solver", "smoke-remove"}},
        {"Volumes",
         {"mesh-to-volume", "volume-to-mesh", "particle-to-volume", "volume-union", "volume-difference",
          "volume-intersection", "volume-gradient", "volume-invert", "volume-sample", "volume-scale",
          "volume-filter", "volume-erode", "volume-resample", "volume-tiles"}},
        {"Smoke", {"smoke-origin", "smoke-emit", "smoke-solver", "smoke-remove"}},
        {"General", {"read",          "write",         "transform",    "merge",           "timeshift",
                     "calc-velocity", "noise",         "point-delete", "trail",           "grid",
                     "line",          "null",          "switch",       "split",           "point",
                     "color-by-vel",  "sort-points",   "point-match",  "reverse",         "normals",
                     "triangulate",   "scatter",       "copy",         "project",         "attrib-from-map",
                     "attrib-set",    "attrib-add",    "attrib-scale", "attrib-transfer", "attrib-rename",
                     "attrib-remove", "mesh-curvature"}},
    };
}

std::string lowerCase(std::string s)
{
    std::transform(s.begin(), s.end(), s.begin(), [](unsigned char c) { return char(std::tolower(c)); });
    return s;
}

} // namespace

NodeMaster::NodeMaster() : menuCategories(makeMenu()), plugCache(std::make_unique<PlugCache>()) {}

NodeMaster::~NodeMaster()
{
    clearGraph();
}

// ---- registration and lookup ----

void NodeMaster::registerNode(BaseNode* node)
{
    node->id = nextNodeId++;
    nodes.push_back(node);
}

void NodeMaster::registerPlug(Plug* plug)
{
    plug->id = nextPlugId++;
    plugs.push_back(plug);
}

void NodeMaster::deregisterPlug(Plug* plug)
{
    if (verbose) std::printf("Nodemaster: deregisterPlug: \n");
    plugCache->removeCache(plug);
    plugs.erase(std::remove(plugs.begin(), plugs.end(), plug), plugs.end());
}

BaseNode* NodeMaster::findById(int32_t nodeId) const
{
    for (BaseNode* n : nodes)
        if (n->id == nodeId) return n;
    return nullptr;
}

BaseNode* NodeMaster::findByName(const std::string& name) const
{
    for (BaseNode* n : nodes)
        if (n->name() == name) return n;
    return nullptr;
}

ParameterSet* NodeMaster::paramSetOf(const std::string& name) const
{
    BaseNode* n = findByName(name);
    return n ? &n->params : nullptr;
}

Parameter* NodeMaster::getParam(const std::string& name, const std::string& key) const
{
    BaseNode* n = findByName(name);
    return n ? n->params.get(key) : nullptr;
}

std::string NodeMaster::uniqueNodeName(const std::string& name, const BaseNode* except) const
{
    const Simulation* sim = simulation ? simulation : ::simulation;
    return uniqueName(name, [&](const std::string& n) {
        if (sim && sim->findByName(n)) return true;
        for (const BaseNode* node : nodes)
            if (node != except && node->name() == n) return true;
        return false;
    });
}

std::vector<GeoNode*> NodeMaster::getGeoNodes() const
{
    std::vector<GeoNode*> out;
    for (BaseNode* n : nodes)
        if (auto* g = dynamic_cast<GeoNode*>(n)) out.push_back(g);
    return out;
}

std::vector<GeoNode*> NodeMaster::getProcessNodes() const
{
    std::vector<GeoNode*> out;
    for (GeoNode* g : getGeoNodes())
        if (g->processFlag) out.push_back(g);
    return out;
}

// ---- factory ----

bool NodeMaster::isKnownKey(const std::string& key)
{
    // the vocabulary: every menu key and the unlisted ones, gathered once
    static const std::set<std::string> known = [] {
        std::set<std::string> all(std::begin(kUnlistedKeys), std::end(kUnlistedKeys));
        for (const MenuCategory& c : makeMenu()) all.insert(c.keys.begin(), c.keys.end());
        return all;
    }();
    return known.count(lowerCase(key)) != 0;
}

BaseNode* NodeMaster::createNode(const std::string& key)
{
    const std::string k = lowerCase(key);
    NodeMaker make = isKnownKey(k) ? findNodeMaker(k) : nullptr;
    if (!make) return nullptr;
    BaseNode* node = make(this);
    node->setName(uniqueNodeName(node->name()));
    registerNode(node);
    nodeColor(node, node->colorR, node->colorG, node->colorB);
    node->uiParams.refreshAllText(true);
    if (frontend) frontend->nodeCreated(node);
    return node;
}

void NodeMaster::nodeColor(const BaseNode* node, float& r, float& g, float& b) const
{
    r = g = b = 1.f;
    if (!node || !simState || simState->randomTable.empty()) return;
    uint64_t hash = 0xcbf29ce484222325ull; // FNV-1a, 64 bit
    for (unsigned char c : node->nodeKey) {
        hash ^= c;
        hash *= 0x100000001b3ull;
    }
    const SimVec3 v = simState->randomVector(int(hash % simState->randomTable.size()));
    r = v.x;
    g = v.y;
    b = v.z;
}

// ---- wires and edits ----

int NodeMaster::connectPlugs(Plug* a, Plug* b)
{
    if (!a || !b || a->direction == b->direction) return -1;
    Plug* out = a->direction == Plug::OUTPUT ? a : b;
    Plug* in = a->direction == Plug::OUTPUT ? b : a;
    Plug* oldSource = in->connections.empty() ? nullptr : in->connections.front();
    in->dirty = true;
    if (auto* g = dynamic_cast<GeoNode*>(in->owner)) g->dirty = true;
    if (Plug::connect(out, in) < 0) return -1;
    if (frontend) {
        if (oldSource) frontend->wireRemoved(oldSource, in);
        frontend->wireAdded(out, in);
    }
    return 0;
}

int NodeMaster::connectNodes(BaseNode* a, BaseNode* b)
{
    if (!a || !b) return -1;
    const int r = connectPlugs(a->outputPlug(0), b->inputPlug(0));
    onParameterChanged(nullptr);
    return r;
}

void NodeMaster::disconnectPlugs(Plug* a, Plug* b)
{
    if (!a || !b) return;
    Plug::disconnect(a, b);
    if (auto* g = dynamic_cast<GeoNode*>((a->isInput() ? a : b)->owner)) g->dirty = true;
    if (frontend) frontend->wireRemoved(a->isInput() ? b : a, a->isInput() ? a : b);
}

int NodeMaster::deleteNode(BaseNode* node, bool bridge)
{
    auto it = std::find(nodes.begin(), nodes.end(), node);
    if (!node || it == nodes.end()) return -1;
    Plug* source = nullptr;
    std::vector<Plug*> targets;
    if (bridge) {
        if (Plug* in = node->inputPlug(0)) source = in->sourcePlug();
        if (Plug* out = node->outputPlug(0)) targets = out->connections;
    }
    for (std::vector<Plug*>* list : {&node->inputs, &node->outputs})
        for (Plug* p : *list)
            while (!p->connections.empty()) disconnectPlugs(p, p->connections.front());
    for (Plug* t : targets)
        if (source) connectPlugs(source, t);
    for (Plug* p : node->outputs) plugCache->removeCache(p);
    if (frontend) frontend->nodeRemoved(node);
    nodes.erase(std::find(nodes.begin(), nodes.end(), node));
    return 0;
}

void NodeMaster::insertOnWire(BaseNode* node, Plug* from, Plug* to)
{
    if (!node || !from || !to) return;
    disconnectPlugs(from, to);
    connectPlugs(from, node->inputPlug(0));
    connectPlugs(node->outputPlug(0), to);
    onParameterChanged(nullptr);
}

void NodeMaster::extractNode(BaseNode* node, bool bridge)
{
    if (!node) return;
    Plug* source = nullptr;
    std::vector<Plug*> targets;
    if (Plug* in = node->inputPlug(0)) source = in->sourcePlug();
    if (Plug* out = node->outputPlug(0)) targets = out->connections;
    for (std::vector<Plug*>* list : {&node->inputs, &node->outputs})
        for (Plug* p : *list)
            while (!p->connections.empty()) disconnectPlugs(p, p->connections.front());
    if (bridge && source)
        for (Plug* t : targets) connectPlugs(source, t);
    onParameterChanged(nullptr);
}

void NodeMaster::clearGraph()
{
    plugCache->clear();
    // unwire first so that no node's destructor reaches a plug already freed
    for (BaseNode* n : nodes)
        for (std::vector<Plug*>* list : {&n->inputs, &n->outputs})
            for (Plug* p : *list) p->disconnectAll();
    for (BaseNode* n : nodes) {
        if (frontend) frontend->nodeRemoved(n);
        delete n;
    }
    nodes.clear();
    plugs.clear();
    keptNodeXml.clear();
    keptWireXml.clear();
    nextNodeId = 2048;
    nextPlugId = 0;
}

// ---- time ----

int32_t NodeMaster::frame() const
{
    return simState ? simState->frame : 0;
}

float NodeMaster::fps() const
{
    return simState ? simState->fps : 24.f;
}

float NodeMaster::currentTime() const
{
    if (!simState) return 0.f;
    const Simulation* sim = simulation ? simulation : ::simulation;
    const bool sub = sim && sim->globalSettings && sim->globalSettings->evalGraphOnSubframes;
    return sub ? simState->frameF : float(simState->frame);
}

// ---- cooking ----

void NodeMaster::runSystemNodes()
{
    // The SPH system nodes, once a substep after the classic systems: their sources emit.
    for (BaseNode* n : nodes)
        if (auto* s = dynamic_cast<SPHSystemNode*>(n))
            if (s->enabled) s->process();
}

void NodeMaster::resetNodes()
{
    for (GeoNode* g : getGeoNodes()) {
        g->reset();
        g->dirty = true;
    }
    plugCache->clear();
}

void NodeMaster::resetAll()
{
    resetNodes();
    lastCookTime = -1.f;
}

void NodeMaster::cook(bool run)
{
    verbose = 0;
    runFlag = run;
    const std::vector<GeoNode*> all = getGeoNodes();
    const float time = currentTime();
    if (lastCookTime != time)
        for (GeoNode* g : all)
            for (Parameter& row : g->params.parameters) row.overridden = false;
    for (GeoNode* g : all) {
        g->timeDependent = g->dynamic = g->dynamicUpstream = false;
        g->visitCount = 0;
    }
    CookCaller root;
    root.time = time;
    root.atRoot = true;
    const bool keep = !plugCache || plugCache->keepBetweenCooks;
    if (!keep) plugCache->clear();
    const std::vector<GeoNode*> targets = getProcessNodes();
    if (targets.empty()) return;
    for (GeoNode* t : targets) t->markCalled();
    for (GeoNode* t : targets) {
        if (t->visitCount != 1) continue;
        DirtyResult r;
        t->checkDirty(r, root);
    }
    for (GeoNode* g : all) {
        if (g->visitCount == 0) g->dirty = true;
        if (g->dynamic && g->visitCount == 1) g->dirty = true;
    }
    std::vector<GeoNode*> regular, dynamicTargets;
    for (GeoNode* t : targets) (t->dynamic ? dynamicTargets : regular).push_back(t);
    if (verbose) std::printf("REG. SIZE: %zu\nDYN. SIZE: %zu\n", regular.size(), dynamicTargets.size());
    auto cookOne = [root](GeoNode* t) {
        BodyPtr discarded;
        t->process(discarded, root);
    };
    if (regular.size() == 1) {
        cookOne(regular.front()); // one target needs no thread of its own
    } else {
        std::vector<std::thread> threads;
        for (GeoNode* t : regular) {
            try {
                threads.emplace_back(cookOne, t);
            } catch (const std::system_error&) {
                cookOne(t); // no thread to be had: cook it here
            }
        }
        for (std::thread& th : threads) th.join();
    }
    for (GeoNode* t : dynamicTargets)
        if (t->dirty) cookOne(t);
    if (!keep) plugCache->clear();
    lastCookTime = time;
    runFlag = true;
}

void NodeMaster::onParameterChanged(Parameter* parameter)
{
    if (!autoRefresh || !simState || !simState->paused) return;
    const ParameterSet* set = parameter ? parameter->owner : nullptr;
    if (set && parameter->key == "writeFilePath" && set->nodeMaster == this && set->owner) {
        auto* node = static_cast<BaseNode*>(set->owner);
        if (node && node->nodeKey == "mesher") return;
    }
    cook(false);
    if (frontend) frontend->refreshViews();
}
