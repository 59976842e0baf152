// The primitives of a Body: one kind per primitive (0 closed polygon, 1 open
// line) and named primitive attributes with one element per primitive. The
// vertex lists themselves live in VertexData, index for index.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "geo/itemattribs.h"

class PrimData : public ItemAttribs {
public:
    enum Kind : uint32_t { POLYGON = 0, LINE = 1 };

    std::vector<uint32_t> kinds;

    size_t size() const { return kinds.size(); }
    // Appends a primitive of `kind` with default attribute values; the new count.
    int addPrim(uint32_t kind);
    // 1 when made, 0 when the name exists, -1 for an unknown PrimAttribType.
    int addAttrib(const std::string& name, int type, bool resizeNow = true);
    int removeAttrib(const std::string& name);
    void clear();
};
