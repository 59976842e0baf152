// Point: the input (an empty Body when nothing is wired) with one more point and, with
// removeMesh, without primitives. The new point takes default values in every channel.
#include "nodes/pointnode.h"

#include "graph/plug.h"

PointNode::PointNode(NodeMaster* master) : GeoNode(master)
{
    setType("Point");
    addParam(&addPoint, "addPoint", "Add Point", kParamBool, "true",
             "Turn on to add one point to the output.");
    addParam(&posX, "posX", "Pos X", kParamFloat, "0", "The x-position of the new point.");
    addParam(&posY, "posY", "Pos Y", kParamFloat, "0", "The y-position of the new point.");
    addParam(&posZ, "posZ", "Pos Z", kParamFloat, "0", "The z-position of the new point.");
    addParam(&removeMesh, "removeMesh", "Remove Mesh", kParamBool, "false", "Remove any incoming meshes.");
    addInput("Input");
    addOutput("Output");
}

void PointNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    BodyPtr body;
    const bool wired = !inputs.empty() && inputs.front()->sourceNode();
    if (wired)
        fetchInput(body, 0);
    else
        body = std::make_shared<Body>();

    if (body && enabled) {
        if (removeMesh) {
            body->vertices->clear();
            body->prims->clear();
            body->pointPrims.clear();
            body->updateCounts();
        }
        if (addPoint) {
            body->points->addPoint(Vec4f(posX, posY, posZ));
            if (!body->pointPrims.empty()) body->pointPrims.emplace_back();
        }
    }
    finishProcess(result, c, std::move(body), false);
}
