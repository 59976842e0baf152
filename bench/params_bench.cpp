// Parameter evaluation (what every cook pays per row), point formulas over a Body, and a
// whole empty-scene run of the solver loop.
#include "benchenv.h"
#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "app/solvermainloop.h"
#include "geo/body.h"
#include "graph/nodemaster.h"
#include "params/parameter.h"
#include "params/parameterset.h"
#include "params/pointexpression.h"

#include <benchmark/benchmark.h>

#include <chrono>
#include <cmath>
#include <cstdio>
#include <fcntl.h>
#include <omp.h>
#include <thread>
#include <unistd.h>

namespace {

void ensureRecords()
{
    ensureBenchRecords(true);
}

// Standard output to /dev/null while a noisy run is measured.
class QuietStdout {
public:
    QuietStdout()
    {
        std::fflush(stdout);
        saved = dup(1);
        const int null = open("/dev/null", O_WRONLY);
        dup2(null, 1);
        close(null);
    }
    ~QuietStdout()
    {
        std::fflush(stdout);
        dup2(saved, 1);
        close(saved);
    }
private:
    int saved;
};

void BM_LiteralParameters(benchmark::State& state)
{
    ensureRecords();
    const int n = 10000;
    ParameterSet set;
    std::vector<float> fields(n);
    for (int i = 0; i < n; ++i) {
        Parameter* p = set.add(Parameter(&fields[size_t(i)], "p" + std::to_string(i), "P", kParamFloat));
        p->text = std::to_string(i % 100) + ".25";
    }
    for (auto _ : state) {
        set.evaluateAll(1.f, 0);
        benchmark::DoNotOptimize(fields.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * n);
    state.counters["ns_per_param"] =
        benchmark::Counter(double(n), benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}
BENCHMARK(BM_LiteralParameters)->Unit(benchmark::kMillisecond);

void BM_ExpressionParameter(benchmark::State& state)
{
    ensureRecords();
    ParameterSet set;
    float field = 0.f;
    Parameter* p = set.add(Parameter(&field, "size", "Size", kParamFloat));
    p->text = "sin(frame*0.1)*2+1";
    float frame = 0.f;
    for (auto _ : state) {
        p->evaluate(frame, 0);
        frame += 1.f;
        benchmark::DoNotOptimize(field);
    }
    state.SetItemsProcessed(int64_t(state.iterations()));
}
BENCHMARK(BM_ExpressionParameter);

std::shared_ptr<Body> makePoints(size_t n)
{
    auto body = std::make_shared<Body>();
    body->points->addAttrib("v", 6, false);
    body->points->rebuildLists();
    body->points->resizePoints(n);
    for (size_t i = 0; i < n; ++i) {
        const float x = float(i % 1000) * 0.01f;
        body->points->P[i] = Vec4f(x, x * 0.5f, -x, 0.f);
        body->points->v[i] = Vec4f(0.f, 0.f, std::sin(x), 0.f);
    }
    return body;
}

const size_t kPoints = 10000000;

void BM_PointExpressionBody(benchmark::State& state)
{
    ensureRecords();
    static std::shared_ptr<Body> body = makePoints(kPoints);
    PointExpression e;
    std::vector<float> out(kPoints);
    for (auto _ : state) {
        e.compile("@P.y * 2 + sin(@P.x) * clamp(@v.z, 0, 1)", body, 1.f);
#pragma omp parallel for schedule(static)
        for (int64_t b = 0; b < int64_t(kPoints / 4096 + 1); ++b) {
            const size_t first = size_t(b) * 4096;
            if (first < kPoints) e.values(first, std::min<size_t>(4096, kPoints - first), out.data() + first);
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPoints));
}
BENCHMARK(BM_PointExpressionBody)->Unit(benchmark::kMillisecond)->UseRealTime();

// The same formula written in C++ (exprtk's clamp takes the range first: clamp(r0, x, r1)).
void BM_PointFormulaHandWritten(benchmark::State& state)
{
    static std::shared_ptr<Body> body = makePoints(kPoints);
    std::vector<float> out(kPoints);
    const Vec4f* P = body->points->P.data();
    const Vec4f* v = body->points->v.data();
    for (auto _ : state) {
#pragma omp parallel for schedule(static)
        for (int64_t i = 0; i < int64_t(kPoints); ++i) {
            const float r0 = v[i].z, x = 0.f, r1 = 1.f;
            const float c = x < r0 ? r0 : (x > r1 ? r1 : x);
            out[size_t(i)] = P[i].y * 2.f + std::sin(P[i].x) * c;
        }
        benchmark::DoNotOptimize(out.data());
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPoints));
}
BENCHMARK(BM_PointFormulaHandWritten)->Unit(benchmark::kMillisecond)->UseRealTime();

void BM_EmptySceneRun(benchmark::State& state)
{
    ensureRecords();
    SimState& s = *simState;
    simulation->globalSettings->params.get("startFrame")->text = "0";
    simulation->globalSettings->params.get("endFrame")->text = "200";
    simulation->globalSettings->params.get("minSubsteps")->text = "8";
    SolverMainLoop loop;
    {
        QuietStdout quiet;
        loop.start();
        for (auto _ : state) {
            s.frame = 0;
            s.substep = 0;
            s.simFinished = true;
            s.play();
            while (!(s.simFinished && s.paused)) std::this_thread::sleep_for(std::chrono::microseconds(200));
            state.SetIterationTime(s.elapsedSeconds);
        }
        s.quitRequested = true;
        loop.wait();
        s.quitRequested = false;
    }
    state.counters["frames"] = 201;
    state.counters["substeps"] = double(s.substeps);
}
BENCHMARK(BM_EmptySceneRun)->Unit(benchmark::kMillisecond)->UseManualTime()->Iterations(5);

} // namespace
