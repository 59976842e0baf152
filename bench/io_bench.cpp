// Cache file speed: BIN write and read of a million particles against plain fwrite and
// fread of the same bytes in the same run (fread both into a reused buffer and into a
// new one), and OBJ write and read of a 100k-triangle grid, all as MB/s of file size.
// Files go to one folder under the system's temporary directory.
#include "geo/body.h"
#include "io/binformat.h"
#include "io/imagefile.h"
#include "io/objformat.h"
#include "io/vdbformat.h"

#include <openvdb/tools/LevelSetSphere.h>

#include <benchmark/benchmark.h>

#include <boost/filesystem.hpp>

#include <cstdio>
#include <iostream>
#include <memory>
#include <sstream>
#include <vector>

namespace fs = boost::filesystem;

namespace {

constexpr size_t kParticles = 1'000'000;
constexpr int kGrid = 224;  // 224 x 224 quads, two triangles each: 100 352 triangles

const fs::path& benchDir()
{
    static const fs::path dir = [] {
        fs::path d = fs::temp_directory_path() / fs::unique_path("qorva-io-bench-%%%%-%%%%");
        fs::create_directories(d);
        return d;
    }();
    return dir;
}

std::string benchPath(const std::string& name)
{
    return (benchDir() / name).string();
}

struct Cleanup {
    ~Cleanup() { fs::remove_all(benchDir()); }
} cleanup;

const Body& particles()
{
    static const Body body = [] {
        Body b;
        b.points->addAttrib("v", ATTRIB_VELOCITY);
        b.points->addAttrib("id", ATTRIB_INT);
        b.points->addAttrib("numConstr", ATTRIB_INT);
        IntArray& ids = *b.points->attribAs<IntArray>("id");
        b.points->resizePoints(kParticles);
        for (size_t i = 0; i < kParticles; ++i) {
            const float f = float(i) * 1e-3f;
            b.points->P[i] = Vec4f(f, -f, 0.5f * f);
            b.points->v[i] = Vec4f(1.f, 2.f, f);
            ids[i] = int32_t(i);
        }
        return b;
    }();
    return body;
}

const Body& grid()
{
    static const Body body = [] {
        Body b;
        for (int y = 0; y <= kGrid; ++y)
            for (int x = 0; x <= kGrid; ++x) b.points->addPoint(Vec4f(float(x) * 0.01f, 0.f, float(y) * 0.01f));
        for (int y = 0; y < kGrid; ++y)
            for (int x = 0; x < kGrid; ++x) {
                const uint32_t a = uint32_t(y * (kGrid + 1) + x), c = a + uint32_t(kGrid + 1);
                b.prims->addPrim(PrimData::POLYGON);
                b.vertices->addVertexList({a, a + 1, c + 1});
                b.prims->addPrim(PrimData::POLYGON);
                b.vertices->addVertexList({a, c + 1, c});
            }
        b.updateCounts();
        return b;
    }();
    return body;
}

// writeBin prints one line per file; keep the benchmark table readable.
struct Quiet {
    Quiet() : old(std::cout.rdbuf(sink.rdbuf())) {}
    ~Quiet() { std::cout.rdbuf(old); }
    std::ostringstream sink;
    std::streambuf* old;
};

std::vector<char> fileBytes(const std::string& path)
{
    std::vector<char> bytes(size_t(fs::file_size(path)));
    FILE* f = std::fopen(path.c_str(), "rb");
    if (f) {
        if (std::fread(bytes.data(), 1, bytes.size(), f) != bytes.size()) bytes.clear();
        std::fclose(f);
    }
    return bytes;
}

void BM_BinWrite(benchmark::State& state)
{
    const Body& b = particles();
    const std::string path = benchPath("w.bin");
    Quiet quiet;
    for (auto _ : state)
        if (fileio::writeBin(path, b) != 0) state.SkipWithError("write failed");
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(fs::file_size(path)));
}

void BM_RawFwrite(benchmark::State& state)
{
    Quiet quiet;
    fileio::writeBin(benchPath("seed.bin"), particles());
    const std::vector<char> bytes = fileBytes(benchPath("seed.bin"));
    const std::string path = benchPath("raw.bin");
    for (auto _ : state) {
        FILE* f = std::fopen(path.c_str(), "wb");
        if (!f || std::fwrite(bytes.data(), 1, bytes.size(), f) != bytes.size()) state.SkipWithError("fwrite failed");
        if (f) std::fclose(f);
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes.size()));
}

void BM_BinRead(benchmark::State& state)
{
    const std::string path = benchPath("r.bin");
    {
        Quiet quiet;
        fileio::writeBin(path, particles());
    }
    for (auto _ : state) {
        Body b;
        if (fileio::readBin(path, b) != 0) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(b.points->P.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(fs::file_size(path)));
}

void BM_RawFread(benchmark::State& state)
{
    const std::string path = benchPath("r.bin");
    {
        Quiet quiet;
        fileio::writeBin(path, particles());
    }
    std::vector<char> bytes(size_t(fs::file_size(path)));
    for (auto _ : state) {
        FILE* f = std::fopen(path.c_str(), "rb");
        if (!f || std::fread(bytes.data(), 1, bytes.size(), f) != bytes.size()) state.SkipWithError("fread failed");
        if (f) std::fclose(f);
        benchmark::DoNotOptimize(bytes.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(bytes.size()));
}

// The same read into a buffer made for it each time, as any loader's destination is:
// the cost of fresh memory is part of what BM_BinRead pays.
void BM_RawFreadNewBuffer(benchmark::State& state)
{
    const std::string path = benchPath("r.bin");
    {
        Quiet quiet;
        fileio::writeBin(path, particles());
    }
    const size_t size = size_t(fs::file_size(path));
    for (auto _ : state) {
        std::unique_ptr<char[]> bytes(new char[size]);
        FILE* f = std::fopen(path.c_str(), "rb");
        if (!f || std::fread(bytes.get(), 1, size, f) != size) state.SkipWithError("fread failed");
        if (f) std::fclose(f);
        benchmark::DoNotOptimize(bytes.get());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(size));
}

void BM_ObjWrite(benchmark::State& state)
{
    const Body& b = grid();
    const std::string path = benchPath("w.obj");
    for (auto _ : state)
        if (fileio::writeObj(path, b) != 0) state.SkipWithError("write failed");
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(fs::file_size(path)));
    state.counters["triangles"] = double(b.prims->size());
}

void BM_ObjRead(benchmark::State& state)
{
    const std::string path = benchPath("r.obj");
    fileio::writeObj(path, grid());
    for (auto _ : state) {
        Body b;
        if (fileio::readObj(path, b) != 0) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(b.points->P.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(fs::file_size(path)));
}

// A level-set sphere of radius 1 at voxel 0.005 (about 1.5M active voxels).
const Body& sphereVolume()
{
    static Body b = [] {
        openvdb::initialize();
        Body v;
        v.volumes->setVolume("distance", VOLUME_FLOAT,
                             openvdb::tools::createLevelSetSphere<openvdb::FloatGrid>(1.f, openvdb::Vec3f(0.f), 0.005f));
        return v;
    }();
    return b;
}

void BM_VdbWrite(benchmark::State& state)
{
    const Body& b = sphereVolume();
    const std::string path = benchPath("w.vdb");
    for (auto _ : state)
        if (fileio::writeVdb(path, b) != 0) state.SkipWithError("write failed");
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(fs::file_size(path)));
    state.counters["voxels"] = double(b.volumes->grids.front()->activeVoxelCount());
}

void BM_VdbRead(benchmark::State& state)
{
    const std::string path = benchPath("r.vdb");
    fileio::writeVdb(path, sphereVolume());
    for (auto _ : state) {
        Body b;
        if (fileio::readVdb(path, b) != 0) state.SkipWithError("read failed");
        benchmark::DoNotOptimize(b.volumes->grids.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(fs::file_size(path)));
}

// A 2k x 1k texture map, as Attrib-from-Map reads it: half-float EXR into float RGBA.
void BM_ExrRead(benchmark::State& state)
{
    const std::string path = benchPath("map.exr");
    ImageRgba image;
    image.width = 2048;
    image.height = 1024;
    image.rgba.resize(size_t(image.width) * size_t(image.height) * 4);
    for (size_t i = 0; i < image.rgba.size(); ++i) image.rgba[i] = float(i % 1021) / 1021.f;
    std::string error;
    if (!writeExr(path, image, error)) state.SkipWithError(error.c_str());
    for (auto _ : state) {
        ImageRgba in;
        if (!readImage(path, in, error)) state.SkipWithError(error.c_str());
        benchmark::DoNotOptimize(in.rgba.data());
    }
    state.SetBytesProcessed(int64_t(state.iterations()) * int64_t(fs::file_size(path)));
}

} // namespace

BENCHMARK(BM_BinWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RawFwrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_BinRead)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RawFread)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_RawFreadNewBuffer)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ObjWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ObjRead)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_VdbWrite)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_VdbRead)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ExrRead)->Unit(benchmark::kMillisecond)->UseRealTime();
