// Formula engine speed: a point expression over 10 million float4 records evaluated by
// `values` (block interpretation), by a loop of `value`, and written by hand in C++,
// with the interpreted/hand ratio as a counter; and the cost of compiling and
// evaluating a small double-precision parameter expression, as parameters do.
#include "expr/formula.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <random>
#include <vector>

namespace {

constexpr size_t kPoints = 10'000'000;
constexpr size_t kChunk = 65536; // what one parallel task would hand to `values`
const char* const kPointFormula = "P[1] * 2 + sin(P[0]) * clamp(v[2], 0, 1)";

struct Points {
    std::vector<float> p, v, out; // p and v: float4 records
    Points() : p(kPoints * 4), v(kPoints * 4), out(kPoints)
    {
        std::mt19937 rng(1);
        std::uniform_real_distribution<float> u(-2.0f, 2.0f);
        for (float& f : p) f = u(rng);
        for (float& f : v) f = u(rng);
    }
    static Points& get()
    {
        static Points points;
        return points;
    }
};

// exprtk's clamp(r0, x, r1): x kept to [r0, r1].
inline float clampRange(float r0, float x, float r1) { return x < r0 ? r0 : (x > r1 ? r1 : x); }

void handWritten(const Points& pts, float* out)
{
    for (size_t i = 0; i < kPoints; ++i) {
        const float* p = &pts.p[i * 4];
        const float* v = &pts.v[i * 4];
        out[i] = p[1] * 2.0f + std::sin(p[0]) * clampRange(v[2], 0.0f, 1.0f);
    }
}

// Nanoseconds per point of the hand-written loop, measured once (best of three).
double handNsPerPoint()
{
    static const double ns = [] {
        Points& pts = Points::get();
        double best = 1e30;
        for (int rep = 0; rep < 3; ++rep) {
            const auto t0 = std::chrono::steady_clock::now();
            handWritten(pts, pts.out.data());
            benchmark::ClobberMemory();
            const auto t1 = std::chrono::steady_clock::now();
            best = std::min(best, std::chrono::duration<double, std::nano>(t1 - t0).count());
        }
        return best / double(kPoints);
    }();
    return ns;
}

bool compilePointFormula(expr::Program<float>& prog, expr::SymbolTable<float>& symbols)
{
    Points& pts = Points::get();
    using expr::Binding;
    symbols.addVector("P", Binding::array(pts.p.data(), 4), Binding::array(pts.p.data() + 1, 4),
                      Binding::array(pts.p.data() + 2, 4));
    symbols.addVector("v", Binding::array(pts.v.data(), 4), Binding::array(pts.v.data() + 1, 4),
                      Binding::array(pts.v.data() + 2, 4));
    std::string error;
    if (!prog.compile(kPointFormula, symbols, &error)) {
        std::fprintf(stderr, "formula_bench: %s\n", error.c_str());
        return false;
    }
    // The interpreted result must be the hand-written one, bit for bit.
    std::vector<float> check(kChunk);
    prog.values(0, kChunk, check.data());
    handWritten(pts, pts.out.data());
    for (size_t i = 0; i < kChunk; ++i) {
        if (check[i] != pts.out[i] || prog.value(i) != pts.out[i]) {
            std::fprintf(stderr, "formula_bench: point %zu gives %g, hand-written %g\n", i,
                         double(check[i]), double(pts.out[i]));
            return false;
        }
    }
    return true;
}

// Reports points/s and how many times slower than the hand-written loop.
void report(benchmark::State& state, double seconds)
{
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPoints));
    const double ns = seconds * 1e9 / (double(state.iterations()) * double(kPoints));
    const double ratio = ns / handNsPerPoint();
    state.counters["x_hand"] = ratio;
    char label[64];
    std::snprintf(label, sizeof label, "%.2fx the hand-written loop", ratio);
    state.SetLabel(label);
}

void BM_PointFormulaHandWritten(benchmark::State& state)
{
    Points& pts = Points::get();
    for (auto _ : state) {
        handWritten(pts, pts.out.data());
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(int64_t(state.iterations()) * int64_t(kPoints));
}

void BM_PointFormulaValues(benchmark::State& state)
{
    Points& pts = Points::get();
    expr::SymbolTable<float> symbols;
    expr::Program<float> prog;
    if (!compilePointFormula(prog, symbols)) return state.SkipWithError("compile failed");
    handNsPerPoint();
    double seconds = 0;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        for (size_t first = 0; first < kPoints; first += kChunk)
            prog.values(first, std::min(kChunk, kPoints - first), pts.out.data() + first);
        benchmark::ClobberMemory();
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    }
    report(state, seconds);
}

void BM_PointFormulaValueLoop(benchmark::State& state)
{
    Points& pts = Points::get();
    expr::SymbolTable<float> symbols;
    expr::Program<float> prog;
    if (!compilePointFormula(prog, symbols)) return state.SkipWithError("compile failed");
    handNsPerPoint();
    double seconds = 0;
    for (auto _ : state) {
        const auto t0 = std::chrono::steady_clock::now();
        float* out = pts.out.data();
        for (size_t i = 0; i < kPoints; ++i) out[i] = prog.value(i);
        benchmark::ClobberMemory();
        seconds += std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    }
    report(state, seconds);
}

// Parameters compile their expression at every evaluation.
void BM_ParameterCompileAndEvaluate(benchmark::State& state)
{
    double frame = 1.0;
    expr::SymbolTable<double> symbols;
    symbols.addStandardConstants();
    symbols.addScalar("frame", expr::Binding::pointer(&frame));
    symbols.addScalar("time", expr::Binding::value(0.04));
    for (auto _ : state) {
        expr::Program<double> prog;
        prog.compile("sin(frame*0.1)*2+1", symbols);
        benchmark::DoNotOptimize(prog.value());
        frame += 1.0;
    }
}

void BM_ParameterEvaluateOnly(benchmark::State& state)
{
    double frame = 1.0;
    expr::SymbolTable<double> symbols;
    symbols.addScalar("frame", expr::Binding::pointer(&frame));
    expr::Program<double> prog;
    prog.compile("sin(frame*0.1)*2+1", symbols);
    for (auto _ : state) {
        benchmark::DoNotOptimize(prog.value());
        frame += 1.0;
    }
}

} // namespace

BENCHMARK(BM_PointFormulaHandWritten)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PointFormulaValues)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_PointFormulaValueLoop)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_ParameterCompileAndEvaluate);
BENCHMARK(BM_ParameterEvaluateOnly);
