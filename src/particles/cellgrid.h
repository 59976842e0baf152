// A dense grid of cubic cells over the particles' bounding box, one empty cell of border
// on every side, cell index x fastest. With the particles sorted by cell index the three
// cells of a row along x hold one contiguous run of slots, so the 27 cells round a point
// are read as 9 runs, and cells near in space are near in memory. The grid only fits a
// compact cloud: fit() refuses a box of more cells than the caller allows, and the caller
// then falls back to the bucket hash.
#pragma once

#include "geo/vec.h"

#include <cmath>
#include <cstddef>
#include <cstdint>
#include <vector>

struct CellGrid {
    float cellSize = 0.f;
    int32_t originX = 0, originY = 0, originZ = 0; // cell coordinates of grid cell (0, 0, 0)
    uint32_t nx = 0, ny = 0, nz = 0;
    // First sorted slot of every cell, and one more entry holding the slot count: cell c
    // holds the slots cellFirst[c] .. cellFirst[c + 1] - 1.
    std::vector<uint32_t> cellFirst;

    // Sizes the grid round the positions (all finite) with cells of `size`. False, leaving
    // the grid unusable, when the box needs more than maxCells cells.
    bool fit(const Vec4f* positions, size_t count, float size, size_t maxCells, int numThreads);

    // Index of the cell holding p, which must lie in the fitted box.
    uint32_t cellIndex(const Vec4f& p) const
    {
        const uint32_t ix = uint32_t(int32_t(std::floor(p.x / cellSize)) - originX);
        const uint32_t iy = uint32_t(int32_t(std::floor(p.y / cellSize)) - originY);
        const uint32_t iz = uint32_t(int32_t(std::floor(p.z / cellSize)) - originZ);
        return (iz * ny + iy) * nx + ix;
    }

    // keys[i] = cell of positions[i] and order the slots sorted by it (radixSortPairs),
    // then cellFirst. The grid must have been fitted to these positions.
    void sort(const Vec4f* positions, size_t count, std::vector<uint32_t>& keys, std::vector<uint32_t>& order,
              int numThreads);

    // The 9 slot runs [begin, end) of the rows round cell `cell`: z outermost, then y.
    void rowRuns(uint32_t cell, uint32_t* begin, uint32_t* end) const
    {
        int r = 0;
        for (int dz = -1; dz <= 1; ++dz) {
            for (int dy = -1; dy <= 1; ++dy) {
                const uint32_t first = cell + uint32_t(int32_t(nx * ny) * dz + int32_t(nx) * dy) - 1u;
                begin[r] = cellFirst[first];
                end[r] = cellFirst[first + 3];
                ++r;
            }
        }
    }
};
