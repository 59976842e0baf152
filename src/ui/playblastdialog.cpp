#include "ui/playblastdialog.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "ui/uiglobals.h"

#if __has_include("ui/openglwidget.h")
#include "ui/openglwidget.h"
#define QORVA_HAVE_VIEWPORT_WIDGET 1
#endif

#include <QGridLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <cstdio>

void markViewportForRefresh()
{
#ifdef QORVA_HAVE_VIEWPORT_WIDGET
    if (viewport) viewport->updateFlag = true;
#endif
    if (simState) simState->viewportRedraw = true;
    requestViewsRefresh();
}

PlayblastDialog::PlayblastDialog(QWidget* parent) : QDialog(parent)
{
    build("Playblast", "Playblast");
}

PlayblastDialog::PlayblastDialog(const QString& title, const QString& groupLabel, QWidget* parent)
    : QDialog(parent)
{
    build(title, groupLabel);
}

void PlayblastDialog::build(const QString& title, const QString& groupLabel)
{
    setWindowTitle(title);
    auto* outer = new QVBoxLayout(this);
    group = new QGroupBox(groupLabel, this);
    auto* grid = new QGridLayout(group);
    pathEdit = new QLineEdit(group);
    startSpin = new QSpinBox(group);
    endSpin = new QSpinBox(group);
    for (QSpinBox* spin : {startSpin, endSpin}) spin->setRange(-1000000, 1000000);
    if (simState) {
        startSpin->setValue(simState->startFrame);
        endSpin->setValue(simState->endFrame);
    }
    grid->addWidget(new QLabel("Output path (leave blank for auto path):", group), 0, 0, 1, 2);
    grid->addWidget(pathEdit, 1, 0, 1, 2);
    grid->addWidget(new QLabel("Start Frame:", group), 2, 0);
    grid->addWidget(startSpin, 2, 1);
    grid->addWidget(new QLabel("End Frame:", group), 3, 0);
    grid->addWidget(endSpin, 3, 1);
    outer->addWidget(group);
    startButton = new QPushButton("Start", this);
    outer->addWidget(startButton);
    connect(startButton, &QPushButton::clicked, this, &PlayblastDialog::applyAndClose);
}

void PlayblastDialog::applyAndClose()
{
    markViewportForRefresh();
    close();
    std::printf("creating playblast...\n");
    if (!simState) {
        std::printf("Playblast: no run state.\n");
        return;
    }
    simState->playblastStartFrame = startSpin->value();
    simState->playblastEndFrame = endSpin->value();
    std::printf("end frame: %d\n", int(simState->endFrame));
    simState->frame = simState->playblastStartFrame;
    simState->playblastPath = pathEdit->text().toStdString();
    simState->playblastRunning = true;
    simState->play();
}
