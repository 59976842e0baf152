// Volume-Tiles: a box mesh of the leaf nodes and active tiles of a volume, to see how the
// grid is laid out.
#pragma once

#include "graph/geonode.h"

class VolumeTilesNode : public GeoNode {
public:
    explicit VolumeTilesNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;
};
