// GlobalSettings: the rows a user edits for the whole run: time range, substeps, display
// and export settings. Time and substep rows write straight into SimState.
#pragma once

#include "app/sceneobject.h"

#include <string>

class GlobalSettings : public SceneObject {
public:
    GlobalSettings();

    bool collideGround = true;
    bool evalGraphOnSubframes = false;
    bool drawGrid = true;
    float pointSize = 1.f;
    float isoPointSizeMulti = 1.f;
    int particleRenderMode = 0;
    bool wireframe = false;
    bool wireframeOnShaded = true;
    bool flatShading = false;
    int volDownsample = 0;
    bool gpuVolumeDraw = false;
    std::string fallbackPathImages;
    std::string fallbackPathCaches;

    // Writes `value` into an int row's field and its text (command-line overrides).
    void setIntRow(const std::string& key, int value);
};
