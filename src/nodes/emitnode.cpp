// Emit: new points get emissionPos (where they were emitted) and width (the point size).
// The volume emission puts `oversample` points at random places in each active voxel of
// the float grid "distance" whose value is below 0, moving with the grid "velocity".
#include "nodes/emitnode.h"

#include "nodes/dynamicgrids.h"
#include "nodes/dynamichelpers.h"

#include <cmath>
#include <cstdio>
#include <sstream>
#include <vector>

namespace {

std::vector<std::string> splitBlanks(const std::string& text)
{
    std::vector<std::string> words;
    std::istringstream in(text);
    for (std::string w; in >> w;) words.push_back(w);
    return words;
}

} // namespace

EmitNode::EmitNode(NodeMaster* master) : GeoNode(master)
{
    setType("Emit");
    addParam(&oversample, "oversample", "Volume Oversample", kParamInt, "1",
             "Number of particles per voxel.");
    addParam(&copyAttribs, "copyAttribs", "Copy Attribs", kParamString, "v Cd",
             "Attributes to copy over to the new particles.");
    addParam(&velScale, "velScale", "Velocity Scale", kParamFloat, "1", "Scale the incoming point velocity.");
    addParam(&pointSize, "pointSize", "Point Size", kParamFloat, "0.05", "Emission viewport particle size.");
    addInput("Input-Particles", true);
    addInput("Input-Source", true);
    addOutput("Output");
}

void EmitNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    std::vector<BodyPtr> in = fetchInputs({0, 1});
    BodyPtr target = in[0];
    if (!target) {
        finishProcess(result, c, std::make_shared<Body>(), false);
        return;
    }
    const Parameter* row = params.get("enabled");
    if (in[1] && (enabled || (row && row->isPerPoint))) {
        emit(*target, in[1]);
        if (context.print) std::printf(" - total: %zu points\n", target->points->size());
    }
    finishProcess(result, c, std::move(target), false);
}

size_t EmitNode::emit(Body& target, const BodyPtr& source)
{
    const PointData& src = *source->points;
    PointData& dst = *target.points;
    const PointExpression* mask = nullptr;
    if (!dynamicnodes::enabledMask(*this, source, mask)) return 0;
    // The listed attributes that the source has: made on the target when missing there.
    std::vector<std::string> names;
    for (const std::string& word : splitBlanks(copyAttribs)) {
        const int type = src.attribType(word);
        if (word == "P" || type == ATTRIB_NONE) continue;
        if (!dst.hasAttrib(word)) dst.addAttrib(word, type);
        names.push_back(word);
    }
    dst.addAttrib("emissionPos", ATTRIB_POSITION);
    dst.addAttrib("width", ATTRIB_FLOAT);

    size_t added = 0;
    size_t skipped = 0;
    for (size_t i = 0; i < src.size(); ++i) {
        if (mask && mask->value(i) < 0.0001f) continue;
        const Vec4f p = src.P[i];
        if (!std::isfinite(p.x) || !std::isfinite(p.y) || !std::isfinite(p.z)) {
            ++skipped;
            continue;
        }
        const size_t k = size_t(dst.addPoint(p));
        // the arrays may move as points are added: look them up per point
        if (auto* e = dst.attribAs<VecArray>("emissionPos");
            e && dst.attribType("emissionPos") == ATTRIB_POSITION)
            (*e)[k] = p;
        if (auto* w = dst.attribAs<FloatArray>("width"); w && dst.attribType("width") == ATTRIB_FLOAT)
            (*w)[k] = pointSize;
        dst.copyPointAttribs(src, i, k, names);
        if (dst.hasV && velScale != 1.f) {
            Vec4f& v = dst.v[k];
            v.x *= velScale;
            v.y *= velScale;
            v.z *= velScale;
        }
        ++added;
    }
    if (skipped > 0)
        std::printf("%s: %zu source points with non-finite positions skipped.\n", name().c_str(), skipped);

    if (source->volumes->size() > 0) {
        const GridBasePtr distance = source->volumes->volume("distance");
        std::vector<Vec4f> positions, velocities;
        Vec4f voxel;
        if (!distance ||
            insideVoxels(distance, source->volumes->volume("velocity"), positions, velocities, voxel) < 0) {
            std::printf("volume doesn't have sdf.\n");
            return added;
        }
        const Vec4f color(0.5f, 0.5f, 0.5f, 0.f);
        for (size_t j = 0; j < positions.size(); ++j)
            for (int32_t s = 0; s < oversample; ++s) {
                const Vec4f p =
                    positions[j] + Vec4f(dynamicnodes::rand01() * voxel.x, dynamicnodes::rand01() * voxel.y,
                                         dynamicnodes::rand01() * voxel.z, 0.f);
                const size_t k = size_t(dst.addPoint(p));
                if (dst.hasCd) dst.Cd[k] = color;
                if (dst.hasV) dst.v[k] = velocities[j];
                ++added;
            }
    }
    return added;
}
