// VDB files: which grids come in (by name and type), the classes grids get on the way
// out, round trips of values and vector kinds, empty and broken files.
#include "testenv.h"

#include "geo/attribtypes.h"
#include "geo/body.h"
#include "io/fileio.h"

#include <gtest/gtest.h>
#include <openvdb/openvdb.h>

#include <filesystem>
#include <fstream>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

class VdbFileTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        openvdb::initialize();
        dir = fs::temp_directory_path() / ("qorva_vdb_" + std::to_string(getpid()));
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }
    static openvdb::FloatGrid::Ptr floatGrid(const std::string& name, float value)
    {
        auto g = openvdb::FloatGrid::create(0.f);
        g->setName(name);
        g->tree().setValue(openvdb::Coord(1, 2, 3), value);
        return g;
    }
    void writeRaw(const fs::path& p, openvdb::GridPtrVec grids)
    {
        openvdb::io::File f(p.string());
        f.write(grids);
        f.close();
    }
    BodyPtr read(const fs::path& p, std::string* out = nullptr)
    {
        auto body = std::make_shared<Body>();
        testing::internal::CaptureStdout();
        const int r = fileio::read(p.string(), body);
        const std::string text = testing::internal::GetCapturedStdout();
        if (out) *out = text;
        return r == 0 ? body : nullptr;
    }
    fs::path dir;
};

TEST_F(VdbFileTest, OnlyKnownNamesAndTypesComeIn)
{
    auto vec = openvdb::Vec3SGrid::create();
    vec->setName("density");
    auto vel = openvdb::Vec3SGrid::create();
    vel->setName("vel");
    vel->setVectorType(openvdb::VEC_CONTRAVARIANT_RELATIVE);
    writeRaw(dir / "in.vdb",
             {floatGrid("pressure", 1.f), floatGrid("velocity", 2.f), vec, vel, floatGrid("heat", 3.f)});
    std::string printed;
    BodyPtr b = read(dir / "in.vdb", &printed);
    ASSERT_TRUE(b);
    EXPECT_NE(printed.find("skipping grid pressure"), std::string::npos);
    const VolumeData& v = *b->volumes;
    EXPECT_EQ(v.size(), 3u);
    EXPECT_EQ(v.volumeType("velocity"), VOLUME_FLOAT) << "a float grid named velocity is a float volume";
    EXPECT_EQ(v.volumeType("vel"), VOLUME_VEC3_RELATIVE);
    EXPECT_EQ(v.volumeType("heat"), VOLUME_FLOAT);
    EXPECT_EQ(v.volume("density"), nullptr) << "a vector grid named density is dropped";
}

TEST_F(VdbFileTest, WrittenGridsKeepValuesAndGetTheirClass)
{
    Body b;
    b.volumes->setVolume("distance", VOLUME_FLOAT, floatGrid("whatever", -0.5f));
    b.volumes->setVolume("heat", VOLUME_FLOAT, floatGrid("heat", 7.f));
    auto v = openvdb::Vec3SGrid::create();
    v->tree().setValue(openvdb::Coord(0, 0, 0), openvdb::Vec3s(1, 2, 3));
    v->setVectorType(openvdb::VEC_CONTRAVARIANT_ABSOLUTE);
    b.volumes->setVolume("v", VOLUME_VEC3_ABSOLUTE, v);
    const fs::path p = dir / "out.vdb";
    testing::internal::CaptureStdout();
    ASSERT_EQ(fileio::write(p.string(), std::make_shared<Body>(b)), 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(b.volumes->volume("distance")->getName(), "whatever")
        << "writing leaves the Body's grids alone";

    openvdb::io::File f(p.string());
    f.open();
    auto ls = f.readGrid("distance");
    auto heat = f.readGrid("heat");
    f.close();
    EXPECT_EQ(ls->getGridClass(), openvdb::GRID_LEVEL_SET);
    EXPECT_EQ(heat->getGridClass(), openvdb::GRID_FOG_VOLUME);

    BodyPtr back = read(p);
    ASSERT_TRUE(back);
    auto d = openvdb::gridPtrCast<openvdb::FloatGrid>(back->volumes->volume("distance"));
    ASSERT_TRUE(d);
    EXPECT_FLOAT_EQ(d->tree().getValue(openvdb::Coord(1, 2, 3)), -0.5f);
    EXPECT_EQ(back->volumes->volumeType("v"), VOLUME_VEC3_ABSOLUTE);
    auto vb = openvdb::gridPtrCast<openvdb::Vec3SGrid>(back->volumes->volume("v"));
    ASSERT_TRUE(vb);
    EXPECT_EQ(vb->tree().getValue(openvdb::Coord(0, 0, 0)), openvdb::Vec3s(1, 2, 3));
}

TEST_F(VdbFileTest, EmptyBodyWritesAValidFileAndBrokenFilesFail)
{
    const fs::path p = dir / "empty.vdb";
    testing::internal::CaptureStdout();
    ASSERT_EQ(fileio::write(p.string(), std::make_shared<Body>()), 0);
    testing::internal::GetCapturedStdout();
    BodyPtr back = read(p);
    ASSERT_TRUE(back);
    EXPECT_EQ(back->volumes->size(), 0u);

    // truncations of a real file and garbage never crash and never give grids
    Body b;
    b.volumes->setVolume("density", VOLUME_FLOAT, floatGrid("density", 1.f));
    const fs::path good = dir / "good.vdb";
    testing::internal::CaptureStdout();
    ASSERT_EQ(fileio::write(good.string(), std::make_shared<Body>(b)), 0);
    testing::internal::GetCapturedStdout();
    std::ifstream in(good, std::ios::binary);
    const std::string bytes((std::istreambuf_iterator<char>(in)), {});
    simState->paused = true; // one attempt per read
    for (size_t cut : {size_t(0), size_t(8), bytes.size() / 3, bytes.size() / 2, bytes.size() - 1}) {
        const fs::path bad = dir / ("cut" + std::to_string(cut) + ".vdb");
        std::ofstream(bad, std::ios::binary).write(bytes.data(), std::streamsize(cut));
        BodyPtr r = read(bad);
        if (r) {
            EXPECT_EQ(r->volumes->size(), 0u) << "cut at " << cut;
        }
    }
    EXPECT_FALSE(read(dir / "missing.vdb"));
}

} // namespace
