// Type codes of named attributes and the storage behind each code. Attributes
// are held as untyped pointers in name maps; the dispatch helpers below turn a
// code back into the concrete array type (and the default of a new element), so
// every generic operation over attributes is one generic lambda.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "geo/bitarray.h"
#include "geo/vec.h"

// Point attribute codes.
enum AttribType : int {
    ATTRIB_INT = 0,
    ATTRIB_FLOAT = 1,
    ATTRIB_BOOL = 2,
    ATTRIB_STRING = 3,
    ATTRIB_VECTOR = 4,
    ATTRIB_POSITION = 5,
    ATTRIB_VELOCITY = 6,
    ATTRIB_COLOR = 7,
    ATTRIB_NORMAL = 8,
    ATTRIB_INT_LIST = 9,
    ATTRIB_FLOAT_LIST = 10,
    ATTRIB_VECTOR_LIST = 11,
    ATTRIB_MAT3 = 12,
    ATTRIB_MAT4 = 13,
    ATTRIB_NONE = 14 // answer for a name that doesn't exist, in every attribute table
};

// Codes of vertex, primitive and per-volume attributes (no velocity entry).
enum PrimAttribType : int {
    PRIM_INT = 0,
    PRIM_FLOAT = 1,
    PRIM_BOOL = 2,
    PRIM_STRING = 3,
    PRIM_VECTOR = 4,
    PRIM_POSITION = 5,
    PRIM_COLOR = 6,
    PRIM_NORMAL = 7
};

// Grid codes; 3..7 are Vec3f grids told apart by their OpenVDB vector type.
enum VolumeType : int {
    VOLUME_BOOL = 0,
    VOLUME_INT = 1,
    VOLUME_FLOAT = 2,
    VOLUME_VEC3 = 3,           // invariant or covariant
    VOLUME_VEC3_ABSOLUTE = 4,  // contravariant absolute
    VOLUME_VEC3_UNKNOWN = 5,   // imported vector grid of no known kind
    VOLUME_VEC3_NORMALIZE = 6, // covariant normalize
    VOLUME_VEC3_RELATIVE = 7   // contravariant relative
};

using IntArray = std::vector<int32_t>;
using FloatArray = std::vector<float>;
using StringArray = std::vector<std::string>;
using VecArray = std::vector<Vec4f>;
using IntListArray = std::vector<std::vector<int32_t>>;
using FloatListArray = std::vector<std::vector<float>>;
using VecListArray = std::vector<std::vector<Vec4f>>;
using Mat3Array = std::vector<Mat3f>;
using Mat4Array = std::vector<Mat4f>;

inline constexpr Vec4f kDefaultColor(1.f, 1.f, 1.f, 0.f);
inline constexpr Vec4f kDefaultNormal(0.f, 0.f, 1.f, 0.f);

template <class T> struct TypeTag {
    using type = T;
};

// Calls f(TypeTag<Storage>{}, defaultElement) for a point attribute code.
// Returns false (and calls nothing) for an unknown code.
template <class F> bool withPointType(int code, F&& f)
{
    switch (code) {
    case ATTRIB_INT:
        f(TypeTag<IntArray>{}, int32_t(0));
        return true;
    case ATTRIB_FLOAT:
        f(TypeTag<FloatArray>{}, 0.f);
        return true;
    case ATTRIB_BOOL:
        f(TypeTag<BitArray>{}, false);
        return true;
    case ATTRIB_STRING:
        f(TypeTag<StringArray>{}, std::string());
        return true;
    case ATTRIB_VECTOR:
    case ATTRIB_POSITION:
    case ATTRIB_VELOCITY:
        f(TypeTag<VecArray>{}, Vec4f());
        return true;
    case ATTRIB_COLOR:
        f(TypeTag<VecArray>{}, kDefaultColor);
        return true;
    case ATTRIB_NORMAL:
        f(TypeTag<VecArray>{}, kDefaultNormal);
        return true;
    case ATTRIB_INT_LIST:
        f(TypeTag<IntListArray>{}, std::vector<int32_t>());
        return true;
    case ATTRIB_FLOAT_LIST:
        f(TypeTag<FloatListArray>{}, std::vector<float>());
        return true;
    case ATTRIB_VECTOR_LIST:
        f(TypeTag<VecListArray>{}, std::vector<Vec4f>());
        return true;
    case ATTRIB_MAT3:
        f(TypeTag<Mat3Array>{}, Mat3f());
        return true;
    case ATTRIB_MAT4:
        f(TypeTag<Mat4Array>{}, Mat4f());
        return true;
    default:
        return false;
    }
}

// Same for a primitive or per-volume attribute code (one element per item).
template <class F> bool withItemType(int code, F&& f)
{
    switch (code) {
    case PRIM_INT:
        f(TypeTag<IntArray>{}, int32_t(0));
        return true;
    case PRIM_FLOAT:
        f(TypeTag<FloatArray>{}, 0.f);
        return true;
    case PRIM_BOOL:
        f(TypeTag<BitArray>{}, false);
        return true;
    case PRIM_STRING:
        f(TypeTag<StringArray>{}, std::string());
        return true;
    case PRIM_VECTOR:
    case PRIM_POSITION:
        f(TypeTag<VecArray>{}, Vec4f());
        return true;
    case PRIM_COLOR:
        f(TypeTag<VecArray>{}, kDefaultColor);
        return true;
    case PRIM_NORMAL:
        f(TypeTag<VecArray>{}, kDefaultNormal);
        return true;
    default:
        return false;
    }
}

// Vertex attributes hold, per primitive, one item array over its vertices:
// f gets TypeTag<std::vector<ItemStorage>> and the default of one vertex.
template <class F> bool withVertexType(int code, F&& f)
{
    return withItemType(code, [&](auto tag, const auto& def) {
        f(TypeTag<std::vector<typename decltype(tag)::type>>{}, def);
    });
}

// The same three, applied to an existing array: f(array&, defaultElement).
template <class F> bool withPointArray(int code, void* array, F&& f)
{
    return withPointType(
        code, [&](auto tag, const auto& def) { f(*static_cast<typename decltype(tag)::type*>(array), def); });
}

template <class F> bool withItemArray(int code, void* array, F&& f)
{
    return withItemType(
        code, [&](auto tag, const auto& def) { f(*static_cast<typename decltype(tag)::type*>(array), def); });
}

template <class F> bool withVertexArray(int code, void* array, F&& f)
{
    return withVertexType(
        code, [&](auto tag, const auto& def) { f(*static_cast<typename decltype(tag)::type*>(array), def); });
}
