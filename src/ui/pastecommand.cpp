#include "ui/pastecommand.h"

#include "ui/addcommand.h"
#include "ui/selectioncommand.h"
#include "ui/uiglobals.h"

#include "app/globals.h"
#include "app/sceneobject.h"
#include "app/simstate.h"
#include "io/object.h"
#include "particles/force.h"
#include "particles/objectlinks.h"
#include "particles/placedobject.h"

#include <QString>
#include <tinyxml2.h>

#include <algorithm>
#include <cstdio>
#include <utility>

using tinyxml2::XMLDocument;
using tinyxml2::XMLElement;

namespace {

const char* kRootTag = "QorvaObject";

// The geometry ids of a source, collider or force; null for other kinds.
std::vector<int32_t>* geometryIdsOf(SceneObject* o)
{
    if (auto* placed = dynamic_cast<PlacedObject*>(o)) return &placed->geometryIds;
    if (auto* force = dynamic_cast<Force*>(o)) return &force->geometryIds;
    return nullptr;
}

std::string nameOfId(int id)
{
    SceneObject* o = simulation ? simulation->objectById(id) : nullptr;
    return o ? o->name : std::string();
}

void addNames(XMLDocument& doc, XMLElement* parent, const char* tag, const std::vector<int32_t>& ids)
{
    for (int32_t id : ids) {
        const std::string n = nameOfId(id);
        if (n.empty()) continue; // a link to an object deleted earlier
        XMLElement* e = doc.NewElement(tag);
        e->SetText(n.c_str());
        parent->InsertEndChild(e);
    }
}

bool contains(const std::vector<int32_t>& ids, int id)
{
    return std::find(ids.begin(), ids.end(), id) != ids.end();
}

const char* kindWord(int type)
{
    switch (type) {
    case kTypeSource: return "source";
    case kTypeCollider: return "collider";
    case kTypeForce: return "force";
    case kTypeObject: return "object";
    default: return "system";
    }
}

// `holder` (a system) takes the link to `target`, unless it has it already.
void linkSystem(SceneObject* holder, SceneObject* target)
{
    auto* links = dynamic_cast<ObjectLinks*>(holder);
    const int type = target ? target->typeCode : -1;
    if (links && target) {
        const std::vector<int32_t>& ids = type == kTypeSource     ? links->sourceIds
                                          : type == kTypeCollider ? links->colliderIds
                                                                  : links->forceIds;
        if (contains(ids, target->id) || links->connectByType(type, target->id)) return;
    }
    std::printf("delCommand: error connecting the %s.\n", kindWord(type));
}

void restoreLinks(SceneObject* object, const XMLElement* root)
{
    for (const XMLElement* e = root->FirstChildElement(); e; e = e->NextSiblingElement()) {
        const std::string tag = e->Name();
        const std::string other = e->GetText() ? e->GetText() : "";
        SceneObject* peer = other.empty() ? nullptr : simulation->findByName(other);
        if (tag == "inputObject") {
            std::vector<int32_t>* ids = geometryIdsOf(object);
            if (ids && peer && peer->typeCode == kTypeObject) *ids = {peer->id};
            else if (!ids || !simulation->connectObject(object->name, false))
                std::printf("delCommand: error connecting the object.\n");
        } else if (tag == "inputCollider" || tag == "inputSource" || tag == "inputForce") {
            linkSystem(object, peer);
        } else if (tag == "linkedBy") {
            if (std::vector<int32_t>* ids = peer ? geometryIdsOf(peer) : nullptr) {
                *ids = {object->id}; // a geometry object back under its source, collider or force
            } else if (peer && dynamic_cast<ObjectLinks*>(peer)) {
                linkSystem(peer, object);
            } else {
                std::printf("delCommand: error connecting the %s.\n", kindWord(object->typeCode));
            }
        }
    }
}

} // namespace

std::string copyObjectText(const std::string& name)
{
    SceneObject* object = simulation ? simulation->findByName(name) : nullptr;
    if (!object) return std::string();
    XMLDocument doc;
    XMLElement* root = doc.NewElement(kRootTag);
    doc.InsertFirstChild(root);
    root->SetAttribute("type", object->typeCode);
    root->SetAttribute("name", object->name.c_str());
    XMLElement* rows = doc.NewElement("params");
    for (const Parameter& p : object->params.parameters)
        if (p.key != "blank" && p.key != "label" && p.key != "writeButton") rows->SetAttribute(p.key.c_str(), p.text.c_str());
    root->InsertEndChild(rows);
    if (auto* links = dynamic_cast<ObjectLinks*>(object)) {
        addNames(doc, root, "inputCollider", links->colliderIds);
        addNames(doc, root, "inputSource", links->sourceIds);
        addNames(doc, root, "inputForce", links->forceIds);
    }
    if (std::vector<int32_t>* ids = geometryIdsOf(object)) addNames(doc, root, "inputObject", *ids);
    // What refers to this object: systems for sources, colliders and forces; those three
    // for a geometry object.
    for (SceneObject* other : simulation->objectsById) {
        if (!other || other == object) continue;
        bool refers = false;
        if (auto* links = dynamic_cast<ObjectLinks*>(other))
            refers = contains(links->sourceIds, object->id) || contains(links->colliderIds, object->id) ||
                     contains(links->forceIds, object->id);
        else if (std::vector<int32_t>* ids = geometryIdsOf(other))
            refers = contains(*ids, object->id);
        if (refers) addNames(doc, root, "linkedBy", {other->id});
    }
    tinyxml2::XMLPrinter printer;
    doc.Print(&printer);
    return printer.CStr();
}

int objectTextType(const std::string& text)
{
    XMLDocument doc;
    if (doc.Parse(text.c_str()) != tinyxml2::XML_SUCCESS) return -1;
    const XMLElement* root = doc.FirstChildElement(kRootTag);
    return root ? root->IntAttribute("type", -1) : -1;
}

std::string objectFromText(int typeCode, const std::string& text, const std::string& wantedName)
{
    XMLDocument doc;
    const XMLElement* root = doc.Parse(text.c_str()) == tinyxml2::XML_SUCCESS ? doc.FirstChildElement(kRootTag) : nullptr;
    if (!root || !simulation) {
        std::printf("Paste: the text holds no object.\n");
        return std::string();
    }
    const char* savedName = root->Attribute("name");
    SceneObject* object = AddCommand::createOfType(typeCode, wantedName.empty() && savedName ? savedName : wantedName);
    if (!object) return std::string();
    const float frame = simState ? float(simState->frame) : 0.f;
    if (const XMLElement* rows = root->FirstChildElement("params")) {
        for (Parameter& p : object->params.parameters) {
            if (p.type == kParamObjectName) continue; // the name is the one just given
            if (const char* value = rows->Attribute(p.key.c_str())) p.text = value;
        }
    }
    object->evaluateParameters(frame, 0);
    if (auto* geometry = dynamic_cast<Object*>(object))
        if (!geometry->filePath.empty()) geometry->loadGeometry(geometry->filePath, simState ? simState->frameF : 0.f);
    return object->name;
}

void restoreObjectLinks(const std::string& name, const std::string& text)
{
    SceneObject* object = simulation ? simulation->findByName(name) : nullptr;
    XMLDocument doc;
    const XMLElement* root = doc.Parse(text.c_str()) == tinyxml2::XML_SUCCESS ? doc.FirstChildElement(kRootTag) : nullptr;
    if (object && root) restoreLinks(object, root);
}

PasteCommand::PasteCommand(int type, std::string pasted) : typeCode(type), text(std::move(pasted))
{
    setText(QStringLiteral("Paste"));
}

void PasteCommand::redo()
{
    if (!simulation) return;
    selectionBefore = currentSelection();
    if (typeCode < kTypeDumbSystem || typeCode > kTypeCollider) {
        std::printf("Paste: objects of type %d can't be pasted.\n", typeCode);
        return;
    }
    const bool locked = vboMutex.tryLock(1000);
    if (!locked) std::printf("Paste: the scene stayed busy; going on without the lock.\n");
    std::string made = objectFromText(typeCode, text, name);
    if (!made.empty() && (typeCode == kTypeSource || typeCode == kTypeCollider || typeCode == kTypeForce))
        simulation->connectObject(made, false); // its own geometry object, from its file path
    if (locked) vboMutex.unlock();
    if (made.empty()) return;
    name = made;
    emit UiEvents::instance()->sceneChanged();
    setSelection({selectionEntryFor(name)});
    markSceneEdited();
    requestViewsRefresh();
}

void PasteCommand::undo()
{
    if (name.empty()) return;
    if (!AddCommand::removeByName(name)) std::printf("Paste Undo: object %s not found.\n", name.c_str());
    emit UiEvents::instance()->sceneChanged();
    SelectionCommand::selectByName(selectionBefore);
    markSceneEdited();
}
