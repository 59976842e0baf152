// The density and pair-force maths of SPH, written once for the classic system and the
// SPH-Solver node. The density pass walks the 27 cells round each sorted slot (9 row runs
// of the dense grid, or 27 hash buckets when the cloud is too spread out for a grid),
// sums the pairs closer than the kernel radius h and records them; the force pass then
// reads only those recorded pairs. A thread writes only its own slots' density, pressure
// and lists and its own particles' force. The two users differ in three small ways, held
// as data in SphConstants: the distance offset, the start of the density sum, and where
// `force` lives (passed in as an array either way).
#pragma once

#include "geo/attribtypes.h"
#include "geo/vec.h"
#include "particles/cellgrid.h"
#include "particles/particlehash.h"

#include <cstddef>
#include <cstdint>
#include <vector>

// The density floor: added to every density so that the force pass may divide by it.
constexpr float kSphDensityFloor = 50.f;

struct SphConstants {
    float h = 0.1f;
    float h2 = 0.01f;
    float mass = 1.f;
    float restDensity = 1000.f;
    float pressureScale = 0.25f;
    float densityCoef = 0.f; // 315 / (64 pi h^9) * mass
    float spikyGrad = 0.f;   // -45 / (h^6 pi)
    float viscLap = 0.f;     // 45 / (h^6 pi)
    float invR = 1.f;        // 1 / resolution^1.5
    float visc = 0.f;        // viscosity / R
    float string = 0.f;      // stringiness / R
    float wave = 0.f;        // 1.5 pi / (3 h): the surface-tension cosine reaches 0 at h
    float surfaceTension = 0.f;
    float clampForce = 80.f;
    // Added to every pair distance (0.00001 in the classic system, 0 in the node).
    float distanceOffset = 0.00001f;
    // Start of the density sum (0.00000001 in the classic system, 0 in the node).
    float densitySeed = 0.00000001f;
};

// The per-substep constants. `nodeForm` selects the node's distance offset and sum start.
SphConstants makeSphConstants(float h, float mass, float restDensity, float pressureScale, float resolution,
                              float viscosity, float stringiness, float surfaceTensionWeight,
                              float clampForce, bool nodeForm);

// The working arrays of one SPH solver, kept between substeps for their capacity, by
// sorted slot unless said otherwise: the hash record, keys and order, the bucket ranges
// (used only when the cloud is too spread out for the grid), the sorted copies, the dense
// grid, the sorted positions by component (padded so that 8-wide loads past the end stay
// in bounds), and the close pairs the density pass records for the force pass, in chunks
// of slots.
struct SphArrays {
    static constexpr uint32_t kChunkSlots = 512;
    static constexpr size_t kPadding = 8;
    struct Chunk {
        std::vector<uint32_t> offsets; // kChunkSlots + 1 list starts
        std::vector<uint32_t> pairs;   // the neighbours' sorted slots
    };
    ParticleHash hash;
    std::vector<uint32_t> hashKeys;    // cell index (grid) or bucket (hash), sorted
    std::vector<uint32_t> sortedOrder; // slot -> particle index
    std::vector<uint32_t> cellStart;   // by bucket, kEmptyBucket when empty
    std::vector<uint32_t> cellEnd;     // by bucket
    VecArray sortedPos;
    VecArray sortedVel;
    std::vector<float> sortedDensity; // the density pass's results, for the force pass
    std::vector<float> sortedPressure;
    CellGrid grid;
    bool gridInUse = false;
    // Switches for tests and measurements: the bucket hash even where a grid fits, and the
    // scalar candidate loop even where the processor has AVX2.
    bool allowGrid = true;
    bool allowWide = true;
    std::vector<float> x, y, z;
    std::vector<Chunk> chunks;

    // Sorts the particles for the passes: the dense grid when the cloud fits one (keys
    // are then cell indices and cellStart/cellEnd are left alone), else the bucket hash.
    // Fills the order, keys, sorted copies of position and velocity (velocity zero when v
    // is null) and the component arrays, and sizes the density and pressure arrays.
    void sort(const Vec4f* P, const Vec4f* v, size_t count, float h, int numThreads);
    size_t count() const { return sortedOrder.size(); }
};

// What the passes work on: the sorted arrays, and the particle channels by particle index.
struct SphPassData {
    SphArrays* arrays = nullptr;
    float* density = nullptr;  // optional copy
    float* pressure = nullptr; // optional copy
    Vec4f* force = nullptr;    // the force pass adds to it
    // Optional per-particle coefficients; either switches the force pass to its
    // per-particle form for that term.
    const float* viscosity = nullptr;
    const float* surfaceTension = nullptr;
};

// Pressure from density: only compression pushes; at rest density and below it is 0.
inline float sphPressure(float density, float restDensity, float pressureScale)
{
    const float p = (density - restDensity) * pressureScale * 0.01f;
    return p > 0.f ? p : 0.f;
}

void sphDensityPass(const SphConstants& k, SphPassData& data, int numThreads);
// Reads the pairs the density pass of the same positions recorded.
void sphForcePass(const SphConstants& k, SphPassData& data, int numThreads);
