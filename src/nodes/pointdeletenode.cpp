// Point-Delete. A point goes when the mask row allows it (always, unless `enabled` is a
// per-point formula) and it is listed in `indices` or lies within `proximity` of the mask
// volume's inside (outside with invertVolume). With neither indices nor a volume, a
// per-point `enabled` formula alone picks the points. Points go through removePoint.
#include "nodes/pointdeletenode.h"

#include "geo/gridutil.h"
#include "graph/plug.h"
#include "nodes/geofilternode.h"
#include "params/pointexpression.h"

#include <openvdb/openvdb.h>
#include <openvdb/tools/Interpolation.h>

#include <cstdio>
#include <sstream>
#include <stdexcept>

PointDeleteNode::PointDeleteNode(NodeMaster* master) : GeoNode(master)
{
    setType("Point-Delete");
    addParam(&invertVolume, "invertVolume", "Invert Volume", kParamBool, "false",
             "Invert second input's volume.");
    addParam(&proximity, "proximity", "Proximity", kParamFloat, "0", "Distance to the volume sdf.");
    addParam(&indices, "indices", "Indices to Delete", kParamString, "",
             "The point indices you want to delete.");
    addInput("Input-Points");
    addInput("Mask-Volume", true);
    addOutput("Output");
}

bool PointDeleteNode::deletePoints(const BodyPtr& body, const BodyPtr& mask, bool perPointEnabled)
{
    PointData& pts = *body->points;
    const size_t n = pts.size();

    // indices: blanks or commas between decimal numbers
    std::vector<char> listed(n, 0);
    bool haveIndices = false;
    std::string text = indices;
    for (char& ch : text)
        if (ch == ',' || ch == ';') ch = ' ';
    std::istringstream words(text);
    std::string word;
    while (words >> word) {
        long long index = 0;
        try {
            index = std::stoi(word);
        } catch (const std::invalid_argument&) {
            std::printf("invalid stoi argument\n");
            setError("invalid stoi argument");
            return false;
        } catch (const std::out_of_range&) {
            std::printf("stoi argument out of range\n");
            setError("stoi argument out of range");
            return false;
        }
        haveIndices = true;
        if (index >= 0 && static_cast<unsigned long long>(index) < n) listed[size_t(index)] = 1;
    }

    // mask volume: the SDF sampled at each point
    std::vector<char> inVolume;
    if (mask) {
        GridBasePtr base = findGrid(*mask->volumes, {"distance", "surface"});
        auto sdf = base ? openvdb::GridBase::grid<openvdb::FloatGrid>(base) : nullptr;
        if (sdf) {
            inVolume.assign(n, 0);
            openvdb::tools::GridSampler<openvdb::FloatGrid, openvdb::tools::BoxSampler> sampler(*sdf);
            for (size_t i = 0; i < n; ++i) {
                const Vec4f& p = pts.P[i];
                const float d = sampler.wsSample(openvdb::Vec3R(p.x, p.y, p.z));
                const bool inside = d <= proximity;
                inVolume[i] = inside != invertVolume;
            }
        } else if (mask->volumes->size() > 0) {
            std::printf("mask volume doesn't have sdf.\n");
        }
    }

    std::vector<float> allowed;
    if (perPointEnabled) {
        Parameter* row = params.get("enabled");
        row->setPointExpression(body);
        allowed.resize(n);
        for (size_t i = 0; i < n; ++i) allowed[i] = row->pointExpression->value(i);
    }

    const bool byCriteria = haveIndices || !inVolume.empty();
    if (!byCriteria && !perPointEnabled) return true;

    pts.addAttrib("__internal", ATTRIB_BOOL);
    BitArray& mark = *pts.attribAs<BitArray>("__internal");
    size_t marked = 0;
    for (size_t i = 0; i < n; ++i) {
        const bool maskOn = !perPointEnabled || allowed[i] != 0.f;
        const bool chosen = byCriteria ? (listed[i] || (!inVolume.empty() && inVolume[i])) : true;
        mark.set(i, maskOn && chosen);
        marked += maskOn && chosen;
    }

    if (marked > 0) {
        // from the back, so that the point moved into a freed slot is always one already looked at
        std::vector<int64_t> where(n);
        std::vector<size_t> at(n);
        for (size_t i = 0; i < n; ++i) where[i] = int64_t(at[i] = i);
        for (size_t i = n; i-- > 0;) {
            if (!mark.get(i)) continue;
            const size_t last = pts.size() - 1;
            where[at[i]] = -1;
            if (last != i) {
                at[i] = at[last];
                where[at[i]] = int64_t(i);
            }
            pts.removePoint(i);
        }
        remapPointIndices(*body, where);
    }
    pts.removeAttrib("__internal");
    return true;
}

void PointDeleteNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    std::vector<BodyPtr> in = fetchInputs({0, 1});
    BodyPtr body = in[0];
    const Parameter* row = params.get("enabled");
    const bool perPoint = row && row->isPerPoint;
    clearError();
    if (body && (enabled || perPoint)) {
        if (!deletePoints(body, in[1], perPoint)) body = std::make_shared<Body>();
    }
    finishProcess(result, c, std::move(body), false);
}
