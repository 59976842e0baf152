// The unmasked offset is levelSetOffset; the masked one runs OpenVDB's level-set offset
// with the mask sdf as the alpha mask (full inside the mask solid, fading out across
// sdfMaskSmoothness up to its surface). A positive amount moves the surface inwards.
#include "nodes/volumeerodenode.h"

#include "nodes/levelsetops.h"
#include "nodes/volumeops.h"

#include <cstdio>
#include <exception>
#include <string>
#include <vector>

VolumeErodeNode::VolumeErodeNode(NodeMaster* master) : GeoNode(master)
{
    setType("Volume-Erode");
    addParam(&erodeAmount, "erodeAmount", "Erode Amount", kParamFloat, "0.01",
             "Shrinks the volume by this amount.");
    addParam(&invertMask, "invertMask", "Invert Mask", kParamBool, "false",
             "Invert the second input's mask field.");
    addParam(&sdfMaskSmoothness, "sdfMaskSmoothness", "Mask Smoothness", kParamFloat, "0.05",
             "Fades the mask on the sdf's interface.");
    addInput("Volume-Input");
    addInput("Mask-Input");
    addOutput("Volume-Output");
}

void VolumeErodeNode::cookPair(BodyPtr& body, const Body* second)
{
    erode(*body, second);
}

void VolumeErodeNode::erode(Body& body, const Body* mask)
{
    GridBasePtr grid = findDistanceGrid(*body.volumes);
    if (!grid) {
        std::printf("%s: main volume doesn't have sdf.\n", name().c_str());
        return;
    }
    if (!mask) {
        int done = -1;
        try {
            done = levelSetOffset(grid, erodeAmount);
        } catch (const std::exception&) {
            // OpenVDB refuses grids that aren't uniform level sets
        }
        if (done != 0) std::printf("%s: the volume can't be eroded.\n", name().c_str());
        return;
    }
    GridBasePtr maskSdf = findDistanceGrid(*mask->volumes);
    if (!maskSdf) {
        std::printf("%s: mask volume doesn't have sdf.\n", name().c_str());
        return;
    }
    if (offsetLevelSetMasked(grid, erodeAmount, maskSdf, sdfMaskSmoothness, invertMask) != 0)
        std::printf("%s: the volume can't be eroded.\n", name().c_str());
}
