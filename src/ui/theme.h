// The application's look: the Fusion style with a dark palette and a few style-sheet
// rules for tool tips, disabled menu entries, docks and the time slider.
#pragma once

class QApplication;

void applyTheme(QApplication& app);
