// The vertices of a Body's primitives: per primitive the list of point indices,
// and vertex attributes shaped the same way (per primitive, one value per
// vertex). "uv" and "N" have fixed fields; other attributes are lists of lists
// of the element type of their PrimAttribType, owned through the name maps.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "geo/attribtable.h"
#include "geo/attribtypes.h"

class VertexData : public AttribTable {
public:
    std::vector<std::vector<uint32_t>> indices; // per primitive, point indices
    VecListArray uv;                            // type 4, while hasUV
    VecListArray N;                             // type 7, while hasN
    bool hasUV = false, hasN = false;

    VertexData() = default;
    VertexData(const VertexData& other);
    VertexData& operator=(const VertexData& other);
    ~VertexData();

    size_t size() const { return indices.size(); } // primitive count

    // 1 when made, 0 when the name exists, -1 for an unknown type code or for
    // "uv" asked as other than 4 or "N" as other than 7. With resizeNow every
    // primitive gets one default value per vertex.
    int addAttrib(const std::string& name, int type, bool resizeNow = true);
    int removeAttrib(const std::string& name);

    // Appends one primitive's vertex list; every vertex attribute gets defaults for it.
    void addVertexList(std::vector<uint32_t> list);
    // Reverses one primitive's vertex order together with its vertex attributes.
    void reverseVertexList(size_t prim);
    void clear();

private:
    VecListArray* builtin(const std::string& name, int* type = nullptr, bool** flag = nullptr);
    bool isBuiltin(const void* array) const { return array == &uv || array == &N; }
    void copyFrom(const VertexData& other);
    void freeOwned();
};
