// The records a cook passes along: who asks a node for its result, what a change check
// answers, and the context a node's work sees.
#pragma once

class GeoNode;
class Plug;

// Who asked last: the asking node and its input plug, or nulls at the root of a cook.
struct CookCaller {
    GeoNode* node = nullptr;
    Plug* plug = nullptr;
    float time = -1.f;
    bool atRoot = false;
};

// What a change check answers.
struct DirtyResult {
    bool dirty = false;
    bool hardDirty = false;
    bool timeDependent = false;
    bool dynamic = false;
    bool dynamicUpstream = false;
};

// The context of one process call, filled by beginProcess.
struct CookContext {
    float time = 0.f;   // the time asked for
    int inputIndex = 0; // the output plug the caller reads (outputIndex)
    float graphDt = 1.f / 24.f;
    bool print = false; // verbose output of the node master
    bool done = false;  // set by a node that ended its work early
};
