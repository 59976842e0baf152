// System nodes: holders of a classic object's rows in the graph. SPHSystemNode runs the
// emission of its connected SourceSystemNodes into its own Body, through the classic
// emission routine with a small target type for a plain Body.
#include "nodes/systemnodes.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "graph/plug.h"
#include "particles/emission.h"
#include "particles/source.h"
#include "particles/sphparticlesystem.h"

#include <cmath>
#include <cstdio>
#include <unordered_map>
#include <vector>

namespace {

// What the emission routine emits into for a system node: the node's Body, the spacing,
// and a grid of the points for the free-space test.
struct BodyEmitTarget {
    Body* body = nullptr;
    float spacing = 0.1f;
    std::unordered_map<uint64_t, std::vector<uint32_t>> cells;

    uint64_t cellKey(int64_t x, int64_t y, int64_t z) const
    {
        const uint64_t m = (1u << 21) - 1u;
        return (uint64_t(x) & m) | (uint64_t(y) & m) << 21 | (uint64_t(z) & m) << 42;
    }
    int64_t cellOf(float v) const { return int64_t(std::floor(v / spacing)); }
};

// Copies the rows of `from` into `to`, bound to the same fields, except the name and
// enabled rows every node has already.
void adoptRows(ParameterSet& to, const ParameterSet& from)
{
    for (const Parameter& row : from.parameters) {
        if (row.key == "nodeName" || row.key == "enabled") continue;
        to.add(row);
    }
}

} // namespace

template <> struct EmitTraits<BodyEmitTarget> {
    static float spacing(const BodyEmitTarget& t, float resolutionMultiplier)
    {
        return t.spacing / resolutionMultiplier;
    }
    static void rebuildHash(BodyEmitTarget& t)
    {
        t.cells.clear();
        const VecArray& P = t.body->points->P;
        for (size_t i = 0; i < P.size(); ++i)
            if (std::isfinite(P[i].x) && std::isfinite(P[i].y) && std::isfinite(P[i].z))
                t.cells[t.cellKey(t.cellOf(P[i].x), t.cellOf(P[i].y), t.cellOf(P[i].z))].push_back(
                    uint32_t(i));
    }
    static float nearestDistance(const BodyEmitTarget& t, const Vec4f& p)
    {
        float best = 1.0e30f;
        const int64_t cx = t.cellOf(p.x), cy = t.cellOf(p.y), cz = t.cellOf(p.z);
        const VecArray& P = t.body->points->P;
        for (int64_t z = cz - 1; z <= cz + 1; ++z)
            for (int64_t y = cy - 1; y <= cy + 1; ++y)
                for (int64_t x = cx - 1; x <= cx + 1; ++x) {
                    auto it = t.cells.find(t.cellKey(x, y, z));
                    if (it == t.cells.end()) continue;
                    for (const uint32_t i : it->second) best = std::min(best, (P[i] - p).length3());
                }
        return best;
    }
    static void addParticle(BodyEmitTarget& t, const Vec4f& p, const Vec4f& v, const Vec4f&,
                            int32_t emitterId)
    {
        PointData& pts = *t.body->points;
        const int i = pts.addPointV(p, v);
        if (pts.attribType("emitterId") == ATTRIB_INT)
            if (auto* ids = pts.attribAs<IntArray>("emitterId"); ids && size_t(i) < ids->size())
                (*ids)[size_t(i)] = emitterId;
    }
    static bool trackUVs(const BodyEmitTarget&) { return false; }
};

SystemNode::SystemNode(NodeMaster* master) : BaseNode(master), body(std::make_shared<Body>()) {}

SystemNode::~SystemNode() = default;

void SystemNode::reset()
{
    objectId = -1;
    body = std::make_shared<Body>();
}

SourceSystemNode::SourceSystemNode(NodeMaster* master)
    : SystemNode(master), source(std::make_unique<Source>())
{
    setType("Source");
    adoptRows(params, source->params);
    addOutput("Source")->dataType = Plug::SOURCE;
}

SourceSystemNode::~SourceSystemNode() = default;

int SourceSystemNode::emitInto(Body& target, float spacing)
{
    if (!simState) return 0;
    params.evaluateAll(simState->frameF, simState->substep);
    source->enabled = enabled;
    source->updateMatrices();
    PointData& pts = *target.points;
    pts.addAttrib("v", ATTRIB_VELOCITY);
    pts.addAttrib("emitterId", ATTRIB_INT);
    BodyEmitTarget t;
    t.body = &target;
    t.spacing = spacing;
    return emitParticles(*source, t);
}

SPHSystemNode::SPHSystemNode(NodeMaster* master) : SystemNode(master)
{
    setType("SPH-System");
    if (simState) {
        system = std::make_unique<SimpleSPHParticleSystem>();
        adoptRows(params, system->params);
    }
    auto* in = new Plug(this, Plug::INPUT, Plug::SOURCE, "Sources");
    registerPlug(in);
    addOutput("Output");
}

SPHSystemNode::~SPHSystemNode() = default;

void SPHSystemNode::process()
{
    std::printf("RUNNING SPH SYSTEM NODE! - name: %s\n", name().c_str());
    if (!body) body = std::make_shared<Body>();
    float spacing = 0.05f;
    if (system && simState) {
        params.evaluateAll(simState->frameF, simState->substep);
        system->updateDerivedFields();
        spacing = system->particleSpacing;
    }
    for (Plug* in : inputs) {
        if (in->dataType != Plug::SOURCE) continue;
        for (Plug* out : in->connections) {
            auto* src = dynamic_cast<SourceSystemNode*>(out->owner);
            if (!src) continue;
            std::printf("  connected source name: %s\n", src->name().c_str());
            src->emitInto(*body, spacing);
        }
    }
}

ColliderSystemNode::ColliderSystemNode(NodeMaster* master) : SystemNode(master)
{
    setType("Collider");
    addOutput("Collider")->dataType = Plug::COLLIDER;
}

ForceSystemNode::ForceSystemNode(NodeMaster* master) : SystemNode(master)
{
    setType("Force");
    addOutput("Force")->dataType = Plug::FORCE;
}

SinkSystemNode::SinkSystemNode(NodeMaster* master) : SystemNode(master)
{
    setType("Sink");
    addOutput("Sink")->dataType = Plug::SINK;
}
