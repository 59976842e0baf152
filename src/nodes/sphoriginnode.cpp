// SPH-Origin: creates the dynamic Body on its first cook (seeded with the points of an
// optional input), then advances it once per new cook time while the run flag is on.
// At the time it last cooked, or with the run flag off, it hands out what it holds.
#include "nodes/sphoriginnode.h"

#include "graph/nodemaster.h"

SPHOriginNode::SPHOriginNode(NodeMaster* master) : GeoNode(master)
{
    setType("SPH-Origin");
    addParam(&forceScale, "forceScale", "Force Scale", kParamFloat, "1");
    addInput("Initial-Points");
    addOutput("Output");
    dynamic = true;
    dynamicUpstream = true;
}

BodyPtr SPHOriginNode::makeBody(const Body* seed)
{
    auto body = std::make_shared<Body>();
    if (seed) body->points->assignPoints(*seed->points);
    PointData& pts = *body->points;
    pts.addAttrib("v", ATTRIB_VELOCITY);
    pts.addAttrib("Cd", ATTRIB_COLOR);
    pts.addAttrib("age", ATTRIB_FLOAT);
    body->isDynamic = true;
    return body;
}

void SPHOriginNode::advance(Body& body, float dt, float scale)
{
    PointData& pts = *body.points;
    const size_t n = pts.size();
    if (!pts.hasV || pts.v.size() != n) return;
    const VecArray* force =
        pts.attribType("force") == ATTRIB_VECTOR ? pts.attribAs<VecArray>("force") : nullptr;
    if (force && force->size() != n) force = nullptr;
    FloatArray* age = pts.attribType("age") == ATTRIB_FLOAT ? pts.attribAs<FloatArray>("age") : nullptr;
    if (age && age->size() != n) age = nullptr;
    const float k = dt * scale / kForceMass;
    for (size_t i = 0; i < n; ++i) {
        Vec4f& v = pts.v[i];
        if (force) v += (*force)[i] * k;
        Vec4f& p = pts.P[i];
        p.x += v.x * dt;
        p.y += v.y * dt;
        p.z += v.z * dt;
        if (age) (*age)[i] += dt;
    }
}

void SPHOriginNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock = beginProcess(c);
    if (!storedBody) {
        BodyPtr seed;
        fetchInput(seed, 0);
        finishProcess(result, c, makeBody(seed.get()), false);
        return;
    }
    if (caller.time != storedTime && isRunFlagOn()) advance(*storedBody, context.graphDt, forceScale);
    finishProcess(result, c, storedBody, caller.time == storedTime);
}

void SPHOriginNode::checkDirty(DirtyResult& r, const CookCaller& c)
{
    storeCaller(c);
    for (Plug* in : inputs) checkInput(in, c.time);
    checkOwnParameters();
    dynamic = true;
    dynamicUpstream = true;
    reportDirty(r);
}

void SPHOriginNode::reset()
{
    GeoNode::reset();
}
