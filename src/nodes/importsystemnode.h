// Import-System: hands on a copy of the particles of a classic system, found by name.
#pragma once

#include "graph/geonode.h"

#include <string>

class ImportSystemNode : public GeoNode {
public:
    explicit ImportSystemNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void checkDirty(DirtyResult& result, const CookCaller& caller) override;

    std::string systemName;
};
