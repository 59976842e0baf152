// PlayblastDialog: a frame range and an output path; "Start" has the viewport write one
// image per frame while the run plays from the first frame of the range.
#pragma once

#include <QDialog>

class QGroupBox;
class QLineEdit;
class QPushButton;
class QSpinBox;

// Asks the viewport for a repaint: its own flag when it exists, and the views' signal.
void markViewportForRefresh();

class PlayblastDialog : public QDialog {
    Q_OBJECT
public:
    explicit PlayblastDialog(QWidget* parent = nullptr);

    QGroupBox* group = nullptr;
    QLineEdit* pathEdit = nullptr;
    QSpinBox* startSpin = nullptr;
    QSpinBox* endSpin = nullptr;
    QPushButton* startButton = nullptr;

public slots:
    // Stores range and path in SimState, rewinds to the first frame and starts the run.
    virtual void applyAndClose();

protected:
    PlayblastDialog(const QString& title, const QString& groupLabel, QWidget* parent);

private:
    void build(const QString& title, const QString& groupLabel);
};
