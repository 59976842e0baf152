// Export-System: copies the points passing through into a classic system, found by name.
#pragma once

#include "graph/geonode.h"

#include <string>

class ExportSystemNode : public GeoNode {
public:
    explicit ExportSystemNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;

    std::string systemName;
};
