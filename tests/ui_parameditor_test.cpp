// The parameter editor: rows shown per set, edits as undo steps, text rows, bool and
// list rows, visibility rules, reset to default, keys and the Ctrl+drag change.
#include "uitestenv.h"

#include "ui/parametereditor.h"
#include "ui/paramtablemodel.h"

#include "app/globalsettings.h"
#include "graph/basenode.h"
#include "particles/force.h"
#include "particles/granularparticlesystem.h"

#include <QUndoStack>
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

namespace {

class ParamEditorTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        resetSceneRecords();
        simState->frame = 0;
        editor = std::make_unique<ParameterEditor>();
    }
    void TearDown() override
    {
        editor.reset();
        undoStack()->clear();
    }

    void select(const std::string& name) { setSelection({selectionEntryFor(name)}); }
    ParamTableModel* model() { return editor->model; }
    QModelIndex valueOf(const std::string& key) { return model()->index(model()->rowOfKey(key), 1); }
    bool edit(const std::string& key, const QString& text) { return model()->setData(valueOf(key), text, Qt::EditRole); }
    QString shown(const std::string& key) { return model()->data(valueOf(key), Qt::DisplayRole).toString(); }

    // The table shows exactly the visible rows of `set`, in order, with their labels.
    void expectRowsMatch(ParameterSet& set)
    {
        std::vector<const Parameter*> visible;
        for (const Parameter& p : set.parameters)
            if (p.visibility()) visible.push_back(&p);
        ASSERT_EQ(model()->rowCount(), int(visible.size()));
        for (int r = 0; r < model()->rowCount(); ++r) {
            EXPECT_EQ(model()->parameterAt(r), visible[size_t(r)]) << "row " << r;
            if (visible[size_t(r)]->key != "blank") {
                EXPECT_EQ(model()->data(model()->index(r, 0)).toString().toStdString(), visible[size_t(r)]->label);
            }
        }
    }

    std::unique_ptr<ParameterEditor> editor;
};

TEST_F(ParamEditorTest, GlobalSettingsRowsMatchTheSet)
{
    select("GlobalSettings");
    expectRowsMatch(simulation->globalSettings->params);
    EXPECT_GT(model()->rowCount(), 5);
    EXPECT_EQ(editor->windowTitle(), QStringLiteral("Parameters"));
    EXPECT_EQ(editor->objectName(), QStringLiteral("parameterEditor"));
    EXPECT_EQ(parameterEditor, editor.get());
}

TEST_F(ParamEditorTest, GranularRowsTitleAndTooltips)
{
    GranularParticleSystem* g = simulation->createGranularSystem("granular1");
    select(g->name);
    expectRowsMatch(g->params);
    EXPECT_EQ(editor->windowTitle(), QStringLiteral("GranularSystem"));
    const QString tip = model()->data(valueOf("friction"), Qt::ToolTipRole).toString();
    EXPECT_TRUE(tip.contains(QStringLiteral(":</b><br>")));
    EXPECT_TRUE(tip.contains(QStringLiteral("<i>(friction)</i>")));
    setSelection({});
    EXPECT_EQ(model()->rowCount(), 0);
}

TEST_F(ParamEditorTest, FloatEditIsOneUndoStep)
{
    GranularParticleSystem* g = simulation->createGranularSystem("granular1");
    select(g->name);
    const std::string oldText = g->params.get("friction")->text;
    const float oldValue = g->friction;
    ASSERT_NE(oldValue, 2.5f);
    const int before = undoStack()->count();
    EXPECT_TRUE(edit("friction", "2.5"));
    EXPECT_EQ(undoStack()->count(), before + 1);
    EXPECT_FLOAT_EQ(g->friction, 2.5f);
    EXPECT_EQ(shown("friction"), QStringLiteral("2.5"));
    // the same text again is no edit
    EXPECT_FALSE(edit("friction", "2.5"));
    EXPECT_EQ(undoStack()->count(), before + 1);
    undoStack()->undo();
    EXPECT_EQ(g->params.get("friction")->text, oldText);
    EXPECT_FLOAT_EQ(g->friction, oldValue);
    EXPECT_EQ(shown("friction"), QString::fromStdString(oldText));
    undoStack()->redo();
    EXPECT_FLOAT_EQ(g->friction, 2.5f);
}

TEST_F(ParamEditorTest, MinimumIsHonouredOnEdit)
{
    GranularParticleSystem* g = simulation->createGranularSystem("granular1");
    select(g->name);
    EXPECT_TRUE(edit("friction", "-4"));
    EXPECT_FLOAT_EQ(g->friction, 0.f);
}

TEST_F(ParamEditorTest, NonNumberInNumericRowFollowsTheTextPath)
{
    GranularParticleSystem* g = simulation->createGranularSystem("granular1");
    select(g->name);
    const float oldValue = g->friction;
    EXPECT_TRUE(edit("friction", "abc"));
    // what the core's own text path makes of the same text
    float expected = 99.f;
    Parameter probe(&expected, "friction", "Friction", kParamFloat);
    probe.text = "abc";
    probe.evaluate(0.f, 0);
    EXPECT_EQ(g->params.get("friction")->text, "abc");
    EXPECT_TRUE(std::isfinite(g->friction));
    EXPECT_FLOAT_EQ(g->friction, expected);
    undoStack()->undo();
    EXPECT_FLOAT_EQ(g->friction, oldValue);
}

TEST_F(ParamEditorTest, ExpressionStaysText)
{
    GranularParticleSystem* g = simulation->createGranularSystem("granular1");
    select(g->name);
    EXPECT_TRUE(edit("friction", "1+2"));
    const Parameter* p = g->params.get("friction");
    EXPECT_EQ(p->text, "1+2");
    EXPECT_FLOAT_EQ(g->friction, 3.f);
    EXPECT_TRUE(p->hasExpression);
    EXPECT_EQ(model()->data(valueOf("friction"), Qt::EditRole).toString(), QStringLiteral("1+2"));
    EXPECT_TRUE(model()->data(valueOf("friction"), Qt::BackgroundRole).isValid()); // tinted
}

TEST_F(ParamEditorTest, BoolRowShowsTrueFalseAndToggles)
{
    GranularParticleSystem* g = simulation->createGranularSystem("granular1");
    select(g->name);
    const bool was = g->enableSleeping;
    EXPECT_EQ(shown("enableSleeping"), was ? QStringLiteral("true") : QStringLiteral("false"));
    EXPECT_TRUE(model()->setData(valueOf("enableSleeping"), was ? Qt::Unchecked : Qt::Checked, Qt::CheckStateRole));
    EXPECT_EQ(g->enableSleeping, !was);
    EXPECT_EQ(shown("enableSleeping"), was ? QStringLiteral("false") : QStringLiteral("true"));
    EXPECT_TRUE(edit("enableSleeping", was ? "true" : "false"));
    EXPECT_EQ(g->enableSleeping, was);
    EXPECT_EQ(undoStack()->count(), 2);
}

TEST_F(ParamEditorTest, ListRowEditsByEntry)
{
    Force* f = simulation->createForce("force1");
    select(f->name);
    ASSERT_EQ(f->maskType, 1);
    EXPECT_EQ(shown("maskType"), QStringLiteral("Box"));
    EXPECT_FALSE(edit("maskType", "Box")); // the entry it has already
    EXPECT_TRUE(edit("maskType", "Sphere"));
    EXPECT_EQ(f->maskType, 2);
    EXPECT_EQ(shown("maskType"), QStringLiteral("Sphere"));
    EXPECT_TRUE(edit("maskType", "Unbound"));
    EXPECT_EQ(f->maskType, 0);
    undoStack()->undo();
    EXPECT_EQ(f->maskType, 2);
    EXPECT_EQ(shown("maskType"), QStringLiteral("Sphere"));
}

TEST_F(ParamEditorTest, VisibilityRuleFollowsAnEdit)
{
    GranularParticleSystem* g = simulation->createGranularSystem("granular1");
    select(g->name);
    ASSERT_FALSE(g->showExtraParams);
    EXPECT_EQ(model()->rowOfKey("breakConstraintsNoisy"), -1);
    const int rowsBefore = model()->rowCount();
    EXPECT_TRUE(edit("showExtraParams", "true"));
    EXPECT_GE(model()->rowOfKey("breakConstraintsNoisy"), 0);
    EXPECT_GT(model()->rowCount(), rowsBefore);
    expectRowsMatch(g->params);
    undoStack()->undo();
    EXPECT_EQ(model()->rowOfKey("breakConstraintsNoisy"), -1);
    EXPECT_EQ(model()->rowCount(), rowsBefore);
}

TEST_F(ParamEditorTest, ResetToDefault)
{
    GranularParticleSystem* g = simulation->createGranularSystem("granular1");
    select(g->name);
    const Parameter* p = g->params.get("friction");
    const std::string def = p->defaultText;
    const float defValue = g->friction;
    EXPECT_TRUE(edit("friction", "3"));
    EXPECT_TRUE(editor->resetToDefault(model()->rowOfKey("friction")));
    EXPECT_EQ(p->text, def);
    EXPECT_FLOAT_EQ(g->friction, defValue);
    EXPECT_EQ(undoStack()->count(), 2);
    EXPECT_FALSE(editor->resetToDefault(model()->rowOfKey("friction"))); // already the default
}

TEST_F(ParamEditorTest, SetAndDeleteKey)
{
    GranularParticleSystem* g = simulation->createGranularSystem("granular1");
    select(g->name);
    EXPECT_TRUE(edit("friction", "4"));
    simState->frame = 10;
    EXPECT_TRUE(editor->setKey(model()->rowOfKey("friction")));
    const Parameter* p = g->params.get("friction");
    EXPECT_EQ(p->text, "10:4 ");
    EXPECT_EQ(p->keys.size(), 1u);
    EXPECT_TRUE(model()->data(valueOf("friction"), Qt::BackgroundRole).isValid()); // keyed tint
    // a number typed over keys overrides the keyed value, keys kept, no undo step
    const int steps = undoStack()->count();
    EXPECT_TRUE(edit("friction", "7"));
    EXPECT_FLOAT_EQ(g->friction, 7.f);
    EXPECT_EQ(p->text, "10:4 ");
    EXPECT_EQ(shown("friction"), QStringLiteral("7"));
    EXPECT_EQ(undoStack()->count(), steps);
    EXPECT_TRUE(editor->deleteKey(model()->rowOfKey("friction")));
    EXPECT_EQ(p->text, "4");
    undoStack()->undo();
    EXPECT_EQ(p->text, "10:4 ");
    undoStack()->undo();
    EXPECT_EQ(p->text, "4");
}

TEST_F(ParamEditorTest, DragIsOneUndoStep)
{
    GranularParticleSystem* g = simulation->createGranularSystem("granular1");
    select(g->name);
    ASSERT_TRUE(edit("friction", "2"));
    const int before = undoStack()->count();
    const int row = model()->rowOfKey("friction");
    ASSERT_TRUE(model()->beginDrag(row));
    model()->dragBy(10);
    model()->dragBy(50);
    EXPECT_FLOAT_EQ(g->friction, 2.5f); // a hundredth of the order of magnitude per pixel
    EXPECT_EQ(undoStack()->count(), before);
    model()->dragBy(-100000);
    EXPECT_FLOAT_EQ(g->friction, 0.f); // the row's minimum
    model()->dragBy(30);
    EXPECT_TRUE(model()->endDrag());
    EXPECT_EQ(undoStack()->count(), before + 1);
    EXPECT_FLOAT_EQ(g->friction, 2.3f);
    undoStack()->undo();
    EXPECT_FLOAT_EQ(g->friction, 2.f);
    EXPECT_EQ(g->params.get("friction")->text, "2");
    // an expression row is not dragged
    ASSERT_TRUE(edit("friction", "1+1"));
    EXPECT_FALSE(model()->beginDrag(row));
}

TEST_F(ParamEditorTest, GraphNodeRowsAndTitle)
{
    BaseNode* node = nodeMaster->createNode("grid");
    ASSERT_NE(node, nullptr);
    setSelection({selectionEntryFor(node->name())});
    expectRowsMatch(node->params);
    EXPECT_EQ(editor->windowTitle().toStdString(), node->displayName);
    EXPECT_TRUE(edit("dimX", "3"));
    EXPECT_FLOAT_EQ(*static_cast<float*>(node->getParam("dimX")->value), 3.f);
    undoStack()->undo();
    EXPECT_EQ(node->getParam("dimX")->text, "1");
}

TEST_F(ParamEditorTest, InitialStateNeedsASystemAndAPlace)
{
    select("GlobalSettings");
    EXPECT_FALSE(editor->makeInitialStateFile());
    GranularParticleSystem* g = simulation->createGranularSystem("granular1");
    select(g->name);
    simulation->scenePath.clear();
    simulation->globalSettings->fallbackPathCaches.clear();
    EXPECT_FALSE(editor->makeInitialStateFile());
    EXPECT_EQ(g->params.get("initialStateFilePath")->text, "");
}

} // namespace
