// NodeMaster: owner of the procedural graph's nodes and the entry to a cook. The graph
// itself arrives with the node classes; until then the master answers for an empty
// graph, so the solver loop calls it in its final order already.
#pragma once

#include <string>

class ParameterSet;

class NodeMaster {
public:
    // Step length the graph sees: dt while system nodes run, 1/fps for a frame's cook.
    float graphDt = 1.f / 24.f;
    bool verbose = false;

    // Calls the reset slot of every node.
    void resetNodes();
    // Resets every node, marks it dirty and clears the plug cache.
    void resetAll();
    // Runs the process slot of every system node.
    void processSystemNodes();
    // Cooks the graph's targets; `run` is set while the solver is playing.
    void cook(float time, bool run);
    // The parameter set of the node called `name`, or null.
    ParameterSet* findNodeParameters(const std::string& name);
};
