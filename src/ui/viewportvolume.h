// ViewportVolume: the viewport shows a Body's grids as points, one per sampled active
// voxel (fog by density, level sets by their inside band, vector grids by length),
// capped so that a large grid stays drawable. OpenVDB stays inside the .cpp.
#pragma once

#include <cstddef>
#include <vector>

class VolumeData;

class ViewportVolume {
public:
    static constexpr size_t kMaxPoints = 200000;

    // Appends position (3), colour (3) and size (1) per sampled voxel; answers how many.
    static size_t appendVoxelPoints(const VolumeData& volumes, std::vector<float>& pos, std::vector<float>& col,
                                    std::vector<float>& size, size_t maxPoints);
};
