// Plug: one input or output of a node, with a data type and the plugs at the other end
// of its wires. An input has at most one source; an output feeds any number of inputs.
// The dirty and dynamic flags are the last change check's answer as seen through the
// plug, so a consumer can ask whether its input reports a change.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class BaseNode;
class GeoNode;

class Plug {
public:
    enum Direction : int32_t { INPUT = 0, OUTPUT = 1 };
    enum DataType : int32_t { BODY = 0, SOURCE = 1, FORCE = 2, COLLIDER = 3, SINK = 4 };
    static const std::vector<std::string> directionNames; // "Input", "Output"
    static const std::vector<std::string> typeNames;      // "BODY", "Source", "Force", "Collider", "Sink"

    Plug(BaseNode* owner, int32_t direction, int32_t dataType = BODY,
         const std::string& name = std::string());

    std::vector<Plug*> connections;
    std::string name;
    int32_t direction = INPUT;
    int32_t dataType = BODY;
    int32_t id = -1;
    int32_t index = 0;
    BaseNode* owner = nullptr;
    bool dirty = false, hardDirty = false, dynamic = false, dynamicUpstream = false;
    bool noCopy = false; // a pull through this input may take the upstream Body by reference
    bool verbose = false;

    bool isInput() const { return direction == INPUT; }
    // The plug feeding this input (null when unwired); an output answers itself.
    Plug* sourcePlug() const;
    // The node of sourcePlug() when it is a GeoNode, else null.
    GeoNode* sourceNode() const;
    // Whether the last change check saw a change through this plug.
    bool reportsChange() const { return dirty || hardDirty; }
    // Whether the node feeding this input turned out time dependent in the last check.
    bool sourceTimeDependent() const;

    // Wires an output and an input (either order). The index of the new wire in a's
    // list, or -1: same direction, other data type, same node, or a wire that would
    // close a loop (a cook over a loop would wait on itself).
    static int connect(Plug* a, Plug* b);
    static void disconnect(Plug* a, Plug* b);
    // Removes every wire of this plug.
    void disconnectAll();
};
