// Without a mask every active value is multiplied by `scale`. With one, the mask's
// distance grid becomes a 0..1 fog (on a copy) and each voxel takes 1 + (scale - 1) * fog,
// the fog read at the voxel's world position.
#include "nodes/volumescalenode.h"

#include "geo/gridutil.h"
#include "nodes/levelsetops.h"
#include "nodes/volumeops.h"

#include <algorithm>
#include <cstdio>
#include <vector>

VolumeScaleNode::VolumeScaleNode(NodeMaster* master) : GeoNode(master)
{
    setType("Volume-Scale");
    addEnum(&volumeToScale, "volumeToScale", "Volume To Scale", volumeKindMenu(), "Density",
            "Choose which volume to scale.");
    addParam(&scale, "scale", "Scale", kParamFloat, "1.0", "Scale by this value.");
    addInput("Volume-Input");
    addInput("Mask-Input");
    addOutput("Output");
}

void VolumeScaleNode::cookPair(BodyPtr& body, const Body* second)
{
    scaleVolume(*body, second);
}

void VolumeScaleNode::scaleVolume(Body& body, const Body* mask)
{
    const GridKind kind = GridKind(std::clamp(volumeToScale, int32_t(0), int32_t(3)));
    GridBasePtr grid = findGridKind(*body.volumes, kind);
    if (!grid) {
        std::printf("%s: the volume to scale doesn't exist.\n", name().c_str());
        return;
    }
    GridBasePtr fog;
    if (mask) {
        GridBasePtr maskSdf = findDistanceGrid(*mask->volumes);
        if (!maskSdf) {
            std::printf("%s: mask volume doesn't have sdf.\n", name().c_str());
            return;
        }
        fog = deepCopyGrid(maskSdf);
        if (levelSetToFog(fog) != 0) {
            std::printf("%s: the mask can't be turned into a fog volume.\n", name().c_str());
            return;
        }
    }
    if (scaleGrid(grid, scale, fog) != 0)
        std::printf("%s: only float and vector volumes can be scaled.\n", name().c_str());
}
