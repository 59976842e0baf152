// Gravity: works on the running Body in place; a Body without velocities passes unchanged.
#include "nodes/gravitynode.h"

GravityNode::GravityNode(NodeMaster* master) : GeoNode(master)
{
    setType("Gravity");
    addParam(&gravityX, "gravityX", "Gravity X", kParamFloat, "0", "Gravity in X.");
    addParam(&gravityY, "gravityY", "Gravity Y", kParamFloat, "-9.81", "Gravity in Y.");
    addParam(&gravityZ, "gravityZ", "Gravity Z", kParamFloat, "0", "Gravity in Z.");
    addInput("Dynamic-Input", true);
    addOutput("Dynamic-Output");
}

void GravityNode::cookBody(BodyPtr& body)
{
    PointData& pd = *body->points;
    if (!pd.hasV) return;
    const float dt = graphDt();
    const Vec4f dv(gravityX * dt, gravityY * dt, gravityZ * dt, 0.f);
    for (Vec4f& v : pd.v) v += dv;
}
