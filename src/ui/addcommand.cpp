#include "ui/addcommand.h"

#include "ui/selectioncommand.h"
#include "ui/uiglobals.h"

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/sceneobject.h"
#include "app/simstate.h"
#include "io/object.h"
#include "particles/collisionobject.h"
#include "particles/dumbparticlesystem.h"
#include "particles/force.h"
#include "particles/granularparticlesystem.h"
#include "particles/source.h"
#include "particles/sphparticlesystem.h"

#include <QString>
#include <cstdio>
#include <utility>

namespace {

// Holds the classic data lock for a scope; waits up to a second and then goes on
// without it, with a line, rather than dropping the user's action.
class ClassicLock {
public:
    explicit ClassicLock(const char* who) : locked(vboMutex.tryLock(1000))
    {
        if (!locked) std::printf("%s: the scene stayed busy; going on without the lock.\n", who);
    }
    ~ClassicLock()
    {
        if (locked) vboMutex.unlock();
    }
    ClassicLock(const ClassicLock&) = delete;
    ClassicLock& operator=(const ClassicLock&) = delete;
    bool locked;
};

} // namespace

AddCommand::AddCommand(int type, std::string wanted) : typeCode(type), wantedName(std::move(wanted))
{
    const std::vector<std::string>* names = simulation ? &simulation->typeNames : nullptr;
    const std::string kind = names && type >= 0 && size_t(type) < names->size() ? (*names)[size_t(type)] : "object";
    setText(QString::fromStdString("Add " + kind));
}

SceneObject* AddCommand::createOfType(int type, const std::string& wanted)
{
    if (!simulation) return nullptr;
    auto pick = [&](const char* fallback) { return wanted.empty() ? std::string(fallback) : wanted; };
    switch (type) {
    case kTypeDumbSystem: return simulation->createDumbSystem(pick("dumb1"));
    case kTypeGranularSystem: return simulation->createGranularSystem(pick("granular1"));
    case kTypeSphSystem: return simulation->createSPHSystem(pick("sph1"));
    case kTypeSource: return simulation->createSource(pick("source1"));
    case kTypeForce: return simulation->createForce(pick("force1"));
    case kTypeCollider: return simulation->createCollider(pick("collider1"));
    case kTypeObject: return simulation->createObject(pick("object1"));
    default:
        std::printf("Add: objects of type %d can't be made here.\n", type);
        return nullptr;
    }
}

bool AddCommand::removeByName(const std::string& objectName)
{
    if (!simulation) return false;
    ClassicLock lock("Remove");
    SceneObject* object = simulation->findByName(objectName);
    if (!object || object == simulation->globalSettings) return false;
    simulation->removeObject(object);
    return true;
}

void AddCommand::redo()
{
    if (!simulation) return;
    selectionBefore = currentSelection();
    SceneObject* made = nullptr;
    {
        ClassicLock lock("Add");
        made = createOfType(typeCode, name.empty() ? wantedName : name);
        if (made) made->evaluateParameters(simState ? float(simState->frame) : 0.f, 0);
    }
    if (!made) return;
    name = made->name;
    emit UiEvents::instance()->sceneChanged();
    SelectionEntry entry;
    entry.typeCode = made->typeCode;
    entry.id = made->id;
    entry.name = made->name;
    setSelection({entry});
    markSceneEdited();
    requestViewsRefresh();
}

void AddCommand::undo()
{
    if (name.empty()) return;
    if (!removeByName(name)) std::printf("Add Undo: object %s not found.\n", name.c_str());
    emit UiEvents::instance()->sceneChanged();
    SelectionCommand::selectByName(selectionBefore);
    markSceneEdited();
}
