// Noise: three decorrelated fractal noise samples make an offset vector field; the curl
// kind takes that field's curl by central differences. Frequency and phase act in noise
// space, so the curl's strength doesn't depend on the frequency.
#include "nodes/noisenode.h"

#include "params/pointexpression.h"
#include "particles/fractalnoise.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <cmath>
#include <cstdio>

namespace {

// Offsets in noise space that make the three components independent of each other.
const Vec4f kAxisOffset[3] = {Vec4f(0.f, 0.f, 0.f), Vec4f(31.416f, 47.853f, 12.793f),
                              Vec4f(-58.271f, 19.411f, 73.049f)};

Vec4f field(const FractalNoise& noise, const Vec4f& q)
{
    return Vec4f(noise.sample(q + kAxisOffset[0]), noise.sample(q + kAxisOffset[1]),
                 noise.sample(q + kAxisOffset[2]));
}

Vec4f curl(const FractalNoise& noise, const Vec4f& q)
{
    const float h = 0.01f;
    const Vec4f dx(h, 0.f, 0.f), dy(0.f, h, 0.f), dz(0.f, 0.f, h);
    const Vec4f fx = (field(noise, q + dx) - field(noise, q - dx)) * (0.5f / h);
    const Vec4f fy = (field(noise, q + dy) - field(noise, q - dy)) * (0.5f / h);
    const Vec4f fz = (field(noise, q + dz) - field(noise, q - dz)) * (0.5f / h);
    return Vec4f(fy.z - fz.y, fz.x - fx.z, fx.y - fy.x);
}

} // namespace

NoiseNode::NoiseNode(NodeMaster* master) : GeoNode(master)
{
    setType("Noise");
    addParam(&noiseType, "noiseType", "Noise Type", kParamNoiseKind, "Regular", "Perlin or a Curl noise.");
    addParam(&noiseAmp, "noiseAmp", "Noise Amp", kParamFloat, "1.0", "The strength of the used noise.");
    addParam(&noiseFreq, "noiseFreq", "Noise Freq", kParamFloat, "1.0");
    addParam(&noiseOctaves, "noiseOctaves", "Noise Octaves", kParamInt, "1");
    addParam(&noiseRoughness, "noiseRoughness", "Noise Roughness", kParamFloat, "0.4");
    addParam(&noisePhase, "noisePhase", "Noise Phase", kParamFloat, "framef * 0.02");
    addParam(&affectPos, "affectPos", "Affect Positions", kParamBool, "true",
             "Offset the positions of the input points.");
    addParam(&affectVel, "affectVel", "Affect Velocity", kParamBool, "false",
             "Create velocities on the points from offset for non-dynamic inputs.");
    addInput("Geo-Input");
    addOutput("Geo-Output");
}

void NoiseNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    BodyPtr body;
    fetchInput(body, 0);
    // A per-point `enabled` row reads false as a whole; the mask decides per point.
    const Parameter* row = params.get("enabled");
    if (body && (enabled || (row && row->isPerPoint))) cookBody(body);
    finishProcess(result, c, std::move(body), false);
}

Vec4f NoiseNode::offsetAt(const FractalNoise& noise, const Vec4f& p) const
{
    const Vec4f q(p.x * noiseFreq + noisePhase, p.y * noiseFreq + noisePhase, p.z * noiseFreq + noisePhase);
    const Vec4f offset = noiseType == 1 ? curl(noise, q) : field(noise, q);
    return Vec4f(offset.x * noiseAmp, offset.y * noiseAmp, offset.z * noiseAmp, 0.f);
}

void NoiseNode::cookBody(BodyPtr& body)
{
    clearError();
    PointData& pd = *body->points;
    const size_t n = pd.size();
    const bool makeVel = affectVel && !body->isDynamic;
    if (n == 0 || (!affectPos && !makeVel)) return;

    const PointExpression* mask = nullptr;
    Parameter* row = params.get("enabled");
    if (row && row->isPerPoint) {
        row->setPointExpression(body);
        if (!row->pointExpression || !row->pointExpression->valid()) {
            setError("the per-point enabled expression doesn't compile");
            std::printf("%s: the per-point enabled expression doesn't compile.\n", name().c_str());
            return;
        }
        mask = row->pointExpression.get();
    }
    if (makeVel && !pd.hasV) pd.addAttrib("v", ATTRIB_VELOCITY);
    const float dt = graphDt();
    const float invDt = dt > 0.f ? 1.f / dt : 0.f;
    const FractalNoise noise(Vec4f(1.f, 1.f, 1.f), noiseOctaves, noiseRoughness);

    tbb::parallel_for(tbb::blocked_range<size_t>(0, n, 1024), [&](const tbb::blocked_range<size_t>& r) {
        for (size_t i = r.begin(); i != r.end(); ++i) {
            if (mask && !(std::fabs(mask->value(i)) > 0.f)) continue;
            const Vec4f offset = offsetAt(noise, pd.P[i]);
            if (makeVel) {
                const float w = pd.v[i].w;
                pd.v[i] = offset * invDt;
                pd.v[i].w = w;
            }
            if (affectPos) pd.P[i] += offset;
        }
    });
}
