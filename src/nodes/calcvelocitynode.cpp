// Calc-Velocity. The earlier positions come from the node's memory of its last cook
// ("Memory": only when that cook was exactly one frame before and had as many points), from
// the input cooked one frame earlier ("Timeshift"), or from the memory when it holds the
// frame before and the input otherwise ("Auto"). v = (P - earlier P) * fps * scale, zero
// where there is nothing to compare with and at the scene's start frame. With
// `fromLine`, v follows the lines instead; points on no line keep their v.
#include "nodes/calcvelocitynode.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "geo/attribtypes.h"
#include "graph/nodemaster.h"

#include <cstdio>

CalcVelocityNode::CalcVelocityNode(NodeMaster* master) : GeoNode(master)
{
    setType("Calc-Velocity");
    addParam(&scale, "scale", "Scale Velocity", kParamFloat, "1.0", "Scale the output.");
    addEnum(&mode, "mode", "Mode", {"Auto", "Memory", "Timeshift"}, "Auto");
    addParam(&fromLine, "fromLine", "From Line Connectivity", kParamBool, "false",
             "Toggle this on to set the velocity of points to follow the line's shape.");
    addInput("Geo-Input");
    addOutput("Geo-Output");
}

void CalcVelocityNode::reset()
{
    GeoNode::reset();
    std::lock_guard<std::mutex> lock(nodeMutex);
    storedP_.clear();
    storedFrame_ = -1000.f;
}

void CalcVelocityNode::velocityFromLines(Body& body, float factor) const
{
    PointData& pts = *body.points;
    const VertexData& vd = *body.vertices;
    const size_t n = pts.size();
    for (size_t prim = 0; prim < body.prims->size() && prim < vd.indices.size(); ++prim) {
        if (body.prims->kinds[prim] != PrimData::LINE) continue;
        const std::vector<uint32_t>& line = vd.indices[prim];
        if (line.size() < 2) continue;
        for (size_t k = 0; k < line.size(); ++k) {
            const size_t a = k + 1 < line.size() ? k : k - 1;
            const uint32_t from = line[a], to = line[a + 1], at = line[k];
            if (from >= n || to >= n || at >= n) continue;
            const Vec4f d = pts.P[to] - pts.P[from];
            pts.v[at] = Vec4f(d.x * factor, d.y * factor, d.z * factor, pts.v[at].w);
        }
    }
}

void CalcVelocityNode::velocityFromPositions(PointData& pts, const VecArray* earlier, float factor)
{
    const size_t n = pts.size();
    const bool compare = earlier && earlier->size() == n;
    for (size_t i = 0; i < n; ++i) {
        const float w = pts.v[i].w;
        if (!compare) {
            pts.v[i] = Vec4f(0.f, 0.f, 0.f, w);
            continue;
        }
        const Vec4f d = pts.P[i] - (*earlier)[i];
        pts.v[i] = Vec4f(d.x * factor, d.y * factor, d.z * factor, w);
    }
}

void CalcVelocityNode::cookBody(BodyPtr& body)
{
    PointData& pts = *body->points;
    if (pts.addAttrib("v", ATTRIB_VELOCITY) < 0 || !pts.hasV || pts.v.size() != pts.size()) {
        std::printf("issue adding v attribute.\n");
        return;
    }
    const float fps = nodeMaster ? nodeMaster->fps() : 24.f;
    const float factor = fps * scale;
    const float frame = caller.time;

    if (fromLine) {
        velocityFromLines(*body, factor);
    } else {
        const float start = simState ? float(simState->startFrame) : 0.f;
        const bool memoryHasPrevious = storedFrame_ == frame - 1.f && storedP_.size() == pts.size();
        BodyPtr earlierBody;
        const VecArray* earlier = nullptr;
        const bool useMemory = mode == MEMORY || (mode == AUTO && memoryHasPrevious);
        if (frame <= start) {
            // no history at the start: v is zero
        } else if (useMemory) {
            if (memoryHasPrevious) earlier = &storedP_;
        } else {
            getInput(earlierBody, 0, frame - 1.f, true); // only read: may be the cache's own Body
            if (earlierBody) earlier = &earlierBody->points->P;
        }
        velocityFromPositions(pts, earlier, factor);
    }
    storedP_ = pts.P;
    storedFrame_ = frame;
}
