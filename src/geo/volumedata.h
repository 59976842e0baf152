// The named volumes of a Body: OpenVDB grids by name with their VolumeType
// code, flat lists in name order, and per-volume attributes (one element per
// grid, in the order of the flat lists). Grids are only forward-declared here;
// everything that needs OpenVDB itself happens in gridutil.cpp.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <openvdb/version.h>

#include "geo/itemattribs.h"

namespace openvdb {
OPENVDB_USE_VERSION_NAMESPACE
namespace OPENVDB_VERSION_NAME {
class GridBase;
}
} // namespace openvdb

using GridBasePtr = std::shared_ptr<openvdb::GridBase>;

class VolumeData {
public:
    std::map<std::string, GridBasePtr> gridMap; // key -> grid (the key need not be the grid's name)
    std::map<std::string, int> typeMap;         // key -> VolumeType
    std::vector<std::string> names;             // flat lists, in key order
    std::vector<GridBasePtr> grids;
    std::vector<int> types;
    std::vector<GridBasePtr> extraGrids; // spare list for callers; copied deeply, never filled here
    ItemAttribs attribs;                 // per-volume attributes, element i for grids[i]

    VolumeData() = default;
    VolumeData(const VolumeData& other); // deep: every grid's tree is copied
    VolumeData& operator=(const VolumeData& other);

    size_t size() const { return gridMap.size(); }

    // Makes an empty grid of the type (background zero), named `name`, and
    // stores it as setVolume does. The grid count, or -1 for an unknown type.
    int addVolume(const std::string& name, int volumeType);
    // Stores `grid` under `name`. An existing key is replaced in place; a new key
    // also gets one default element in every per-volume attribute, at its
    // position in name order. The grid count, or -1 for a null grid.
    int setVolume(const std::string& name, int volumeType, GridBasePtr grid);
    // 0 when removed (with its per-volume attribute elements), -1 for a missing name.
    int removeVolume(const std::string& name);

    GridBasePtr volume(const std::string& name) const; // null when missing
    int volumeType(const std::string& name) const;     // -1 when missing

    // Per-volume attributes, PrimAttribType codes; see ItemAttribs.
    int addAttrib(const std::string& name, int type, bool resizeNow = true);
    int removeAttrib(const std::string& name);

    void rebuildLists();
    void clear();
};
