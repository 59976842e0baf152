// The particle BIN cache (RealFlow's format, version 13): a 356-byte header, one
// 114-byte record per particle and a 6-byte trailer, all little-endian, with z flipped
// against this system's axes. writeBin/readBin move points of a Body; readBinParticles
// decodes every record for the classic systems' own import routines.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

class Body;

namespace fileio {

constexpr int32_t kBinMagic = 0x00FABADA;
constexpr int16_t kBinVersion = 13;
constexpr size_t kBinHeaderSize = 356;
constexpr size_t kBinRecordSize = 114;
constexpr size_t kBinTrailerSize = 6;

// The header as stored; fields in file order.
struct BinHeader {
    int32_t magic = kBinMagic;
    char name[250] = {};
    int16_t version = kBinVersion;
    float scale = 1.f;
    int32_t type = 0;
    float time = 0.f;
    int32_t frame = 0;
    int32_t fps = 24;
    int32_t count = 0;
    float radius = 1.f;
    float pressure[3] = {1.f, 0.f, 0.5f};     // maximum, minimum, average
    float speed[3] = {1.f, 0.f, 0.5f};        // maximum, minimum, average
    float temperature[3] = {0.f, 0.f, 0.f};   // maximum, minimum, average
    float emitterPosition[3] = {0.f, 0.f, 0.f};
    float emitterRotation[3] = {0.f, 0.f, 0.f};
    float emitterScale[3] = {0.f, 0.f, 0.f};
};

// One particle record, decoded. pos, vel and force are in this system's axes (z back
// to its own sign); everything else is as stored.
struct BinParticle {
    float pos[3];
    float vel[3];
    float force[3];
    float vorticity[3];
    float normal[3];
    int32_t neighbours;
    float uvw[3];
    uint16_t infoBits;
    float age;
    float isolationTime;
    float viscosity;
    float density;   // the granular system stores its constraint count here
    float pressure;
    float mass;
    float temperature;
    int64_t id;
};

// Time, frame and rate for a header. The writing thread passes the values a snapshot
// had when it was queued; without it the header takes them from SimState.
struct BinFrameInfo {
    float time = 0.f;
    int32_t frame = 0;
    float fps = 24.f;   // truncated to an integer in the header
};

void encodeBinHeader(const BinHeader& header, uint8_t out[kBinHeaderSize]);
BinHeader decodeBinHeader(const uint8_t in[kBinHeaderSize]);

// Writes the points of `body` (P, v, force, numNeighbours, numConstr, id) to `path`
// through a temporary file. A Body without points writes nothing and answers 0.
// -1 with "Error opening Particle-BIN-File!" when the file can't be made.
int writeBin(const std::string& path, const Body& body, const BinFrameInfo* info = nullptr);

// Appends the file's particles to `body` (P, v, Cd white, id) and answers 0. On any
// failure it prints why, answers -1 and leaves `body` exactly as it was.
int readBin(const std::string& path, Body& body);

// Decodes every record of `path` into `out` (replaced only on success) and the header
// into `header` when given. Same checks and messages as readBin; 0 or -1. The caller
// takes the global particle lock while it hands the particles to its system.
int readBinParticles(const std::string& path, std::vector<BinParticle>& out, BinHeader* header = nullptr);

} // namespace fileio
