#include "nodes/meshtovolumenode.h"

#include "nodes/levelsetops.h"

#include <cmath>
#include <cstdio>

MeshToVolumeNode::MeshToVolumeNode(NodeMaster* master) : GeoNode(master)
{
    setType("Mesh-to-Volume");
    addParam(&voxelSize, "voxelSize", "Voxel Size", kParamFloat, "0.1", "Voxelsize in worldspace units.");
    addParam(&makeFog, "makeFog", "Make Fog Volume", kParamBool, "false",
             "Create a fog or zero-to-one mask instead of a distance volume.");
    addParam(&invert, "invert", "Invert", kParamBool, "false");
    addParam(&sdfInnerBand, "sdfInnerBand", "SDF Inner Band", kParamFloat, "3.0",
             "How far the voxel definition reaches into the object. In voxel units.");
    addParam(&sdfOuterBand, "sdfOuterBand", "SDF Outer Band", kParamFloat, "3.0",
             "How far the voxel definition reaches out from the surface. In voxel units.");
    addParam(&sdfPushOut, "sdfPushOut", "SDF Push Out", kParamFloat, "0");
    addParam(&velocityScale, "velocityScale", "Velocity Scale", kParamFloat, "1.0",
             "Scale all velocities coming from mesh transformations or deformations.");
    addParam(&sdfUpdateSubframes, "sdfUpdateSubframes", "Update SDF on Subframes", kParamBool, "false");
    addParam(&attribs, "attribs", "Keep Attributes", kParamString, "", "A list of attributes to transfer to the mesh.");
    addParam(&shell, "shell", "Shell", kParamBool, "false", "For non-closed surfaces.");
    addParam(&shellThickness, "shellThickness", "Shell Thickness", kParamFloat, "0.05",
             "The thickness if the surface when in shell mode.");
    addInput("Mesh-Input");
    addOutput("Volume-Output");
}

void MeshToVolumeNode::reset()
{
    GeoNode::reset();
    lastVolume.reset();
}

void MeshToVolumeNode::cookBody(BodyPtr& body)
{
    // Between whole frames the last frame's volume stands unless asked otherwise.
    const bool subframe = context.time - std::floor(context.time) > 0.0001f;
    if (subframe && !sdfUpdateSubframes && lastVolume && lastVolumeTime == std::floor(context.time)) {
        body = std::make_shared<Body>(*lastVolume);
        return;
    }
    MeshToVolumeSettings s;
    s.voxelSize = voxelSize;
    s.exteriorBand = sdfOuterBand;
    s.interiorBand = sdfInnerBand;
    s.shell = shell;
    s.shellThickness = shellThickness;
    s.pushOut = sdfPushOut;
    s.makeFog = makeFog;
    s.invert = invert;
    s.attribs = attribs;
    // Point velocities travel as a grid like any other kept attribute, scaled first.
    PointData& pts = *body->points;
    if (pts.hasV && velocityScale != 1.f)
        for (Vec4f& v : pts.v) {
            v.x *= velocityScale;
            v.y *= velocityScale;
            v.z *= velocityScale;
        }
    auto out = std::make_shared<Body>();
    if (meshToVolume(*out, *body, s) != 0)
        std::printf("%s: no triangles or quads to turn into a volume.\n", name().c_str());
    out->updateCounts();
    if (!subframe) {
        lastVolume = std::make_shared<Body>(*out);
        lastVolumeTime = context.time;
    }
    body = std::move(out);
}
