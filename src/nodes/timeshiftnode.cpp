// Timeshift: the input is asked at `frame` instead of the request's time. A fixed frame
// cuts the time dependence of everything upstream, so the result is cooked once and
// then served from the cache.
#include "nodes/timeshiftnode.h"

#include "graph/plug.h"

#include <cmath>

TimeshiftNode::TimeshiftNode(NodeMaster* master) : GeoNode(master)
{
    setType("Timeshift");
    addParam(&frame, "frame", "Frame", kParamFloat, "$FF", "Frame to shift to.");
    addInput("Input", true);
    addOutput("Output");
}

float TimeshiftNode::shiftedTime(float time) const
{
    return enabled && std::isfinite(frame) ? frame : time;
}

void TimeshiftNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    BodyPtr body;
    const Plug* in = inputPlug(0);
    getInput(body, 0, shiftedTime(c.time), in && in->noCopy);
    finishProcess(result, c, std::move(body), false);
}

void TimeshiftNode::checkDirty(DirtyResult& r, const CookCaller& c)
{
    storeCaller(c);
    const float t = shiftedTime(c.time);
    bool rewired = false; // a new wire counts even when nothing upstream changed
    for (const Plug* in : inputs) rewired = rewired || in->dirty;
    for (Plug* in : inputs) checkInput(in, t);
    bool rowTimeDependent = false;
    for (const Parameter& row : params.parameters)
        if (row.type != kParamObjectName && row.isTimeDependent()) rowTimeDependent = true;
    if (rowTimeDependent) {
        timeDependent = true;
    } else if (enabled) {
        timeDependent = false; // a fixed frame: upstream animation doesn't reach past here
    }
    if (!hardDirty && !timeDependent && !rewired) dirty = false;
    if (params.anyTextChanged()) dirty = hardDirty = true;
    if (params.anyValueChanged()) dirty = true;
    reportDirty(r);
}
