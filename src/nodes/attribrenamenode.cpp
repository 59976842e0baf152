#include "nodes/attribrenamenode.h"

#include "geo/attribtypes.h"

#include <cstdio>
#include <type_traits>

AttribRenameNode::AttribRenameNode(NodeMaster* master) : GeoNode(master)
{
    setType("Attrib-Rename");
    addParam(&attribName, "attribName", "Name", kParamString, "", "The name of the attribute.");
    addParam(&attribNewName, "attribNewName", "New Name", kParamString, "", "The new name of the attribute.");
    addInput("Input");
    addOutput("Output");
}

void AttribRenameNode::cookBody(BodyPtr& body)
{
    if (attribName.empty() || attribNewName.empty() || attribName == attribNewName) return;
    VolumeData& volumes = *body->volumes;
    if (GridBasePtr grid = volumes.volume(attribName)) {
        const int type = volumes.volumeType(attribName);
        volumes.removeVolume(attribName);
        volumes.setVolume(attribNewName, type, grid);
    }
    PointData& pts = *body->points;
    const int type = pts.attribType(attribName);
    if (type == ATTRIB_NONE || attribName == "P") return;
    if (pts.hasAttrib(attribNewName)) {
        std::printf("%s: attribute %s exists already.\n", name().c_str(), attribNewName.c_str());
        return;
    }
    // a fixed channel (v, Cd, N) only takes its own type, so the new one takes the storage's
    const int newType = (type >= ATTRIB_POSITION && type <= ATTRIB_NORMAL) ? ATTRIB_VECTOR : type;
    if (pts.addAttrib(attribNewName, newType) != 1) return;
    withPointArray(type, pts.attrib(attribName), [&](auto& from, const auto&) {
        using Array = std::decay_t<decltype(from)>;
        if (auto* to = static_cast<Array*>(pts.attrib(attribNewName))) *to = from;
    });
    pts.removeAttrib(attribName);
}
