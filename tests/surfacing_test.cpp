// Particle surfacing: points and meshes into level sets, filtering and offsetting them,
// meshing them back, and the Particle-to-Volume, Mesh-to-Volume, Particle-Mesh and Mesher
// nodes, up to the sand scene whose Mesher reads the running granular system by name.
#include "nodetestkit.h"

#include "app/application.h"
#include "io/fileio.h"
#include "nodes/levelsetops.h"
#include "nodes/meshernode.h"
#include "particles/dumbparticlesystem.h"
#include "scenerun.h"

#include <openvdb/openvdb.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

openvdb::FloatGrid::Ptr floatGrid(const Body& body, const std::string& name)
{
    return openvdb::gridPtrCast<openvdb::FloatGrid>(body.volumes->volume(name));
}

float valueAt(const openvdb::FloatGrid& grid, float x, float y, float z)
{
    const openvdb::Vec3d ijk = grid.transform().worldToIndex(openvdb::Vec3d(x, y, z));
    return grid.tree().getValue(openvdb::Coord::round(ijk));
}

// One particle at the origin, radius 0.5: a sphere level set of that radius.
BodyPtr ball(float voxel = 0.05f)
{
    BodyPtr points = pointsBody({Vec4f(0.f, 0.f, 0.f)});
    auto out = std::make_shared<Body>();
    EXPECT_EQ(pointsToVolume(*out, *points, voxel, 0.5f, 3, false, false, "", ""), 0);
    return out;
}

// A closed unit cube around the origin as six quads.
BodyPtr cube()
{
    auto b = std::make_shared<Body>();
    for (int i = 0; i < 8; ++i)
        b->points->addPoint(Vec4f(i & 1 ? 0.5f : -0.5f, i & 2 ? 0.5f : -0.5f, i & 4 ? 0.5f : -0.5f));
    const uint32_t faces[6][4] = {{0, 2, 3, 1}, {4, 5, 7, 6}, {0, 1, 5, 4}, {2, 6, 7, 3}, {0, 4, 6, 2}, {1, 3, 7, 5}};
    for (const auto& f : faces) {
        b->vertices->addVertexList({f[0], f[1], f[2], f[3]});
        b->prims->addPrim(PrimData::POLYGON);
    }
    b->updateCounts();
    return b;
}

float meanDistanceFromOrigin(const Body& mesh)
{
    double sum = 0.0;
    for (const Vec4f& p : mesh.points->P) sum += std::sqrt(double(p.dot3(p)));
    return mesh.points->size() ? float(sum / double(mesh.points->size())) : 0.f;
}

} // namespace

TEST(LevelSetOps, PointsBecomeALevelSetWithAttributeGridsAndFog)
{
    BodyPtr points = pointsBody({Vec4f(0.f, 0.f, 0.f), Vec4f(2.f, 0.f, 0.f)});
    points->points->addAttrib("v", ATTRIB_VELOCITY);
    points->points->v[0] = Vec4f(1.f, 2.f, 3.f);
    points->points->v[1] = Vec4f(-4.f, 0.f, 0.f);
    testing::internal::CaptureStdout();
    Body out;
    ASSERT_EQ(pointsToVolume(out, *points, 0.1f, 0.4f, 2, false, false, "scale", "v missing"), 0);
    testing::internal::GetCapturedStdout();
    auto sdf = floatGrid(out, "distance");
    ASSERT_TRUE(sdf);
    EXPECT_EQ(sdf->getGridClass(), openvdb::GRID_LEVEL_SET);
    EXPECT_LT(valueAt(*sdf, 0.f, 0.f, 0.f), 0.f);
    EXPECT_LT(valueAt(*sdf, 2.f, 0.f, 0.f), 0.f);
    EXPECT_GT(valueAt(*sdf, 1.f, 0.f, 0.f), 0.f);
    EXPECT_NEAR(sdf->background(), 0.2f, 1e-5f) << "half band of sdfBand voxels";

    auto v = openvdb::gridPtrCast<openvdb::Vec3SGrid>(out.volumes->volume("v"));
    ASSERT_TRUE(v) << "a kept attribute becomes a grid";
    EXPECT_EQ(v->getVectorType(), openvdb::VEC_CONTRAVARIANT_RELATIVE);
    const openvdb::Coord near0 = openvdb::Coord::round(v->transform().worldToIndex(openvdb::Vec3d(0.3, 0, 0)));
    const openvdb::Coord near1 = openvdb::Coord::round(v->transform().worldToIndex(openvdb::Vec3d(1.7, 0, 0)));
    EXPECT_EQ(v->tree().getValue(near0), openvdb::Vec3s(1.f, 2.f, 3.f));
    EXPECT_EQ(v->tree().getValue(near1), openvdb::Vec3s(-4.f, 0.f, 0.f));
    EXPECT_FALSE(out.volumes->volume("missing"));

    Body fog;
    ASSERT_EQ(pointsToVolume(fog, *points, 0.1f, 0.4f, 2, true, false, "", ""), 0);
    auto density = floatGrid(fog, "density");
    ASSERT_TRUE(density);
    EXPECT_FALSE(fog.volumes->volume("distance"));
    EXPECT_NEAR(valueAt(*density, 0.f, 0.f, 0.f), 1.f, 1e-5f);
    EXPECT_EQ(valueAt(*density, 1.f, 0.f, 0.f), 0.f);

    Body inverted;
    pointsToVolume(inverted, *points, 0.1f, 0.4f, 2, false, true, "", "");
    EXPECT_GT(valueAt(*floatGrid(inverted, "distance"), 0.f, 0.f, 0.f), 0.f);
}

TEST(LevelSetOps, PerPointRadiusAndParticlesTooSmallToRasterise)
{
    BodyPtr points = pointsBody({Vec4f(0.f, 0.f, 0.f), Vec4f(2.f, 0.f, 0.f)});
    points->points->addAttrib("scale", ATTRIB_FLOAT);
    auto& scale = *points->points->attribAs<FloatArray>("scale");
    scale = {0.6f, 0.3f};
    Body out;
    pointsToVolume(out, *points, 0.1f, 0.05f, 2, false, false, "scale", "");
    auto sdf = floatGrid(out, "distance");
    EXPECT_LT(valueAt(*sdf, 0.5f, 0.f, 0.f), 0.f) << "the first point's own radius 0.6";
    EXPECT_GT(valueAt(*sdf, 2.4f, 0.f, 0.f), 0.f) << "the second point's own radius 0.3";
    EXPECT_EQ(points->points->radiusAttrib, nullptr) << "no pointer into the input is left behind";

    // A radius under half a voxel: nothing is rasterised and the mesh is empty.
    Body tiny;
    pointsToVolume(tiny, *points, 0.1f, 0.04f, 2, false, false, "", "");
    EXPECT_EQ(floatGrid(tiny, "distance")->activeVoxelCount(), 0u);
    Body mesh;
    EXPECT_EQ(volumeToMeshBody(tiny, mesh, 0.f, 0.f, ""), 0);
    EXPECT_EQ(mesh.points->size(), 0u);
}

TEST(LevelSetOps, MeshingFindsTheSphereWithOutwardFacesAndSampledGrids)
{
    BodyPtr volume = ball();
    auto vel = openvdb::Vec3SGrid::create(openvdb::Vec3s(0.f));
    vel->setTransform(floatGrid(*volume, "distance")->transform().copy());
    vel->denseFill(openvdb::CoordBBox(openvdb::Coord(-15), openvdb::Coord(15)), openvdb::Vec3s(0.f, 7.f, 0.f));
    volume->volumes->setVolume("velocity", VOLUME_VEC3, vel);

    Body mesh;
    ASSERT_EQ(volumeToMeshBody(*volume, mesh, 0.f, 0.f, "v nothing"), 0);
    ASSERT_GT(mesh.points->size(), 100u);
    EXPECT_NEAR(meanDistanceFromOrigin(mesh), 0.5f, 0.02f);
    size_t corners = 0;
    bool seenTriangle = false;
    for (const auto& l : mesh.vertices->indices) {
        corners += l.size();
        if (l.size() == 3) seenTriangle = true;
        if (l.size() == 4) {
            ASSERT_FALSE(seenTriangle) << "quads come before triangles";
        }
    }
    EXPECT_EQ(mesh.numVertices, corners);
    ASSERT_TRUE(mesh.points->hasV);
    for (const Vec4f& v : mesh.points->v) ASSERT_EQ(v.y, 7.f);
    EXPECT_FALSE(mesh.points->hasAttrib("nothing"));
    mesh.computeNormals(false);
    size_t outward = 0;
    for (size_t i = 0; i < mesh.points->size(); ++i)
        if (mesh.points->N[i].dot3(mesh.points->P[i]) > 0.f) ++outward;
    EXPECT_EQ(outward, mesh.points->size()) << "normals of the mesh point out of the volume";

    Body none;
    Body empty;
    EXPECT_EQ(volumeToMeshBody(empty, none, 0.f, 0.f, ""), -1);
}

TEST(LevelSetOps, OffsetGrowsAndShrinksFilterKeepsOrBlends)
{
    BodyPtr volume = ball();
    GridBasePtr sdf = volume->volumes->volume("distance");
    auto grid = openvdb::gridPtrCast<openvdb::FloatGrid>(sdf);
    EXPECT_GT(valueAt(*grid, 0.55f, 0.f, 0.f), 0.f);
    ASSERT_EQ(levelSetOffset(sdf, -0.1f), 0);
    EXPECT_LT(valueAt(*grid, 0.55f, 0.f, 0.f), 0.f) << "a negative offset dilates";
    ASSERT_EQ(levelSetOffset(sdf, 0.2f), 0);
    EXPECT_GT(valueAt(*grid, 0.45f, 0.f, 0.f), 0.f) << "a positive offset erodes";

    BodyPtr other = ball();
    GridBasePtr g2 = other->volumes->volume("distance");
    auto before = openvdb::gridPtrCast<openvdb::FloatGrid>(g2)->deepCopy();
    ASSERT_EQ(filterLevelSet(g2, 1, 1, 2, 0.f), 0);
    auto after = openvdb::gridPtrCast<openvdb::FloatGrid>(g2);
    for (auto it = before->cbeginValueOn(); it; ++it)
        ASSERT_EQ(after->tree().getValue(it.getCoord()), *it) << "strength 0 changes nothing";
    for (int type = 0; type < 4; ++type) {
        BodyPtr b = ball();
        ASSERT_EQ(filterLevelSet(b->volumes->volume("distance"), type, 1, 1, 0.5f), 0);
        Body mesh;
        volumeToMeshBody(*b, mesh, 0.f, 0.f, "");
        EXPECT_NEAR(meanDistanceFromOrigin(mesh), 0.5f, 0.05f) << "filter type " << type;
    }
    EXPECT_EQ(filterLevelSet(nullptr, 0, 1, 1, 1.f), -1);
    EXPECT_EQ(levelSetOffset(nullptr, 1.f), -1);
}

TEST(LevelSetOps, MeshToVolumeClosedAndShell)
{
    BodyPtr box = cube();
    Body out;
    MeshToVolumeSettings s;
    s.voxelSize = 0.05f;
    ASSERT_EQ(meshToVolume(out, *box, s), 0);
    auto sdf = floatGrid(out, "distance");
    ASSERT_TRUE(sdf);
    EXPECT_LT(valueAt(*sdf, 0.4f, 0.f, 0.f), 0.f);
    EXPECT_GT(valueAt(*sdf, 0.6f, 0.f, 0.f), 0.f);
    EXPECT_NEAR(sdf->background(), 0.15f, 1e-5f);

    // One open quad: a shell of the given thickness on both sides.
    auto sheet = std::make_shared<Body>();
    for (Vec4f p : {Vec4f(-1, 0, -1), Vec4f(1, 0, -1), Vec4f(1, 0, 1), Vec4f(-1, 0, 1)}) sheet->points->addPoint(p);
    sheet->vertices->addVertexList({0, 1, 2, 3});
    sheet->prims->addPrim(PrimData::POLYGON);
    sheet->points->addAttrib("heat", ATTRIB_FLOAT);
    *sheet->points->attribAs<FloatArray>("heat") = {5.f, 5.f, 5.f, 5.f};
    Body shell;
    s.shell = true;
    s.shellThickness = 0.1f;
    s.attribs = "heat";
    ASSERT_EQ(meshToVolume(shell, *sheet, s), 0);
    auto sh = floatGrid(shell, "distance");
    EXPECT_LT(valueAt(*sh, 0.f, 0.05f, 0.f), 0.f);
    EXPECT_LT(valueAt(*sh, 0.f, -0.05f, 0.f), 0.f);
    EXPECT_GT(valueAt(*sh, 0.f, 0.2f, 0.f), 0.f);
    auto heat = floatGrid(shell, "heat");
    ASSERT_TRUE(heat);
    EXPECT_EQ(valueAt(*heat, 0.f, 0.f, 0.f), 5.f);

    Body lines;
    auto line = pointsBody({Vec4f(0, 0, 0), Vec4f(1, 0, 0)});
    line->vertices->addVertexList({0, 1});
    line->prims->addPrim(PrimData::LINE);
    EXPECT_EQ(meshToVolume(lines, *line, MeshToVolumeSettings()), -1) << "nothing to rasterise";
}

class SurfacingNodeTest : public NodeTestBase {};

TEST_F(SurfacingNodeTest, ParticleToVolumeAndMeshToVolumeNodes)
{
    auto* p2v = makeWith<GeoNode>("particle-to-volume", {pointsBody({Vec4f(0, 0, 0)})});
    set(p2v, "radius", "0.5");
    BodyPtr out = pullAnew(p2v);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->size(), 0u);
    ASSERT_TRUE(floatGrid(*out, "distance"));
    EXPECT_LT(valueAt(*floatGrid(*out, "distance"), 0.f, 0.f, 0.f), 0.f);

    auto* m2v = makeWith<GeoNode>("mesh-to-volume", {cube()});
    set(m2v, "makeFog", "true");
    out = pullAnew(m2v);
    ASSERT_TRUE(out && floatGrid(*out, "density"));
    EXPECT_EQ(floatGrid(*out, "density")->getGridClass(), openvdb::GRID_FOG_VOLUME);
}

TEST_F(SurfacingNodeTest, ParticleMeshCarriesVelocityToTheMesh)
{
    BodyPtr points = pointsBody({Vec4f(0, 0, 0), Vec4f(0.3f, 0, 0)});
    points->points->addAttrib("v", ATTRIB_VELOCITY);
    points->points->v = {Vec4f(0, 1, 0), Vec4f(0, 1, 0)};
    auto* node = makeWith<GeoNode>("particle-mesh", {points});
    set(node, "radius", "0.4");
    testing::internal::CaptureStdout();
    BodyPtr out = pullAnew(node);
    const std::string log = testing::internal::GetCapturedStdout();
    ASSERT_TRUE(out);
    ASSERT_GT(out->points->size(), 50u);
    EXPECT_NE(log.find("mesh point count: "), std::string::npos);
    EXPECT_NE(log.find("body quad vertex count: "), std::string::npos);
    ASSERT_TRUE(out->points->hasV);
    for (const Vec4f& v : out->points->v) ASSERT_NEAR(v.y, 1.f, 1e-6f);
    // triangles come before quads
    bool seenQuad = false;
    for (const auto& l : out->vertices->indices) {
        if (l.size() == 4) seenQuad = true;
        if (l.size() == 3) {
            ASSERT_FALSE(seenQuad);
        }
    }
}

TEST_F(SurfacingNodeTest, MesherSmoothsMeshesAndWritesASequence)
{
    const fs::path dir = fs::temp_directory_path() / ("qorva_mesher_" + std::to_string(getpid()));
    fs::remove_all(dir);
    std::vector<Vec4f> grid;
    for (int i = 0; i < 6; ++i)
        for (int j = 0; j < 6; ++j)
            for (int k = 0; k < 6; ++k) grid.emplace_back(i * 0.05f, j * 0.05f, k * 0.05f);
    auto* mesher = makeWith<MesherNode>("mesher", {pointsBody(grid)});
    ASSERT_TRUE(mesher);
    set(mesher, "writeFilePath", (dir / "pile.####.obj").string());
    set(mesher, "calcNormals", "true");
    testing::internal::CaptureStdout();
    BodyPtr out = pullAnew(mesher);
    testing::internal::GetCapturedStdout();
    ASSERT_TRUE(out);
    ASSERT_GT(out->points->size(), 20u);
    EXPECT_TRUE(out->points->hasN);
    // The surface sits near the particles' hull: inside a box padded by a bit more than a voxel.
    Vec4f lo, hi;
    out->getBounds(lo, hi);
    EXPECT_GT(lo.x, -0.15f);
    EXPECT_LT(hi.x, 0.4f);
    EXPECT_LT(lo.x, 0.05f);
    EXPECT_GT(hi.x, 0.2f);
    ASSERT_TRUE(fs::exists(dir / "pile.0001.obj"));
    auto back = std::make_shared<Body>();
    ASSERT_EQ(fileio::read((dir / "pile.0001.obj").string(), back), 0);
    EXPECT_EQ(back->points->size(), out->points->size());

    // With no blending and no smoothing the chain still meshes.
    set(mesher, "blending", "0");
    set(mesher, "postSmooth", "0");
    out = pullAnew(mesher);
    EXPECT_GT(out->points->size(), 20u);

    // VDB output: a numbered .vdb sequence when the path names none.
    set(mesher, "outputVDB", "true");
    set(mesher, "writeFilePath", (dir / "vols").string());
    testing::internal::CaptureStdout();
    out = pullAnew(mesher);
    testing::internal::GetCapturedStdout();
    EXPECT_TRUE(out->volumes->volume("distance"));
    EXPECT_EQ(out->points->size(), 0u);
    EXPECT_TRUE(fs::exists(dir / "vols" / (mesher->name() + ".0001.vdb")));
    fs::remove_all(dir);
}

TEST_F(SurfacingNodeTest, MesherSourcesAndFailures)
{
    auto* mesher = make<MesherNode>("mesher");
    ASSERT_TRUE(mesher);
    // An empty source: an empty Body and no error.
    BodyPtr out = pullAnew(mesher);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->size(), 0u);
    EXPECT_FALSE(mesher->error);

    set(mesher, "readFilePath", "/nonexistent/particles.####.bin");
    testing::internal::CaptureStdout();
    out = pullAnew(mesher);
    testing::internal::GetCapturedStdout();
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->size(), 0u);
    EXPECT_TRUE(mesher->error);
    EXPECT_EQ(mesher->fileInfo, "/nonexistent/particles.0001.bin: read error.");

    // A cache sequence, read at the cook's frame.
    const fs::path cache = fs::temp_directory_path() / ("qorva_mesher_in_" + std::to_string(getpid()));
    fs::create_directories(cache);
    std::vector<Vec4f> grains;
    for (int i = 0; i < 27; ++i) grains.emplace_back(float(i % 3) * 0.05f, float(i / 3 % 3) * 0.05f, float(i / 9) * 0.05f);
    ASSERT_EQ(fileio::write((cache / "grains.0001.bin").string(), pointsBody(grains)), 0);
    set(mesher, "readFilePath", (cache / "grains.####.bin").string());
    out = pullAnew(mesher);
    EXPECT_FALSE(mesher->error);
    EXPECT_EQ(mesher->fileInfo, (cache / "grains.0001.bin").string() + ": read 27 particles.");
    EXPECT_GT(out->points->size(), 20u);
    fs::remove_all(cache);

    // A classic system by name.
    DumbParticleSystem* dots = simulation->createDumbSystem("meshDots");
    for (int i = 0; i < 20; ++i) dots->body->points->addPoint(Vec4f(float(i % 3) * 0.05f, float(i / 3 % 3) * 0.05f, float(i / 9) * 0.05f));
    set(mesher, "readFilePath", "meshDots");
    out = pullAnew(mesher);
    EXPECT_FALSE(mesher->error);
    EXPECT_EQ(mesher->fileInfo, "meshDots: read 20 particles.");
    EXPECT_GT(out->points->size(), 20u);
    simulation->removeObject(dots);

    // A stitched Alembic file while the run goes: the archive can't be made yet.
    auto* source = make<GeoNode>("point");
    wire(source, mesher);
    set(mesher, "writeFilePath", "/tmp/qorva_mesher_stitch.abc");
    simState->paused = false;
    testing::internal::CaptureStdout();
    out = pullAnew(mesher);
    const std::string log = testing::internal::GetCapturedStdout();
    simState->paused = true;
    EXPECT_NE(log.find("error creating alembic output file."), std::string::npos) << log;
    EXPECT_TRUE(mesher->error);
    ASSERT_TRUE(out);
}

TEST(SandMeshScene, HeadlessRunMeshesTheRunningSystem)
{
    const fs::path dir = fs::temp_directory_path() / ("qorva_sandmesh_" + std::to_string(getpid()));
    fs::remove_all(dir);
    fs::create_directories(dir);
    ASSERT_TRUE(runSceneCopy("sand_mesh.qrv", {{"$SCENEFOLDER/../out/demo/mesh/", "$SCENEFOLDER/mesh/"},
                                               {"$SCENEFOLDER/../geo/", QORVA_SOURCE_DIR "/geo/"}},
                             dir, 12));
    auto body = std::make_shared<Body>();
    ASSERT_EQ(fileio::read((dir / "mesh" / "pile.0012.obj").string(), body), 0);
    EXPECT_GT(body->points->size(), 100u);
    EXPECT_GT(body->prims->size(), 100u);
    fs::remove_all(dir);
}

// The graph form of a granular pour: Granular-Origin, Particle-Emit from a plane, Gravity,
// Collide with the ramp and the floor OBJs, Granular-Solver, End-Dynamic and a Mesher.
TEST(GraphGranularScene, HeadlessRunPoursAndMeshesAPile)
{
    const fs::path dir = fs::temp_directory_path() / ("qorva_graphgranular_" + std::to_string(getpid()));
    fs::remove_all(dir);
    fs::create_directories(dir);
    ASSERT_TRUE(runSceneCopy("graph_granular.qrv",
                             {{"$SCENEFOLDER/../out/demo/graph_granular/", "$SCENEFOLDER/mesh/"},
                              {"$SCENEFOLDER/../geo/", QORVA_SOURCE_DIR "/geo/"}},
                             dir, 16));
    size_t previous = 0;
    for (int f : {8, 16}) {
        char name[32];
        std::snprintf(name, sizeof(name), "pile.%04d.obj", f);
        auto body = std::make_shared<Body>();
        ASSERT_EQ(fileio::read((dir / "mesh" / name).string(), body), 0) << name;
        EXPECT_GT(body->points->size(), previous) << "the pour grows";
        previous = body->points->size();
        Vec4f lo, hi;
        body->getBounds(lo, hi);
        EXPECT_LT(hi.y, 2.6f);
        EXPECT_GT(lo.y, -0.05f) << "nothing falls through the floor";
    }
    fs::remove_all(dir);
}
