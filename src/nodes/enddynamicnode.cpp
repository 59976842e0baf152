// End-Dynamic: the copy has isDynamic cleared and wasDynamic set, so the plug caches below
// keep it per time like any static result.
#include "nodes/enddynamicnode.h"

#include "graph/plug.h"

EndDynamicNode::EndDynamicNode(NodeMaster* master) : GeoNode(master)
{
    setType("End-Dynamic");
    addInput("Input-Dynamic", true);
    addOutput("Output-Static");
}

void EndDynamicNode::cookBody(BodyPtr& body)
{
    auto copy = std::make_shared<Body>(*body);
    copy->isDynamic = false;
    copy->wasDynamic = true;
    copy->isCached = false;
    body = std::move(copy);
}

void EndDynamicNode::checkDirty(DirtyResult& r, const CookCaller& c)
{
    storeCaller(c);
    for (Plug* in : inputs) checkInput(in, c.time);
    checkOwnParameters();
    // Below this node the stream is static but changes with time: its result is kept per
    // time in the plug cache, which also serves it while the run flag is off.
    if (dynamic) {
        dynamic = false;
        dynamicUpstream = true;
        timeDependent = true;
    }
    reportDirty(r);
}
