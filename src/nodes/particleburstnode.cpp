// Particle-Burst: every particle starts at the origin row's point with a velocity along a
// random direction, v = d * speed * (r * speedRandom + 1 - speedRandom).
#include "nodes/particleburstnode.h"

#include "graph/nodemaster.h"
#include "nodes/dynamichelpers.h"

#include <cmath>
#include <cstdio>

ParticleBurstNode::ParticleBurstNode(NodeMaster* master) : GeoNode(master)
{
    setType("Particle-Burst");
    addParam(&translateX, "translateX", "Origin X", kParamFloat, "0", "Emission location in X.");
    addParam(&translateY, "translateY", "Origin Y", kParamFloat, "0", "Emission location in Y.");
    addParam(&translateZ, "translateZ", "Origin Z", kParamFloat, "0", "Emission location in Z.");
    addParam(&amount, "amount", "Amount", kParamFloat, "10",
             "Amount of particles per second to emit when enabled.");
    addParam(&speed, "speed", "Speed", kParamFloat, "4", "Speed of the emission.");
    addParam(&speedRandom, "speedRandom", "Speed Random", kParamFloat, "0", "Randomness of the speed.");
    addParam(&angle, "angle", "Angle", kParamFloat, "140", "Emission angle.");
    addOutput("Output");
}

void ParticleBurstNode::reset()
{
    GeoNode::reset();
    held.reset();
}

void ParticleBurstNode::checkDirty(DirtyResult& r, const CookCaller& c)
{
    storeCaller(c);
    checkOwnParameters();
    // the held Body changes with every step
    dynamic = true;
    timeDependent = true;
    reportDirty(r);
}

int ParticleBurstNode::emit(Body& body, float frame, float fps) const
{
    if (!(fps > 0.f) || !std::isfinite(frame)) return 0;
    const float a = amount / fps;
    if (!std::isfinite(a) || a <= 0.f) return 0;
    int64_t count = int64_t(std::min(a, 1e7f));
    if (a < 1.f) {
        const int64_t period = int64_t(std::min(1.f / a, 1e9f));
        if (period > 0 && int64_t(frame) % period == 0) count = 1;
    }
    PointData& pd = *body.points;
    const Vec4f origin(translateX, translateY, translateZ, 0.f);
    for (int64_t k = 0; k < count; ++k) {
        const float r = dynamicnodes::rand01();
        Vec4f d(dynamicnodes::rand01() - 0.5f, dynamicnodes::rand01() - 0.5f, dynamicnodes::rand01() - 0.5f,
                0.f);
        const float len = d.length3();
        d = len > 0.f ? d * (1.f / len) : Vec4f(0.f, 1.f, 0.f, 0.f);
        const int idx = pd.addPointV(origin, d * (speed * (r * speedRandom + 1.f - speedRandom)));
        if (pd.hasCd) pd.Cd[size_t(idx)] = Vec4f(0.9f, 0.9f, 0.9f, 0.f);
    }
    return int(count);
}

void ParticleBurstNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock = beginProcess(c);
    // A time already cooked, or the run flag off: hand out what is held.
    if (held && (c.time == storedTime || !isRunFlagOn())) {
        finishProcess(result, c, held, true);
        return;
    }
    if (!held) {
        held = dynamicnodes::newParticleBody();
    }
    dynamicnodes::advanceParticles(*held, graphDt(), 1.f);
    if (enabled) {
        if (context.print) std::printf("emitting\n");
        emit(*held, c.time, nodeMaster ? nodeMaster->fps() : 24.f);
    }
    finishProcess(result, c, held, false);
}
