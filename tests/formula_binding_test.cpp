// Where formula values come from: every Binding kind, vectors and their indexing, and
// functions registered by callers (fixed arity with a context pointer, and generic ones
// receiving vectors). Each case is named for the fault it would catch.
#include "expr/formula.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstdint>
#include <string>
#include <vector>

namespace {

using expr::Binding;
using expr::Program;
using expr::SymbolTable;

template <typename T>
std::vector<T> runValues(const Program<T>& p, size_t first, size_t count)
{
    std::vector<T> out(count, T(-12345));
    p.values(first, count, out.data());
    return out;
}

// ---- binding kinds --------------------------------------------------------------------

TEST(FormulaBindings, ConstantIsCopiedAtCompileTime)
{
    SymbolTable<double> t;
    t.addScalar("k", Binding::value(4.5));
    Program<double> p;
    ASSERT_TRUE(p.compile("k * 2", t));
    t.clear(); // the program owns what it needs
    EXPECT_EQ(p.value(), 9.0);
    EXPECT_EQ(runValues(p, 0, 3), (std::vector<double>{9, 9, 9}));
}

TEST(FormulaBindings, PointerF32IsReadAtEveryRun)
{
    float f = 1.0f;
    SymbolTable<float> t;
    t.addScalar("f", Binding::pointer(&f));
    Program<float> p;
    ASSERT_TRUE(p.compile("f * 2 + 1", t));
    EXPECT_EQ(p.value(), 3.0f);
    f = 5.0f;
    EXPECT_EQ(p.value(), 11.0f);
    EXPECT_EQ(runValues(p, 0, 2), (std::vector<float>{11, 11}));
    f = -1.0f;
    EXPECT_EQ(runValues(p, 7, 2), (std::vector<float>{-1, -1}));
}

TEST(FormulaBindings, PointerF64IsReadAtEveryRunInFloatPrograms)
{
    double d = 0.25;
    SymbolTable<float> t;
    t.addScalar("frame", Binding::pointer(&d));
    Program<float> p;
    ASSERT_TRUE(p.compile("frame * 4", t));
    EXPECT_EQ(p.value(), 1.0f);
    d = 2.0;
    EXPECT_EQ(p.value(), 8.0f);
    EXPECT_EQ(runValues(p, 100, 1), (std::vector<float>{8}));
}

TEST(FormulaBindings, ArrayF32HonoursStride)
{
    // float4 records: the formula reads the y of each
    std::vector<float> records;
    for (int i = 0; i < 300; ++i)
        for (int c = 0; c < 4; ++c) records.push_back(float(i * 10 + c));
    SymbolTable<float> t;
    t.addScalar("y", Binding::array(records.data() + 1, 4));
    Program<float> p;
    ASSERT_TRUE(p.compile("y", t));
    EXPECT_EQ(p.value(0), 1.0f);
    EXPECT_EQ(p.value(7), 71.0f);
    const std::vector<float> v = runValues(p, 5, 290);
    for (size_t k = 0; k < v.size(); ++k) EXPECT_EQ(v[k], float((k + 5) * 10 + 1)) << k;
}

TEST(FormulaBindings, ArrayI32IsConvertedAndStrided)
{
    const int32_t ints[] = {-3, 100, 7, 100, 2147483647, 100};
    SymbolTable<double> t;
    t.addScalar("n", Binding::array(ints, 2));
    Program<double> p;
    ASSERT_TRUE(p.compile("n / 2", t));
    EXPECT_EQ(p.value(0), -1.5);
    EXPECT_EQ(p.value(1), 3.5);
    EXPECT_EQ(p.value(2), 2147483647.0 / 2);
    EXPECT_EQ(runValues(p, 0, 3), (std::vector<double>{-1.5, 3.5, 2147483647.0 / 2}));
}

TEST(FormulaBindings, BitsReadOneBitPerElementAcrossWords)
{
    const uint32_t words[] = {0x80000005u, 0x00000002u};
    SymbolTable<float> t;
    t.addScalar("sel", Binding::bits(words));
    Program<float> p;
    ASSERT_TRUE(p.compile("sel", t));
    std::vector<float> expected(64, 0.0f);
    expected[0] = expected[2] = expected[31] = expected[33] = 1.0f;
    for (size_t i = 0; i < 64; ++i) EXPECT_EQ(p.value(i), expected[i]) << i;
    EXPECT_EQ(runValues(p, 0, 64), expected);
}

TEST(FormulaBindings, IndexIsTheElementNumber)
{
    SymbolTable<double> t;
    t.addScalar("i", Binding::index());
    Program<double> p;
    ASSERT_TRUE(p.compile("i * 2", t));
    EXPECT_EQ(p.value(7), 14.0);
    EXPECT_EQ(runValues(p, 5, 3), (std::vector<double>{10, 12, 14}));
    const std::vector<double> many = runValues(p, 1000, 1000);
    for (size_t k = 0; k < many.size(); ++k) ASSERT_EQ(many[k], double(1000 + k) * 2);
}

TEST(FormulaBindings, NullDataReadsAsZeroInsteadOfCrashing)
{
    SymbolTable<float> t;
    t.addScalar("a", Binding::array(static_cast<const float*>(nullptr), 4));
    t.addScalar("b", Binding::pointer(static_cast<const double*>(nullptr)));
    Program<float> p;
    ASSERT_TRUE(p.compile("a + b + 1", t));
    EXPECT_EQ(p.value(3), 1.0f);
}

// ---- vectors --------------------------------------------------------------------------

class FormulaVectors : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (int i = 0; i < 200; ++i)
            for (int c = 0; c < 4; ++c) data.push_back(float(i + c * 1000));
        t.addVector("P", Binding::array(data.data(), 4), Binding::array(data.data() + 1, 4),
                    Binding::array(data.data() + 2, 4));
        t.addVector("up", Binding::value(0), Binding::value(1), Binding::pointer(&z));
        t.addScalar("k", Binding::pointer(&k));
        t.addScalar("i", Binding::index());
    }
    float eval(const std::string& text, size_t i)
    {
        Program<float> p;
        std::string error;
        EXPECT_TRUE(p.compile(text, t, &error)) << text << ": " << error;
        return p.value(i);
    }
    std::vector<float> data;
    SymbolTable<float> t;
    double z = 7.0;
    float k = 1.0f;
};

TEST_F(FormulaVectors, ConstantIndexSelectsComponent)
{
    EXPECT_EQ(eval("P[0]", 3), 3.0f);
    EXPECT_EQ(eval("P[1]", 3), 1003.0f);
    EXPECT_EQ(eval("P[2]", 3), 2003.0f);
    EXPECT_EQ(eval("up[1] + up[2]", 0), 8.0f);
}

TEST_F(FormulaVectors, IndexIsTruncatedAndOutOfRangeIsZero)
{
    EXPECT_EQ(eval("P[1.9]", 3), 1003.0f);
    EXPECT_EQ(eval("P[-0.5]", 3), 3.0f);
    EXPECT_EQ(eval("P[3]", 3), 0.0f);
    EXPECT_EQ(eval("P[-1]", 3), 0.0f);
    EXPECT_EQ(eval("P[0/0]", 3), 0.0f);
}

TEST_F(FormulaVectors, RuntimeIndexFollowsItsValue)
{
    Program<float> p;
    ASSERT_TRUE(p.compile("P[k]", t));
    k = 2.0f;
    EXPECT_EQ(p.value(4), 2004.0f);
    k = 0.5f;
    EXPECT_EQ(p.value(4), 4.0f);
    k = 5.0f;
    EXPECT_EQ(p.value(4), 0.0f);
    ASSERT_TRUE(p.compile("P[i % 4]", t));
    const std::vector<float> v = runValues(p, 0, 8);
    EXPECT_EQ(v, (std::vector<float>{0, 1001, 2002, 0, 4, 1005, 2006, 0}));
}

TEST_F(FormulaVectors, BareVectorInArithmeticIsAnError)
{
    Program<float> p;
    std::string error;
    EXPECT_FALSE(p.compile("P * 2", t, &error));
    EXPECT_NE(error.find("vector 'P'"), std::string::npos) << error;
    EXPECT_FALSE(p.compile("k[0]", t));
}

// ---- caller functions -----------------------------------------------------------------

double scaled(void* user, const double* args) { return args[0] * *static_cast<double*>(user); }
double lerp3(void*, const double* args) { return args[0] + (args[1] - args[0]) * args[2]; }
double counted(void* user, const double* args)
{
    ++*static_cast<int*>(user);
    return args[0];
}

double length(void*, const SymbolTable<double>::Arg* args, int count)
{
    if (count != 1 || args[0].size != 3) return -1.0;
    const double* v = args[0].data;
    return std::sqrt(v[0] * v[0] + v[1] * v[1] + v[2] * v[2]);
}

// Encodes the argument shapes and values so one number shows what arrived.
double describeArgs(void* user, const SymbolTable<double>::Arg* args, int count)
{
    double code = *static_cast<double*>(user);
    for (int a = 0; a < count; ++a) {
        code = code * 10 + args[a].size;
        for (int c = 0; c < args[a].size; ++c) code = code * 10 + args[a].data[c];
    }
    return code;
}

class FormulaFunctionsOfCaller : public ::testing::Test {
protected:
    void SetUp() override
    {
        t.addVector("v", Binding::value(3), Binding::value(4), Binding::value(12));
        t.addVector("w", Binding::value(1), Binding::value(2), Binding::pointer(&wz));
        t.addScalar("x", Binding::pointer(&x));
        t.addFunction("scaled", 1, scaled, &factor);
        t.addFunction("lerp3", 3, lerp3);
        t.addFunction("counted", 1, counted, &calls);
        t.addGenericFunction("length", length);
        t.addGenericFunction("shape", describeArgs, &seed);
    }
    SymbolTable<double> t;
    double factor = 10.0, x = 2.0, wz = 3.0, seed = 0.0;
    int calls = 0;
};

TEST_F(FormulaFunctionsOfCaller, FixedArityFunctionGetsItsUserPointer)
{
    Program<double> p;
    ASSERT_TRUE(p.compile("scaled(x) + lerp3(0, 10, 0.25)", t));
    EXPECT_EQ(p.value(), 22.5);
    factor = 100.0;
    EXPECT_EQ(p.value(), 202.5);
}

TEST_F(FormulaFunctionsOfCaller, GenericFunctionReceivesVectorsWholeAndScalarsAlone)
{
    Program<double> p;
    ASSERT_TRUE(p.compile("length(v)", t));
    EXPECT_EQ(p.value(), 13.0);
    ASSERT_TRUE(p.compile("shape(w, 2, v[0])", t));
    EXPECT_EQ(p.value(), 31231213.0); // [3: 1 2 3] [1: 2] [1: 3]
    wz = 5.0;
    EXPECT_EQ(p.value(), 31251213.0);
    ASSERT_TRUE(p.compile("shape()", t));
    EXPECT_EQ(p.value(), 0.0);
}

TEST_F(FormulaFunctionsOfCaller, UntakenBranchDoesNotCallFunctions)
{
    Program<double> p;
    ASSERT_TRUE(p.compile("if(x > 5, counted(1), 2) + (x < 0 ? counted(3) : 0)", t));
    EXPECT_EQ(p.value(), 2.0);
    double out[300];
    p.values(0, 300, out);
    EXPECT_EQ(calls, 0);
    x = 6.0;
    EXPECT_EQ(p.value(), 1.0);
    EXPECT_EQ(calls, 1);
}

TEST_F(FormulaFunctionsOfCaller, WrongArgumentCountIsACompileError)
{
    Program<double> p;
    std::string error;
    EXPECT_FALSE(p.compile("lerp3(1, 2)", t, &error));
    EXPECT_NE(error.find("lerp3"), std::string::npos) << error;
    EXPECT_FALSE(p.compile("scaled(v)", t));
    EXPECT_FALSE(p.compile("scaled", t));
    EXPECT_FALSE(p.compile("x(1)", t));
}

TEST_F(FormulaFunctionsOfCaller, CallerFunctionsCannotTakeBuiltinOrTakenNames)
{
    EXPECT_FALSE(t.addFunction("sin", 1, scaled));
    EXPECT_FALSE(t.addFunction("CLAMP", 3, lerp3));
    EXPECT_FALSE(t.addGenericFunction("min", length));
    EXPECT_FALSE(t.addFunction("scaled", 1, scaled));
    EXPECT_FALSE(t.addFunction("v", 1, scaled));
    EXPECT_FALSE(t.addFunction("zero", 0, scaled));
    EXPECT_FALSE(t.addFunction("six", 6, scaled));
    EXPECT_FALSE(t.addFunction("none", 1, nullptr));
    EXPECT_TRUE(t.addFunction("five", 5, scaled));
}

} // namespace
