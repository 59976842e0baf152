#include "nodes/volumefilternode.h"

#include "geo/gridutil.h"
#include "nodes/levelsetops.h"

#include <cstdio>
#include <exception>
#include <vector>

VolumeFilterNode::VolumeFilterNode(NodeMaster* master) : GeoNode(master)
{
    setType("Volume-Filter");
    addParam(&filterStrength, "filterStrength", "Filter Strength", kParamFloat, "0.3",
             "Strength of the smoothing.");
    addEnum(&filterType, "filterType", "Filter Type", {"Gauss", "Mean", "Median", "Laplace"}, "Gauss");
    addParam(&filterWidth, "filterWidth", "Filter Voxel Width", kParamInt, "1");
    addParam(&filterIterations, "filterIterations", "Filter Iterations", kParamInt, "1");
    addInput("Volume-Input");
    addInput("Mask-Input");
    addOutput("Volume-Output");
}

void VolumeFilterNode::cookPair(BodyPtr& body, const Body* second)
{
    filter(*body, second);
}

void VolumeFilterNode::filter(Body& body, const Body* mask)
{
    GridBasePtr grid = findDistanceGrid(*body.volumes);
    if (!grid) {
        std::printf("%s: volume doesn't have sdf.\n", name().c_str());
        return;
    }
    GridBasePtr fog;
    if (mask) {
        GridBasePtr maskSdf = findDistanceGrid(*mask->volumes);
        if (!maskSdf) {
            std::printf("%s: mask volume doesn't have sdf.\n", name().c_str());
            return;
        }
        // the filter reads its mask as 0..1: a fog of the mask solid, made on a copy
        fog = deepCopyGrid(maskSdf);
        if (levelSetToFog(fog) != 0) fog.reset();
    }
    int done = -1;
    try {
        done = filterLevelSet(grid, filterType, filterWidth, filterIterations, filterStrength, fog);
    } catch (const std::exception&) {
        // OpenVDB refuses grids that aren't uniform level sets
    }
    if (done != 0) std::printf("%s: the volume can't be filtered.\n", name().c_str());
}
