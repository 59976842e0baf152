// Clone: the input is pulled when the cook time differs from the time stamp (or no copy
// exists yet); a second cook at the same time, from either output, serves what was kept.
#include "nodes/clonenode.h"

CloneNode::CloneNode(NodeMaster* master) : GeoNode(master)
{
    setType("Clone");
    addInput("Input-Body-Dynamic", true);
    addOutput("Output-Dynamic");
    addOutput("Output-Static");
}

void CloneNode::reset()
{
    GeoNode::reset();
    input.reset();
    staticCopy.reset();
    stamp = -99999.f;
}

void CloneNode::process(BodyPtr& result, const CookCaller& c)
{
    // Not prologue: a dynamic result stored for one output must not answer the other.
    std::unique_lock<std::mutex> lock = beginProcess(c);
    if (c.time != stamp || !staticCopy) {
        BodyPtr body;
        fetchInput(body, 0);
        input = body;
        if (body) {
            staticCopy = std::make_shared<Body>(*body);
            staticCopy->isDynamic = false;
            staticCopy->wasDynamic = true;
            staticCopy->isCached = false;
        } else {
            staticCopy.reset();
        }
        stamp = c.time;
    }
    if (outputIndex == 1) {
        finishProcess(result, c, staticCopy ? std::make_shared<Body>(*staticCopy) : nullptr, false);
    } else {
        finishProcess(result, c, input, false);
    }
}
