// Spawn-Node: the step runs in parallel on half of the configured threads.
#include "nodes/spawnnode.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "graph/plug.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/task_arena.h>

#include <algorithm>
#include <cstdio>

SpawnNode::SpawnNode(NodeMaster* master) : GeoNode(master)
{
    setType("Spawn-Node");
    addParam(&gravity, "gravity", "Gravity", kParamFloat, "0");
    addInput("Input");
    addOutput("Output");
}

void SpawnNode::reset()
{
    GeoNode::reset();
    held.reset();
}

void SpawnNode::checkDirty(DirtyResult& r, const CookCaller& c)
{
    storeCaller(c);
    for (Plug* in : inputs) checkInput(in, c.time);
    checkOwnParameters();
    // the held Body changes with every step
    dynamic = true;
    timeDependent = true;
    reportDirty(r);
}

bool SpawnNode::step(Body& body, float dt) const
{
    PointData& pd = *body.points;
    if (!pd.hasV || pd.v.size() != pd.size()) {
        std::printf("no velocity.\n");
        return false;
    }
    const int forceType = pd.attribType("force");
    const VecArray* force =
        forceType >= ATTRIB_VECTOR && forceType <= ATTRIB_NORMAL ? pd.attribAs<VecArray>("force") : nullptr;
    const float invMass = 1.f / mass;
    const int threads = std::max(1, (simState ? simState->numThreads : 2) / 2);
    tbb::task_arena arena(threads);
    arena.execute([&] {
        tbb::parallel_for(tbb::blocked_range<size_t>(0, pd.size(), 1024),
                          [&](const tbb::blocked_range<size_t>& r) {
                              for (size_t i = r.begin(); i != r.end(); ++i) {
                                  Vec4f& p = pd.P[i];
                                  Vec4f& v = pd.v[i];
                                  p.x += v.x * dt;
                                  p.y += v.y * dt;
                                  p.z += v.z * dt;
                                  if (force && i < force->size()) {
                                      const Vec4f& f = (*force)[i];
                                      v.x += f.x * invMass * dt;
                                      v.y += f.y * invMass * dt;
                                      v.z += f.z * invMass * dt;
                                  }
                              }
                          });
    });
    return true;
}

void SpawnNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock = beginProcess(c);
    // A time already cooked, or the run flag off: hand out what is held.
    if (held && (c.time == storedTime || !isRunFlagOn())) {
        finishProcess(result, c, held, true);
        return;
    }
    if (!held) {
        BodyPtr body;
        fetchInput(body, 0);
        held = body ? std::make_shared<Body>(*body) : std::make_shared<Body>();
        held->isDynamic = true;
        held->isCached = false;
        if (!held->points->hasV) held->points->addAttrib("v", ATTRIB_VELOCITY);
    }
    if (enabled) step(*held, graphDt());
    finishProcess(result, c, held, false);
}
