// Per-item attribute arrays: ownership, creation by type code, and the edits
// that keep every array at one element per item. Each edit is one dispatch per
// attribute through the flat lists.
#include "geo/itemattribs.h"

#include <algorithm>

#include "geo/attribops.h"
#include "geo/attribtypes.h"

ItemAttribs::ItemAttribs(const ItemAttribs& other) : AttribTable()
{
    copyFrom(other);
}

ItemAttribs& ItemAttribs::operator=(const ItemAttribs& other)
{
    if (this != &other) {
        freeOwned();
        clearEntries();
        copyFrom(other);
    }
    return *this;
}

ItemAttribs::~ItemAttribs()
{
    freeOwned();
}

void ItemAttribs::copyFrom(const ItemAttribs& other)
{
    for (const auto& [name, array] : other.attribMap) {
        const int type = other.attribType(name);
        withItemArray(type, array, [&](auto& a, const auto&) { setEntry(name, cloneArray(a), type); });
    }
    rebuildLists();
}

void ItemAttribs::freeOwned()
{
    for (const auto& [name, array] : attribMap)
        withItemArray(attribType(name), array, [](auto& a, const auto&) { deleteArray(a); });
}

int ItemAttribs::addItemAttrib(const std::string& name, int type, size_t count, bool resizeNow)
{
    if (attribMap.count(name)) return 0;
    void* array = nullptr;
    const bool known = withItemType(type, [&](auto tag, const auto& def) {
        auto* a = new typename decltype(tag)::type();
        if (resizeNow) a->resize(count, def);
        array = a;
    });
    if (!known) return -1;
    setEntry(name, array, type);
    if (resizeNow) rebuildLists();
    return 1;
}

int ItemAttribs::removeItemAttrib(const std::string& name)
{
    void* array = attrib(name);
    if (!array) return -1;
    withItemArray(attribType(name), array, [](auto& a, const auto&) { deleteArray(a); });
    dropEntry(name);
    rebuildLists();
    return 0;
}

void ItemAttribs::pushDefaults()
{
    for (size_t i = 0; i < pointers.size(); ++i)
        withItemArray(types[i], pointers[i], [](auto& a, const auto& def) { a.push_back(def); });
}

void ItemAttribs::insertDefaults(size_t index)
{
    for (size_t i = 0; i < pointers.size(); ++i)
        withItemArray(types[i], pointers[i],
                      [&](auto& a, const auto& def) { insertElem(a, std::min(index, a.size()), def); });
}

void ItemAttribs::eraseItem(size_t index)
{
    for (size_t i = 0; i < pointers.size(); ++i)
        withItemArray(types[i], pointers[i], [&](auto& a, const auto&) { eraseElem(a, index); });
}

void ItemAttribs::resizeItems(size_t count)
{
    for (size_t i = 0; i < pointers.size(); ++i)
        withItemArray(types[i], pointers[i], [&](auto& a, const auto& def) { a.resize(count, def); });
}

void ItemAttribs::clearAttribs()
{
    freeOwned();
    clearEntries();
}
