// Particle-Emit: each polygon is a fan of triangles from its first vertex. A triangle gets
// its sample count from its area over the spacing (1 / resolution) and its sample points
// from the low-discrepancy sequence of the classic Mesh source, jittered by the random
// table of SimState. v = velInheritance * the emitter's interpolated v + the triangle's
// normal * speed.
#include "nodes/particleemitnode.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "particles/trianglesamples.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

bool finite3(const Vec4f& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

// Value k of the random table in [0, 1); 0.5 (no offset) while there is no table.
Vec4f tableVector(int k)
{
    if (!simState || simState->randomTable.empty()) return Vec4f(0.5f, 0.5f, 0.5f, 0.f);
    const SimVec3 r = simState->randomVector(k);
    return Vec4f(r.x, r.y, r.z, 0.f);
}

} // namespace

ParticleEmitNode::ParticleEmitNode(NodeMaster* master) : GeoNode(master)
{
    setType("Particle-Emit");
    addParam(&resolution, "resolution", "Resolution", kParamFloat, "20");
    addParam(&velInheritance, "velInheritance", "Vel Inheritance", kParamFloat, "0.8");
    addParam(&jitter, "jitter", "Jitter", kParamFloat, "0", "Add some jittering. Range 0.0 to 1.0.");
    addParam(&speed, "speed", "Speed", kParamFloat, "1", "Speed of the emission.");
    addParam(&speedRandom, "speedRandom", "Speed Random", kParamFloat, "0.5", "Randomness of the speed.");
    addInput("Input-Dynamic-Particles", true);
    addInput("Input-Mesh", true);
    addOutput("Output-Dynamic-Particles");
}

void ParticleEmitNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    BodyPtr target;
    fetchInput(target, 0);
    if (target && enabled) {
        BodyPtr mesh;
        fetchInput(mesh, 1);
        if (mesh) {
            PointData& pd = *target->points;
            if (!pd.hasV) pd.addAttrib("v", ATTRIB_VELOCITY);
            if (!pd.hasCd) pd.addAttrib("Cd", ATTRIB_COLOR);
            if (!pd.hasAttrib("age")) pd.addAttrib("age", ATTRIB_FLOAT);
            emit(*target, *mesh, c.time);
        }
    }
    finishProcess(result, c, std::move(target), false);
}

int ParticleEmitNode::emit(Body& target, const Body& mesh, float frame)
{
    if (!(resolution > 0.f) || !std::isfinite(resolution)) {
        std::printf("%s: resolution must be above 0; nothing emitted.\n", name().c_str());
        return -1;
    }
    const float spacing = 1.f / resolution;
    if (context.print) std::printf("spacing: %g\n", double(spacing));
    const PointData& src = *mesh.points;
    const VertexData& verts = *mesh.vertices;
    size_t polygons = 0;
    for (size_t prim = 0; prim < mesh.prims->size() && prim < verts.size(); ++prim)
        if (mesh.prims->kinds[prim] == PrimData::POLYGON && verts.indices[prim].size() >= 3) ++polygons;
    if (polygons == 0 || src.size() == 0) {
        std::printf("%s: the emitter mesh has no polygons; nothing emitted.\n", name().c_str());
        return -1;
    }

    PointData& dst = *target.points;
    const bool srcV = src.hasV && src.v.size() == src.size();
    const float jit = std::clamp(jitter, 0.f, 1.f);
    const double seed = emission::meshSampleSeed(frame);
    const Vec4f color(0.9f, 0.9f, 0.9f, 0.f);
    int added = 0;
    size_t triangle = 0; // running triangle index over all fans
    size_t skipped = 0;
    for (size_t prim = 0; prim < mesh.prims->size() && prim < verts.size(); ++prim) {
        if (mesh.prims->kinds[prim] != PrimData::POLYGON) continue;
        const std::vector<uint32_t>& list = verts.indices[prim];
        for (size_t k = 1; k + 1 < list.size(); ++k, ++triangle) {
            const uint32_t idx[3] = {list[0], list[k], list[k + 1]};
            if (idx[0] >= src.size() || idx[1] >= src.size() || idx[2] >= src.size()) {
                ++skipped;
                continue;
            }
            const Vec4f& p0 = src.P[idx[0]];
            const Vec4f& p1 = src.P[idx[1]];
            const Vec4f& p2 = src.P[idx[2]];
            if (!finite3(p0) || !finite3(p1) || !finite3(p2)) {
                ++skipped;
                continue;
            }
            // The face normal of the Body's own convention, (p2 - p0) x (p1 - p0).
            Vec4f normal = (p2 - p0).cross3(p1 - p0);
            const float twiceArea = normal.length3();
            normal = twiceArea > 0.f ? normal * (1.f / twiceArea) : Vec4f(0.f, 0.f, 0.f, 0.f);
            const int64_t count =
                emission::triangleSampleCount(0.5 * double(twiceArea), double(spacing), triangle);
            for (int64_t s = 0; s < count; ++s) {
                float w[3];
                emission::triangleSampleWeights(seed, s, w);
                Vec4f p = p0 * w[0] + p1 * w[1] + p2 * w[2];
                const Vec4f r = tableVector(added);
                p += Vec4f((r.x - 0.5f) * spacing * jit, (r.y - 0.5f) * spacing * jit,
                           (r.z - 0.5f) * spacing * jit, 0.f);
                p.w = 0.f;
                Vec4f v(0.f, 0.f, 0.f, 0.f);
                if (srcV)
                    v = (src.v[idx[0]] * w[0] + src.v[idx[1]] * w[1] + src.v[idx[2]] * w[2]) * velInheritance;
                if (normalEmission) v += normal * speed;
                v.w = 0.f;
                const int i = dst.addPointV(p, v);
                if (dst.hasCd) dst.Cd[size_t(i)] = color;
                ++added;
            }
        }
    }
    if (skipped > 0)
        std::printf("%s: %zu triangles with bad corners (non-finite or missing points) skipped.\n",
                    name().c_str(), skipped);
    return added;
}
