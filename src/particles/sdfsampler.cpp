// SdfSampler: the eight values of the cell round an index position (the box stencil at
// the floor of the position, reloaded only when that cell changes) give both the
// trilinear value and its gradient; BoxSampler reads the vector grids. A cell that lies
// within one leaf is read straight from the leaf's buffer, the common case.
#include "particles/sdfsampler.h"

#include <openvdb/openvdb.h>
#include <openvdb/tools/Interpolation.h>

#include <cmath>

namespace {

using FloatAccessor = openvdb::FloatGrid::ConstAccessor;
using VecAccessor = openvdb::Vec3SGrid::ConstAccessor;

// Index positions this far out can't be voxels of any grid (int32 coordinates).
constexpr float kIndexLimit = 2.0e9f;

bool usableIndex(const Vec4f& p)
{
    return std::fabs(p.x) < kIndexLimit && std::fabs(p.y) < kIndexLimit && std::fabs(p.z) < kIndexLimit;
}

Mat4f toMat4f(const openvdb::Mat4d& m)
{
    Mat4f out;
    for (int r = 0; r < 4; ++r)
        for (int c = 0; c < 4; ++c) out.m[r * 4 + c] = float(m(r, c));
    return out;
}

} // namespace

struct SdfSampler::Impl {
    openvdb::FloatGrid::ConstPtr sdf;
    openvdb::Vec3SGrid::ConstPtr velocity;
    openvdb::Vec3SGrid::ConstPtr uvw;
    std::unique_ptr<FloatAccessor> accessor;
    std::unique_ptr<VecAccessor> velocityAccessor;
    std::unique_ptr<VecAccessor> uvwAccessor;
    openvdb::Coord cell = openvdb::Coord::max();
    float corner[8] = {};  // corner[dx * 4 + dy * 2 + dz] of the cell

    // Loads the cell whose lowest corner is floor(ijk), unless it is loaded already.
    void moveTo(const Vec4f& ijk)
    {
        const openvdb::Coord c = openvdb::Coord::floor(openvdb::Vec3f(ijk.x, ijk.y, ijk.z));
        if (c == cell) return;
        cell = c;
        using Leaf = openvdb::FloatGrid::TreeType::LeafNodeType;
        const Leaf* leaf = (c[0] & 7) < 7 && (c[1] & 7) < 7 && (c[2] & 7) < 7 ? accessor->probeConstLeaf(c) : nullptr;
        if (leaf) {
            const float* v = leaf->buffer().data() + Leaf::coordToOffset(c);
            static const int offsets[8] = {0, 1, 8, 9, 64, 65, 72, 73};
            for (int k = 0; k < 8; ++k) corner[k] = v[offsets[k]];
            return;
        }
        for (int k = 0; k < 8; ++k) corner[k] = accessor->getValue(c.offsetBy(k >> 2, (k >> 1) & 1, k & 1));
    }

    static Vec4f sample(VecAccessor* accessor, const Vec4f& ijk)
    {
        if (!accessor || !usableIndex(ijk)) return Vec4f();
        openvdb::Vec3s v;
        openvdb::tools::BoxSampler::sample(*accessor, openvdb::Vec3R(ijk.x, ijk.y, ijk.z), v);
        return Vec4f(v[0], v[1], v[2], 0.f);
    }
};

SdfSampler::SdfSampler(const GridBasePtr& sdf, const GridBasePtr& velocity, const GridBasePtr& uvw)
    : impl_(std::make_unique<Impl>())
{
    impl_->sdf = openvdb::GridBase::constGrid<openvdb::FloatGrid>(sdf);
    if (!impl_->sdf || !impl_->sdf->transform().isLinear()) {
        impl_->sdf.reset();
        return;
    }
    const openvdb::math::Transform& t = impl_->sdf->transform();
    const openvdb::Mat4d m = t.baseMap()->getAffineMap()->getMat4();
    indexToGrid_ = toMat4f(m);
    gridToIndex_ = toMat4f(m.inverse());
    voxelSize_ = float(t.voxelSize()[0]);
    background_ = impl_->sdf->background();
    outsideEdge_ = std::fabs(background_) - 0.01f;
    impl_->accessor = std::make_unique<FloatAccessor>(impl_->sdf->getConstAccessor());

    impl_->velocity = openvdb::GridBase::constGrid<openvdb::Vec3SGrid>(velocity);
    if (impl_->velocity) impl_->velocityAccessor = std::make_unique<VecAccessor>(impl_->velocity->getConstAccessor());
    impl_->uvw = openvdb::GridBase::constGrid<openvdb::Vec3SGrid>(uvw);
    if (impl_->uvw) impl_->uvwAccessor = std::make_unique<VecAccessor>(impl_->uvw->getConstAccessor());
}

SdfSampler::~SdfSampler() = default;
SdfSampler::SdfSampler(SdfSampler&&) noexcept = default;
SdfSampler& SdfSampler::operator=(SdfSampler&&) noexcept = default;

bool SdfSampler::valid() const
{
    return impl_ && impl_->sdf;
}

bool SdfSampler::hasVelocity() const
{
    return impl_ && impl_->velocityAccessor;
}

bool SdfSampler::hasUvw() const
{
    return impl_ && impl_->uvwAccessor;
}

float SdfSampler::distance(const Vec4f& ijk)
{
    if (!valid() || !usableIndex(ijk)) return background_;
    impl_->moveTo(ijk);
    const float* v = impl_->corner;
    const openvdb::Coord& c = impl_->cell;
    const float fx = ijk.x - float(c[0]), fy = ijk.y - float(c[1]), fz = ijk.z - float(c[2]);
    auto lerp = [](float a, float b, float f) { return a + (b - a) * f; };
    const float x0 = lerp(lerp(v[0], v[1], fz), lerp(v[2], v[3], fz), fy);
    const float x1 = lerp(lerp(v[4], v[5], fz), lerp(v[6], v[7], fz), fy);
    return lerp(x0, x1, fx);
}

Vec4f SdfSampler::gradient(const Vec4f& ijk)
{
    if (!valid() || !usableIndex(ijk)) return Vec4f();
    impl_->moveTo(ijk);
    const openvdb::Coord& c = impl_->cell;
    const float u = ijk.x - float(c[0]), v = ijk.y - float(c[1]), w = ijk.z - float(c[2]);
    // Partial derivatives of the trilinear kernel over the cell's eight corners.
    const float* k = impl_->corner;
    const float v000 = k[0], v001 = k[1], v010 = k[2], v011 = k[3];
    const float v100 = k[4], v101 = k[5], v110 = k[6], v111 = k[7];
    auto lerp = [](float a, float b, float t) { return a + (b - a) * t; };
    const float gx = lerp(lerp(v100 - v000, v110 - v010, v), lerp(v101 - v001, v111 - v011, v), w);
    const float gy = lerp(lerp(v010 - v000, v110 - v100, u), lerp(v011 - v001, v111 - v101, u), w);
    const float gz = lerp(lerp(v001 - v000, v101 - v100, u), lerp(v011 - v010, v111 - v110, u), v);
    return Vec4f(gx, gy, gz, 0.f);
}

Vec4f SdfSampler::velocity(const Vec4f& ijk)
{
    return impl_ ? Impl::sample(impl_->velocityAccessor.get(), ijk) : Vec4f();
}

Vec4f SdfSampler::uvw(const Vec4f& ijk)
{
    return impl_ ? Impl::sample(impl_->uvwAccessor.get(), ijk) : Vec4f();
}
