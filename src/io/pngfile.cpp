// libpng writer for ImageBuffer. libpng reports errors by longjmp, so the file handle and
// the temporary name are cleaned up on both roads out.
#include "io/pngfile.h"

#include <png.h>

#include <cstdio>
#include <unistd.h>

namespace {

void setError(std::string* error, const std::string& text)
{
    if (error) *error = text;
}

} // namespace

int writePng(const std::string& path, const ImageBuffer& image, std::string* error)
{
    if (!image.valid()) {
        setError(error, "image has no pixels");
        return -1;
    }
    const std::string tmp = path + ".tmp" + std::to_string(getpid());
    FILE* file = std::fopen(tmp.c_str(), "wb");
    if (!file) {
        setError(error, "cannot open " + tmp + " for writing");
        return -1;
    }
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png ? png_create_info_struct(png) : nullptr;
    if (!png || !info) {
        png_destroy_write_struct(&png, &info);
        std::fclose(file);
        std::remove(tmp.c_str());
        setError(error, "out of memory");
        return -1;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        std::fclose(file);
        std::remove(tmp.c_str());
        setError(error, "libpng failed to write " + path);
        return -1;
    }
    png_init_io(png, file);
    png_set_compression_level(png, 3); // playblasts favour speed over size
    png_set_IHDR(png, info, png_uint_32(image.width), png_uint_32(image.height), 8, PNG_COLOR_TYPE_RGBA,
                 PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    for (int y = 0; y < image.height; ++y)
        png_write_row(png, image.rgba.data() + size_t(y) * size_t(image.width) * 4);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    const bool flushed = std::fflush(file) == 0;
    const bool closed = std::fclose(file) == 0;
    if (!flushed || !closed || std::rename(tmp.c_str(), path.c_str()) != 0) {
        std::remove(tmp.c_str());
        setError(error, "cannot finish " + path);
        return -1;
    }
    return 0;
}
