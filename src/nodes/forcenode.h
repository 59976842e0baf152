// Force: adds a directional force, fractal or curl noise and the force of a vector volume
// to the velocities of a dynamic Body: of its points, or of its "velocity" grid when the
// Body holds volumes. Optionally as wind, masked by a volume, or along the point normals.
#pragma once

#include "graph/geonode.h"

#include <vector>

class FractalNoise;

class ForceNode : public GeoNode {
public:
    explicit ForceNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;

    // The force at the world positions, before the wind and normal rules: (turbStrength *
    // noise + strength * direction + volStrength * vector volume) * mask weight; w is 1
    // where the force acts and 0 where the mask or a bad position leaves the point alone.
    void forcesAt(const std::vector<Vec4f>& positions, const BodyPtr& vectorVolume, const BodyPtr& maskVolume,
                  std::vector<Vec4f>& forces) const;
    void pointPass(Body& body, const BodyPtr& vectorVolume, const BodyPtr& maskVolume) const;
    void gridPass(Body& body, const BodyPtr& vectorVolume, const BodyPtr& maskVolume);
    Vec4f noiseAt(const FractalNoise& noise, const Vec4f& p) const;

    float directionX = 0.f, directionY = 0.f, directionZ = 0.f;
    float strength = 0.f;
    float volStrength = 1.f;
    bool volAdvect = false;
    int32_t noiseType = 0; // "Regular", "Curl"
    float noiseFreq = 1.f;
    float noiseRoughness = 0.4f;
    int32_t noiseOctaves = 2;
    float noisePhase = 0.f;
    float turbStrength = 0.f;
    bool isWind = false;
    float windSpeedBlend = 0.05f;
    bool normalDependent = false;
};
