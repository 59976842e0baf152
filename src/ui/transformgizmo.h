// TransformGizmo: the handles drawn at the selected object or node that has the nine
// transform rows. Translate shows three arrows, rotate three rings, scale three axes with
// boxes; X, Y and Z are red, green and blue. A drag along a handle edits the rows live;
// the widget pushes one TransformCommand when the drag ends.
#pragma once

#include <QMatrix4x4>
#include <QPointF>
#include <QSize>
#include <QVector3D>
#include <string>

class ParameterSet;
class ViewportBuffers;

class TransformGizmo {
public:
    enum Mode { Off = 0, Translate = 1, Rotate = 2, Scale = 3 };
    static const char* const kKeys[9]; // translateX .. scaleZ

    int mode = Off;
    bool worldSpace = true;
    // The target: the first selected entry whose rows hold all nine keys.
    std::string name;
    bool isNode = false;
    bool valid = false;
    float values[9] = {0, 0, 0, 0, 0, 0, 1, 1, 1};
    // A drag under way.
    bool dragging = false;
    int axis = -1;
    int hoverAxis = -1;
    float startValues[9] = {0, 0, 0, 0, 0, 0, 1, 1, 1};
    QPointF startPos;

    // Reads the target from the selection; false (and `valid` off) without one.
    bool readTarget();
    // The nine values of a row set; false when a key is missing or not a number.
    static bool readRows(ParameterSet* rows, float out[9]);

    QVector3D origin() const { return QVector3D(values[0], values[1], values[2]); }
    // World direction of handle `i` (the object's rotated axes in local space).
    QVector3D axisDir(int i) const;
    // World length that shows as about `pixels` tall at the gizmo's depth.
    float handleLength(const QMatrix4x4& view, const QMatrix4x4& proj, QSize size, float pixels = 90.f) const;
    // The line group of `out` becomes the handles.
    void fillLines(ViewportBuffers& out, float length) const;
    // The handle under `pos` (pixels), or -1.
    int hitTest(const QPointF& pos, const QMatrix4x4& viewProj, QSize size, float length) const;
    // Starts a drag on handle `handle`.
    void begin(int handle, const QPointF& pos);
    // New values for the mouse at `pos`; answers whether they changed.
    bool dragTo(const QPointF& pos, const QMatrix4x4& viewProj, QSize size, float length);

    static QPointF toScreen(const QVector3D& world, const QMatrix4x4& viewProj, QSize size);
};
