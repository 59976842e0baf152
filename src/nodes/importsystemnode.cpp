// Import-System: the classic system's particles as its cache would hold them (without the
// system's export exclusions), marked as having left a simulation. An unknown name, or the
// node disabled, sends an empty Body. The system moves on every substep, so the node is
// always time dependent and always cooks anew.
#include "nodes/importsystemnode.h"

#include "app/globals.h"
#include "app/simulation.h"

ImportSystemNode::ImportSystemNode(NodeMaster* master) : GeoNode(master)
{
    setType("Import-System");
    addParam(&systemName, "name", "System Name", kParamString, "",
             "The name of the particle system to import.");
    addOutput("Output");
}

void ImportSystemNode::checkDirty(DirtyResult& r, const CookCaller& c)
{
    storeCaller(c);
    checkOwnParameters();
    dirty = true;
    timeDependent = true;
    reportDirty(r);
}

void ImportSystemNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock = beginProcess(c);
    BodyPtr body = enabled && simulation ? simulation->systemSnapshot(systemName) : nullptr;
    if (body) {
        body->isDynamic = false;
        body->wasDynamic = true;
    } else {
        body = std::make_shared<Body>();
    }
    finishProcess(result, c, std::move(body), false);
}
