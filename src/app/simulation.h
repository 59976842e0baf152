// Simulation: owner of the classic scene: global settings, systems, objects, sources,
// forces and colliders, with the id and name registry every object is found through.
// The systems' lists grow with their classes; the loops here already visit them in
// the run's order.
#pragma once

#include <memory>
#include <string>
#include <vector>

class SceneObject;
class GlobalSettings;
class Body;
class PointData;
class GranularParticleSystem;
class DumbParticleSystem;
class SimpleSPHParticleSystem;
class Force;
class Source;
class CollisionObject;
class Object;
class NodeMaster;

struct SelectionEntry {
    int typeCode = -1;
    int id = -1;
    std::string name;
};

class Simulation {
public:
    Simulation();
    ~Simulation();
    Simulation(const Simulation&) = delete;
    Simulation& operator=(const Simulation&) = delete;

    GlobalSettings* globalSettings = nullptr;
    std::vector<DumbParticleSystem*> dumbSystems;
    std::vector<GranularParticleSystem*> granularSystems;
    std::vector<SimpleSPHParticleSystem*> sphSystems;
    std::vector<Object*> objects;
    std::vector<Source*> sources;
    std::vector<CollisionObject*> colliders;
    std::vector<Force*> forces;
    std::vector<SelectionEntry> selection;
    std::vector<std::string> typeNames;
    std::vector<SceneObject*> objectsById;
    std::vector<int> typesById;
    std::vector<std::string> namesById;
    int nextObjectId = 0;
    std::string scenePath;
    std::string sceneName = "unnamed";
    std::string sceneExtension = "qrv";
    std::string programName = "Qorva";
    NodeMaster* nodeMaster = nullptr;
    // Solver-thread seconds spent handing caches over (snapshots or direct writes).
    double cacheSeconds = 0.0;
    // The graph's root as read from the last scene, kept until the graph loads it itself.
    std::string keptGraphXml;

    // The state of a new empty scene: no objects, fresh GlobalSettings, no scene path.
    void clear();
    // Scene files: see io/scenefile.h.
    int loadScene(const std::string& path);
    bool saveScene(const std::string& path);

    // Creates the GlobalSettings object (once).
    GlobalSettings* createGlobalSettings();
    // Creates and registers a granular system; the name is made unique.
    GranularParticleSystem* createGranularSystem(const std::string& name = "granular1");
    DumbParticleSystem* createDumbSystem(const std::string& name = "dumb1");
    SimpleSPHParticleSystem* createSPHSystem(const std::string& name = "sph1");
    Force* createForce(const std::string& name = "force1");
    Source* createSource(const std::string& name = "source1");
    CollisionObject* createCollider(const std::string& name = "collider1");
    Object* createObject(const std::string& name = "object1");
    // Deletes an object of any kind: out of its list and the registry (its id stays unused).
    void removeObject(SceneObject* object);
    // Ties the source, collider or force called `name` to a geometry object for the file its
    // path names, making and loading the object when needed. false when nothing was tied.
    bool connectObject(const std::string& name, bool rebuild);
    // Geometry objects that nothing refers to are removed; answers how many.
    int pruneObjects();
    // The update step for colliders and sources: geometry to the frame, then the
    // sources' and the colliders' transform matrices.
    void updateClassicObjects(float frameF);
    // Takes ownership, gives the object a unique name and the next id; answers the id.
    int registerObject(std::unique_ptr<SceneObject> object, const std::string& wantedName);
    SceneObject* objectById(int id) const;
    // GlobalSettings first, then systems, objects, sources, colliders and forces.
    SceneObject* findByName(const std::string& name, int* typeCode = nullptr) const;
    // A copy of the points of the classic system called `name`, as its cache would hold
    // them (the system's export exclusions left out); null when no system has that name.
    std::shared_ptr<Body> systemSnapshot(const std::string& name) const;
    // The points of the classic system called `name` become a copy of `points`, with all
    // their channels; the system then adds the channels it needs. false when no system
    // has that name.
    bool replaceSystemPoints(const std::string& name, const PointData& points);
    // `wanted`, or `wanted` with a trailing number counted up until no other object has it.
    std::string uniqueName(const std::string& wanted, const SceneObject* except = nullptr) const;
    // Renames through the placeholder "temp" so a swap of two names never collides.
    std::string renameObject(SceneObject* object, const std::string& wanted);

    // Largest stable substep length for the CFL number `c`; 1000 with nothing moving.
    float maxStableDt(float c) const;
    void evaluateParameters(float frame, int substep);
    void updateSourceTransforms();
    void loadInitialStates();
    void writeCaches();
    // Particles in all classic systems.
    size_t particleCount() const;
    // Steps every system once: the classic part of a substep.
    void stepSystems();
    // After a substep: what each system holds now counts as old particles.
    void rememberParticleCounts();
    void readCaches();
    void resetAll();

private:
    std::vector<std::unique_ptr<SceneObject>> owned;
};
