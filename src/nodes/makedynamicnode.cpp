// Make-Dynamic: with setDynamic off the input passes on; on, the first cook copies the
// input into the held Body (flagged dynamic, with velocities) and every later cook moves
// the held points by v * graphDt without pulling the input again.
#include "nodes/makedynamicnode.h"

#include "graph/plug.h"

MakeDynamicNode::MakeDynamicNode(NodeMaster* master) : GeoNode(master)
{
    setType("Make-Dynamic");
    addParam(&setDynamic, "setDynamic", "Set Dynamic", kParamBool, "false");
    addInput("Input");
    addOutput("Output");
}

void MakeDynamicNode::reset()
{
    GeoNode::reset();
    held.reset();
}

void MakeDynamicNode::checkDirty(DirtyResult& r, const CookCaller& c)
{
    storeCaller(c);
    for (Plug* in : inputs) checkInput(in, c.time);
    checkOwnParameters();
    // a held Body changes with every step
    if (setDynamic && enabled) dynamic = timeDependent = true;
    reportDirty(r);
}

void MakeDynamicNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock = beginProcess(c);
    if (!enabled) {
        finishProcess(result, c, std::make_shared<Body>(), false);
        return;
    }
    if (!setDynamic) {
        if (hasCache(c.time)) {
            retrieve(result, c);
            return;
        }
        BodyPtr body;
        fetchInput(body, 0);
        finishProcess(result, c, std::move(body), false);
        return;
    }
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
    } else {
        const float dt = graphDt();
        PointData& pd = *held->points;
        for (size_t i = 0; i < pd.size() && i < pd.v.size(); ++i) {
            pd.P[i].x += pd.v[i].x * dt;
            pd.P[i].y += pd.v[i].y * dt;
            pd.P[i].z += pd.v[i].z * dt;
        }
    }
    finishProcess(result, c, held, false);
}
