// FfmpegDialog: the playblast form under its own title. Once the playblast it starts has
// finished, the PNG sequence is turned into a video with ffmpeg where that is installed.
#pragma once

#include "ui/playblastdialog.h"

#include <QString>
#include <QStringList>

class QTimer;

class FfmpegDialog : public PlayblastDialog {
    Q_OBJECT
public:
    explicit FfmpegDialog(QWidget* parent = nullptr);

    QTimer* watchTimer = nullptr;
    int videoFps = 24;

    // The image pattern of the playblast path in printf form ("####" -> "%04d"); the
    // automatic path when `path` is empty.
    static QString pngPattern(const QString& path);
    // The video written beside a pattern: its folder, its name before the first dot, ".mp4".
    static QString videoPathFor(const QString& pattern);
    static QStringList ffmpegArguments(const QString& pngPattern, int start, int fps, const QString& out);
    // The whole command as a shell would read it (arguments with spaces quoted).
    static QString ffmpegCommandLine(const QString& pngPattern, int start, int fps, const QString& out);

public slots:
    void applyAndClose() override;
    // Runs ffmpeg over the last playblast's images; false when ffmpeg is not installed or
    // could not be started.
    bool startVideo();

private slots:
    void checkPlayblastDone();
};
