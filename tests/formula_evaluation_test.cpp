// How programs run: the block path (`values`) against the per-element path (`value`),
// several threads sharing one program, float against double programs, and runs nested
// inside a caller's function. Each case is named for the fault it would catch.
#include "expr/formula.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using expr::Binding;
using expr::Program;
using expr::SymbolTable;

// Formulas touching every operation, over point attributes and uniform parameters.
const char* const kFormulas[] = {
    "P[1] * 2 + sin(P[0]) * clamp(v[2], 0, 1)",
    "a + b - c * d / (a + 2) % 3 ^ 2",
    "-a ^ 2 + abs(b) + sqrt(abs(c)) + exp(d / 10) + log(abs(a) + 1)",
    "acos(clamp(-1, a / 10, 1)) + asin(clamp(-1, b / 10, 1)) + atan(c) + atan2(a, b)",
    "sinh(a / 10) + cosh(b / 10) + tanh(c) + asinh(d) + acosh(abs(a) + 1) + atanh(b / 11)",
    "cot(a + 0.1) + sec(b) + csc(c + 0.1) + hypot(a, b) + deg2rad(c) + rad2deg(d)",
    "erf(a) + erfc(b) + ncdf(c) + sinc(d) + expm1(a / 10) + log1p(abs(b)) + log2(abs(c) + 1)",
    "log10(abs(a) + 1) + logn(abs(b) + 2, 3) + root(abs(c), 3) + pow(abs(d), 0.3)",
    "floor(a) + ceil(b) + round(c) + trunc(d) + frac(a) + roundn(b, 2) + sgn(c)",
    "min(a, b, c) + max(a, b, d) + sum(a, b, c, d) + mul(a, b) + avg(a, b, c)",
    "(a < b) + (a <= c) + (b > c) + (b >= d) + (a == a) + (a != b) + (a <> c)",
    "(a and b) + (a or c) + (a xor b) + (a nand c) + (a nor d) + (b xnor c) + not(a > 0)",
    "equal(a, b) + not_equal(a, c) + inrange(b, a, c) + clamp(b, a, c)",
    "if(a > b, c, d) + (a > 0 ? b : c) + if(a < 0, 1 / a, a)",
    "var t := a * frame; if (t > 1) t := t - 1; else t := t + 1; t * b",
    "P[n % 3] + v[i] + n + i * 0.5 + sel + frame * 2",
    "sin(frame * 0.1) * 2 + 1",
    "42",
};

template <typename T>
class Scene {
public:
    explicit Scene(size_t count, uint32_t seed) : n(count)
    {
        std::mt19937 rng(seed);
        std::uniform_real_distribution<float> u(-10.0f, 10.0f);
        p.resize(count * 4);
        w.resize(count * 4);
        for (float& f : p) f = u(rng);
        for (float& f : w) f = u(rng) / 5.0f;
        ints.resize(count);
        for (int32_t& k : ints) k = int32_t(rng() % 1000) - 500;
        bits.resize(count / 32 + 1);
        for (uint32_t& b : bits) b = uint32_t(rng());
        t.addVector("P", Binding::array(p.data(), 4), Binding::array(p.data() + 1, 4),
                    Binding::array(p.data() + 2, 4));
        t.addVector("v", Binding::array(w.data(), 4), Binding::array(w.data() + 1, 4),
                    Binding::array(w.data() + 2, 4));
        t.addScalar("a", Binding::array(p.data(), 4));
        t.addScalar("b", Binding::array(p.data() + 1, 4));
        t.addScalar("c", Binding::array(w.data() + 2, 4));
        t.addScalar("d", Binding::array(w.data() + 3, 4));
        t.addScalar("n", Binding::array(ints.data()));
        t.addScalar("sel", Binding::bits(bits.data()));
        t.addScalar("i", Binding::index());
        t.addScalar("frame", Binding::pointer(&frame));
    }
    size_t n;
    std::vector<float> p, w;
    std::vector<int32_t> ints;
    std::vector<uint32_t> bits;
    double frame = 1.5;
    SymbolTable<T> t;
};

template <typename T> bool sameValue(T x, T y)
{
    return (std::isnan(x) && std::isnan(y)) || std::memcmp(&x, &y, sizeof(T)) == 0;
}

template <typename T> void expectBlocksMatchElements()
{
    Scene<T> scene(1000, 7);
    for (const char* text : kFormulas) {
        Program<T> prog;
        std::string error;
        ASSERT_TRUE(prog.compile(text, scene.t, &error)) << text << ": " << error;
        const size_t first = 3, count = scene.n - 3; // not a multiple of any block size
        std::vector<T> out(count);
        prog.values(first, count, out.data());
        for (size_t k = 0; k < count; ++k)
            ASSERT_TRUE(sameValue(out[k], prog.value(first + k)))
                << text << " at " << first + k << ": " << out[k] << " vs " << prog.value(first + k);
    }
}

TEST(FormulaEvaluation, BlockRunsMatchElementRunsBitForBitInFloat)
{
    expectBlocksMatchElements<float>();
}

TEST(FormulaEvaluation, BlockRunsMatchElementRunsBitForBitInDouble)
{
    expectBlocksMatchElements<double>();
}

TEST(FormulaEvaluation, ShortAndEmptyRangesWriteExactlyWhatWasAsked)
{
    Scene<float> scene(300, 1);
    Program<float> prog;
    ASSERT_TRUE(prog.compile("a * 2", scene.t));
    std::vector<float> out(5, -1.0f);
    prog.values(10, 0, out.data());
    EXPECT_EQ(out, std::vector<float>(5, -1.0f));
    prog.values(10, 3, out.data());
    for (size_t k = 0; k < 3; ++k) EXPECT_EQ(out[k], prog.value(10 + k));
    EXPECT_EQ(out[3], -1.0f);
}

TEST(FormulaEvaluation, UniformAndConstantProgramsFillEveryElement)
{
    Scene<double> scene(10, 1);
    Program<double> prog;
    ASSERT_TRUE(prog.compile("sin(frame) * 2", scene.t));
    std::vector<double> out(1000);
    prog.values(0, out.size(), out.data());
    for (double v : out) ASSERT_EQ(v, std::sin(1.5) * 2);
    scene.frame = 0.0;
    prog.values(0, out.size(), out.data());
    for (double v : out) ASSERT_EQ(v, 0.0);
    ASSERT_TRUE(prog.compile("1 + 2", scene.t));
    prog.values(5, out.size(), out.data());
    for (double v : out) ASSERT_EQ(v, 3.0);
}

TEST(FormulaEvaluation, ThreadsSharingOneProgramAgreeWithSerial)
{
    Scene<float> scene(40000, 3);
    Program<float> prog;
    ASSERT_TRUE(prog.compile(kFormulas[0], scene.t));
    std::vector<float> serial(scene.n);
    prog.values(0, scene.n, serial.data());

    const int threads = 4;
    std::vector<float> blocks(scene.n), elements(scene.n);
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t) {
        pool.emplace_back([&, t] {
            const size_t begin = scene.n * size_t(t) / threads, end = scene.n * size_t(t + 1) / threads;
            for (size_t at = begin; at < end; at += 1000) // many small calls interleave
                prog.values(at, std::min<size_t>(1000, end - at), blocks.data() + at);
            for (size_t i = begin; i < end; ++i) elements[i] = prog.value(i);
        });
    }
    for (std::thread& th : pool) th.join();
    for (size_t i = 0; i < scene.n; ++i) {
        ASSERT_TRUE(sameValue(blocks[i], serial[i])) << i;
        ASSERT_TRUE(sameValue(elements[i], serial[i])) << i;
    }
}

TEST(FormulaEvaluation, FloatProgramsTrackDoubleProgramsClosely)
{
    Scene<float> sf(500, 11);
    Scene<double> sd(500, 11);
    const char* const formulas[] = {kFormulas[0], kFormulas[1], kFormulas[9], kFormulas[14],
                                    "sqrt(abs(a)) * exp(-abs(b) / 10) + cos(c)"};
    for (const char* text : formulas) {
        Program<float> pf;
        Program<double> pd;
        ASSERT_TRUE(pf.compile(text, sf.t));
        ASSERT_TRUE(pd.compile(text, sd.t));
        std::vector<float> of(sf.n);
        std::vector<double> od(sd.n);
        pf.values(0, sf.n, of.data());
        pd.values(0, sd.n, od.data());
        for (size_t k = 0; k < sf.n; ++k)
            ASSERT_NEAR(double(of[k]), od[k], 1e-3 * (1.0 + std::fabs(od[k]))) << text << " at " << k;
    }
}

TEST(FormulaEvaluation, FloatProgramComputesInFloat)
{
    SymbolTable<float> t;
    Program<float> pf;
    ASSERT_TRUE(pf.compile("1 / 3", t));
    EXPECT_EQ(pf.value(), 1.0f / 3.0f);
    ASSERT_TRUE(pf.compile("16777216 + 1", t)); // 2^24 + 1 is not a float
    EXPECT_EQ(pf.value(), 16777216.0f);
}

// A caller function that itself evaluates a formula over a range, on the same thread.
struct Nested {
    Program<double>* inner;
    double scratch[200];
};

double nestedSum(void* user, const double* args)
{
    Nested* n = static_cast<Nested*>(user);
    n->inner->values(0, 200, n->scratch);
    double s = 0;
    for (double v : n->scratch) s += v;
    return s + args[0];
}

TEST(FormulaEvaluation, FormulaRunInsideACallerFunctionKeepsOuterRunIntact)
{
    SymbolTable<double> t;
    t.addScalar("i", Binding::index());
    Program<double> inner;
    ASSERT_TRUE(inner.compile("i", t));
    Nested nested{&inner, {}};
    t.addFunction("nested", 1, nestedSum, &nested);
    Program<double> outer;
    ASSERT_TRUE(outer.compile("i * 2 + nested(i) + i", t));
    std::vector<double> out(300);
    outer.values(0, out.size(), out.data());
    for (size_t k = 0; k < out.size(); ++k) ASSERT_EQ(out[k], 4.0 * double(k) + 19900.0) << k;
}

} // namespace
