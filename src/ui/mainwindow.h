// MainWindow: the interactive run's frame: menus, tool bars, the docks (objects,
// parameters, attributes, procedurals) around the viewport, and the scene flows: new,
// open, save, add objects, play and scrub, background simulation.
#pragma once

#include <QMainWindow>
#include <QModelIndex>
#include <string>

class QAction;
class QDockWidget;
class QMenu;
class QSlider;
class QSpinBox;
class QTableView;
class QToolBar;
class QToolButton;
class NodeMaster;
class NodesGraphicsView;
class OpenGLWidget;
class OutlinerView;
class ParameterEditor;
class PlayblastDialog;
class FfmpegDialog;
class PreferencesDialog;
class SpreadSheetModel;

class MainWindow : public QMainWindow {
    Q_OBJECT
public:
    MainWindow(const QString& programName, const QString& shortName, const QString& version,
               NodeMaster* master, QWidget* parent = nullptr);
    ~MainWindow() override;

    NodeMaster* master = nullptr;
    QString programName;
    OpenGLWidget* glWidget = nullptr;
    NodesGraphicsView* nodeView = nullptr;
    ParameterEditor* paramEditor = nullptr;
    OutlinerView* outliner = nullptr;
    SpreadSheetModel* spreadsheet = nullptr;
    QTableView* spreadsheetView = nullptr;
    PlayblastDialog* playblastDialog = nullptr;
    FfmpegDialog* ffmpegDialog = nullptr;
    PreferencesDialog* preferencesDialog = nullptr;
    QDockWidget* objectsDock = nullptr;
    QDockWidget* attributesDock = nullptr;
    QDockWidget* proceduralsDock = nullptr;
    QToolBar* toolBar = nullptr;
    QToolBar* timeToolBar = nullptr;
    QSlider* timeSlider = nullptr;
    QSpinBox* frameSpinBox = nullptr;
    QAction* playAction = nullptr;
    QAction* undoAction = nullptr;
    QAction* redoAction = nullptr;
    QToolButton* autoUpdateButton = nullptr;
    bool unsavedChanges = false;
    // Set while the window itself moves the slider (playback, a running sim), so the
    // slider's signal doesn't scrub back.
    bool sliderFollowing = false;
    // When true (tests), New/Open/Quit don't ask before discarding changes.
    bool askBeforeDiscarding = true;

    // Scene flows; false when the user cancelled or the solver could not be stopped.
    bool openSceneFile(const QString& path);
    bool saveSceneTo(const QString& path);
    // Stops the solver's work and takes the viewport's geometry lock (released after).
    bool stopSolverForEdit();
    // After a load: title, clean flag, slider range, object list, cameras.
    void afterLoad();
    void updateTitle();
    // Asks whether to save unsaved changes: false when the user cancelled.
    bool maybeSave();
    // Follows SimState: slider and spin box to the frame, the play action's text.
    void followFrame();
    // Moves the time slider one frame (playback), stopping at the end frame.
    void advancePlayback();
    QString installFolder() const;

public slots:
    void newScene();
    void openScene();
    void exploreDemoScenes();
    void exploreSceneFolder();
    void saveScene();
    void saveSceneAs();
    void saveSceneVersionUp();
    void openPreferences();
    void quit();
    void copy();
    void paste();
    void cut();
    void addDumb();
    void addGranular();
    void addSimpleSPH();
    void addSmoke();
    void addMesher();
    void addStitcher();
    void addCamera();
    void addSource();
    void addForce();
    void addCollider();
    void backgroundSim();
    void makePlayblast();
    void makeVideo();
    void resetUI();
    void openQuickStart();
    void about();
    void togglePlay();
    void resetSim();
    void sliderFrameChange(int frame);
    void toggleAutoUpdater();
    void outlinerClicked(const QModelIndex& index);
    void onSceneEdited();
    void onSelectionChanged();

protected:
    void keyPressEvent(QKeyEvent* event) override;
    bool eventFilter(QObject* watched, QEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void buildMenus();
    void buildToolBars();
    void buildDocks();
    void readLayout();
    void saveLayout();
    void addClassicObject(int typeCode, const char* message);
    void addForSelectedSystem(int typeCode, const char* message, const QString& title);
    void addNodeForSelectedSystem(const std::string& key);
    void toggleGlobalRow(const char* key);
    void keyTransform(const char* prefix, bool remove);
    void setSelectedVisibility(bool visible);
    void stepFrame(int delta);
    bool nativeDialogs = false;
    QMenu* fileMenu = nullptr;
};
