// Body, the one geometry container that flows through the node graph, the
// solvers, the viewport and the file code: points, primitives with their
// vertices, named grids, constraint lists and sharing flags. A Body travels as
// a shared pointer; its parts are never null and a copy is always deep.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "geo/constraintrecord.h"
#include "geo/pointdata.h"
#include "geo/primdata.h"
#include "geo/vertexdata.h"
#include "geo/volumedata.h"

class Body {
public:
    std::unique_ptr<PointData> points;
    std::unique_ptr<VertexData> vertices;
    std::unique_ptr<PrimData> prims;
    std::unique_ptr<VolumeData> volumes;
    std::vector<std::string> tags;
    std::vector<ConstraintRecord> pointConstraints; // from nearby points
    std::vector<ConstraintRecord> edgeConstraints;  // from polygon edges, sorted by (a, b), unique
    std::vector<std::vector<int32_t>> pointPrims; // per point, the primitives using it; see rebuildPointPrims
    bool isDynamic = false;       // carries simulation state; plug caches pass it on untouched
    bool wasDynamic = false;      // has left a simulation
    bool isCached = false;        // the copy a plug cache holds
    uint32_t numVertices = 0;     // sum of all primitives' vertex counts
    uint32_t numLineVertices = 0; // same over lines and two-vertex polygons
    uint32_t numVolumes = 0;      // grid count, refreshed before the viewport reads it

    Body();
    Body(const Body& other); // deep, grids included; flags taken over
    Body& operator=(const Body& other);
    ~Body();

    // Appends other's points (merge rule of appendPoints) and its primitives with
    // offset vertex indices. Every vertex attribute of this side grows with
    // defaults for the new primitives; other's vertex, primitive and constraint
    // data are not carried over.
    void appendMesh(const Body& other);
    // Point normals from triangles and quads: N is reset to zero (made if
    // missing), each face adds (p2-p0) x (p1-p0) of its first three corners to
    // its points, then N is normalised and negated with flip.
    void computeNormals(bool flip = false);
    // Same face rule into caller arrays: per-primitive normalised normals (zero
    // for fewer than three vertices) and per-point normalised sums.
    void computeNormalsInto(VecArray& pointNormals, VecArray& primNormals) const;
    // Reverses each primitive's vertex order (and its vertex attributes).
    void reversePrims();
    void rebuildPointPrims();
    // Points and active voxels of every grid; an empty Body gives min 99999 and max -99999.
    void getBounds(Vec4f& min, Vec4f& max) const;
    size_t memoryBytes() const; // point attributes, as plug caches account for them
    // Back to the default state (P alone, nothing else); flags stay.
    void clear();
    // Recomputes numVertices, numLineVertices and numVolumes from the data.
    void updateCounts();

    // Constraints of a point, read through "data_constrIndices" (partners) and
    // "data_constrDistances". They answer 0 / empty while the Body has primitives
    // or either attribute is missing; an index past a list prints "exceed vector".
    int numConstraints(size_t point) const;
    int constraintPartner(size_t point, size_t n) const;
    float constraintDistance(size_t point, size_t n) const;
    std::vector<int32_t> constraintPartners(size_t point) const;
};

using BodyPtr = std::shared_ptr<Body>;
