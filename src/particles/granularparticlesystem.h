// GranularParticleSystem: the classic solver for sand, snow, soil and clumps. It owns one
// Body of particles, its parameter rows and the ids of its connected sources, colliders
// and forces; SolverMainLoop calls step() once a substep. Data and particles live in
// granularparticlesystem.cpp, the rows in granularparams.cpp, the step's passes in
// granularstep.cpp, and the CPU solve in granularsolve.cpp, granulariterate.cpp,
// granularintegrate.cpp and (its constraints) granularconstraints.cpp.
#pragma once

#include "app/sceneobject.h"
#include "geo/body.h"
#include "particles/objectlinks.h"
#include "particles/particlehash.h"

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

class GranularParticleSystem : public SceneObject, public ObjectLinks {
public:
    static constexpr const char* kTypeString = "GranularParticleSystem";

    // Bits of sortedFlags, the per-slot copy of the particle's state bits during a solve.
    // kFlagConstrained (the particle has constraints) is read in the first iteration; a pass
    // that removes a particle's last constraint during the iterations clears it.
    static constexpr uint8_t kFlagDeleted = 1;
    static constexpr uint8_t kFlagSleeping = 2;
    static constexpr uint8_t kFlagConstrained = 4;

    // Pair cut-off in radii: touching (2r) and a sixteenth of a diameter more, where only
    // friction and attraction act.
    static constexpr float kPairReach = 2.125f;
    // Colours of the column colouring that lets the iteration pass run in parallel.
    static constexpr int kColumnColours = 4;
    // The iteration pass meets only the candidates that lay within the pair cut-off plus
    // this margin (in radii) at the neighbour search; while no particle has moved more than
    // kPrunedDrift radii since, none of the others can come within the cut-off.
    static constexpr float kPruneMargin = 0.5f;
    static constexpr float kPrunedDrift = 0.2f;

    // Handles to the Body's channels; null where a channel is missing.
    struct Channels {
        VecArray* P = nullptr;
        VecArray* v = nullptr;
        VecArray* force = nullptr;
        VecArray* Cd = nullptr;
        IntArray* id = nullptr;
        VecArray* posPrev = nullptr;
        IntArray* numContacts = nullptr;
        IntListArray* neighbs = nullptr;
        IntListArray* constrIndices = nullptr;
        FloatListArray* constrDists = nullptr;
        FloatArray* restingTime = nullptr;
        BitArray* sleeping = nullptr;
        IntArray* emitterId = nullptr;
        FloatArray* stick = nullptr;
        VecArray* emissionPos = nullptr;
        BitArray* deleted = nullptr;
        FloatArray* width = nullptr;
        FloatArray* maxStretch = nullptr;  // only when a Body arrives with it
        VecArray* uv = nullptr;            // only while trackUVs is on
    };

    GranularParticleSystem();
    ~GranularParticleSystem() override;

    // Evaluates the rows; an empty name row first takes the registered name, so that the
    // row never renames the system to "".
    void evaluateParameters(float frame, int substep) override;

    // --- Particles and lifecycle (granularparticlesystem.cpp)

    // Empties the Body and makes its channels anew, empties the working arrays, restarts ids.
    void reset();
    // particleSpacing, particleRadius, particleMass and the neighbour cell from resolution.
    void updateDerivedFields();
    // Creates the channels that are missing (in table order) and refreshes `ch`. Code that
    // replaces the Body or removes channels from outside calls this before the next step.
    void ensureChannels();
    // Appends a particle; answers its index.
    int addParticle(const Vec4f& position, const Vec4f& velocity);
    // The same with a uv, kept in the `uv` channel while trackUVs is on.
    int addParticle(const Vec4f& position, const Vec4f& velocity, const Vec4f& uv);
    size_t particleCount() const { return body->points->size(); }
    // The loop calls this after all systems have stepped: what is there now counts as old.
    void rememberParticleCount() { lastParticleCount = int32_t(particleCount()); }

    // Connections to sources, colliders and forces come from ObjectLinks.

    // Channels that cached output never carries: exportExcludedChannels, `stick`, and
    // every "__stick_" and "__stickpos_" channel.
    std::vector<std::string> exportExclusions() const;
    // A new Body with the particles, without the excluded channels (for caches).
    BodyPtr exportBody() const;
    // Smallest and largest position per axis; 99999 and -99999 with no particle.
    void boundingBox(Vec4f& min, Vec4f& max) const;

    // Rebuilds the hash over the current positions (cell particleSpacing) and answers
    // nearest-distance queries from it: the free-space test of the sources.
    void rebuildQueryHash();
    float nearestDistance(const Vec4f& p) const;

    // --- The substep (granularstep.cpp)

    // The seven stages in order; only the derived fields when `enabled` is off.
    void step();
    void emitPass();
    void solvePass();
    void forcePass();
    void applyForces();
    void collidePass();
    void compact();
    void groundPass();
    // Frees the device copy of the particles, if there is one.
    void releaseDeviceState();

    // --- CPU solve, stages in the order solveOnCpu runs them (granularsolve.cpp; the
    // iteration pass in granulariterate.cpp, the integration pass in granularintegrate.cpp)

    void solveOnCpu();
    // Rebuilds the constraint lists of the particles from firstIndex on (this, relink and
    // constraintPass are in granularconstraints.cpp).
    void createConstraints(int firstIndex);
    // The neighbour search with cells of `cellSize`: the five stages below, in order.
    void searchNeighbours(float cellSize);
    void hashParticles();
    void sortByHash();
    void groupBlocks();
    void reorder();
    void findNeighbours();
    // Adds links between slow neighbours, every relinkEveryNthStep substeps of a frame.
    void relink();
    bool checkNaN();
    void iterate(int iteration);
    // Inside the iteration, after particle i (at slot k) has met its neighbours.
    void constraintPass(uint32_t k, uint32_t i);
    void integrate();

    // How the graph's solver node (GranularSolverNode) runs the neighbour search, the
    // iteration pass and the constraint pass through this system: its step length, and the
    // points in which its iteration differs. A classic system keeps `on` false and with it
    // every pass exactly as described above.
    struct NodeForm {
        bool on = false;
        float dt = 0.f;             // the cook's step, in place of SimState's substep
        bool stackHelp = false;     // split the push against the vertical axis
        // Read when present: points with pinned > 0.5 stay at pinnedPos.
        const float* pinned = nullptr;
        const Vec4f* pinnedPos = nullptr;
        // Inflation: velocity += inflate * N * dt / iterations, while N is set.
        const Vec4f* normals = nullptr;
        float inflate = 0.f;
        // Bodies with primitives keep a broken constraint: in the first iteration the pair
        // (i, j), i < j, goes on the list of the thread that found it.
        std::vector<std::vector<std::pair<int, int>>>* tearLists = nullptr;
        bool firstIteration = false;
    };
    NodeForm nodeForm;
    // The step length the solve passes use.
    float solveDt() const;

    // --- Parameters, in table order (granularparams.cpp)

    float resolution = 10.f;
    // gravityVector.y is the `gravity` row.
    float groundPlaneFriction = 10.f;
    float freezeThreshold = 0.01f;
    int32_t freezeMinContacts = 2;
    float colorScale = 1.f;
    float particleStiffness = 140.f;
    float friction = 10.f;
    float attraction = 0.f;
    float slushiness = 0.f;
    float constraintStiffness = 140.f;
    float maxConstraintStretch = 1.06f;
    float maxConstraintLength = 3.f;
    bool removeStrands = false;
    float plasticity = 0.f;
    float relinkThreshold = 0.f;
    int32_t relinkEveryNthStep = 2;
    bool enableSleeping = false;
    bool colorSleeping = false;
    bool startAsleep = false;
    float sleepVelThreshold = 0.01f;
    float sleepDelay = 0.1f;
    bool allowSleepingToMove = false;
    float wakeupByVelocityThreshold = 1000.f;
    int32_t iterations = 3;
    // The `damping` row edits SimState::damping, shared by all systems.
    float clampAcceleration = 1.f;  // kept and saved; no pass reads it
    float clampSpeed = 200.f;
    std::string initialStateFilePath;
    bool trackUVs = false;
    bool useCuda = false;
    std::string exportFormat = "abc";
    // `enabled` is SceneObject's.
    bool visible = true;
    bool showExtraParams = false;
    bool breakConstraintsNoisy = false;
    float breakConstrNoisyScaleX = 1.f;
    float breakConstrNoisyScaleY = 1.f;
    float breakConstrNoisyScaleZ = 1.f;
    float breakConstrNoisyOctaves = 2.f;
    float breakConstrNoisyRoughness = 0.5f;
    float stickAttrInitialVal = 1.f;
    bool colorStickiness = false;
    float unstickByVelocityThreshold = 1000.f;

    // --- Constant and derived fields

    float particleSpacing = 0.1f;
    float particleRadius = 0.05f;
    float particleMass = 0.001f;
    float density = 1.f;  // no row reaches it
    Vec4f gravityVector{0.f, -9.81f, 0.f, 0.f};
    float groundBounce = 0.f;  // no row reaches it
    int32_t lastParticleCount = 0;
    int32_t nextParticleId = -1;
    float maxSpeedLastStep = -1.f;
    float lastSolvedTime = 0.f;
    std::vector<std::string> exportExcludedChannels{"force",   "deleted", "numContacts", "posPrev",
                                                    "restingTime", "neighbs", "constrIndices", "constrDists"};

    BodyPtr body;
    Channels ch;

    // --- Working arrays

    // The hash, in the order of its sorted keys ("hash slots"): every bucket's particles form
    // one run of hash slots, cellStart..cellEnd.
    ParticleHash hash;
    std::vector<uint32_t> hashKeys;     // sorted bucket keys
    std::vector<uint32_t> hashOrder;    // hash slot -> particle index
    std::vector<uint32_t> cellStart;    // by bucket, kEmptyBucket when empty
    std::vector<uint32_t> cellEnd;      // by bucket
    // The solver's slots: the particles grouped by column and block (granularsolve.cpp), so
    // that the neighbours of a slot lie close to it in memory. sortedPos, sortedVel,
    // sortedFlags, sortedContacts and the `neighbs` channel are indexed by slot, and
    // `neighbs` lists slots.
    std::vector<uint32_t> sortedOrder;  // slot -> particle index
    std::vector<uint32_t> sortedSlot;   // particle index -> slot
    VecArray sortedPos;                 // the solver's working copy of positions
    VecArray sortedVel;                 // and of velocities
    std::vector<uint8_t> sortedFlags;   // kFlag... bits
    std::vector<int32_t> sortedContacts; // numContacts during the solve
    std::vector<uint32_t> bucketSlots;  // hash slot -> slot
    // By hash slot: the particle's position and slot together, so that the neighbour search
    // finds both in one place.
    struct BucketEntry {
        float x, y, z;
        uint32_t slot;
    };
    std::vector<BucketEntry> bucketEntries;
    std::vector<uint32_t> bucketTable;  // per thread: the bucket ranges round one block
    // Column colouring of the iteration pass: each slot's sort key (colour in the top bits),
    // the units (columns, whose slots one thread relaxes in order) and the first unit of
    // each colour.
    std::vector<uint32_t> blockKeys;
    std::vector<uint32_t> unitStart;
    std::vector<uint32_t> colourStart;
    int32_t blockCells = 0;             // column width and block edge in cells, chosen per substep
    // The pruned lists: each slot's `neighbs` entries, in order, that lay within
    // (kPairReach + kPruneMargin) r at the search, as one array (slot k's run is
    // prunedStart[k]..prunedStart[k + 1]), and the positions they were measured at. Once a
    // particle has moved more than kPrunedDrift r from there, prunedStale is set and the
    // iterations of the substep go back to the full lists (granulariterate.cpp).
    std::vector<uint32_t> prunedStart;
    std::vector<int32_t> prunedSlots;
    VecArray prunedRef;
    std::vector<std::vector<int32_t>> prunedParts;  // per thread, while the lists are built
    bool prunedReady = false;           // the arrays above belong to the last search
    bool prunedStale = false;           // set (relaxed atomic) by the first particle that left them
    // Whether b lay within the pruned lists' reach (squared: reach2) of a. The search and the
    // iteration's way back to the full lists both ask this, with the same arithmetic.
    template <class B>
    static bool withinPruneReach(const Vec4f& a, const B& b, float reach2)
    {
        const float dx = b.x - a.x, dy = b.y - a.y, dz = b.z - a.z;
        return dx * dx + dy * dy + dz * dz <= reach2;
    }
    std::vector<int32_t> compactIndex;  // by particle index: new index, -1 when deleted
    // Constraint creation's own hash, with cells of the search distance.
    ParticleHash linkHash;
    std::vector<uint32_t> linkKeys;       // sorted bucket keys
    std::vector<uint32_t> linkOrder;      // hash slot -> particle index
    std::vector<uint32_t> linkCellStart;  // by bucket, kEmptyBucket when empty
    std::vector<uint32_t> linkCellEnd;    // by bucket

    // --- Device path

    bool constraintsDirty = true;        // flat constraint arrays must be rebuilt
    uint32_t deviceHashSize = 0;         // hash size of the current device solve
    uint32_t deviceHashSizePrev = 0;     // and of the one before
    void* deviceState = nullptr;         // device arrays, owned through cudahost
    size_t deviceParticleCount = 0;      // the particle count deviceState was made for

private:
    void buildParameters();
    void clearWorkingArrays();
    void resizeWorkingArrays(size_t count);
};
