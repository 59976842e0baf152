// Particle-Emit: adds particles on the surface of an emitter mesh to a dynamic particle
// Body, placed as the classic Mesh source places them, moving off along the face normals.
#pragma once

#include "graph/geonode.h"

class ParticleEmitNode : public GeoNode {
public:
    explicit ParticleEmitNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    // Emits from the polygons of `mesh` into `target` at the fractional frame; the count
    // added, or -1 (with a message) when the mesh has no polygon to emit from.
    int emit(Body& target, const Body& mesh, float frame);

    float resolution = 20.f;
    float velInheritance = 0.8f;
    float jitter = 0.f;
    float speed = 1.f;
    float speedRandom = 0.5f;   // kept and saved; the emission doesn't read it
    bool normalEmission = true; // no row sets it
};
