#include "nodes/nullnode.h"

NullNode::NullNode(NodeMaster* master) : GeoNode(master)
{
    setType("Null");
    addInput("Input", true);
    addOutput("Output");
}
