// Export-System: when the input has points and the node is enabled, the classic system's
// points become a copy of them, with every channel, replacing what it held. The input
// passes on unchanged in every case.
#include "nodes/exportsystemnode.h"

#include "app/globals.h"
#include "app/simulation.h"

#include <cstdio>

ExportSystemNode::ExportSystemNode(NodeMaster* master) : GeoNode(master)
{
    setType("Export-System");
    addParam(&systemName, "name", "System Name", kParamString, "",
             "The name of the particle system to export to.");
    addInput("Input", true);
    addOutput("Output");
}

void ExportSystemNode::process(BodyPtr& result, const CookCaller& c)
{
    // No cached answer: the export is the point of a cook, so it runs at every one.
    std::unique_lock<std::mutex> lock = beginProcess(c);
    BodyPtr body;
    fetchInput(body, 0);
    if (body && enabled && body->points->size() > 0) {
        if (!simulation || !simulation->replaceSystemPoints(systemName, *body->points))
            std::printf("no system found.\n");
    }
    finishProcess(result, c, std::move(body), false);
}
