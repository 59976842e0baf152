// GeometryLink: how a classic collider or source reaches its geometry object. It
// resolves the first entry of the owner's geometryIds, maps the run's frame to the
// file's frame (offset, playback speed round an anchor), and re-reads the file when the
// path or the read scale changed, or every new frame of an SD animation. A path that
// failed is not tried again until something changes, so a missing file costs one attempt.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

class Object;

class GeometryLink {
public:
    // The geometry object of ids[0], or null when the list is empty or the id is dead or
    // no geometry object.
    static Object* resolve(const std::vector<int32_t>& ids);
    // The file's frame for run frame `frameF`: anchor + (frameF - offset - anchor) * timeScale.
    static float fileFrame(float frameF, float frameOffset, float timeScale, float anchorFrame);

    // Hands path and read scale to `object` and loads it when needed. 0 when the object
    // holds the file's geometry, -1 after a failed load, 1 when no path is set.
    int update(Object& object, const std::string& path, float readScale, float frame);
    // Forget what was loaded, so the next update reads again.
    void reset() { loadedPath_.clear(); failed_ = false; }

private:
    std::string loadedPath_;
    float loadedFrame_ = 0.f;
    bool failed_ = false;
};
