#include "nodes/attribcreatenode.h"

#include "geo/attribtypes.h"

AttribCreateNode::AttribCreateNode(NodeMaster* master) : GeoNode(master)
{
    setType("Attrib-Create");
    addParam(&attribName, "attribName", "Name", kParamString, "", "The name of the attribute.");
    addEnum(&attribClass, "attribClass", "Class", {"Point"}, "Point", "What kind of attribute to create.");
    addEnum(&attribType, "attribType", "Type", {"Scalar", "Vector"}, "Scalar",
            "What kind of attribute to create. 0 is a scalar, 1 is a vector.");
    addInput("Input");
    addOutput("Output");
}

void AttribCreateNode::cookBody(BodyPtr& body)
{
    if (attribName.empty()) return;
    body->points->addAttrib(attribName, attribType == 1 ? ATTRIB_VECTOR : ATTRIB_FLOAT);
}
