// Set-up shared by the window's tests: one QApplication for the process and the global
// records the views read (simulation, node master, SimState), made once and cleared
// between cases. Widget suites run on the offscreen platform; GL suites under Xvfb.
#pragma once

#include "testenv.h"
#include "ui/uiglobals.h"

#include <QApplication>
#include <QStandardPaths>
#include <QUndoStack>
#include <cstdlib>

inline QApplication* ensureApplication()
{
    if (auto* app = qobject_cast<QApplication*>(QCoreApplication::instance())) return app;
    if (std::getenv("DISPLAY") == nullptr && std::getenv("QT_QPA_PLATFORM") == nullptr)
        setenv("QT_QPA_PLATFORM", "offscreen", 1);
    // Settings written by the tests go to Qt's test location, never the user's own.
    QStandardPaths::setTestModeEnabled(true);
    static int argc = 1;
    static char name[] = "qorva_test";
    static char* argv[] = {name, nullptr};
    return new QApplication(argc, argv);
}

// An empty scene and an empty undo stack, as after File > New.
inline void resetSceneRecords()
{
    ensureApplication();
    ensureSceneRecords();
    nodeMaster->simulation = simulation;
    undoStack()->clear();
    nodeMaster->clearGraph();
    simulation->clear();
    simulation->selection.clear();
}
