// NodeMaster over an empty graph: every operation is a clean no-op.
#include "graph/nodemaster.h"

void NodeMaster::resetNodes() {}
void NodeMaster::resetAll() {}
void NodeMaster::processSystemNodes() {}
void NodeMaster::cook(float, bool) {}
ParameterSet* NodeMaster::findNodeParameters(const std::string&) { return nullptr; }
