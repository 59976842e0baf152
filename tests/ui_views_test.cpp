// The spreadsheet of a node's points and the outliner of the scene's objects.
#include "uitestenv.h"

#include "geo/body.h"
#include "graph/geonode.h"
#include "ui/outlinerview.h"
#include "ui/selectionitemviewmodel.h"
#include "ui/spreadsheetmodel.h"

#include <gtest/gtest.h>

#include <QFont>
#include <QItemSelectionModel>
#include <QSize>
#include <QUndoStack>

#include <memory>
#include <string>

namespace {

class ViewsTest : public ::testing::Test {
protected:
    void SetUp() override { resetSceneRecords(); }
    void TearDown() override { resetSceneRecords(); }

    // Two points with P, v, a float "mass", an int "id" and a matrix "xf".
    static BodyPtr sampleBody()
    {
        auto body = std::make_shared<Body>();
        PointData& p = *body->points;
        p.addAttrib("v", ATTRIB_VELOCITY);
        p.addAttrib("mass", ATTRIB_FLOAT);
        p.addAttrib("id", ATTRIB_INT);
        p.addAttrib("xf", ATTRIB_MAT3);
        p.addPoint(Vec4f(1.f, 2.f, 3.f));
        p.addPoint(Vec4f(4.f, 5.f, 6.f));
        p.v[1] = Vec4f(0.5f, -1.f, 2.f);
        (*p.attribAs<FloatArray>("mass"))[0] = 0.25f;
        (*p.attribAs<IntArray>("id"))[1] = 7;
        return body;
    }

    // A registered node whose display Body is `body`; answers the node's name.
    static std::string nodeShowing(const BodyPtr& body)
    {
        auto* node = dynamic_cast<GeoNode*>(nodeMaster->createNode("null"));
        EXPECT_NE(node, nullptr);
        if (!node) return std::string();
        node->displayBody = body;
        return node->name();
    }

    static QString text(const SpreadSheetModel& m, int row, int column)
    {
        return m.data(m.index(row, column)).toString();
    }
};

TEST_F(ViewsTest, SpreadsheetWithoutNodeIsEmpty)
{
    SpreadSheetModel model;
    EXPECT_EQ(model.rowCount(), 0);
    EXPECT_EQ(model.columnCount(), 0);
    EXPECT_FALSE(model.headerData(0, Qt::Horizontal).isValid());
    model.setNode("noSuchNode");
    EXPECT_EQ(model.rowCount(), 0);
    EXPECT_EQ(model.columnCount(), 0);
    EXPECT_FALSE(model.headerData(0, Qt::Horizontal).isValid());
}

TEST_F(ViewsTest, SpreadsheetShowsPointsAndAttributesInNameOrder)
{
    SpreadSheetModel model;
    model.setNode(nodeShowing(sampleBody()));
    ASSERT_EQ(model.rowCount(), 2);
    ASSERT_EQ(model.columnCount(), 5);
    const char* expected[] = {"P", "id", "mass", "v", "xf"};
    for (int c = 0; c < 5; ++c) EXPECT_EQ(model.headerData(c, Qt::Horizontal).toString(), expected[c]);
    EXPECT_EQ(model.headerData(5, Qt::Horizontal).toString(), "__internal_exceed__");
    EXPECT_EQ(model.headerData(1, Qt::Vertical).toString(), "1");

    EXPECT_EQ(text(model, 0, 0), "1, 2, 3");
    EXPECT_EQ(text(model, 1, 0), "4, 5, 6");
    EXPECT_EQ(text(model, 1, 1), "7");
    EXPECT_EQ(text(model, 0, 2), "0.25");
    EXPECT_EQ(text(model, 1, 3), "0.5, -1, 2");
    EXPECT_EQ(text(model, 0, 4), "Mat3[1, 0, 0], 0, 1, 0], 0, 0, 1], ");

    const QSize narrow = model.data(model.index(1, 1), Qt::SizeHintRole).toSize();
    const QSize wide = model.data(model.index(0, 4), Qt::SizeHintRole).toSize();
    EXPECT_GT(wide.width(), narrow.width());
}

TEST_F(ViewsTest, SpreadsheetCellsBeyondTheArraysReadExceed)
{
    BodyPtr body = sampleBody();
    SpreadSheetModel model;
    model.setNode(nodeShowing(body));
    // An array shorter than the point count.
    body->points->attribAs<FloatArray>("mass")->resize(1);
    EXPECT_EQ(text(model, 0, 2), "0.25");
    EXPECT_EQ(text(model, 1, 2), "exceed");
    EXPECT_EQ(SpreadSheetModel::cellText(*body->points, 9, 0), "exceed");
    EXPECT_EQ(SpreadSheetModel::cellText(*body->points, 0, 9), "exceed");
}

TEST_F(ViewsTest, SpreadsheetReadsTheNodesCurrentBodyAndFollowsSelection)
{
    SpreadSheetModel model;
    const std::string name = nodeShowing(sampleBody());
    setSelection({selectionEntryFor(name)});
    EXPECT_EQ(model.nodeName, name);
    EXPECT_EQ(model.rowCount(), 2);

    // A new cook replaces the display Body; the model reads the new one.
    auto* node = dynamic_cast<GeoNode*>(nodeMaster->findByName(name));
    ASSERT_NE(node, nullptr);
    auto three = std::make_shared<Body>();
    for (int i = 0; i < 3; ++i) three->points->addPoint(Vec4f(float(i), 0.f, 0.f));
    node->displayBody = three;
    model.refresh();
    EXPECT_EQ(model.rowCount(), 3);
    EXPECT_EQ(model.columnCount(), 1);
    EXPECT_EQ(text(model, 2, 0), "2, 0, 0");

    setSelection({});
    EXPECT_EQ(model.rowCount(), 0);
    EXPECT_FALSE(model.headerData(0, Qt::Horizontal).isValid());

    // A classic system shows a copy of its points.
    simulation->createDumbSystem("dust");
    setSelection({selectionEntryFor("dust")});
    EXPECT_TRUE(model.nodeName.empty());
    EXPECT_EQ(model.systemName, "dust");
    ASSERT_NE(model.currentBody(), nullptr);
    EXPECT_EQ(model.rowCount(), 0);
    EXPECT_GE(model.columnCount(), 1);
}

TEST_F(ViewsTest, OutlinerListsObjectsInSceneOrder)
{
    OutlinerView view;
    EXPECT_EQ(view.model()->rowCount(), 1);
    simulation->createCollider("wall");
    simulation->createDumbSystem("dust");
    emit UiEvents::instance()->sceneChanged();
    ASSERT_EQ(view.model()->rowCount(), 3);
    EXPECT_EQ(view.model()->index(0, 0).data().toString(), "GlobalSettings");
    EXPECT_EQ(view.model()->index(1, 0).data().toString(), "dust");
    EXPECT_EQ(view.model()->index(2, 0).data().toString(), "wall");
}

TEST_F(ViewsTest, EditingARowRenamesTheObject)
{
    simulation->createDumbSystem("dust");
    SelectionItemViewModel model;
    int sceneChanges = 0;
    QObject::connect(UiEvents::instance(), &UiEvents::sceneChanged, &model, [&] { ++sceneChanges; });
    ASSERT_EQ(model.rowOf("dust"), 1);
    EXPECT_TRUE(model.flags(model.index(1)) & Qt::ItemIsEditable);
    EXPECT_TRUE(model.setData(model.index(1), "smoke", Qt::EditRole));
    EXPECT_NE(simulation->findByName("smoke"), nullptr);
    EXPECT_EQ(simulation->findByName("dust"), nullptr);
    EXPECT_EQ(model.index(1).data().toString(), "smoke");
    EXPECT_EQ(sceneChanges, 1);
    // the rename is one undo step
    undoStack()->undo();
    EXPECT_NE(simulation->findByName("dust"), nullptr);
    EXPECT_EQ(simulation->findByName("smoke"), nullptr);
    EXPECT_EQ(sceneChanges, 2); // what the object list refreshes on
    model.refresh();
    EXPECT_EQ(model.index(1).data().toString(), "dust");
    undoStack()->redo();
    EXPECT_NE(simulation->findByName("smoke"), nullptr);
    // GlobalSettings has no name row.
    EXPECT_FALSE(model.flags(model.index(0)) & Qt::ItemIsEditable);
    EXPECT_FALSE(model.setData(model.index(0), "Other", Qt::EditRole));
    EXPECT_NE(simulation->findByName("GlobalSettings"), nullptr);
}

TEST_F(ViewsTest, ClickSelectsTheObjectAsOneUndoStep)
{
    simulation->createCollider("wall");
    OutlinerView view;
    int clicks = 0;
    QObject::connect(&view, &OutlinerView::objectClicked, &view, [&](const QModelIndex&) { ++clicks; });
    const QModelIndex row = view.model()->index(1, 0);
    view.onClicked(row);
    ASSERT_EQ(simulation->selection.size(), 1u);
    EXPECT_EQ(simulation->selection[0].name, "wall");
    EXPECT_EQ(simulation->selection[0].typeCode, int(kTypeCollider));
    EXPECT_EQ(clicks, 1);
    EXPECT_EQ(undoStack()->count(), 1);
    EXPECT_TRUE(view.selectionModel()->isSelected(row));
    EXPECT_TRUE(row.data(Qt::FontRole).value<QFont>().bold());

    undoStack()->undo();
    EXPECT_TRUE(simulation->selection.empty());
    EXPECT_FALSE(view.selectionModel()->isSelected(row));
}

} // namespace
