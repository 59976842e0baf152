// Image input and EXR output. OpenEXR through its RGBA interface (any channel layout comes
// in as RGBA, missing channels filled in by the library), PNG through libpng with every
// colour type expanded to 8- or 16-bit RGBA, the rest through the hook. EXR files are
// written as uncompressed half-float RGBA.
#include "io/imagefile.h"

#include <ImfArray.h>
#include <ImfRgbaFile.h>
#include <png.h>

#include <algorithm>
#include <cctype>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <exception>
#include <mutex>
#include <vector>

namespace {

// Larger images are refused rather than allocated (4 floats a pixel: 4 GiB).
constexpr size_t kMaxPixels = size_t(1) << 28;

std::mutex hookMutex;
ImageReaderHook readerHook;

std::string lowerExtension(const std::string& path)
{
    const size_t slash = path.find_last_of("/\\");
    const size_t dot = path.find_last_of('.');
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash)) return std::string();
    std::string ext = path.substr(dot + 1);
    std::transform(ext.begin(), ext.end(), ext.begin(),
                   [](unsigned char c) { return char(std::tolower(c)); });
    return ext;
}

bool sizeAllowed(long long width, long long height)
{
    return width > 0 && height > 0 && size_t(width) * size_t(height) <= kMaxPixels;
}

// ---- OpenEXR ----

bool readExr(const std::string& path, ImageRgba& out, std::string& error)
{
    try {
        Imf::RgbaInputFile file(path.c_str());
        const Imath::Box2i dw = file.dataWindow();
        const long long width = (long long)dw.max.x - dw.min.x + 1;
        const long long height = (long long)dw.max.y - dw.min.y + 1;
        if (!sizeAllowed(width, height)) {
            error = "unsupported image size";
            return false;
        }
        if (!file.isComplete()) {
            error = "the file is incomplete";
            return false;
        }
        Imf::Array2D<Imf::Rgba> pixels(height, width);
        // The frame buffer is addressed by data-window coordinates, which need not start at 0.
        file.setFrameBuffer(&pixels[0][0] - dw.min.x - dw.min.y * width, 1, size_t(width));
        file.readPixels(dw.min.y, dw.max.y);
        out.width = int(width);
        out.height = int(height);
        out.rgba.resize(size_t(width) * size_t(height) * 4);
        float* dst = out.rgba.data();
        for (long long y = 0; y < height; ++y)
            for (long long x = 0; x < width; ++x) {
                const Imf::Rgba& p = pixels[y][x];
                *dst++ = float(p.r);
                *dst++ = float(p.g);
                *dst++ = float(p.b);
                *dst++ = float(p.a);
            }
        return true;
    } catch (const std::exception& e) {
        error = e.what();
        return false;
    }
}

// ---- PNG ----

// What the libpng callbacks share with the reader. libpng leaves by longjmp on an error,
// so the message is kept in a plain buffer and nothing that needs a destructor lives in
// the frames it jumps over.
struct PngReadState {
    char message[256] = {};
};

void pngError(png_structp png, png_const_charp text)
{
    auto* state = static_cast<PngReadState*>(png_get_error_ptr(png));
    if (state) {
        std::strncpy(state->message, text ? text : "libpng error", sizeof(state->message) - 1);
        state->message[sizeof(state->message) - 1] = '\0';
    }
    png_longjmp(png, 1);
}

void pngWarning(png_structp, png_const_charp)
{
    // warnings (unknown chunks, odd profiles) don't keep the image from reading
}

// The libpng part, after the signature check: fills `out` or leaves the message in
// `state`. `rows` and `bytes` belong to the caller so that a longjmp skips no destructor.
bool readPngData(FILE* file, PngReadState& state, ImageRgba& out, std::vector<png_bytep>& rows,
                 std::vector<png_byte>& bytes)
{
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, &state, pngError, pngWarning);
    if (!png) {
        std::strcpy(state.message, "out of memory");
        return false;
    }
    png_infop info = png_create_info_struct(png);
    if (!info) {
        png_destroy_read_struct(&png, nullptr, nullptr);
        std::strcpy(state.message, "out of memory");
        return false;
    }
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_read_struct(&png, &info, nullptr);
        return false;
    }
    png_init_io(png, file);
    png_set_sig_bytes(png, 8);
    png_read_info(png, info);
    const png_uint_32 width = png_get_image_width(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    if (!sizeAllowed(width, height)) {
        png_destroy_read_struct(&png, &info, nullptr);
        std::strcpy(state.message, "unsupported image size");
        return false;
    }
    const int colorType = png_get_color_type(png, info);
    // Palette, grey and transparency chunks all become 8- or 16-bit RGBA.
    png_set_expand(png);
    if (colorType == PNG_COLOR_TYPE_GRAY || colorType == PNG_COLOR_TYPE_GRAY_ALPHA) png_set_gray_to_rgb(png);
    if (!(colorType & PNG_COLOR_MASK_ALPHA) && !png_get_valid(png, info, PNG_INFO_tRNS))
        png_set_add_alpha(png, 0xffff, PNG_FILLER_AFTER);
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    const int depth = png_get_bit_depth(png, info);
    const size_t rowBytes = png_get_rowbytes(png, info);
    const size_t expected = size_t(width) * 4 * (depth == 16 ? 2 : 1);
    if (png_get_channels(png, info) != 4 || (depth != 8 && depth != 16) || rowBytes != expected) {
        png_destroy_read_struct(&png, &info, nullptr);
        std::strcpy(state.message, "unsupported pixel layout");
        return false;
    }
    bytes.resize(rowBytes * height);
    rows.resize(height);
    for (png_uint_32 y = 0; y < height; ++y) rows[y] = bytes.data() + size_t(y) * rowBytes;
    png_read_image(png, rows.data());
    png_read_end(png, nullptr);
    png_destroy_read_struct(&png, &info, nullptr);

    out.width = int(width);
    out.height = int(height);
    out.rgba.resize(size_t(width) * size_t(height) * 4);
    const size_t samples = out.rgba.size();
    if (depth == 8) {
        for (size_t i = 0; i < samples; ++i) out.rgba[i] = float(bytes[i]) / 255.f;
    } else {
        for (size_t i = 0; i < samples; ++i) // 16-bit samples are big-endian in the file's byte order
            out.rgba[i] = float((unsigned(bytes[2 * i]) << 8) | unsigned(bytes[2 * i + 1])) / 65535.f;
    }
    return true;
}

bool readPng(const std::string& path, ImageRgba& out, std::string& error)
{
    FILE* file = std::fopen(path.c_str(), "rb");
    if (!file) {
        error = "cannot open the file";
        return false;
    }
    png_byte signature[8] = {};
    if (std::fread(signature, 1, 8, file) != 8 || png_sig_cmp(signature, 0, 8) != 0) {
        std::fclose(file);
        error = "not a PNG file";
        return false;
    }
    PngReadState state;
    std::vector<png_bytep> rows;
    std::vector<png_byte> bytes;
    const bool ok = readPngData(file, state, out, rows, bytes);
    std::fclose(file);
    if (!ok) {
        error = state.message[0] ? state.message : "libpng failed";
        return false;
    }
    return true;
}

} // namespace

bool readImage(const std::string& path, ImageRgba& out, std::string& error)
{
    out = ImageRgba();
    const std::string ext = lowerExtension(path);
    bool ok = false;
    if (ext == "exr") {
        ok = readExr(path, out, error);
    } else if (ext == "png") {
        ok = readPng(path, out, error);
    } else {
        ImageReaderHook hook;
        {
            std::lock_guard<std::mutex> lock(hookMutex);
            hook = readerHook;
        }
        if (!hook) {
            error = "no reader for this file type";
            return false;
        }
        ok = hook(path, out, error);
        if (ok && !out.valid()) {
            ok = false;
            error = "the reader returned no pixels";
        }
    }
    if (!ok) out = ImageRgba();
    return ok;
}

bool writeExr(const std::string& path, const ImageRgba& image, std::string& error)
{
    if (!image.valid()) {
        error = "image has no pixels";
        return false;
    }
    try {
        std::vector<Imf::Rgba> pixels(size_t(image.width) * size_t(image.height));
        for (size_t i = 0; i < pixels.size(); ++i) {
            const float* p = image.rgba.data() + i * 4;
            pixels[i] = Imf::Rgba(p[0], p[1], p[2], p[3]);
        }
        Imf::RgbaOutputFile file(path.c_str(), image.width, image.height, Imf::WRITE_RGBA, 1.f,
                                 Imath::V2f(0.f, 0.f), 1.f, Imf::INCREASING_Y, Imf::NO_COMPRESSION);
        file.setFrameBuffer(pixels.data(), 1, size_t(image.width));
        file.writePixels(image.height);
        return true;
    } catch (const std::exception& e) {
        error = e.what();
        return false;
    }
}

void setImageReaderHook(ImageReaderHook hook)
{
    std::lock_guard<std::mutex> lock(hookMutex);
    readerHook = std::move(hook);
}
