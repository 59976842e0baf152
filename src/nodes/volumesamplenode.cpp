// Trilinear samples in world space, times `multiplier`, set into, added to or maxed with
// the attribute (per component for vectors). A float grid fills a float attribute, a
// vector grid a vector one (`v` the velocity channel); the attribute is made when missing.
// `limit` keeps the change to the points inside the smoke (density kind above 0.01) or
// inside the solid (distance grid below 0); without that grid every point changes.
#include "nodes/volumesamplenode.h"

#include "geo/attribtypes.h"
#include "nodes/levelsetops.h"
#include "nodes/volumeops.h"

#include <algorithm>
#include <cstdio>
#include <vector>

namespace {

enum Mode { kSet = 0, kAdd = 1, kMax = 2 };
enum Limit { kNoLimit = 0, kInsideSmoke = 1, kInsideSolid = 2 };

float combine(int mode, float old, float value)
{
    switch (mode) {
    case kAdd:
        return old + value;
    case kMax:
        return std::max(old, value);
    default:
        return value;
    }
}

} // namespace

VolumeSampleNode::VolumeSampleNode(NodeMaster* master) : GeoNode(master)
{
    setType("Volume-Sample");
    addParam(&volumeName, "volumeName", "Volume Name", kParamString, "velocity", "Volume name to sample.");
    addParam(&attribName, "attribName", "Attribute Name", kParamString, "", "Attribute name to set.");
    addParam(&multiplier, "multiplier", "Multiplier", kParamFloat, "1.0", "Scales the sampled value.");
    addEnum(&mode, "mode", "Mode", {"Set", "Add", "Max"}, "Set",
            "Choose how to change the points attribute.");
    addEnum(&limit, "limit", "Limit", {"None", "Inside Smoke", "Inside Solid"}, "None",
            "Select if only e.g. inside the smoke density will have an effect.");
    addInput("Points-Input");
    addInput("Volume-Input");
    addOutput("Points-Output");
}

void VolumeSampleNode::cookPair(BodyPtr& body, const Body* second)
{
    sample(*body, second);
}

void VolumeSampleNode::sample(Body& points, const Body* volume)
{
    GridBasePtr grid = volume ? volume->volumes->volume(volumeName) : nullptr;
    if (!grid) {
        std::printf("%s: volume not found. %s not found.\n", name().c_str(), volumeName.c_str());
        return;
    }
    if (attribName.empty()) {
        std::printf("%s: no attribute name given.\n", name().c_str());
        return;
    }
    PointData& pd = *points.points;
    std::vector<Vec4f> values;
    const int components = sampleGrid(grid, pd.P, values);
    if (components < 0) {
        std::printf("%s: volume %s is neither a float nor a vector volume.\n", name().c_str(),
                    volumeName.c_str());
        return;
    }
    if (!pd.hasAttrib(attribName)) pd.addAttrib(attribName, components == 1 ? ATTRIB_FLOAT : ATTRIB_VECTOR);
    const int type = pd.attribType(attribName);
    const bool isVector = type >= ATTRIB_VECTOR && type <= ATTRIB_NORMAL;
    void* array = pd.attrib(attribName);
    if (!array || (components == 1 && type != ATTRIB_FLOAT) || (components == 3 && !isVector)) {
        std::printf("%s: attribute %s doesn't fit the volume's type.\n", name().c_str(), attribName.c_str());
        return;
    }

    // the points that may change, from the limit's grid sampled at the same positions
    std::vector<Vec4f> limitValues;
    if (limit == kInsideSmoke || limit == kInsideSolid) {
        GridBasePtr limitGrid = limit == kInsideSmoke ? findGridKind(*volume->volumes, GridKind::Density)
                                                      : findDistanceGrid(*volume->volumes);
        if (limitGrid && sampleGrid(limitGrid, pd.P, limitValues) != 1) limitValues.clear();
    }
    auto changes = [&](size_t i) {
        if (limitValues.empty()) return true;
        return limit == kInsideSmoke ? limitValues[i].x > 0.01f : limitValues[i].x < 0.f;
    };

    if (components == 1) {
        FloatArray& out = *static_cast<FloatArray*>(array);
        for (size_t i = 0; i < out.size() && i < values.size(); ++i)
            if (changes(i)) out[i] = combine(mode, out[i], values[i].x * multiplier);
        return;
    }
    VecArray& out = *static_cast<VecArray*>(array);
    for (size_t i = 0; i < out.size() && i < values.size(); ++i) {
        if (!changes(i)) continue;
        const Vec4f v = values[i] * multiplier;
        Vec4f& o = out[i];
        o = Vec4f(combine(mode, o.x, v.x), combine(mode, o.y, v.y), combine(mode, o.z, v.z), o.w);
    }
}
