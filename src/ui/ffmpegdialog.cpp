#include "ui/ffmpegdialog.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "params/paths.h"

#include <QDir>
#include <QFileInfo>
#include <QMessageBox>
#include <QProcess>
#include <QSpinBox>
#include <QStandardPaths>
#include <QTimer>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>

FfmpegDialog::FfmpegDialog(QWidget* parent) : PlayblastDialog("Make Video via FFMPEG", "FFMPEG", parent)
{
    watchTimer = new QTimer(this);
    watchTimer->setInterval(250);
    connect(watchTimer, &QTimer::timeout, this, &FfmpegDialog::checkPlayblastDone);
}

QString FfmpegDialog::pngPattern(const QString& path)
{
    std::string p = path.toStdString();
    if (p.empty() && simulation) {
        p = folderOf(simulation->scenePath) + "/images/" + simulation->sceneName + "/out.%04d.png";
    }
    replaceAll(p, "#####", "%05d");
    replaceAll(p, "####", "%04d");
    replaceAll(p, "###", "%03d");
    replaceAll(p, "##", "%02d");
    return QString::fromStdString(p);
}

QString FfmpegDialog::videoPathFor(const QString& pattern)
{
    const QFileInfo info(pattern);
    QString stem = info.fileName();
    const int dot = stem.indexOf('.');
    if (dot > 0) stem = stem.left(dot);
    if (stem.isEmpty()) stem = "video";
    return QDir(info.path()).filePath(stem + ".mp4");
}

QStringList FfmpegDialog::ffmpegArguments(const QString& pngPattern, int start, int fps, const QString& out)
{
    return {"-y",
            "-framerate",
            QString::number(fps),
            "-start_number",
            QString::number(start),
            "-i",
            pngPattern,
            "-c:v",
            "libx264",
            "-pix_fmt",
            "yuv420p",
            out};
}

QString FfmpegDialog::ffmpegCommandLine(const QString& pngPattern, int start, int fps, const QString& out)
{
    QStringList parts{"ffmpeg"};
    for (const QString& arg : ffmpegArguments(pngPattern, start, fps, out))
        parts << (arg.contains(' ') ? "\"" + arg + "\"" : arg);
    return parts.join(' ');
}

void FfmpegDialog::applyAndClose()
{
    PlayblastDialog::applyAndClose();
    if (simState && simState->playblastRunning) watchTimer->start();
}

void FfmpegDialog::checkPlayblastDone()
{
    if (simState && simState->playblastRunning) return;
    watchTimer->stop();
    startVideo();
}

bool FfmpegDialog::startVideo()
{
    const QString program = QStandardPaths::findExecutable("ffmpeg");
    if (program.isEmpty()) {
        const char* line = "ffmpeg is not installed: the images were written, no video was made.";
        std::printf("%s\n", line);
        if (isVisible() || parentWidget()) QMessageBox::information(parentWidget(), windowTitle(), line);
        return false;
    }
    const QString pattern = pngPattern(QString::fromStdString(simState ? simState->playblastPath : ""));
    const int start = startSpin->value();
    const int fps = simState ? std::max(1, int(std::lround(simState->fps))) : videoFps;
    const QString out = videoPathFor(pattern);
    std::printf("%s\n", ffmpegCommandLine(pattern, start, fps, out).toStdString().c_str());
    if (!QProcess::startDetached(program, ffmpegArguments(pattern, start, fps, out))) {
        std::printf("ffmpeg could not be started.\n");
        return false;
    }
    return true;
}
