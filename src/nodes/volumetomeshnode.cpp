#include "nodes/volumetomeshnode.h"

#include "nodes/levelsetops.h"

#include <cstdio>
#include <memory>

VolumeToMeshNode::VolumeToMeshNode(NodeMaster* master) : GeoNode(master)
{
    setType("Volume-to-Mesh");
    addParam(&isoValue, "isoValue", "Iso Value", kParamFloat, "0.0",
             "Where to create the surface in the volume. Usually keep this on 0.0 for regular solid volume "
             "inputs and on a value between 0.0 and 1.0 for fog density volumes.");
    addParam(&adaptivity, "adaptivity", "Adaptivity", kParamFloat, "0.05", "Reduces mesh-complexity.");
    addParam(&attribs, "attribs", "Keep Attributes", kParamString, "v uv",
             "A list of attributes to transfer to the mesh.");
    addInput("Volume-Input");
    addOutput("Mesh-Output");
}

void VolumeToMeshNode::cookBody(BodyPtr& body)
{
    auto mesh = std::make_shared<Body>();
    if (volumeToMeshBody(*body, *mesh, isoValue, adaptivity, attribs) != 0) {
        std::printf("%s: volume has no grid to mesh.\n", name().c_str());
        return;
    }
    mesh->updateCounts();
    body = std::move(mesh);
}
