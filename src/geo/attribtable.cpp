// Name lookups and flat-list upkeep for all attribute sets. std::map with
// std::less<std::string> compares bytes, shorter first on a common prefix,
// which is the attribute order the spreadsheet and the writers rely on.
#include "geo/attribtable.h"

#include <stdexcept>

#include "geo/attribtypes.h"

void* AttribTable::attrib(const std::string& name) const
{
    auto it = attribMap.find(name);
    return it == attribMap.end() ? nullptr : it->second;
}

void* AttribTable::attribAt(const std::string& name) const
{
    auto it = attribMap.find(name);
    if (it == attribMap.end()) throw std::out_of_range("invalid map<K, T> key");
    return it->second;
}

int AttribTable::attribType(const std::string& name) const
{
    auto it = typeMap.find(name);
    return it == typeMap.end() ? ATTRIB_NONE : it->second;
}

void* AttribTable::findAttrib(const std::string& name) const
{
    for (size_t i = 0; i < names.size(); ++i)
        if (names[i] == name) return pointers[i];
    return nullptr;
}

std::string AttribTable::attribName(size_t index) const
{
    return index < names.size() ? names[index] : std::string("__internal_exceed__");
}

void AttribTable::rebuildLists()
{
    names.clear();
    pointers.clear();
    types.clear();
    for (const auto& [name, array] : attribMap) {
        names.push_back(name);
        pointers.push_back(array);
        types.push_back(attribType(name));
    }
}

void AttribTable::setEntry(const std::string& name, void* array, int type)
{
    attribMap[name] = array;
    typeMap[name] = type;
}

void AttribTable::dropEntry(const std::string& name)
{
    attribMap.erase(name);
    typeMap.erase(name);
}

void AttribTable::clearEntries()
{
    attribMap.clear();
    typeMap.clear();
    names.clear();
    pointers.clear();
    types.clear();
}
