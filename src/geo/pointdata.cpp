// Point attributes: creation and removal by type code, the per-point edits
// (add, remove, copy), the merge rule of appendPoints, and the id sort. Every
// operation over all channels walks the flat lists and dispatches once per
// channel, so no loop over points looks anything up by name.
#include "geo/pointdata.h"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <numeric>
#include <type_traits>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/parallel_sort.h>

#include "geo/attribops.h"

static_assert(sizeof(Vec4f) == 16 && sizeof(Mat3f) == 36 && sizeof(Mat4f) == 64,
              "attribute element sizes are part of the memory figure");

namespace {

// out[i] = a[order[i]], in parallel. Arrays out of step with the points are left alone.
template <class T> void permuteArray(std::vector<T>& a, const std::vector<uint32_t>& order)
{
    if (a.size() != order.size()) return;
    std::vector<T> out(a.size());
    tbb::parallel_for(tbb::blocked_range<size_t>(0, order.size(), 4096),
                      [&](const tbb::blocked_range<size_t>& r) {
                          for (size_t i = r.begin(); i != r.end(); ++i) out[i] = std::move(a[order[i]]);
                      });
    a.swap(out);
}

// Bits are gathered a whole word per task, so tasks never share a word.
void permuteArray(BitArray& a, const std::vector<uint32_t>& order)
{
    if (a.size() != order.size()) return;
    const size_t n = a.size();
    BitArray out(n);
    tbb::parallel_for(tbb::blocked_range<size_t>(0, out.numWords(), 128),
                      [&](const tbb::blocked_range<size_t>& r) {
                          const size_t end = std::min(n, r.end() * 32);
                          for (size_t i = r.begin() * 32; i < end; ++i) out.set(i, a.get(order[i]));
                      });
    a = std::move(out);
}

// Element bytes of one attribute array, as the plug cache accounts for them.
template <class T> size_t payloadBytes(const std::vector<T>& a)
{
    return sizeof(T) * a.size();
}
size_t payloadBytes(const StringArray& a)
{
    return 32 * a.size();
}
size_t payloadBytes(const BitArray& a)
{
    return a.size() + 8;
}
template <class T> size_t payloadBytes(const std::vector<std::vector<T>>& a)
{
    size_t bytes = 0;
    for (const auto& list : a) bytes += 24 + sizeof(T) * list.size();
    return bytes;
}

template <class A> const A& sameAs(const A&, const void* other)
{
    return *static_cast<const A*>(other);
}

// Sort key of an id value: ints as they are, floats truncated toward zero.
int64_t idKey(int32_t id)
{
    return id;
}
int64_t idKey(float id)
{
    if (std::isnan(id)) return 0;
    const double t = std::trunc(static_cast<double>(id));
    if (t >= 9.2e18) return INT64_MAX;
    if (t <= -9.2e18) return INT64_MIN;
    return static_cast<int64_t>(t);
}

} // namespace

PointData::PointData()
{
    setEntry("P", &P, ATTRIB_POSITION);
    rebuildLists();
}

PointData::PointData(const PointData& other) : AttribTable()
{
    copyFrom(other);
}

PointData& PointData::operator=(const PointData& other)
{
    if (this != &other) {
        freeOwned();
        clearEntries();
        copyFrom(other);
        radius = 0.05f;
        radiusAttrib = nullptr;
    }
    return *this;
}

PointData::~PointData()
{
    freeOwned();
}

VecArray* PointData::builtin(const std::string& name, int* type, bool** flag)
{
    int t = ATTRIB_NONE;
    bool* f = nullptr;
    VecArray* field = nullptr;
    if (name == "P") {
        field = &P;
        t = ATTRIB_POSITION;
    } else if (name == "v") {
        field = &v;
        t = ATTRIB_VELOCITY;
        f = &hasV;
    } else if (name == "Cd") {
        field = &Cd;
        t = ATTRIB_COLOR;
        f = &hasCd;
    } else if (name == "N") {
        field = &N;
        t = ATTRIB_NORMAL;
        f = &hasN;
    }
    if (type) *type = t;
    if (flag) *flag = f;
    return field;
}

void PointData::copyFrom(const PointData& other)
{
    P = other.P;
    v = other.v;
    Cd = other.Cd;
    N = other.N;
    hasV = other.hasV;
    hasCd = other.hasCd;
    hasN = other.hasN;
    for (const auto& [name, array] : other.attribMap) {
        const int type = other.attribType(name);
        if (VecArray* field = builtin(name)) {
            setEntry(name, field, type);
            continue;
        }
        void* copy = nullptr;
        withPointArray(type, array, [&](auto& a, const auto&) { copy = cloneArray(a); });
        if (copy) setEntry(name, copy, type);
    }
    rebuildLists();
}

void PointData::freeOwned()
{
    for (const auto& [name, array] : attribMap)
        if (!isBuiltin(array))
            withPointArray(attribType(name), array, [](auto& a, const auto&) { deleteArray(a); });
}

int PointData::addAttrib(const std::string& name, int type, bool resizeNow)
{
    if (attribMap.count(name)) return 0;
    const size_t n = size();
    int builtinType = ATTRIB_NONE;
    bool* flag = nullptr;
    void* array = builtin(name, &builtinType, &flag);
    if (array) {
        *flag = true; // P always exists, so this is v, Cd or N
        type = builtinType;
        if (resizeNow)
            withPointArray(type, array, [&](auto& a, const auto& def) {
                a.clear();
                a.resize(n, def);
            });
    } else {
        const bool known = withPointType(type, [&](auto tag, const auto& def) {
            auto* a = new typename decltype(tag)::type();
            if (resizeNow) a->resize(n, def);
            array = a;
        });
        if (!known) return -1;
    }
    setEntry(name, array, type);
    if (resizeNow) rebuildLists();
    return 1;
}

int PointData::removeAttrib(const std::string& name)
{
    if (name == "P") return -1;
    void* array = attrib(name);
    if (!array) return -1;
    bool* flag = nullptr;
    if (VecArray* field = builtin(name, nullptr, &flag)) {
        VecArray().swap(*field);
        *flag = false;
    } else {
        if (radiusAttrib == array) radiusAttrib = nullptr;
        withPointArray(attribType(name), array, [](auto& a, const auto&) { deleteArray(a); });
    }
    dropEntry(name);
    rebuildLists();
    return 0;
}

int PointData::addPoint(const Vec4f& position)
{
    const size_t index = size();
    for (size_t i = 0; i < pointers.size(); ++i)
        if (pointers[i] != &P)
            withPointArray(types[i], pointers[i], [](auto& a, const auto& def) { a.push_back(def); });
    P.push_back(position);
    return static_cast<int>(index);
}

int PointData::addPointV(const Vec4f& position, const Vec4f& velocity)
{
    const int index = addPoint(position);
    if (hasV && static_cast<size_t>(index) < v.size()) v[index] = velocity;
    return index;
}

int PointData::addPointCd(const Vec4f& position, const Vec4f& color)
{
    const int index = addPoint(position);
    if (hasCd && static_cast<size_t>(index) < Cd.size()) Cd[index] = color;
    return index;
}

int PointData::removePoint(size_t index)
{
    if (index >= size()) return -1;
    for (size_t i = 0; i < pointers.size(); ++i)
        withPointArray(types[i], pointers[i], [&](auto& a, const auto&) { removeSwapLast(a, index); });
    return 0;
}

void PointData::copyPoint(size_t dst, size_t src)
{
    for (size_t i = 0; i < pointers.size(); ++i)
        withPointArray(types[i], pointers[i], [&](auto& a, const auto&) {
            if (dst < a.size() && src < a.size()) copyElem(a, dst, a, src);
        });
}

void PointData::copyPointAttribs(const PointData& other, size_t srcIndex, size_t dstIndex,
                                 const std::vector<std::string>& which)
{
    for (const std::string& name : which) {
        void* dstArray = attrib(name);
        const void* srcArray = other.attrib(name);
        const int type = attribType(name);
        if (!dstArray || !srcArray || type != other.attribType(name)) continue;
        withPointArray(type, dstArray, [&](auto& a, const auto&) {
            const auto& s = sameAs(a, srcArray);
            if (dstIndex < a.size() && srcIndex < s.size()) copyElem(a, dstIndex, s, srcIndex);
        });
    }
}

void PointData::appendPoints(const PointData& other)
{
    if (&other == this) {
        const PointData copy(*this);
        appendPoints(copy);
        return;
    }
    // 1. Attributes only the other side has are made here, at default values.
    for (size_t i = 0; i < other.names.size(); ++i)
        if (other.names[i] != "P" && !hasAttrib(other.names[i])) addAttrib(other.names[i], other.types[i]);
    // 2. Positions.
    appendArray(P, other.P);
    const size_t count = size();
    // 3. Attributes the other side lacks grow with defaults.
    for (size_t i = 0; i < names.size(); ++i)
        if (names[i] != "P" && !other.hasAttrib(names[i]))
            withPointArray(types[i], pointers[i], [&](auto& a, const auto& def) { a.resize(count, def); });
    // 4. Shared attributes take the other's elements when the types agree.
    for (size_t i = 0; i < other.names.size(); ++i) {
        const std::string& name = other.names[i];
        if (name == "P") continue;
        const int type = attribType(name);
        void* array = attrib(name);
        const void* src = other.pointers[i];
        if (type == other.types[i]) {
            withPointArray(type, array, [&](auto& a, const auto&) { appendArray(a, sameAs(a, src)); });
        } else {
            std::printf("warning: non matching types.\n");
            withPointArray(type, array, [&](auto& a, const auto& def) { a.resize(count, def); });
        }
    }
}

void PointData::resizePoints(size_t count)
{
    for (size_t i = 0; i < pointers.size(); ++i)
        withPointArray(types[i], pointers[i], [&](auto& a, const auto& def) { a.resize(count, def); });
}

void PointData::assignPoints(const PointData& other)
{
    if (&other == this) return;
    P = other.P;
    for (size_t i = 0; i < other.names.size(); ++i) {
        const std::string& name = other.names[i];
        if (name == "P") continue;
        removeAttrib(name);
        addAttrib(name, other.types[i], false);
        const void* src = other.pointers[i];
        withPointArray(attribType(name), attrib(name), [&](auto& a, const auto&) { a = sameAs(a, src); });
    }
    rebuildLists();
    resizePoints(other.size());
}

std::unique_ptr<PointData> PointData::copyPointsExcept(const std::vector<std::string>& except) const
{
    auto out = std::make_unique<PointData>();
    out->P = P;
    for (size_t i = 0; i < names.size(); ++i) {
        const std::string& name = names[i];
        if (name == "P" || std::find(except.begin(), except.end(), name) != except.end()) continue;
        out->addAttrib(name, types[i], false);
        const void* src = pointers[i];
        withPointArray(types[i], out->attrib(name), [&](auto& a, const auto&) { a = sameAs(a, src); });
    }
    out->rebuildLists();
    return out;
}

void PointData::sortPointsById()
{
    const int idType = attribType("id");
    if (idType != ATTRIB_INT && idType != ATTRIB_FLOAT) return;
    const size_t n = size();
    std::vector<int64_t> keys(n);
    bool inStep = false;
    withPointArray(idType, attrib("id"), [&](auto& ids, const auto&) {
        if constexpr (std::is_same_v<std::decay_t<decltype(ids)>, IntArray> ||
                      std::is_same_v<std::decay_t<decltype(ids)>, FloatArray>) {
            inStep = ids.size() == n;
            if (inStep)
                for (size_t i = 0; i < n; ++i) keys[i] = idKey(ids[i]);
        }
    });
    if (!inStep) return;

    // Ties keep their original order, so the result doesn't depend on the threads.
    std::vector<uint32_t> order(n);
    std::iota(order.begin(), order.end(), 0u);
    tbb::parallel_sort(order.begin(), order.end(), [&](uint32_t a, uint32_t b) {
        return keys[a] != keys[b] ? keys[a] < keys[b] : a < b;
    });
    for (size_t i = 0; i < pointers.size(); ++i)
        withPointArray(types[i], pointers[i], [&](auto& a, const auto&) { permuteArray(a, order); });
}

void PointData::clear()
{
    freeOwned();
    clearEntries();
    VecArray().swap(P);
    VecArray().swap(v);
    VecArray().swap(Cd);
    VecArray().swap(N);
    hasV = hasCd = hasN = false;
    radiusAttrib = nullptr;
    setEntry("P", &P, ATTRIB_POSITION);
    rebuildLists();
}

size_t PointData::memoryBytes() const
{
    size_t bytes = 0;
    for (size_t i = 0; i < pointers.size(); ++i)
        withPointArray(types[i], pointers[i], [&](auto& a, const auto&) { bytes += 24 + payloadBytes(a); });
    return bytes;
}
