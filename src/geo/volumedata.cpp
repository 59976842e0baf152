// Grid bookkeeping of a Body. Grid creation and deep copies are delegated to
// gridutil.cpp so this file stays free of OpenVDB's heavy headers; shared
// pointers to the incomplete GridBase are all it needs.
#include "geo/volumedata.h"

#include <iterator>

#include "geo/gridutil.h"

VolumeData::VolumeData(const VolumeData& other) : typeMap(other.typeMap), attribs(other.attribs)
{
    for (const auto& [name, grid] : other.gridMap) gridMap[name] = deepCopyGrid(grid);
    for (const GridBasePtr& grid : other.extraGrids) extraGrids.push_back(deepCopyGrid(grid));
    rebuildLists();
}

VolumeData& VolumeData::operator=(const VolumeData& other)
{
    if (this != &other) {
        VolumeData copy(other);
        gridMap.swap(copy.gridMap);
        typeMap.swap(copy.typeMap);
        extraGrids.swap(copy.extraGrids);
        attribs = copy.attribs;
        rebuildLists();
    }
    return *this;
}

int VolumeData::addVolume(const std::string& name, int volumeType)
{
    GridBasePtr grid = makeGrid(volumeType, name);
    if (!grid) return -1;
    return setVolume(name, volumeType, std::move(grid));
}

int VolumeData::setVolume(const std::string& name, int volumeType, GridBasePtr grid)
{
    if (!grid) return -1;
    auto it = gridMap.find(name);
    if (it != gridMap.end()) {
        it->second = std::move(grid);
        typeMap[name] = volumeType;
    } else {
        it = gridMap.emplace(name, std::move(grid)).first;
        typeMap[name] = volumeType;
        attribs.insertDefaults(static_cast<size_t>(std::distance(gridMap.begin(), it)));
    }
    rebuildLists();
    return static_cast<int>(gridMap.size());
}

int VolumeData::removeVolume(const std::string& name)
{
    auto it = gridMap.find(name);
    if (it == gridMap.end()) return -1;
    attribs.eraseItem(static_cast<size_t>(std::distance(gridMap.begin(), it)));
    gridMap.erase(it);
    typeMap.erase(name);
    rebuildLists();
    return 0;
}

GridBasePtr VolumeData::volume(const std::string& name) const
{
    auto it = gridMap.find(name);
    return it == gridMap.end() ? nullptr : it->second;
}

int VolumeData::volumeType(const std::string& name) const
{
    auto it = typeMap.find(name);
    return it == typeMap.end() ? -1 : it->second;
}

int VolumeData::addAttrib(const std::string& name, int type, bool resizeNow)
{
    return attribs.addItemAttrib(name, type, gridMap.size(), resizeNow);
}

int VolumeData::removeAttrib(const std::string& name)
{
    return attribs.removeItemAttrib(name);
}

void VolumeData::rebuildLists()
{
    names.clear();
    grids.clear();
    types.clear();
    for (const auto& [name, grid] : gridMap) {
        names.push_back(name);
        grids.push_back(grid);
        types.push_back(volumeType(name));
    }
}

void VolumeData::clear()
{
    gridMap.clear();
    typeMap.clear();
    extraGrids.clear();
    attribs.clearAttribs();
    rebuildLists();
}
