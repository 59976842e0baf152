// Vertex lists and vertex attributes. Every attribute holds one inner array per
// primitive whose length is that primitive's vertex count; adding a primitive
// or an attribute keeps that shape, with PrimAttribType defaults.
#include "geo/vertexdata.h"

#include <algorithm>

#include "geo/attribops.h"

VertexData::VertexData(const VertexData& other) : AttribTable()
{
    copyFrom(other);
}

VertexData& VertexData::operator=(const VertexData& other)
{
    if (this != &other) {
        freeOwned();
        clearEntries();
        copyFrom(other);
    }
    return *this;
}

VertexData::~VertexData()
{
    freeOwned();
}

VecListArray* VertexData::builtin(const std::string& name, int* type, bool** flag)
{
    VecListArray* field = nullptr;
    int t = ATTRIB_NONE;
    bool* f = nullptr;
    if (name == "uv") {
        field = &uv;
        t = PRIM_VECTOR;
        f = &hasUV;
    } else if (name == "N") {
        field = &N;
        t = PRIM_NORMAL;
        f = &hasN;
    }
    if (type) *type = t;
    if (flag) *flag = f;
    return field;
}

void VertexData::copyFrom(const VertexData& other)
{
    indices = other.indices;
    uv = other.uv;
    N = other.N;
    hasUV = other.hasUV;
    hasN = other.hasN;
    for (const auto& [name, array] : other.attribMap) {
        const int type = other.attribType(name);
        if (VecListArray* field = builtin(name)) {
            setEntry(name, field, type);
            continue;
        }
        withVertexArray(type, array, [&](auto& a, const auto&) { setEntry(name, cloneArray(a), type); });
    }
    rebuildLists();
}

void VertexData::freeOwned()
{
    for (const auto& [name, array] : attribMap)
        if (!isBuiltin(array))
            withVertexArray(attribType(name), array, [](auto& a, const auto&) { deleteArray(a); });
}

int VertexData::addAttrib(const std::string& name, int type, bool resizeNow)
{
    int builtinType = ATTRIB_NONE;
    bool* flag = nullptr;
    void* array = builtin(name, &builtinType, &flag);
    if (array && type != builtinType) return -1;
    if (attribMap.count(name)) return 0;
    if (array) {
        *flag = true;
    } else {
        const bool known =
            withVertexType(type, [&](auto tag, const auto&) { array = new typename decltype(tag)::type(); });
        if (!known) return -1;
    }
    setEntry(name, array, type);
    if (resizeNow) {
        withVertexArray(type, array, [&](auto& a, const auto& def) {
            a.clear();
            a.resize(indices.size());
            for (size_t p = 0; p < indices.size(); ++p) a[p].resize(indices[p].size(), def);
        });
        rebuildLists();
    }
    return 1;
}

int VertexData::removeAttrib(const std::string& name)
{
    void* array = attrib(name);
    if (!array) return -1;
    bool* flag = nullptr;
    if (VecListArray* field = builtin(name, nullptr, &flag)) {
        VecListArray().swap(*field);
        *flag = false;
    } else {
        withVertexArray(attribType(name), array, [](auto& a, const auto&) { deleteArray(a); });
    }
    dropEntry(name);
    rebuildLists();
    return 0;
}

void VertexData::addVertexList(std::vector<uint32_t> list)
{
    const size_t count = list.size();
    for (size_t i = 0; i < pointers.size(); ++i)
        withVertexArray(types[i], pointers[i], [&](auto& a, const auto& def) {
            a.emplace_back();
            a.back().resize(count, def);
        });
    indices.push_back(std::move(list));
}

void VertexData::reverseVertexList(size_t prim)
{
    if (prim >= indices.size()) return;
    std::reverse(indices[prim].begin(), indices[prim].end());
    for (size_t i = 0; i < pointers.size(); ++i)
        withVertexArray(types[i], pointers[i], [&](auto& a, const auto&) {
            if (prim < a.size()) reverseElems(a[prim]);
        });
}

void VertexData::clear()
{
    freeOwned();
    clearEntries();
    indices.clear();
    VecListArray().swap(uv);
    VecListArray().swap(N);
    hasUV = hasN = false;
}
