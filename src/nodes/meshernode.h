// Mesher: the production path from particles to a smoothed surface. It reads a connected
// input, a running classic system by name or a cache sequence, rasterises the particles
// into a level set, closes the gaps between them, smooths, meshes (or keeps the volume)
// and writes an OBJ/VDB sequence or one stitched Alembic file.
#pragma once

#include "graph/geonode.h"
#include "io/stitchedoutput.h"

class MesherNode : public GeoNode {
public:
    explicit MesherNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void reset() override;

    std::string readFilePath;
    std::string writeFilePath;
    float voxelSize = 0.05f;
    float blending = 0.1f;
    float postSmooth = 0.3f;
    float adaptivity = 0.05f;
    bool showRadControls = false;
    float radius = 0.1f;
    float blendSmooth = 0.5f;
    float isoValue = 0.f;
    bool calcNormals = false;
    std::string attribs = "v uv";
    bool outputVDB = false;
    bool showParticles = true;
    bool showMesh = true;

    // Fixed settings: Gauss filter of width 1, one iteration, for both smoothing passes;
    // sequences are read at frame 1, 24 fps, scale 1.
    static constexpr int kFilterType = 0;
    static constexpr int kFilterWidth = 1;
    static constexpr int kFilterIterations = 1;

    std::string fileInfo = "No frame read.";
    StitchedOutput stitched; // the open Alembic archive, if any
    BodyPtr particles;       // what was read, for the viewport
    BodyPtr surface;         // what was made, for the viewport

    // Steps 1-3 of the surface: the level set of `points` into `out` and the iso value
    // the surface sits at. 0, or -1 when there is no distance grid to smooth.
    int buildVolume(Body& out, Body& points, float& iso) const;
    // Grow by `blending`, smooth, shrink back, then the final smoothing pass.
    int smoothVolume(Body& volume) const;

private:
    BodyPtr readSource();
    void writeStage(const BodyPtr& body);
};
