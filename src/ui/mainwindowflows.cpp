// The main window's scene flows: new, open, save (and save as a new version), the
// background simulation, adding objects and nodes, play, reset and scrubbing.
#include "ui/mainwindow.h"

#include "app/application.h"
#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/sceneobject.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "graph/basenode.h"
#include "graph/nodemaster.h"
#include "ui/addcommand.h"
#include "ui/addnodecommand.h"
#include "ui/nodeparamchangecommand.h"
#include "ui/nodesgraphicsview.h"
#include "ui/nodespastedcommand.h"
#include "ui/openglwidget.h"
#include "ui/outlinerview.h"
#include "ui/parametereditor.h"
#include "ui/preferencesdialog.h"
#include "ui/playblastdialog.h"
#include "ui/ffmpegdialog.h"
#include "ui/spreadsheetmodel.h"
#include "ui/uiglobals.h"

#include <QAction>
#include <QApplication>
#include <QCloseEvent>
#include <QDesktopServices>
#include <QFileDialog>
#include <QFileInfo>
#include <QMessageBox>
#include <QProcess>
#include <QRegularExpression>
#include <QSettings>
#include <QSlider>
#include <QSpinBox>
#include <QUndoStack>
#include <QUrl>
#include <tinyxml2.h>
#include <cstdio>

namespace {
void say(const char* line)
{
    std::printf("%s", line);
    std::fflush(stdout);
}

} // namespace

bool MainWindow::stopSolverForEdit()
{
    say("waiting for mainloop resetting...\n");
    simState->pause();
    simState->reset(); // returns once the solver is parked in its idle wait
    say("waiting for vboMutex.tryLock()...\n");
    if (!vboMutex.tryLock(2000)) {
        say("couldn't reset the scene.\n");
        return false;
    }
    return true;
}

bool MainWindow::maybeSave()
{
    if (!unsavedChanges || !askBeforeDiscarding) return true;
    const auto answer = QMessageBox::question(this, "Unsaved changes", "Do you want to save the changes?",
                                              QMessageBox::Save | QMessageBox::Discard | QMessageBox::Cancel);
    if (answer == QMessageBox::Cancel) return false;
    if (answer == QMessageBox::Save) {
        saveScene();
        return !unsavedChanges;
    }
    return true;
}

void MainWindow::newScene()
{
    if (!maybeSave()) return;
    if (!stopSolverForEdit()) return;
    setSelection({});
    master->clearGraph();
    simulation->clear();
    simState->frame = simState->startFrame;
    vboMutex.unlock();
    say("MainWindow: reset done...\n");
    if (GlobalSettings* settings = simulation->globalSettings)
        setSelection({SelectionEntry{kTypeGlobalSettings, settings->id, settings->name}});
    emit UiEvents::instance()->sceneChanged();
    say("MainWindow: outliner update done...\n");
    unsavedChanges = false;
    updateTitle();
    say("MainWindow: filename set...\n");
    undoStack()->clear();
    say("MainWindow: undo cleared...\n");
    afterLoad();
    say("MainWindow: new scene done.\n");
}

void MainWindow::openScene()
{
    if (!maybeSave()) return;
    QSettings settings;
    const QString start = settings.value("Prefs/openScenePath2").toString();
    const QString filter = programName + " scene (*." + QString::fromStdString(simulation->sceneExtension) +
                           ");; all files (*.*)";
    const QString path = QFileDialog::getOpenFileName(this, "Open scene...", start, filter, nullptr,
                                                      nativeDialogs ? QFileDialog::Options() : QFileDialog::DontUseNativeDialog);
    if (path.isEmpty()) return;
    settings.setValue("Prefs/openScenePath2", QFileInfo(path).absolutePath());
    openSceneFile(path);
}

bool MainWindow::openSceneFile(const QString& path)
{
    if (!stopSolverForEdit()) return false;
    setSelection({});
    master->clearGraph();
    simulation->clear();
    vboMutex.unlock();
    std::printf("opening %s...\n", path.toStdString().c_str());
    const int result = ::openScene(path.toStdString());
    if (result < 0) {
        say("error opening scene file.\n");
        QMessageBox::warning(this, "Open scene...", "Could not open the scene file:\n" + path);
        simulation->clear();
    }
    if (nodeView) nodeView->rebuild();
    undoStack()->clear();
    postLoad();
    afterLoad();
    if (GlobalSettings* settings = simulation->globalSettings)
        setSelection({SelectionEntry{kTypeGlobalSettings, settings->id, settings->name}});
    return result >= 0;
}

void MainWindow::afterLoad()
{
    const SimState& s = *simState;
    unsavedChanges = false;
    updateTitle();
    sliderFollowing = true;
    timeSlider->setRange(s.startFrame, s.endFrame);
    timeSlider->setValue(s.frame);
    frameSpinBox->setValue(s.frame);
    sliderFollowing = false;
    emit UiEvents::instance()->sceneChanged();
    if (glWidget) {
        std::vector<std::string> cameras;
        for (BaseNode* n : master->nodes)
            if (n->nodeKey == "camera") cameras.push_back(n->name());
        if (!cameras.empty()) {
            say("setting cam...\n");
            glWidget->setCameraNode(cameras.back());
        }
        glWidget->refreshBuffers(100);
        glWidget->update();
    }
    if (nodeView) nodeView->fitAll();
}

void MainWindow::exploreDemoScenes()
{
    if (!maybeSave()) return;
    const QString path = QFileDialog::getOpenFileName(this, "Open scene...", installFolder() + "/demo_scenes",
                                                      programName + " scene (*.qrv);; all files (*.*)", nullptr,
                                                      nativeDialogs ? QFileDialog::Options() : QFileDialog::DontUseNativeDialog);
    if (!path.isEmpty()) openSceneFile(path);
}

void MainWindow::exploreSceneFolder()
{
    if (simulation->scenePath.empty()) return;
    QDesktopServices::openUrl(QUrl::fromLocalFile(QFileInfo(QString::fromStdString(simulation->scenePath)).absolutePath()));
}

bool MainWindow::saveSceneTo(const QString& path)
{
    if (!simulation->saveScene(path.toStdString())) {
        QMessageBox::warning(this, "Save scene...", "Could not save the scene to:\n" + path);
        return false;
    }
    QSettings settings;
    settings.setValue("Prefs/saveScenePath2", path);
    settings.setValue("Prefs/openScenePath2", QFileInfo(path).absolutePath());
    unsavedChanges = false;
    updateTitle();
    return true;
}

void MainWindow::saveScene()
{
    if (simulation->scenePath.empty()) {
        saveSceneAs();
        return;
    }
    saveSceneTo(QString::fromStdString(simulation->scenePath));
}

void MainWindow::saveSceneAs()
{
    QSettings settings;
    QString path = QFileDialog::getSaveFileName(this, "Save scene...", settings.value("Prefs/saveScenePath2").toString(),
                                                programName + " scene (*.qrv);; all files (*.*)", nullptr,
                                                nativeDialogs ? QFileDialog::Options() : QFileDialog::DontUseNativeDialog);
    if (path.isEmpty()) return;
    if (!path.endsWith(".qrv")) path += ".qrv";
    saveSceneTo(path);
}

void MainWindow::saveSceneVersionUp()
{
    if (simulation->scenePath.empty()) {
        saveSceneAs();
        return;
    }
    const QFileInfo info(QString::fromStdString(simulation->scenePath));
    QString name = info.fileName();
    static const QRegularExpression digits("\\d{1,10}");
    QRegularExpressionMatchIterator it = digits.globalMatch(name);
    QRegularExpressionMatch last;
    while (it.hasNext()) last = it.next();
    if (last.hasMatch()) {
        const QString number = QString::number(last.captured().toLongLong() + 1)
                                   .rightJustified(last.capturedLength(), '0');
        name.replace(last.capturedStart(), last.capturedLength(), number);
    } else {
        name = info.completeBaseName() + "_v002." + info.suffix();
    }
    const QString path = info.absolutePath() + "/" + name;
    std::printf("newVersion: %s\n", path.toStdString().c_str());
    saveSceneTo(path);
}

void MainWindow::backgroundSim()
{
    if (QWidget* focus = QApplication::focusWidget()) focus->clearFocus();
    say("\nsaving scene for background sim...\n");
    saveScene();
    if (simulation->scenePath.empty()) return;
    const QString line = QCoreApplication::applicationFilePath() + " --sim --headless --numthreads " +
                         QString::number(simState->numThreads) + " " + QString::fromStdString(simulation->scenePath);
    std::printf("running: %s\n", line.toStdString().c_str());
    std::fflush(stdout);
    QProcess::startDetached(QCoreApplication::applicationFilePath(),
                            {"--sim", "--headless", "--numthreads", QString::number(simState->numThreads),
                             QString::fromStdString(simulation->scenePath)});
}

void MainWindow::addClassicObject(int typeCode, const char* message)
{
    say(message);
    undoStack()->push(new AddCommand(typeCode));
    emit UiEvents::instance()->sceneChanged();
}

void MainWindow::addDumb() { addClassicObject(kTypeDumbSystem, "MainWindow: add dumb...\n"); }
void MainWindow::addGranular() { addClassicObject(kTypeGranularSystem, "MainWindow: add granular...\n"); }
void MainWindow::addSimpleSPH() { addClassicObject(kTypeSphSystem, "MainWindow: add simpleSPH...\n"); }

namespace {
bool selectedIsSystem()
{
    for (const SelectionEntry& e : currentSelection())
        if (e.typeCode >= kTypeDumbSystem && e.typeCode <= kTypeSphSystem) return true;
    return false;
}
} // namespace

// Sources and forces act on a system: one must be selected first.
void MainWindow::addForSelectedSystem(int typeCode, const char* message, const QString& title)
{
    say(message);
    if (!selectedIsSystem()) {
        QMessageBox::information(this, title, "Please select a particle system first.");
        return;
    }
    undoStack()->push(new AddCommand(typeCode));
}

void MainWindow::addSource() { addForSelectedSystem(kTypeSource, "MainWindow: add source...\n", "Add Source"); }
void MainWindow::addForce() { addForSelectedSystem(kTypeForce, "MainWindow: add force...\n", "Add Force"); }

void MainWindow::addCollider()
{
    say("MainWindow: add collider...\n");
    undoStack()->push(new AddCommand(kTypeCollider));
}

void MainWindow::addNodeForSelectedSystem(const std::string& key)
{
    if (QWidget* focus = QApplication::focusWidget()) focus->clearFocus();
    std::string system;
    for (const SelectionEntry& e : currentSelection())
        if (e.typeCode >= kTypeDumbSystem && e.typeCode <= kTypeSphSystem) system = e.name;
    auto* add = new AddNodeCommand(key, QPointF(0, 0));
    undoStack()->push(add);
    if (!system.empty() && !add->createdName().empty()) {
        Parameter* row = master->getParam(add->createdName(), "readFilePath");
        undoStack()->push(new NodeParamChangeCommand(add->createdName(), "readFilePath", row ? row->text : "", system));
    }
}

void MainWindow::addMesher() { addNodeForSelectedSystem("mesher"); }
void MainWindow::addStitcher() { addNodeForSelectedSystem("stitcher"); }

void MainWindow::addCamera()
{
    say("MainWindow: add camera...\n");
    undoStack()->push(new AddNodeCommand("camera", QPointF(0, 0)));
}

void MainWindow::addSmoke()
{
    const std::string preset = (installFolder() + "/bin/basic_smoke_preset.ng").toStdString();
    std::vector<BaseNode*> created;
    {
        QMutexLocker lock(&graphMutex);
        master->loadGraph(preset.substr(0, preset.size() - 3), created, true, nullptr);
    }
    std::vector<std::string> names;
    for (BaseNode* n : created) names.push_back(n->name());
    if (nodeView) {
        nodeView->rebuild();
        nodeView->selectNodesByName(names);
    }
    if (!names.empty()) undoStack()->push(new NodesPastedCommand(names, "Add smoke graph"));
    markSceneEdited();
}

void MainWindow::makePlayblast()
{
    say("MainWindow: do playblast...\n");
    playblastDialog->show();
}

void MainWindow::makeVideo()
{
    say("MainWindow: ffmpeg panel...\n");
    ffmpegDialog->show();
}

void MainWindow::openPreferences() { preferencesDialog->show(); }

void MainWindow::togglePlay()
{
    if (QWidget* focus = QApplication::focusWidget()) focus->clearFocus();
    if (simState->paused) {
        simState->play();
        simState->guiWake = true;
        playAction->setText("pause");
    } else {
        simState->pause();
        playAction->setText("play   ");
    }
}

void MainWindow::resetSim()
{
    simState->pause();
    simState->reset();
    playAction->setText("play   ");
    followFrame();
    if (glWidget) glWidget->refreshBuffers(100);
    requestViewsRefresh();
}

void MainWindow::followFrame()
{
    sliderFollowing = true;
    timeSlider->setRange(simState->startFrame, simState->endFrame);
    timeSlider->setValue(simState->frame);
    frameSpinBox->setValue(simState->frame);
    sliderFollowing = false;
    if (simState->paused && playAction->text() != "play   ") playAction->setText("play   ");
}

void MainWindow::advancePlayback()
{
    timeSlider->setValue(simState->frame + 1);
    if (timeSlider->value() >= simState->endFrame) {
        simState->stopPlayback();
        playAction->setText("play   ");
        emit playAction->changed();
    }
}

void MainWindow::sliderFrameChange(int frame)
{
    frameSpinBox->blockSignals(true);
    frameSpinBox->setValue(frame);
    frameSpinBox->blockSignals(false);
    if (sliderFollowing || !simState->paused) return;
    // Scrubbing while paused: show the frame from the caches and cook the graph there.
    SimState& s = *simState;
    s.frame = frame;
    s.frameF = float(frame);
    s.substep = 0;
    s.time = s.frameF / s.fps;
    if (vboMutex.tryLock(100)) {
        simulation->evaluateParameters(s.frameF, 0);
        simulation->readCaches();
        if (graphMutex.tryLock(100)) {
            master->cook(false);
            graphMutex.unlock();
        }
        vboMutex.unlock();
    }
    s.viewportRedraw = true;
    requestViewsRefresh();
}

void MainWindow::stepFrame(int delta)
{
    const int f = std::clamp(simState->frame + delta, simState->startFrame, simState->endFrame);
    timeSlider->setValue(f);
}

void MainWindow::outlinerClicked(const QModelIndex& index)
{
    Q_UNUSED(index);
    if (paramEditor) paramEditor->show();
}

void MainWindow::openQuickStart()
{
    QDesktopServices::openUrl(QUrl::fromLocalFile(installFolder() + "/docs/QUICKSTART.md"));
}

void MainWindow::about()
{
    QMessageBox::about(this, "About " + programName,
                       programName + "\n\nVisual-effects simulation: granular matter, SPH fluid and a procedural "
                                     "node graph of points, meshes and volumes.");
}

void MainWindow::quit() { close(); }

void MainWindow::closeEvent(QCloseEvent* event)
{
    if (askBeforeDiscarding && !simState->paused) {
        const auto answer = QMessageBox::question(this, "Close App...", "Do you you want to abort the current simulation?");
        if (answer != QMessageBox::Yes) {
            event->ignore();
            return;
        }
    }
    if (!maybeSave()) {
        event->ignore();
        return;
    }
    simState->pause();
    saveLayout();
    simState->quitRequested = true;
    event->accept();
}
