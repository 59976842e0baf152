// ViewportScene: what the viewport draws, gathered from the core: one ViewportBuffers per
// classic system, per collider mesh part and per visible graph node, plus the statistics
// of the overlay. Gathering takes the core's locks with a timed try and keeps the previous
// buffers when a lock isn't free, so the window never waits on the solver.
#pragma once

#include "ui/viewportbuffers.h"

#include <QVector3D>
#include <memory>
#include <vector>

class QOpenGLFunctions;

class ViewportScene {
public:
    using BufferList = std::vector<std::unique_ptr<ViewportBuffers>>;

    BufferList systems;   // classic particle systems
    BufferList colliders; // classic collider mesh parts
    BufferList nodes;     // graph nodes with visibility on
    BufferList retired;   // no longer drawn; their GL buffers go at the next paint

    long long particleCount = 0;
    float maxSpeed = 0.f;
    float maxAccel = 0.f;
    bool cudaPath = false;

    // Classic systems and colliders under vboMutex; false when the lock wasn't had in time.
    bool refreshClassic(int lockWaitMs);
    // Graph results under graphMutex (each node's own lock by try); false when skipped.
    bool refreshGraph(int lockWaitMs);
    // World box of everything drawn; min > max when there is nothing.
    void bounds(QVector3D& min, QVector3D& max) const;
    // Every drawable, pickable or not, in drawing order.
    std::vector<ViewportBuffers*> all() const;
    // Deletes the GL buffers of retired entries (context current).
    void releaseRetired(QOpenGLFunctions* f);
    // Everything goes to `retired`.
    void clear();

private:
    // The entry of `list` at `index`, made when missing.
    ViewportBuffers& slot(BufferList& list, size_t index);
    void trim(BufferList& list, size_t count);
};
