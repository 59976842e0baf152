// Scene load and save through tinyxml2. Every kind of classic object is one entry of a
// small table (its list tags, element prefix, how to make one and what it links to), so
// load, save and the connection pass are written once for all kinds.
#include "io/scenefile.h"

#include "graph/nodemaster.h"

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "particles/dumbparticlesystem.h"
#include "io/object.h"
#include "particles/collisionobject.h"
#include "particles/force.h"
#include "particles/source.h"
#include "particles/granularparticlesystem.h"
#include "particles/sphparticlesystem.h"

#include <tinyxml2.h>

#include <boost/filesystem.hpp>

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <functional>
#include <map>
#include <vector>
#include <unistd.h>

using tinyxml2::XMLDocument;
using tinyxml2::XMLElement;

namespace scenefile {
namespace {

const int kErrorNoRoot = 5;

// One kind of classic object in the file.
struct Kind {
    const char* nodesTag;       // list element under "nodes"
    const char* connectionsTag; // list element under "connections"
    const char* prefix;         // element name before the running number
    std::function<std::vector<SceneObject*>(Simulation&)> objects;
    std::function<SceneObject*(Simulation&)> create;
    // The links a system keeps to colliders, sources and forces; null for other kinds.
    std::function<ObjectLinks*(SceneObject*)> links;
    // The geometry objects a source, collider or force reads; null for other kinds.
    std::function<std::vector<int32_t>*(SceneObject*)> geometry;
    // The word of the message when a geometry link names nothing ("Source", ...).
    const char* geometryWord = "";
};

template <class T>
std::vector<SceneObject*> asObjects(const std::vector<T*>& list)
{
    return std::vector<SceneObject*>(list.begin(), list.end());
}

const std::vector<Kind>& kinds()
{
    static const std::vector<Kind> table{
        {"dumbParticleSystems", "dumbParticleSystems", "DumbParticleSystem_",
         [](Simulation& s) { return asObjects(s.dumbSystems); },
         [](Simulation& s) -> SceneObject* { return s.createDumbSystem(""); },
         [](SceneObject* o) -> ObjectLinks* { return static_cast<DumbParticleSystem*>(o); }, nullptr, ""},
        // Under "nodes" the SPH list is written after the granular one (see save); it is
        // loaded and connected before it.
        {"SPHParticleSystems", "simpleSPHParticleSystems", "SPHParticleSystem_",
         [](Simulation& s) { return asObjects(s.sphSystems); },
         [](Simulation& s) -> SceneObject* { return s.createSPHSystem(""); },
         [](SceneObject* o) -> ObjectLinks* { return static_cast<SimpleSPHParticleSystem*>(o); }, nullptr,
         ""},
        {"granularParticleSystems", "granularParticleSystems", "GranularParticleSystem_",
         [](Simulation& s) { return asObjects(s.granularSystems); },
         [](Simulation& s) -> SceneObject* { return s.createGranularSystem(""); },
         [](SceneObject* o) -> ObjectLinks* { return static_cast<GranularParticleSystem*>(o); }, nullptr, ""},
        {"objects", "objects", "Object_", [](Simulation& s) { return asObjects(s.objects); },
         [](Simulation& s) -> SceneObject* { return s.createObject(""); }, nullptr, nullptr, ""},
        {"sources", "sources", "Source_", [](Simulation& s) { return asObjects(s.sources); },
         [](Simulation& s) -> SceneObject* { return s.createSource(""); }, nullptr,
         [](SceneObject* o) { return &static_cast<Source*>(o)->geometryIds; }, "Source"},
        {"colliders", "colliders", "Collider_", [](Simulation& s) { return asObjects(s.colliders); },
         [](Simulation& s) -> SceneObject* { return s.createCollider(""); }, nullptr,
         [](SceneObject* o) { return &static_cast<CollisionObject*>(o)->geometryIds; }, "Collider"},
        {"forces", "forces", "Force_", [](Simulation& s) { return asObjects(s.forces); },
         [](Simulation& s) -> SceneObject* { return s.createForce(""); }, nullptr,
         [](SceneObject* o) { return &static_cast<Force*>(o)->geometryIds; }, "Force"},
    };
    return table;
}

// Connections come sources, colliders, forces first, then the systems.
std::vector<const Kind*> connectionKinds()
{
    std::vector<const Kind*> out;
    for (const Kind& k : kinds())
        if (k.geometry) out.push_back(&k);
    for (const Kind& k : kinds())
        if (k.links) out.push_back(&k);
    return out;
}

// Row texts to attributes: every row, defaults included, in the set's order.
void writeParameters(XMLElement* element, const ParameterSet& set)
{
    for (const Parameter& p : set.parameters) element->SetAttribute(p.key.c_str(), p.text.c_str());
}

// Attributes to row texts, each row evaluated at once so that names and fields follow.
void applyParameters(const XMLElement* element, ParameterSet& set)
{
    const float frame = simState ? float(simState->frame) : 0.f;
    for (Parameter& p : set.parameters) {
        const char* value = element->Attribute(p.key.c_str());
        if (!value) {
            std::printf("param \"%s\" not found in file to open. Skipping. String reading. (Error: nullptr)\n",
                        p.key.c_str());
            if (p.key == "x" || p.key == "y" || p.key == "z") {
                const std::string older = "attribSetValue" + std::string(1, char(std::toupper(p.key[0])));
                value = element->Attribute(older.c_str());
            }
        }
        if (!value) continue;
        p.text = value;
        p.evaluate(frame, 0);
    }
}

std::string nameOfId(const Simulation& s, int id)
{
    return id >= 0 && size_t(id) < s.namesById.size() ? s.namesById[size_t(id)] : std::string();
}

void writeLinks(XMLDocument& doc, XMLElement* parent, const char* tag, const Simulation& s,
                const std::vector<int32_t>& ids)
{
    for (int32_t id : ids) {
        XMLElement* e = doc.NewElement(tag);
        e->SetText(nameOfId(s, id).c_str());
        parent->InsertEndChild(e);
    }
}

void connect(Simulation& s, const std::string& name, const XMLElement* element)
{
    SceneObject* first = s.findByName(name);
    for (const XMLElement* child = element->FirstChildElement(); child; child = child->NextSiblingElement()) {
        const std::string text = child->GetText() ? child->GetText() : "";
        const std::string tag = child->Name();
        std::printf("%s\n", text.c_str());
        if (!first) {
            std::printf("connection node1 is null\n");
            continue;
        }
        const Kind* kind = nullptr;
        for (const Kind& k : kinds()) {
            const auto list = k.objects(s);
            if (!kind && std::find(list.begin(), list.end(), first) != list.end()) kind = &k;
        }
        if (!kind) continue;
        const SceneObject* second = s.findByName(text);
        if (kind->geometry) {
            if (tag != "inputObject") continue;
            if (second) *kind->geometry(first) = {second->id};
            else std::printf("there's a problem. %s\n", kind->geometryWord);
            continue;
        }
        ObjectLinks* links = kind->links ? kind->links(first) : nullptr;
        if (!links) continue;
        if (tag == "inputSource") links->connectByType(kTypeSource, second ? second->id : -1);
        else if (tag == "inputCollider") links->connectByType(kTypeCollider, second ? second->id : -1);
        else if (tag == "inputForce") links->connectByType(kTypeForce, second ? second->id : -1);
    }
}

} // namespace

void setScenePath(Simulation& s, const std::string& path)
{
    s.scenePath = path;
    const size_t slash = path.find_last_of("/\\");
    std::string file = slash == std::string::npos ? path : path.substr(slash + 1);
    const size_t dot = file.rfind('.');
    s.sceneName = dot == std::string::npos ? file : file.substr(0, dot);
}

bool save(Simulation& s, const std::string& path)
{
    std::printf("%s\n", path.c_str());
    XMLDocument doc;
    XMLElement* root = doc.NewElement("Qorva");
    doc.InsertFirstChild(root);
    XMLElement* version = doc.NewElement("version");
    version->SetAttribute("major", std::to_string(versionMajor).c_str());
    version->SetAttribute("minor", std::to_string(versionMinor).c_str());
    version->SetAttribute("revision", std::to_string(versionPatch).c_str());
    root->InsertEndChild(version);

    XMLElement* nodes = doc.NewElement("nodes");
    root->InsertEndChild(nodes);
    XMLElement* settingsList = doc.NewElement("globalSettings");
    nodes->InsertEndChild(settingsList);
    if (s.globalSettings) {
        XMLElement* e = doc.NewElement(s.globalSettings->params.name.c_str());
        writeParameters(e, s.globalSettings->params);
        settingsList->InsertEndChild(e);
    }
    auto writeNodes = [&](const Kind& k) {
        XMLElement* list = doc.NewElement(k.nodesTag);
        nodes->InsertEndChild(list);
        int n = 0;
        for (SceneObject* o : k.objects(s)) {
            XMLElement* e = doc.NewElement((k.prefix + std::to_string(n++)).c_str());
            writeParameters(e, o->params);
            list->InsertEndChild(e);
        }
    };
    // SPH systems sit between the granular systems and the objects.
    const Kind* sph = nullptr;
    for (const Kind& k : kinds()) {
        if (std::string(k.nodesTag) == "SPHParticleSystems") {
            sph = &k;
            continue;
        }
        writeNodes(k);
        if (sph && std::string(k.nodesTag) == "granularParticleSystems") writeNodes(*sph);
    }

    XMLElement* connections = doc.NewElement("connections");
    root->InsertEndChild(connections);
    for (const Kind* kp : connectionKinds()) {
        const Kind& k = *kp;
        XMLElement* list = doc.NewElement(k.connectionsTag);
        connections->InsertEndChild(list);
        int n = 0;
        for (SceneObject* o : k.objects(s)) {
            XMLElement* e = doc.NewElement((k.prefix + std::to_string(n++)).c_str());
            if (ObjectLinks* l = k.links ? k.links(o) : nullptr) {
                writeLinks(doc, e, "inputCollider", s, l->colliderIds);
                writeLinks(doc, e, "inputSource", s, l->sourceIds);
                writeLinks(doc, e, "inputForce", s, l->forceIds);
            }
            if (k.geometry) writeLinks(doc, e, "inputObject", s, *k.geometry(o));
            list->InsertEndChild(e);
        }
    }

    // The graph's root goes at the head of the document.
    // Without a graph attached (tools, tests) the text read with the scene is kept as it was.
    {
        XMLDocument graph;
        const bool have = s.nodeMaster ? s.nodeMaster->saveGraph(std::string(), {}, &graph) == 0
                                       : !s.keptGraphXml.empty() &&
                                             graph.Parse(s.keptGraphXml.c_str()) == tinyxml2::XML_SUCCESS;
        if (have && graph.RootElement()) doc.InsertFirstChild(graph.RootElement()->DeepClone(&doc));
    }

    const std::string tmp = path + ".tmp" + std::to_string(::getpid());
    FILE* file = std::fopen(tmp.c_str(), "w");
    if (!file) return false;
    tinyxml2::XMLPrinter printer(file, false);
    doc.Print(&printer);
    const bool ok = std::fflush(file) == 0 && !std::ferror(file);
    std::fclose(file);
    if (!ok || std::rename(tmp.c_str(), path.c_str()) != 0) {
        std::remove(tmp.c_str());
        return false;
    }
    setScenePath(s, path);
    return true;
}

int load(Simulation& s, const std::string& path)
{
    s.clear();
    XMLDocument doc;
    const tinyxml2::XMLError error = doc.LoadFile(path.c_str());
    if (error != tinyxml2::XML_SUCCESS) {
        std::printf("Error: %i\n", int(error));
        return int(error);
    }
    setScenePath(s, path);
    const XMLElement* root = doc.FirstChildElement("Qorva");
    const XMLElement* nodes = root ? root->FirstChildElement("nodes") : nullptr;
    if (!nodes) return kErrorNoRoot;
    if (const XMLElement* graph = doc.FirstChildElement("Qorva_ng")) {
        tinyxml2::XMLPrinter printer;
        graph->Accept(&printer);
        s.keptGraphXml = printer.CStr();
    }
    std::printf("\nloading objects...\n");

    std::map<std::string, std::string> tagToName;
    if (const XMLElement* list = nodes->FirstChildElement("globalSettings")) {
        for (const XMLElement* e = list->FirstChildElement(); e; e = e->NextSiblingElement()) {
            std::printf("* loading \"%s\"\n", e->Name());
            applyParameters(e, s.globalSettings->params);
        }
    }
    for (const Kind& k : kinds()) {
        const XMLElement* list = nodes->FirstChildElement(k.nodesTag);
        for (const XMLElement* e = list ? list->FirstChildElement() : nullptr; e; e = e->NextSiblingElement()) {
            std::printf("* loading \"%s\"\n", e->Name());
            SceneObject* o = k.create(s);
            o->params.name = e->Name();
            applyParameters(e, o->params);
            if (o->id >= 0 && size_t(o->id) < s.namesById.size()) s.namesById[size_t(o->id)] = o->name;
            tagToName[e->Name()] = o->name;
            // What the file held decides the derived sizes at once.
            if (auto* sphSystem = dynamic_cast<SimpleSPHParticleSystem*>(o)) sphSystem->updateDerivedFields();
            if (auto* object = dynamic_cast<Object*>(o))
                if (!object->filePath.empty()) object->loadGeometry(object->filePath, simState ? simState->frameF : 0.f);
        }
    }

    std::printf("\nloading connections...\n");
    if (const XMLElement* connections = root->FirstChildElement("connections")) {
        for (const Kind* k : connectionKinds()) {
            const XMLElement* list = connections->FirstChildElement(k->connectionsTag);
            for (const XMLElement* e = list ? list->FirstChildElement() : nullptr; e; e = e->NextSiblingElement()) {
                const auto it = tagToName.find(e->Name());
                connect(s, it == tagToName.end() ? std::string() : it->second, e);
            }
        }
    }
    const int removed = s.pruneObjects();
    if (removed != 0) {
        std::printf("Warning! Unconnected node(s) detected.\n");
        std::printf("removed %d unreferenced nodes.\n", removed);
    }
    if (simState) simState->dt = 0.f;
    for (Source* src : std::vector<Source*>(s.sources)) s.connectObject(src->name, false);
    for (CollisionObject* c : std::vector<CollisionObject*>(s.colliders)) s.connectObject(c->name, false);
    return 0;
}

} // namespace scenefile
