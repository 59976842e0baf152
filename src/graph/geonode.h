// GeoNode: the pull-based cook. A node asks its input for a Body at a time, the input asks
// its own input, and results that the next cook can reuse stay in the shared PlugCache.
// A node class writes its `process` from the helpers below (or just `cookBody` when it
// follows the common shape of processFilter), and overrides checkDirty and reset where
// it behaves differently from the default.
#pragma once

#include "geo/body.h"
#include "graph/basenode.h"
#include "graph/cookcaller.h"
#include "graph/plugcache.h"

#include <memory>
#include <mutex>
#include <string>
#include <vector>

class GeoNode : public BaseNode {
public:
    explicit GeoNode(NodeMaster* master);
    ~GeoNode() override;

    bool dirty = true;
    bool hardDirty = false;
    bool dynamic = false;
    bool dynamicUpstream = false;
    bool timeDependent = false;
    CookCaller caller;
    int outputIndex = 0;
    BodyPtr displayBody;
    BodyPtr storedBody;
    float storedTime = -9999.f;
    int visitCount = 0;
    float displaySize = 1.f;
    PlugCache* plugCache = nullptr;
    // The last cook's failure, for the editor; set together with `error`.
    std::string errorText;
    bool error = false;
    CookContext context; // of the process call under way
    // Rows that never make the node time dependent (besides the name row).
    std::vector<std::string> timeExcludedKeys;

    void draw() override;
    void updateViewport() override;
    void reset() override;
    virtual void process(BodyPtr& result, const CookCaller& caller) = 0;
    virtual void checkDirty(DirtyResult& result, const CookCaller& caller);
    void markCalled();

    // The process pattern, piece by piece. beginProcess locks nodeMutex for as long as
    // the returned lock lives, stores the caller and evaluates the rows at its time.
    std::unique_lock<std::mutex> beginProcess(const CookCaller& caller);
    // beginProcess into `lock`, then the stored dynamic result or the plug cache: true
    // when `result` is answered by either and the node has nothing left to do.
    bool prologue(BodyPtr& result, const CookCaller& caller, std::unique_lock<std::mutex>& lock);
    void finishProcess(BodyPtr& result, const CookCaller& caller, BodyPtr body, bool isStored);
    void retrieve(BodyPtr& result, const CookCaller& caller);
    void getInput(BodyPtr& result, int index, float time, bool noCopy);
    void fetchInput(BodyPtr& result, int index);
    // Pulls the listed inputs at the stored caller's time: the first on this thread, the
    // others as asynchronous tasks, and waits for all. Results in the order asked.
    std::vector<BodyPtr> fetchInputs(const std::vector<int>& indices);
    bool useStored() const;
    bool hasCache(float time);
    // The cache entry of the plug at outputIndex that serves `time`: any time for a node
    // that is neither time dependent nor below a dynamic source, else this exact time.
    bool findCache(float time, PlugCache::Entry& entry);
    void updateDisplay(const BodyPtr& body);
    void clearDirty();
    void storeCaller(const CookCaller& caller);
    void checkInput(Plug* plug, float time);
    void checkOwnParameters();
    void reportDirty(DirtyResult& result);

    void setError(const std::string& text);
    void clearError();
    bool isRunFlagOn() const;
    float currentTime() const; // the node master's cook time
    float graphDt() const;

    // The common shape: begin, stored result, cache, pull the first input, cookBody on it
    // when enabled, finish. A generator (no inputs) starts from an empty Body.
    void processFilter(BodyPtr& result, const CookCaller& caller);
    // The node's own work for processFilter. `body` is never null; a node may replace it.
    virtual void cookBody(BodyPtr& body);
    // The two-input shape: as processFilter, with the second input pulled alongside the
    // first; cookPair runs on the first input's Body when it exists and the node is enabled.
    void processPair(BodyPtr& result, const CookCaller& caller);
    // `second` is null when the second input is unwired or gave nothing.
    virtual void cookPair(BodyPtr& body, const Body* second);
};

// Nodes of two inputs that follow processPair.
#define QORVA_PAIR_PROCESS                                                                                   \
    void process(BodyPtr& result, const CookCaller& caller) override                                         \
    {                                                                                                        \
        processPair(result, caller);                                                                         \
    }

// Every GeoNode follows processFilter unless it says otherwise.
#define QORVA_FILTER_PROCESS                                                                                 \
    void process(BodyPtr& result, const CookCaller& caller) override                                         \
    {                                                                                                        \
        processFilter(result, caller);                                                                       \
    }
