#include "nodes/normalsnode.h"

NormalsNode::NormalsNode(NodeMaster* master) : GeoNode(master)
{
    setType("Normals");
    addInput("Geo-Input");
    addOutput("Geo-Output");
}
