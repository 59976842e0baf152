#include "nodes/meshernode.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "graph/plug.h"
#include "io/fileio.h"
#include "nodes/levelsetops.h"
#include "nodes/writenode.h"
#include "params/paths.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

MesherNode::MesherNode(NodeMaster* master) : GeoNode(master)
{
    setType("Mesher");
    addParam(&readFilePath, "readFilePath", "Input File Sequence Path", kParamPath, "",
             "Enter the filepath of the geometry to read. Please specify sequenced files with sharps as in the "
             "following form: /caches/granular.####.abc). You can also refer to a running classic particle "
             "system by entering its name.");
    addParam(&writeFilePath, "writeFilePath", "Output Alembic File Path", kParamPath, "",
             "File path for the single, stitched abc file to be created.");
    addParam(&voxelSize, "voxelSize", "Voxel Size", kParamFloat, "0.05",
             "Use a smaller voxelsize to get a higher resolution mesh.");
    addParam(&blending, "blending", "Blending", kParamFloat, "0.1",
             "Additional worlds space distance between particles that still get connected. Keep this on a low "
             "value to speed up the meshing.");
    addParam(&postSmooth, "postSmooth", "Smoothing", kParamFloat, "0.3", "Smoothes the output. Range is 0.0 to 1.0.");
    addParam(&adaptivity, "adaptivity", "Adaptivity", kParamFloat, "0.05", "Reduces mesh-complexity.");
    addParam(&showRadControls, "showRadControls", "Radius Control Mode", kParamBool, "false",
             "Expose and operate the mesher via radius and surface controls.");
    Parameter* radiusRows[] = {
        addParam(&radius, "radius", "Radius", kParamFloat, "0.1",
                 "The mesher particle radius. Needs to be about at least twice the voxelsize."),
        addParam(&blendSmooth, "blendSmooth", "Blending Smoothing", kParamFloat, "0.5",
                 "Smoothes the intermediate output. Range is 0.0 to 1.0."),
    };
    for (Parameter* row : radiusRows) {
        row->visibleIfBool = &showRadControls;
        row->visibleBoolValue = true;
    }
    addParam(&isoValue, "isoValue", "Iso Value", kParamFloat, "0", "At what distance to create the surface in the volume.");
    addParam(&calcNormals, "calcNormals", "Calc Normals", kParamBool, "false", "Toggle to create normals on the mesh.");
    addParam(&attribs, "attribs", "Keep Attributes", kParamString, "v uv", "A list of attributes to transfer to the mesh.");
    addParam(&outputVDB, "outputVDB", "VDB Output", kParamBool, "false",
             "Enable to output a vdb volume instead of a mesh.");
    addParam(&showParticles, "showParticles", "Show Particles", kParamBool, "true",
             "Shows the read particles in the viewport.");
    addParam(&showMesh, "showMesh", "Show Mesh", kParamBool, "true", "Shows the generated surface.");
    addInput("Input");
    addOutput("Output");
}

void MesherNode::reset()
{
    GeoNode::reset();
    stitched.close();
    particles.reset();
    surface.reset();
}

BodyPtr MesherNode::readSource()
{
    if (inputPlug(0) && inputPlug(0)->sourceNode()) {
        BodyPtr body;
        fetchInput(body, 0);
        return body ? body : std::make_shared<Body>();
    }
    if (readFilePath.empty()) return std::make_shared<Body>();
    if (simulation)
        if (BodyPtr snapshot = simulation->systemSnapshot(readFilePath)) {
            fileInfo = readFilePath + ": read " + std::to_string(snapshot->points->size()) + " particles.";
            return snapshot;
        }
    std::string path = readFilePath; // the row resolved its tokens at the cook's frame
    replaceHashes(path, int(std::floor(context.time)));
    auto body = std::make_shared<Body>();
    if (fileio::read(path, body, 1.f, 24.f, false, 1.f) != 0 || !body) {
        fileInfo = path + ": read error.";
        setError(fileInfo);
        return std::make_shared<Body>();
    }
    fileInfo = path + ": read " + std::to_string(body->points->size()) + " particles.";
    return body;
}

int MesherNode::smoothVolume(Body& volume) const
{
    GridBasePtr sdf = findDistanceGrid(*volume.volumes);
    if (!sdf) {
        std::printf("volume doesn't have sdf.\n");
        return -1;
    }
    if (blending > 0.00001f) {
        levelSetOffset(sdf, -blending);
        if (blendSmooth > 0.00001f)
            filterLevelSet(sdf, kFilterType, kFilterWidth, kFilterIterations, blendSmooth);
        levelSetOffset(sdf, blending);
    }
    if (postSmooth > 0.00001f) filterLevelSet(sdf, kFilterType, kFilterWidth, kFilterIterations, postSmooth);
    return 0;
}

int MesherNode::buildVolume(Body& out, Body& points, float& iso) const
{
    const float base = 1.f; // half band, in voxels, that every level set keeps
    if (showRadControls) {
        const float band = blending / voxelSize * 0.8f + base + std::fabs(isoValue) / voxelSize * 0.8f;
        pointsToVolume(out, points, voxelSize, radius, int(std::ceil(band)), false, false, "", attribs);
        iso = isoValue;
        return smoothVolume(out);
    }
    // Particles made larger than the voxel step, the surface taken back inside them.
    const float d = 2.f * voxelSize;
    const float r = d + blending * d;
    iso = isoValue - 0.75f * r;
    const float band = std::max(base, std::fabs(iso) / voxelSize * 0.8f + base);
    pointsToVolume(out, points, voxelSize, r, int(std::ceil(band)), false, false, "", attribs);
    GridBasePtr sdf = findDistanceGrid(*out.volumes);
    if (!sdf) return -1;
    return filterLevelSet(sdf, kFilterType, kFilterWidth, kFilterIterations, postSmooth);
}

void MesherNode::writeStage(const BodyPtr& body)
{
    if (writeFilePath.empty()) return;
    const std::string ext = outputVDB ? ".vdb" : ".abc";
    const std::string text = params.get("writeFilePath")->text;
    const bool hasToken = text.find("##") != std::string::npos || text.find("$F") != std::string::npos;
    std::string path = writeFilePath;
    const int frame = int(std::floor(context.time));
    const bool isSubframe = context.time - std::floor(context.time) > 0.0001f;
    bool stitch = !hasToken && fileio::extensionOf(path) != "obj";
    if (path.find('.') == std::string::npos) {
        path += "/" + name() + ext;
        stitch = true;
    }
    if (outputVDB && stitch) {
        // a volume can't be stitched: one file per frame, numbered before the extension
        const size_t dot = path.rfind('.');
        path.insert(dot, ".####");
        stitch = false;
    }
    if (!stitch) {
        replaceHashes(path, frame);
        if (!isSubframe) writeFrameFile(name(), path, body, context.time);
        return;
    }
    if (fileio::extensionOf(path) != "abc" || !simState || simState->paused) return;
    const SimState& s = *simState;
    if (s.frame == s.startFrame && context.time == float(s.startFrame)) stitched.close();
    if (!stitched.isOpen()) {
        std::printf("%s: making writer...\n", name().c_str());
        std::string why;
        if (!stitched.open(path, s.fps, 1.f / s.fps, s.frame, body->prims->size() > 0, why)) {
            setError("error creating alembic output file.");
            std::printf("%s: error creating alembic output file.\n", name().c_str());
            return;
        }
    }
    if (!isSubframe) stitched.write(*body);
    if (s.frame == s.endFrame) {
        std::printf("%s: finalizing alembic... frame: %f... ", name().c_str(), double(s.frameF));
        stitched.close();
        std::printf("done!\n");
    }
}

void MesherNode::process(BodyPtr& result, const CookCaller& c)
{
    std::unique_lock<std::mutex> lock;
    if (prologue(result, c, lock)) return;
    clearError();
    if (!enabled) {
        BodyPtr body;
        if (inputPlug(0) && inputPlug(0)->sourceNode()) fetchInput(body, 0);
        finishProcess(result, c, body ? body : std::make_shared<Body>(), false);
        return;
    }
    BodyPtr input = readSource();
    particles = showParticles ? input : nullptr;
    if (input->points->size() == 0 || !showMesh) {
        if (input->points->size() == 0) writeStage(input);
        surface.reset();
        finishProcess(result, c, input, false);
        return;
    }

    auto volume = std::make_shared<Body>();
    float iso = 0.f;
    buildVolume(*volume, *input, iso);
    BodyPtr out = volume;
    if (!outputVDB) {
        out = std::make_shared<Body>();
        volumeToMeshBody(*volume, *out, iso, adaptivity, attribs);
        if (calcNormals) out->computeNormals(false);
    } else if (GridBasePtr sdf = findDistanceGrid(*volume->volumes)) {
        levelSetOffset(sdf, -iso); // the zero level where the mesh would be
    }
    out->updateCounts();
    writeStage(out);
    surface = out;
    finishProcess(result, c, out, false);
}
