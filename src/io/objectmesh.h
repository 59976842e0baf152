// ObjectMesh: one mesh part of a classic geometry object, as its OBJ and SD loaders
// fill it and the classic sources and colliders read it: four-float vertex, velocity
// and normal arrays, triangles with position, normal and texture indices, a bound and
// the part's pose. Plain data with a few helpers.
#pragma once

#include <cstdint>
#include <vector>

#include "geo/vec.h"

// 36 bytes: position indices, normal indices (the same three), texture indices.
struct ObjectTriangle {
    int32_t v0 = 0, v1 = 0, v2 = 0;
    int32_t n0 = 0, n1 = 0, n2 = 0;
    int32_t t0 = 0, t1 = 0, t2 = 0;
};
static_assert(sizeof(ObjectTriangle) == 36, "ObjectTriangle is 36 bytes");

class ObjectMesh {
public:
    std::vector<Vec4f> vertices;
    std::vector<Vec4f> velocities;
    std::vector<Vec4f> normals;    // per vertex
    std::vector<Vec4f> uvs;        // texture coordinates the t indices point at; may be empty
    std::vector<ObjectTriangle> triangles;
    Vec4f boundMin{999999.f, 999999.f, 999999.f, 0.f};
    Vec4f boundMax{-999999.f, -999999.f, -999999.f, 0.f};
    // The part's pose, row-vector convention (p' = p * M, translation in 12..14):
    // xform[0] the current one, xform[1] the one before the last load.
    double xform[2][16] = {{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1},
                           {1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1}};
    bool isDeforming = false;  // the current frame has per-vertex positions
    bool isLoaded = false;     // a frame was read

    void resetBounds();
    void growBounds(const Vec4f& p);
    // Bound over all vertices, from scratch.
    void computeBounds();
    // Each triangle's normalised (p1-p0) x (p2-p0) written to its three corners' normals
    // (the last triangle that uses a vertex wins); normals sized to the vertices.
    // Triangles here keep the file's order, so this is the normal Body::computeNormals
    // gives the same face once its list is reversed into the Body's winding.
    void computeTriangleNormals();
};
