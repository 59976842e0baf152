// Dust-Emit: per emitter point n = truncate(amount) new points. With a trail and emitter
// velocities point k sits at P - v * trail * (k / amount) * graphDt plus jitter; otherwise
// all sit at P plus jitter. The `enabled` row defaults to a per-point test on the speed.
#include "nodes/dustemitnode.h"

#include "nodes/dynamichelpers.h"

#include <cmath>
#include <cstdio>

DustEmitNode::DustEmitNode(NodeMaster* master) : GeoNode(master)
{
    setType("Dust-Emit");
    addParam(&emissionAmount, "emissionAmount", "Emission Amount", kParamFloat, "2");
    addParam(&trailLength, "trailLength", "Trail Length", kParamFloat, "1");
    addParam(&jitter, "jitter", "Jitter", kParamFloat, "0.01");
    if (Parameter* row = params.get("enabled")) row->text = row->defaultText = "length(@v) > 0.5";
    addInput("Target", true);
    addInput("Emitter-Points", true);
    addOutput("Output");
}

void DustEmitNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    BodyPtr target;
    fetchInput(target, 0);
    if (!target) {
        finishProcess(result, c, nullptr, false);
        return;
    }
    BodyPtr emitter;
    fetchInput(emitter, 1);
    const Parameter* row = params.get("enabled");
    const bool perPoint = row && row->isPerPoint;
    if (emitter && emitter->points->size() > 0 && (enabled || perPoint)) {
        const size_t added = emit(*target, emitter);
        if (context.print) std::printf(" - total: %zu points\n", added);
    }
    finishProcess(result, c, std::move(target), false);
}

size_t DustEmitNode::emit(Body& target, const BodyPtr& emitter)
{
    const PointData& src = *emitter->points;
    PointData& dst = *target.points;
    const PointExpression* mask = nullptr;
    if (!dynamicnodes::enabledMask(*this, emitter, mask)) return 0;
    const PointExpression* amountAt = dynamicnodes::perPointProgram(params.get("emissionAmount"), emitter);
    const PointExpression* trailAt = dynamicnodes::perPointProgram(params.get("trailLength"), emitter);
    const PointExpression* jitterAt = dynamicnodes::perPointProgram(params.get("jitter"), emitter);
    const bool emitterV = src.hasV && src.v.size() == src.size();
    const float dt = graphDt();
    size_t added = 0;
    size_t skipped = 0;
    for (size_t i = 0; i < src.size(); ++i) {
        if (mask && mask->value(i) < 0.0001f) continue;
        const Vec4f p = src.P[i];
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) {
            ++skipped;
            continue;
        }
        const float amount = amountAt ? amountAt->value(i) : emissionAmount;
        const float trail = trailAt ? trailAt->value(i) : trailLength;
        const float jit = jitterAt ? jitterAt->value(i) : jitter;
        if (!(amount >= 1.f) || !std::isfinite(amount)) continue;
        const int64_t n = int64_t(std::min(amount, 1e7f));
        const Vec4f v = emitterV ? src.v[i] : Vec4f(0.f, 0.f, 0.f, 0.f);
        const bool smear = std::fabs(trail) > 0.0001f && emitterV;
        for (int64_t k = 0; k < n; ++k) {
            Vec4f q = p;
            if (smear) q -= v * (trail * (float(k) / amount) * dt);
            q += dynamicnodes::randomDirection() * jit;
            q.w = p.w;
            if (emitterV) {
                dst.addPointV(q, v);
            } else {
                dst.addPoint(q);
            }
            ++added;
        }
    }
    if (skipped > 0)
        std::printf("%s: %zu emitter points with non-finite positions skipped.\n", name().c_str(), skipped);
    return added;
}
