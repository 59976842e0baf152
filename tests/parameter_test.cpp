// Parameter rows: text to bound field for every type, limits, lists, keyframes, overrides,
// expressions, references, tokens and the change flags that drive recooks.
#include "testenv.h"

#include "params/parameter.h"
#include "params/parameterset.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

class SceneObjectStub : public SceneObject {
public:
    explicit SceneObjectStub(int type = kTypeObject) : SceneObject(type) {}
    bool b = false;
    int i = 0;
    float f = 0.f;
    std::string s;
    int kind = 0;
    float rx = 0.f, ry = 0.f, rz = 0.f;
};

class ParameterTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        ensureSceneRecords();
        simState->frame = 0;
        simState->fps = 24.f;
    }
    ParameterSet set;
    bool b = false;
    int i = 0;
    float f = 0.f;
    std::string s;
    int kind = 0;

    Parameter* row(void* field, const char* key, int type)
    {
        return set.add(Parameter(field, key, key, type));
    }
};

TEST_F(ParameterTest, IntClampsFieldButKeepsText)
{
    Parameter* p = row(&i, "count", kParamInt);
    p->hasMin = p->hasMax = true;
    p->minValue = 0;
    p->maxValue = 100;
    p->text = "250";
    p->evaluate(0, 0);
    EXPECT_EQ(i, 100);
    EXPECT_EQ(p->text, "250");
    EXPECT_EQ(p->resolved, "100");
    p->text = "-7.9";
    p->evaluate(0, 0);
    EXPECT_EQ(i, 0);
}

TEST_F(ParameterTest, IntTruncatesTowardZero)
{
    Parameter* p = row(&i, "count", kParamInt);
    p->text = "-7.9";
    p->evaluate(0, 0);
    EXPECT_EQ(i, -7);
    p->text = "3.99";
    p->evaluate(0, 0);
    EXPECT_EQ(i, 3);
}

TEST_F(ParameterTest, BoolTextForms)
{
    Parameter* p = row(&b, "on", kParamBool);
    for (auto [text, want] : std::vector<std::pair<std::string, bool>>{
             {"0", false}, {"1", true}, {"true", true}, {"false", false}, {"2", false}, {"frame < 5", true}}) {
        b = !want;
        p->text = text;
        p->evaluate(0, 0);
        EXPECT_EQ(b, want) << text;
        EXPECT_EQ(p->resolved, want ? "true" : "false") << text;
    }
}

TEST_F(ParameterTest, EmptyNumericTextBecomesZero)
{
    Parameter* p = row(&f, "size", kParamFloat);
    f = 5.f;
    p->text = "";
    p->evaluate(0, 0);
    EXPECT_EQ(p->text, "0");
    EXPECT_EQ(f, 0.f);
    p->text = " ";
    f = 5.f;
    p->evaluate(0, 0);
    EXPECT_EQ(f, 0.f);
}

TEST_F(ParameterTest, ListKindAcceptsIndexOrEntry)
{
    Parameter* byIndex = row(&kind, "kind", kParamColliderKind);
    int other = 0;
    Parameter* byName = row(&other, "kind2", kParamColliderKind);
    byIndex->text = "1";
    byName->text = "Mesh";
    byIndex->evaluate(0, 0);
    byName->evaluate(0, 0);
    EXPECT_EQ(kind, 1);
    EXPECT_EQ(other, 1);
    EXPECT_EQ(byIndex->resolved, "Mesh");
    byName->text = "NoSuchKind";
    byName->evaluate(0, 0);
    EXPECT_EQ(other, 0);
}

TEST_F(ParameterTest, EnumUsesOwnEntries)
{
    Parameter* p = row(&kind, "mode", kParamEnum);
    p->enumEntries = {"A", "B", "C"};
    p->text = "C";
    p->evaluate(0, 0);
    EXPECT_EQ(kind, 2);
    p->text = "7";
    p->evaluate(0, 0);
    EXPECT_EQ(kind, 2) << "an index past the list is clamped to its last entry";
}

TEST_F(ParameterTest, ExpressionOfFrame)
{
    Parameter* p = row(&f, "size", kParamFloat);
    p->text = "1";
    p->evaluate(12, 0);
    EXPECT_TRUE(p->isLiteral);
    p->text = "frame*2";
    p->evaluate(12, 0);
    EXPECT_FLOAT_EQ(f, 24.f);
    EXPECT_TRUE(p->hasExpression);
    EXPECT_TRUE(p->isLiteral) << "isLiteral keeps its last value";
    EXPECT_TRUE(p->isTimeDependent());
}

TEST_F(ParameterTest, TimeAndFpsInExpressions)
{
    Parameter* p = row(&f, "size", kParamFloat);
    p->text = "time * fps + framef";
    p->evaluate(12.5f, 0);
    EXPECT_NEAR(f, 25.f, 1e-4);
}

TEST_F(ParameterTest, FailedCompileGivesZeroSilently)
{
    Parameter* p = row(&f, "size", kParamFloat);
    f = 3.f;
    p->text = "sin(";
    testing::internal::CaptureStdout();
    p->evaluate(0, 0);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_EQ(f, 0.f);
    EXPECT_EQ(out.find("expr. parse error."), std::string::npos);
    EXPECT_FALSE(p->hasExpression);
}

TEST_F(ParameterTest, NanLiteralIsRefused)
{
    Parameter* p = row(&f, "size", kParamFloat);
    p->text = "nan";
    testing::internal::CaptureStdout();
    p->evaluate(0, 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(f, 0.f);
    Parameter* q = row(&i, "count", kParamInt);
    q->text = "0/0";
    testing::internal::CaptureStdout();
    q->evaluate(0, 0);
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(i, 0);
}

TEST_F(ParameterTest, PerPointTextIsFlaggedAndFieldGetsZero)
{
    Parameter* p = row(&f, "mask", kParamFloat);
    f = 9.f;
    p->text = "@P.y";
    p->evaluate(0, 0);
    EXPECT_TRUE(p->isPerPoint);
    EXPECT_TRUE(p->hasExpression);
    EXPECT_EQ(f, 0.f);
}

TEST_F(ParameterTest, KeyframesInterpolateAndHoldOutside)
{
    Parameter* p = row(&f, "size", kParamFloat);
    p->text = "key(1:0 24:1)";
    p->evaluate(0, 0);
    EXPECT_FLOAT_EQ(f, 0.f);
    p->evaluate(24, 0);
    EXPECT_FLOAT_EQ(f, 1.f);
    p->evaluate(30, 0);
    EXPECT_FLOAT_EQ(f, 1.f);
    p->evaluate(12.5f, 0);
    EXPECT_NEAR(f, 0.5f, 1e-6);
    EXPECT_TRUE(p->isTimeDependent());
    p->text = "1:0 24:1";
    p->evaluate(12.5f, 0);
    EXPECT_NEAR(f, 0.5f, 1e-6);
}

TEST_F(ParameterTest, BrokenKeyframePieceFallsBackToZero)
{
    Parameter* p = row(&f, "size", kParamFloat);
    p->text = "1:x 24:1";
    testing::internal::CaptureStdout();
    p->evaluate(5, 0);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("something wrong in keyframe evaluation: size"), std::string::npos);
    EXPECT_TRUE(p->keys.empty());
    EXPECT_EQ(f, 1.f) << "a text that is no formula is read as a number";
}

TEST_F(ParameterTest, SetKeyRewritesTextAndOverrideHoldsUntilFrameChanges)
{
    Parameter* p = row(&f, "size", kParamFloat);
    p->setKey(1, 2);
    p->setKey(10, 4);
    EXPECT_EQ(p->text, "1:2 10:4 ");
    p->evaluate(1, 0);
    EXPECT_FLOAT_EQ(f, 2.f);
    testing::internal::CaptureStdout();
    p->userEdit("7");
    testing::internal::GetCapturedStdout();
    EXPECT_EQ(p->text, "1:2 10:4 ") << "a number on a keyed row must not replace the keys";
    p->evaluate(1, 0);
    EXPECT_FLOAT_EQ(f, 7.f);
    p->overridden = false; // what the node master does when the cook time changes
    p->evaluate(1, 0);
    EXPECT_FLOAT_EQ(f, 2.f);
}

TEST_F(ParameterTest, ChangeFlagsFollowTheCycle)
{
    Parameter* p = row(&f, "size", kParamFloat);
    p->text = "1";
    p->evaluate(0, 0);
    EXPECT_TRUE(p->textChanged);
    EXPECT_TRUE(p->valueChanged);
    set.clearChanged();
    EXPECT_FALSE(p->textChanged);
    EXPECT_FALSE(p->valueChanged);
    p->evaluate(0, 0);
    EXPECT_FALSE(p->textChanged) << "an unchanged row must not report a change";
    EXPECT_FALSE(p->valueChanged);
    EXPECT_FALSE(set.anyValueChanged());
    p->text = "2";
    p->evaluate(0, 0);
    EXPECT_TRUE(set.anyTextChanged());
    EXPECT_TRUE(set.anyValueChanged());
    EXPECT_FALSE(set.anyValueChanged({"size"}));
}

TEST_F(ParameterTest, TimeDependenceIsTextual)
{
    Parameter* p = row(&f, "size", kParamFloat);
    for (const char* t : {"frame", "timescale", "$F", "####", "sin(framef)"}) {
        p->text = t;
        EXPECT_TRUE(p->isTimeDependent()) << t;
    }
    p->text = "3*2";
    EXPECT_FALSE(p->isTimeDependent());
}

TEST_F(ParameterTest, ConstructorBuildsTooltipAndDefaultText)
{
    f = 2.5f;
    Parameter p(&f, "size", "Size", kParamFloat, "How big.");
    EXPECT_EQ(p.toolTip, "<b>Size:</b><br><i>(size)</i><br><br>How big.");
    EXPECT_EQ(p.defaultText, "2.5");
    EXPECT_TRUE(p.text.empty());
    Parameter label(&s, "label", "Caption", kParamString);
    EXPECT_TRUE(label.toolTip.empty());
}

TEST_F(ParameterTest, RefreshTextForms)
{
    Parameter* p = row(&f, "size", kParamFloat);
    f = 0.125f;
    p->refreshText(false);
    EXPECT_EQ(p->text, "0.125");
    f = 3.f;
    p->refreshText(false);
    EXPECT_EQ(p->text, "0.125") << "without force a text stays";
    p->refreshText(true);
    EXPECT_EQ(p->text, "3");
}

TEST_F(ParameterTest, ClampedTextOnlyClampsNumbers)
{
    Parameter* p = row(&f, "size", kParamFloat);
    p->hasMax = true;
    p->maxValue = 10;
    EXPECT_EQ(p->clampedText("25.5"), "10");
    EXPECT_EQ(p->clampedText("frame*2"), "frame*2");
}

TEST_F(ParameterTest, SpecialRowsAndVisibility)
{
    EXPECT_EQ(set.addSpecial(100)->label, "-----");
    EXPECT_EQ(set.addSpecial(101)->key, "writeButton");
    EXPECT_EQ(set.addSpecial(102, "Caption:")->label, "Caption:");
    EXPECT_EQ(set.addSpecial(7), nullptr);
    Parameter* p = row(&f, "size", kParamFloat);
    int mode = 2;
    p->visibleIfInt = &mode;
    p->visibleIntValue = 2;
    EXPECT_TRUE(p->visibility());
    p->visibleNegate = true;
    EXPECT_FALSE(p->visibility());
    EXPECT_EQ(set.visibleRow(3, false), nullptr);
    EXPECT_EQ(set.visibleRow(3, true), p);
}

TEST_F(ParameterTest, KeyTimesAcrossRows)
{
    Parameter* a = row(&f, "a", kParamFloat);
    Parameter* c = row(&i, "c", kParamInt);
    a->setKey(1, 0);
    a->setKey(10, 1);
    c->setKey(5, 0);
    c->setKey(10, 3);
    EXPECT_EQ(set.keyTimes(), (std::vector<double>{1, 5, 10}));
    EXPECT_EQ(set.previousKey(5), 1);
    EXPECT_EQ(set.nextKey(5), 10);
    EXPECT_EQ(set.nextKey(10), 10);
}

TEST_F(ParameterTest, RowPointersSurviveManyAdds)
{
    Parameter* first = row(&f, "first", kParamFloat);
    std::vector<float> fields(200);
    for (int k = 0; k < 200; ++k) set.add(Parameter(&fields[size_t(k)], "r" + std::to_string(k), "r", kParamFloat));
    EXPECT_EQ(first, set.get("first"));
    EXPECT_EQ(first->owner, &set);
}

TEST(ParameterObjects, RefReadsAnotherObjectsResolvedRow)
{
    ensureSceneRecords();
    auto grid = std::make_unique<SceneObjectStub>();
    Parameter* size = grid->params.add(Parameter(&grid->f, "sizeX", "Size X", kParamFloat));
    size->text = "frame + 1";
    SceneObjectStub* g = grid.get();
    simulation->registerObject(std::move(grid), "grid1");

    auto user = std::make_unique<SceneObjectStub>();
    Parameter* twice = user->params.add(Parameter(&user->f, "len", "Len", kParamFloat));
    twice->text = "ref(grid1.sizeX)*2";
    SceneObjectStub* u = user.get();
    simulation->registerObject(std::move(user), "user1");
    twice->evaluate(4, 0);
    EXPECT_FLOAT_EQ(u->f, 10.f);
    EXPECT_FLOAT_EQ(g->f, 5.f);
    EXPECT_TRUE(twice->hasExpression);

    // A reference to nobody stays in the text and the formula gives 0.
    twice->text = "ref(nobody.sizeX)*2";
    twice->evaluate(4, 0);
    EXPECT_FLOAT_EQ(u->f, 0.f);
}

TEST(ParameterObjects, RefCycleEndsWithoutCrash)
{
    ensureSceneRecords();
    auto a = std::make_unique<SceneObjectStub>();
    Parameter* pa = a->params.add(Parameter(&a->f, "v", "V", kParamFloat));
    pa->text = "ref(cycB.v)+1";
    simulation->registerObject(std::move(a), "cycA");
    auto b = std::make_unique<SceneObjectStub>();
    Parameter* pb = b->params.add(Parameter(&b->f, "v", "V", kParamFloat));
    pb->text = "ref(cycA.v)+1";
    simulation->registerObject(std::move(b), "cycB");
    testing::internal::CaptureStdout();
    pa->evaluate(0, 0);
    testing::internal::GetCapturedStdout();
    SUCCEED();
}

TEST(ParameterObjects, RenameToTakenNameCountsUp)
{
    ensureSceneRecords();
    auto a = std::make_unique<SceneObjectStub>();
    a->params.add(Parameter(&a->name, "name", "Name", kParamObjectName));
    SceneObjectStub* pa = a.get();
    simulation->registerObject(std::move(a), "box");
    auto b = std::make_unique<SceneObjectStub>();
    Parameter* nameRow = b->params.add(Parameter(&b->name, "name", "Name", kParamObjectName));
    SceneObjectStub* pb = b.get();
    simulation->registerObject(std::move(b), "crate");
    nameRow->text = "box";
    nameRow->evaluate(0, 0);
    EXPECT_EQ(pa->name, "box");
    EXPECT_EQ(pb->name, "box1");
    EXPECT_EQ(nameRow->resolved, "box1");
    EXPECT_EQ(simulation->findByName("box1"), pb);
}

TEST(ParameterObjects, QuaternionKeysBlendRotations)
{
    ensureSceneRecords();
    SceneObjectStub o;
    o.params.quaternionRotation = true;
    Parameter* x = o.params.add(Parameter(&o.rx, "rotateX", "Rotate X", kParamFloat));
    Parameter* y = o.params.add(Parameter(&o.ry, "rotateY", "Rotate Y", kParamFloat));
    Parameter* z = o.params.add(Parameter(&o.rz, "rotateZ", "Rotate Z", kParamFloat));
    x->text = "0:0 10:0";
    y->text = "0:0 10:0";
    z->text = "0:0 10:90";
    o.params.evaluateAll(5, 0);
    EXPECT_NEAR(o.rz, 45.f, 1e-3);
    EXPECT_NEAR(o.rx, 0.f, 1e-3);
    // Out of sync: the rows stay as evaluated and a message says why.
    y->text = "0:0 8:0";
    testing::internal::CaptureStdout();
    o.params.evaluateAll(5, 0);
    const std::string out = testing::internal::GetCapturedStdout();
    EXPECT_NE(out.find("Rotation keys are not in sync for quaternion interpolation."), std::string::npos);
}

TEST(ParameterObjects, GlobalSettingsWritesSimState)
{
    ensureSceneRecords();
    GlobalSettings* g = simulation->globalSettings;
    ASSERT_NE(g, nullptr);
    EXPECT_EQ(simState->globalSettingsId, g->id);
    EXPECT_EQ(simulation->findByName("GlobalSettings"), g);
    Parameter* minSub = g->params.get("minSubsteps");
    minSub->text = "0";
    g->evaluateParameters(0, 0);
    EXPECT_EQ(simState->minSubsteps, 1) << "minSubsteps has a minimum of 1";
    minSub->text = "8";
    g->evaluateParameters(0, 0);
    EXPECT_EQ(simState->minSubsteps, 8);
    EXPECT_EQ(g->params.get("particleRenderMode")->enumEntries.size(), 3u);
}

} // namespace
