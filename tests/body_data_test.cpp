// Point attributes of a Body: creation rules, built-in channels, attribute
// order, per-point edits, the merge rule, the id sort, memory figures, the
// packed bool array, deep copies and the constraint lookups. Each case is named
// for the fault it would catch.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "geo/body.h"

namespace {

const Vec4f kWhite(1, 1, 1, 0);
const Vec4f kUp(0, 0, 1, 0);

bool isIdentity(const Mat3f& m)
{
    const float id[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    return std::equal(m.m, m.m + 9, id);
}

Mat3f scaled3(float s)
{
    Mat3f m;
    for (float& e : m.m) e *= s;
    m.m[1] = s + 1;
    return m;
}

// ---------------------------------------------------------------- attributes

class PointAttribTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (int i = 0; i < 3; ++i) pd.addPoint(Vec4f(float(i), 0, 0));
    }
    PointData pd;
};

TEST(BodyDefaultTest, DefaultBodyHoldsOnlyPAndNoFlags)
{
    Body b;
    EXPECT_EQ(b.points->names, std::vector<std::string>{"P"});
    EXPECT_EQ(b.points->types, std::vector<int>{ATTRIB_POSITION});
    EXPECT_EQ(b.points->attrib("P"), &b.points->P);
    EXPECT_EQ(b.points->size(), 0u);
    EXPECT_FALSE(b.points->hasV || b.points->hasCd || b.points->hasN);
    EXPECT_EQ(b.prims->size(), 0u);
    EXPECT_EQ(b.vertices->size(), 0u);
    EXPECT_EQ(b.volumes->size(), 0u);
    EXPECT_FALSE(b.isDynamic || b.wasDynamic || b.isCached);
}

TEST_F(PointAttribTest, AddingExistingNameAnswersZeroAndKeepsType)
{
    ASSERT_EQ(pd.addAttrib("stick", ATTRIB_INT), 1);
    void* before = pd.attrib("stick");
    pd.attribAs<IntArray>("stick")->at(1) = 7;
    EXPECT_EQ(pd.addAttrib("stick", ATTRIB_FLOAT), 0);
    EXPECT_EQ(pd.attribType("stick"), ATTRIB_INT);
    EXPECT_EQ(pd.attrib("stick"), before);
    EXPECT_EQ(pd.attribAs<IntArray>("stick")->at(1), 7);
}

TEST_F(PointAttribTest, ColorAskedAsFloatBecomesBuiltInVectorChannel)
{
    EXPECT_EQ(pd.addAttrib("Cd", ATTRIB_FLOAT), 1);
    EXPECT_TRUE(pd.hasCd);
    EXPECT_EQ(pd.attribType("Cd"), ATTRIB_COLOR);
    EXPECT_EQ(pd.attrib("Cd"), &pd.Cd);
    ASSERT_EQ(pd.Cd.size(), 3u);
    for (const Vec4f& c : pd.Cd) EXPECT_EQ(c, kWhite);
}

TEST_F(PointAttribTest, BuiltInNamesIgnoreRequestedTypeAndUseOwnDefaults)
{
    pd.addAttrib("N", ATTRIB_INT);
    pd.addAttrib("v", ATTRIB_STRING);
    EXPECT_EQ(pd.attribType("N"), ATTRIB_NORMAL);
    EXPECT_EQ(pd.attribType("v"), ATTRIB_VELOCITY);
    EXPECT_EQ(pd.attrib("N"), &pd.N);
    EXPECT_EQ(pd.attrib("v"), &pd.v);
    EXPECT_TRUE(pd.hasN && pd.hasV);
    EXPECT_EQ(pd.N.at(2), kUp);
    EXPECT_EQ(pd.v.at(2), Vec4f());
}

TEST_F(PointAttribTest, RemovingPOrUnknownNameFailsAndChangesNothing)
{
    EXPECT_EQ(pd.removeAttrib("P"), -1);
    EXPECT_EQ(pd.removeAttrib("nope"), -1);
    EXPECT_EQ(pd.size(), 3u);
    EXPECT_EQ(pd.names, std::vector<std::string>{"P"});
}

TEST_F(PointAttribTest, RemovingBuiltInEmptiesFieldAndClearsFlag)
{
    pd.addAttrib("Cd", ATTRIB_COLOR);
    EXPECT_EQ(pd.removeAttrib("Cd"), 0);
    EXPECT_FALSE(pd.hasCd);
    EXPECT_TRUE(pd.Cd.empty());
    EXPECT_FALSE(pd.hasAttrib("Cd"));
    EXPECT_EQ(pd.attribType("Cd"), ATTRIB_NONE);
    EXPECT_EQ(pd.names, std::vector<std::string>{"P"});
}

TEST_F(PointAttribTest, FlatListsFollowByteWiseNameOrder)
{
    for (const char* name : {"b", "B", "a", "ab", "_x", "Cd", "aa", "a "}) pd.addAttrib(name, ATTRIB_FLOAT);
    const std::vector<std::string> expected = {"B", "Cd", "P", "_x", "a", "a ", "aa", "ab", "b"};
    EXPECT_EQ(pd.names, expected);
    ASSERT_EQ(pd.pointers.size(), expected.size());
    ASSERT_EQ(pd.types.size(), expected.size());
    for (size_t i = 0; i < expected.size(); ++i) {
        EXPECT_EQ(pd.pointers[i], pd.attrib(expected[i])) << expected[i];
        EXPECT_EQ(pd.types[i], pd.attribType(expected[i])) << expected[i];
        EXPECT_EQ(pd.findAttrib(expected[i]), pd.attrib(expected[i])) << expected[i];
    }
}

TEST_F(PointAttribTest, NameLookupPastEndAnswersInternalExceed)
{
    pd.addAttrib("id", ATTRIB_INT);
    EXPECT_EQ(pd.attribName(0), "P");
    EXPECT_EQ(pd.attribName(1), "id");
    EXPECT_EQ(pd.attribName(2), "__internal_exceed__");
    EXPECT_EQ(pd.attribName(1000), "__internal_exceed__");
    EXPECT_FALSE(pd.hasAttrib("__internal_exceed__"));
}

TEST_F(PointAttribTest, CheckedLookupOfMissingNameThrowsInvalidMapKey)
{
    EXPECT_EQ(pd.attrib("missing"), nullptr);
    EXPECT_EQ(pd.findAttrib("missing"), nullptr);
    EXPECT_EQ(pd.attribType("missing"), 14);
    try {
        pd.attribAt("missing");
        FAIL() << "no exception";
    } catch (const std::out_of_range& e) {
        EXPECT_STREQ(e.what(), "invalid map<K, T> key");
    }
    EXPECT_EQ(pd.attribAt("P"), &pd.P);
}

TEST_F(PointAttribTest, UnknownTypeCodeIsRejected)
{
    EXPECT_EQ(pd.addAttrib("x", ATTRIB_NONE), -1);
    EXPECT_EQ(pd.addAttrib("y", -3), -1);
    EXPECT_FALSE(pd.hasAttrib("x") || pd.hasAttrib("y"));
}

TEST_F(PointAttribTest, NewAttributeOfEachTypeGetsItsDefault)
{
    for (int t = 0; t < 14; ++t) ASSERT_EQ(pd.addAttrib("a" + std::to_string(t), t), 1) << t;
    EXPECT_EQ(pd.attribAs<IntArray>("a0")->at(2), 0);
    EXPECT_EQ(pd.attribAs<FloatArray>("a1")->at(2), 0.f);
    EXPECT_EQ(pd.attribAs<BitArray>("a2")->size(), 3u);
    EXPECT_FALSE(pd.attribAs<BitArray>("a2")->get(2));
    EXPECT_EQ(pd.attribAs<StringArray>("a3")->at(2), "");
    for (int t : {4, 5, 6}) EXPECT_EQ(pd.attribAs<VecArray>("a" + std::to_string(t))->at(2), Vec4f());
    EXPECT_EQ(pd.attribAs<VecArray>("a7")->at(2), kWhite);
    EXPECT_EQ(pd.attribAs<VecArray>("a8")->at(2), kUp);
    EXPECT_EQ(pd.attribAs<IntListArray>("a9")->size(), 3u);
    EXPECT_TRUE(pd.attribAs<IntListArray>("a9")->at(2).empty());
    EXPECT_TRUE(pd.attribAs<FloatListArray>("a10")->at(2).empty());
    EXPECT_TRUE(pd.attribAs<VecListArray>("a11")->at(2).empty());
    EXPECT_TRUE(isIdentity(pd.attribAs<Mat3Array>("a12")->at(2)));
    EXPECT_EQ(pd.attribAs<Mat4Array>("a13")->at(2), Mat4f());
    EXPECT_EQ(Mat3f().m[4], 1.f);
    EXPECT_EQ(Mat4f().m[15], 1.f);
}

TEST_F(PointAttribTest, Mat3GrowsWithIdentityNotZeros)
{
    pd.addAttrib("xform", ATTRIB_MAT3);
    auto& m = *pd.attribAs<Mat3Array>("xform");
    m[0] = scaled3(2);
    pd.resizePoints(5);
    pd.addPoint(Vec4f());
    ASSERT_EQ(m.size(), 6u);
    EXPECT_EQ(m[0], scaled3(2));
    for (size_t i = 1; i < 6; ++i) EXPECT_TRUE(isIdentity(m[i])) << i;
    EXPECT_EQ(pd.P.size(), 6u);
}

TEST_F(PointAttribTest, AddWithoutResizeLeavesFillingToCaller)
{
    EXPECT_EQ(pd.addAttrib("age", ATTRIB_FLOAT, false), 1);
    EXPECT_TRUE(pd.attribAs<FloatArray>("age")->empty());
    EXPECT_EQ(std::count(pd.names.begin(), pd.names.end(), "age"), 0);
    *pd.attribAs<FloatArray>("age") = {1, 2, 3};
    pd.rebuildLists();
    EXPECT_EQ(pd.names, (std::vector<std::string>{"P", "age"}));
}

TEST_F(PointAttribTest, AddPointPutsSecondValueOnlyIntoExistingChannel)
{
    pd.addAttrib("v", ATTRIB_VELOCITY);
    pd.addAttrib("id", ATTRIB_INT);
    EXPECT_EQ(pd.addPointV(Vec4f(9, 9, 9), Vec4f(1, 2, 3)), 3);
    EXPECT_EQ(pd.v[3], Vec4f(1, 2, 3));
    EXPECT_EQ(pd.attribAs<IntArray>("id")->size(), 4u);
    // No Cd channel: the colour is dropped and nothing is made.
    EXPECT_EQ(pd.addPointCd(Vec4f(8, 8, 8), Vec4f(0.5f, 0, 0)), 4);
    EXPECT_FALSE(pd.hasCd);
    EXPECT_EQ(pd.v[4], Vec4f());
    pd.addAttrib("Cd", ATTRIB_COLOR);
    pd.addPointCd(Vec4f(7, 7, 7), Vec4f(0.5f, 0, 0));
    EXPECT_EQ(pd.Cd[5], Vec4f(0.5f, 0, 0));
    EXPECT_EQ(pd.Cd[4], kWhite);
}

TEST_F(PointAttribTest, ClearLeavesPAloneWithNoPoints)
{
    pd.addAttrib("Cd", ATTRIB_COLOR);
    pd.addAttrib("id", ATTRIB_INT);
    pd.clear();
    EXPECT_EQ(pd.size(), 0u);
    EXPECT_EQ(pd.names, std::vector<std::string>{"P"});
    EXPECT_FALSE(pd.hasCd);
    EXPECT_TRUE(pd.Cd.empty());
    EXPECT_EQ(pd.addPoint(Vec4f(1, 1, 1)), 0);
}

TEST_F(PointAttribTest, CopyPointsExceptDropsListedButNeverP)
{
    pd.addAttrib("id", ATTRIB_INT);
    pd.addAttrib("data_x", ATTRIB_FLOAT);
    pd.addAttrib("Cd", ATTRIB_COLOR);
    pd.Cd[1] = Vec4f(0.2f, 0.3f, 0.4f);
    auto out = pd.copyPointsExcept({"data_x", "P"});
    EXPECT_EQ(out->names, (std::vector<std::string>{"Cd", "P", "id"}));
    EXPECT_EQ(out->size(), 3u);
    EXPECT_EQ(out->Cd[1], Vec4f(0.2f, 0.3f, 0.4f));
    EXPECT_EQ(out->attrib("Cd"), &out->Cd);
    EXPECT_EQ(out->attribAs<IntArray>("id")->size(), 3u);
}

TEST_F(PointAttribTest, AssignPointsReplacesSharedNamesAndResizesTheRest)
{
    pd.addAttrib("id", ATTRIB_FLOAT);
    pd.addAttrib("age", ATTRIB_FLOAT);
    PointData other;
    other.addPoint(Vec4f(5, 5, 5));
    other.addAttrib("id", ATTRIB_INT);
    (*other.attribAs<IntArray>("id"))[0] = 42;
    pd.assignPoints(other);
    EXPECT_EQ(pd.size(), 1u);
    EXPECT_EQ(pd.P[0], Vec4f(5, 5, 5));
    EXPECT_EQ(pd.attribType("id"), ATTRIB_INT);
    EXPECT_EQ(*pd.attribAs<IntArray>("id"), IntArray{42});
    EXPECT_EQ(pd.attribAs<FloatArray>("age")->size(), 1u);
    EXPECT_EQ(pd.names, (std::vector<std::string>{"P", "age", "id"}));
}

// ---------------------------------------------------------------- per-point edits

class PointEditTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        pd.addAttrib("id", ATTRIB_INT);
        pd.addAttrib("mark", ATTRIB_BOOL);
        pd.addAttrib("name", ATTRIB_STRING);
        pd.addAttrib("neighbs", ATTRIB_INT_LIST);
        pd.addAttrib("Cd", ATTRIB_COLOR);
        for (int i = 0; i < 3; ++i) {
            pd.addPoint(Vec4f(float(i), 0, 0));
            (*pd.attribAs<IntArray>("id"))[i] = 10 + i;
            pd.attribAs<BitArray>("mark")->set(i, i == 2);
            (*pd.attribAs<StringArray>("name"))[i] = "p" + std::to_string(i);
            (*pd.attribAs<IntListArray>("neighbs"))[i] = std::vector<int32_t>(i + 1, i);
            pd.Cd[i] = Vec4f(0.1f * i, 0, 0);
        }
    }
    int id(size_t i) { return (*pd.attribAs<IntArray>("id"))[i]; }
    bool mark(size_t i) { return pd.attribAs<BitArray>("mark")->get(i); }
    const std::string& name(size_t i) { return (*pd.attribAs<StringArray>("name"))[i]; }
    const std::vector<int32_t>& neighbs(size_t i) { return (*pd.attribAs<IntListArray>("neighbs"))[i]; }
    PointData pd;
};

TEST_F(PointEditTest, RemovingIndexZeroMovesLastPointIntoIt)
{
    EXPECT_EQ(pd.removePoint(0), 0);
    ASSERT_EQ(pd.size(), 2u);
    EXPECT_EQ(pd.P[0], Vec4f(2, 0, 0));
    EXPECT_EQ(id(0), 12);
    EXPECT_TRUE(mark(0));
    EXPECT_EQ(name(0), "p2");
    EXPECT_EQ(neighbs(0), std::vector<int32_t>(3, 2));
    EXPECT_EQ(pd.Cd[0], Vec4f(0.2f, 0, 0));
    EXPECT_EQ(id(1), 11);
    EXPECT_EQ(pd.attribAs<BitArray>("mark")->size(), 2u);
    EXPECT_EQ(pd.attribAs<StringArray>("name")->size(), 2u);
    EXPECT_EQ(pd.Cd.size(), 2u);
}

TEST_F(PointEditTest, RemovingLastPointOnlyShrinks)
{
    EXPECT_EQ(pd.removePoint(2), 0);
    ASSERT_EQ(pd.size(), 2u);
    EXPECT_EQ(id(0), 10);
    EXPECT_EQ(id(1), 11);
    EXPECT_EQ(name(1), "p1");
    EXPECT_FALSE(mark(1));
    // The dropped bit must not linger in the word.
    EXPECT_EQ(pd.attribAs<BitArray>("mark")->words()[0], 0u);
}

TEST_F(PointEditTest, RemovingOutOfRangeOrFromEmptyChangesNothing)
{
    EXPECT_EQ(pd.removePoint(3), -1);
    EXPECT_EQ(pd.size(), 3u);
    PointData empty;
    EXPECT_EQ(empty.removePoint(0), -1);
    EXPECT_EQ(empty.size(), 0u);
}

TEST_F(PointEditTest, CopyPointCopiesEveryChannelWithinTheSet)
{
    pd.copyPoint(0, 2);
    EXPECT_EQ(pd.P[0], Vec4f(2, 0, 0));
    EXPECT_EQ(id(0), 12);
    EXPECT_TRUE(mark(0));
    EXPECT_EQ(name(0), "p2");
    EXPECT_EQ(neighbs(0), std::vector<int32_t>(3, 2));
    EXPECT_EQ(pd.Cd[0], Vec4f(0.2f, 0, 0));
    EXPECT_EQ(id(2), 12); // source untouched
    EXPECT_EQ(pd.size(), 3u);
}

TEST_F(PointEditTest, CopyPointAttribsCopiesOnlyListedNamesTheOtherHas)
{
    PointData other;
    other.addAttrib("id", ATTRIB_INT);
    other.addAttrib("name", ATTRIB_FLOAT); // type differs here: skipped
    other.addAttrib("mark", ATTRIB_BOOL);
    other.addPoint(Vec4f(7, 7, 7));
    other.addPoint(Vec4f(8, 8, 8));
    (*other.attribAs<IntArray>("id"))[1] = 99;
    other.attribAs<BitArray>("mark")->set(1, true);
    pd.copyPointAttribs(other, 1, 0, {"id", "mark", "name", "Cd", "P", "missing"});
    EXPECT_EQ(id(0), 99);
    EXPECT_TRUE(mark(0));
    EXPECT_EQ(name(0), "p0");
    EXPECT_EQ(pd.Cd[0], Vec4f(0, 0, 0)); // other has no Cd
    EXPECT_EQ(pd.P[0], Vec4f(8, 8, 8));  // P is a channel like any other
    EXPECT_EQ(id(1), 11);
}

// ---------------------------------------------------------------- merge

class AppendPointsTest : public ::testing::Test {
protected:
    static PointData makePoints(int count, float x0)
    {
        PointData p;
        for (int i = 0; i < count; ++i) p.addPoint(Vec4f(x0 + i, 0, 0));
        return p;
    }
};

TEST_F(AppendPointsTest, MergeCarriesEveryTypeWithDefaultsForThisSide)
{
    PointData a = makePoints(2, 0);
    PointData b = makePoints(3, 10);
    for (int t = 0; t < 14; ++t) b.addAttrib("a" + std::to_string(t), t);
    for (int i = 0; i < 3; ++i) {
        (*b.attribAs<IntArray>("a0"))[i] = 100 + i;
        (*b.attribAs<FloatArray>("a1"))[i] = 0.5f + i;
        b.attribAs<BitArray>("a2")->set(i, true);
        (*b.attribAs<StringArray>("a3"))[i] = "s" + std::to_string(i);
        for (int t = 4; t <= 8; ++t)
            (*b.attribAs<VecArray>("a" + std::to_string(t)))[i] = Vec4f(float(t), float(i), 0);
        (*b.attribAs<IntListArray>("a9"))[i] = {i, -1};
        (*b.attribAs<FloatListArray>("a10"))[i] = {float(i)};
        (*b.attribAs<VecListArray>("a11"))[i] = {Vec4f(float(i), 1, 2)};
        (*b.attribAs<Mat3Array>("a12"))[i] = scaled3(float(i + 2));
        (*b.attribAs<Mat4Array>("a13"))[i].m[3] = float(i + 1);
    }
    a.appendPoints(b);
    ASSERT_EQ(a.size(), 5u);
    EXPECT_EQ(a.P[2], Vec4f(10, 0, 0));
    for (int t = 0; t < 14; ++t) EXPECT_EQ(a.attribType("a" + std::to_string(t)), t);
    for (size_t i = 0; i < a.pointers.size(); ++i) {
        if (a.names[i] != "P") {
            EXPECT_EQ(a.types[i], b.attribType(a.names[i]));
        }
    }

    // This side's two points hold defaults, the other's three hold their values.
    EXPECT_EQ(*a.attribAs<IntArray>("a0"), (IntArray{0, 0, 100, 101, 102}));
    EXPECT_EQ(*a.attribAs<FloatArray>("a1"), (FloatArray{0, 0, 0.5f, 1.5f, 2.5f}));
    const BitArray& bits = *a.attribAs<BitArray>("a2");
    ASSERT_EQ(bits.size(), 5u);
    for (size_t i = 0; i < 5; ++i) EXPECT_EQ(bits.get(i), i >= 2) << i;
    EXPECT_EQ(*a.attribAs<StringArray>("a3"), (StringArray{"", "", "s0", "s1", "s2"}));
    EXPECT_EQ((*a.attribAs<VecArray>("a4"))[1], Vec4f());
    EXPECT_EQ((*a.attribAs<VecArray>("a7"))[1], kWhite);
    EXPECT_EQ((*a.attribAs<VecArray>("a8"))[1], kUp);
    EXPECT_EQ((*a.attribAs<VecArray>("a8"))[4], Vec4f(8, 2, 0));
    EXPECT_TRUE((*a.attribAs<IntListArray>("a9"))[0].empty());
    EXPECT_EQ((*a.attribAs<IntListArray>("a9"))[3], (std::vector<int32_t>{1, -1}));
    EXPECT_EQ((*a.attribAs<FloatListArray>("a10"))[4], std::vector<float>{2.f});
    EXPECT_EQ((*a.attribAs<VecListArray>("a11"))[2], std::vector<Vec4f>{Vec4f(0, 1, 2)});
    EXPECT_TRUE(isIdentity((*a.attribAs<Mat3Array>("a12"))[1]));
    EXPECT_EQ((*a.attribAs<Mat3Array>("a12"))[3], scaled3(3));
    EXPECT_EQ((*a.attribAs<Mat4Array>("a13"))[0], Mat4f());
    EXPECT_EQ((*a.attribAs<Mat4Array>("a13"))[4].m[3], 3.f);
}

TEST_F(AppendPointsTest, OnlySecondHasCdFirstPointsTurnWhite)
{
    PointData a = makePoints(2, 0);
    PointData b = makePoints(2, 10);
    b.addAttrib("Cd", ATTRIB_COLOR);
    b.Cd[0] = Vec4f(1, 0, 0);
    b.Cd[1] = Vec4f(0, 1, 0);
    a.appendPoints(b);
    ASSERT_TRUE(a.hasCd);
    EXPECT_EQ(a.attrib("Cd"), &a.Cd);
    EXPECT_EQ(a.Cd, (VecArray{kWhite, kWhite, Vec4f(1, 0, 0), Vec4f(0, 1, 0)}));
}

TEST_F(AppendPointsTest, AttributeOnlyOnThisSideGrowsWithDefaults)
{
    PointData a = makePoints(2, 0);
    a.addAttrib("age", ATTRIB_FLOAT);
    a.addAttrib("xform", ATTRIB_MAT3);
    *a.attribAs<FloatArray>("age") = {1, 2};
    a.appendPoints(makePoints(3, 10));
    EXPECT_EQ(*a.attribAs<FloatArray>("age"), (FloatArray{1, 2, 0, 0, 0}));
    EXPECT_TRUE(isIdentity(a.attribAs<Mat3Array>("xform")->at(4)));
}

TEST_F(AppendPointsTest, NonMatchingTypesWarnAndKeepThisSideType)
{
    PointData a = makePoints(2, 0);
    PointData b = makePoints(3, 10);
    a.addAttrib("id", ATTRIB_INT);
    *a.attribAs<IntArray>("id") = {5, 6};
    b.addAttrib("id", ATTRIB_FLOAT);
    *b.attribAs<FloatArray>("id") = {1.5f, 2.5f, 3.5f};
    testing::internal::CaptureStdout();
    a.appendPoints(b);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("warning: non matching types."), std::string::npos) << out;
    EXPECT_EQ(a.attribType("id"), ATTRIB_INT);
    EXPECT_EQ(*a.attribAs<IntArray>("id"), (IntArray{5, 6, 0, 0, 0}));
}

TEST_F(AppendPointsTest, BoolsAppendAcrossWordBoundaries)
{
    PointData a = makePoints(33, 0);
    PointData b = makePoints(40, 100);
    a.addAttrib("mark", ATTRIB_BOOL);
    b.addAttrib("mark", ATTRIB_BOOL);
    for (size_t i = 0; i < 33; ++i) a.attribAs<BitArray>("mark")->set(i, i % 3 == 0);
    for (size_t i = 0; i < 40; ++i) b.attribAs<BitArray>("mark")->set(i, i % 5 == 1);
    a.appendPoints(b);
    const BitArray& m = *a.attribAs<BitArray>("mark");
    ASSERT_EQ(m.size(), 73u);
    for (size_t i = 0; i < 73; ++i) EXPECT_EQ(m.get(i), i < 33 ? i % 3 == 0 : (i - 33) % 5 == 1) << i;
}

TEST_F(AppendPointsTest, AppendingToItselfDoublesEveryChannel)
{
    PointData a = makePoints(2, 0);
    a.addAttrib("id", ATTRIB_INT);
    *a.attribAs<IntArray>("id") = {3, 4};
    a.appendPoints(a);
    EXPECT_EQ(a.size(), 4u);
    EXPECT_EQ(*a.attribAs<IntArray>("id"), (IntArray{3, 4, 3, 4}));
}

TEST_F(AppendPointsTest, IntListAllOnesSurvivesCopyAndAppend)
{
    Body src;
    src.points->addPoint(Vec4f());
    src.points->addAttrib("data_captPts", ATTRIB_INT_LIST);
    (*src.points->attribAs<IntListArray>("data_captPts"))[0] = {int32_t(0xFFFFFFFFu), 7};
    const Body copy(src);
    Body dst;
    dst.points->addPoint(Vec4f());
    dst.points->appendPoints(*copy.points);
    const auto& lists = *dst.points->attribAs<IntListArray>("data_captPts");
    ASSERT_EQ(lists.size(), 2u);
    ASSERT_EQ(lists[1].size(), 2u);
    EXPECT_EQ(uint32_t(lists[1][0]), 0xFFFFFFFFu);
    EXPECT_EQ(uint32_t((*copy.points->attribAs<IntListArray>("data_captPts"))[0][0]), 0xFFFFFFFFu);
}

// ---------------------------------------------------------------- sort by id

class SortByIdTest : public ::testing::Test {
protected:
    // Points whose every channel encodes the original index k.
    void fill(size_t count)
    {
        pd.addAttrib("v", ATTRIB_VELOCITY);
        pd.addAttrib("Cd", ATTRIB_COLOR);
        pd.addAttrib("N", ATTRIB_NORMAL);
        pd.addAttrib("name", ATTRIB_STRING);
        pd.addAttrib("mark", ATTRIB_BOOL);
        pd.addAttrib("neighbs", ATTRIB_INT_LIST);
        pd.addAttrib("xform", ATTRIB_MAT3);
        pd.addAttrib("age", ATTRIB_FLOAT);
        for (size_t k = 0; k < count; ++k) {
            const float f = float(k);
            pd.addPoint(Vec4f(f, 0, 0));
            pd.v[k] = Vec4f(0, f, 0);
            pd.Cd[k] = Vec4f(0, 0, f);
            pd.N[k] = Vec4f(f, f, 0);
            (*pd.attribAs<StringArray>("name"))[k] = std::to_string(k);
            pd.attribAs<BitArray>("mark")->set(k, k % 3 == 1);
            (*pd.attribAs<IntListArray>("neighbs"))[k] = {int32_t(k)};
            (*pd.attribAs<Mat3Array>("xform"))[k].m[2] = f;
            (*pd.attribAs<FloatArray>("age"))[k] = f + 0.5f;
        }
    }
    // Every channel at position i must come from original point k.
    void expectFrom(size_t i, size_t k)
    {
        const float f = float(k);
        EXPECT_EQ(pd.P[i], Vec4f(f, 0, 0)) << i;
        EXPECT_EQ(pd.v[i], Vec4f(0, f, 0)) << i;
        EXPECT_EQ(pd.Cd[i], Vec4f(0, 0, f)) << i;
        EXPECT_EQ(pd.N[i], Vec4f(f, f, 0)) << i;
        EXPECT_EQ((*pd.attribAs<StringArray>("name"))[i], std::to_string(k)) << i;
        EXPECT_EQ(pd.attribAs<BitArray>("mark")->get(i), k % 3 == 1) << i;
        EXPECT_EQ((*pd.attribAs<IntListArray>("neighbs"))[i], std::vector<int32_t>{int32_t(k)}) << i;
        EXPECT_EQ((*pd.attribAs<Mat3Array>("xform"))[i].m[2], f) << i;
        EXPECT_EQ((*pd.attribAs<FloatArray>("age"))[i], f + 0.5f) << i;
    }
    PointData pd;
};

TEST_F(SortByIdTest, WithoutIdOrderIsKept)
{
    fill(5);
    pd.sortPointsById();
    for (size_t i = 0; i < 5; ++i) expectFrom(i, i);
}

TEST_F(SortByIdTest, IntIdPermutesEveryChannel)
{
    fill(5);
    pd.addAttrib("id", ATTRIB_INT);
    *pd.attribAs<IntArray>("id") = {30, 10, 40, 0, 20};
    pd.sortPointsById();
    EXPECT_EQ(*pd.attribAs<IntArray>("id"), (IntArray{0, 10, 20, 30, 40}));
    const size_t from[] = {3, 1, 4, 0, 2};
    for (size_t i = 0; i < 5; ++i) expectFrom(i, from[i]);
}

TEST_F(SortByIdTest, FloatIdSortsByTruncatedValueKeepingTiesInOrder)
{
    fill(4);
    pd.addAttrib("id", ATTRIB_FLOAT);
    *pd.attribAs<FloatArray>("id") = {2.7f, 1.2f, 2.1f, 0.9f};
    pd.sortPointsById();
    EXPECT_EQ(*pd.attribAs<FloatArray>("id"), (FloatArray{0.9f, 1.2f, 2.7f, 2.1f}));
    const size_t from[] = {3, 1, 0, 2};
    for (size_t i = 0; i < 4; ++i) expectFrom(i, from[i]);
}

TEST_F(SortByIdTest, LargeSortMatchesStableReference)
{
    const size_t n = 50000;
    fill(n);
    pd.addAttrib("id", ATTRIB_INT);
    std::mt19937 rng(7);
    std::uniform_int_distribution<int> dist(-1000, 1000); // many duplicates
    IntArray& ids = *pd.attribAs<IntArray>("id");
    for (int& id : ids) id = dist(rng);
    std::vector<size_t> ref(n);
    for (size_t i = 0; i < n; ++i) ref[i] = i;
    const IntArray original = ids;
    std::stable_sort(ref.begin(), ref.end(), [&](size_t a, size_t b) { return original[a] < original[b]; });
    pd.sortPointsById();
    for (size_t i = 0; i < n; i += 997) expectFrom(i, ref[i]);
    for (size_t i = 0; i < n; ++i) {
        ASSERT_EQ(ids[i], original[ref[i]]) << i;
        ASSERT_EQ(pd.attribAs<BitArray>("mark")->get(i), ref[i] % 3 == 1) << i;
    }
}

// ---------------------------------------------------------------- memory

TEST(MemoryBytesTest, KnownLayoutSumsHeadersAndElements)
{
    Body b;
    PointData& pd = *b.points;
    EXPECT_EQ(b.memoryBytes(), 24u);
    pd.addAttrib("i", ATTRIB_INT);
    pd.addAttrib("b", ATTRIB_BOOL);
    pd.addAttrib("s", ATTRIB_STRING);
    pd.addAttrib("l", ATTRIB_INT_LIST);
    pd.addAttrib("vl", ATTRIB_VECTOR_LIST);
    pd.addAttrib("m3", ATTRIB_MAT3);
    pd.addAttrib("m4", ATTRIB_MAT4);
    pd.addAttrib("Cd", ATTRIB_COLOR);
    for (int i = 0; i < 3; ++i) pd.addPoint(Vec4f());
    (*pd.attribAs<IntListArray>("l"))[0] = {1, 2};
    (*pd.attribAs<IntListArray>("l"))[2] = {3};
    (*pd.attribAs<VecListArray>("vl"))[0] = {Vec4f()};
    (*pd.attribAs<StringArray>("s"))[0] = "a long string that is not counted";
    const size_t expected = (24 + 3 * 16)                     // P
                            + (24 + 3 * 4)                    // i
                            + (24 + 3 + 8)                    // b
                            + (24 + 3 * 32)                   // s
                            + (24 + (24 + 8) + 24 + (24 + 4)) // l
                            + (24 + (24 + 16) + 24 + 24)      // vl
                            + (24 + 3 * 36)                   // m3
                            + (24 + 3 * 64)                   // m4
                            + (24 + 3 * 16);                  // Cd
    EXPECT_EQ(pd.memoryBytes(), expected);
    EXPECT_EQ(b.memoryBytes(), expected);
}

// ---------------------------------------------------------------- BitArray

TEST(BitArrayTest, ResizeWithTrueSetsOnlyNewBitsAndShrinkClearsTail)
{
    BitArray bits(5, false);
    bits.resize(40, true);
    EXPECT_EQ(bits.size(), 40u);
    for (size_t i = 0; i < 40; ++i) EXPECT_EQ(bits.get(i), i >= 5) << i;
    EXPECT_EQ(bits.numWords(), 2u);
    EXPECT_EQ(bits.words()[1], 0xFFu);
    bits.resize(34);
    EXPECT_EQ(bits.words()[1], 0x3u);
    bits.resize(40);
    EXPECT_FALSE(bits.get(39));
}

TEST(BitArrayTest, PushInsertEraseReverseKeepBitsInPlace)
{
    BitArray bits;
    for (int i = 0; i < 35; ++i) bits.push_back(i % 2 == 0);
    bits.insert(1, true); // 1 1 0 1 0 ...
    EXPECT_EQ(bits.size(), 36u);
    EXPECT_TRUE(bits.get(0) && bits.get(1) && !bits.get(2) && bits.get(3));
    EXPECT_TRUE(bits.get(35));
    bits.erase(0);
    for (int i = 0; i < 35; ++i) EXPECT_EQ(bits.get(i), i % 2 == 0) << i;
    bits.reverse();
    for (int i = 0; i < 35; ++i) EXPECT_EQ(bits.get(i), (34 - i) % 2 == 0) << i;
    bits.append(bits);
    EXPECT_EQ(bits.size(), 70u);
    EXPECT_EQ(bits.get(35), bits.get(0));
}

// Runs body(t) on `threads` threads released together, so that they really
// compete for the same words.
template <class F> void runTogether(int threads, F body)
{
    std::atomic<int> ready{0};
    std::vector<std::thread> pool;
    for (int t = 0; t < threads; ++t)
        pool.emplace_back([&, t] {
            ready.fetch_add(1);
            while (ready.load() < threads) std::this_thread::yield();
            body(t);
        });
    for (auto& th : pool) th.join();
}

TEST(BitArrayTest, AtomicSetAndClearFromThreadsSharingWordsLoseNoBit)
{
    const size_t n = 1 << 20;
    const int threads = 4;
    for (int round = 0; round < 4; ++round) {
        BitArray bits(n, false);
        // Thread t sets bits i % 4 == t: every word is written by all threads.
        runTogether(threads, [&](int t) {
            for (size_t i = size_t(t); i < n; i += threads) bits.setAtomic(i);
        });
        for (size_t w = 0; w < bits.numWords(); ++w) ASSERT_EQ(bits.words()[w], 0xFFFFFFFFu) << w;
        // Two threads clear bits 0 and 2 of every four while two set bits 1 and 3 again.
        runTogether(threads, [&](int t) {
            for (size_t i = size_t(t); i < n; i += threads) {
                if (t % 2 == 0)
                    bits.clearAtomic(i);
                else
                    bits.setAtomic(i);
            }
        });
        for (size_t w = 0; w < bits.numWords(); ++w) ASSERT_EQ(bits.words()[w], 0xAAAAAAAAu) << w;
    }
}

// ---------------------------------------------------------------- deep copy

class BodyCopyTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        PointData& pd = *src.points;
        pd.addAttrib("id", ATTRIB_INT);
        pd.addAttrib("Cd", ATTRIB_COLOR);
        pd.addAttrib("name", ATTRIB_STRING);
        pd.addAttrib("neighbs", ATTRIB_INT_LIST);
        for (int i = 0; i < 3; ++i) pd.addPoint(Vec4f(float(i), 0, 0));
        *pd.attribAs<IntArray>("id") = {1, 2, 3};
        src.prims->addAttrib("group", PRIM_INT);
        src.vertices->addAttrib("uv", PRIM_VECTOR);
        src.prims->addPrim(PrimData::POLYGON);
        src.vertices->addVertexList({0, 1, 2});
        src.pointConstraints.push_back(ConstraintRecord{0, 1, 1.f, 0.5f, 2.f, 1, 0, 0, 0});
        src.edgeConstraints.push_back(ConstraintRecord{1, 2, 1.f, 0.5f, 2.f, 0, 0, 1, 0});
        src.tags = {"t"};
        src.rebuildPointPrims();
        src.isDynamic = true;
        src.wasDynamic = true;
        src.isCached = true;
    }
    Body src;
};

TEST_F(BodyCopyTest, MutatingCopyNeverChangesOriginal)
{
    Body copy(src);
    copy.points->P[0] = Vec4f(9, 9, 9);
    copy.points->Cd[0] = Vec4f(0, 0, 0);
    (*copy.points->attribAs<IntArray>("id"))[0] = 99;
    (*copy.points->attribAs<StringArray>("name"))[0] = "changed";
    (*copy.points->attribAs<IntListArray>("neighbs"))[0].push_back(5);
    copy.points->addAttrib("extra", ATTRIB_FLOAT);
    copy.points->removeAttrib("name");
    (*copy.prims->attribAs<IntArray>("group"))[0] = 4;
    copy.vertices->uv[0][0] = Vec4f(1, 1, 1);
    copy.vertices->indices[0][0] = 2;
    copy.pointConstraints[0].broken = 1;
    copy.edgeConstraints.clear();
    copy.pointPrims[0].clear();
    copy.tags.clear();

    EXPECT_EQ(src.points->P[0], Vec4f(0, 0, 0));
    EXPECT_EQ(src.points->Cd[0], kWhite);
    EXPECT_EQ((*src.points->attribAs<IntArray>("id"))[0], 1);
    EXPECT_EQ((*src.points->attribAs<StringArray>("name"))[0], "");
    EXPECT_TRUE((*src.points->attribAs<IntListArray>("neighbs"))[0].empty());
    EXPECT_FALSE(src.points->hasAttrib("extra"));
    EXPECT_EQ((*src.prims->attribAs<IntArray>("group"))[0], 0);
    EXPECT_EQ(src.vertices->uv[0][0], Vec4f());
    EXPECT_EQ(src.vertices->indices[0][0], 0u);
    EXPECT_EQ(src.pointConstraints[0].broken, 0);
    EXPECT_EQ(src.edgeConstraints.size(), 1u);
    EXPECT_EQ(src.pointPrims[0], std::vector<int32_t>{0});
    EXPECT_EQ(src.tags, std::vector<std::string>{"t"});
}

TEST_F(BodyCopyTest, CopyPointsAtItsOwnArraysAndTakesFlags)
{
    Body copy(src);
    EXPECT_EQ(copy.points->attrib("Cd"), &copy.points->Cd);
    EXPECT_EQ(copy.points->attrib("P"), &copy.points->P);
    EXPECT_EQ(copy.vertices->attrib("uv"), &copy.vertices->uv);
    EXPECT_NE(copy.points->attrib("id"), src.points->attrib("id"));
    EXPECT_NE(copy.prims->attrib("group"), src.prims->attrib("group"));
    EXPECT_EQ(copy.points->names, src.points->names);
    for (size_t i = 0; i < copy.points->names.size(); ++i)
        EXPECT_EQ(copy.points->pointers[i], copy.points->attrib(copy.points->names[i]));
    EXPECT_TRUE(copy.isDynamic && copy.wasDynamic && copy.isCached);
}

TEST_F(BodyCopyTest, AssignmentIsDeepAndReplacesEverything)
{
    Body dst;
    dst.points->addAttrib("stale", ATTRIB_MAT4);
    dst = src;
    EXPECT_FALSE(dst.points->hasAttrib("stale"));
    EXPECT_EQ(dst.points->size(), 3u);
    (*dst.points->attribAs<IntArray>("id"))[1] = 50;
    EXPECT_EQ((*src.points->attribAs<IntArray>("id"))[1], 2);
    EXPECT_EQ(dst.points->attrib("Cd"), &dst.points->Cd);
    dst = dst; // self-assignment keeps the data
    EXPECT_EQ(dst.points->size(), 3u);
}

TEST_F(BodyCopyTest, CopyDoesNotTakeOverRadiusSettings)
{
    src.points->radius = 0.3f;
    src.points->addAttrib("width", ATTRIB_FLOAT);
    src.points->radiusAttrib = src.points->attribAs<FloatArray>("width");
    const PointData copy(*src.points);
    EXPECT_FLOAT_EQ(copy.radius, 0.05f);
    EXPECT_EQ(copy.radiusAttrib, nullptr);
}

TEST_F(BodyCopyTest, ClearKeepsFlagsAndLeavesDefaultContent)
{
    src.numVertices = 3;
    src.clear();
    EXPECT_EQ(src.points->names, std::vector<std::string>{"P"});
    EXPECT_EQ(src.points->size(), 0u);
    EXPECT_EQ(src.prims->size(), 0u);
    EXPECT_TRUE(src.prims->names.empty());
    EXPECT_EQ(src.vertices->size(), 0u);
    EXPECT_FALSE(src.vertices->hasUV);
    EXPECT_TRUE(src.pointConstraints.empty() && src.edgeConstraints.empty());
    EXPECT_TRUE(src.pointPrims.empty() && src.tags.empty());
    EXPECT_EQ(src.numVertices, 0u);
    EXPECT_TRUE(src.isDynamic && src.wasDynamic && src.isCached);
}

TEST(ConstraintRecordTest, IsTwentyFourBytesOfPlainData)
{
    EXPECT_EQ(sizeof(ConstraintRecord), 24u);
    ConstraintRecord r;
    EXPECT_EQ(r.broken, 0);
    EXPECT_EQ(r.a, 0u);
}

// ---------------------------------------------------------------- constraint lookups

class ConstraintLookupTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        for (int i = 0; i < 3; ++i) body.points->addPoint(Vec4f(float(i), 0, 0));
        body.points->addAttrib("data_constrIndices", ATTRIB_INT_LIST);
        body.points->addAttrib("data_constrDistances", ATTRIB_FLOAT_LIST);
        *body.points->attribAs<IntListArray>("data_constrIndices") = {{1, 2}, {0}, {0}};
        *body.points->attribAs<FloatListArray>("data_constrDistances") = {{0.5f, 0.7f}, {0.5f}, {0.7f}};
    }
    Body body;
};

TEST_F(ConstraintLookupTest, CountsAndPartnersComeFromTheAttributes)
{
    EXPECT_EQ(body.numConstraints(0), 2);
    EXPECT_EQ(body.numConstraints(1), 1);
    EXPECT_EQ(body.constraintPartner(0, 1), 2);
    EXPECT_FLOAT_EQ(body.constraintDistance(0, 1), 0.7f);
    EXPECT_EQ(body.constraintPartners(0), (std::vector<int32_t>{1, 2}));
}

TEST_F(ConstraintLookupTest, IndexPastEndPrintsExceedVectorAndAnswersZero)
{
    testing::internal::CaptureStdout();
    const int partner = body.constraintPartner(1, 1);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(partner, 0);
    EXPECT_EQ(out, "exceed vector\n");
    testing::internal::CaptureStdout();
    EXPECT_EQ(body.constraintDistance(2, 5), 0.f);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "exceed vector\n");
}

TEST_F(ConstraintLookupTest, BodyWithPrimitivesAnswersNothing)
{
    body.prims->addPrim(PrimData::LINE);
    body.vertices->addVertexList({0, 1});
    EXPECT_EQ(body.numConstraints(0), 0);
    EXPECT_EQ(body.constraintPartner(0, 0), 0);
    EXPECT_TRUE(body.constraintPartners(0).empty());
}

TEST_F(ConstraintLookupTest, MissingDistanceAttributeAnswersNothing)
{
    body.points->removeAttrib("data_constrDistances");
    EXPECT_EQ(body.numConstraints(0), 0);
    EXPECT_TRUE(body.constraintPartners(0).empty());
}

} // namespace
