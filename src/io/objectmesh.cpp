// ObjectMesh helpers: bounds and the per-triangle normals the SD loader writes to the
// corners. Triangles whose indices fall outside the vertices are skipped.
#include "io/objectmesh.h"

#include <algorithm>
#include <cmath>

void ObjectMesh::resetBounds()
{
    boundMin = Vec4f(999999.f, 999999.f, 999999.f, 0.f);
    boundMax = Vec4f(-999999.f, -999999.f, -999999.f, 0.f);
}

void ObjectMesh::growBounds(const Vec4f& p)
{
    boundMin.x = std::min(boundMin.x, p.x);
    boundMin.y = std::min(boundMin.y, p.y);
    boundMin.z = std::min(boundMin.z, p.z);
    boundMax.x = std::max(boundMax.x, p.x);
    boundMax.y = std::max(boundMax.y, p.y);
    boundMax.z = std::max(boundMax.z, p.z);
}

void ObjectMesh::computeBounds()
{
    resetBounds();
    for (const Vec4f& p : vertices) growBounds(p);
}

void ObjectMesh::computeTriangleNormals()
{
    normals.resize(vertices.size(), Vec4f(0.f, 0.f, 1.f, 0.f));
    const size_t n = vertices.size();
    for (const ObjectTriangle& t : triangles) {
        if (t.v0 < 0 || t.v1 < 0 || t.v2 < 0 || size_t(t.v0) >= n || size_t(t.v1) >= n || size_t(t.v2) >= n)
            continue;
        const Vec4f& p0 = vertices[size_t(t.v0)];
        Vec4f c = (vertices[size_t(t.v1)] - p0).cross3(vertices[size_t(t.v2)] - p0);
        const float len = c.length3();
        if (len > 0.f) c *= 1.f / len;
        c.w = 0.f;
        normals[size_t(t.v0)] = c;
        normals[size_t(t.v1)] = c;
        normals[size_t(t.v2)] = c;
    }
}
