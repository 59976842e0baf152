// GeometryLink: resolving the geometry object's id, the file frame of a run frame, and
// the reload rules (path, read scale, SD frames, no retry after a failed load).
#include "particles/geometrylink.h"

#include "app/globals.h"
#include "app/simulation.h"
#include "io/fileio.h"
#include "io/object.h"

#include <sys/stat.h>

#include <cmath>
#include <cstdio>

Object* GeometryLink::resolve(const std::vector<int32_t>& ids)
{
    if (ids.empty() || !simulation) return nullptr;
    SceneObject* o = simulation->objectById(ids.front());
    return o && o->typeCode == kTypeObject ? static_cast<Object*>(o) : nullptr;
}

float GeometryLink::fileFrame(float frameF, float frameOffset, float timeScale, float anchorFrame)
{
    return anchorFrame + (frameF - frameOffset - anchorFrame) * timeScale;
}

int GeometryLink::update(Object& object, const std::string& path, float readScale, float frame)
{
    if (path.empty()) return 1;
    bool reload = path != loadedPath_;
    if (std::fabs(object.readScale - readScale) >= 1.1920929e-7f) {
        std::printf(" updating reading scaling\n");
        object.readScale = readScale;
        reload = true;
    }
    if (!reload && fileio::extensionOf(path) == "sd" && frame != loadedFrame_) reload = true;
    if (!reload) return failed_ ? -1 : 0;

    loadedPath_ = path;
    loadedFrame_ = frame;
    struct stat st;
    if (stat(path.c_str(), &st) != 0) {
        std::printf("geometry file not found: %s\n", path.c_str());
        failed_ = true;
        return -1;
    }
    failed_ = object.loadGeometry(path, frame) != 0;
    return failed_ ? -1 : 0;
}
