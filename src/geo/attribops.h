// Element operations that work alike on every attribute storage: std::vector of
// anything and the packed BitArray. Together with the dispatch helpers of
// attribtypes.h they let resize, append, copy, remove and clone be written once
// for all type codes. Internal to the geometry sources.
#pragma once

#include <algorithm>
#include <cstddef>
#include <utility>
#include <vector>

#include "geo/bitarray.h"

template <class T> void appendArray(std::vector<T>& dst, const std::vector<T>& src)
{
    if (&dst == &src) {
        const std::vector<T> copy(src);
        dst.insert(dst.end(), copy.begin(), copy.end());
    } else {
        dst.insert(dst.end(), src.begin(), src.end());
    }
}
inline void appendArray(BitArray& dst, const BitArray& src)
{
    dst.append(src);
}

template <class T> void copyElem(std::vector<T>& dst, size_t i, const std::vector<T>& src, size_t j)
{
    if (&dst != &src || i != j) dst[i] = src[j];
}
inline void copyElem(BitArray& dst, size_t i, const BitArray& src, size_t j)
{
    dst.set(i, src.get(j));
}

// Moves the last element into index i and drops the last one (order not kept).
template <class T> void removeSwapLast(std::vector<T>& a, size_t i)
{
    if (i >= a.size()) return;
    if (i + 1 < a.size()) a[i] = std::move(a.back());
    a.pop_back();
}
inline void removeSwapLast(BitArray& a, size_t i)
{
    if (i >= a.size()) return;
    a.set(i, a.get(a.size() - 1));
    a.pop_back();
}

template <class T, class V> void insertElem(std::vector<T>& a, size_t i, const V& value)
{
    a.insert(a.begin() + static_cast<std::ptrdiff_t>(i), value);
}
inline void insertElem(BitArray& a, size_t i, bool value)
{
    a.insert(i, value);
}

template <class T> void eraseElem(std::vector<T>& a, size_t i)
{
    if (i < a.size()) a.erase(a.begin() + static_cast<std::ptrdiff_t>(i));
}
inline void eraseElem(BitArray& a, size_t i)
{
    if (i < a.size()) a.erase(i);
}

template <class T> void reverseElems(std::vector<T>& a)
{
    std::reverse(a.begin(), a.end());
}
inline void reverseElems(BitArray& a)
{
    a.reverse();
}

// Owned attribute arrays live behind void pointers; these make and free them
// with their real type.
template <class A> void* cloneArray(const A& a)
{
    return new A(a);
}
template <class A> void deleteArray(A& a)
{
    delete &a;
}
