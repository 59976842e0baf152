#include "ui/viewportoverlay.h"

#include "app/globals.h"
#include "app/simstate.h"

#include <QFont>
#include <QPainter>
#include <cstdio>

namespace {

QString format(const char* pattern, double v)
{
    char buf[96];
    std::snprintf(buf, sizeof(buf), pattern, v);
    return QString::fromLatin1(buf);
}

QString formatInt(const char* pattern, long long v)
{
    char buf[96];
    std::snprintf(buf, sizeof(buf), pattern, int(v));
    return QString::fromLatin1(buf);
}

} // namespace

QStringList ViewportOverlay::lines() const
{
    QStringList out;
    out << format("cam x : %.3f", cameraPosition.x()) << format("cam y : %.3f", cameraPosition.y())
        << format("cam z : %.3f", cameraPosition.z());
    out << formatInt("particlecount: %i", particleCount);
    out << format("max speed: %.3f", maxSpeed) << format("max accel: %.3f", maxAccel);
    const SimState* s = simState;
    out << format("sim sps: %.3f (steps per second)", s ? s->stepsPerSecond : 0.f);
    out << format("Time: %.2f", s ? s->time : 0.f);
    out << format("Frame: %.3f", s ? s->frameF : 0.f);
    out << format("fps: %.2f", drawFps);
    out << formatInt("Substeps: %i", s ? s->substeps : 0);
    out << QString::fromStdString("Camera: " + (cameraName.empty() ? std::string("persp") : cameraName));
    const long long total = s ? (long long)(s->accumulatedSeconds + s->elapsedSeconds) : 0;
    char buf[64];
    std::snprintf(buf, sizeof(buf), "%2ih %2im %2is", int(total / 3600), int((total / 60) % 60), int(total % 60));
    out << QString("sim time: ") + QString::fromLatin1(buf);
    if (s && s->writeCaches) out << QStringLiteral("out: cache");
    if (cudaPath) out << QStringLiteral("CUDA");
    return out;
}

void ViewportOverlay::paint(QPainter& painter) const
{
    QFont font = painter.font();
    font.setPointSizeF(8.5);
    painter.setFont(font);
    painter.setPen(QColor(215, 215, 215));
    const int step = painter.fontMetrics().height();
    int y = 6 + painter.fontMetrics().ascent();
    for (const QString& line : lines()) {
        painter.drawText(8, y, line);
        y += step;
    }
}
