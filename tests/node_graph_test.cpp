// The cook: plug rules, dirty propagation, time dependence, the plug cache's copy rules,
// dynamic chains and threaded targets, over small test nodes that count their cooks.
#include "testenv.h"

#include "graph/geonode.h"
#include "graph/nodemaster.h"
#include "graph/plug.h"
#include "graph/plugcache.h"
#include "nodes/nullnode.h"

#include <gtest/gtest.h>

#include <atomic>

namespace {

// Makes `count` points at x = offset + i; the row "offset" may hold an expression.
class SourceNode : public GeoNode {
public:
    explicit SourceNode(NodeMaster* m) : GeoNode(m)
    {
        setType("TestSource");
        addParam(&offset, "offset", "Offset", kParamFloat, "0");
        addParam(&count, "count", "Count", kParamInt, "3");
        addOutput("Output");
    }
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override
    {
        ++cooks;
        for (int i = 0; i < count; ++i) body->points->addPoint(Vec4f(offset + float(i), 0.f, 0.f, 0.f));
    }
    float offset = 0.f;
    int32_t count = 3;
    std::atomic<int> cooks{0};
};

// Adds `amount` to every y, in place.
class LiftNode : public GeoNode {
public:
    explicit LiftNode(NodeMaster* m) : GeoNode(m)
    {
        setType("TestLift");
        addParam(&amount, "amount", "Amount", kParamFloat, "1");
        addInput("Input");
        addOutput("Output");
    }
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override
    {
        ++cooks;
        for (Vec4f& p : body->points->P) p.y += amount;
        last = body;
    }
    float amount = 1.f;
    std::atomic<int> cooks{0};
    BodyPtr last;
};

// Starts a dynamic chain: holds one Body and adds a point to it on every step.
class TestOriginNode : public GeoNode {
public:
    explicit TestOriginNode(NodeMaster* m) : GeoNode(m)
    {
        setType("TestOrigin");
        addOutput("Output");
    }
    void checkDirty(DirtyResult& r, const CookCaller& c) override
    {
        GeoNode::checkDirty(r, c);
        r.dynamic = r.dynamicUpstream = dynamic = dynamicUpstream = true;
        outputs.front()->dynamic = outputs.front()->dynamicUpstream = true;
    }
    void process(BodyPtr& result, const CookCaller& c) override
    {
        auto lock = beginProcess(c);
        if (useStored()) {
            finishProcess(result, c, storedBody, true);
            return;
        }
        BodyPtr body = storedBody ? storedBody : std::make_shared<Body>();
        body->isDynamic = true;
        body->points->addPoint(Vec4f(c.time, 0.f, 0.f, 0.f));
        finishProcess(result, c, body, false);
    }
};

class NodeGraphTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        nodeMaster->clearGraph();
        nodeMaster->plugCache->keepBetweenCooks = true;
        simulation->clear();
        simState->frame = 1;
        simState->frameF = 1.f;
        simState->startFrame = 1;
        simState->paused = false;
    }
    template <class T> T* add()
    {
        auto* n = new T(nodeMaster);
        n->setName(nodeMaster->uniqueNodeName(n->name()));
        nodeMaster->registerNode(n);
        return n;
    }
    static void wire(BaseNode* a, BaseNode* b, int in = 0)
    {
        ASSERT_EQ(nodeMaster->connectPlugs(a->outputPlug(0), b->inputPlug(in)), 0);
    }
    static void setRow(BaseNode* n, const std::string& key, const std::string& text)
    {
        n->params.get(key)->text = text;
    }
    static void atFrame(int f)
    {
        simState->frame = f;
        simState->frameF = float(f);
    }
};

TEST_F(NodeGraphTest, IdsStartAt2048AndPlugNamesAreMadeUnique)
{
    NullNode* n = add<NullNode>();
    EXPECT_EQ(n->id, 2048);
    EXPECT_EQ(n->inputs.front()->id, 0);
    n->addInput("Input");
    n->addInput("Input");
    ASSERT_EQ(n->inputs.size(), 3u);
    EXPECT_EQ(n->inputs[1]->name, "Input1");
    EXPECT_EQ(n->inputs[2]->name, "Input2");
    EXPECT_EQ(n->inputs[2]->index, 2);
    testing::internal::CaptureStdout();
    EXPECT_EQ(n->findPlug("nothing"), nullptr);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "Plug \"nothing\" not found.\n");
}

TEST_F(NodeGraphTest, ConnectRefusesWrongPairsAndLoops)
{
    NullNode* a = add<NullNode>();
    NullNode* b = add<NullNode>();
    NullNode* c = add<NullNode>();
    EXPECT_EQ(Plug::connect(a->outputPlug(0), b->outputPlug(0)), -1);
    EXPECT_EQ(Plug::connect(a->outputPlug(0), a->inputPlug(0)), -1);
    Plug other(c, Plug::INPUT, Plug::FORCE);
    EXPECT_EQ(Plug::connect(a->outputPlug(0), &other), -1);
    wire(a, b);
    wire(b, c);
    testing::internal::CaptureStdout();
    EXPECT_EQ(Plug::connect(c->outputPlug(0), a->inputPlug(0)), -1) << "a loop must be refused";
    EXPECT_NE(testing::internal::GetCapturedStdout().find("loop"), std::string::npos);
    EXPECT_TRUE(a->inputPlug(0)->connections.empty());
    EXPECT_EQ(b->inputPlug(0)->connections.size(), 1u) << "the refused wire left b's input alone";
}

TEST_F(NodeGraphTest, ReplacingAWireLeavesOneSourceAndDirtiesTheInput)
{
    SourceNode* s1 = add<SourceNode>();
    SourceNode* s2 = add<SourceNode>();
    NullNode* n = add<NullNode>();
    wire(s1, n);
    n->inputPlug(0)->dirty = false;
    wire(s2, n);
    ASSERT_EQ(n->inputPlug(0)->connections.size(), 1u);
    EXPECT_EQ(n->inputPlug(0)->sourceNode(), s2);
    EXPECT_TRUE(s1->outputPlug(0)->connections.empty());
    EXPECT_TRUE(n->inputPlug(0)->dirty);
}

TEST_F(NodeGraphTest, AnEditRecooksExactlyTheNodesBelowIt)
{
    // src feeds two branches; only the branch below the edited node cooks again
    SourceNode* src = add<SourceNode>();
    LiftNode* a = add<LiftNode>();
    LiftNode* b = add<LiftNode>();
    LiftNode* c = add<LiftNode>();
    wire(src, a);
    wire(a, b);
    wire(src, c);
    b->processFlag = c->processFlag = true;
    nodeMaster->cook(true);
    EXPECT_EQ(src->cooks, 1);
    EXPECT_EQ(a->cooks, 1);
    EXPECT_EQ(b->cooks, 1);
    EXPECT_EQ(c->cooks, 1);
    nodeMaster->cook(true);
    EXPECT_EQ(src->cooks + a->cooks + b->cooks + c->cooks, 4) << "a clean graph cooks nothing";
    setRow(a, "amount", "5");
    nodeMaster->cook(true);
    EXPECT_EQ(src->cooks, 1);
    EXPECT_EQ(a->cooks, 2);
    EXPECT_EQ(b->cooks, 2);
    EXPECT_EQ(c->cooks, 1);
    ASSERT_TRUE(b->last);
    EXPECT_FLOAT_EQ(b->last->points->P[0].y, 6.f);
}

TEST_F(NodeGraphTest, WithoutTheMemoryCacheEveryCookComputesAfreshAndKeepsNothing)
{
    // src feeds two targets: within one cook they still share its result.
    SourceNode* src = add<SourceNode>();
    LiftNode* a = add<LiftNode>();
    LiftNode* b = add<LiftNode>();
    wire(src, a);
    wire(src, b);
    a->processFlag = b->processFlag = true;
    nodeMaster->plugCache->keepBetweenCooks = false;
    nodeMaster->cook(true);
    EXPECT_EQ(src->cooks, 1);
    EXPECT_EQ(nodeMaster->plugCache->size(), 0u);
    nodeMaster->cook(true);
    EXPECT_EQ(src->cooks, 2);
    EXPECT_EQ(a->cooks, 2);
    ASSERT_TRUE(a->last);
    EXPECT_FLOAT_EQ(a->last->points->P[0].y, 1.f) << "the same result as a cached cook";

    nodeMaster->plugCache->keepBetweenCooks = true;
    nodeMaster->cook(true);
    const int cooks = src->cooks + a->cooks + b->cooks;
    nodeMaster->cook(true);
    EXPECT_EQ(src->cooks + a->cooks + b->cooks, cooks) << "kept results serve the next cook";
    EXPECT_GT(nodeMaster->plugCache->size(), 0u);
}

TEST_F(NodeGraphTest, TimeDependentNodesCookEveryFrameAndOthersServeFromCache)
{
    SourceNode* still = add<SourceNode>();
    SourceNode* moving = add<SourceNode>();
    setRow(moving, "offset", "frame * 2");
    LiftNode* a = add<LiftNode>();
    LiftNode* b = add<LiftNode>();
    wire(still, a);
    wire(moving, b);
    a->processFlag = b->processFlag = true;
    for (int f = 1; f <= 3; ++f) {
        atFrame(f);
        nodeMaster->cook(true);
    }
    EXPECT_EQ(still->cooks, 1);
    EXPECT_EQ(moving->cooks, 3);
    EXPECT_TRUE(b->timeDependent);
    EXPECT_FALSE(a->timeDependent);
    EXPECT_FLOAT_EQ(b->last->points->P[0].x, 6.f);
}

TEST_F(NodeGraphTest, ConsumersGetCopiesAndNeverChangeTheCache)
{
    SourceNode* src = add<SourceNode>();
    LiftNode* a = add<LiftNode>();
    LiftNode* b = add<LiftNode>();
    wire(src, a);
    wire(src, b); // two consumers: src's result is cached
    a->processFlag = b->processFlag = true;
    setRow(b, "amount", "10");
    nodeMaster->cook(true);
    PlugCache::Entry e;
    ASSERT_TRUE(nodeMaster->plugCache->get(src->outputPlug(0), e));
    for (const Vec4f& p : e.body->points->P) EXPECT_FLOAT_EQ(p.y, 0.f) << "a consumer changed the cache";
    EXPECT_TRUE(e.body->isCached);
    ASSERT_TRUE(a->last && b->last);
    EXPECT_NE(a->last.get(), b->last.get());
    EXPECT_FLOAT_EQ(a->last->points->P[0].y, 1.f);
    EXPECT_FLOAT_EQ(b->last->points->P[0].y, 10.f);
}

TEST_F(NodeGraphTest, NewCacheEntryDisplacesTheOldAndExactTimeMatters)
{
    SourceNode* src = add<SourceNode>();
    PlugCache cache;
    auto body = std::make_shared<Body>();
    cache.addCache(body, src->outputPlug(0), 1.f);
    cache.addCache(body, src->outputPlug(0), 2.f);
    EXPECT_EQ(cache.size(), 1u);
    PlugCache::Entry e;
    EXPECT_TRUE(cache.getAt(src->outputPlug(0), 2.f, e));
    EXPECT_FALSE(cache.getAt(src->outputPlug(0), std::nextafter(2.f, 3.f), e));
    EXPECT_FALSE(cache.getAt(src->outputPlug(0), 1.f, e));
    body->points->addPoint(Vec4f());
    EXPECT_EQ(e.body->points->size(), 0u) << "the cache holds a copy, not the caller's Body";
}

TEST_F(NodeGraphTest, ADynamicChainHandsOneBodyThroughAndHoldsStillWhenNotRunning)
{
    TestOriginNode* origin = add<TestOriginNode>();
    LiftNode* step = add<LiftNode>();
    wire(origin, step);
    step->processFlag = true;
    for (int f = 1; f <= 3; ++f) {
        atFrame(f);
        nodeMaster->cook(true);
    }
    EXPECT_TRUE(step->dynamic);
    ASSERT_TRUE(origin->storedBody);
    EXPECT_EQ(origin->storedBody.get(), step->storedBody.get()) << "one Body runs through the chain";
    EXPECT_EQ(origin->storedBody->points->size(), 3u);
    EXPECT_EQ(nodeMaster->plugCache->size(), 0u) << "dynamic results never enter the cache";
    // a refresh cook (run flag off) shows what is held without stepping
    atFrame(4);
    nodeMaster->cook(false);
    EXPECT_EQ(origin->storedBody->points->size(), 3u);
    // a reset starts the chain over
    nodeMaster->resetNodes();
    nodeMaster->cook(true);
    ASSERT_TRUE(origin->storedBody);
    EXPECT_EQ(origin->storedBody->points->size(), 1u);
}

TEST_F(NodeGraphTest, ThreadedTargetsGiveWhatASerialCookGives)
{
    SourceNode* src = add<SourceNode>();
    setRow(src, "count", "2000");
    std::vector<LiftNode*> tips;
    for (int i = 0; i < 6; ++i) {
        LiftNode* n = add<LiftNode>();
        setRow(n, "amount", std::to_string(i));
        wire(src, n);
        n->processFlag = true;
        tips.push_back(n);
    }
    nodeMaster->cook(true);
    EXPECT_EQ(src->cooks, 1) << "targets sharing an upstream node wait on it, not cook it twice";
    for (int i = 0; i < 6; ++i) {
        ASSERT_TRUE(tips[size_t(i)]->last);
        EXPECT_EQ(tips[size_t(i)]->last->points->size(), 2000u);
        EXPECT_FLOAT_EQ(tips[size_t(i)]->last->points->P[1999].y, float(i));
    }
}

TEST_F(NodeGraphTest, UpstreamTargetIsCookedOnceAndUnreachedNodesStayDirty)
{
    SourceNode* src = add<SourceNode>();
    LiftNode* a = add<LiftNode>();
    LiftNode* lonely = add<LiftNode>();
    wire(src, a);
    src->processFlag = a->processFlag = true;
    nodeMaster->cook(true);
    EXPECT_EQ(src->visitCount, 2);
    EXPECT_EQ(src->cooks, 1);
    EXPECT_TRUE(lonely->dirty);
    EXPECT_EQ(lonely->cooks, 0);
}

TEST_F(NodeGraphTest, OverridesHoldWhileTheTimeStandsStill)
{
    SourceNode* src = add<SourceNode>();
    src->processFlag = true;
    nodeMaster->cook(true);
    Parameter* row = src->params.get("offset");
    row->overridden = true;
    nodeMaster->cook(true);
    EXPECT_TRUE(row->overridden);
    atFrame(2);
    nodeMaster->cook(true);
    EXPECT_FALSE(row->overridden);
}

TEST_F(NodeGraphTest, ADisabledFilterPassesItsInputAndAGeneratorGivesNothing)
{
    SourceNode* src = add<SourceNode>();
    LiftNode* a = add<LiftNode>();
    wire(src, a);
    a->processFlag = true;
    setRow(a, "enabled", "false");
    nodeMaster->cook(true);
    EXPECT_EQ(a->cooks, 0);
    BodyPtr r;
    CookCaller c;
    c.time = 1.f;
    setRow(src, "enabled", "false");
    src->dirty = true;
    src->process(r, c);
    ASSERT_TRUE(r);
    EXPECT_EQ(r->points->size(), 0u);
}

} // namespace
