// The points of a Body: positions plus named attributes, one contiguous array
// per attribute with one element per point. P, v, Cd and N have fixed fields so
// hot loops reach them without a lookup; everything else is owned through the
// name maps of AttribTable. Also usable as the particle list of OpenVDB's
// ParticlesToLevelSet (size, getPos, getPosRad, getPosRadVel).
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "geo/attribtable.h"
#include "geo/attribtypes.h"

class PointData : public AttribTable {
public:
    VecArray P; // its length is the point count
    bool hasV = false, hasCd = false, hasN = false;
    VecArray v, Cd, N;                        // empty while their flag is clear
    float radius = 0.05f;                     // not copied
    const FloatArray* radiusAttrib = nullptr; // non-owning, not copied

    PointData();
    PointData(const PointData& other);
    PointData& operator=(const PointData& other);
    ~PointData();

    size_t size() const { return P.size(); }

    // 1 when made, 0 when the name exists (whatever type was asked), -1 for an
    // unknown type code. P, v, Cd and N always get their built-in type 5..8.
    // Without resizeNow the caller fills the array and calls rebuildLists().
    int addAttrib(const std::string& name, int type, bool resizeNow = true);
    // 0 when removed; -1 for P or a missing name.
    int removeAttrib(const std::string& name);

    // Append one point, every other channel at its default; the new index.
    int addPoint(const Vec4f& position);
    int addPointV(const Vec4f& position, const Vec4f& velocity); // v set if it exists
    int addPointCd(const Vec4f& position, const Vec4f& color);   // Cd set if it exists
    // Moves the last point into index (order not kept); -1 if index is out of range.
    int removePoint(size_t index);
    void copyPoint(size_t dst, size_t src);
    // Copies the listed channels of point srcIndex of other into dstIndex here.
    // Names that either side lacks, or that differ in type, are skipped.
    void copyPointAttribs(const PointData& other, size_t srcIndex, size_t dstIndex,
                          const std::vector<std::string>& names);
    // Merge: this side's points, then other's; attributes are united.
    void appendPoints(const PointData& other);
    void resizePoints(size_t count);
    void assignPoints(const PointData& other);
    std::unique_ptr<PointData> copyPointsExcept(const std::vector<std::string>& names) const;
    void sortPointsById();
    // Back to P alone, with no points.
    void clear();
    size_t memoryBytes() const;

    // Particle list interface for ParticlesToLevelSet (V is openvdb::Vec3R).
    template <class V> void getPos(size_t n, V& xyz) const
    {
        xyz[0] = P[n].x;
        xyz[1] = P[n].y;
        xyz[2] = P[n].z;
    }
    template <class V, class R> void getPosRad(size_t n, V& xyz, R& rad) const
    {
        getPos(n, xyz);
        rad = radiusAttrib ? (*radiusAttrib)[n] : radius;
    }
    template <class V, class R> void getPosRadVel(size_t n, V& xyz, R& rad, V& vel) const
    {
        getPosRad(n, xyz, rad);
        const Vec4f w = hasV ? v[n] : Vec4f();
        vel[0] = w.x;
        vel[1] = w.y;
        vel[2] = w.z;
    }

private:
    // The fixed field of P, v, Cd or N, with its type and flag; null otherwise.
    VecArray* builtin(const std::string& name, int* type = nullptr, bool** flag = nullptr);
    bool isBuiltin(const void* array) const
    {
        return array == &P || array == &v || array == &Cd || array == &N;
    }
    void copyFrom(const PointData& other);
    void freeOwned();
};
