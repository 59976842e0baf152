// ViewportOverlay: the text in the viewport's top left corner: camera position, particle
// statistics, run timing and output state, one line each, drawn by a QPainter after the
// native painting.
#pragma once

#include <QStringList>
#include <QVector3D>
#include <string>

class QPainter;

class ViewportOverlay {
public:
    QVector3D cameraPosition;
    long long particleCount = 0;
    float maxSpeed = 0.f;
    float maxAccel = 0.f;
    float drawFps = 0.f;
    std::string cameraName; // empty: "persp"
    bool cudaPath = false;

    // The lines in display order, from these fields and SimState.
    QStringList lines() const;
    void paint(QPainter& painter) const;
};
