// Write: sends the Body at its input to disk and passes it on. Per frame through the
// writing queue (one file per frame, format by extension), or into one stitched
// Alembic file for the whole run; while paused it shows what it wrote instead.
#pragma once

#include "graph/geonode.h"
#include "io/abcinfo.h"
#include "io/stitchedoutput.h"

// One frame's file: for the extensions obj, vdb, prt, abc and bin, prints "<who>: preparing
// to write frame: <time>" and hands the Body to the writing queue (or writes it here when
// there is no queue). False, and nothing written, for any other extension.
bool writeFrameFile(const std::string& who, const std::string& path, const BodyPtr& body, float time);

class WriteNode : public GeoNode {
public:
    explicit WriteNode(NodeMaster* master);
    void process(BodyPtr& result, const CookCaller& caller) override;
    void reset() override;

    std::string writeFilePath = "$SCENEFOLDER/caches/$SCENENAME/$NODENAME.####.abc";
    bool writeSubframes = false;
    bool stitchedAlembic = false;
    bool readWhenScrubbing = true;
    bool showExtraParams = false;
    bool storePointXform = false;
    std::string storePointXformName = "xform";
    bool removeDataAttribs = true;

    AbcInfo abcInfo;
    bool isStatic = false;
    StitchedOutput stitched; // the open archive, if any

    // Drops every point attribute whose name starts with "data_" (and holds it nowhere else).
    static void removeDataAttributes(Body& body);
    // Adds `name` (type 12): per point the rotation from +X onto `orient`, times `scale`.
    void storePointTransforms(Body& body) const;

private:
    bool readBack(BodyPtr& body, const std::string& path);
    void writeStitched(const Body& body, const std::string& path, bool isSubframe);
};
