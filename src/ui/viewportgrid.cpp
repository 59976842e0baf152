#include "ui/viewportgrid.h"

#include "app/globals.h"
#include "ui/viewportbuffers.h"

#include <QSettings>
#include <QString>

void ViewportGrid::fill(ViewportBuffers& out, bool infinite)
{
    out.clearData();
    out.pickable = false;
    const int half = int(infinite ? kInfiniteHalfExtent : kFiniteHalfExtent);
    const float e = float(half);
    for (int i = -half; i <= half; ++i) {
        const float c = i == 0 ? 0.55f : (i % 5 == 0 ? 0.42f : 0.34f);
        const float t = float(i);
        const float seg[12] = {t, 0.f, -e, t, 0.f, e, -e, 0.f, t, e, 0.f, t};
        out.linePos.insert(out.linePos.end(), seg, seg + 12);
        for (int k = 0; k < 4; ++k) out.lineCol.insert(out.lineCol.end(), {c, c, c});
    }
    out.dirty = true;
}

bool ViewportGrid::infiniteFromConfig()
{
    const QString path = QString::fromStdString(executableDir()) + "/config.ini";
    QSettings settings(path, QSettings::IniFormat);
    return settings.value("config/drawInfiniteGrid", false).toBool();
}
