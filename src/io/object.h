// Object: the classic geometry object (type code 9). It holds geometry loaded from a
// file as mesh parts for the classic sources, forces and colliders: OBJ once, SD per
// frame (a rigid pose or deforming vertices, blended between frames), with the pose
// as translation, rotation in degrees and scale. Sits beside the other classic objects
// in Simulation; its parameter rows are added by its owners, and colliders and volume
// sources keep one signed distance grid per mesh part here (built in particles/).
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "app/sceneobject.h"
#include "geo/vec.h"
#include "geo/volumedata.h"
#include "io/objectmesh.h"
#include "io/sdformat.h"

// The distance grids of one mesh part and the settings they were built with. The
// velocity and uvw grids share the SDF's voxels; they exist only where the mesh has
// vertex velocities or texture coordinates.
struct ObjectPartSdf {
    GridBasePtr sdfGrid;       // float level set, in the part's local space
    GridBasePtr velocityGrid;  // Vec3f, local units per second
    GridBasePtr uvwGrid;       // Vec3f
    bool valid = false;
    bool hasVelocity = false;
    float voxelSize = -1.f;
    float band = -1.f;
    float pushOut = 0.f;
    bool invert = false;
    uint64_t stamp = 0;        // geometryStamp the grids were built from
};

class Object : public SceneObject {
public:
    Object();

    Vec4f translate;                         // from a rigid SD file
    Vec4f rotate;                            // degrees about x, y, z
    Vec4f scale{1.f, 1.f, 1.f, 0.f};
    std::vector<std::shared_ptr<ObjectMesh>> meshes;
    std::string filePath;                    // the file the meshes came from
    float readScale = 1.f;                   // uniform scale baked into vertices at load
    // Counts loads that replaced the mesh data (not the rigid pose): a distance grid built
    // at another stamp is stale.
    uint64_t geometryStamp = 0;
    // One entry per mesh part, kept in step with `meshes` by whoever builds the grids.
    std::vector<ObjectPartSdf> partSdfs;

    // SD state, kept between frames of one file.
    uint8_t sdHeader[fileio::kSdHeaderSize] = {};
    int32_t sdFirstFrame = 0;
    int32_t sdLastFrame = 0;
    int32_t sdFrameSize = 0;
    uint64_t sdFramesOffset = 0;
    bool sdIsDeforming = false;
    bool sdBaseLoaded = false;
    uint8_t sdHasExtra = 0;
    uint8_t sdAxis = 0;

    // Loads `path` (tokens already resolved) by its extension: "obj" once, "sd" at
    // `frame`. Up to 50 attempts 1 ms apart; "update geometry ok." on success. PRT and
    // Alembic are not part of this build and fail at once. 0 or -1. The caller holds
    // the classic data lock.
    int loadGeometry(const std::string& path, float frame);
    // One OBJ file into one mesh part with an identity pose, scaled by readScale. 0 or -1.
    int loadObj(const std::string& path);
    // The SD file at `frame`: the base part once per file, the record of the whole
    // frame, then the next record blended in by the fraction. 0 or -1.
    int loadSDAtFrame(const std::string& path, float frame);

    // The pose from translate, rotate and scale: scale, then rotation about x, y, z,
    // then translation, row-vector convention (p' = p * M), row-major.
    void buildPose(double out[16]) const;

private:
    int readSdRecord(FILE* file, uint64_t fileSize, int frame, bool blend, float t);
    fileio::SdBase sdBase_;  // header fields of the loaded SD file; its mesh lives in meshes[0]
};
