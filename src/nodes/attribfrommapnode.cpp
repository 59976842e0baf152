// Attrib-from-Map. The uv of a point is its vector attribute `uvAttribName` (x and y); when
// the points have no such attribute, a vertex attribute of that name is used, each point
// taking the value of the first vertex that refers to it. The colour goes into x, y and z
// of `colorAttribName` (made as a colour when missing); its w stays. Points without a uv,
// or with a non-finite one, keep their colour.
#include "nodes/attribfrommapnode.h"

#include "geo/attribtypes.h"

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <cmath>
#include <cstdio>
#include <vector>

namespace {

bool isVectorType(int type)
{
    return type >= ATTRIB_VECTOR && type <= ATTRIB_NORMAL;
}

// Index of a wrapped coordinate in [0, size).
int wrapIndex(int64_t i, int size)
{
    const int64_t m = i % size;
    return int(m < 0 ? m + size : m);
}

// Per point uv from a vertex attribute of that name; `has` marks the points that got one.
bool uvFromVertices(const Body& body, const std::string& name, VecArray& uv, std::vector<char>& has)
{
    const VertexData& vd = *body.vertices;
    const VecListArray* lists = nullptr;
    if (name == "uv" && vd.hasUV) {
        lists = &vd.uv;
    } else {
        const int type = vd.attribType(name);
        if (type == PRIM_VECTOR || type == PRIM_POSITION || type == PRIM_COLOR || type == PRIM_NORMAL)
            lists = static_cast<const VecListArray*>(vd.attrib(name));
    }
    if (!lists) return false;
    const size_t n = body.points->size();
    uv.assign(n, Vec4f());
    has.assign(n, 0);
    for (size_t prim = 0; prim < vd.indices.size() && prim < lists->size(); ++prim) {
        const std::vector<uint32_t>& corners = vd.indices[prim];
        const VecArray& values = (*lists)[prim];
        for (size_t k = 0; k < corners.size() && k < values.size(); ++k) {
            const uint32_t p = corners[k];
            if (p >= n || has[p]) continue;
            uv[p] = values[k];
            has[p] = 1;
        }
    }
    return true;
}

} // namespace

AttribFromMapNode::AttribFromMapNode(NodeMaster* master) : GeoNode(master)
{
    setType("Attrib-from-Map");
    addParam(&imagePath, "imagePath", "Image File Path", kParamPath, "");
    addParam(&colorAttribName, "colorAttribName", "Attrib Name", kParamString, "Cd",
             "The name of the attribute.");
    addParam(&uvAttribName, "uvAttribName", "UV Attrib Name", kParamString, "uv",
             "The name of the uv attribute.");
    addParam(&makeCheckboard, "makeCheckboard", "Make Checkerboard", kParamBool, "false",
             "Apply a checkboard map to the uvs.\n");
    addInput("Input");
    addOutput("Output");
}

void AttribFromMapNode::reset()
{
    GeoNode::reset();
    std::lock_guard<std::mutex> lock(nodeMutex);
    image_ = ImageRgba(); // a reset reads the file again, so an edited image shows
    imageLoadedFrom_.clear();
}

Vec4f AttribFromMapNode::sampleImage(const ImageRgba& image, float u, float v)
{
    if (!image.valid() || !std::isfinite(u) || !std::isfinite(v)) return Vec4f();
    const int w = image.width;
    const int h = image.height;
    // Pixel centres sit at half-integer positions; y counts rows from the bottom.
    const double fx = double(u) * w - 0.5;
    const double fy = double(v) * h - 0.5;
    const double x0 = std::floor(fx);
    const double y0 = std::floor(fy);
    const float tx = float(fx - x0);
    const float ty = float(fy - y0);
    // far-off coordinates: wrap in double first so that the integer conversion is safe
    const int64_t ix = int64_t(std::fmod(x0, double(w)));
    const int64_t iy = int64_t(std::fmod(y0, double(h)));
    const int xa = wrapIndex(ix, w), xb = wrapIndex(ix + 1, w);
    const int ya = wrapIndex(iy, h), yb = wrapIndex(iy + 1, h);
    // rows in the image run top to bottom
    const float* p00 = image.pixel(xa, h - 1 - ya);
    const float* p10 = image.pixel(xb, h - 1 - ya);
    const float* p01 = image.pixel(xa, h - 1 - yb);
    const float* p11 = image.pixel(xb, h - 1 - yb);
    float out[4];
    for (int c = 0; c < 4; ++c) {
        const float bottom = p00[c] + (p10[c] - p00[c]) * tx;
        const float top = p01[c] + (p11[c] - p01[c]) * tx;
        out[c] = bottom + (top - bottom) * ty;
    }
    return Vec4f(out[0], out[1], out[2], out[3]);
}

Vec4f AttribFromMapNode::checker(float u, float v)
{
    const double cx = std::floor(double(u) * 8.0);
    const double cy = std::floor(double(v) * 8.0);
    const bool white = std::fmod(std::fabs(cx + cy), 2.0) == 1.0;
    return white ? Vec4f(1.f, 1.f, 1.f, 1.f) : Vec4f(0.f, 0.f, 0.f, 1.f);
}

bool AttribFromMapNode::ensureImage()
{
    if (image_.valid() && imageLoadedFrom_ == imagePath) return true;
    image_ = ImageRgba();
    imageLoadedFrom_.clear();
    std::string error;
    if (!readImage(imagePath, image_, error)) {
        std::printf("%s: cannot read image %s: %s\n", name().c_str(), imagePath.c_str(), error.c_str());
        return false;
    }
    imageLoadedFrom_ = imagePath;
    return true;
}

void AttribFromMapNode::cookBody(BodyPtr& body)
{
    PointData& pts = *body->points;
    const size_t n = pts.size();
    if (n == 0) return;
    if (!makeCheckboard && imagePath.empty()) return; // no map chosen yet

    // uv: a point attribute, else a vertex attribute of the name
    const VecArray* uv = nullptr;
    VecArray vertexUv;
    std::vector<char> hasUv;
    const int uvType = pts.attribType(uvAttribName);
    if (isVectorType(uvType)) {
        uv = static_cast<const VecArray*>(pts.attrib(uvAttribName));
    } else if (uvType == ATTRIB_NONE && uvFromVertices(*body, uvAttribName, vertexUv, hasUv)) {
        uv = &vertexUv;
    } else if (uvType == ATTRIB_NONE) {
        std::printf("%s: attribute %s doesn't exist.\n", name().c_str(), uvAttribName.c_str());
        return;
    } else {
        std::printf("%s: attribute %s isn't a vector.\n", name().c_str(), uvAttribName.c_str());
        return;
    }

    const int colorType = pts.attribType(colorAttribName);
    if (colorType != ATTRIB_NONE && !isVectorType(colorType)) {
        std::printf("%s: attribute %s isn't a vector.\n", name().c_str(), colorAttribName.c_str());
        return;
    }
    if (!makeCheckboard && !ensureImage()) return;
    if (colorType == ATTRIB_NONE) pts.addAttrib(colorAttribName, ATTRIB_COLOR);
    VecArray& color = *static_cast<VecArray*>(pts.attrib(colorAttribName));

    const bool checkerOnly = makeCheckboard;
    tbb::parallel_for(tbb::blocked_range<size_t>(0, n, 2048), [&](const tbb::blocked_range<size_t>& r) {
        for (size_t i = r.begin(); i != r.end(); ++i) {
            if (!hasUv.empty() && !hasUv[i]) continue;
            const Vec4f& t = (*uv)[i];
            if (!std::isfinite(t.x) || !std::isfinite(t.y)) continue;
            const Vec4f c = checkerOnly ? checker(t.x, t.y) : sampleImage(image_, t.x, t.y);
            color[i] = Vec4f(c.x, c.y, c.z, color[i].w);
        }
    });
}
