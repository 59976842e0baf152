// The density grid, else the distance grid, is drawn as one closed box of six quads per
// leaf node and per active tile, in world space.
#include "nodes/volumetilesnode.h"

#include "nodes/levelsetops.h"
#include "nodes/volumeops.h"

#include <cstdio>
#include <memory>

VolumeTilesNode::VolumeTilesNode(NodeMaster* master) : GeoNode(master)
{
    setType("Volume-Tiles");
    addInput("Volume-Input");
    addOutput("Mesh-Output");
}

void VolumeTilesNode::cookBody(BodyPtr& body)
{
    GridBasePtr grid = findGridKind(*body->volumes, GridKind::Density);
    if (!grid) grid = findDistanceGrid(*body->volumes);
    if (!grid) {
        std::printf("%s: volume has neither density nor sdf.\n", name().c_str());
        return;
    }
    auto mesh = std::make_shared<Body>();
    if (appendTileBoxes(*mesh, grid) < 0) {
        std::printf("%s: volume of an unknown value type.\n", name().c_str());
        return;
    }
    mesh->updateCounts();
    mesh->rebuildPointPrims();
    body = std::move(mesh);
}
