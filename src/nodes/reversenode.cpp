// Reverse: Body::reversePrims on the incoming geometry; points stay as they are.
#include "nodes/reversenode.h"

ReverseNode::ReverseNode(NodeMaster* master) : GeoNode(master)
{
    setType("Reverse");
    addInput("Mesh-Input");
    addOutput("Mesh-Output");
}

void ReverseNode::cookBody(BodyPtr& body)
{
    body->reversePrims();
}
