// Named attributes with one element per item, typed by PrimAttribType: the
// primitive attributes of PrimData and the per-volume attributes of VolumeData.
// The owner says how many items there are; this set owns its arrays and keeps
// them in step when items are added, inserted or erased.
#pragma once

#include <cstddef>
#include <string>

#include "geo/attribtable.h"

class ItemAttribs : public AttribTable {
public:
    ItemAttribs() = default;
    ItemAttribs(const ItemAttribs& other);
    ItemAttribs& operator=(const ItemAttribs& other);
    ~ItemAttribs();

    // 1 when made, 0 when the name exists, -1 for an unknown type code. With
    // resizeNow the array gets `count` default elements and the lists are rebuilt.
    int addItemAttrib(const std::string& name, int type, size_t count, bool resizeNow);
    // 0 when removed, -1 for a missing name.
    int removeItemAttrib(const std::string& name);

    void pushDefaults();               // one default element at the end of each array
    void insertDefaults(size_t index); // one default element at index, order kept
    void eraseItem(size_t index);      // order kept
    void resizeItems(size_t count);
    void clearAttribs(); // drops every attribute

private:
    void copyFrom(const ItemAttribs& other);
    void freeOwned();
};
