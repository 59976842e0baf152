#include "nodes/particletovolumenode.h"

#include "nodes/levelsetops.h"

#include <cstdio>

ParticleToVolumeNode::ParticleToVolumeNode(NodeMaster* master) : GeoNode(master)
{
    setType("Particle-to-Volume");
    addParam(&radius, "radius", "Radius", kParamFloat, "0.15", "The size of each particle in the volume.");
    addParam(&voxelSize, "voxelSize", "Voxel Size", kParamFloat, "0.1", "Controls the mesh resolution.");
    addParam(&makeFog, "makeFog", "Make Fog Volume", kParamBool, "false",
             "Create a fog or zero-to-one mask instead of a distance volume.");
    addParam(&invert, "invert", "Invert", kParamBool, "false");
    addParam(&sdfBand, "sdfBand", "SDF Band", kParamInt, "1", "Amount of half band voxels around the sdf's surface.");
    addParam(&scaleByAttrib, "scaleByAttrib", "Scale by Attrib", kParamString, "scale",
             "Look for this attribute to scale the points.");
    addParam(&attribs, "attribs", "Keep Attributes", kParamString, "", "A list of attributes to put into the volume.");
    addInput("Particles");
    addOutput("Volume");
}

void ParticleToVolumeNode::cookBody(BodyPtr& body)
{
    auto out = std::make_shared<Body>();
    if (pointsToVolume(*out, *body, voxelSize, radius, sdfBand, makeFog, invert, scaleByAttrib, attribs) != 0)
        std::printf("%s: the voxel size must be above zero.\n", name().c_str());
    out->updateCounts();
    body = std::move(out);
}
