#include "nodes/particlemeshnode.h"

#include "geo/attribtypes.h"
#include "nodes/levelsetops.h"

#include <openvdb/openvdb.h>
#include <openvdb/tools/LevelSetUtil.h>
#include <openvdb/tools/Morphology.h>
#include <openvdb/tools/ParticlesToLevelSet.h>
#include <openvdb/tools/Prune.h>
#include <openvdb/tools/VolumeToMesh.h>

#include <cmath>
#include <cstdio>

namespace {

// The points as ParticlesToLevelSet reads them, each carrying its velocity.
struct MovingParticles {
    using PosType = openvdb::Vec3R;
    const PointData& pd;

    size_t size() const { return pd.size(); }
    void getPos(size_t n, openvdb::Vec3R& xyz) const { pd.getPos(n, xyz); }
    void getPosRad(size_t n, openvdb::Vec3R& xyz, openvdb::Real& rad) const { pd.getPosRad(n, xyz, rad); }
    void getAtt(size_t n, openvdb::Vec3s& att) const
    {
        const Vec4f& v = pd.v[n];
        att = openvdb::Vec3s(v.x, v.y, v.z);
    }
};

} // namespace

ParticleMeshNode::ParticleMeshNode(NodeMaster* master) : GeoNode(master)
{
    setType("Particle-Mesh");
    addParam(&radius, "radius", "Radius", kParamFloat, "0.1", "The mesher particle radius.");
    addParam(&voxelSize, "voxelSize", "Voxel Size", kParamFloat, "0.05", "Controls the mesh resolution.");
    addParam(&dilateErodeAmount, "dilateErodeAmount", "Dilate Erode Amount", kParamFloat, "0");
    addParam(&filterType, "filterType", "Filter Type", kParamInt, "0");
    addParam(&filterWidth, "filterWidth", "Filter Voxel Width", kParamInt, "1");
    addParam(&filterIterations, "filterIterations", "Filter Iterations", kParamInt, "1");
    addParam(&isoValue, "isoValue", "Iso Value", kParamFloat, "0", "Where to create the surface in the volume.");
    addParam(&adaptivity, "adaptivity", "Adaptivity", kParamFloat, "0.05", "Reduces mesh-complexity.");
    addParam(&attribs, "attribs", "Keep Attributes", kParamString, "v", "A list of attributes to transfer to the mesh.");
    addInput("Particles");
    addOutput("Mesh");
}

void ParticleMeshNode::cookBody(BodyPtr& body)
{
    auto out = std::make_shared<Body>();
    PointData& pts = *body->points;
    if (!(voxelSize > 0.f) || !std::isfinite(voxelSize) || pts.size() == 0) {
        body = std::move(out);
        return;
    }
    pts.radius = radius;
    pts.radiusAttrib = nullptr;
    openvdb::FloatGrid::Ptr sdf = openvdb::createLevelSet<openvdb::FloatGrid>(voxelSize, 2.0);
    sdf->setName("distance");
    openvdb::Vec3SGrid::Ptr velocity;
    if (pts.hasV) {
        openvdb::tools::ParticlesToLevelSet<openvdb::FloatGrid, openvdb::Vec3s> raster(*sdf);
        raster.rasterizeSpheres(MovingParticles{pts});
        raster.finalize();
        velocity = raster.attributeGrid();
        velocity->setName("velocityGrid");
        velocity->setGridClass(openvdb::GRID_UNKNOWN);
        velocity->setVectorType(openvdb::VEC_CONTRAVARIANT_RELATIVE);
        velocity->setTransform(sdf->transform().copy());
    } else {
        openvdb::tools::ParticlesToLevelSet<openvdb::FloatGrid> raster(*sdf);
        raster.rasterizeSpheres(MovingParticles{pts});
        raster.finalize();
    }

    levelSetOffset(sdf, -dilateErodeAmount);
    openvdb::tools::prune(sdf->tree(), 0.0001f);

    // A narrow band of exactly three voxels for the filter.
    const int band = int(std::floor(sdf->background() / voxelSize));
    if (band < 3) {
        openvdb::tools::dilateActiveValues(sdf->tree(), 3 - band, openvdb::tools::NN_FACE,
                                           openvdb::tools::IGNORE_TILES);
        openvdb::tools::changeLevelSetBackground(sdf->tree(), 3.f * voxelSize);
    } else if (band > 3) {
        openvdb::tools::erodeActiveValues(sdf->tree(), band - 3, openvdb::tools::NN_FACE,
                                          openvdb::tools::IGNORE_TILES);
        openvdb::tools::changeLevelSetBackground(sdf->tree(), sdf->background() - float(band - 3) * voxelSize);
    }
    filterLevelSet(sdf, filterType, filterWidth, filterIterations, 1.f);
    levelSetOffset(sdf, dilateErodeAmount);

    std::vector<openvdb::Vec3s> points;
    std::vector<openvdb::Vec3I> triangles;
    std::vector<openvdb::Vec4I> quads;
    openvdb::tools::volumeToMesh(*sdf, points, triangles, quads, double(isoValue),
                                 double(std::clamp(adaptivity, 0.f, 1.f)));
    std::printf("mesh point count: %zu\nmesh triangle count: %zu\nmesh quad count: %zu\n", points.size(),
                triangles.size(), quads.size());
    std::printf("building body...\n");

    PointData& mp = *out->points;
    mp.resizePoints(points.size());
    for (size_t i = 0; i < points.size(); ++i) mp.P[i] = Vec4f(points[i].x(), points[i].y(), points[i].z());
    for (const openvdb::Vec3I& t : triangles) {
        out->vertices->addVertexList({t[0], t[1], t[2]});
        out->prims->addPrim(PrimData::POLYGON);
    }
    for (const openvdb::Vec4I& q : quads) {
        out->vertices->addVertexList({q[0], q[1], q[2], q[3]});
        out->prims->addPrim(PrimData::POLYGON);
    }
    for (const std::string& word : splitWords(attribs)) {
        if (word == "v" && velocity) sampleGridToPoints(velocity, "v", mp);
        else if (GridBasePtr g = body->volumes->volume(word)) sampleGridToPoints(g, word, mp);
    }
    out->updateCounts();
    out->rebuildPointPrims();
    std::printf("body point count: %zu\nbody triangle count: %zu\nbody quad count: %zu\n", mp.size(),
                triangles.size(), quads.size());
    std::printf("body vertex count: %u\nbody tri vertex count: %zu\nbody quad vertex count: %zu\n",
                out->numVertices, triangles.size() * 3, quads.size() * 4);
    body = std::move(out);
}
