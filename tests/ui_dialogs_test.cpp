// The playblast, video and preferences dialogs, and the form builder with its colour button.
#include "uitestenv.h"

#include "ui/colorbutton.h"
#include "ui/customdialog.h"
#include "ui/ffmpegdialog.h"
#include "ui/playblastdialog.h"
#include "graph/nodemaster.h"
#include "graph/plugcache.h"
#include "ui/preferencesdialog.h"

#include <gtest/gtest.h>

#include <QCheckBox>
#include <QCompleter>
#include <QDir>
#include <QDoubleSpinBox>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QSpinBox>
#include <QSurfaceFormat>

#include <string>

namespace {

class DialogsTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        resetSceneRecords();
        // Settings of the tests go to a folder of their own, never the user's.
        QSettings::setPath(QSettings::NativeFormat, QSettings::UserScope,
                           QDir::temp().filePath("qorva_ui_dialogs_test"));
        QSettings("Qorva", "Qorva").clear();
        savedThreads = simState->numThreads;
    }
    void TearDown() override
    {
        // Back to a stopped run, as the other suites expect it.
        simState->paused = true;
        simState->playblastRunning = false;
        simState->frame = 0;
        simState->numThreads = savedThreads;
        resetSceneRecords();
    }
    int savedThreads = 1;
};

TEST_F(DialogsTest, PlayblastStoresRangeAndPathAndPlays)
{
    PlayblastDialog dialog;
    EXPECT_EQ(dialog.windowTitle(), "Playblast");
    simState->paused = true;
    simState->playblastRunning = false;
    dialog.startSpin->setValue(5);
    dialog.endSpin->setValue(20);
    dialog.pathEdit->setText("/tmp/shots/out.####.png");
    dialog.applyAndClose();
    EXPECT_EQ(simState->playblastStartFrame, 5);
    EXPECT_EQ(simState->playblastEndFrame, 20);
    EXPECT_EQ(simState->frame, 5);
    EXPECT_EQ(simState->playblastPath, "/tmp/shots/out.####.png");
    EXPECT_TRUE(simState->playblastRunning);
    EXPECT_FALSE(simState->paused);
    EXPECT_TRUE(simState->viewportRedraw);
}

TEST_F(DialogsTest, FfmpegDialogHasItsTitleAndBuildsTheCommandLine)
{
    FfmpegDialog dialog;
    EXPECT_EQ(dialog.windowTitle(), "Make Video via FFMPEG");
    EXPECT_EQ(dialog.group->title(), "FFMPEG");
    EXPECT_EQ(FfmpegDialog::pngPattern("/tmp/a/out.####.png"), "/tmp/a/out.%04d.png");
    EXPECT_EQ(FfmpegDialog::pngPattern("/tmp/a/f.##.png"), "/tmp/a/f.%02d.png");
    EXPECT_EQ(FfmpegDialog::videoPathFor("/tmp/a/out.%04d.png"), "/tmp/a/out.mp4");
    EXPECT_EQ(FfmpegDialog::ffmpegCommandLine("/tmp/a/out.%04d.png", 5, 24, "/tmp/a/out.mp4"),
              "ffmpeg -y -framerate 24 -start_number 5 -i /tmp/a/out.%04d.png -c:v libx264 -pix_fmt yuv420p "
              "/tmp/a/out.mp4");
    EXPECT_EQ(FfmpegDialog::ffmpegCommandLine("/tmp/my shots/o.%04d.png", 1, 30, "/tmp/my shots/o.mp4"),
              "ffmpeg -y -framerate 30 -start_number 1 -i \"/tmp/my shots/o.%04d.png\" -c:v libx264 "
              "-pix_fmt yuv420p \"/tmp/my shots/o.mp4\"");
}

TEST_F(DialogsTest, PreferencesReadOnShowAndApplyOnClose)
{
    simState->fov = 33.f;
    simState->numThreads = 3;
    simState->cudaAvailable = false;
    simulation->globalSettings->params.get("fallbackPathCaches")->text = "/tmp/old";
    PreferencesDialog dialog;
    EXPECT_EQ(dialog.windowTitle(), "Preferences");
    dialog.show();
    EXPECT_DOUBLE_EQ(dialog.fovSpin->value(), 33.0);
    EXPECT_EQ(dialog.threadsSpin->value(), 3);
    EXPECT_EQ(dialog.cachesPathEdit->text(), "/tmp/old");
    EXPECT_TRUE(dialog.memoryCacheCheck->isChecked());

    dialog.threadsSpin->setValue(6);
    dialog.memoryCacheCheck->setChecked(false);
    dialog.fovSpin->setValue(45.0);
    dialog.backgroundCheck->setChecked(false);
    dialog.antialiasingCheck->setChecked(false);
    dialog.gpuSortCheck->setChecked(true);
    dialog.imagesCheck->setChecked(true);
    dialog.imagesPathEdit->setText("/tmp/img/out.####.png");
    dialog.cachesPathEdit->setText("/tmp/cache");
    dialog.close();

    EXPECT_EQ(simState->numThreads, 6);
    EXPECT_FLOAT_EQ(simState->fov, 45.f);
    EXPECT_FALSE(simState->writeInBackground);
    EXPECT_FALSE(simState->antialiasing);
    EXPECT_FALSE(simState->gpuSort); // no CUDA here
    EXPECT_TRUE(simState->writeImages);
    EXPECT_FALSE(nodeMaster->plugCache->keepBetweenCooks);
    GlobalSettings* globals = simulation->globalSettings;
    EXPECT_EQ(globals->params.get("fallbackPathImages")->text, "/tmp/img/out.####.png");
    EXPECT_EQ(globals->params.get("fallbackPathCaches")->text, "/tmp/cache");
    // Evaluated at time 0: the frame tokens read frame 0.
    EXPECT_EQ(globals->fallbackPathImages, "/tmp/img/out.0000.png");
    EXPECT_EQ(globals->fallbackPathCaches, "/tmp/cache");

    const QSurfaceFormat format = QSurfaceFormat::defaultFormat();
    EXPECT_EQ(format.majorVersion(), 2);
    EXPECT_EQ(format.minorVersion(), 1);
    EXPECT_EQ(format.depthBufferSize(), 24);
    EXPECT_LE(format.samples(), 0);

    QSettings settings("Qorva", "Qorva");
    EXPECT_EQ(settings.value("Prefs/threads").toInt(), 6);
    EXPECT_DOUBLE_EQ(settings.value("Prefs/fov").toDouble(), 45.0);
    EXPECT_FALSE(settings.value("Prefs/memoryCache").toBool());
    // The next session starts with the cache as it was left.
    nodeMaster->plugCache->keepBetweenCooks = true;
    PreferencesDialog::loadStoredPreferences();
    EXPECT_FALSE(nodeMaster->plugCache->keepBetweenCooks);
    nodeMaster->plugCache->keepBetweenCooks = true;
    settings.setValue("Prefs/memoryCache", true);
    EXPECT_FALSE(settings.value("Prefs/writeInBackground").toBool());
    EXPECT_FALSE(settings.value("Prefs/antialiasing").toBool());

    // The next start reads them back.
    simState->numThreads = 1;
    simState->fov = 60.f;
    PreferencesDialog::loadStoredPreferences();
    EXPECT_EQ(simState->numThreads, 6);
    EXPECT_FLOAT_EQ(simState->fov, 45.f);

    dialog.show();
    dialog.antialiasingCheck->setChecked(true);
    dialog.close();
    EXPECT_EQ(QSurfaceFormat::defaultFormat().samples(), 8);
}

TEST_F(DialogsTest, CustomDialogWritesValuesOnOkayOnly)
{
    std::string text = "a";
    bool flag = false;
    int count = 2;
    double amount = 0.5;
    QColor colour(Qt::red);
    CustomDialog dialog("Form");
    EXPECT_EQ(dialog.okButton->text(), "Okay");
    EXPECT_EQ(dialog.cancelButton->text(), "Cancel");
    EXPECT_EQ(dialog.addLabel("Heading"), 0);
    const int edit = dialog.addLineEdit("Name:", &text);
    EXPECT_EQ(dialog.addAutoCompletePrev({"alpha", "beta"}), edit);
    ASSERT_NE(static_cast<QLineEdit*>(dialog.fieldAt(edit))->completer(), nullptr);
    const int check = dialog.addCheckBox("Flag", &flag);
    EXPECT_EQ(dialog.addAutoCompletePrev({"x"}), -1); // not after a line edit
    const int spin = dialog.addSpinBox("Count:", &count, 0, 10);
    const int dspin = dialog.addDoubleSpinBox("Amount:", &amount, 0.0, 1.0);
    const int colourRow = dialog.addColorSel("Colour:", &colour);
    EXPECT_EQ(dialog.labelAt(spin)->text(), "Count:");

    static_cast<QLineEdit*>(dialog.fieldAt(edit))->setText("beta");
    static_cast<QCheckBox*>(dialog.fieldAt(check))->setChecked(true);
    static_cast<QSpinBox*>(dialog.fieldAt(spin))->setValue(7);
    static_cast<QDoubleSpinBox*>(dialog.fieldAt(dspin))->setValue(0.75);
    static_cast<ColorButton*>(dialog.fieldAt(colourRow))->setColor(Qt::blue);
    dialog.reject();
    EXPECT_TRUE(dialog.cancelled);
    EXPECT_EQ(text, "a");
    EXPECT_FALSE(flag);

    dialog.accept();
    EXPECT_FALSE(dialog.cancelled);
    EXPECT_EQ(text, "beta");
    EXPECT_TRUE(flag);
    EXPECT_EQ(count, 7);
    EXPECT_DOUBLE_EQ(amount, 0.75);
    EXPECT_EQ(colour, QColor(Qt::blue));
}

TEST_F(DialogsTest, CustomDialogCheckBoxesDriveOtherRows)
{
    bool hide = false, enable = false;
    int a = 0, b = 0;
    CustomDialog dialog("Form");
    const int hideCheck = dialog.addCheckBox("Hide", &hide);
    const int hidden = dialog.addSpinBox("A:", &a, 0, 5);
    const int enableCheck = dialog.addCheckBox("Enable", &enable);
    const int enabled = dialog.addSpinBox("B:", &b, 0, 5);
    EXPECT_TRUE(dialog.wireCheckBox(hideCheck, hidden, CustomDialog::kHideRow));
    EXPECT_TRUE(dialog.wireCheckBox(enableCheck, enabled, CustomDialog::kEnableRow));
    EXPECT_FALSE(dialog.wireCheckBox(hidden, enabled, CustomDialog::kShowRow)); // no check box
    dialog.show();

    EXPECT_FALSE(dialog.fieldAt(hidden)->isHidden());
    EXPECT_FALSE(dialog.fieldAt(enabled)->isEnabled());
    EXPECT_FALSE(dialog.labelAt(enabled)->isEnabled());

    static_cast<QCheckBox*>(dialog.fieldAt(hideCheck))->setChecked(true);
    static_cast<QCheckBox*>(dialog.fieldAt(enableCheck))->setChecked(true);
    EXPECT_TRUE(dialog.fieldAt(hidden)->isHidden());
    EXPECT_TRUE(dialog.labelAt(hidden)->isHidden());
    EXPECT_TRUE(dialog.fieldAt(enabled)->isEnabled());

    static_cast<QCheckBox*>(dialog.fieldAt(hideCheck))->setChecked(false);
    EXPECT_FALSE(dialog.fieldAt(hidden)->isHidden());
}

TEST_F(DialogsTest, ColorButtonShowsItsColour)
{
    ColorButton button(QColor(255, 0, 0));
    EXPECT_EQ(button.styleSheet(), "background-color: #ff0000");
    int changes = 0;
    QObject::connect(&button, &ColorButton::colorChanged, &button, [&](const QColor&) { ++changes; });
    button.setColor(QColor(0, 128, 255));
    EXPECT_EQ(button.color, QColor(0, 128, 255));
    EXPECT_EQ(button.styleSheet(), "background-color: #0080ff");
    EXPECT_EQ(changes, 1);
}

} // namespace
