// The graph side of the classic systems: nodes that hold an object id and a Body of their
// own and carry the parameter tables of a classic system or source. They sit directly under
// BaseNode: the cook passes them by; the solver loop calls SPHSystemNode::process once per
// substep (NodeMaster::runSystemNodes).
#pragma once

#include "geo/body.h"
#include "graph/basenode.h"

#include <memory>

class SimpleSPHParticleSystem;
class Source;

class SystemNode : public BaseNode {
public:
    explicit SystemNode(NodeMaster* master);
    ~SystemNode() override;
    void draw() override {}
    void updateViewport() override {}
    // Forgets the object id and the held Body.
    void reset() override;

    int32_t objectId = -1;
    BodyPtr body;
};

// A classic source's rows (plane emission by default). Wired by its output into an
// SPHSystemNode, it emits into that node's Body.
class SourceSystemNode : public SystemNode {
public:
    explicit SourceSystemNode(NodeMaster* master);
    ~SourceSystemNode() override;
    // Runs the source's emission into `target` at particle spacing `spacing`; answers the
    // particles added.
    int emitInto(Body& target, float spacing);

    std::unique_ptr<Source> source;
};

class SPHSystemNode : public SystemNode {
public:
    explicit SPHSystemNode(NodeMaster* master);
    ~SPHSystemNode() override;
    // Once a substep: every connected SourceSystemNode emits into the node's Body. No solve
    // follows.
    void process();

    // Holds the rows (and with them the particle spacing emission uses).
    std::unique_ptr<SimpleSPHParticleSystem> system;
};

// Plain holders with one output plug each.
class ColliderSystemNode : public SystemNode {
public:
    explicit ColliderSystemNode(NodeMaster* master);
};

class ForceSystemNode : public SystemNode {
public:
    explicit ForceSystemNode(NodeMaster* master);
};

class SinkSystemNode : public SystemNode {
public:
    explicit SinkSystemNode(NodeMaster* master);
};
