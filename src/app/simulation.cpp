// The classic scene's registry and the whole-scene operations the solver loop calls.
#include "app/simulation.h"

#include "app/globalsettings.h"
#include "app/globals.h"
#include "app/sceneobject.h"
#include "app/simstate.h"
#include "app/writingqueue.h"
#include "io/fileio.h"
#include "io/scenefile.h"
#include "params/paths.h"
#include "particles/dumbparticlesystem.h"
#include "particles/force.h"
#include "particles/granularparticlesystem.h"
#include "particles/particleimport.h"

#include <QThread>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <fstream>

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
    const int id = registerObject(std::move(settings), "GlobalSettings");
    if (simState) simState->globalSettingsId = id;
    return globalSettings;
}

GranularParticleSystem* Simulation::createGranularSystem(const std::string& name)
{
    auto system = std::make_unique<GranularParticleSystem>();
    GranularParticleSystem* g = system.get();
    registerObject(std::move(system), name);
    granularSystems.push_back(g);
    return g;
}

void Simulation::clear()
{
    dumbSystems.clear();
    granularSystems.clear();
    forces.clear();
    selection.clear();
    objectsById.clear();
    typesById.clear();
    namesById.clear();
    nextObjectId = 0;
    globalSettings = nullptr;
    owned.clear();
    createGlobalSettings();
    sceneName = "unnamed";
    scenePath.clear();
    keptGraphXml.clear();
    if (simState) {
        simState->frame = simState->startFrame;
        simState->frameF = float(simState->startFrame);
        simState->substep = 0;
        simState->elapsedSeconds = 0.0;
        simState->accumulatedSeconds = 0.0;
        simState->simFinished = true;
    }
    std::srand(1);
}

int Simulation::loadScene(const std::string& path) { return scenefile::load(*this, path); }

bool Simulation::saveScene(const std::string& path) { return scenefile::save(*this, path); }

DumbParticleSystem* Simulation::createDumbSystem(const std::string& name)
{
    auto system = std::make_unique<DumbParticleSystem>();
    DumbParticleSystem* d = system.get();
    registerObject(std::move(system), name);
    dumbSystems.push_back(d);
    std::srand(1); // a new system restarts the run's random stream
    return d;
}

Force* Simulation::createForce(const std::string& name)
{
    auto force = std::make_unique<Force>();
    Force* f = force.get();
    registerObject(std::move(force), name);
    forces.push_back(f);
    return f;
}

int Simulation::registerObject(std::unique_ptr<SceneObject> object, const std::string& wantedName)
{
    SceneObject* o = object.get();
    o->id = nextObjectId++;
    o->name = uniqueName(wantedName.empty() ? typeNames[size_t(o->typeCode)] : wantedName, o);
    o->params.name = o->name;
    o->params.renamer = [this, o](const std::string& wanted) { return renameObject(o, wanted); };
    for (Parameter& row : o->params.parameters)
        if (row.type == kParamObjectName) row.text = o->name;
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
    for (Parameter& row : object->params.parameters)
        if (row.type == kParamObjectName) row.text = object->name;
    if (object->id >= 0 && size_t(object->id) < namesById.size()) namesById[size_t(object->id)] = object->name;
    return object->name;
}

float Simulation::maxStableDt(float c) const
{
    float d = 1000.f;
    for (const GranularParticleSystem* g : granularSystems)
        if (g->maxSpeedLastStep > 0.f) d = std::min(d, c * g->particleSpacing / g->maxSpeedLastStep);
    return d;
}

void Simulation::evaluateParameters(float frame, int substep)
{
    if (globalSettings) globalSettings->evaluateParameters(frame, substep);
    for (SceneObject* o : objectsById)
        if (o && o != globalSettings) o->evaluateParameters(frame, substep);
}

void Simulation::updateSourceTransforms() {}

size_t Simulation::particleCount() const
{
    size_t n = 0;
    for (const DumbParticleSystem* d : dumbSystems) n += d->size();
    for (const GranularParticleSystem* g : granularSystems) n += g->particleCount();
    return n;
}

void Simulation::stepSystems()
{
    for (GranularParticleSystem* g : granularSystems) g->step();
    for (DumbParticleSystem* d : dumbSystems) d->step();
}

void Simulation::rememberParticleCounts()
{
    for (GranularParticleSystem* g : granularSystems) g->rememberParticleCount();
}

void Simulation::loadInitialStates()
{
    for (GranularParticleSystem* g : granularSystems) {
        const Parameter* row = g->params.get("initialStateFilePath");
        if (!row || row->text.empty()) continue;
        const std::string path = initialStatePath(row->text, g->name, g->exportFormat);
        if (std::ifstream(path, std::ios::binary)) readInitialState(*g, path);
    }
}

namespace {

// One system's cache for the current frame: a snapshot into the writing queue, or written
// here; up to 5 tries, since a full disk or a busy share may recover.
template <class System>
void writeSystemCache(const System& system)
{
    const std::string path = cachePath(system.name, system.exportFormat);
    for (int attempt = 0; attempt < 5; ++attempt) {
        try {
            if (simState->writeInBackground && writingQueue) {
                writingQueue->addSystemSnapshot(path, system);
            } else {
                const FrameStamp stamp = currentFrameStamp();
                fileio::BinFrameInfo info;
                info.time = stamp.time;
                info.frame = stamp.frame;
                info.fps = float(stamp.fps);
                fileio::write(path, system.exportBody(), &info);
            }
            return;
        } catch (const std::exception& e) {
            std::fprintf(stderr, "\nqueue error: %s\n", e.what());
        } catch (...) {
            std::fprintf(stderr, "\nqueue error. \n");
        }
        QThread::msleep(1000);
    }
}

template <class System>
void readSystemCache(System& system)
{
    if (!system.enabled) return;
    const std::string path = cachePath(system.name, system.exportFormat);
    if (std::ifstream(path, std::ios::binary)) readInitialState(system, path);
}

} // namespace

void Simulation::writeCaches()
{
    if (!globalSettings) return;
    for (const DumbParticleSystem* d : dumbSystems)
        if (d->enabled) writeSystemCache(*d);
    for (const GranularParticleSystem* g : granularSystems)
        if (g->enabled) writeSystemCache(*g);
}

void Simulation::readCaches()
{
    for (DumbParticleSystem* d : dumbSystems) readSystemCache(*d);
    for (GranularParticleSystem* g : granularSystems) readSystemCache(*g);
}

void Simulation::resetAll()
{
    for (DumbParticleSystem* d : dumbSystems) d->reset(true);
    for (GranularParticleSystem* g : granularSystems) g->reset();
}
