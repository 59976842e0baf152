// Shared scaffolding of the node tests: a source node that sends a copy of a fixed Body, a
// fixture base that makes, wires, sets and cooks nodes on the process-wide node master, and
// the small Body builders and readers more than one node test uses.
#pragma once

#include "testenv.h"

#include "geo/body.h"
#include "graph/geonode.h"
#include "graph/plug.h"
#include "graph/plugcache.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <initializer_list>
#include <memory>
#include <string>
#include <utility>
#include <vector>

// Sends a copy of a fixed Body, standing in for a reader upstream, and counts how often it
// is cooked and checked.
class FixedNode : public GeoNode {
public:
    explicit FixedNode(NodeMaster* master, BodyPtr b = nullptr) : GeoNode(master), body(std::move(b))
    {
        setType("Fixed");
        addOutput("Output");
    }
    void process(BodyPtr& result, const CookCaller& c) override
    {
        auto lock = beginProcess(c);
        ++cooks;
        finishProcess(result, c, body ? std::make_shared<Body>(*body) : nullptr, false);
    }
    void checkDirty(DirtyResult& r, const CookCaller& c) override
    {
        ++checks;
        GeoNode::checkDirty(r, c);
    }
    BodyPtr body;
    int cooks = 0;
    int checks = 0;
};

// Points at the given positions, nothing else.
inline BodyPtr pointsBody(const std::vector<Vec4f>& positions)
{
    auto b = std::make_shared<Body>();
    for (const Vec4f& p : positions) b->points->addPoint(p);
    return b;
}

// The x of every point in point order; none for no Body.
inline std::vector<float> xs(const BodyPtr& b)
{
    std::vector<float> out;
    if (b)
        for (const Vec4f& p : b->points->P) out.push_back(p.x);
    return out;
}

inline std::vector<float> sortedXs(const BodyPtr& b)
{
    std::vector<float> out = xs(b);
    std::sort(out.begin(), out.end());
    return out;
}

// Each test starts and ends with an empty graph on the process-wide node master.
class NodeTestBase : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        nodeMaster->clearGraph();
        nodeMaster->plugCache->clear();
    }
    void TearDown() override { nodeMaster->clearGraph(); }

    static FixedNode* source(BodyPtr body)
    {
        auto* n = new FixedNode(nodeMaster, std::move(body));
        nodeMaster->registerNode(n);
        return n;
    }
    template <class T> static T* make(const std::string& key)
    {
        T* n = dynamic_cast<T*>(nodeMaster->createNode(key));
        EXPECT_NE(n, nullptr) << key;
        return n;
    }
    // A node whose inputs 0, 1, ... read fixed sources of `inputs`; a null Body leaves its
    // input unwired.
    template <class T> static T* makeWith(const std::string& key, std::initializer_list<BodyPtr> inputs)
    {
        T* n = make<T>(key);
        int input = 0;
        for (const BodyPtr& body : inputs) {
            if (n && body) wire(source(body), n, input);
            ++input;
        }
        return n;
    }
    static void wire(BaseNode* from, BaseNode* to, int input = 0, int output = 0)
    {
        ASSERT_EQ(nodeMaster->connectPlugs(from->outputPlug(output), to->inputPlug(input)), 0);
    }
    static void set(BaseNode* node, const std::string& key, const std::string& text)
    {
        Parameter* row = node->params.get(key);
        ASSERT_NE(row, nullptr) << key;
        row->text = text;
    }
    static CookCaller callerAt(float time, bool atRoot = false)
    {
        CookCaller c;
        c.time = time;
        c.atRoot = atRoot;
        return c;
    }
    static DirtyResult checkAt(GeoNode* node, float time, bool atRoot = false)
    {
        DirtyResult r;
        node->checkDirty(r, callerAt(time, atRoot));
        return r;
    }
    // One cook of `node` at `time`, as the node master runs it: change check, then pull.
    static BodyPtr pull(GeoNode* node, float time)
    {
        for (GeoNode* g : nodeMaster->getGeoNodes())
            g->timeDependent = g->dynamic = g->dynamicUpstream = false;
        checkAt(node, time);
        BodyPtr out;
        node->process(out, callerAt(time));
        return out;
    }
    // Reads one output at time 1 through a new Null, as a downstream node would, with every
    // node marked dirty: everything is cooked anew.
    static BodyPtr pullAnew(GeoNode* node, int output = 0)
    {
        auto* sink = static_cast<GeoNode*>(nodeMaster->createNode("null"));
        nodeMaster->connectPlugs(node->outputPlug(output), sink->inputPlug(0));
        for (GeoNode* g : nodeMaster->getGeoNodes()) g->dirty = true;
        BodyPtr r;
        sink->process(r, callerAt(1.f));
        return r;
    }
};
