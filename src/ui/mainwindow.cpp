// Construction of the main window: menus, tool bars, docks, the layout kept in the
// settings, and the wiring between the views.
#include "ui/mainwindow.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "graph/nodemaster.h"
#include "nodes/nodetable.h"
#include "ui/ffmpegdialog.h"
#include "ui/nodesgraphicsview.h"
#include "ui/openglwidget.h"
#include "ui/outlinerview.h"
#include "ui/parametereditor.h"
#include "ui/playblastdialog.h"
#include "ui/preferencesdialog.h"
#include "ui/spreadsheetmodel.h"
#include "ui/uiglobals.h"

#include <QAction>
#include <QApplication>
#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QDockWidget>
#include <QHeaderView>
#include <QKeySequence>
#include <QMenuBar>
#include <QSettings>
#include <QSlider>
#include <QSpinBox>
#include <QStatusBar>
#include <QTableView>
#include <QToolBar>
#include <QToolButton>
#include <QUndoStack>
#include <cstdio>

namespace {
QAction* addEntry(QMenu* menu, const QString& text, const QString& tip, const QKeySequence& key,
                  QObject* target, const char* slot)
{
    QAction* action = menu->addAction(text);
    if (!tip.isEmpty()) action->setStatusTip(tip);
    if (!key.isEmpty()) action->setShortcut(key);
    QObject::connect(action, SIGNAL(triggered()), target, slot);
    return action;
}

QSettings configIni()
{
    return QSettings(QCoreApplication::applicationDirPath() + "/config.ini", QSettings::IniFormat);
}
} // namespace

MainWindow::MainWindow(const QString& program, const QString& shortName, const QString& version,
                       NodeMaster* nodes, QWidget* parent)
    : QMainWindow(parent), master(nodes), programName(program)
{
    mainWindow = this;
    setObjectName("mainWindow");
    setWindowTitle(program + " " + version);
    Q_UNUSED(shortName);
    nativeDialogs = configIni().value("config/nativeFileDialog", false).toBool();

    glWidget = new OpenGLWidget(this);
    glWidget->setFocusPolicy(Qt::StrongFocus);
    setCentralWidget(glWidget);
    buildDocks();
    buildMenus();
    buildToolBars();
    statusBar();
    resize(1440, 900);
    readLayout();

    UiEvents* events = UiEvents::instance();
    connect(events, &UiEvents::sceneEdited, this, &MainWindow::onSceneEdited);
    connect(events, &UiEvents::selectionChanged, this, &MainWindow::onSelectionChanged);
    connect(undoStack(), &QUndoStack::indexChanged, this, [this] { onSceneEdited(); });
    qApp->installEventFilter(this);
    updateTitle();
}

MainWindow::~MainWindow()
{
    qApp->removeEventFilter(this);
    if (mainWindow == this) mainWindow = nullptr;
}

void MainWindow::buildMenus()
{
    fileMenu = menuBar()->addMenu("&File");
    fileMenu->setObjectName("fileMenu");
    addEntry(fileMenu, "&New", "Create a new scene", QKeySequence::New, this, SLOT(newScene()));
    addEntry(fileMenu, "&Open...", "Open a scene", QKeySequence::Open, this, SLOT(openScene()));
    addEntry(fileMenu, "&Explore Demo Scenes...", "Open a demo scene", {}, this, SLOT(exploreDemoScenes()));
    addEntry(fileMenu, "&Explore Scene Location", "Open the folder the scene is saved in.", {}, this,
             SLOT(exploreSceneFolder()));
    fileMenu->addSeparator();
    addEntry(fileMenu, "&Save", "Save the scene", QKeySequence::Save, this, SLOT(saveScene()));
    addEntry(fileMenu, "Save &as...", "Save the scene as", QKeySequence("Ctrl+Shift+S"), this, SLOT(saveSceneAs()));
    addEntry(fileMenu, "Save New &Version", "Save the scene as a new version", QKeySequence("Alt+Shift+S"), this,
             SLOT(saveSceneVersionUp()));
    fileMenu->addSeparator();
    addEntry(fileMenu, "&Preferences...", {}, QKeySequence::Preferences, this, SLOT(openPreferences()));
    addEntry(fileMenu, "&Exit", "Quits the application", QKeySequence::Quit, this, SLOT(quit()));

    QMenu* edit = menuBar()->addMenu("&Edit");
    addEntry(edit, "&Copy", "Copy the object", QKeySequence::Copy, this, SLOT(copy()));
    addEntry(edit, "&Paste", "Paste the object", QKeySequence::Paste, this, SLOT(paste()));
    addEntry(edit, "&Cut", "Cut the object", QKeySequence::Cut, this, SLOT(cut()));
    edit->addSeparator();
    undoAction = undoStack()->createUndoAction(this, "&Undo");
    undoAction->setShortcut(QKeySequence::Undo);
    redoAction = undoStack()->createRedoAction(this, "&Redo");
    redoAction->setShortcut(QKeySequence::Redo);
    edit->addAction(undoAction);
    edit->addAction(redoAction);
    // The viewport and the node editor take most key presses: keep the shortcuts window-wide.
    for (QAction* a : edit->actions()) a->setShortcutContext(Qt::ApplicationShortcut);

    QMenu* add = menuBar()->addMenu("&Add Object");
    addEntry(add, "Add &Dumb System", {}, {}, this, SLOT(addDumb()));
    addEntry(add, "Add &Granular System", {}, {}, this, SLOT(addGranular()));
    addEntry(add, "Add &SPH System", {}, {}, this, SLOT(addSimpleSPH()));
    add->addSeparator();
    addEntry(add, "Add S&ource", {}, {}, this, SLOT(addSource()));
    addEntry(add, "Add &Force", {}, {}, this, SLOT(addForce()));
    addEntry(add, "Add C&ollider", {}, {}, this, SLOT(addCollider()));
    add->addSeparator();
    QAction* smoke = addEntry(add, "Add &Basic Smoke Graph", {}, {}, this, SLOT(addSmoke()));
    // The smoke solver isn't part of this build: the entry stays, greyed out.
    smoke->setEnabled(findNodeMaker("smoke-solver") != nullptr &&
                      QFile::exists(installFolder() + "/bin/basic_smoke_preset.ng"));
    addEntry(add, "Add &Mesher", {}, {}, this, SLOT(addMesher()));
    addEntry(add, "Add Particle St&itcher", {}, {}, this, SLOT(addStitcher()))
        ->setEnabled(findNodeMaker("stitcher") != nullptr);
    addEntry(add, "Add &Camera", {}, {}, this, SLOT(addCamera()))->setEnabled(findNodeMaker("camera") != nullptr);

    QMenu* tools = menuBar()->addMenu("&Tools");
    addEntry(tools, "&Launch Background Sim", "Simulates the scene in a new commandline process.", {}, this,
             SLOT(backgroundSim()));
    addEntry(tools, "Make &Playblast...", {}, {}, this, SLOT(makePlayblast()));
    addEntry(tools, "Make Video...", {}, {}, this, SLOT(makeVideo()));
    addEntry(tools, "&Reset UI", {}, {}, this, SLOT(resetUI()));

    QMenu* help = menuBar()->addMenu("&Help");
    addEntry(help, "Open &QuickStart Guide", {}, QKeySequence::HelpContents, this, SLOT(openQuickStart()));
    addEntry(help, "&About...", {}, {}, this, SLOT(about()));
}

void MainWindow::buildToolBars()
{
    toolBar = addToolBar("Toolbar");
    toolBar->setObjectName("toolBar");
    toolBar->addAction("New", this, &MainWindow::newScene)->setToolTip("Create a new scene");
    toolBar->addAction("Open", this, &MainWindow::openScene)->setToolTip("Open a scene");
    toolBar->addAction("Save", this, &MainWindow::saveScene)->setToolTip("Save the scene");
    toolBar->addSeparator();
    toolBar->addAction("Granular", this, &MainWindow::addGranular)->setToolTip("Add a granular system");
    toolBar->addAction("SPH", this, &MainWindow::addSimpleSPH)->setToolTip("Add an SPH system");
    toolBar->addAction("Mesher", this, &MainWindow::addMesher)->setToolTip("Add a Mesher node");

    timeToolBar = new QToolBar("Time", this);
    timeToolBar->setObjectName("timeToolBar");
    addToolBarBreak(Qt::BottomToolBarArea);
    addToolBar(Qt::BottomToolBarArea, timeToolBar);
    playAction = timeToolBar->addAction("play   ", this, &MainWindow::togglePlay);
    playAction->setToolTip("Play or pause the simulation (Space)");
    timeToolBar->addAction("reset", this, &MainWindow::resetSim)->setToolTip("Back to the start frame");
    timeSlider = new QSlider(Qt::Horizontal, timeToolBar);
    timeSlider->setObjectName("timeSlider");
    timeSlider->setRange(simState ? simState->startFrame : 0, simState ? simState->endFrame : 200);
    timeSlider->setMinimumWidth(400);
    timeSlider->setFocusPolicy(Qt::NoFocus);
    connect(timeSlider, SIGNAL(valueChanged(int)), this, SLOT(sliderFrameChange(int)));
    timeToolBar->addWidget(timeSlider);
    frameSpinBox = new QSpinBox(timeToolBar);
    frameSpinBox->setRange(-100000, 100000);
    frameSpinBox->setKeyboardTracking(false);
    connect(frameSpinBox, QOverload<int>::of(&QSpinBox::valueChanged), this, [this](int f) {
        if (!sliderFollowing) timeSlider->setValue(f);
    });
    timeToolBar->addWidget(frameSpinBox);
    autoUpdateButton = new QToolButton(timeToolBar);
    autoUpdateButton->setText("A on");
    autoUpdateButton->setToolTip("Enable or disable nodegraph autoupdate on graph change.");
    connect(autoUpdateButton, SIGNAL(clicked()), this, SLOT(toggleAutoUpdater()));
    timeToolBar->addWidget(autoUpdateButton);
}

void MainWindow::buildDocks()
{
    setDockOptions(AnimatedDocks | AllowTabbedDocks);
    outliner = new OutlinerView(this);
    connect(outliner, &OutlinerView::objectClicked, this, &MainWindow::outlinerClicked);
    objectsDock = new QDockWidget("Objects", this);
    objectsDock->setObjectName("objectsDock");
    objectsDock->setToolTip("Object Selector");
    objectsDock->setWidget(outliner);
    addDockWidget(Qt::LeftDockWidgetArea, objectsDock);

    paramEditor = new ParameterEditor(this);
    addDockWidget(Qt::RightDockWidgetArea, paramEditor);

    spreadsheet = new SpreadSheetModel(this);
    spreadsheetView = new QTableView(this);
    spreadsheetView->setModel(spreadsheet);
    spreadsheetView->verticalHeader()->setDefaultSectionSize(18);
    attributesDock = new QDockWidget("Geo Attributes", this);
    attributesDock->setObjectName("attributesDock");
    attributesDock->setWidget(spreadsheetView);
    addDockWidget(Qt::BottomDockWidgetArea, attributesDock);

    nodeView = new NodesGraphicsView(master, this);
    proceduralsDock = new QDockWidget("Procedurals", this);
    proceduralsDock->setObjectName("proceduralsDock");
    proceduralsDock->setWidget(nodeView);
    addDockWidget(Qt::BottomDockWidgetArea, proceduralsDock);
    tabifyDockWidget(attributesDock, proceduralsDock);
    proceduralsDock->raise();
    resizeDocks({objectsDock, paramEditor}, {220, 380}, Qt::Horizontal);
    resizeDocks({proceduralsDock}, {230}, Qt::Vertical);

    playblastDialog = new PlayblastDialog(this);
    ffmpegDialog = new FfmpegDialog(this);
    preferencesDialog = new PreferencesDialog(this);
}

void MainWindow::readLayout()
{
    QSettings settings;
    settings.beginGroup("Prefs");
    const QByteArray geometry = settings.value("mainWindowGeometry").toByteArray();
    const QByteArray state = settings.value("mainWindowState").toByteArray();
    if (!geometry.isEmpty()) restoreGeometry(geometry);
    if (!state.isEmpty()) restoreState(state);
    settings.endGroup();
    PreferencesDialog::loadStoredPreferences();
}

void MainWindow::saveLayout()
{
    QSettings settings;
    settings.beginGroup("Prefs");
    settings.setValue("mainWindowGeometry", saveGeometry());
    settings.setValue("mainWindowState", saveState());
    settings.endGroup();
}

void MainWindow::resetUI()
{
    for (QDockWidget* dock : {objectsDock, static_cast<QDockWidget*>(paramEditor), attributesDock, proceduralsDock}) {
        dock->setFloating(false);
        dock->show();
    }
    removeDockWidget(objectsDock);
    removeDockWidget(paramEditor);
    removeDockWidget(attributesDock);
    removeDockWidget(proceduralsDock);
    addDockWidget(Qt::LeftDockWidgetArea, objectsDock);
    addDockWidget(Qt::RightDockWidgetArea, paramEditor);
    addDockWidget(Qt::BottomDockWidgetArea, attributesDock);
    addDockWidget(Qt::BottomDockWidgetArea, proceduralsDock);
    objectsDock->show();
    paramEditor->show();
    attributesDock->show();
    proceduralsDock->show();
    tabifyDockWidget(attributesDock, proceduralsDock);
    proceduralsDock->raise();
    toolBar->show();
    timeToolBar->show();
}

QString MainWindow::installFolder() const
{
    // bin/, geo/, docs/ and the demo scenes lie beside the folder of the executable
    return QString::fromStdString(installRoot);
}

void MainWindow::updateTitle()
{
    QString title = programName;
    if (simulation && !simulation->scenePath.empty())
        title += " - " + QString::fromStdString(simulation->sceneName) + "." +
                 QString::fromStdString(simulation->sceneExtension);
    if (unsavedChanges) title += " *";
    setWindowTitle(title);
}

void MainWindow::onSceneEdited()
{
    if (unsavedChanges) return;
    unsavedChanges = true;
    updateTitle();
}

void MainWindow::onSelectionChanged()
{
    if (spreadsheet) spreadsheet->onSelectionChanged();
}

void MainWindow::toggleAutoUpdater()
{
    master->autoRefresh = !master->autoRefresh;
    autoUpdateButton->setText(master->autoRefresh ? "A on" : "A off");
}
