// The rows of GlobalSettings, in the order the parameter editor shows them.
#include "app/globalsettings.h"

#include "app/globals.h"
#include "app/simstate.h"

GlobalSettings::GlobalSettings() : SceneObject(kTypeGlobalSettings)
{
    SimState& s = *simState;
    ParameterSet& p = params;
    auto limitMin = [](Parameter* row, float v) { row->hasMin = true; row->minValue = v; };

    p.addSpecial(102, "Time Range:");
    p.add(Parameter(&s.startFrame, "startFrame", "Start Frame", kParamInt));
    p.add(Parameter(&s.endFrame, "endFrame", "End Frame", kParamInt));
    limitMin(p.add(Parameter(&s.fps, "fps", "FPS", kParamFloat)), 0.0001f);
    p.addSpecial(102, "");
    p.addSpecial(102, "General Solver Settings:");
    limitMin(p.add(Parameter(&s.cflNumber, "cflNumber", "CFL Number", kParamFloat,
                             "The CFL Number determins the actual number of used substeps. Higher values "
                             "reduce substeps. Intended range is between 0.0 and 1.0.")),
             0.f);
    limitMin(p.add(Parameter(&s.minSubsteps, "minSubsteps", "Min Substeps", kParamInt,
                             "Minimum substeps per frame. Raise for faster moving objects or particles.")),
             1.f);
    limitMin(p.add(Parameter(&s.maxSubsteps, "maxSubsteps", "Max Substeps", kParamInt,
                             "Maximum substeps per frame. Raise for faster moving objects or particles.")),
             1.f);
    p.add(Parameter(&collideGround, "collideGround", "Collide Ground", kParamBool));
    p.add(Parameter(&evalGraphOnSubframes, "evalGraphOnSubframes", "Run Procedurals on Subframes", kParamBool,
                    "Evaluate the nodegraph also on subframes."));
    p.addSpecial(102, "");
    p.addSpecial(102, "Display Controls:");
    p.add(Parameter(&drawGrid, "drawGrid", "Show Grid", kParamBool));
    limitMin(p.add(Parameter(&pointSize, "pointSize", "Point Size", kParamFloat)), 0.0001f);
    p.add(Parameter(&isoPointSizeMulti, "isoPointSizeMulti", "Iso Point Size Multi", kParamFloat,
                    "Scales the display points of visible SDFs."));
    Parameter* mode = p.add(Parameter(&particleRenderMode, "particleRenderMode", "Particle Render Mode",
                                      kParamEnum, "Choose the style how to render particles."));
    mode->enumEntries = {"Perspective Spheres", "Perspective Points", "Uniform Points"};
    p.add(Parameter(&wireframe, "wireframe", "Wireframe", kParamBool, "Display a wireframe on shaded geo."));
    p.add(Parameter(&wireframeOnShaded, "wireframeOnShaded", "Wireframe On Shaded", kParamBool,
                    "Render geometry in wireframe mode."));
    p.add(Parameter(&flatShading, "flatShading", "Flat Shading", kParamBool, "Enforce overall flat shading."));
    p.addSpecial(100);
    Parameter* down = p.add(Parameter(&volDownsample, "volDownsample", "Volume Downsample", kParamInt,
                                      "Viewport downsampling of volumes."));
    down->hasMin = down->hasMax = true;
    down->minValue = 0.f;
    down->maxValue = 100.f;
    p.add(Parameter(&gpuVolumeDraw, "gpuVolumeDraw", "GPU Accel. Volume Drawing", kParamBool,
                    "Accelerated volume drawing using CUDA. To update please change a frame."));
    p.addSpecial(102, "");
    p.addSpecial(102, "Export Settings:");
    p.add(Parameter(&fallbackPathImages, "fallbackPathImages", "Fallback Images Path", kParamPath,
                    "A file or folder path for png playblast output."));
    p.add(Parameter(&fallbackPathCaches, "fallbackPathCaches", "Fallback Cache Folder", kParamPath,
                    "A folder path for cache output. Note this is just pointing to a folder not a file."));

    for (Parameter& row : p.parameters) row.text = row.defaultText;
    p.evaluateAll(0.f, 0);
}

void GlobalSettings::setIntRow(const std::string& key, int value)
{
    if (Parameter* row = params.get(key)) {
        if (row->value) *static_cast<int32_t*>(row->value) = value;
        row->text = std::to_string(value);
    }
}
