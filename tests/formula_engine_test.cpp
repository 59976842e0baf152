// The formula language's meaning: operator precedence and associativity, the built-in
// functions against hand-computed values, conditionals, locals and names. Each case is
// named for the fault it would catch.
#include "expr/formula.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <string>

namespace {

using expr::Binding;
using expr::Program;
using expr::SymbolTable;

class FormulaTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        symbols.addStandardConstants();
        symbols.addScalar("x", Binding::pointer(&x));
    }

    // The value of `text`, failing the test if it does not compile.
    double eval(const std::string& text)
    {
        Program<double> p;
        std::string error;
        EXPECT_TRUE(p.compile(text, symbols, &error)) << text << ": " << error;
        return p.value(0);
    }

    bool compiles(const std::string& text)
    {
        Program<double> p;
        return p.compile(text, symbols);
    }

    SymbolTable<double> symbols;
    double x = 3.0;
};

// ---- precedence and associativity ----------------------------------------------------

using FormulaPrecedence = FormulaTest;

TEST_F(FormulaPrecedence, MultiplicationBindsTighterThanAddition)
{
    EXPECT_EQ(eval("1 + 2 * 3"), 7.0);
    EXPECT_EQ(eval("(1 + 2) * 3"), 9.0);
    EXPECT_EQ(eval("8 - 6 / 2"), 5.0);
}

TEST_F(FormulaPrecedence, SubtractionAndDivisionAreLeftAssociative)
{
    EXPECT_EQ(eval("10 - 4 - 3"), 3.0);
    EXPECT_EQ(eval("100 / 10 / 5"), 2.0);
    EXPECT_EQ(eval("2 * 7 % 4"), 2.0); // (2*7)%4, not 2*(7%4)=6
}

TEST_F(FormulaPrecedence, PowerIsRightAssociative)
{
    EXPECT_EQ(eval("2 ^ 3 ^ 2"), 512.0);
    EXPECT_EQ(eval("(2 ^ 3) ^ 2"), 64.0);
}

TEST_F(FormulaPrecedence, UnaryMinusBindsLooserThanPower)
{
    EXPECT_EQ(eval("-2 ^ 2"), -4.0);
    EXPECT_EQ(eval("(-2) ^ 2"), 4.0);
    EXPECT_EQ(eval("-x ^ 2"), -9.0);
    EXPECT_EQ(eval("2 ^ -2"), 0.25);
    EXPECT_EQ(eval("-2 ^ -2"), -0.25);
}

TEST_F(FormulaPrecedence, PowerBindsTighterThanMultiplication)
{
    EXPECT_EQ(eval("2 * 3 ^ 2"), 18.0);
    EXPECT_EQ(eval("2 ^ 3 * 2"), 16.0);
}

TEST_F(FormulaPrecedence, RepeatedUnarySignsCombine)
{
    EXPECT_EQ(eval("-3 * -2"), 6.0);
    EXPECT_EQ(eval("2 - -3"), 5.0);
    EXPECT_EQ(eval("- -3"), 3.0);
    EXPECT_EQ(eval("+-+3"), -3.0);
}

TEST_F(FormulaPrecedence, ComparisonBindsLooserThanArithmetic)
{
    EXPECT_EQ(eval("1 + 1 == 2"), 1.0);
    EXPECT_EQ(eval("2 < 1 + 2"), 1.0);
    EXPECT_EQ(eval("3 > 2 > 1"), 0.0); // (3 > 2) > 1
}

TEST_F(FormulaPrecedence, LogicBindsLooserThanComparison)
{
    EXPECT_EQ(eval("1 < 2 and 3 < 2"), 0.0);
    EXPECT_EQ(eval("1 < 2 or 3 < 2"), 1.0);
    EXPECT_EQ(eval("1 < 2 & 2 < 3"), 1.0);
}

TEST_F(FormulaPrecedence, AndBindsTighterThanXorThanOr)
{
    EXPECT_EQ(eval("1 or 0 and 0"), 1.0);  // or (and) would give 0
    EXPECT_EQ(eval("1 xor 1 and 0"), 1.0); // xor (and) would give 0
    EXPECT_EQ(eval("1 or 1 xor 1"), 1.0);  // (or) xor would give 0
}

TEST_F(FormulaPrecedence, TernaryIsLowestAndRightAssociative)
{
    EXPECT_EQ(eval("1 ? 2 : 3 + 1"), 2.0);
    EXPECT_EQ(eval("0 ? 2 : 3 + 1"), 4.0);
    EXPECT_EQ(eval("0 ? 1 : 0 ? 2 : 3"), 3.0);
    EXPECT_EQ(eval("1 ? 0 ? 5 : 6 : 7"), 6.0);
}

TEST_F(FormulaPrecedence, AmpersandAndPipeAreLogicalNotBitwise)
{
    EXPECT_EQ(eval("2 & 4"), 1.0); // bitwise would be 0
    EXPECT_EQ(eval("2 | 0"), 1.0);
    EXPECT_EQ(eval("0 | 0"), 0.0);
    EXPECT_EQ(eval("2 && 0.5"), 1.0);
    EXPECT_EQ(eval("0 || -1"), 1.0);
}

TEST_F(FormulaPrecedence, LogicOperatorsGiveOneOrZero)
{
    EXPECT_EQ(eval("5 and 7"), 1.0);
    EXPECT_EQ(eval("5 nand 7"), 0.0);
    EXPECT_EQ(eval("0 nor 0"), 1.0);
    EXPECT_EQ(eval("3 xor 0"), 1.0);
    EXPECT_EQ(eval("3 xnor 4"), 1.0);
    EXPECT_EQ(eval("not(2)"), 0.0);
    EXPECT_EQ(eval("not 0"), 1.0);
    EXPECT_EQ(eval("!0"), 1.0);
    EXPECT_EQ(eval("!(x > 2)"), 0.0);
}

TEST_F(FormulaPrecedence, EqualityHasAllItsSpellings)
{
    EXPECT_EQ(eval("2 = 2"), 1.0);
    EXPECT_EQ(eval("2 == 2"), 1.0);
    EXPECT_EQ(eval("2 <> 3"), 1.0);
    EXPECT_EQ(eval("2 != 2"), 0.0);
    EXPECT_EQ(eval("2 <= 2"), 1.0);
    EXPECT_EQ(eval("2 >= 3"), 0.0);
}

TEST_F(FormulaPrecedence, NumberBeforeNameOrParenthesisMultiplies)
{
    EXPECT_EQ(eval("2x"), 6.0);
    EXPECT_EQ(eval("2x^2"), 18.0);
    EXPECT_EQ(eval("3(x + 1)"), 12.0);
}

// ---- built-in functions --------------------------------------------------------------

using FormulaFunctions = FormulaTest;

TEST_F(FormulaFunctions, TrigonometryMatchesTheCLibrary)
{
    EXPECT_DOUBLE_EQ(eval("sin(0.5)"), std::sin(0.5));
    EXPECT_DOUBLE_EQ(eval("cos(0.5)"), std::cos(0.5));
    EXPECT_DOUBLE_EQ(eval("tan(0.5)"), std::tan(0.5));
    EXPECT_DOUBLE_EQ(eval("asin(0.5)"), std::asin(0.5));
    EXPECT_DOUBLE_EQ(eval("acos(0.5)"), std::acos(0.5));
    EXPECT_DOUBLE_EQ(eval("atan(0.5)"), std::atan(0.5));
    EXPECT_DOUBLE_EQ(eval("atan2(1, 2)"), 0.46364760900080611);
    EXPECT_DOUBLE_EQ(eval("cot(0.5)"), 1.0 / std::tan(0.5));
    EXPECT_DOUBLE_EQ(eval("sec(0.5)"), 1.0 / std::cos(0.5));
    EXPECT_DOUBLE_EQ(eval("csc(0.5)"), 1.0 / std::sin(0.5));
    EXPECT_DOUBLE_EQ(eval("hypot(3, 4)"), 5.0);
}

TEST_F(FormulaFunctions, HyperbolicsMatchTheCLibrary)
{
    EXPECT_DOUBLE_EQ(eval("sinh(0.5)"), std::sinh(0.5));
    EXPECT_DOUBLE_EQ(eval("cosh(0.5)"), std::cosh(0.5));
    EXPECT_DOUBLE_EQ(eval("tanh(0.5)"), std::tanh(0.5));
    EXPECT_DOUBLE_EQ(eval("asinh(0.5)"), std::asinh(0.5));
    EXPECT_DOUBLE_EQ(eval("acosh(2)"), std::acosh(2.0));
    EXPECT_DOUBLE_EQ(eval("atanh(0.5)"), std::atanh(0.5));
}

TEST_F(FormulaFunctions, AngleConversions)
{
    EXPECT_DOUBLE_EQ(eval("deg2rad(180)"), M_PI);
    EXPECT_DOUBLE_EQ(eval("rad2deg(pi / 2)"), 90.0);
    EXPECT_DOUBLE_EQ(eval("deg2grad(90)"), 100.0);
    EXPECT_DOUBLE_EQ(eval("grad2deg(100)"), 90.0);
}

TEST_F(FormulaFunctions, ExponentsAndLogarithms)
{
    EXPECT_DOUBLE_EQ(eval("exp(1)"), M_E);
    EXPECT_DOUBLE_EQ(eval("log(exp(2))"), 2.0);
    EXPECT_DOUBLE_EQ(eval("log10(1000)"), 3.0);
    EXPECT_DOUBLE_EQ(eval("log2(8)"), 3.0);
    EXPECT_DOUBLE_EQ(eval("log1p(1e-10)"), std::log1p(1e-10));
    EXPECT_DOUBLE_EQ(eval("expm1(1e-10)"), std::expm1(1e-10));
    EXPECT_DOUBLE_EQ(eval("logn(8, 2)"), 3.0);
    EXPECT_DOUBLE_EQ(eval("logn(81, 3)"), 4.0);
    EXPECT_DOUBLE_EQ(eval("root(27, 3)"), 3.0);
    EXPECT_DOUBLE_EQ(eval("sqrt(16)"), 4.0);
    EXPECT_DOUBLE_EQ(eval("pow(2, 10)"), 1024.0);
    EXPECT_DOUBLE_EQ(eval("x ^ 0.5"), std::sqrt(3.0));
}

TEST_F(FormulaFunctions, RoundingFamily)
{
    EXPECT_EQ(eval("floor(-1.5)"), -2.0);
    EXPECT_EQ(eval("ceil(-1.5)"), -1.0);
    EXPECT_EQ(eval("round(2.5)"), 3.0);
    EXPECT_EQ(eval("round(-2.5)"), -3.0);
    EXPECT_EQ(eval("trunc(-1.7)"), -1.0);
    EXPECT_EQ(eval("frac(1.25)"), 0.25);
    EXPECT_EQ(eval("frac(-1.25)"), -0.25);
    EXPECT_DOUBLE_EQ(eval("roundn(1.23456, 3)"), 1.235);
    EXPECT_DOUBLE_EQ(eval("roundn(-1.23456, 2)"), -1.23);
    EXPECT_EQ(eval("roundn(2.5, 0)"), 3.0);
}

TEST_F(FormulaFunctions, SignAndMagnitude)
{
    EXPECT_EQ(eval("sgn(-3)"), -1.0);
    EXPECT_EQ(eval("sgn(0)"), 0.0);
    EXPECT_EQ(eval("sgn(0.1)"), 1.0);
    EXPECT_EQ(eval("abs(-2.5)"), 2.5);
}

TEST_F(FormulaFunctions, ErrorFunctionsNormalCdfAndSinc)
{
    EXPECT_NEAR(eval("erf(0.5)"), 0.5204998778130465, 1e-15);
    EXPECT_NEAR(eval("erfc(0.5)"), 0.4795001221869535, 1e-15);
    EXPECT_DOUBLE_EQ(eval("ncdf(0)"), 0.5);
    EXPECT_NEAR(eval("ncdf(1.96)"), 0.9750021048517795, 1e-12);
    EXPECT_NEAR(eval("ncdf(-1)"), 0.15865525393145707, 1e-12);
    EXPECT_EQ(eval("sinc(0)"), 1.0);
    EXPECT_DOUBLE_EQ(eval("sinc(1)"), std::sin(1.0));
    EXPECT_NEAR(eval("sinc(pi)"), 0.0, 1e-15);
}

TEST_F(FormulaFunctions, VariadicFunctions)
{
    EXPECT_EQ(eval("min(3, 1, 2)"), 1.0);
    EXPECT_EQ(eval("max(3, 1, 2)"), 3.0);
    EXPECT_EQ(eval("min(7)"), 7.0);
    EXPECT_EQ(eval("sum(1, 2, 3, 4)"), 10.0);
    EXPECT_EQ(eval("mul(2, 3, 4)"), 24.0);
    EXPECT_EQ(eval("avg(1, 2, 3, 4)"), 2.5);
    EXPECT_EQ(eval("max(x, 1) + min(x, 1)"), 4.0);
}

TEST_F(FormulaFunctions, ClampTakesTheRangeFirst)
{
    EXPECT_EQ(eval("clamp(-1, 5, 1)"), 1.0); // x=5 kept to [-1, 1]
    EXPECT_EQ(eval("clamp(-1, -5, 1)"), -1.0);
    EXPECT_EQ(eval("clamp(-1, 0.5, 1)"), 0.5);
    EXPECT_EQ(eval("clamp(0, x, 2)"), 2.0);
}

TEST_F(FormulaFunctions, InRangeTakesTheRangeFirstAndIncludesEnds)
{
    EXPECT_EQ(eval("inrange(0, 0.5, 1)"), 1.0);
    EXPECT_EQ(eval("inrange(0.5, 0, 1)"), 0.0);
    EXPECT_EQ(eval("inrange(0, 0, 1)"), 1.0);
    EXPECT_EQ(eval("inrange(0, 1, 1)"), 1.0);
    EXPECT_EQ(eval("inrange(0, 1.5, 1)"), 0.0);
}

TEST_F(FormulaFunctions, ModuloKeepsTheSignOfTheDividend)
{
    EXPECT_EQ(eval("-7 % 3"), -1.0);
    EXPECT_EQ(eval("7 % -3"), 1.0);
    EXPECT_EQ(eval("7.5 % 2"), 1.5);
    EXPECT_EQ(eval("-x % 2"), -1.0);
}

TEST_F(FormulaFunctions, EqualIsToleranceBasedButOperatorIsExact)
{
    EXPECT_EQ(eval("0.1 + 0.2 == 0.3"), 0.0);
    EXPECT_EQ(eval("equal(0.1 + 0.2, 0.3)"), 1.0);
    EXPECT_EQ(eval("equal(1e20, 1e20 * (1 + 1e-12))"), 1.0); // scaled by magnitude
    EXPECT_EQ(eval("equal(1, 1.001)"), 0.0);
    EXPECT_EQ(eval("not_equal(1, 1.1)"), 1.0);
    EXPECT_EQ(eval("not_equal(1, 1 + 1e-12)"), 0.0);
}

TEST_F(FormulaFunctions, DivisionByZeroFollowsIeee)
{
    EXPECT_EQ(eval("1 / 0"), std::numeric_limits<double>::infinity());
    EXPECT_EQ(eval("-1 / 0"), -std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(eval("0 / 0")));
    EXPECT_TRUE(std::isnan(eval("1 % 0")));
    EXPECT_EQ(eval("log(0)"), -std::numeric_limits<double>::infinity());
    EXPECT_TRUE(std::isnan(eval("sqrt(-1)")));
    EXPECT_TRUE(std::isnan(eval("x / 0 - x / 0")));
}

// ---- conditionals, statements and locals ---------------------------------------------

using FormulaConditionals = FormulaTest;

TEST_F(FormulaConditionals, IfFunctionPicksTheBranch)
{
    EXPECT_EQ(eval("if(1, 2, 3)"), 2.0);
    EXPECT_EQ(eval("if(0, 2, 3)"), 3.0);
    EXPECT_EQ(eval("if(x > 2, x * 10, x)"), 30.0);
    EXPECT_EQ(eval("if(-0.5, 1, 2)"), 1.0); // any non-zero is true
}

TEST_F(FormulaConditionals, UntakenBranchDoesNotLeakIntoValue)
{
    EXPECT_EQ(eval("if(x < 0, 1 / 0, 5)"), 5.0);
    EXPECT_EQ(eval("x > 0 ? x : sqrt(-1)"), 3.0);
}

TEST_F(FormulaConditionals, IfStatementFormWithElseChains)
{
    EXPECT_EQ(eval("if (x > 2) 1; else 2;"), 1.0);
    EXPECT_EQ(eval("if (x > 5) 1 else if (x > 2) 2 else 3"), 2.0);
    EXPECT_EQ(eval("if (x > 5) { 1 } else { var a := 2; a * x }"), 6.0);
    EXPECT_TRUE(std::isnan(eval("if (x > 5) 1")));
}

TEST_F(FormulaConditionals, StatementsEvaluateToTheLast)
{
    EXPECT_EQ(eval("1; 2; 3"), 3.0);
    EXPECT_EQ(eval("1; 2; 3;"), 3.0);
    EXPECT_EQ(eval("(1; x)"), 3.0);
}

TEST_F(FormulaConditionals, LocalsHoldValuesAndAssignmentsAccumulate)
{
    EXPECT_EQ(eval("var a := 2; var b := a * x; a + b"), 8.0);
    EXPECT_EQ(eval("var a := 10; a -= 3; a *= 2; a /= 7; a"), 2.0);
    EXPECT_EQ(eval("var a := 7; a %= 4; a += 1"), 4.0);
    EXPECT_EQ(eval("var a; a"), 0.0);
    EXPECT_EQ(eval("var A := 2; a * 3"), 6.0); // locals are caseless like exprtk's
}

TEST_F(FormulaConditionals, AssignmentInABranchOnlyTakesEffectWhenTaken)
{
    Program<double> p;
    ASSERT_TRUE(p.compile("var a := 1; if (x > 2) a := 5; else a := 7; a + 0", symbols));
    x = 3.0;
    EXPECT_EQ(p.value(), 5.0);
    x = 1.0;
    EXPECT_EQ(p.value(), 7.0);
    ASSERT_TRUE(p.compile("var a := 1; x > 2 ? (a := 4) : 0; a", symbols));
    EXPECT_EQ(p.value(), 1.0);
    x = 3.0;
    EXPECT_EQ(p.value(), 4.0);
}

TEST_F(FormulaConditionals, BranchLocalsDoNotEscape)
{
    EXPECT_FALSE(compiles("if (x > 1) { var q := 1; q } else 0; q"));
    EXPECT_FALSE(compiles("var a := 1; var a := 2; a"));
}

// ---- names ---------------------------------------------------------------------------

using FormulaNames = FormulaTest;

TEST_F(FormulaNames, KeywordsAndBuiltinsIgnoreCase)
{
    EXPECT_EQ(eval("SIN(0)"), 0.0);
    EXPECT_EQ(eval("If(1, 2, 3)"), 2.0);
    EXPECT_EQ(eval("TRUE + False"), 1.0);
    EXPECT_EQ(eval("1 AND 0"), 0.0);
    EXPECT_EQ(eval("Clamp(0, 5, 3)"), 3.0);
    EXPECT_EQ(eval("NOT(0)"), 1.0);
    EXPECT_EQ(eval("X"), 3.0); // symbol found caselessly
}

TEST_F(FormulaNames, ExactSpellingWinsOverCaseless)
{
    SymbolTable<double> t;
    ASSERT_TRUE(t.addScalar("p", Binding::value(1)));
    ASSERT_TRUE(t.addScalar("P", Binding::value(2)));
    Program<double> p;
    ASSERT_TRUE(p.compile("P * 10 + p", t));
    EXPECT_EQ(p.value(), 21.0);
}

TEST_F(FormulaNames, StandardConstantsHaveExprtkValues)
{
    EXPECT_DOUBLE_EQ(eval("pi"), M_PI);
    EXPECT_EQ(eval("epsilon"), 1e-10);
    EXPECT_EQ(eval("inf"), std::numeric_limits<double>::infinity());
    EXPECT_EQ(eval("-inf < 0"), 1.0);
    SymbolTable<float> f;
    f.addStandardConstants();
    Program<float> p;
    ASSERT_TRUE(p.compile("epsilon", f));
    EXPECT_EQ(p.value(), 1e-6f);
}

TEST_F(FormulaNames, NumberSpellings)
{
    EXPECT_EQ(eval("1e-3"), 0.001);
    EXPECT_EQ(eval(".5"), 0.5);
    EXPECT_EQ(eval("1."), 1.0);
    EXPECT_EQ(eval("2.5E2"), 250.0);
    EXPECT_EQ(eval("1e+2"), 100.0);
    EXPECT_EQ(eval("0.1"), 0.1);
    EXPECT_EQ(eval("1e400"), std::numeric_limits<double>::infinity());
    EXPECT_EQ(eval("1e-400"), 0.0);
}

TEST_F(FormulaNames, CommentsAndBlanksAreIgnored)
{
    EXPECT_EQ(eval("1 + # a comment\n 2"), 3.0);
    EXPECT_EQ(eval("/* before */ 3 // after"), 3.0);
    EXPECT_EQ(eval("\t1\n+\r\n2 "), 3.0);
}

TEST_F(FormulaNames, TableRefusesTakenReservedAndMalformedNames)
{
    SymbolTable<double> t;
    EXPECT_TRUE(t.addScalar("a", Binding::value(1)));
    EXPECT_FALSE(t.addScalar("a", Binding::value(2)));
    EXPECT_FALSE(t.addVector("a", Binding::value(1), Binding::value(2), Binding::value(3)));
    EXPECT_TRUE(t.addScalar("A", Binding::value(2))); // a different spelling is a new name
    EXPECT_FALSE(t.addScalar("and", Binding::value(1)));
    EXPECT_FALSE(t.addScalar("True", Binding::value(1)));
    EXPECT_FALSE(t.addScalar("two words", Binding::value(1)));
    EXPECT_FALSE(t.addScalar("1x", Binding::value(1)));
    EXPECT_FALSE(t.addScalar("", Binding::value(1)));
    EXPECT_EQ(t.entries.size(), 2u);
    EXPECT_TRUE(t.has("a"));
    EXPECT_TRUE(t.has("A"));
    t.clear();
    EXPECT_FALSE(t.has("a"));
    EXPECT_TRUE(t.entries.empty());
}

} // namespace
