// Write: sends the Body at its input to disk and passes it on. Per frame through the
// writing queue (one file per frame, format by extension), or into one stitched
// Alembic file for the whole run; while paused it shows what it wrote instead.
#pragma once

#include "graph/geonode.h"
#include "io/abcinfo.h"
#include "io/stitchedoutput.h"

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
