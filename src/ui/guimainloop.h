// The main thread's loop while a window exists: sleeps a little (less while the run is
// busy or the viewport asks), takes playblast images, follows the solver's frame with the
// slider, drives cache playback and lets Qt handle its events. Returns when the window closes.
#pragma once

class QApplication;

int guiMainLoop(QApplication& app);
