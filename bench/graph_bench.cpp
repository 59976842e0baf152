// The cost of the cook itself: a chain of cheap nodes recooked every frame (microseconds
// per node per cook, the node_cook_s counter), and a million points through a Transform and a per-point
// expression (points per second).
#include "benchenv.h"
#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "graph/geonode.h"
#include "graph/nodemaster.h"
#include "graph/plug.h"

#include <benchmark/benchmark.h>

#include <omp.h>

namespace {

void ensureRecords()
{
    ensureBenchRecords(true);
    simState->paused = false;
}

// A time-dependent source of `count` points, so every node below it cooks each frame.
class PointsNode : public GeoNode {
public:
    explicit PointsNode(NodeMaster* m) : GeoNode(m)
    {
        setType("BenchPoints");
        addParam(&shift, "shift", "Shift", kParamFloat, "frame");
        addOutput("Output");
    }
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override
    {
        body->points->resizePoints(size_t(count));
        for (int i = 0; i < count; ++i) body->points->P[size_t(i)] = Vec4f(shift + float(i), 0.f, 0.f, 0.f);
    }
    float shift = 0.f;
    int count = 16;
};

PointsNode* startGraph(int count)
{
    ensureRecords();
    nodeMaster->clearGraph();
    auto* src = new PointsNode(nodeMaster);
    src->count = count;
    nodeMaster->registerNode(src);
    return src;
}

BaseNode* chain(BaseNode* from, const std::string& key,
                const std::vector<std::pair<std::string, std::string>>& rows)
{
    BaseNode* n = nodeMaster->createNode(key);
    for (const auto& kv : rows) n->params.get(kv.first)->text = kv.second;
    nodeMaster->connectPlugs(from->outputPlug(0), n->inputPlug(0));
    return n;
}

void cookFrames(benchmark::State& state, int64_t nodesPerCook, int64_t pointsPerCook)
{
    int frame = 1;
    for (auto _ : state) {
        simState->frame = frame;
        simState->frameF = float(frame);
        ++frame;
        nodeMaster->cook(true);
    }
    // seconds per node cook, shown as microseconds through the counter's unit prefix
    state.counters["node_cook_s"] = benchmark::Counter(
        double(state.iterations() * nodesPerCook), benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    if (pointsPerCook)
        state.counters["points_per_s"] =
            benchmark::Counter(double(state.iterations() * pointsPerCook), benchmark::Counter::kIsRate);
}

void BM_CookChainOf200Nulls(benchmark::State& state)
{
    BaseNode* last = startGraph(16);
    for (int i = 0; i < 200; ++i) last = chain(last, "null", {});
    last->processFlag = true;
    cookFrames(state, 201, 0);
}
BENCHMARK(BM_CookChainOf200Nulls)->Unit(benchmark::kMicrosecond);

} // namespace

namespace {

// A million points moved by a Transform, then sorted by a per-point condition through Split.
void BM_MillionPointsThroughTransformAndExpression(benchmark::State& state)
{
    const int count = 1000000;
    BaseNode* last = startGraph(count);
    last = chain(last, "transform", {{"rotateY", "frame * 3"}, {"translateX", "0.5"}});
    last = chain(last, "split", {{"splitCondition", "@P.x > 0.5 && @P.y < 1"}, {"removeFromInput", "false"}});
    last->processFlag = true;
    cookFrames(state, 3, count);
}
BENCHMARK(BM_MillionPointsThroughTransformAndExpression)->Unit(benchmark::kMillisecond);

} // namespace
