// The box spans the world bounds of every grid's active voxels (their centres, through
// each grid's transform). A Body without active voxels gives an empty Body.
#include "nodes/voldomainnode.h"

#include "geo/gridutil.h"
#include "nodes/volumeops.h"

#include <algorithm>
#include <memory>

VolDomainNode::VolDomainNode(NodeMaster* master) : GeoNode(master)
{
    setType("Voldomain");
    addInput("Volume-Input");
    addOutput("Mesh-Output");
}

void VolDomainNode::cookBody(BodyPtr& body)
{
    Vec4f lo, hi;
    bool any = false;
    for (const GridBasePtr& grid : body->volumes->grids) {
        Vec4f a, b;
        if (!grid || !gridWorldBounds(*grid, a, b)) continue;
        if (!any) {
            lo = a;
            hi = b;
            any = true;
            continue;
        }
        lo = Vec4f(std::min(lo.x, a.x), std::min(lo.y, a.y), std::min(lo.z, a.z));
        hi = Vec4f(std::max(hi.x, b.x), std::max(hi.y, b.y), std::max(hi.z, b.z));
    }
    auto box = std::make_shared<Body>();
    if (any) {
        Vec4f corners[8];
        for (int c = 0; c < 8; ++c)
            corners[c] = Vec4f((c & 1) ? hi.x : lo.x, (c & 2) ? hi.y : lo.y, (c & 4) ? hi.z : lo.z);
        appendBoxMesh(*box, corners);
        box->updateCounts();
        box->rebuildPointPrims();
    }
    body = std::move(box);
}
