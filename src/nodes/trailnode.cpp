// Trail: for i in [0, frames) and j in [0, substeps) the input is cooked at
// time - frames + i + j / substeps and appended, oldest first. A disabled Trail passes
// the input at the current time.
#include "nodes/trailnode.h"

#include "graph/plug.h"

#include <algorithm>

TrailNode::TrailNode(NodeMaster* master) : GeoNode(master)
{
    setType("Trail");
    addParam(&frames, "frames", "Frames", kParamInt, "5", "Number of frames to look back and merge.");
    addParam(&substeps, "substeps", "Substeps", kParamInt, "1", "Number of substeps per frame.");
    addInput("Input", true);
    addOutput("Output");
}

void TrailNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    const Plug* in = inputPlug(0);
    if (!enabled || !in || !in->sourceNode()) {
        BodyPtr body;
        fetchInput(body, 0);
        finishProcess(result, c, std::move(body), false);
        return;
    }
    const int count = std::max(0, frames);
    const int steps = std::max(1, substeps);
    auto body = std::make_shared<Body>();
    for (int i = 0; i < count; ++i)
        for (int j = 0; j < steps; ++j) {
            const float t = c.time - float(count) + float(i) + float(j) / float(steps);
            BodyPtr step;
            getInput(step, 0, t, true); // only read: may be the cache's own Body
            if (!step) continue;
            if (step->prims->size() > 0) {
                body->appendMesh(*step);
            } else {
                body->points->appendPoints(*step->points);
            }
        }
    finishProcess(result, c, std::move(body), false);
}
