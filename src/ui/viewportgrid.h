// ViewportGrid: the reference grid on the ground plane, as line segments. The finite grid
// spans -10..10 in unit steps; the infinite one reaches much further and is drawn fading
// with the distance from the camera.
#pragma once

class ViewportBuffers;

class ViewportGrid {
public:
    static constexpr float kFiniteHalfExtent = 10.f;
    static constexpr float kInfiniteHalfExtent = 400.f;
    static constexpr float kFadeDistance = 120.f;

    // Replaces the line group of `out` with the grid; the centre lines are brighter.
    static void fill(ViewportBuffers& out, bool infinite);
    // The "config/drawInfiniteGrid" setting of "/config.ini" beside the executable.
    static bool infiniteFromConfig();
};
