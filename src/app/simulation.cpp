// The classic scene's registry and the whole-scene operations the solver loop calls.
#include "app/simulation.h"

#include "app/globalsettings.h"
#include "app/globals.h"
#include "app/sceneobject.h"
#include "app/simstate.h"

#include <cctype>

Simulation::Simulation()
    : typeNames{"DUMBPARTICLESYSTEM", "GRANULARPARTICLESYSTEM", "PCISPHPARTICLESYSTEM",
                "SIMPLESPHPARTICLESYSTEM", "SMOKESYSTEM", "SOURCE", "SINK", "FORCE", "COLLIDER", "OBJECT",
                "GLOBALSETTINGS", "MANIPULATOR", "ALL", "GRAPHNODE"}
{
}

Simulation::~Simulation() = default;

GlobalSettings* Simulation::createGlobalSettings()
{
    if (globalSettings) return globalSettings;
    auto settings = std::make_unique<GlobalSettings>();
    globalSettings = settings.get();
    const int id = registerObject(std::move(settings), "globalSettings");
    if (simState) simState->globalSettingsId = id;
    return globalSettings;
}

int Simulation::registerObject(std::unique_ptr<SceneObject> object, const std::string& wantedName)
{
    SceneObject* o = object.get();
    o->id = nextObjectId++;
    o->name = uniqueName(wantedName.empty() ? typeNames[size_t(o->typeCode)] : wantedName, o);
    o->params.name = o->name;
    o->params.renamer = [this, o](const std::string& wanted) { return renameObject(o, wanted); };
    objectsById.push_back(o);
    typesById.push_back(o->typeCode);
    namesById.push_back(o->name);
    owned.push_back(std::move(object));
    return o->id;
}

SceneObject* Simulation::objectById(int id) const
{
    if (id < 0 || size_t(id) >= objectsById.size()) return nullptr;
    return objectsById[size_t(id)];
}

SceneObject* Simulation::findByName(const std::string& name, int* typeCode) const
{
    static const int order[] = {10, 0, 3, 1, 9, 5, 8, 7};
    for (int type : order) {
        for (SceneObject* o : objectsById) {
            if (o && o->typeCode == type && o->name == name) {
                if (typeCode) *typeCode = type;
                return o;
            }
        }
    }
    return nullptr;
}

std::string Simulation::uniqueName(const std::string& wanted, const SceneObject* except) const
{
    auto taken = [&](const std::string& n) {
        for (const SceneObject* o : objectsById)
            if (o && o != except && o->name == n) return true;
        return false;
    };
    if (!taken(wanted)) return wanted;
    size_t cut = wanted.size();
    while (cut > 0 && std::isdigit(static_cast<unsigned char>(wanted[cut - 1]))) --cut;
    const std::string base = wanted.substr(0, cut);
    long n = cut < wanted.size() ? std::stol(wanted.substr(cut).substr(0, 9)) : 0;
    std::string candidate;
    do {
        candidate = base + std::to_string(++n);
    } while (taken(candidate));
    return candidate;
}

std::string Simulation::renameObject(SceneObject* object, const std::string& wanted)
{
    if (!object || wanted == object->name) return object ? object->name : wanted;
    object->name = uniqueName("temp", object);
    object->name = uniqueName(wanted, object);
    object->params.name = object->name;
    if (object->id >= 0 && size_t(object->id) < namesById.size()) namesById[size_t(object->id)] = object->name;
    return object->name;
}

float Simulation::maxStableDt(float /*c*/) const
{
    return 1000.f;
}

void Simulation::evaluateParameters(float frame, int substep)
{
    if (globalSettings) globalSettings->evaluateParameters(frame, substep);
    for (SceneObject* o : objectsById)
        if (o && o != globalSettings) o->evaluateParameters(frame, substep);
}

void Simulation::updateSourceTransforms() {}

void Simulation::loadInitialStates() {}

void Simulation::writeCaches()
{
    if (!globalSettings) return;
}

void Simulation::readCaches() {}

void Simulation::resetAll() {}
