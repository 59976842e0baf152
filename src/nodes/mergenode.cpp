// Merge. Null inputs are dropped; with one left it is sent as it is. Otherwise the first
// is the base: point sets are joined with appendPoints, anything with primitives with
// appendMesh. Constraints of later inputs follow their points (indices shifted by the
// base's point count before each append); grids come from the first input only.
#include "nodes/mergenode.h"

#include "graph/plug.h"

MergeNode::MergeNode(NodeMaster* master) : GeoNode(master)
{
    setType("Merge");
    addInput("Input");
    addInput("Input1", true);
    addOutput("Output");
}

void MergeNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    std::vector<int> which(inputs.size());
    for (size_t i = 0; i < which.size(); ++i) which[i] = int(i);
    std::vector<BodyPtr> pulled = fetchInputs(which);

    std::vector<BodyPtr> bodies;
    int firstPlug = -1;
    for (size_t i = 0; i < pulled.size(); ++i) {
        if (!pulled[i]) continue;
        if (firstPlug < 0) firstPlug = int(i);
        bodies.push_back(std::move(pulled[i]));
    }
    if (bodies.empty()) {
        finishProcess(result, c, nullptr, false);
        return;
    }
    BodyPtr base = bodies.front();
    if (!enabled || bodies.size() == 1) {
        finishProcess(result, c, std::move(base), false);
        return;
    }
    // a Body pulled through a noCopy plug may be a cache's own: copy it before changing it
    if (inputs[size_t(firstPlug)]->noCopy || base->isCached) base = std::make_shared<Body>(*base);

    bool anyPrims = false;
    for (const BodyPtr& b : bodies) anyPrims = anyPrims || b->prims->size() > 0 || b->vertices->size() > 0;

    for (size_t k = 1; k < bodies.size(); ++k) {
        const Body& other = *bodies[k];
        const uint32_t offset = uint32_t(base->points->size());
        if (anyPrims)
            base->appendMesh(other);
        else
            base->points->appendPoints(*other.points);
        for (ConstraintRecord rec : other.pointConstraints) {
            rec.a += offset;
            rec.b += offset;
            base->pointConstraints.push_back(rec);
        }
        for (ConstraintRecord rec : other.edgeConstraints) {
            rec.a += offset;
            rec.b += offset;
            base->edgeConstraints.push_back(rec);
        }
    }
    base->updateCounts();
    if (anyPrims || !base->pointPrims.empty()) base->rebuildPointPrims();
    finishProcess(result, c, std::move(base), false);
}
