// SD geometry (RealFlow's animated mesh format), read only: a base part with the
// header, the mesh and its faces, then one fixed-size record per frame holding either
// a rigid pose or every vertex's position. These readers decode one part each with
// every length checked; the classic Object strings them together per frame, and
// readSd turns the result into a Body.
#pragma once

#include <array>
#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "geo/vec.h"

class Body;

namespace fileio {

constexpr size_t kSdHeaderSize = 83;

struct SdBase {
    uint8_t header[kSdHeaderSize] = {};
    int32_t frameSize = 0;   // bytes of one frame record
    uint8_t hasExtra = 0;
    uint8_t axis = 0;        // 2: (a, b, c) becomes (a, b, -c); else (c, b, a)
    int32_t firstFrame = 0;
    int32_t lastFrame = 0;
    int deforming = -1;      // 1 per-vertex frames, 0 rigid frames, -1 any other stored value
    float color[3] = {0.f, 0.f, 0.f};
    std::string name;
    std::string textureName;
    std::vector<Vec4f> vertices;                 // in this system's axes
    std::vector<std::array<int32_t, 3>> faces;   // every index below vertices.size()
    uint64_t framesOffset = 0;                   // where the frame records begin
};

struct SdFrame {
    int32_t frame = 0;          // the number stored in the record
    std::string name;
    double rotation[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};  // 3x3, row-major, columns are the turned axes
    Vec4f translation;
    Vec4f scale{1.f, 1.f, 1.f, 0.f};
    std::vector<Vec4f> positions;  // deforming files only, in this system's axes
};

// Reads the base part from the start of `file` (of `fileSize` bytes). 0, or -1 with a
// message for a short file, a length that doesn't fit, a bad frame size or range, or a
// face index outside the vertices.
int readSdBase(FILE* file, uint64_t fileSize, SdBase& base);

// Reads the record of `frame`, clamped to the file's range, addressed by frameSize,
// with `numPositions` vertex positions (the base's vertex count for a deforming file,
// 0 for a rigid one). 0, or -1 with a message.
int readSdFrame(FILE* file, uint64_t fileSize, const SdBase& base, size_t numPositions, int frame, SdFrame& out);

// A file's mesh at `frame` (blended towards the next frame as the classic object does)
// as a Body: points (posed for rigid files), triangles with the system's winding, N,
// and v for deforming files. 0 or -1; the Body is untouched on failure.
int readSd(const std::string& path, Body& body, float frame);

} // namespace fileio
