// Body: deep copies, mesh merging, normals, primitive order, per-point
// primitive lists, bounds and the constraint lookups. Grid work goes through
// gridutil so this file doesn't include OpenVDB.
#include "geo/body.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#if defined(__x86_64__) || defined(__SSE__)
#include <xmmintrin.h>
#endif

#include "geo/gridutil.h"

namespace {

// The processor's approximate reciprocal square root (about 12 bits).
float fastRsqrt(float x)
{
#if defined(__x86_64__) || defined(__SSE__)
    return _mm_cvtss_f32(_mm_rsqrt_ss(_mm_set_ss(x)));
#else
    return 1.f / std::sqrt(x);
#endif
}

void normalizeInPlace(Vec4f& n)
{
    const float len2 = n.dot3(n);
    if (len2 > 0.f) n *= fastRsqrt(len2);
    n.w = 0.f;
}

// (p2-p0) x (p1-p0) of a primitive's first three corners; false if it has
// fewer than three vertices or an index out of range.
bool faceCross(const VecArray& P, const std::vector<uint32_t>& list, Vec4f& cross)
{
    if (list.size() < 3 || list[0] >= P.size() || list[1] >= P.size() || list[2] >= P.size()) return false;
    const Vec4f& p0 = P[list[0]];
    cross = (P[list[2]] - p0).cross3(P[list[1]] - p0);
    return true;
}

void widen(Vec4f& min, Vec4f& max, const Vec4f& p)
{
    min.x = std::min(min.x, p.x);
    min.y = std::min(min.y, p.y);
    min.z = std::min(min.z, p.z);
    max.x = std::max(max.x, p.x);
    max.y = std::max(max.y, p.y);
    max.z = std::max(max.z, p.z);
}

// The two constraint attributes, when the Body may answer lookups at all.
bool constraintAttribs(const Body& body, const IntListArray*& partners, const FloatListArray*& dists)
{
    if (body.prims->size() != 0) return false;
    if (body.points->attribType("data_constrIndices") != ATTRIB_INT_LIST ||
        body.points->attribType("data_constrDistances") != ATTRIB_FLOAT_LIST)
        return false;
    partners = body.points->attribAs<IntListArray>("data_constrIndices");
    dists = body.points->attribAs<FloatListArray>("data_constrDistances");
    return true;
}

int exceeded()
{
    std::printf("exceed vector\n");
    return 0;
}

} // namespace

Body::Body()
    : points(std::make_unique<PointData>()), vertices(std::make_unique<VertexData>()),
      prims(std::make_unique<PrimData>()), volumes(std::make_unique<VolumeData>())
{}

Body::Body(const Body& other)
    : points(std::make_unique<PointData>(*other.points)),
      vertices(std::make_unique<VertexData>(*other.vertices)),
      prims(std::make_unique<PrimData>(*other.prims)), volumes(std::make_unique<VolumeData>(*other.volumes)),
      tags(other.tags), pointConstraints(other.pointConstraints), edgeConstraints(other.edgeConstraints),
      pointPrims(other.pointPrims), isDynamic(other.isDynamic), wasDynamic(other.wasDynamic),
      isCached(other.isCached), numVertices(other.numVertices), numLineVertices(other.numLineVertices),
      numVolumes(other.numVolumes)
{}

Body& Body::operator=(const Body& other)
{
    if (this != &other) {
        *points = *other.points;
        *vertices = *other.vertices;
        *prims = *other.prims;
        *volumes = *other.volumes;
        tags = other.tags;
        pointConstraints = other.pointConstraints;
        edgeConstraints = other.edgeConstraints;
        pointPrims = other.pointPrims;
        isDynamic = other.isDynamic;
        wasDynamic = other.wasDynamic;
        isCached = other.isCached;
        numVertices = other.numVertices;
        numLineVertices = other.numLineVertices;
        numVolumes = other.numVolumes;
    }
    return *this;
}

Body::~Body() = default;

void Body::appendMesh(const Body& other)
{
    if (&other == this) {
        const Body copy(*this);
        appendMesh(copy);
        return;
    }
    const uint32_t offset = static_cast<uint32_t>(points->size());
    points->appendPoints(*other.points);
    const auto& otherLists = other.vertices->indices;
    for (size_t p = 0; p < other.prims->size(); ++p) {
        prims->addPrim(other.prims->kinds[p]);
        std::vector<uint32_t> list;
        if (p < otherLists.size()) list = otherLists[p];
        for (uint32_t& index : list) index += offset;
        vertices->addVertexList(std::move(list));
    }
    updateCounts();
}

void Body::computeNormals(bool flip)
{
    PointData& pd = *points;
    if (!pd.hasN) pd.addAttrib("N", ATTRIB_NORMAL);
    pd.N.assign(pd.size(), Vec4f());
    for (const auto& list : vertices->indices) {
        Vec4f cross;
        if ((list.size() != 3 && list.size() != 4) || !faceCross(pd.P, list, cross)) continue;
        for (uint32_t index : list)
            if (index < pd.N.size()) pd.N[index] += cross;
    }
    for (Vec4f& n : pd.N) {
        normalizeInPlace(n);
        if (flip) n = n * -1.f;
    }
}

void Body::computeNormalsInto(VecArray& pointNormals, VecArray& primNormals) const
{
    const VecArray& P = points->P;
    pointNormals.assign(P.size(), Vec4f());
    primNormals.assign(vertices->size(), Vec4f());
    for (size_t p = 0; p < vertices->size(); ++p) {
        const auto& list = vertices->indices[p];
        Vec4f cross;
        if (!faceCross(P, list, cross)) continue;
        normalizeInPlace(cross);
        primNormals[p] = cross;
        for (uint32_t index : list)
            if (index < pointNormals.size()) pointNormals[index] += cross;
    }
    for (Vec4f& n : pointNormals) normalizeInPlace(n);
}

void Body::reversePrims()
{
    for (size_t p = 0; p < vertices->size(); ++p) vertices->reverseVertexList(p);
}

void Body::rebuildPointPrims()
{
    const size_t count = points->size();
    pointPrims.clear();
    pointPrims.resize(count);
    for (size_t p = 0; p < vertices->size(); ++p)
        for (uint32_t index : vertices->indices[p])
            if (index < count) pointPrims[index].push_back(static_cast<int32_t>(p));
}

void Body::getBounds(Vec4f& min, Vec4f& max) const
{
    min = Vec4f(99999.f, 99999.f, 99999.f);
    max = Vec4f(-99999.f, -99999.f, -99999.f);
    for (const Vec4f& p : points->P) widen(min, max, p);
    for (const auto& entry : volumes->gridMap) {
        Vec4f lo, hi;
        if (entry.second && gridWorldBounds(*entry.second, lo, hi)) {
            widen(min, max, lo);
            widen(min, max, hi);
        }
    }
}

size_t Body::memoryBytes() const
{
    return points->memoryBytes();
}

void Body::clear()
{
    points->clear();
    vertices->clear();
    prims->clear();
    volumes->clear();
    tags.clear();
    pointConstraints.clear();
    edgeConstraints.clear();
    pointPrims.clear();
    numVertices = numLineVertices = numVolumes = 0;
}

void Body::updateCounts()
{
    numVertices = numLineVertices = 0;
    for (size_t p = 0; p < vertices->size(); ++p) {
        const uint32_t n = static_cast<uint32_t>(vertices->indices[p].size());
        numVertices += n;
        const bool isLine = p < prims->size() && prims->kinds[p] == PrimData::LINE;
        if (isLine || n == 2) numLineVertices += n;
    }
    numVolumes = static_cast<uint32_t>(volumes->size());
}

int Body::numConstraints(size_t point) const
{
    const IntListArray* partners = nullptr;
    const FloatListArray* dists = nullptr;
    if (!constraintAttribs(*this, partners, dists)) return 0;
    if (point >= partners->size()) return exceeded();
    return static_cast<int>((*partners)[point].size());
}

int Body::constraintPartner(size_t point, size_t n) const
{
    const IntListArray* partners = nullptr;
    const FloatListArray* dists = nullptr;
    if (!constraintAttribs(*this, partners, dists)) return 0;
    if (point >= partners->size() || n >= (*partners)[point].size()) return exceeded();
    return (*partners)[point][n];
}

float Body::constraintDistance(size_t point, size_t n) const
{
    const IntListArray* partners = nullptr;
    const FloatListArray* dists = nullptr;
    if (!constraintAttribs(*this, partners, dists)) return 0.f;
    if (point >= dists->size() || n >= (*dists)[point].size()) return static_cast<float>(exceeded());
    return (*dists)[point][n];
}

std::vector<int32_t> Body::constraintPartners(size_t point) const
{
    const IntListArray* partners = nullptr;
    const FloatListArray* dists = nullptr;
    if (!constraintAttribs(*this, partners, dists)) return {};
    if (point >= partners->size()) {
        exceeded();
        return {};
    }
    return (*partners)[point];
}
