// The name bookkeeping shared by every attribute set of a Body (points,
// vertices, primitives, per-volume attributes): name-to-array and name-to-type
// maps ordered byte-wise by name, and three flat lists in that same order for
// loops over all attributes. It owns nothing; each derived set frees its arrays.
#pragma once

#include <cstddef>
#include <map>
#include <string>
#include <vector>

class AttribTable {
public:
    std::map<std::string, void*> attribMap; // name -> array
    std::map<std::string, int> typeMap;     // name -> type code
    std::vector<std::string> names;         // flat lists, in map order
    std::vector<void*> pointers;
    std::vector<int> types;

    // The array or null. attribAt is the checking form: it throws
    // std::out_of_range("invalid map<K, T> key") for a missing name.
    void* attrib(const std::string& name) const;
    void* attribAt(const std::string& name) const;
    template <class A> A* attribAs(const std::string& name) const { return static_cast<A*>(attrib(name)); }
    bool hasAttrib(const std::string& name) const { return attribMap.count(name) != 0; }
    // The type code, or ATTRIB_NONE (14) for a missing name.
    int attribType(const std::string& name) const;
    // Linear search through the flat lists; same answer as attrib().
    void* findAttrib(const std::string& name) const;
    // Name of the n-th attribute; "__internal_exceed__" past the end.
    std::string attribName(size_t index) const;
    size_t numAttribs() const { return names.size(); }

    // Refills the flat lists from the maps.
    void rebuildLists();

protected:
    AttribTable() = default;
    ~AttribTable() = default;
    // Derived sets copy their arrays themselves; copying the pointers is never right.
    AttribTable(const AttribTable&) = delete;
    AttribTable& operator=(const AttribTable&) = delete;

    void setEntry(const std::string& name, void* array, int type);
    void dropEntry(const std::string& name);
    void clearEntries();
};
