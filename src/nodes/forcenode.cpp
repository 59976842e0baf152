// Force: the noise is three fractal samples at position * noiseFreq, shifted by the phase,
// one per component with the offsets 0, (0, 381, 0) and (0, 840.7, 0); the curl kind takes
// the curl of three fields offset from each other by central differences. Grid work goes
// through dynamicgrids and volumeops, so no OpenVDB template code is compiled here.
#include "nodes/forcenode.h"

#include "nodes/dynamicgrids.h"
#include "nodes/levelsetops.h"
#include "nodes/volumeops.h"
#include "particles/fractalnoise.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <cmath>
#include <cstdio>

namespace {

const Vec4f kComponentOffset[3] = {Vec4f(0.f, 0.f, 0.f), Vec4f(0.f, 381.f, 0.f), Vec4f(0.f, 840.7f, 0.f)};
const Vec4f kCurlOffset[3] = {Vec4f(0.f, 0.f, 0.f), Vec4f(31.341f, -43.23f, 12.34f),
                              Vec4f(-231.341f, 124.23f, -54.34f)};

Vec4f curlFields(const FractalNoise& noise, const Vec4f& q)
{
    return Vec4f(noise.sample(q + kCurlOffset[0]), noise.sample(q + kCurlOffset[1]),
                 noise.sample(q + kCurlOffset[2]));
}

bool finite3(const Vec4f& p)
{
    return std::isfinite(p.x) && std::isfinite(p.y) && std::isfinite(p.z);
}

} // namespace

ForceNode::ForceNode(NodeMaster* master) : GeoNode(master)
{
    setType("Force");
    addParam(&directionX, "directionX", "Direction X", kParamFloat, "0", "Direction in X.");
    addParam(&directionY, "directionY", "Direction Y", kParamFloat, "0", "Direction in Y.");
    addParam(&directionZ, "directionZ", "Direction Z", kParamFloat, "0", "Direction in Z.");
    addParam(&strength, "strength", "Direction Strength", kParamFloat, "0");
    addParam(&volStrength, "volStrength", "By Vector Volume Strength", kParamFloat, "1");
    addParam(&volAdvect, "volAdvect", "Volume Advect", kParamBool, "false");
    addParam(&noiseType, "noiseType", "Noise Type", kParamNoiseKind, "Regular", "Perlin or a Curl noise.");
    addParam(&noiseFreq, "noiseFreq", "Noise Freq", kParamFloat, "1");
    addParam(&noiseRoughness, "noiseRoughness", "Noise Roughness", kParamFloat, "0.4");
    addParam(&noiseOctaves, "noiseOctaves", "Noise Octaves", kParamInt, "2");
    addParam(&noisePhase, "noisePhase", "Noise Phase", kParamFloat, "0");
    addParam(&turbStrength, "turbStrength", "Noise Strength", kParamFloat, "0");
    addParam(&isWind, "isWind", "Force is Wind", kParamBool, "false",
             "Enable wind mode where particles will not go faster than strength.");
    addParam(&windSpeedBlend, "windSpeedBlend", "Wind Air Thickness", kParamFloat, "0.05",
             "How thick the air is or how much the wind speed is blended into the particles velocity.");
    addParam(&normalDependent, "normalDependent", "Surface Normal Dependent", kParamBool, "false",
             "Most effect when force points straight onto the surface.");
    addInput("Dynamic-Input", true);
    addInput("Vector-Volume", true);
    addInput("Mask-Volume", true);
    addOutput("Dynamic-Output");
}

void ForceNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    std::vector<BodyPtr> in = fetchInputs({0, 1, 2});
    BodyPtr body = in[0];
    if (body && enabled) {
        if (body->volumes->size() > 0) {
            gridPass(*body, in[1], in[2]);
        } else if (body->points->size() > 0) {
            pointPass(*body, in[1], in[2]);
        }
    }
    finishProcess(result, c, std::move(body), false);
}

Vec4f ForceNode::noiseAt(const FractalNoise& noise, const Vec4f& p) const
{
    const Vec4f q(p.x * noiseFreq + noisePhase, p.y * noiseFreq + noisePhase, p.z * noiseFreq + noisePhase,
                  0.f);
    if (noiseType == 1) {
        const float h = 0.01f;
        const Vec4f dx(h, 0.f, 0.f), dy(0.f, h, 0.f), dz(0.f, 0.f, h);
        const Vec4f fx = (curlFields(noise, q + dx) - curlFields(noise, q - dx)) * (0.5f / h);
        const Vec4f fy = (curlFields(noise, q + dy) - curlFields(noise, q - dy)) * (0.5f / h);
        const Vec4f fz = (curlFields(noise, q + dz) - curlFields(noise, q - dz)) * (0.5f / h);
        return Vec4f(fy.z - fz.y, fz.x - fx.z, fx.y - fy.x, 0.f);
    }
    return Vec4f(noise.sample(q + kComponentOffset[0]), noise.sample(q + kComponentOffset[1]),
                 noise.sample(q + kComponentOffset[2]), 0.f);
}

void ForceNode::forcesAt(const std::vector<Vec4f>& positions, const BodyPtr& vectorVolume,
                         const BodyPtr& maskVolume, std::vector<Vec4f>& forces) const
{
    const size_t n = positions.size();
    forces.assign(n, Vec4f(0.f, 0.f, 0.f, 0.f));
    // Mask weights: 0 outside a distance grid's surface, times a density's value.
    std::vector<float> weight(n, 1.f);
    if (maskVolume && maskVolume->volumes->size() > 0) {
        std::vector<Vec4f> samples;
        if (GridBasePtr sdf = findDistanceGrid(*maskVolume->volumes)) {
            if (sampleGrid(sdf, positions, samples) == 1)
                for (size_t i = 0; i < n; ++i)
                    if (samples[i].x > 0.f) weight[i] = 0.f;
        } else if (GridBasePtr density = findGridKind(*maskVolume->volumes, GridKind::Density)) {
            if (sampleGrid(density, positions, samples) == 1)
                for (size_t i = 0; i < n; ++i) weight[i] *= samples[i].x;
        }
    }
    std::vector<Vec4f> vectors;
    if (vectorVolume && volStrength != 0.f) {
        const GridBasePtr grid = vectorVolume->volumes->volume("velocity");
        if (grid && sampleGrid(grid, positions, vectors) != 3) vectors.clear();
    }
    const Vec4f direction = Vec4f(directionX, directionY, directionZ, 0.f) * strength;
    const bool withNoise = turbStrength > 0.00001f;
    const FractalNoise noise(Vec4f(1.f, 1.f, 1.f), noiseOctaves, noiseRoughness);
    tbb::parallel_for(tbb::blocked_range<size_t>(0, n, 512), [&](const tbb::blocked_range<size_t>& r) {
        for (size_t i = r.begin(); i != r.end(); ++i) {
            if (weight[i] == 0.f || !finite3(positions[i])) continue;
            Vec4f f = direction;
            if (withNoise) f += noiseAt(noise, positions[i]) * turbStrength;
            if (!vectors.empty()) f += vectors[i] * volStrength;
            f = f * weight[i];
            f.w = 1.f; // marks a position the force acts on
            forces[i] = f;
        }
    });
}

void ForceNode::pointPass(Body& body, const BodyPtr& vectorVolume, const BodyPtr& maskVolume) const
{
    PointData& pd = *body.points;
    if (!pd.hasV) pd.addAttrib("v", ATTRIB_VELOCITY);
    std::vector<Vec4f> forces;
    forcesAt(pd.P, vectorVolume, maskVolume, forces);
    const float dt = graphDt();
    const bool alongNormals = normalDependent && pd.hasN && pd.N.size() == pd.size();
    const float b = windSpeedBlend * dt * 24.f;
    size_t skipped = 0;
    for (const Vec4f& p : pd.P)
        if (!finite3(p)) ++skipped;
    if (skipped > 0)
        std::printf("%s: %zu points with non-finite positions skipped.\n", name().c_str(), skipped);
    for (size_t i = 0; i < pd.size(); ++i) {
        Vec4f f = forces[i];
        if (f.w == 0.f) continue; // masked out
        f.w = 0.f;
        if (alongNormals) f = pd.N[i] * f.dot3(pd.N[i]);
        Vec4f& v = pd.v[i];
        const float w = v.w;
        v = isWind ? v * (1.f - b) + f * b : v + f * dt;
        v.w = w;
    }
}

void ForceNode::gridPass(Body& body, const BodyPtr& vectorVolume, const BodyPtr& maskVolume)
{
    const GridBasePtr velocity = body.volumes->volume("velocity");
    if (!velocity) return;
    std::vector<Vec4f> positions, values, forces;
    if (readActiveVectors(velocity, positions, values) < 0) {
        std::printf("%s: the grid \"velocity\" isn't a vector grid.\n", name().c_str());
        return;
    }
    forcesAt(positions, vectorVolume, maskVolume, forces);
    const float dt = graphDt();
    for (size_t i = 0; i < values.size(); ++i) {
        if (forces[i].w == 0.f) continue;
        Vec4f f = forces[i];
        f.w = 0.f;
        Vec4f& u = values[i];
        if (!isWind) {
            u += f * dt;
        } else if (noiseType == 1) {
            u = u * (1.f - windSpeedBlend) + f * windSpeedBlend;
        } else {
            // the wind only acts while the air is slower than the wind along its direction
            const float len = f.length3();
            if (len > 0.f && len > f.dot3(u) / len) u = u * (1.f - windSpeedBlend) + f * windSpeedBlend;
        }
        u.w = 0.f;
    }
    writeActiveVectors(velocity, values);
    if (volAdvect && vectorVolume) {
        const GridBasePtr mover = vectorVolume->volumes->volume("velocity");
        if (!mover || advectGrids(*body.volumes, mover, dt, {"density", "temperature", "heat", "fuel"}) < 0)
            std::printf("%s: the vector volume has no vector grid \"velocity\"; nothing advected.\n",
                        name().c_str());
    }
}
