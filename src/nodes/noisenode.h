// Noise: offsets points (or gives them velocities) by a fractal noise field, regular or
// curl, animated through its phase. The `enabled` row may be a per-point mask.
#pragma once

#include "geo/vec.h"
#include "graph/geonode.h"

class FractalNoise;

class NoiseNode : public GeoNode {
public:
    explicit NoiseNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void cookBody(BodyPtr& body) override;

    int32_t noiseType = 0; // "Regular", "Curl"
    float noiseAmp = 1.f;
    float noiseFreq = 1.f;
    int32_t noiseOctaves = 1;
    float noiseRoughness = 0.4f;
    float noisePhase = 0.f;
    bool affectPos = true;
    bool affectVel = false;

    // The offset of a point at p with the rows as they stand, amplitude included.
    Vec4f offsetAt(const FractalNoise& noise, const Vec4f& p) const;
};
