// Formulas that must fail to compile, and fail cleanly: unknown names, bad syntax, wrong
// argument counts, runaway nesting, empty text; then a seeded fuzz loop of random and
// mutated text that must never crash, hang, or make `values` disagree with `value`.
#include "expr/formula.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using expr::Binding;
using expr::Program;
using expr::SymbolTable;

double first(void*, const double* args) { return args[0]; }
double count(void*, const SymbolTable<double>::Arg*, int n) { return n; }
float firstF(void*, const float* args) { return args[0]; }
float countF(void*, const SymbolTable<float>::Arg*, int n) { return float(n); }

template <typename T> struct Tables;
template <> struct Tables<double> {
    static void functions(SymbolTable<double>& t)
    {
        t.addFunction("f1", 1, first);
        t.addGenericFunction("g", count);
    }
};
template <> struct Tables<float> {
    static void functions(SymbolTable<float>& t)
    {
        t.addFunction("f1", 1, firstF);
        t.addGenericFunction("g", countF);
    }
};

template <typename T>
class Fixture {
public:
    Fixture()
    {
        for (int k = 0; k < 64 * 4; ++k) data.push_back(float(k % 17) - 8.0f);
        t.addStandardConstants();
        t.addScalar("x", Binding::pointer(&x));
        t.addScalar("a", Binding::array(data.data(), 4));
        t.addScalar("i", Binding::index());
        t.addVector("v", Binding::array(data.data() + 1, 4), Binding::array(data.data() + 2, 4),
                    Binding::value(2));
        Tables<T>::functions(t);
    }
    std::vector<float> data;
    double x = 0.5;
    SymbolTable<T> t;
};

// A failed compile leaves a program that answers 0 everywhere.
void expectFails(const std::string& text, const std::string& wanted = "")
{
    Fixture<double> f;
    Program<double> p;
    std::string error;
    EXPECT_FALSE(p.compile(text, f.t, &error)) << '"' << text << '"';
    EXPECT_FALSE(p.valid());
    EXPECT_FALSE(error.empty()) << text;
    if (!wanted.empty()) {
        EXPECT_NE(error.find(wanted), std::string::npos) << text << ": " << error;
    }
    EXPECT_EQ(p.value(3), 0.0);
    std::vector<double> out(200, 7.0);
    p.values(0, out.size(), out.data());
    for (double v : out) ASSERT_EQ(v, 0.0);
}

TEST(FormulaCompileErrors, UnknownNamesAreReported)
{
    expectFails("foo", "unknown symbol 'foo'");
    expectFails("x + foo * 2", "unknown symbol 'foo'");
    expectFails("foo(1)", "unknown function 'foo'");
    expectFails("bar := 1", "unknown symbol 'bar'");
}

TEST(FormulaCompileErrors, MalformedSyntaxIsRejected)
{
    const char* const bad[] = {"1 +", "(1", "1)", "* 2", "1 2", "x x", "sin", "1 ? 2", "1 ? 2 :",
                               "@", "$x", "x[0]", "v", "v * 2", "if", "if(1)", "if(1, 2)",
                               "var", "var 1 := 2", "x := 1", "2 := 3", "(", ")", "()", "{}",
                               "1,2", "sin(1,)", "min(,1)", "else", "and 1", "1 and", "/* open",
                               "not", "a[1]", "v[1", "1 + + ", "3 !", "f1"};
    for (const char* text : bad) expectFails(text);
}

TEST(FormulaCompileErrors, WrongArgumentCountsAreRejected)
{
    expectFails("sin()", "'sin' takes 1 argument");
    expectFails("sin(1, 2)");
    expectFails("clamp(1, 2)");
    expectFails("atan2(1)");
    expectFails("min()");
    expectFails("avg()");
    expectFails("f1(1, 2)");
    expectFails("f1()");
}

TEST(FormulaCompileErrors, EmptyTextIsRejected)
{
    expectFails("", "empty");
    expectFails("   \n\t ");
    expectFails("# only a comment");
    expectFails(";;;");
}

TEST(FormulaCompileErrors, DeepNestingFailsWithoutExhaustingTheStack)
{
    expectFails(std::string(10000, '(') + "1" + std::string(10000, ')'), "nested too deeply");
    expectFails(std::string(100000, '('));
    std::string pow = "2";
    for (int k = 0; k < 5000; ++k) pow += "^2";
    expectFails(pow, "nested too deeply");
    std::string calls;
    for (int k = 0; k < 5000; ++k) calls += "sin(";
    expectFails(calls + "1" + std::string(5000, ')'));
    std::string ternary = "1";
    for (int k = 0; k < 5000; ++k) ternary = "x ? 1 : " + ternary;
    expectFails(ternary);
    expectFails(std::string(5000, '{') + "1" + std::string(5000, '}'));
}

TEST(FormulaCompileErrors, LongButFlatFormulasStillCompile)
{
    Fixture<double> f;
    Program<double> p;
    std::string sum = "x";
    for (int k = 0; k < 20000; ++k) sum += " + x * " + std::to_string(k % 7);
    ASSERT_TRUE(p.compile(sum, f.t));
    double expected = f.x;
    for (int k = 0; k < 20000; ++k) expected += f.x * (k % 7);
    EXPECT_DOUBLE_EQ(p.value(), expected);
    const std::string minus = std::string(100001, '-') + "x";
    ASSERT_TRUE(p.compile(minus, f.t));
    EXPECT_EQ(p.value(), -0.5);
    std::string nested = "x";
    for (int k = 0; k < 100; ++k) nested = "(x + " + nested + ")";
    ASSERT_TRUE(p.compile(nested, f.t));
    EXPECT_DOUBLE_EQ(p.value(), 101 * 0.5);
}

// ---- fuzzing ---------------------------------------------------------------------------

const char* const kVocabulary[] = {
    "x", "a", "i", "v", "v[0]", "v[i]", "pi", "inf", "f1", "g", "foo", "1", "0", "2.5", "1e3", ".5",
    "+", "-", "*", "/", "%", "^", "(", ")", "[", "]", "{", "}", ",", ";", "?", ":", ":=", "+=",
    "<", "<=", ">", ">=", "==", "=", "!=", "<>", "&", "|", "&&", "||", "!", "and", "or", "xor",
    "not", "nand", "nor", "xnor", "if", "else", "var", "true", "false", "sin", "clamp", "min",
    "max", "avg", "roundn", "inrange", "equal", "sqrt", "log", "#", "/*", "*/", " ", "\n"};

const char* const kSeeds[] = {
    "x * 2 + sin(a) * clamp(v[2], 0, 1)", "if(x > 0.2, a, -a) + min(a, x, 3)",
    "var t := a; t += x; if (t > 1) t := 0; else t := t * 2; t", "g(v, x, 2) + f1(a) ^ 2",
    "x > 0 ? roundn(a, 2) : inrange(0, a, 1)", "avg(v[0], v[1], v[i % 3]) % 3"};

template <typename T> bool sameValue(T x, T y)
{
    return (std::isnan(x) && std::isnan(y)) || std::memcmp(&x, &y, sizeof(T)) == 0;
}

template <typename T> void exercise(Fixture<T>& f, const std::string& text)
{
    Program<T> p;
    std::string error;
    if (!p.compile(text, f.t, &error)) {
        ASSERT_FALSE(error.empty()) << text;
        ASSERT_EQ(p.value(1), T(0));
        return;
    }
    T out[64];
    p.values(0, 64, out);
    for (size_t k = 0; k < 64; ++k) ASSERT_TRUE(sameValue(out[k], p.value(k))) << text << " @" << k;
}

std::string mutate(std::string s, std::mt19937& rng)
{
    const int edits = 1 + int(rng() % 4);
    for (int e = 0; e < edits; ++e) {
        const size_t at = s.empty() ? 0 : rng() % (s.size() + 1);
        switch (rng() % 3) {
        case 0: s.insert(at, 1, char(rng() % 96 + 32)); break;
        case 1: if (at < s.size()) s.erase(at, 1); break;
        default: s.insert(at, kVocabulary[rng() % (sizeof kVocabulary / sizeof *kVocabulary)]); break;
        }
    }
    return s;
}

TEST(FormulaFuzz, RandomAndMutatedTextNeverCrashesOrDisagrees)
{
    Fixture<double> fd;
    Fixture<float> ff;
    std::mt19937 rng(20240611);
    const size_t words = sizeof kVocabulary / sizeof *kVocabulary;
    for (int round = 0; round < 6000; ++round) {
        std::string text;
        switch (round % 3) {
        case 0: { // raw bytes
            const size_t n = rng() % 48;
            for (size_t k = 0; k < n; ++k) text.push_back(char(rng() % 256));
            break;
        }
        case 1: { // token soup
            const size_t n = 1 + rng() % 24;
            for (size_t k = 0; k < n; ++k) text += kVocabulary[rng() % words];
            break;
        }
        default:
            text = mutate(kSeeds[rng() % (sizeof kSeeds / sizeof *kSeeds)], rng);
            break;
        }
        exercise(fd, text);
        exercise(ff, text);
        if (HasFatalFailure()) return;
    }
}

// Random formulas that are valid by construction: locals, if statements, guarded calls,
// runtime vector indices. Every one must compile and agree between block and element runs.
class FormulaGenerator {
public:
    explicit FormulaGenerator(uint32_t seed) : mRng(seed) {}

    std::string program()
    {
        mLocalVisible = false;
        std::string s = "var t := " + expression(3) + "; ";
        mLocalVisible = true;
        if (pick(2)) s += "if (" + expression(2) + ") t := " + expression(3) + "; else t += " + expression(2) + "; ";
        return s + expression(1 + pick(5));
    }

private:
    int pick(int n) { return int(mRng() % unsigned(n)); }

    std::string leaf()
    {
        static const char* const leaves[] = {"x", "a", "i", "v[0]", "v[1]", "v[2]", "pi", "1",
                                             "0", "2.5", "-3", ".5", "t"};
        return leaves[pick(mLocalVisible ? 13 : 12)];
    }

    std::string expression(int depth)
    {
        static const char* const binary[] = {"+", "-", "*", "/", "%", "^", "<", "<=", ">", ">=",
                                             "==", "!=", "and", "or", "xor", "nand", "nor",
                                             "xnor", "&", "|"};
        static const char* const unary[] = {"sin", "cos", "abs", "sqrt", "exp", "log", "floor",
                                            "frac", "sgn", "round", "tanh", "erf", "ncdf", "sinc",
                                            "not"};
        if (depth <= 0) return leaf();
        const auto e = [&] { return expression(depth - 1); };
        switch (pick(10)) {
        case 0: return leaf();
        case 1: return "-" + e();
        case 2:
        case 3: return "(" + e() + " " + binary[pick(20)] + " " + e() + ")";
        case 4: return std::string(unary[pick(15)]) + "(" + e() + ")";
        case 5: return "clamp(" + e() + ", " + e() + ", " + e() + ")";
        case 6: return "if(" + e() + ", " + e() + ", " + e() + ")";
        case 7: return "(" + e() + " ? " + e() + " : " + e() + ")";
        case 8: return pick(2) ? "f1(" + e() + ")" : "g(v, " + e() + ")";
        default: return "v[" + e() + "]";
        }
    }

    std::mt19937 mRng;
    bool mLocalVisible = false;
};

template <typename T> void expectGeneratedFormulasAgree(uint32_t seed)
{
    Fixture<T> f;
    FormulaGenerator gen(seed);
    for (int round = 0; round < 1500; ++round) {
        const std::string text = gen.program();
        Program<T> p;
        std::string error;
        ASSERT_TRUE(p.compile(text, f.t, &error)) << text << ": " << error;
        T out[60];
        p.values(1, 60, out);
        for (size_t k = 0; k < 60; ++k)
            ASSERT_TRUE(sameValue(out[k], p.value(k + 1))) << text << " @" << k + 1;
    }
}

TEST(FormulaFuzz, GeneratedFormulasCompileAndAgreeInDouble)
{
    expectGeneratedFormulasAgree<double>(777);
}

TEST(FormulaFuzz, GeneratedFormulasCompileAndAgreeInFloat)
{
    expectGeneratedFormulasAgree<float>(778);
}

} // namespace
