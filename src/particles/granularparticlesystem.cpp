// The granular system's data: construction, reset and channels, adding particles, and the
// read-only views the rest of the program takes of it (export Body, bounds,
// nearest-distance queries).
#include "particles/granularparticlesystem.h"

#include "app/globals.h"
#include "app/simstate.h"

#include <algorithm>
#include <cstdlib>

namespace {

// Entries the working arrays hold without reallocating after a reset.
constexpr size_t kInitialWorkingCapacity = 3000;
// Seed of the C generator after a reset, so a rerun emits the same way.
constexpr unsigned kResetSeed = 1;
// Start values of the bounding box.
constexpr float kBoundsStart = 99999.f;

bool startsWith(const std::string& s, const char* prefix)
{
    return s.rfind(prefix, 0) == 0;
}

} // namespace

GranularParticleSystem::GranularParticleSystem() : SceneObject(kTypeGranularSystem), body(std::make_shared<Body>())
{
    reset();
    buildParameters();
}

GranularParticleSystem::~GranularParticleSystem()
{
    releaseDeviceState();
}

float GranularParticleSystem::solveDt() const
{
    return nodeForm.on ? nodeForm.dt : simState->dt;
}

void GranularParticleSystem::updateDerivedFields()
{
    particleSpacing = 1.f / resolution;
    particleRadius = 0.5f / resolution;
    particleMass = particleSpacing * particleSpacing * particleSpacing * density;
    hash.cellSize = particleSpacing;
}

void GranularParticleSystem::ensureChannels()
{
    PointData& pts = *body->points;
    // Creation order of the channels; the Body keeps them ordered by name anyway.
    pts.addAttrib("v", ATTRIB_VELOCITY);
    pts.addAttrib("force", ATTRIB_VECTOR);
    pts.addAttrib("Cd", ATTRIB_COLOR);
    pts.addAttrib("id", ATTRIB_INT);
    pts.addAttrib("posPrev", ATTRIB_POSITION);
    pts.addAttrib("numContacts", ATTRIB_INT);
    pts.addAttrib("neighbs", ATTRIB_INT_LIST);
    pts.addAttrib("constrIndices", ATTRIB_INT_LIST);
    pts.addAttrib("constrDists", ATTRIB_FLOAT_LIST);
    pts.addAttrib("restingTime", ATTRIB_FLOAT);
    pts.addAttrib("sleeping", ATTRIB_BOOL);
    pts.addAttrib("emitterId", ATTRIB_INT);
    pts.addAttrib("stick", ATTRIB_FLOAT);
    pts.addAttrib("emissionPos", ATTRIB_POSITION);
    pts.addAttrib("deleted", ATTRIB_BOOL);
    pts.addAttrib("width", ATTRIB_FLOAT);

    // A channel of another type under one of these names yields no handle: solver code
    // then never reads it with the wrong element type.
    auto handle = [&](const char* name, int type) {
        return pts.attribType(name) == type ? pts.attrib(name) : nullptr;
    };
    ch.P = &pts.P;
    ch.v = static_cast<VecArray*>(handle("v", ATTRIB_VELOCITY));
    ch.force = static_cast<VecArray*>(handle("force", ATTRIB_VECTOR));
    ch.Cd = static_cast<VecArray*>(handle("Cd", ATTRIB_COLOR));
    ch.id = static_cast<IntArray*>(handle("id", ATTRIB_INT));
    ch.posPrev = static_cast<VecArray*>(handle("posPrev", ATTRIB_POSITION));
    ch.numContacts = static_cast<IntArray*>(handle("numContacts", ATTRIB_INT));
    ch.neighbs = static_cast<IntListArray*>(handle("neighbs", ATTRIB_INT_LIST));
    ch.constrIndices = static_cast<IntListArray*>(handle("constrIndices", ATTRIB_INT_LIST));
    ch.constrDists = static_cast<FloatListArray*>(handle("constrDists", ATTRIB_FLOAT_LIST));
    ch.restingTime = static_cast<FloatArray*>(handle("restingTime", ATTRIB_FLOAT));
    ch.sleeping = static_cast<BitArray*>(handle("sleeping", ATTRIB_BOOL));
    ch.emitterId = static_cast<IntArray*>(handle("emitterId", ATTRIB_INT));
    ch.stick = static_cast<FloatArray*>(handle("stick", ATTRIB_FLOAT));
    ch.emissionPos = static_cast<VecArray*>(handle("emissionPos", ATTRIB_POSITION));
    ch.deleted = static_cast<BitArray*>(handle("deleted", ATTRIB_BOOL));
    ch.width = static_cast<FloatArray*>(handle("width", ATTRIB_FLOAT));
    ch.maxStretch = static_cast<FloatArray*>(handle("maxStretch", ATTRIB_FLOAT));
    ch.uv = static_cast<VecArray*>(handle("uv", ATTRIB_VECTOR));
}

void GranularParticleSystem::clearWorkingArrays()
{
    for (auto* a : {&hashKeys, &hashOrder, &sortedOrder, &sortedSlot}) {
        a->clear();
        a->reserve(kInitialWorkingCapacity);
    }
    for (auto* a : {&sortedPos, &sortedVel}) {
        a->clear();
        a->reserve(kInitialWorkingCapacity);
    }
    sortedFlags.clear();
    sortedContacts.clear();
    bucketSlots.clear();
    blockKeys.clear();
    unitStart.clear();
    colourStart.clear();
    compactIndex.clear();
    prunedReady = false;
}

void GranularParticleSystem::resizeWorkingArrays(size_t count)
{
    if (hashKeys.size() == count && hashOrder.size() == count && sortedOrder.size() == count &&
        sortedPos.size() == count && sortedVel.size() == count && sortedSlot.size() == count)
        return;
    hashKeys.resize(count);
    hashOrder.resize(count);
    sortedOrder.resize(count);
    sortedPos.resize(count);
    sortedVel.resize(count);
    sortedSlot.resize(count);
}

void GranularParticleSystem::reset()
{
    updateDerivedFields();
    body->clear();
    ensureChannels();
    clearWorkingArrays();
    lastParticleCount = 0;
    nextParticleId = -1;
    maxSpeedLastStep = -1.f;
    std::srand(kResetSeed);
    // The hash starts empty, with cells of one radius.
    hash.cellSize = particleRadius;
    hash.tableSize = hashTableSize(0);
    findCellRanges(nullptr, 0, hash.tableSize, cellStart, cellEnd, simState ? simState->numThreads : 1);
    releaseDeviceState();
    constraintsDirty = true;
}

int GranularParticleSystem::addParticle(const Vec4f& position, const Vec4f& velocity)
{
    PointData& pts = *body->points;
    const int index = pts.addPoint(position);
    const size_t i = size_t(index);
    if (ch.v) (*ch.v)[i] = velocity;
    if (ch.id) (*ch.id)[i] = ++nextParticleId;
    if (ch.emissionPos) (*ch.emissionPos)[i] = position;
    if (ch.posPrev) (*ch.posPrev)[i] = position;
    if (ch.stick) (*ch.stick)[i] = stickAttrInitialVal;
    if (ch.width) (*ch.width)[i] = 2.f * particleRadius;
    if (enableSleeping && startAsleep && ch.sleeping) ch.sleeping->set(i, true);
    hashKeys.push_back(0);
    hashOrder.push_back(uint32_t(index));
    sortedOrder.push_back(uint32_t(index));
    sortedPos.push_back(Vec4f());
    sortedVel.push_back(Vec4f());
    sortedSlot.push_back(0);
    return index;
}

int GranularParticleSystem::addParticle(const Vec4f& position, const Vec4f& velocity, const Vec4f& uv)
{
    PointData& pts = *body->points;
    if (trackUVs && !ch.uv) {
        pts.addAttrib("uv", ATTRIB_VECTOR);
        ensureChannels();
    } else if (!trackUVs && pts.hasAttrib("uv")) {
        pts.removeAttrib("uv");
        ensureChannels();
    }
    const int index = addParticle(position, velocity);
    if (ch.uv) (*ch.uv)[size_t(index)] = uv;
    return index;
}

std::vector<std::string> GranularParticleSystem::exportExclusions() const
{
    std::vector<std::string> names = exportExcludedChannels;
    names.emplace_back("stick");
    for (const std::string& name : body->points->names)
        if (startsWith(name, "__stick_") || startsWith(name, "__stickpos_")) names.push_back(name);
    return names;
}

BodyPtr GranularParticleSystem::exportBody() const
{
    auto out = std::make_shared<Body>();
    out->points = body->points->copyPointsExcept(exportExclusions());
    return out;
}

void GranularParticleSystem::boundingBox(Vec4f& min, Vec4f& max) const
{
    min = Vec4f(kBoundsStart, kBoundsStart, kBoundsStart, 0.f);
    max = Vec4f(-kBoundsStart, -kBoundsStart, -kBoundsStart, 0.f);
    for (const Vec4f& p : body->points->P) {
        min.x = std::min(min.x, p.x);
        min.y = std::min(min.y, p.y);
        min.z = std::min(min.z, p.z);
        max.x = std::max(max.x, p.x);
        max.y = std::max(max.y, p.y);
        max.z = std::max(max.z, p.z);
    }
}

void GranularParticleSystem::rebuildQueryHash()
{
    hash.cellSize = particleSpacing;
    buildParticleHash(*body, hash, hashKeys, hashOrder, cellStart, cellEnd, simState ? simState->numThreads : 1);
}

float GranularParticleSystem::nearestDistance(const Vec4f& p) const
{
    if (hashOrder.size() != particleCount()) return kNoNeighbourDistance;
    return nearestParticleDistance(p, body->points->P.data(), hashOrder.data(), hash, cellStart, cellEnd);
}
