#include "nodes/attribremovenode.h"

AttribRemoveNode::AttribRemoveNode(NodeMaster* master) : GeoNode(master)
{
    setType("Attrib-Remove");
    addParam(&attribName, "attribName", "Attrib Name", kParamString, "",
             "The name of the attribute to delete (for example \"v\" or \"P\")");
    addInput("Input");
    addOutput("Output");
}

void AttribRemoveNode::cookBody(BodyPtr& body)
{
    if (!attribName.empty()) body->points->removeAttrib(attribName);
}
