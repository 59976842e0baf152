// Image input for nodes that read pictures (texture maps): float RGBA rows, top to bottom.
// OpenEXR files and PNG files are read here; every other format goes through a hook that
// the executable may fill (the core library has no image library of its own beyond these).
#pragma once

#include <functional>
#include <string>
#include <vector>

// An image as float RGBA: rows top to bottom, four floats a pixel. 8- and 16-bit files
// come in as 0..1; EXR values stay as stored (they may exceed 1).
struct ImageRgba {
    int width = 0;
    int height = 0;
    std::vector<float> rgba;

    bool valid() const
    {
        return width > 0 && height > 0 && rgba.size() == size_t(width) * size_t(height) * 4;
    }
    // Pixel (x, y), y counted from the top row; no range check.
    const float* pixel(int x, int y) const
    {
        return rgba.data() + (size_t(y) * size_t(width) + size_t(x)) * 4;
    }
};

using ImageReaderHook = std::function<bool(const std::string&, ImageRgba&, std::string&)>;

// Reads `path` by its extension (case-insensitive): ".exr" through OpenEXR, ".png" through
// libpng, anything else through the hook. False with the reason in `error`; `out` is then
// left empty.
bool readImage(const std::string& path, ImageRgba& out, std::string& error);

// Writes `image` as a half-float RGBA OpenEXR file (no compression). False with the reason
// in `error`.
bool writeExr(const std::string& path, const ImageRgba& image, std::string& error);

// The reader for the formats not read here; an empty function removes it.
void setImageReaderHook(ImageReaderHook hook);
