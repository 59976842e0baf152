// The one emission routine of the classic sources, instantiated per system type. A
// system takes part through EmitTraits<System>, the four operations in which systems
// differ (emission spacing, hash rebuild, nearest-distance query, adding a particle),
// specialised beside the system (granulartraits.h). The kinds of source (plane, mesh
// surface, volume, points) make candidates in the part's local space; Emitter jitters
// them, checks free space, maps them to world and adds them.
#pragma once

#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "io/object.h"
#include "particles/objectsdf.h"
#include "particles/sdfsampler.h"
#include "particles/source.h"
#include "particles/trianglesamples.h"
#include "particles/xform.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <vector>

// Specialised per system:
//   static float spacing(const System&, float resolutionMultiplier);
//   static void rebuildHash(System&);
//   static float nearestDistance(const System&, const Vec4f& p);
//   static void addParticle(System&, const Vec4f& p, const Vec4f& v, const Vec4f& uv, int32_t emitterId);
//   static bool trackUVs(const System&);
template <class System>
struct EmitTraits;

// Candidates one call may consider; a larger lattice is refused with a message.
constexpr int64_t kMaxEmissionCandidates = 100000000;

namespace emission {

// One emitting frame: local to world now and a substep ago, the map of directions, and
// the local step that gives world spacing e on each axis.
struct Frame {
    Mat4f now, before, directions;
    Vec4f step;
};

inline Frame makeFrame(const Mat4f& partNow, const Mat4f& partBefore, const Source& s, float e)
{
    Frame f;
    f.now = xform::multiply(partNow, s.pose.current);
    f.before = xform::multiply(partBefore, s.pose.previous);
    f.directions = xform::multiply(xform::scaleFree(partNow, false), s.pose.rotationOnly);
    const Vec4f scales = xform::axisScales(f.now);
    f.step = Vec4f(e / scales.x, e / scales.y, e / scales.z, 0.f);
    return f;
}

inline Frame sourceFrame(const Source& s, float e)
{
    return makeFrame(Mat4f(), Mat4f(), s, e);
}

inline Frame partFrame(const Source& s, const ObjectMesh& mesh, float e)
{
    return makeFrame(xform::fromDoubles(mesh.xform[0]), xform::fromDoubles(mesh.xform[1]), s, e);
}

// Lattice points k with lo + k * step below hi (below or at hi when `inclusive`).
inline int64_t latticeCount(float lo, float hi, float step, bool inclusive)
{
    if (!(step > 0.f) || !std::isfinite(step) || !(hi >= lo)) return 0;
    const double n = double(hi - lo) / double(step);
    if (n > double(kMaxEmissionCandidates)) return kMaxEmissionCandidates + 1;
    int64_t count = int64_t(std::floor(n)) + (inclusive ? 1 : 0);
    if (!inclusive && lo + float(count) * step < hi) ++count;
    return count;
}

inline bool withinBudget(double candidates)
{
    if (candidates <= double(kMaxEmissionCandidates)) return true;
    std::printf("Source: %.0f candidates in one emission is over the limit of %lld; raise the resolution.\n",
                candidates, static_cast<long long>(kMaxEmissionCandidates));
    return false;
}

inline bool finite3(const Vec4f& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

} // namespace emission

template <class System>
class Emitter {
public:
    using Traits = EmitTraits<System>;

    Emitter(Source& source, System& system, float e)
        : source_(source), system_(system), e_(e), jitter_(source.jitterAmount()), checkSpace_(source.checkSpace),
          emitterId_(source.listIndex()), dt_(simState->dt)
    {
    }

    int added = 0;

    // One candidate at `local` (jitter not yet added) of the frame f.
    void offer(const Vec4f& local, const emission::Frame& f, const Vec4f& direction, const Vec4f& extra,
               const Vec4f& uv)
    {
        const SimVec3 r = simState->randomVector(n_);
        const Vec4f jittered = local + Vec4f((r.x - 0.5f) * f.step.x * jitter_, (r.y - 0.5f) * f.step.y * jitter_,
                                             (r.z - 0.5f) * f.step.z * jitter_, 0.f);
        const Vec4f world = xform::point(jittered, f.now);
        if (checkSpace_ && Traits::nearestDistance(system_, world) <= e_) return;
        Vec4f velocity = direction + extra;
        if (dt_ > 0.f) velocity += (world - xform::point(jittered, f.before)) * (source_.velInheritance / dt_);
        Traits::addParticle(system_, world, velocity, uv, emitterId_);
        ++n_;
        ++added;
    }

    // The base direction mapped to world, through the part too with parentDirection.
    Vec4f direction(const emission::Frame& f) const
    {
        return xform::direction(source_.baseDirection(), source_.parentDirection ? f.directions : source_.pose.rotationOnly);
    }

    void fromPlane(const Object* object)
    {
        if (!object) {
            planeLattice(emission::sourceFrame(source_, e_));
            return;
        }
        for (const auto& mesh : object->meshes)
            if (mesh) planeLattice(emission::partFrame(source_, *mesh, e_));
    }

    void fromMesh(const Object& object)
    {
        const double seed = emission::meshSampleSeed(simState->frameF);
        for (const auto& part : object.meshes) {
            if (!part) continue;
            const ObjectMesh& mesh = *part;
            const emission::Frame f = emission::partFrame(source_, mesh, e_);
            std::vector<int64_t> counts(mesh.triangles.size(), 0);
            double total = 0.0;
            for (size_t t = 0; t < mesh.triangles.size(); ++t) {
                const Vec4f* v[3];
                if (!corners(mesh, mesh.triangles[t], v)) continue;
                const double area = 0.5 * double((*v[1] - *v[0]).cross3(*v[2] - *v[0]).length3());
                counts[t] = emission::triangleSampleCount(area, double(f.step.x), t);
                total += double(counts[t]);
            }
            if (!emission::withinBudget(total)) continue;
            const Vec4f base = direction(f);
            for (size_t t = 0; t < mesh.triangles.size(); ++t) {
                const ObjectTriangle& tri = mesh.triangles[t];
                const Vec4f* v[3];
                if (counts[t] == 0 || !corners(mesh, tri, v)) continue;
                for (int64_t s = 0; s < counts[t]; ++s) {
                    float w[3];
                    emission::triangleSampleWeights(seed, s, w);
                    const Vec4f p = *v[0] * w[0] + *v[1] * w[1] + *v[2] * w[2];
                    Vec4f dir = base;
                    if (source_.meshNormalEmission) {
                        const Vec4f n = vertexValue(mesh.normals, tri.n0) * w[0] + vertexValue(mesh.normals, tri.n1) * w[1] +
                                        vertexValue(mesh.normals, tri.n2) * w[2];
                        dir = xform::direction(n * source_.speedMultiplier, f.directions);
                    }
                    const Vec4f uv = vertexValue(mesh.uvs, tri.t0) * w[0] + vertexValue(mesh.uvs, tri.t1) * w[1] +
                                     vertexValue(mesh.uvs, tri.t2) * w[2];
                    offer(p, f, dir, Vec4f(), uv);
                }
            }
        }
    }

    void fromVolume(Object& object)
    {
        if (prepareObjectSdf(object, source_.sdfSettings(), false, true) == 0) {
            std::printf("Source: sdf is not available.\n");
            return;
        }
        const bool uvs = Traits::trackUVs(system_);
        for (size_t part = 0; part < object.meshes.size() && part < object.partSdfs.size(); ++part) {
            const ObjectPartSdf& grids = object.partSdfs[part];
            if (!grids.valid || !object.meshes[part]) continue;
            const ObjectMesh& mesh = *object.meshes[part];
            SdfSampler sdf(grids.sdfGrid, grids.hasVelocity ? grids.velocityGrid : nullptr, uvs ? grids.uvwGrid : nullptr);
            if (!sdf.valid()) continue;
            const emission::Frame f = emission::partFrame(source_, mesh, e_);
            const Vec4f lo = mesh.boundMin, hi = mesh.boundMax;
            const int64_t nx = emission::latticeCount(lo.x, hi.x, f.step.x, true);
            const int64_t ny = emission::latticeCount(lo.y, hi.y, f.step.y, true);
            const int64_t nz = emission::latticeCount(lo.z, hi.z, f.step.z, true);
            if (!emission::withinBudget(double(nx) * double(ny) * double(nz))) continue;
            const Vec4f base = direction(f);
            const float inside = e_ * 0.001f;
            for (int64_t ix = 0; ix < nx; ++ix)
                for (int64_t iy = 0; iy < ny; ++iy)
                    for (int64_t iz = 0; iz < nz; ++iz) {
                        const Vec4f local(lo.x + float(ix) * f.step.x, lo.y + float(iy) * f.step.y,
                                          lo.z + float(iz) * f.step.z, 0.f);
                        const Vec4f idx = xform::point(local, sdf.gridToIndex());
                        if (!(sdf.distance(idx) < inside)) continue;
                        Vec4f extra;
                        if (sdf.hasVelocity())
                            extra = xform::direction(sdf.velocity(idx), f.now) * source_.velInheritance;
                        offer(local, f, base, extra, uvs ? sdf.uvw(idx) : Vec4f());
                    }
        }
    }

    void fromPoints(const Object& object)
    {
        for (const auto& part : object.meshes) {
            if (!part) continue;
            const ObjectMesh& mesh = *part;
            if (!emission::withinBudget(double(mesh.vertices.size()))) continue;
            // A vertex's uv: the last face corner that names one.
            std::vector<Vec4f> uv(mesh.vertices.size());
            for (const ObjectTriangle& t : mesh.triangles) {
                const int32_t v[3] = {t.v0, t.v1, t.v2}, tex[3] = {t.t0, t.t1, t.t2};
                for (int k = 0; k < 3; ++k)
                    if (v[k] >= 0 && size_t(v[k]) < uv.size() && tex[k] >= 0 && size_t(tex[k]) < mesh.uvs.size())
                        uv[size_t(v[k])] = mesh.uvs[size_t(tex[k])];
            }
            const emission::Frame f = emission::partFrame(source_, mesh, e_);
            const Vec4f base = direction(f);
            for (size_t i = 0; i < mesh.vertices.size(); ++i)
                if (emission::finite3(mesh.vertices[i])) offer(mesh.vertices[i], f, base, Vec4f(), uv[i]);
        }
    }

private:
    void planeLattice(const emission::Frame& f)
    {
        const float hx = 0.5f * source_.planeSizeX, hz = 0.5f * source_.planeSizeZ;
        const int64_t nx = emission::latticeCount(-hx, hx, f.step.x, false);
        const int64_t nz = emission::latticeCount(-hz, hz, f.step.z, false);
        if (!emission::withinBudget(double(nx) * double(nz))) return;
        const Vec4f dir = direction(f);
        for (int64_t ix = 0; ix < nx; ++ix) {
            const float x = -hx + float(ix) * f.step.x;
            for (int64_t iz = 0; iz < nz; ++iz) {
                const float z = -hz + float(iz) * f.step.z;
                const Vec4f uv((x + hx) / source_.planeSizeX, (z + hz) / source_.planeSizeZ, 0.f, 0.f);
                offer(Vec4f(x, 0.f, z, 0.f), f, dir, Vec4f(), uv);
            }
        }
    }

    static bool corners(const ObjectMesh& mesh, const ObjectTriangle& t, const Vec4f* v[3])
    {
        const int32_t idx[3] = {t.v0, t.v1, t.v2};
        for (int k = 0; k < 3; ++k) {
            if (idx[k] < 0 || size_t(idx[k]) >= mesh.vertices.size()) return false;
            v[k] = &mesh.vertices[size_t(idx[k])];
            if (!emission::finite3(*v[k])) return false;
        }
        return true;
    }

    static Vec4f vertexValue(const std::vector<Vec4f>& values, int32_t i)
    {
        return i >= 0 && size_t(i) < values.size() ? values[size_t(i)] : Vec4f();
    }

    Source& source_;
    System& system_;
    float e_;
    float jitter_;
    bool checkSpace_;
    int32_t emitterId_;
    float dt_;
    int n_ = 0;  // particles added by this call: the index into the random table
};

// Emit(system): the common start (enabled, single shot, spacing, rate gate, hash), then
// the source's kind. Answers the particles added.
template <class System>
int emitParticles(Source& source, System& system)
{
    using Traits = EmitTraits<System>;
    if (!source.enabled || !simState) return 0;
    const SimState& state = *simState;
    if (!source.singleShotAllows(state.frameF, state.startFrame)) return 0;
    const float e = Traits::spacing(system, source.resolutionMultiplier);
    if (!(e > 0.f) || !std::isfinite(e)) return 0;
    if (!source.rateGateOpen(e, state.time)) return 0;
    Object* object = source.geometry();
    if (source.sourceType != Source::kPlane && !object) return 0;
    if (!source.pose.started) source.updateMatrices();
    if (source.checkSpace || source.sourceType != Source::kPlane) Traits::rebuildHash(system);

    Emitter<System> emitter(source, system, e);
    switch (source.sourceType) {
    case Source::kMesh: emitter.fromMesh(*object); break;
    case Source::kVolume: emitter.fromVolume(*object); break;
    case Source::kPoint: emitter.fromPoints(*object); break;
    default: emitter.fromPlane(object); break;
    }
    source.lastEmissionTime = state.time;
    return emitter.added;
}

// Each entry of the system's sourceIds emits into it; ids that no longer resolve to a
// source are passed over. Answers the particles added.
template <class System>
int emitFromSources(System& system)
{
    int total = 0;
    for (int32_t id : system.sourceIds) {
        SceneObject* o = simulation ? simulation->objectById(id) : nullptr;
        if (o && o->typeCode == kTypeSource) total += emitParticles(*static_cast<Source*>(o), system);
    }
    return total;
}
