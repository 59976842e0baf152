#include "ui/preferencesdialog.h"

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "graph/nodemaster.h"
#include "graph/plugcache.h"
#include "ui/playblastdialog.h"

#include <QCheckBox>
#include <QCloseEvent>
#include <QDoubleSpinBox>
#include <QFileDialog>
#include <QGridLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSettings>
#include <QSpinBox>
#include <QSurfaceFormat>

#include <algorithm>
#include <cstdio>
#include <string>

namespace {

Parameter* settingsRow(const char* key)
{
    if (!simulation || !simulation->globalSettings) return nullptr;
    return simulation->globalSettings->params.get(key);
}

// Asks for a folder starting at the stored setting `key`; the choice is stored back.
QString chooseFolder(QWidget* parent, const QString& key)
{
    QSettings settings("Qorva", "Qorva");
    const QString start = settings.value(key, QString()).toString();
    const QString folder = QFileDialog::getExistingDirectory(parent, "Find Folder", start);
    if (!folder.isEmpty()) settings.setValue(key, folder);
    return folder;
}

} // namespace

PreferencesDialog::PreferencesDialog(QWidget* parent) : QDialog(parent)
{
    setWindowTitle("Preferences");
    auto* grid = new QGridLayout(this);
    int row = 0;
    auto addWide = [&](QWidget* w) { grid->addWidget(w, row++, 0, 1, 3); };

    imagesCheck = new QCheckBox("Write images while simming", this);
    addWide(imagesCheck);
    addWide(new QLabel("Fallback png file path (leave blank for auto path):", this));
    imagesPathEdit = new QLineEdit(this);
    imagesBrowseButton = new QPushButton("Browse", this);
    grid->addWidget(imagesPathEdit, row, 0, 1, 2);
    grid->addWidget(imagesBrowseButton, row++, 2);

    cachesCheck = new QCheckBox("Export particle sequence while simming", this);
    addWide(cachesCheck);
    addWide(new QLabel("Fallback folder path (leave blank for auto path):", this));
    cachesPathEdit = new QLineEdit(this);
    cachesBrowseButton = new QPushButton("Browse", this);
    grid->addWidget(cachesPathEdit, row, 0, 1, 2);
    grid->addWidget(cachesBrowseButton, row++, 2);
    addWide(new QLabel("ABC/PRT/BIN Cache export for classic systems", this));

    backgroundCheck = new QCheckBox("Write in Background", this);
    addWide(backgroundCheck);
    fovSpin = new QDoubleSpinBox(this);
    fovSpin->setRange(1.0, 179.0);
    fovSpin->setDecimals(1);
    grid->addWidget(new QLabel("Field of View:", this), row, 0);
    grid->addWidget(fovSpin, row++, 1, 1, 2);
    antialiasingCheck = new QCheckBox("Viewport Antialiasing (change needs restart)", this);
    addWide(antialiasingCheck);
    threadsSpin = new QSpinBox(this);
    threadsSpin->setRange(1, 1024);
    grid->addWidget(new QLabel("Number of Threads:", this), row, 0);
    grid->addWidget(threadsSpin, row++, 1, 1, 2);
    gpuSortCheck = new QCheckBox("GPU Sorting", this);
    addWide(gpuSortCheck);
    memoryCacheCheck = new QCheckBox("Enable Memory Cache", this);
    addWide(memoryCacheCheck);
    closeButton = new QPushButton("Close", this);
    grid->addWidget(closeButton, row++, 2);

    connect(imagesBrowseButton, &QPushButton::clicked, this, &PreferencesDialog::browsePlayblastFolder);
    connect(cachesBrowseButton, &QPushButton::clicked, this, &PreferencesDialog::browseCacheFolder);
    connect(closeButton, &QPushButton::clicked, this, &QDialog::close);
    readValues();
}

void PreferencesDialog::loadStoredPreferences()
{
    if (!simState) return;
    QSettings settings("Qorva", "Qorva");
    settings.beginGroup("Prefs");
    SimState& s = *simState;
    if (settings.contains("threads")) s.numThreads = std::max(1, settings.value("threads").toInt());
    if (settings.contains("antialiasing")) s.antialiasing = settings.value("antialiasing").toBool();
    if (settings.contains("gpuSort")) s.gpuSort = s.cudaAvailable && settings.value("gpuSort").toBool();
    if (settings.contains("writeInBackground"))
        s.writeInBackground = settings.value("writeInBackground").toBool();
    if (settings.contains("fov")) s.fov = settings.value("fov").toFloat();
    if (nodeMaster && nodeMaster->plugCache)
        nodeMaster->plugCache->keepBetweenCooks = settings.value("memoryCache", true).toBool();
    settings.endGroup();
}

void PreferencesDialog::browsePlayblastFolder()
{
    const QString folder = chooseFolder(this, "lastPlayblastPath");
    if (!folder.isEmpty()) imagesPathEdit->setText(folder);
}

void PreferencesDialog::browseCacheFolder()
{
    const QString folder = chooseFolder(this, "lastCachePath");
    if (!folder.isEmpty()) cachesPathEdit->setText(folder);
}

void PreferencesDialog::showEvent(QShowEvent* event)
{
    readValues();
    QDialog::showEvent(event);
}

void PreferencesDialog::closeEvent(QCloseEvent* event)
{
    applyValues();
    QDialog::closeEvent(event);
}

void PreferencesDialog::readValues()
{
    if (simState) {
        const SimState& s = *simState;
        imagesCheck->setChecked(s.writeImages);
        cachesCheck->setChecked(s.writeCaches);
        backgroundCheck->setChecked(s.writeInBackground);
        fovSpin->setValue(double(s.fov));
        antialiasingCheck->setChecked(s.antialiasing);
        threadsSpin->setValue(s.numThreads);
        gpuSortCheck->setChecked(s.gpuSort);
        gpuSortCheck->setVisible(s.cudaAvailable);
    }
    if (const Parameter* row = settingsRow("fallbackPathImages"))
        imagesPathEdit->setText(QString::fromStdString(row->text));
    if (const Parameter* row = settingsRow("fallbackPathCaches"))
        cachesPathEdit->setText(QString::fromStdString(row->text));
    QSettings settings("Qorva", "Qorva");
    memoryCacheCheck->setChecked(nodeMaster && nodeMaster->plugCache ? nodeMaster->plugCache->keepBetweenCooks
                                                                      : settings.value("Prefs/memoryCache", true).toBool());
}

void PreferencesDialog::applyValues()
{
    markViewportForRefresh();
    if (!simState) {
        std::printf("Preferences: no run state.\n");
        return;
    }
    SimState& s = *simState;
    GlobalSettings* globals = simulation ? simulation->globalSettings : nullptr;

    s.writeImages = imagesCheck->isChecked();
    const std::string imagesPath = imagesPathEdit->text().toStdString();
    if (Parameter* row = settingsRow("fallbackPathImages")) row->text = imagesPath;
    if (globals) globals->fallbackPathImages = imagesPath;

    s.writeCaches = cachesCheck->isChecked();
    const std::string cachesPath = cachesPathEdit->text().toStdString();
    if (Parameter* row = settingsRow("fallbackPathCaches")) row->text = cachesPath;
    if (globals) globals->fallbackPathCaches = cachesPath;

    s.numThreads = std::max(1, int(threadsSpin->value()));
    s.gpuSort = s.cudaAvailable ? gpuSortCheck->isChecked() : false;
    s.writeInBackground = backgroundCheck->isChecked();
    s.fov = float(fovSpin->value());
    s.antialiasing = antialiasingCheck->isChecked();

    QSurfaceFormat format;
    format.setVersion(2, 1);
    format.setDepthBufferSize(24);
    format.setProfile(QSurfaceFormat::CoreProfile);
    if (s.antialiasing) format.setSamples(8);
    QSurfaceFormat::setDefaultFormat(format);

    if (globals) globals->params.evaluateAll(0.f, 0);

    QSettings settings("Qorva", "Qorva");
    settings.beginGroup("Prefs");
    settings.setValue("threads", s.numThreads);
    settings.setValue("antialiasing", s.antialiasing);
    settings.setValue("gpuSort", s.gpuSort);
    settings.setValue("writeInBackground", s.writeInBackground);
    settings.setValue("fov", double(s.fov));
    settings.setValue("memoryCache", memoryCacheCheck->isChecked());
    settings.endGroup();
    if (nodeMaster && nodeMaster->plugCache) nodeMaster->plugCache->keepBetweenCooks = memoryCacheCheck->isChecked();
}
