// Fitting and filling the dense cell grid: a parallel bounds reduction, the cell keys, the
// radix sort the bucket hash uses, and the first slot of every cell.
#include "particles/cellgrid.h"

#include "particles/radixsort.h"

#include <algorithm>
#include <limits>

namespace {

// Cell coordinates beyond this many cells from the origin are refused, so that every
// index sum below stays well inside 32 bits.
constexpr float kCoordLimit = 1.0e9f;

} // namespace

bool CellGrid::fit(const Vec4f* positions, size_t count, float size, size_t maxCells, int numThreads)
{
    nx = ny = nz = 0;
    cellFirst.clear();
    if (count == 0 || !(size > 0.f) || !std::isfinite(size)) return false;
    cellSize = size;
    float loX = std::numeric_limits<float>::max(), loY = loX, loZ = loX;
    float hiX = std::numeric_limits<float>::lowest(), hiY = hiX, hiZ = hiX;
    const int64_t n = int64_t(count);
#pragma omp parallel for schedule(static) num_threads(std::max(1, numThreads)) \
    reduction(min : loX, loY, loZ) reduction(max : hiX, hiY, hiZ)
    for (int64_t i = 0; i < n; ++i) {
        const Vec4f& p = positions[i];
        const float cx = std::floor(p.x / size), cy = std::floor(p.y / size), cz = std::floor(p.z / size);
        loX = std::min(loX, cx), hiX = std::max(hiX, cx);
        loY = std::min(loY, cy), hiY = std::max(hiY, cy);
        loZ = std::min(loZ, cz), hiZ = std::max(hiZ, cz);
    }
    for (float c : {loX, loY, loZ, hiX, hiY, hiZ})
        if (!(std::fabs(c) < kCoordLimit)) return false;
    // One empty cell of border on each side: every row run round an occupied cell stays
    // inside the grid.
    const double sx = double(hiX) - double(loX) + 3.0;
    const double sy = double(hiY) - double(loY) + 3.0;
    const double sz = double(hiZ) - double(loZ) + 3.0;
    if (sx * sy * sz > double(maxCells)) return false;
    originX = int32_t(loX) - 1;
    originY = int32_t(loY) - 1;
    originZ = int32_t(loZ) - 1;
    nx = uint32_t(sx);
    ny = uint32_t(sy);
    nz = uint32_t(sz);
    return true;
}

void CellGrid::sort(const Vec4f* positions, size_t count, std::vector<uint32_t>& keys, std::vector<uint32_t>& order,
                    int numThreads)
{
    const int threads = std::max(1, numThreads);
    keys.resize(count);
    order.resize(count);
    const int64_t n = int64_t(count);
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t i = 0; i < n; ++i) {
        keys[size_t(i)] = cellIndex(positions[i]);
        order[size_t(i)] = uint32_t(i);
    }
    radixSortPairs(keys.data(), order.data(), count, threads);

    // cellFirst[c] = the first slot whose key is at least c: every slot that opens a run
    // writes its index into the cells from the key before it (exclusive) to its own.
    const size_t cells = size_t(nx) * ny * nz;
    cellFirst.resize(cells + 1);
    uint32_t* first = cellFirst.data();
    const uint32_t* k = keys.data();
#pragma omp parallel for schedule(static) num_threads(threads)
    for (int64_t s = 0; s < n; ++s) {
        const uint32_t key = k[s];
        const uint32_t from = s == 0 ? 0u : k[s - 1] + 1u;
        if (s != 0 && k[s - 1] == key) continue;
        for (uint32_t c = from; c <= key; ++c) first[c] = uint32_t(s);
    }
    const uint32_t last = n > 0 ? k[n - 1] + 1u : 0u;
    for (size_t c = last; c <= cells; ++c) first[c] = uint32_t(count);
}
