// PreferencesDialog: the run settings of SimState (image and cache writing, threads, field
// of view, antialiasing). Values are read when the dialog is shown and applied when it is
// closed; the machine-wide ones are also kept in the user's settings for the next start.
#pragma once

#include <QDialog>

class QCheckBox;
class QDoubleSpinBox;
class QLineEdit;
class QPushButton;
class QSpinBox;

class PreferencesDialog : public QDialog {
    Q_OBJECT
public:
    explicit PreferencesDialog(QWidget* parent = nullptr);

    QCheckBox* imagesCheck = nullptr;
    QLineEdit* imagesPathEdit = nullptr;
    QPushButton* imagesBrowseButton = nullptr;
    QCheckBox* cachesCheck = nullptr;
    QLineEdit* cachesPathEdit = nullptr;
    QPushButton* cachesBrowseButton = nullptr;
    QCheckBox* backgroundCheck = nullptr;
    QDoubleSpinBox* fovSpin = nullptr;
    QCheckBox* antialiasingCheck = nullptr;
    QSpinBox* threadsSpin = nullptr;
    QCheckBox* gpuSortCheck = nullptr;     // shown only where CUDA is available
    QCheckBox* memoryCacheCheck = nullptr; // PlugCache::keepBetweenCooks, kept in the settings
    QPushButton* closeButton = nullptr;

    // Reads the values kept by an earlier session into SimState and the node cache (start-up).
    static void loadStoredPreferences();

public slots:
    void browsePlayblastFolder();
    void browseCacheFolder();

protected:
    void showEvent(QShowEvent* event) override;
    void closeEvent(QCloseEvent* event) override;

private:
    void readValues();
    void applyValues();
};
