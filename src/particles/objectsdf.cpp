// The prepare step over an object's parts: the stale test against the cached settings
// and stamp, the build through buildMeshSdf, and the "not available" message for an
// object that has no geometry yet.
#include "particles/objectsdf.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace {

bool sameSettings(const ObjectPartSdf& part, const SdfBuildSettings& s, float band, uint64_t stamp)
{
    return part.voxelSize == s.voxelSize && part.band == band && part.pushOut == s.pushOut &&
           part.invert == s.invert && part.stamp == stamp;
}

} // namespace

int prepareObjectSdf(Object& object, const SdfBuildSettings& settings, bool force, bool refreshAnimated)
{
    object.partSdfs.resize(object.meshes.size());
    if (object.meshes.empty()) {
        std::printf("Mesh geo is not available yet...\n");
        return 0;
    }
    const float band = std::isfinite(settings.band) ? std::max(settings.band, 1.f) : 1.f;
    int valid = 0;
    for (size_t i = 0; i < object.meshes.size(); ++i) {
        ObjectPartSdf& part = object.partSdfs[i];
        const ObjectMesh* mesh = object.meshes[i].get();
        const bool animated = refreshAnimated && mesh && mesh->isDeforming;
        if (force || animated || !sameSettings(part, settings, band, object.geometryStamp)) {
            part.valid = false;
            if (!mesh || mesh->vertices.empty()) {
                std::printf("Mesh geo is not available yet...\n");
            } else {
                SdfBuildSettings s = settings;
                s.band = band;
                part.valid = buildMeshSdf(*mesh, s, part) == 0;
            }
            part.voxelSize = settings.voxelSize;
            part.band = band;
            part.pushOut = settings.pushOut;
            part.invert = settings.invert;
            part.stamp = object.geometryStamp;
        }
        if (part.valid) ++valid;
    }
    return valid;
}
