// Point formulas over a Body: attribute reads of every bindable type, component suffixes,
// point numbers, missing attributes, the shared vocabulary, and parallel evaluation.
#include "testenv.h"

#include "geo/body.h"
#include "params/expression.h"
#include "params/parameter.h"
#include "params/parameterset.h"
#include "params/pointexpression.h"

#include <gtest/gtest.h>

#include <cmath>
#include <thread>

namespace {

class PointExpressionTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        body = std::make_shared<Body>();
        PointData& pts = *body->points;
        pts.addAttrib("v", 6);
        pts.addAttrib("Cd", 7);
        pts.addAttrib("id", 0);
        pts.addAttrib("age", 1);
        pts.addAttrib("sleeping", 2);
        for (int i = 0; i < 5; ++i) pts.addPoint(Vec4f(float(i), float(i) * 10.f, -float(i), 0.f));
        for (int i = 0; i < 5; ++i) {
            pts.v[size_t(i)] = Vec4f(0.f, float(i) * 0.3f, 0.f, 0.f);
            pts.Cd[size_t(i)] = Vec4f(0.1f * float(i), 0.5f, 0.9f, 0.f);
            (*pts.attribAs<std::vector<int32_t>>("id"))[size_t(i)] = 100 + i;
            (*pts.attribAs<std::vector<float>>("age"))[size_t(i)] = 0.5f * float(i);
            pts.attribAs<BitArray>("sleeping")->set(size_t(i), i % 2 == 1);
        }
    }
    std::vector<float> run(const std::string& text)
    {
        PointExpression e;
        e.compile(text, body, 3.f);
        std::vector<float> out;
        for (size_t i = 0; i < body->points->size(); ++i) out.push_back(e.value(i));
        return out;
    }
    std::shared_ptr<Body> body;
};

TEST_F(PointExpressionTest, ComponentsOfPositionAndColour)
{
    EXPECT_EQ(run("@P.y"), (std::vector<float>{0, 10, 20, 30, 40}));
    EXPECT_EQ(run("@P.z"), (std::vector<float>{0, -1, -2, -3, -4}));
    const auto r = run("@Cd.r");
    EXPECT_FLOAT_EQ(r[3], 0.3f);
    EXPECT_FLOAT_EQ(run("@Cd.b")[0], 0.9f);
}

TEST_F(PointExpressionTest, ScalarAttributeTypes)
{
    EXPECT_EQ(run("@id"), (std::vector<float>{100, 101, 102, 103, 104}));
    EXPECT_EQ(run("@age * 2"), (std::vector<float>{0, 1, 2, 3, 4}));
    EXPECT_EQ(run("@sleeping"), (std::vector<float>{0, 1, 0, 1, 0}));
}

TEST_F(PointExpressionTest, PointNumbersWithoutMissingLines)
{
    testing::internal::CaptureStdout();
    EXPECT_EQ(run("@ptnum % 2"), (std::vector<float>{0, 1, 0, 1, 0}));
    EXPECT_EQ(run("@ptNum % 2"), (std::vector<float>{0, 1, 0, 1, 0}));
    EXPECT_EQ(run("@numPoints - @pointNum"), (std::vector<float>{5, 4, 3, 2, 1}));
    EXPECT_EQ(testing::internal::GetCapturedStdout().find("not found"), std::string::npos);
}

TEST_F(PointExpressionTest, LengthOfVelocity)
{
    EXPECT_EQ(run("length(@v) > 0.5"), (std::vector<float>{0, 0, 1, 1, 1}));
}

TEST_F(PointExpressionTest, MissingAttributeGivesZeroWithMessage)
{
    testing::internal::CaptureStdout();
    PointExpression e;
    EXPECT_FALSE(e.compile("@density * 2 + 1", body, 1.f));
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("attr density not found."), std::string::npos);
    EXPECT_EQ(e.value(2), 0.f);
    EXPECT_EQ(e.attribType[0], 14);
    EXPECT_EQ(e.attribIndex[0], -1);
}

TEST_F(PointExpressionTest, NamesKeepRepeatsAndComponents)
{
    PointExpression e;
    e.compile("@P.x + @P.y + @Cd", body, 1.f);
    EXPECT_EQ(e.names, (std::vector<std::string>{"P", "P", "Cd"}));
    EXPECT_EQ(e.components, (std::vector<char>{'x', 'y', 0}));
    EXPECT_EQ(e.attribType[0], 5);
}

TEST_F(PointExpressionTest, LogicRewritesAndFrames)
{
    EXPECT_EQ(run("!(@P.x > 1)"), (std::vector<float>{1, 1, 0, 0, 0}));
    EXPECT_EQ(run("@P.x > 0 && @P.x < 4"), (std::vector<float>{0, 1, 1, 1, 0}));
    EXPECT_EQ(run("@P.x < 1 || @P.x > 3"), (std::vector<float>{1, 0, 0, 0, 1}));
    EXPECT_EQ(run("frame + @P.x * 0"), (std::vector<float>{3, 3, 3, 3, 3}));
}

TEST_F(PointExpressionTest, ParallelEvaluationMatchesSerial)
{
    auto big = std::make_shared<Body>();
    big->points->addAttrib("v", 6);
    const size_t n = 100000;
    big->points->resizePoints(n);
    for (size_t i = 0; i < n; ++i) {
        big->points->P[i] = Vec4f(float(i) * 1e-3f, float(i % 7), 0.f, 0.f);
        big->points->v[i] = Vec4f(0.f, 0.f, float(i % 13) * 0.1f - 0.3f, 0.f);
    }
    PointExpression e;
    ASSERT_TRUE(e.compile("@P.y * 2 + sin(@P.x) * clamp(@v.z, 0, 1) + rand(@ptnum)", big, 1.f));
    std::vector<float> serial(n), parallel(n);
    for (size_t i = 0; i < n; ++i) serial[i] = e.value(i);
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
        threads.emplace_back([&, t] {
            for (size_t first = size_t(t) * 1000; first < n; first += 4000)
                e.values(first, std::min<size_t>(1000, n - first), parallel.data() + first);
        });
    for (auto& th : threads) th.join();
    EXPECT_EQ(serial, parallel);
}

TEST_F(PointExpressionTest, ParameterRowCompilesPerPoint)
{
    ParameterSet set;
    float mask = 0.f;
    Parameter* p = set.add(Parameter(&mask, "mask", "Mask", kParamFloat));
    p->text = "@P.x * 2";
    p->evaluate(1, 0);
    ASSERT_TRUE(p->isPerPoint);
    p->setPointExpression(body);
    ASSERT_TRUE(p->pointExpression);
    EXPECT_EQ(p->pointExpression->value(3), 6.f);
}

TEST(FormulaVocabulary, SharedFunctions)
{
    ensureSceneRecords();
    EXPECT_DOUBLE_EQ(formulaRemap(5, 0, 10, 100, 200), 150);
    EXPECT_DOUBLE_EQ(formulaRemap(-5, 0, 10, 100, 200), 100);
    EXPECT_DOUBLE_EQ(formulaRemaps(2.5, 0, 10, 0, 1), (3 - 0.5) * 0.0625);
    EXPECT_EQ(formulaRand(3), formulaRand(3));
    EXPECT_EQ(formulaRand(3), simState->randomTable[3]);
    EXPECT_EQ(formulaRand(20003), simState->randomTable[3]);
    for (double x = -50; x < 50; x += 0.37) {
        const double n = formulaNoise(x);
        ASSERT_GE(n, 0.0);
        ASSERT_LE(n, 1.0);
    }
    EXPECT_NEAR(formulaNoise(0), 0.5, 1e-12) << "improved noise is zero at lattice points";
    EXPECT_NE(formulaNoise(0.3), formulaNoise(0.7));
    EXPECT_EQ(prepareFormula("!(a) && b || c", false), "not(a) & b | c");
    EXPECT_EQ(prepareFormula("@P.x+@Cd.g", true), "@P[0]+@Cd[1]");
}

} // namespace
