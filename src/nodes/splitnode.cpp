// Split. Each cook serves the output its caller reads (outputIndex): 0 "Remaining-Output",
// 1 "Split-Condition-Output". The condition is marked per point in the scratch bool
// "__internal", which never leaves the node. Primitives keep only those whose points all
// stay. Disabled, the first output passes the input and the second is empty.
#include "nodes/splitnode.h"

#include "nodes/geofilternode.h"
#include "params/pointexpression.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

SplitNode::SplitNode(NodeMaster* master) : GeoNode(master)
{
    setType("Split");
    addParam(&splitCondition, "splitCondition", "Split Condition", kParamBool, "false",
             "When evaluates to true then the point will be sent through the second output.");
    addParam(&removeFromInput, "removeFromInput", "Remove From Input", kParamBool, "true",
             "Removes filter points from the regular output.");
    addInput("Input");
    addOutput("Remaining-Output");
    addOutput("Split-Condition-Output");
}

void SplitNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    BodyPtr body;
    fetchInput(body, 0);
    const bool wantSplit = outputIndex == 1;
    if (!body) {
        finishProcess(result, c, nullptr, false);
        return;
    }
    if (!enabled) {
        finishProcess(result, c, wantSplit ? std::make_shared<Body>() : body, false);
        return;
    }

    PointData& pts = *body->points;
    const size_t n = pts.size();
    pts.addAttrib("__internal", ATTRIB_BOOL);
    BitArray& mark = *pts.attribAs<BitArray>("__internal");
    Parameter* row = params.get("splitCondition");
    if (row && row->isPerPoint) {
        row->setPointExpression(body);
        // evaluated in parallel blocks, marked in one pass (bits of a word can't be set from two threads)
        std::vector<float> values(n);
        const PointExpression& expression = *row->pointExpression;
        tbb::parallel_for(tbb::blocked_range<size_t>(0, n, 4096), [&](const tbb::blocked_range<size_t>& r) {
            expression.values(r.begin(), r.size(), values.data() + r.begin());
        });
        for (size_t i = 0; i < n; ++i) mark.set(i, values[i] != 0.f);
    } else {
        for (size_t i = 0; i < n; ++i) mark.set(i, splitCondition);
    }

    std::vector<char> keep(n);
    for (size_t i = 0; i < n; ++i) keep[i] = wantSplit ? mark.get(i) : !mark.get(i);
    if (wantSplit || removeFromInput) keepPointSubset(*body, keep);
    body->points->removeAttrib("__internal");
    finishProcess(result, c, std::move(body), false);
}
