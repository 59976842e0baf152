// PNG output for playblast images: 8-bit RGBA rows, written through libpng to a temporary
// file that replaces the final name only once it is complete.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

// An image as the writing queue carries it: rows top to bottom, four bytes a pixel.
struct ImageBuffer {
    int width = 0;
    int height = 0;
    std::vector<uint8_t> rgba;

    bool valid() const
    {
        return width > 0 && height > 0 && rgba.size() == size_t(width) * size_t(height) * 4;
    }
};

// 0 on success; -1 with the reason in `error`.
int writePng(const std::string& path, const ImageBuffer& image, std::string* error = nullptr);
