// Null: sends its input on unchanged; a fixed point to hang a target or a wire on.
#pragma once

#include "graph/geonode.h"

class NullNode : public GeoNode {
public:
    explicit NullNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
};
