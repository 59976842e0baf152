// Scatter. Point Density turns an SDF ("distance" or "surface") into a fog and scatters
// pointsPerVoxel points per active voxel with a freshly seeded mt11213b, so the same
// input always gives the same points; a fog ("density", "dens", "fog") is used as it is.
// Grid Layout puts one point at the centre of each active voxel of "distance" at or
// below zero. A Body without grids passes through.
#include "nodes/scatternode.h"

#include "geo/gridutil.h"

#include <openvdb/openvdb.h>
#include <openvdb/tools/LevelSetUtil.h>
#include <openvdb/tools/PointScatter.h>

#include <boost/random/mersenne_twister.hpp>

#include <cstdio>

namespace {

// The point list DenseUniformPointScatter fills.
struct ScatterTarget {
    PointData* points;
    void add(const openvdb::Vec3R& p) { points->addPoint(Vec4f(float(p[0]), float(p[1]), float(p[2]))); }
};

openvdb::FloatGrid::Ptr asFloatGrid(const GridBasePtr& grid)
{
    return grid ? openvdb::GridBase::grid<openvdb::FloatGrid>(grid) : nullptr;
}

} // namespace

ScatterNode::ScatterNode(NodeMaster* master) : GeoNode(master)
{
    setType("Scatter");
    addEnum(&mode, "mode", "Mode", {"Point Density", "Grid Layout"}, "Point Density",
            "Choose the mode of how to scatter points into the volume.");
    addParam(&pointsPerVoxel, "pointsPerVoxel", "Points Per Voxel", kParamFloat, "1",
             "Number of points per voxel.");
    addInput("Volume-Input", true);
    addOutput("Points-Output");
}

void ScatterNode::cookBody(BodyPtr& body)
{
    clearError();
    const VolumeData& volumes = *body->volumes;
    if (volumes.size() == 0) return;
    auto out = std::make_shared<Body>();

    if (mode == GRID_LAYOUT) {
        openvdb::FloatGrid::Ptr sdf = asFloatGrid(volumes.volume("distance"));
        if (!sdf) {
            std::printf("volume doesn't have sdf.\n");
            setError("volume doesn't have sdf.");
            body = std::move(out);
            return;
        }
        const openvdb::math::Transform& xf = sdf->transform();
        for (auto it = sdf->cbeginValueOn(); it; ++it) {
            if (*it > 0.f) continue;
            openvdb::CoordBBox box;
            it.getBoundingBox(box); // one voxel, or every voxel of an active tile
            for (auto c = box.begin(); c; ++c) {
                const openvdb::Vec3d p = xf.indexToWorld(*c);
                out->points->addPoint(Vec4f(float(p.x()), float(p.y()), float(p.z())));
            }
        }
        body = std::move(out);
        return;
    }

    openvdb::FloatGrid::Ptr fog;
    if (openvdb::FloatGrid::Ptr sdf = asFloatGrid(findGrid(volumes, {"distance", "surface"}))) {
        fog = sdf->deepCopy();
        openvdb::tools::sdfToFogVolume(*fog, 3.4028235e38f);
    } else {
        fog = asFloatGrid(findGrid(volumes, {"density", "dens", "fog"}));
    }
    if (!fog) {
        std::printf("volume doesn't have sdf or fog volume.\n");
        setError("volume doesn't have sdf or fog volume.");
        body = std::move(out);
        return;
    }
    ScatterTarget target{out->points.get()};
    boost::mt11213b rng; // default seed 5489, new each cook
    openvdb::tools::DenseUniformPointScatter<ScatterTarget, boost::mt11213b> scatter(target, pointsPerVoxel,
                                                                                     rng, 1.0);
    scatter(*fog);
    body = std::move(out);
}
