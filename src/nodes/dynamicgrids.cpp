// Grid work of the dynamic helper nodes. The collision pass samples the distance grid
// trilinearly in index space; the normal is the index-space gradient (central differences
// of trilinear samples) mapped to world through the grid's inverse Jacobian transpose.
#include "nodes/dynamicgrids.h"

#include "geo/pointdata.h"
#include "particles/xform.h"

#include <openvdb/openvdb.h>
#include <openvdb/tools/Interpolation.h>
#include <openvdb/tools/VolumeAdvect.h>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <atomic>
#include <cmath>

using openvdb::FloatGrid;
using openvdb::Vec3SGrid;

namespace {

bool finite3(const Vec4f& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

Vec4f toVec4(const openvdb::Vec3d& v)
{
    return Vec4f(float(v.x()), float(v.y()), float(v.z()), 0.f);
}

} // namespace

int collidePoints(PointData& pd, const GridBasePtr& distance, const GridBasePtr& velocity,
                  const CollideSettings& s)
{
    FloatGrid::ConstPtr sdf = openvdb::gridConstPtrCast<FloatGrid>(distance);
    if (!sdf) return -1;
    if (!pd.hasV || pd.v.size() != pd.size()) return 0;
    Vec3SGrid::ConstPtr vel = openvdb::gridConstPtrCast<Vec3SGrid>(velocity);
    const openvdb::math::Transform& xf = sdf->transform();
    const float background = sdf->background();
    const float invDt = s.dt > 0.f ? 1.f / s.dt : 0.f;
    std::atomic<int> skipped{0};

    tbb::parallel_for(
        tbb::blocked_range<size_t>(0, pd.size(), 256), [&](const tbb::blocked_range<size_t>& r) {
            FloatGrid::ConstAccessor acc = sdf->getConstAccessor();
            openvdb::tools::GridSampler<FloatGrid::ConstAccessor, openvdb::tools::BoxSampler> sampler(acc,
                                                                                                      xf);
            for (size_t i = r.begin(); i != r.end(); ++i) {
                Vec4f& p = pd.P[i];
                if (!finite3(p)) {
                    ++skipped;
                    continue;
                }
                const openvdb::Vec3d world(p.x, p.y, p.z);
                const openvdb::Vec3d idx = xf.worldToIndex(world);
                const float sample = sampler.isSample(idx);
                if (!(sample < background - 0.01f)) continue;
                const float d = sample;
                if (d > s.influence) continue;

                // Index-space gradient by central differences, mapped to world.
                const double h = 0.5;
                openvdb::Vec3d g(sampler.isSample(idx + openvdb::Vec3d(h, 0, 0)) -
                                     sampler.isSample(idx - openvdb::Vec3d(h, 0, 0)),
                                 sampler.isSample(idx + openvdb::Vec3d(0, h, 0)) -
                                     sampler.isSample(idx - openvdb::Vec3d(0, h, 0)),
                                 sampler.isSample(idx + openvdb::Vec3d(0, 0, h)) -
                                     sampler.isSample(idx - openvdb::Vec3d(0, 0, h)));
                g /= 2.0 * h;
                Vec4f n = toVec4(xf.baseMap()->applyIJT(g, idx));
                const float len = n.length3();
                if (len > 0.f) n = n * (1.f / len);

                Vec4f c(0.f, 0.f, 0.f, 0.f);
                if (s.moving) {
                    c = (p - xform::point(p, s.motion)) * invDt;
                    c.w = 0.f;
                }
                if (vel) {
                    const openvdb::Vec3s u = openvdb::tools::BoxSampler::sample(
                        vel->getConstAccessor(), vel->transform().worldToIndex(world));
                    c += Vec4f(u.x(), u.y(), u.z(), 0.f);
                }
                c = c * s.velocityScale;

                Vec4f& v = pd.v[i];
                const float w = v.w;
                if (d < s.stickDist && s.stickStrength > 0.0000001f)
                    v = v * (1.f - s.stickStrength) + c * s.stickStrength;
                if (d < s.collDist && s.collide) {
                    const Vec4f rel = v - c;
                    const float rn = n.dot3(rel);
                    const Vec4f t = rel - n * rn;
                    const float pw = p.w;
                    p += n * (s.collDist - d);
                    p.w = pw;
                    if (rn < 0.f) {
                        float f = t.dot3(t) < 0.08f ? s.staticFrictionMulti : s.friction;
                        f = std::min(f, 1.f);
                        v = t * (1.f - f) + c;
                    }
                }
                v.w = w;
            }
        });
    return skipped.load();
}

int insideVoxels(const GridBasePtr& distance, const GridBasePtr& velocity, std::vector<Vec4f>& positions,
                 std::vector<Vec4f>& velocities, Vec4f& voxelSize)
{
    FloatGrid::ConstPtr sdf = openvdb::gridConstPtrCast<FloatGrid>(distance);
    if (!sdf) return -1;
    Vec3SGrid::ConstPtr vel = openvdb::gridConstPtrCast<Vec3SGrid>(velocity);
    const openvdb::Vec3d vs = sdf->voxelSize();
    voxelSize = Vec4f(float(vs.x()), float(vs.y()), float(vs.z()), 0.f);
    positions.clear();
    velocities.clear();
    const bool sameSpace = vel && vel->transform() == sdf->transform();
    for (auto it = sdf->cbeginValueOn(); it; ++it) {
        if (!(*it < 0.f)) continue;
        const openvdb::Vec3d world = sdf->indexToWorld(it.getCoord());
        if (it.isVoxelValue()) {
            positions.push_back(toVec4(world));
        } else {
            // an active tile: each of its voxels
            openvdb::CoordBBox box;
            it.getBoundingBox(box);
            for (auto c = box.begin(); c; ++c) positions.push_back(toVec4(sdf->indexToWorld(*c)));
        }
    }
    velocities.assign(positions.size(), Vec4f(0.f, 0.f, 0.f, 0.f));
    if (vel) {
        Vec3SGrid::ConstAccessor acc = vel->getConstAccessor();
        for (size_t i = 0; i < positions.size(); ++i) {
            const openvdb::Vec3d world(positions[i].x, positions[i].y, positions[i].z);
            openvdb::Vec3s u;
            if (sameSpace) {
                u = acc.getValue(vel->transform().worldToIndexNodeCentered(world));
            } else {
                u = openvdb::tools::BoxSampler::sample(acc, vel->transform().worldToIndex(world));
            }
            velocities[i] = Vec4f(u.x(), u.y(), u.z(), 0.f);
        }
    }
    return int(positions.size());
}

int readActiveVectors(const GridBasePtr& grid, std::vector<Vec4f>& positions, std::vector<Vec4f>& values)
{
    Vec3SGrid::ConstPtr g = openvdb::gridConstPtrCast<Vec3SGrid>(grid);
    if (!g) return -1;
    positions.clear();
    values.clear();
    for (auto it = g->cbeginValueOn(); it; ++it) {
        const openvdb::Vec3s u = *it;
        positions.push_back(toVec4(g->indexToWorld(it.getCoord())));
        values.emplace_back(u.x(), u.y(), u.z(), 0.f);
    }
    return int(values.size());
}

int writeActiveVectors(const GridBasePtr& grid, const std::vector<Vec4f>& values)
{
    Vec3SGrid::Ptr g = openvdb::gridPtrCast<Vec3SGrid>(grid);
    if (!g) return -1;
    if (g->activeVoxelCount() == 0 && values.empty()) return 0;
    size_t k = 0;
    for (auto it = g->beginValueOn(); it; ++it, ++k) {
        if (k >= values.size()) return 0;
        it.setValue(openvdb::Vec3s(values[k].x, values[k].y, values[k].z));
    }
    return int(k);
}

int advectGrids(VolumeData& volumes, const GridBasePtr& velocity, float dt,
                const std::vector<std::string>& keys)
{
    Vec3SGrid::ConstPtr vel = openvdb::gridConstPtrCast<Vec3SGrid>(velocity);
    if (!vel) return -1;
    openvdb::tools::VolumeAdvection<Vec3SGrid> advection(*vel);
    advection.setIntegrator(openvdb::tools::Scheme::SEMI);
    int moved = 0;
    for (const std::string& key : keys) {
        FloatGrid::Ptr grid = openvdb::gridPtrCast<FloatGrid>(volumes.volume(key));
        if (!grid) continue;
        FloatGrid::Ptr out =
            advection.advect<FloatGrid, openvdb::tools::Sampler<1, false>>(*grid, double(dt));
        if (!out) continue;
        out->setName(grid->getName());
        out->setGridClass(grid->getGridClass());
        volumes.setVolume(key, volumes.volumeType(key), out);
        ++moved;
    }
    return moved;
}
