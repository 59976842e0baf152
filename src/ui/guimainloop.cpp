#include "ui/guimainloop.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "app/writingqueue.h"
#include "ui/mainwindow.h"
#include "ui/openglwidget.h"
#include "ui/parametereditor.h"
#include "ui/uiglobals.h"

#include <QApplication>
#include <QThread>
#include <cstdio>

int guiMainLoop(QApplication& app)
{
    SimState& s = *simState;
    float sleepMs = 1.f;
    int lastFrame = s.frame;
    while (mainWindow && mainWindow->isVisible() && !s.quitRequested) {
        // 1. sleep: short when woken, growing while idle
        if (s.paused) {
            if (s.guiWake) {
                s.guiWake = false;
                sleepMs = 0.f;
            }
            QThread::msleep((unsigned long)sleepMs);
            if (sleepMs < 25.f) sleepMs += 0.5f;
        } else {
            if (s.guiWake) {
                s.guiWake = false;
                sleepMs = 5.f;
            }
            QThread::msleep((unsigned long)sleepMs);
            if (sleepMs < 30.f) sleepMs += 0.4f;
        }
        // 2. the viewport wants a repaint
        if (viewport && viewport->updateFlag && s.paused) sleepMs = 0.f;
        // 3. a playblast image for the frame just solved
        if (s.writeImages && s.imageRequested) {
            if (viewport) {
                viewport->refreshBuffers(60);
                viewport->repaint();
                viewport->savePlayblastImage();
            }
            s.imageRequested = false;
        }
        // 4. classic objects whose file paths were edited reconnect to their geometry
        if (parameterEditor && (parameterEditor->filePathChanged || parameterEditor->otherFlag)) {
            if (vboMutex.tryLock(20)) {
                if (parameterEditor->filePathChanged) {
                    std::printf("checking for changed file pathes...\n");
                    std::fflush(stdout);
                    simulation->connectObject(parameterEditor->changedObjectName, true);
                }
                parameterEditor->filePathChanged = false;
                parameterEditor->otherFlag = false;
                vboMutex.unlock();
            }
        }
        // 5. new data to show
        const bool refresh = viewport && (!s.paused || s.viewportRedraw);
        if (refresh) {
            viewport->refreshBuffers(20);
            s.viewportRedraw = false;
        }
        // 6. paint (only when something changed: software GL is slow) and handle events
        if (viewport && (refresh || viewport->updateFlag)) viewport->update();
        app.processEvents(QEventLoop::AllEvents, 10);
        app.sendPostedEvents();
        // 7.
        if (viewport && viewport->updateFlag) {
            viewport->updateFlag = false;
            sleepMs = 3.f;
        }
        if (!mainWindow) break;
        // 8. the slider follows a running simulation
        if (!s.paused || s.frame != lastFrame) {
            mainWindow->followFrame();
            if (s.frame != lastFrame) requestViewsRefresh();
            lastFrame = s.frame;
        }
        // 9. playback of cached frames
        if (!s.playbackStopped && !s.playblastRunning) mainWindow->advancePlayback();
        // a --sim run with a window ends like a headless one, once its files are written
        if (s.simFinished && s.exitWhenFinished && writingQueue->isIdle()) break;
    }
    return 0;
}
