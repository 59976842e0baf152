#include "nodes/writenode.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "app/writingqueue.h"
#include "graph/nodemaster.h"
#include "io/fileio.h"
#include "params/paths.h"
#include "particles/xform.h"

#include <cmath>
#include <cstdio>

WriteNode::WriteNode(NodeMaster* master) : GeoNode(master)
{
    setType("Write");
    addParam(&writeFilePath, "writeFilePath", "File Path", kParamPath, writeFilePath,
             "File path of file to create.");
    addParam(
        &writeSubframes, "writeSubframes", "Write Subframes", kParamBool, "false",
        "Write subframes to disk as well. Note that adaptive substeps should get disabled when using this "
        "feature (use constant amount of substeps). Also turn on \"Run Procedurals on Subframes\" on the "
        "GlobalSettings.");
    addParam(
        &stitchedAlembic, "stitchedAlembic", "Stitched Alembic", kParamBool, "false",
        "For Alembic (.abc) output (particles and meshes). Write all frames of the animation into one "
        "Alembic "
        "file. Please remove hashtags from the path above. Please reset the scene and run the sim from the "
        "first frame to the last frame. The file gets finalized then.");
    addParam(&readWhenScrubbing, "readWhenScrubbing", "Read Back When Scrubbing", kParamBool, "true",
             "Read back caches when moving the timeslider.");
    addParam(&showExtraParams, "showExtraParams", "Show Extra Params", kParamBool, "false",
             "Show additional write parameters.");
    Parameter* extra[3] = {
        addParam(&storePointXform, "storePointXform", "Store Point Transform", kParamBool, "false",
                 "Create and store orientation and scale as per-point transforms. Experimental."),
        addParam(&storePointXformName, "storePointXformName", "Attribute Name", kParamString, "xform",
                 "The name of the new attribute to create. Experimental."),
        addParam(&removeDataAttribs, "removeDataAttribs", "Remove Data Attributes", kParamBool, "true"),
    };
    for (Parameter* row : extra) {
        row->visibleIfBool = &showExtraParams;
        row->visibleBoolValue = true;
    }
    addInput("Input");
    addOutput("Output");
}

bool writeFrameFile(const std::string& who, const std::string& path, const BodyPtr& body, float time)
{
    const std::string ext = fileio::extensionOf(path);
    if (ext != "obj" && ext != "vdb" && ext != "prt" && ext != "abc" && ext != "bin") return false;
    std::printf("%s: preparing to write frame: %f\n", who.c_str(), double(time));
    if (writingQueue) {
        writingQueue->addBody(path, *body);
    } else if (fileio::write(path, body) != 0) {
        std::printf("%s: could not write %s\n", who.c_str(), path.c_str());
    }
    return true;
}

void WriteNode::reset()
{
    GeoNode::reset();
    stitched.close();
}

void WriteNode::removeDataAttributes(Body& body)
{
    std::vector<std::string> doomed;
    for (const std::string& n : body.points->names)
        if (n.rfind("data_") == 0) doomed.push_back(n); // the last "data_" stands at the start
    for (const std::string& n : doomed) body.points->removeAttrib(n);
}

void WriteNode::storePointTransforms(Body& body) const
{
    PointData& pts = *body.points;
    const int orientType = pts.attribType("orient");
    const int scaleType = pts.attribType("scale");
    const bool haveOrient = orientType >= ATTRIB_VECTOR && orientType <= ATTRIB_NORMAL;
    const bool haveScale = scaleType == ATTRIB_FLOAT;
    if (haveOrient) std::printf("%s: found orient attrib.\n", name().c_str());
    if (haveScale) std::printf("%s: found scale attrib.\n", name().c_str());
    if (!haveOrient) return;
    std::printf("%s: creating point xforms...\n", name().c_str());
    const auto* orient = pts.attribAs<VecArray>("orient");
    const auto* scale = haveScale ? pts.attribAs<FloatArray>("scale") : nullptr;
    pts.addAttrib(storePointXformName, ATTRIB_MAT3);
    auto* out = pts.attribAs<Mat3Array>(storePointXformName);
    if (!orient || !out) return;
    for (size_t i = 0; i < pts.size(); ++i) {
        // the shortest rotation from +X onto the orient vector (half a turn about Y when opposite)
        Mat3f m = xform::rotationBetween(Vec4f(1.f, 0.f, 0.f, 0.f), (*orient)[i], Vec4f(0.f, 1.f, 0.f, 0.f));
        const float s = scale ? (*scale)[i] : 1.f;
        for (float& e : m.m) e *= s;
        (*out)[i] = m;
    }
}

bool WriteNode::readBack(BodyPtr& body, const std::string& path)
{
    body = std::make_shared<Body>();
    AbcInfo info;
    const int before = abcInfo.sampleIndex;
    if (fileio::read(path, body, context.time, simState ? simState->fps : 24.f, false, 1.f, &info) < 0) {
        setError("read error.");
        std::printf("%s: read-back issue.\n", name().c_str());
        body = std::make_shared<Body>();
        return false;
    }
    abcInfo = info;
    isStatic = info.isStatic(before);
    return true;
}

void WriteNode::writeStitched(const Body& body, const std::string& path, bool isSubframe)
{
    if (!simState || simState->paused) return;
    const SimState& s = *simState;
    if (s.frame != s.endFrame && body.points->size() > 0) {
        if (context.time == float(s.startFrame) || !stitched.isOpen()) {
            const float perSample = writeSubframes ? graphDt() : 1.f / s.fps;
            std::string why;
            if (!stitched.open(path, s.fps, perSample, s.frame, body.prims->size() > 0, why)) {
                setError("error creating alembic output file.");
                std::printf("%s: error creating alembic output file.\n", name().c_str());
                return;
            }
        }
        if (!isSubframe || writeSubframes) stitched.write(body);
    } else if (s.frame == s.endFrame && stitched.isOpen()) {
        std::printf("%s: finalizing alembic... frame: %f... ", name().c_str(), double(s.frameF));
        stitched.close();
        std::printf("done!\n");
    }
}

void WriteNode::process(BodyPtr& result, const CookCaller& c)
{
    auto lock = beginProcess(c);
    clearError();
    if (useStored()) {
        finishProcess(result, c, storedBody, true);
        return;
    }
    std::string path = writeFilePath; // the row resolved its tokens at the cook's frame
    replaceHashes(path, int(std::floor(c.time)));

    if (simState && simState->paused && readWhenScrubbing) {
        // the solver isn't running: show what was written, never write
        if (hasCache(c.time)) {
            retrieve(result, c);
            return;
        }
        BodyPtr body;
        readBack(body, path);
        finishProcess(result, c, body, false);
        return;
    }

    BodyPtr body;
    fetchInput(body, 0);
    if (!body || !enabled) {
        finishProcess(result, c, body, false);
        return;
    }
    if (removeDataAttribs) removeDataAttributes(*body);
    if (storePointXform) storePointTransforms(*body);
    const bool isSubframe = c.time - std::floor(c.time) > 0.0001f;
    const bool stitch = stitchedAlembic && StitchedOutput::wantsStitching(params.get("writeFilePath")->text);
    if (stitchedAlembic && !stitch) {
        stitchedAlembic = false; // a sequence after all
        params.get("stitchedAlembic")->text = "false";
    }
    if (!stitch) {
        if (!isSubframe || writeSubframes) writeFrameFile(name(), path, body, c.time);
    } else {
        writeStitched(*body, path, isSubframe);
    }
    finishProcess(result, c, body, false);
}
