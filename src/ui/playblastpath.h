// PlayblastPath: where a playblast frame goes. The path comes from the image path row of
// GlobalSettings (a file, or a folder that gets "/out.%04d.png"), else the scene's folder
// with "/images/<scene>/out.%04d.png"; runs of '#' become a zero-padded frame number.
#pragma once

#include <string>

class PlayblastPath {
public:
    // The pattern for the current scene; empty when neither a row nor a scene path gives one.
    static std::string pattern();
    // "#####", "####", "###", "##" (in that order) become "%05d" .. "%02d", then the
    // frame is written into the first printf field.
    static std::string forFrame(const std::string& pattern, int frame);
    // The folder part of a path ("" without a slash).
    static std::string folderOf(const std::string& path);
};
