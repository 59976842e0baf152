// Origin: the first cook makes the held Body; later cooks advance it: v += force / 0.014 *
// graphDt * forceScale where a `force` channel exists, P += v * graphDt, age += graphDt.
#include "nodes/originnode.h"

#include "nodes/dynamichelpers.h"

OriginNode::OriginNode(NodeMaster* master) : GeoNode(master)
{
    setType("Origin");
    addParam(&forceScale, "forceScale", "Force Scale", kParamFloat, "1");
    addOutput("Dynamic-Output");
}

void OriginNode::reset()
{
    GeoNode::reset();
    held.reset();
}

void OriginNode::checkDirty(DirtyResult& r, const CookCaller& c)
{
    storeCaller(c);
    checkOwnParameters();
    // the held Body changes with every step
    dynamic = true;
    timeDependent = true;
    reportDirty(r);
}

void OriginNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock = beginProcess(c);
    // A time already cooked, or the run flag off: hand out what is held.
    if (held && (c.time == storedTime || !isRunFlagOn())) {
        finishProcess(result, c, held, true);
        return;
    }
    if (!held) {
        held = dynamicnodes::newParticleBody();
    } else if (enabled) {
        dynamicnodes::advanceParticles(*held, graphDt(), forceScale);
    }
    finishProcess(result, c, held, false);
}
