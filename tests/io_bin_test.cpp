// The particle BIN cache: byte layout against a hand-made buffer, round trips, header
// values from SimState or from the writer's caller, refused and short files that must
// leave the target Body alone, the import API of the classic systems, and a seeded
// mutation loop over small files that the readers must survive.
#include "testenv.h"

#include "geo/body.h"
#include "io/binformat.h"
#include "io/byteio.h"

#include <gtest/gtest.h>

#include <boost/filesystem.hpp>

#include <climits>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

namespace fs = boost::filesystem;
using namespace fileio;

namespace {

std::vector<uint8_t> readBytes(const std::string& path)
{
    std::ifstream in(path, std::ios::binary);
    return std::vector<uint8_t>(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

void writeBytes(const std::string& path, const std::vector<uint8_t>& bytes)
{
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(reinterpret_cast<const char*>(bytes.data()), std::streamsize(bytes.size()));
}

float f32At(const std::vector<uint8_t>& b, size_t off) { return loadLE<float>(&b[off]); }
int32_t i32At(const std::vector<uint8_t>& b, size_t off) { return loadLE<int32_t>(&b[off]); }

// A file made without the writer: header fields and records set byte by byte.
std::vector<uint8_t> handMadeFile(int32_t count, int16_t version = 13, int32_t magic = 0x00FABADA)
{
    std::vector<uint8_t> b(kBinHeaderSize + size_t(std::max(count, 0)) * kBinRecordSize + kBinTrailerSize, 0);
    storeLE<int32_t>(&b[0], magic);
    storeLE<int16_t>(&b[254], version);
    storeLE<int32_t>(&b[276], count);
    for (int32_t i = 0; i < count; ++i) {
        uint8_t* r = &b[kBinHeaderSize + size_t(i) * kBinRecordSize];
        storeLE<float>(r + 0, 1.f + i);
        storeLE<float>(r + 4, 2.f);
        storeLE<float>(r + 8, 3.f);
        storeLE<float>(r + 12, 4.f);
        storeLE<float>(r + 16, 5.f);
        storeLE<float>(r + 20, 6.f);
        storeLE<float>(r + 24, 7.f);
        storeLE<float>(r + 28, 8.f);
        storeLE<float>(r + 32, 9.f);
        storeLE<int32_t>(r + 60, 11);
        storeLE<float>(r + 90, 12.f);
        storeLE<float>(r + 98, 0.5f);
        storeLE<int64_t>(r + 106, (int64_t(1) << 32) + 7 + i);  // only the low 32 bits are the id
    }
    return b;
}

Body particles(size_t n)
{
    Body b;
    b.points->addAttrib("v", ATTRIB_VELOCITY);
    b.points->addAttrib("id", ATTRIB_INT);
    for (size_t i = 0; i < n; ++i) {
        const float f = float(i);
        b.points->addPointV(Vec4f(f, -2.f * f, 0.25f * f + 1.f), Vec4f(0.5f, f, -f));
        (*b.points->attribAs<IntArray>("id"))[i] = int32_t(i * 3) - 5;
    }
    return b;
}

class BinTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        dir = fs::temp_directory_path() / fs::unique_path("qorva-bin-%%%%-%%%%");
        fs::create_directories(dir);
    }
    void TearDown() override { fs::remove_all(dir); }
    std::string path(const std::string& name) const { return (dir / name).string(); }
    fs::path dir;
};

// ---------------------------------------------------------------- layout

TEST_F(BinTest, WrittenBytesSitAtTheirOffsets)
{
    Body b;
    b.points->addAttrib("v", ATTRIB_VELOCITY);
    b.points->addAttrib("force", ATTRIB_VECTOR);
    b.points->addAttrib("numNeighbours", ATTRIB_INT);
    b.points->addAttrib("numConstr", ATTRIB_INT);
    b.points->addAttrib("id", ATTRIB_INT);
    b.points->addAttrib("age", ATTRIB_FLOAT);
    b.points->addPointV(Vec4f(1, 2, 3), Vec4f(4, 5, 6));
    b.points->addPointV(Vec4f(-1, -2, -3), Vec4f(0, 0, 0));
    (*b.points->attribAs<VecArray>("force"))[0] = Vec4f(7, 8, 9);
    (*b.points->attribAs<IntArray>("numNeighbours"))[0] = 5;
    (*b.points->attribAs<IntArray>("numConstr"))[0] = 3;
    (*b.points->attribAs<IntArray>("id"))[0] = -2;
    (*b.points->attribAs<IntArray>("id"))[1] = 77;
    (*b.points->attribAs<FloatArray>("age"))[0] = 9.f;

    BinFrameInfo info;
    info.time = 1.5f;
    info.frame = 36;
    info.fps = 23.9f;
    const std::string p = path("layout.bin");
    ASSERT_EQ(writeBin(p, b, &info), 0);
    const std::vector<uint8_t> f = readBytes(p);
    ASSERT_EQ(f.size(), 356u + 2 * 114 + 6);

    EXPECT_EQ(i32At(f, 0), 0x00FABADA);
    EXPECT_EQ(std::string(reinterpret_cast<const char*>(&f[4])), "qorvaPoints");
    for (size_t i = 4 + 11; i < 254; ++i) ASSERT_EQ(f[i], 0) << "name padding at " << i;
    EXPECT_EQ(loadLE<int16_t>(&f[254]), 13);
    EXPECT_EQ(f32At(f, 256), 1.f);
    EXPECT_EQ(i32At(f, 260), 0);
    EXPECT_EQ(f32At(f, 264), 1.5f);
    EXPECT_EQ(i32At(f, 268), 36);
    EXPECT_EQ(i32At(f, 272), 23);  // truncated
    EXPECT_EQ(i32At(f, 276), 2);
    EXPECT_EQ(f32At(f, 280), 1.f);
    EXPECT_EQ(f32At(f, 284), 1.f);
    EXPECT_EQ(f32At(f, 288), 0.f);
    EXPECT_EQ(f32At(f, 292), 0.5f);
    EXPECT_EQ(f32At(f, 296), 1.f);
    EXPECT_EQ(f32At(f, 300), 0.f);
    EXPECT_EQ(f32At(f, 304), 0.5f);
    for (size_t off = 308; off < 356; off += 4) EXPECT_EQ(f32At(f, off), 0.f) << off;

    const size_t r = 356;
    EXPECT_EQ(f32At(f, r + 0), 1.f);
    EXPECT_EQ(f32At(f, r + 4), 2.f);
    EXPECT_EQ(f32At(f, r + 8), -3.f);   // z flipped
    EXPECT_EQ(f32At(f, r + 12), 4.f);
    EXPECT_EQ(f32At(f, r + 16), 5.f);
    EXPECT_EQ(f32At(f, r + 20), -6.f);
    EXPECT_EQ(f32At(f, r + 24), 7.f);
    EXPECT_EQ(f32At(f, r + 28), 8.f);
    EXPECT_EQ(f32At(f, r + 32), -9.f);
    for (size_t off = 36; off < 60; off += 4) EXPECT_EQ(f32At(f, r + off), 0.f) << off;
    EXPECT_EQ(i32At(f, r + 60), 5);
    EXPECT_EQ(loadLE<uint16_t>(&f[r + 76]), 0);
    EXPECT_EQ(f32At(f, r + 78), 0.f);  // age is not written
    EXPECT_EQ(f32At(f, r + 90), 3.f);  // density carries numConstr
    EXPECT_EQ(loadLE<int64_t>(&f[r + 106]), -2);  // sign-extended
    EXPECT_EQ(loadLE<uint64_t>(&f[r + 106]), 0xFFFFFFFFFFFFFFFEull);
    EXPECT_EQ(loadLE<int64_t>(&f[r + 114 + 106]), 77);
    EXPECT_EQ(f32At(f, r + 114 + 8), 3.f);
    for (size_t i = f.size() - 6; i < f.size(); ++i) EXPECT_EQ(f[i], 0);
}

TEST_F(BinTest, HeaderTakesSimStateWithoutCallerValues)
{
    ensureSceneRecords();
    simState->time = 2.5f;
    simState->frame = 60;
    simState->fps = 24.5f;
    Body b = particles(1);
    ASSERT_EQ(writeBin(path("state.bin"), b), 0);
    const std::vector<uint8_t> f = readBytes(path("state.bin"));
    EXPECT_EQ(f32At(f, 264), 2.5f);
    EXPECT_EQ(i32At(f, 268), 60);
    EXPECT_EQ(i32At(f, 272), 24);
    simState->time = 0.f;
    simState->frame = 0;
    simState->fps = 24.f;
}

TEST_F(BinTest, HandMadeFileReadsBack)
{
    writeBytes(path("hand.bin"), handMadeFile(2));
    Body b;
    testing::internal::CaptureStdout();
    ASSERT_EQ(readBin(path("hand.bin"), b), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    ASSERT_EQ(b.points->size(), 2u);
    EXPECT_EQ(b.points->P[1], Vec4f(2, 2, -3, 0));
    EXPECT_EQ(b.points->v[0], Vec4f(4, 5, -6, 0));
    ASSERT_TRUE(b.points->hasCd);
    EXPECT_EQ(b.points->Cd[0].x, 1.f);
    EXPECT_EQ(b.points->Cd[0].y, 1.f);
    EXPECT_EQ(b.points->Cd[0].z, 1.f);
    EXPECT_EQ(b.points->attribType("v"), ATTRIB_VELOCITY);
    ASSERT_EQ(b.points->attribType("id"), ATTRIB_INT);
    EXPECT_EQ((*b.points->attribAs<IntArray>("id"))[0], 7);
    EXPECT_EQ((*b.points->attribAs<IntArray>("id"))[1], 8);
    // force, density and the rest are dropped
    EXPECT_FALSE(b.points->hasAttrib("force"));
    EXPECT_EQ(b.points->numAttribs(), 4u);
}

TEST_F(BinTest, RoundTripKeepsPositionsVelocitiesAndIds)
{
    Body b = particles(1000);
    b.points->addAttrib("age", ATTRIB_FLOAT);
    ASSERT_EQ(writeBin(path("rt.bin"), b), 0);
    Body r;
    ASSERT_EQ(readBin(path("rt.bin"), r), 0);
    ASSERT_EQ(r.points->size(), 1000u);
    for (size_t i = 0; i < 1000; ++i) {
        ASSERT_EQ(r.points->P[i], b.points->P[i]) << i;
        ASSERT_EQ(r.points->v[i], b.points->v[i]) << i;
        ASSERT_EQ((*r.points->attribAs<IntArray>("id"))[i], (*b.points->attribAs<IntArray>("id"))[i]);
    }
    EXPECT_FALSE(r.points->hasAttrib("age"));
}

TEST_F(BinTest, ReadAppendsToExistingPointsAndKeepsAFloatId)
{
    Body b = particles(3);
    ASSERT_EQ(writeBin(path("a.bin"), b), 0);
    Body t;
    t.points->addAttrib("id", ATTRIB_FLOAT);
    t.points->addAttrib("mass", ATTRIB_FLOAT);
    t.points->addPoint(Vec4f(9, 9, 9));
    ASSERT_EQ(readBin(path("a.bin"), t), 0);
    ASSERT_EQ(t.points->size(), 4u);
    EXPECT_EQ(t.points->P[0], Vec4f(9, 9, 9));
    EXPECT_EQ(t.points->P[3], b.points->P[2]);
    ASSERT_EQ(t.points->attribType("id"), ATTRIB_FLOAT);
    EXPECT_EQ((*t.points->attribAs<FloatArray>("id"))[1], -5.f);
    EXPECT_EQ(t.points->attribAs<FloatArray>("mass")->size(), 4u);
}

TEST_F(BinTest, ForceWithoutVelocityWritesZeroVelocities)
{
    Body b;
    b.points->addAttrib("force", ATTRIB_VECTOR);
    b.points->addPoint(Vec4f(1, 1, 1));
    (*b.points->attribAs<VecArray>("force"))[0] = Vec4f(0.5f, 1.5f, 2.5f);
    ASSERT_EQ(writeBin(path("f.bin"), b), 0);
    const std::vector<uint8_t> f = readBytes(path("f.bin"));
    EXPECT_EQ(f32At(f, 356 + 12), 0.f);
    EXPECT_EQ(f32At(f, 356 + 16), 0.f);
    EXPECT_EQ(f32At(f, 356 + 20), 0.f);
    EXPECT_EQ(f32At(f, 356 + 24), 0.5f);
    EXPECT_EQ(f32At(f, 356 + 28), 1.5f);
    EXPECT_EQ(f32At(f, 356 + 32), -2.5f);
    EXPECT_EQ(loadLE<int64_t>(&f[356 + 106]), 0);  // no id attribute
}

TEST_F(BinTest, EmptyBodyWritesNoFileAndSucceeds)
{
    Body b;
    testing::internal::CaptureStdout();
    EXPECT_EQ(writeBin(path("empty.bin"), b), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_FALSE(fs::exists(path("empty.bin")));
    EXPECT_EQ(fs::directory_iterator(dir), fs::directory_iterator());
}

TEST_F(BinTest, WriteAnnouncesThePathAndLeavesNoTemporary)
{
    Body b = particles(2);
    testing::internal::CaptureStdout();
    ASSERT_EQ(writeBin(path("x.bin"), b), 0);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "  writing to " + path("x.bin") + "\n");
    int files = 0;
    for (fs::directory_iterator it(dir); it != fs::directory_iterator(); ++it) ++files;
    EXPECT_EQ(files, 1);
}

// ---------------------------------------------------------------- refused files

// A Body with something in it, to see that a failed read leaves it as it was.
Body occupied()
{
    Body t;
    t.points->addAttrib("mass", ATTRIB_FLOAT);
    t.points->addPoint(Vec4f(1, 2, 3));
    t.points->addPoint(Vec4f(4, 5, 6));
    t.points->addPoint(Vec4f(7, 8, 9));
    return t;
}

void expectUntouched(const Body& t)
{
    EXPECT_EQ(t.points->size(), 3u);
    EXPECT_EQ(t.points->P[2], Vec4f(7, 8, 9));
    EXPECT_FALSE(t.points->hasAttrib("Cd"));
    EXPECT_FALSE(t.points->hasAttrib("v"));
    EXPECT_FALSE(t.points->hasAttrib("id"));
    EXPECT_EQ(t.points->attribAs<FloatArray>("mass")->size(), 3u);
}

int readQuietly(const std::string& p, Body& t, std::string& out)
{
    testing::internal::CaptureStdout();
    const int r = readBin(p, t);
    out = testing::internal::GetCapturedStdout();
    return r;
}

TEST_F(BinTest, Version12IsRefusedAndTargetUnchanged)
{
    writeBytes(path("v12.bin"), handMadeFile(2, 12));
    Body t = occupied();
    std::string out;
    EXPECT_EQ(readQuietly(path("v12.bin"), t, out), -1);
    EXPECT_EQ(out, "non matching bin version (only version 13 supported).\n");
    expectUntouched(t);
}

TEST_F(BinTest, WrongMagicIsRefused)
{
    writeBytes(path("magic.bin"), handMadeFile(2, 13, 0x00FABADB));
    Body t = occupied();
    std::string out;
    EXPECT_EQ(readQuietly(path("magic.bin"), t, out), -1);
    EXPECT_EQ(out, "non matching bin header.\n");
    expectUntouched(t);
}

TEST_F(BinTest, MissingFileSaysSo)
{
    Body t = occupied();
    std::string out;
    EXPECT_EQ(readQuietly(path("nothing.bin"), t, out), -1);
    EXPECT_EQ(out, "Error opening Particle-BIN-File!\n");
    expectUntouched(t);
}

TEST_F(BinTest, EmptyAndShortFilesAreTruncated)
{
    const std::vector<uint8_t> full = handMadeFile(3);
    // Cut inside the header, inside a record and inside the trailer.
    for (size_t cut : {size_t(0), size_t(3), size_t(355), size_t(356), size_t(356 + 114 + 50), full.size() - 1}) {
        writeBytes(path("short.bin"), std::vector<uint8_t>(full.begin(), full.begin() + long(cut)));
        Body t = occupied();
        std::string out;
        EXPECT_EQ(readQuietly(path("short.bin"), t, out), -1) << cut;
        EXPECT_EQ(out, "truncated bin file.\n") << cut;
        expectUntouched(t);
        std::vector<BinParticle> ps(1);
        testing::internal::CaptureStdout();
        EXPECT_EQ(readBinParticles(path("short.bin"), ps), -1);
        testing::internal::GetCapturedStdout();
        EXPECT_EQ(ps.size(), 1u);
    }
}

TEST_F(BinTest, AbsurdCountIsTruncatedNotAllocated)
{
    std::vector<uint8_t> f = handMadeFile(2);
    for (int32_t count : {INT32_MAX, 3, 1 << 30}) {
        storeLE<int32_t>(&f[276], count);
        writeBytes(path("huge.bin"), f);
        Body t = occupied();
        std::string out;
        EXPECT_EQ(readQuietly(path("huge.bin"), t, out), -1) << count;
        EXPECT_EQ(out, "truncated bin file.\n");
        expectUntouched(t);
    }
}

TEST_F(BinTest, NegativeCountReadsOnlyTheTrailer)
{
    std::vector<uint8_t> f = handMadeFile(2);
    storeLE<int32_t>(&f[276], -4);
    writeBytes(path("neg.bin"), f);
    Body t;
    ASSERT_EQ(readBin(path("neg.bin"), t), 0);
    EXPECT_EQ(t.points->size(), 0u);
    writeBytes(path("neg0.bin"), handMadeFile(-1));  // header and trailer alone
    ASSERT_EQ(readBin(path("neg0.bin"), t), 0);
    EXPECT_EQ(t.points->size(), 0u);
}

// ---------------------------------------------------------------- import API

TEST_F(BinTest, ParticlesForSystemImportDecodeEveryField)
{
    writeBytes(path("sys.bin"), handMadeFile(3));
    std::vector<BinParticle> ps;
    BinHeader h;
    ASSERT_EQ(readBinParticles(path("sys.bin"), ps, &h), 0);
    EXPECT_EQ(h.count, 3);
    EXPECT_EQ(h.version, 13);
    ASSERT_EQ(ps.size(), 3u);
    EXPECT_EQ(ps[2].pos[0], 3.f);
    EXPECT_EQ(ps[2].pos[2], -3.f);
    EXPECT_EQ(ps[2].vel[2], -6.f);
    EXPECT_EQ(ps[2].force[1], 8.f);
    EXPECT_EQ(ps[2].force[2], -9.f);
    EXPECT_EQ(ps[2].neighbours, 11);
    EXPECT_EQ(ps[2].density, 12.f);
    EXPECT_EQ(ps[2].mass, 0.5f);
    EXPECT_EQ(ps[2].id, (int64_t(1) << 32) + 9);
}

TEST_F(BinTest, HeaderEncodingRoundTrips)
{
    BinHeader h;
    h.time = 3.25f;
    h.frame = -4;
    h.fps = 30;
    h.count = 17;
    h.emitterScale[2] = 2.f;
    uint8_t raw[kBinHeaderSize];
    encodeBinHeader(h, raw);
    const BinHeader d = decodeBinHeader(raw);
    EXPECT_EQ(d.time, 3.25f);
    EXPECT_EQ(d.frame, -4);
    EXPECT_EQ(d.fps, 30);
    EXPECT_EQ(d.count, 17);
    EXPECT_EQ(d.emitterScale[2], 2.f);
    EXPECT_EQ(d.magic, kBinMagic);
}

// ---------------------------------------------------------------- mutation loop

TEST_F(BinTest, MutatedFilesNeverBreakTheReaders)
{
    Body src = particles(4);
    ASSERT_EQ(writeBin(path("seed.bin"), src), 0);
    const std::vector<uint8_t> seed = readBytes(path("seed.bin"));
    const std::string p = path("m.bin");
    std::mt19937 rng(20240611);
    auto check = [&](const std::vector<uint8_t>& bytes) {
        writeBytes(p, bytes);
        Body t = occupied();
        testing::internal::CaptureStdout();
        const int r = readBin(p, t);
        std::vector<BinParticle> ps;
        const int r2 = readBinParticles(p, ps);
        testing::internal::GetCapturedStdout();
        ASSERT_TRUE(r == 0 || r == -1);
        ASSERT_EQ(r, r2);
        if (r == -1) {
            expectUntouched(t);
        } else {
            const int32_t count = loadLE<int32_t>(&bytes[276]);
            const size_t n = count > 0 ? size_t(count) : 0;
            ASSERT_EQ(t.points->size(), 3 + n);
            ASSERT_EQ(ps.size(), n);
            ASSERT_LE(kBinHeaderSize + n * kBinRecordSize + kBinTrailerSize, bytes.size());
            for (size_t i = 0; i < t.points->numAttribs(); ++i) ASSERT_NE(t.points->pointers[i], nullptr);
            ASSERT_EQ(t.points->v.size(), 3 + n);
            ASSERT_EQ(t.points->attribAs<IntArray>("id")->size(), 3 + n);
        }
    };
    for (size_t cut = 0; cut <= seed.size(); ++cut) check(std::vector<uint8_t>(seed.begin(), seed.begin() + long(cut)));
    for (int iter = 0; iter < 3000; ++iter) {
        std::vector<uint8_t> b = seed;
        const int kind = int(rng() % 5);
        if (kind == 0) {  // flip a few bytes anywhere
            for (int k = 1 + int(rng() % 8); k > 0; --k) b[rng() % b.size()] ^= uint8_t(1 + rng() % 255);
        } else if (kind == 1) {  // garbage inserted
            const size_t at = rng() % (b.size() + 1);
            std::vector<uint8_t> junk(1 + rng() % 300);
            for (auto& c : junk) c = uint8_t(rng());
            b.insert(b.begin() + long(at), junk.begin(), junk.end());
        } else if (kind == 2) {  // count from the extremes
            const int32_t counts[] = {INT32_MIN, -1, 0, 1, 5, 1000, 1 << 24, INT32_MAX, int32_t(rng())};
            storeLE<int32_t>(&b[276], counts[rng() % 9]);
        } else if (kind == 3) {  // cut and flip
            b.resize(rng() % b.size());
            if (!b.empty()) b[rng() % b.size()] ^= 0xFF;
        } else {  // version and magic bytes
            b[rng() % 4] ^= uint8_t(rng());
            b[254 + rng() % 2] ^= uint8_t(rng());
        }
        check(b);
        if (HasFatalFailure()) return;
    }
}

} // namespace
