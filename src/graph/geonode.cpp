// GeoNode: the cook pattern shared by every geometry node: caller bookkeeping, the
// stored and cached results, the rule of what goes into the plug cache, the change check
// and the display hand-over.
#include "graph/geonode.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "graph/nodemaster.h"
#include "graph/plug.h"
#include "graph/plugcache.h"
#include "graph/vbo.h"

#include <cstdio>
#include <future>

GeoNode::GeoNode(NodeMaster* master) : BaseNode(master)
{
    if (master) plugCache = master->plugCache.get();
}

GeoNode::~GeoNode()
{
    if (plugCache)
        for (Plug* p : outputs) plugCache->removeCache(p);
}

float GeoNode::currentTime() const
{
    return nodeMaster ? nodeMaster->currentTime() : (simState ? float(simState->frame) : 0.f);
}

float GeoNode::graphDt() const
{
    return nodeMaster ? nodeMaster->graphDt : 1.f / 24.f;
}

bool GeoNode::isRunFlagOn() const
{
    return !nodeMaster || nodeMaster->runFlag;
}

void GeoNode::setError(const std::string& text)
{
    errorText = text;
    error = true;
}

void GeoNode::clearError()
{
    errorText.clear();
    error = false;
}

// ---- display ----

void GeoNode::draw()
{
    // the window draws the Vbo's buffers; nothing to do without one
}

void GeoNode::updateViewport()
{
    if (!vbo) return;
    std::lock_guard<std::mutex> lock(vbo->mutex);
    if (!visibility || !displayBody) {
        if (vbo->holdsData) vbo->clear();
        return;
    }
    if (!vbo->uploadRequested) return;
    const Body& b = *displayBody;
    if (b.points->size() == 0 && b.prims->size() == 0 && b.volumes->size() == 0) {
        displayBody.reset();
        vbo->clear();
    } else {
        vbo->upload(displayBody);
    }
    vbo->size = displaySize;
    vbo->id = id;
    vbo->uploadRequested = false;
}

void GeoNode::updateDisplay(const BodyPtr& body)
{
    if ((simState && simState->headless) || !visibility || !vbo) return;
    BodyPtr copy = body ? std::make_shared<Body>(*body) : nullptr; // copied outside the lock
    std::lock_guard<std::mutex> lock(vbo->mutex);
    if (!copy) {
        if (displayBody) vbo->uploadRequested = true;
        displayBody.reset();
        return;
    }
    displayBody = std::move(copy);
    vbo->uploadRequested = true;
}

void GeoNode::reset()
{
    storedBody.reset();
    storedTime = -9999.f;
    if (vbo) {
        std::lock_guard<std::mutex> lock(vbo->mutex);
        if (displayBody) vbo->uploadRequested = true;
        displayBody.reset();
    } else {
        displayBody.reset();
    }
}

// ---- the process pattern ----

void GeoNode::storeCaller(const CookCaller& c)
{
    caller = c;
    outputIndex = -1;
    if (!outputs.empty() && outputs.front()) outputIndex = 0;
    for (size_t i = 0; i < outputs.size(); ++i)
        for (Plug* p : outputs[i]->connections)
            if (c.plug && p == c.plug) outputIndex = int(i);
    // every row, `enabled` among them: a disabled node still shows its values
    params.evaluateAll(c.time, 0);
    context = CookContext();
    context.time = c.time;
    context.inputIndex = outputIndex;
    context.graphDt = graphDt();
    context.print = nodeMaster && nodeMaster->verbose > 0;
}

std::unique_lock<std::mutex> GeoNode::beginProcess(const CookCaller& c)
{
    std::unique_lock<std::mutex> lock(nodeMutex);
    storeCaller(c);
    return lock;
}

bool GeoNode::prologue(BodyPtr& result, const CookCaller& c, std::unique_lock<std::mutex>& lock)
{
    lock = beginProcess(c);
    if (useStored()) {
        finishProcess(result, c, storedBody, true);
        return true;
    }
    if (hasCache(c.time)) {
        retrieve(result, c);
        return true;
    }
    return false;
}

bool GeoNode::useStored() const
{
    if (storedBody && caller.time == storedTime) return true;
    return nodeMaster && !nodeMaster->runFlag && dynamic;
}

bool GeoNode::findCache(float time, PlugCache::Entry& entry)
{
    Plug* out = outputPlug(outputIndex);
    if (!out || !plugCache) return false;
    if (!timeDependent && !dynamicUpstream) return plugCache->get(out, entry);
    return plugCache->getAt(out, time, entry);
}

bool GeoNode::hasCache(float time)
{
    PlugCache::Entry e;
    return !dirty && findCache(time, e);
}

void GeoNode::clearDirty()
{
    dirty = false;
    hardDirty = false;
    params.clearChanged();
    for (Parameter& row : params.parameters) row.lastResolved = row.resolved;
    for (std::vector<Plug*>* list : {&inputs, &outputs})
        for (Plug* p : *list) p->dirty = p->hardDirty = false;
}

void GeoNode::retrieve(BodyPtr& result, const CookCaller& c)
{
    clearDirty();
    const bool now = c.time == currentTime();
    const bool shifted = nodeKey == "timeshift";
    PlugCache::Entry e;
    if (!findCache(c.time, e) || !e.body) {
        if (now) updateDisplay(nullptr);
        result.reset();
        return;
    }
    if (c.atRoot) {
        result = e.body; // the cache's own Body, for a reader that changes nothing
        result->isCached = true;
        if (!now && !shifted) return;
        if (!timeDependent && displayBody) return;
        updateDisplay(result);
        return;
    }
    if (!displayBody && (now || shifted)) updateDisplay(e.body);
    result = std::make_shared<Body>(*e.body);
    result->isCached = false;
}

namespace {

// Whether a caller with these parameters wants the result kept (tests 3, 5, 6, 8 of
// the caching rule).
bool callerParamsAskForCache(const GeoNode& callerNode, int test)
{
    const ParameterSet& p = callerNode.params;
    switch (test) {
    case 3:
        for (const Parameter& row : p.parameters)
            if (row.type != kParamObjectName && row.isTimeDependent()) return true;
        return false;
    case 5:
        return p.edited;
    case 6:
        return p.anyTextChanged();
    case 8:
        return p.anyValueChanged();
    default:
        return false;
    }
}

} // namespace

void GeoNode::finishProcess(BodyPtr& result, const CookCaller& c, BodyPtr body, bool isStored)
{
    if (!isStored && (c.time == currentTime() || nodeKey == "timeshift")) updateDisplay(body);
    clearDirty();
    Plug* out = outputPlug(outputIndex);
    if (!body) {
        if (out && plugCache) plugCache->removeCache(out);
        result.reset();
        return;
    }
    if (body->isDynamic) {
        storedBody = body;
        storedTime = c.time;
        result = body;
        return;
    }
    const GeoNode* from = c.node;
    const int32_t start = simState ? simState->startFrame : 0;
    const int32_t frameNow = nodeMaster ? nodeMaster->frame() : 0;
    const bool cache =
        outputs.size() >= 2 || processFlag || (!outputs.empty() && outputs.front()->connections.size() > 1) ||
        (from && callerParamsAskForCache(*from, 3)) || nodeKey == "end-dynamic" ||
        (from && callerParamsAskForCache(*from, 5)) || (from && callerParamsAskForCache(*from, 6)) ||
        (from && from->dirty && frameNow != start) || (from && callerParamsAskForCache(*from, 8)) ||
        (from && c.atRoot && from->dynamic);
    if (cache && out && plugCache) {
        plugCache->addCache(body, out, c.time);
        retrieve(result, c);
        return;
    }
    if (out && plugCache) plugCache->removeCache(out);
    if (body->isCached && !c.atRoot) {
        result = std::make_shared<Body>(*body);
        result->isCached = false;
    } else {
        result = std::move(body);
    }
}

void GeoNode::getInput(BodyPtr& result, int index, float time, bool noCopy)
{
    result.reset();
    Plug* in = inputPlug(index);
    if (!in) return;
    GeoNode* source = in->sourceNode();
    if (!source) return;
    CookCaller c;
    c.node = this;
    c.plug = in;
    c.time = time;
    c.atRoot = noCopy;
    source->process(result, c);
}

void GeoNode::fetchInput(BodyPtr& result, int index)
{
    const Plug* in = inputPlug(index);
    getInput(result, index, caller.time, in && in->noCopy);
}

std::vector<BodyPtr> GeoNode::fetchInputs(const std::vector<int>& indices)
{
    std::vector<BodyPtr> results(indices.size());
    std::vector<std::future<void>> pending;
    for (size_t i = 1; i < indices.size(); ++i)
        pending.push_back(std::async(std::launch::async | std::launch::deferred,
                                     [this, &results, &indices, i] { fetchInput(results[i], indices[i]); }));
    if (!indices.empty()) fetchInput(results[0], indices[0]);
    for (auto& f : pending) f.get();
    return results;
}

// ---- the change check ----

void GeoNode::checkInput(Plug* plug, float time)
{
    if (!plug) return;
    if (plug->dirty) dirty = true;
    GeoNode* source = plug->sourceNode();
    if (!source) return;
    DirtyResult r;
    CookCaller c;
    c.node = this;
    c.plug = plug;
    c.time = time;
    source->checkDirty(r, c);
    if (r.dirty) dirty = plug->dirty = true;
    if (r.hardDirty) hardDirty = plug->hardDirty = true;
    if (r.timeDependent) timeDependent = true;
    if (r.dynamic) dynamic = plug->dynamic = true;
    if (r.dynamicUpstream) dynamicUpstream = plug->dynamicUpstream = true;
}

void GeoNode::checkOwnParameters()
{
    if (params.anyTextChanged()) dirty = hardDirty = true;
    if (params.anyValueChanged()) dirty = true;
    for (const Parameter& row : params.parameters) {
        if (row.type == kParamObjectName) continue;
        bool excluded = false;
        for (const std::string& k : timeExcludedKeys) excluded = excluded || k == row.key;
        if (!excluded && row.isTimeDependent()) timeDependent = true;
    }
}

void GeoNode::reportDirty(DirtyResult& r)
{
    Plug* out = outputPlug(outputIndex);
    if (dirty && out && plugCache) plugCache->removeCache(out);
    r.dirty = dirty;
    r.hardDirty = hardDirty;
    r.timeDependent = timeDependent;
    r.dynamic = dynamic;
    r.dynamicUpstream = dynamicUpstream;
    if (dynamic) {
        if (!outputs.empty()) outputs.front()->dynamic = true;
        if (outputIndex != 0) r.dynamic = false;
    }
    if (dynamicUpstream && !outputs.empty()) outputs.front()->dynamicUpstream = true;
}

void GeoNode::checkDirty(DirtyResult& r, const CookCaller& c)
{
    storeCaller(c);
    for (Plug* in : inputs) checkInput(in, c.time);
    checkOwnParameters();
    reportDirty(r);
}

void GeoNode::markCalled()
{
    ++visitCount;
    for (Plug* in : inputs)
        if (GeoNode* source = in->sourceNode()) source->markCalled();
}

// ---- the common shape ----

void GeoNode::cookBody(BodyPtr&) {}

void GeoNode::processFilter(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    BodyPtr body;
    if (inputs.empty()) {
        body = std::make_shared<Body>();
    } else {
        fetchInput(body, 0);
    }
    if (body && enabled) cookBody(body);
    finishProcess(result, c, std::move(body), false);
}

void GeoNode::processPair(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    std::vector<BodyPtr> in = fetchInputs({0, 1});
    BodyPtr body = in[0];
    if (body && enabled) cookPair(body, in[1].get());
    finishProcess(result, c, std::move(body), false);
}

void GeoNode::cookPair(BodyPtr&, const Body*) {}
