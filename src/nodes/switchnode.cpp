// Switch. The choice is read after the rows are evaluated at the caller's time, both in
// the change check and in the cook, so a keyed `input` switches over time.
#include "nodes/switchnode.h"

#include "graph/plug.h"

#include <algorithm>

SwitchNode::SwitchNode(NodeMaster* master) : GeoNode(master)
{
    setType("Switch");
    addParam(&input, "input", "Input", kParamInt, "0", "Choose which input to pass through.");
    addInput("Input", true);
    addInput("Input1", true);
    addOutput("Output");
}

int SwitchNode::chosenInput() const
{
    if (inputs.empty()) return -1;
    if (!enabled) return 0;
    return std::clamp(input, 0, int(inputs.size()) - 1);
}

void SwitchNode::checkDirty(DirtyResult& r, const CookCaller& c)
{
    storeCaller(c);
    const int chosen = chosenInput();
    if (chosen >= 0) checkInput(inputs[size_t(chosen)], c.time);
    checkOwnParameters();
    reportDirty(r);
}

void SwitchNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    BodyPtr body;
    const int chosen = chosenInput();
    if (chosen >= 0) fetchInput(body, chosen);
    finishProcess(result, c, std::move(body), false);
}
