// BIN reading and writing. Records move in chunks of a couple of thousand: a chunk is
// read or built in a buffer that stays in cache, then decoded into the point arrays or
// written with one fwrite. Readers check the file length against the header before
// they touch the target, so a short or lying file never allocates, and a read that
// fails later (the file shrank under it) is rolled back.
#include "io/binformat.h"

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <iostream>
#include <memory>

#include "app/globals.h"
#include "app/simstate.h"
#include "geo/body.h"
#include "io/byteio.h"
#include "io/tempfile.h"

namespace fileio {

namespace {

constexpr size_t kChunkRecords = 2048;  // about 228 KiB of records per read, decode or write

using FilePtr = std::unique_ptr<FILE, int (*)(FILE*)>;

void putVec(uint8_t* p, float x, float y, float z)
{
    storeLE<float>(p, x);
    storeLE<float>(p + 4, y);
    storeLE<float>(p + 8, z);
}

void getVec(const uint8_t* p, float out[3])
{
    out[0] = loadLE<float>(p);
    out[1] = loadLE<float>(p + 4);
    out[2] = loadLE<float>(p + 8);
}

void putTriple(uint8_t* p, const float v[3])
{
    putVec(p, v[0], v[1], v[2]);
}

// Reserves room for `n` elements and, for arrays of several megabytes, asks the kernel
// for huge pages before the first touch: a million points then fault in 2 MB steps
// rather than 4 KB ones, which is most of the cost of filling fresh arrays.
template <class T>
void reserveLarge(std::vector<T>& array, size_t n)
{
    array.reserve(n);
#if defined(__linux__) && defined(MADV_HUGEPAGE)
    constexpr uintptr_t kHuge = uintptr_t(2) << 20;
    const size_t bytes = array.capacity() * sizeof(T);
    if (bytes < 4 * kHuge) return;
    const uintptr_t begin = (uintptr_t(array.data() + array.size()) + kHuge - 1) & ~(kHuge - 1);
    const uintptr_t end = (uintptr_t(array.data()) + bytes) & ~(kHuge - 1);
    if (end > begin) madvise(reinterpret_cast<void*>(begin), end - begin, MADV_HUGEPAGE);
#endif
}

// Opens `path`, checks its header and that the file holds every record and the
// trailer the header promises. On success the file stands at the first record.
int openBin(const std::string& path, FilePtr& file, BinHeader& header, size_t& count)
{
    file.reset(std::fopen(path.c_str(), "rb"));
    if (!file) {
        std::cout << "Error opening Particle-BIN-File!\n";
        return -1;
    }
    struct stat st;
    if (fstat(fileno(file.get()), &st) != 0) {
        std::cout << "Error opening Particle-BIN-File!\n";
        return -1;
    }
    const uint64_t fileSize = uint64_t(st.st_size);
    uint8_t raw[kBinHeaderSize];
    if (fileSize < kBinHeaderSize || std::fread(raw, 1, kBinHeaderSize, file.get()) != kBinHeaderSize) {
        std::cout << "truncated bin file.\n";
        return -1;
    }
    header = decodeBinHeader(raw);
    if (header.magic != kBinMagic) {
        std::cout << "non matching bin header.\n";
        return -1;
    }
    if (header.version != kBinVersion) {
        std::cout << "non matching bin version (only version 13 supported).\n";
        return -1;
    }
    // A count of zero or less means no records: only the trailer follows.
    count = header.count > 0 ? size_t(header.count) : 0;
    const uint64_t needed = kBinHeaderSize + uint64_t(count) * kBinRecordSize + kBinTrailerSize;
    if (fileSize < needed) {
        std::cout << "truncated bin file.\n";
        return -1;
    }
    return 0;
}

// pread until `n` bytes are in or the file ends; false on a short read.
bool readAt(int fd, uint8_t* out, size_t n, uint64_t offset)
{
    while (n > 0) {
        const ssize_t got = pread(fd, out, n, off_t(offset));
        if (got < 0 && errno == EINTR) continue;
        if (got <= 0) return false;
        out += got;
        n -= size_t(got);
        offset += uint64_t(got);
    }
    return true;
}

// Reads the `count` records after the header in file order and hands them, a chunk at
// a time, to decode(records, n, firstIndex); then the trailer. False on a short read.
template <class Decode>
bool readRecords(FILE* file, size_t count, Decode&& decode)
{
    const int fd = fileno(file);
    std::vector<uint8_t> chunk(std::min(count, kChunkRecords) * kBinRecordSize);
    for (size_t first = 0; first < count; first += kChunkRecords) {
        const size_t n = std::min(kChunkRecords, count - first);
        if (!readAt(fd, chunk.data(), n * kBinRecordSize, kBinHeaderSize + uint64_t(first) * kBinRecordSize))
            return false;
        decode(chunk.data(), n, first);
    }
    uint8_t trailer[kBinTrailerSize];
    return readAt(fd, trailer, kBinTrailerSize, kBinHeaderSize + uint64_t(count) * kBinRecordSize);
}

void decodePosVel(const uint8_t* r, Vec4f& p, Vec4f& v)
{
    p = Vec4f(loadLE<float>(r), loadLE<float>(r + 4), -loadLE<float>(r + 8), 0.f);
    v = Vec4f(loadLE<float>(r + 12), loadLE<float>(r + 16), -loadLE<float>(r + 20), 0.f);
}

int32_t decodeId(const uint8_t* r)
{
    return int32_t(uint32_t(loadLE<uint64_t>(r + 106) & 0xffffffffu));
}

// A point attribute read as a number per point, whether it is stored as int or float.
struct NumberChannel {
    const IntArray* ints = nullptr;
    const FloatArray* floats = nullptr;

    NumberChannel(const PointData& points, const char* name)
    {
        const int type = points.attribType(name);
        if (type == ATTRIB_INT) ints = points.attribAs<IntArray>(name);
        else if (type == ATTRIB_FLOAT) floats = points.attribAs<FloatArray>(name);
    }
    int64_t asInt(size_t i) const
    {
        if (ints) return (*ints)[i];
        if (floats) {
            const float f = (*floats)[i];
            if (!(f > float(INT64_MIN) && f < float(INT64_MAX))) return 0;
            return int64_t(f);
        }
        return 0;
    }
    float asFloat(size_t i) const
    {
        if (ints) return float((*ints)[i]);
        if (floats) return (*floats)[i];
        return 0.f;
    }
};

const VecArray* vectorChannel(const PointData& points, const char* name)
{
    const int type = points.attribType(name);
    if (type < ATTRIB_VECTOR || type > ATTRIB_NORMAL) return nullptr;
    return points.attribAs<VecArray>(name);
}

} // namespace

void encodeBinHeader(const BinHeader& h, uint8_t out[kBinHeaderSize])
{
    std::fill(out, out + kBinHeaderSize, uint8_t(0));
    storeLE<int32_t>(out + 0, h.magic);
    std::copy(h.name, h.name + sizeof(h.name), reinterpret_cast<char*>(out + 4));
    storeLE<int16_t>(out + 254, h.version);
    storeLE<float>(out + 256, h.scale);
    storeLE<int32_t>(out + 260, h.type);
    storeLE<float>(out + 264, h.time);
    storeLE<int32_t>(out + 268, h.frame);
    storeLE<int32_t>(out + 272, h.fps);
    storeLE<int32_t>(out + 276, h.count);
    storeLE<float>(out + 280, h.radius);
    putTriple(out + 284, h.pressure);
    putTriple(out + 296, h.speed);
    putTriple(out + 308, h.temperature);
    putTriple(out + 320, h.emitterPosition);
    putTriple(out + 332, h.emitterRotation);
    putTriple(out + 344, h.emitterScale);
}

BinHeader decodeBinHeader(const uint8_t in[kBinHeaderSize])
{
    BinHeader h;
    h.magic = loadLE<int32_t>(in + 0);
    std::copy(in + 4, in + 254, reinterpret_cast<uint8_t*>(h.name));
    h.version = loadLE<int16_t>(in + 254);
    h.scale = loadLE<float>(in + 256);
    h.type = loadLE<int32_t>(in + 260);
    h.time = loadLE<float>(in + 264);
    h.frame = loadLE<int32_t>(in + 268);
    h.fps = loadLE<int32_t>(in + 272);
    h.count = loadLE<int32_t>(in + 276);
    h.radius = loadLE<float>(in + 280);
    getVec(in + 284, h.pressure);
    getVec(in + 296, h.speed);
    getVec(in + 308, h.temperature);
    getVec(in + 320, h.emitterPosition);
    getVec(in + 332, h.emitterRotation);
    getVec(in + 344, h.emitterScale);
    return h;
}

int writeBin(const std::string& path, const Body& body, const BinFrameInfo* info)
{
    const PointData& points = *body.points;
    const size_t n = points.size();
    if (n == 0) return 0;
    if (n > size_t(INT32_MAX)) {
        std::cout << "too many points for a bin file (" << n << ").\n";
        return -1;
    }

    BinHeader header;
    const char name[] = "qorvaPoints";
    std::copy(name, name + sizeof(name), header.name);
    BinFrameInfo frameInfo;
    if (info) frameInfo = *info;
    else if (simState) frameInfo = {simState->time, simState->frame, simState->fps};
    header.time = frameInfo.time;
    header.frame = frameInfo.frame;
    header.fps = (frameInfo.fps > float(INT32_MIN) && frameInfo.fps < float(INT32_MAX)) ? int32_t(frameInfo.fps) : 0;
    header.count = int32_t(n);

    std::cout << "  writing to " << path << "\n";
    TempFile out(path);
    if (!out.isOpen()) {
        std::cout << "Error opening Particle-BIN-File!\n";
        return -1;
    }
    uint8_t rawHeader[kBinHeaderSize];
    encodeBinHeader(header, rawHeader);
    bool ok = out.write(rawHeader, kBinHeaderSize);

    const VecArray& P = points.P;
    const VecArray* v = points.hasV ? &points.v : nullptr;
    const VecArray* force = vectorChannel(points, "force");
    const NumberChannel neighbours(points, "numNeighbours");
    const NumberChannel constraints(points, "numConstr");
    const NumberChannel ids(points, "id");

    std::vector<uint8_t> chunk(std::min(n, kChunkRecords) * kBinRecordSize);
    for (size_t first = 0; ok && first < n; first += kChunkRecords) {
        const size_t count = std::min(kChunkRecords, n - first);
        std::fill(chunk.begin(), chunk.begin() + count * kBinRecordSize, uint8_t(0));
        for (size_t k = 0; k < count; ++k) {
            const size_t i = first + k;
            uint8_t* r = chunk.data() + k * kBinRecordSize;
            putVec(r + 0, P[i].x, P[i].y, -P[i].z);
            if (v) putVec(r + 12, (*v)[i].x, (*v)[i].y, -(*v)[i].z);
            if (force) putVec(r + 24, (*force)[i].x, (*force)[i].y, -(*force)[i].z);
            storeLE<int32_t>(r + 60, int32_t(neighbours.asInt(i)));
            storeLE<float>(r + 90, float(constraints.asInt(i)));
            storeLE<int64_t>(r + 106, ids.asInt(i));
        }
        ok = out.write(chunk.data(), count * kBinRecordSize);
    }
    const uint8_t trailer[kBinTrailerSize] = {0, 0, 0, 0, 0, 0};
    ok = ok && out.write(trailer, kBinTrailerSize);
    if (!ok || !out.commit()) {
        out.discard();
        std::cout << "Error writing Particle-BIN-File! (" << path << ")\n";
        return -1;
    }
    return 0;
}

int readBin(const std::string& path, Body& body)
{
    FilePtr file(nullptr, &std::fclose);
    BinHeader header;
    size_t count = 0;
    if (openBin(path, file, header, count) != 0) return -1;

    PointData& points = *body.points;
    const size_t before = points.size();
    const bool hadCd = points.hasAttrib("Cd");
    const bool hadV = points.hasAttrib("v");
    const bool hadId = points.hasAttrib("id");
    points.addAttrib("Cd", ATTRIB_COLOR);
    points.addAttrib("v", ATTRIB_VELOCITY);
    points.addAttrib("id", ATTRIB_INT);
    // An id that already exists as a float keeps its type; any other type gets no ids.
    const int idType = points.attribType("id");
    IntArray* ids = idType == ATTRIB_INT ? points.attribAs<IntArray>("id") : nullptr;
    FloatArray* floatIds = idType == ATTRIB_FLOAT ? points.attribAs<FloatArray>("id") : nullptr;

    const size_t total = before + count;
    VecArray& P = points.P;
    VecArray& V = points.v;
    reserveLarge(P, total);
    reserveLarge(V, total);
    reserveLarge(points.Cd, total);
    if (ids) reserveLarge(*ids, total);
    if (floatIds) reserveLarge(*floatIds, total);

    // Each chunk is decoded into small arrays that stay in cache and appended in bulk,
    // so no array is written twice.
    std::vector<Vec4f> chunkP(std::min(count, kChunkRecords)), chunkV(chunkP.size());
    std::vector<int32_t> chunkIds(chunkP.size());
    const bool ok = readRecords(file.get(), count, [&](const uint8_t* records, size_t n, size_t) {
        for (size_t k = 0; k < n; ++k) {
            const uint8_t* r = records + k * kBinRecordSize;
            decodePosVel(r, chunkP[k], chunkV[k]);
            chunkIds[k] = decodeId(r);
        }
        P.insert(P.end(), chunkP.begin(), chunkP.begin() + long(n));
        V.insert(V.end(), chunkV.begin(), chunkV.begin() + long(n));
        if (ids) ids->insert(ids->end(), chunkIds.begin(), chunkIds.begin() + long(n));
        else if (floatIds)
            for (size_t k = 0; k < n; ++k) floatIds->push_back(float(chunkIds[k]));
    });
    if (!ok) {
        // The file shrank under us: put the Body back as it was.
        points.resizePoints(before);
        if (!hadCd) points.removeAttrib("Cd");
        if (!hadV) points.removeAttrib("v");
        if (!hadId) points.removeAttrib("id");
        std::cout << "truncated bin file.\n";
        return -1;
    }
    points.resizePoints(total);  // Cd (white for the new points) and every other attribute follow
    return 0;
}

int readBinParticles(const std::string& path, std::vector<BinParticle>& out, BinHeader* headerOut)
{
    FilePtr file(nullptr, &std::fclose);
    BinHeader header;
    size_t count = 0;
    if (openBin(path, file, header, count) != 0) return -1;

    std::vector<BinParticle> particles(count);
    const bool ok = readRecords(file.get(), count, [&](const uint8_t* records, size_t n, size_t first) {
        for (size_t k = 0; k < n; ++k) {
            const uint8_t* r = records + k * kBinRecordSize;
            BinParticle& p = particles[first + k];
            getVec(r + 0, p.pos);
            getVec(r + 12, p.vel);
            getVec(r + 24, p.force);
            getVec(r + 36, p.vorticity);
            getVec(r + 48, p.normal);
            p.neighbours = loadLE<int32_t>(r + 60);
            getVec(r + 64, p.uvw);
            p.infoBits = loadLE<uint16_t>(r + 76);
            p.age = loadLE<float>(r + 78);
            p.isolationTime = loadLE<float>(r + 82);
            p.viscosity = loadLE<float>(r + 86);
            p.density = loadLE<float>(r + 90);
            p.pressure = loadLE<float>(r + 94);
            p.mass = loadLE<float>(r + 98);
            p.temperature = loadLE<float>(r + 102);
            p.id = loadLE<int64_t>(r + 106);
            p.pos[2] = -p.pos[2];
            p.vel[2] = -p.vel[2];
            p.force[2] = -p.force[2];
        }
    });
    if (!ok) {
        std::cout << "truncated bin file.\n";
        return -1;
    }
    out.swap(particles);
    if (headerOut) *headerOut = header;
    return 0;
}

} // namespace fileio
