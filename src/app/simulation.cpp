// The classic scene's registry and the whole-scene operations the solver loop calls.
#include "app/simulation.h"
#include "app/uniquename.h"
#include "graph/nodemaster.h"

#include "app/globalsettings.h"
#include "app/globals.h"
#include "app/sceneobject.h"
#include "app/simstate.h"
#include "app/writingqueue.h"
#include "io/fileio.h"
#include "io/scenefile.h"
#include "params/paths.h"
#include "particles/dumbparticlesystem.h"
#include "particles/collisionobject.h"
#include "particles/force.h"
#include "particles/objectsdf.h"
#include "particles/source.h"
#include "io/object.h"
#include "particles/granularparticlesystem.h"
#include "particles/particleimport.h"
#include "particles/sphparticlesystem.h"

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
    sphSystems.clear();
    forces.clear();
    objects.clear();
    sources.clear();
    colliders.clear();
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

SimpleSPHParticleSystem* Simulation::createSPHSystem(const std::string& name)
{
    auto system = std::make_unique<SimpleSPHParticleSystem>();
    SimpleSPHParticleSystem* s = system.get();
    registerObject(std::move(system), name);
    sphSystems.push_back(s);
    return s;
}

Force* Simulation::createForce(const std::string& name)
{
    auto force = std::make_unique<Force>();
    Force* f = force.get();
    registerObject(std::move(force), name);
    forces.push_back(f);
    return f;
}

namespace {
template <class T, class List>
T* makeObject(Simulation& s, List& list, const std::string& name)
{
    auto object = std::make_unique<T>();
    T* raw = object.get();
    s.registerObject(std::move(object), name);
    list.push_back(raw);
    return raw;
}

template <class T>
bool dropFrom(std::vector<T*>& list, const SceneObject* object)
{
    const auto it = std::find(list.begin(), list.end(), object);
    if (it == list.end()) return false;
    list.erase(it);
    return true;
}
} // namespace

Source* Simulation::createSource(const std::string& name) { return makeObject<Source>(*this, sources, name); }

CollisionObject* Simulation::createCollider(const std::string& name)
{
    return makeObject<CollisionObject>(*this, colliders, name);
}

Object* Simulation::createObject(const std::string& name) { return makeObject<Object>(*this, objects, name); }

void Simulation::removeObject(SceneObject* object)
{
    if (!object || object == globalSettings) return;
    dropFrom(objects, object) || dropFrom(sources, object) || dropFrom(colliders, object) ||
        dropFrom(forces, object) || dropFrom(dumbSystems, object) || dropFrom(granularSystems, object) ||
        dropFrom(sphSystems, object);
    if (object->id >= 0 && size_t(object->id) < objectsById.size()) objectsById[size_t(object->id)] = nullptr;
    selection.erase(std::remove_if(selection.begin(), selection.end(),
                                   [&](const SelectionEntry& e) { return e.id == object->id; }),
                    selection.end());
    owned.erase(std::remove_if(owned.begin(), owned.end(),
                               [&](const std::unique_ptr<SceneObject>& o) { return o.get() == object; }),
                owned.end());
}

namespace {
// What a source, collider or force needs for its geometry: its path, scale and ids.
struct GeometryOwner {
    std::string* filePath = nullptr;
    float readScale = 1.f;
    std::vector<int32_t>* ids = nullptr;
    const char* role = "";
};

GeometryOwner geometryOwner(SceneObject* o)
{
    GeometryOwner g;
    if (auto* src = dynamic_cast<Source*>(o)) g = {&src->filePath, src->readScale, &src->geometryIds, " as emission volume."};
    else if (auto* c = dynamic_cast<CollisionObject*>(o))
        g = {&c->filePath, c->readScale, &c->geometryIds, " as collision volume."};
    else if (auto* f = dynamic_cast<Force*>(o)) g = {&f->filePath, 1.f, &f->geometryIds, " as volume."};
    return g;
}
} // namespace

bool Simulation::connectObject(const std::string& name, bool rebuild)
{
    SceneObject* owner = findByName(name);
    const GeometryOwner g = geometryOwner(owner);
    if (!owner || owner->id < 0 || !g.ids || g.filePath->empty()) return false;
    const float frame = simState ? simState->frameF : 0.f;
    Object* object = g.ids->empty() ? nullptr : dynamic_cast<Object*>(objectById((*g.ids)[0]));
    if (object) {
        if (object->filePath == *g.filePath) return true;
        object->filePath = *g.filePath;
        object->readScale = g.readScale;
        const bool loaded = object->loadGeometry(*g.filePath, frame) == 0;
        if (!loaded && owner->typeCode == kTypeSource) {
            removeObject(object);
            g.ids->clear();
            return false;
        }
        if (loaded && rebuild) {
            if (auto* src = dynamic_cast<Source*>(owner)) prepareObjectSdf(*object, src->sdfSettings(), true, false);
            if (auto* c = dynamic_cast<CollisionObject*>(owner)) prepareObjectSdf(*object, c->sdfSettings(), true, false);
        }
    } else {
        object = createObject(fileStem(*g.filePath));
        object->filePath = *g.filePath;
        object->params.get("filePath")->text = *g.filePath;
        object->readScale = g.readScale;
        if (object->loadGeometry(*g.filePath, frame) != 0) {
            removeObject(object);
            return false;
        }
        if (auto* src = dynamic_cast<Source*>(owner)) {
            if (src->sourceType == Source::kPlane) src->sourceType = Source::kVolume;
            if (Parameter* row = src->params.get("sourceType")) row->refreshText(true);
        } else if (auto* f = dynamic_cast<Force*>(owner)) {
            f->forceType = 2;
            if (Parameter* row = f->params.get("forceType")) row->refreshText(true);
        }
        *g.ids = {object->id};
    }
    std::printf("Object %s connected to %s%s\n", object->name.c_str(), owner->name.c_str(), g.role);
    return true;
}

int Simulation::pruneObjects()
{
    auto referenced = [&](int id) {
        for (Source* src : sources)
            if (std::count(src->geometryIds.begin(), src->geometryIds.end(), id)) return true;
        for (CollisionObject* c : colliders)
            if (std::count(c->geometryIds.begin(), c->geometryIds.end(), id)) return true;
        for (Force* f : forces)
            if (std::count(f->geometryIds.begin(), f->geometryIds.end(), id)) return true;
        return false;
    };
    int removed = 0;
    for (Object* o : std::vector<Object*>(objects))
        if (!referenced(o->id)) {
            removeObject(o);
            ++removed;
        }
    return removed;
}

void Simulation::updateClassicObjects(float frameF)
{
    for (CollisionObject* c : colliders) c->updateGeometry(frameF);
    for (Source* src : sources) src->updateGeometry(frameF);
    for (Source* src : sources) src->updateMatrices();
    for (CollisionObject* c : colliders) c->updateMatrices();
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

std::shared_ptr<Body> Simulation::systemSnapshot(const std::string& name) const
{
    for (const DumbParticleSystem* s : dumbSystems)
        if (s->name == name) return s->exportBody();
    for (const SimpleSPHParticleSystem* s : sphSystems)
        if (s->name == name) return s->exportBody();
    for (const GranularParticleSystem* s : granularSystems)
        if (s->name == name) return s->exportBody();
    return nullptr;
}

bool Simulation::replaceSystemPoints(const std::string& name, const PointData& points)
{
    for (DumbParticleSystem* s : dumbSystems)
        if (s->name == name) {
            *s->body->points = points;
            return true;
        }
    for (SimpleSPHParticleSystem* s : sphSystems)
        if (s->name == name) {
            *s->body->points = points;
            s->ensureChannels();
            return true;
        }
    for (GranularParticleSystem* s : granularSystems)
        if (s->name == name) {
            *s->body->points = points;
            s->ensureChannels();
            // As after loading an initial state: the next solve links the particles anew.
            s->lastParticleCount = 0;
            s->constraintsDirty = true;
            return true;
        }
    return false;
}

std::string Simulation::uniqueName(const std::string& wanted, const SceneObject* except) const
{
    // classic objects and nodes share one namespace of names
    return ::uniqueName(wanted, [&](const std::string& n) {
        for (const SceneObject* o : objectsById)
            if (o && o != except && o->name == n) return true;
        return nodeMaster && nodeMaster->findByName(n) != nullptr;
    });
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
    for (const SimpleSPHParticleSystem* s : sphSystems)
        if (s->maxSpeedLastStep > 0.f) d = std::min(d, c * s->particleSpacing / s->maxSpeedLastStep);
    return d;
}

void Simulation::evaluateParameters(float frame, int substep)
{
    if (globalSettings) globalSettings->evaluateParameters(frame, substep);
    for (SceneObject* o : objectsById)
        if (o && o != globalSettings) o->evaluateParameters(frame, substep);
}

void Simulation::updateSourceTransforms()
{
    for (Source* src : sources) src->updateMatrices();
}

size_t Simulation::particleCount() const
{
    size_t n = 0;
    for (const DumbParticleSystem* d : dumbSystems) n += d->size();
    for (const GranularParticleSystem* g : granularSystems) n += g->particleCount();
    for (const SimpleSPHParticleSystem* s : sphSystems) n += s->particleCount();
    return n;
}

void Simulation::stepSystems()
{
    for (SimpleSPHParticleSystem* s : sphSystems) s->step();
    for (GranularParticleSystem* g : granularSystems) g->step();
    for (DumbParticleSystem* d : dumbSystems) d->step();
}

void Simulation::rememberParticleCounts()
{
    for (SimpleSPHParticleSystem* s : sphSystems) s->rememberParticleCount();
    for (GranularParticleSystem* g : granularSystems) g->rememberParticleCount();
}

void Simulation::loadInitialStates()
{
    for (SimpleSPHParticleSystem* s : sphSystems) {
        const Parameter* row = s->params.get("initialStateFilePath");
        if (!row || row->text.empty()) continue;
        const std::string path = initialStatePath(row->text, s->name, s->exportFormat);
        if (std::ifstream(path, std::ios::binary)) readInitialState(*s, path);
    }
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
                writeBodyJob(path, system.exportBody(), currentFrameStamp());
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
    const int64_t start = SimState::nowNs();
    for (const DumbParticleSystem* d : dumbSystems)
        if (d->enabled) writeSystemCache(*d);
    for (const SimpleSPHParticleSystem* s : sphSystems)
        if (s->enabled) writeSystemCache(*s);
    for (const GranularParticleSystem* g : granularSystems)
        if (g->enabled) writeSystemCache(*g);
    cacheSeconds += double(SimState::nowNs() - start) / 1e9;
}

void Simulation::readCaches()
{
    for (DumbParticleSystem* d : dumbSystems) readSystemCache(*d);
    for (SimpleSPHParticleSystem* s : sphSystems) readSystemCache(*s);
    for (GranularParticleSystem* g : granularSystems) readSystemCache(*g);
}

void Simulation::resetAll()
{
    for (Source* src : sources) src->resetEmission();
    for (CollisionObject* c : colliders) c->resetState();
    for (DumbParticleSystem* d : dumbSystems) d->reset(true);
    for (SimpleSPHParticleSystem* s : sphSystems) s->reset();
    for (GranularParticleSystem* g : granularSystems) g->reset();
}
