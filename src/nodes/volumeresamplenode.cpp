// One grid per kind (first name that exists) is resampled into a linear transform of the
// new voxel size and replaces the old grid under its name. `distance` and `surface` become
// level sets (rebuilt with their half width in voxels), the density kind a fog volume; the
// other kinds keep their class.
#include "nodes/volumeresamplenode.h"

#include "nodes/levelsetops.h"
#include "nodes/volumeops.h"

#include <cstdio>
#include <string>
#include <utility>
#include <vector>

VolumeResampleNode::VolumeResampleNode(NodeMaster* master) : GeoNode(master)
{
    setType("Volume-Resample");
    addParam(&voxelSize, "voxelSize", "Voxel Size", kParamFloat, "0.1", "Set the volume's new voxelsize.");
    addInput("Volume-Input");
    addOutput("Volume-Output");
}

void VolumeResampleNode::cookBody(BodyPtr& body)
{
    if (!(voxelSize > 0.f)) {
        std::printf("%s: the voxel size must be positive.\n", name().c_str());
        return;
    }
    VolumeData& volumes = *body->volumes;
    std::vector<std::pair<std::string, ResampleClass>> todo;
    for (const char* key : {"distance", "surface", "sdf"}) {
        if (!volumes.volume(key)) continue;
        const std::string k = key;
        todo.emplace_back(k, k == "sdf" ? ResampleClass::Keep : ResampleClass::LevelSet);
        break;
    }
    for (GridKind kind : {GridKind::Density, GridKind::Velocity, GridKind::Temperature, GridKind::Fuel}) {
        std::string key;
        if (findGridKind(volumes, kind, &key))
            todo.emplace_back(key, kind == GridKind::Density ? ResampleClass::Fog : ResampleClass::Keep);
    }
    for (const auto& [key, gridClass] : todo) {
        if (storeGrid(volumes, key, resampleGrid(volumes.volume(key), voxelSize, gridClass)) < 0)
            std::printf("%s: volume %s can't be resampled.\n", name().c_str(), key.c_str());
    }
}
