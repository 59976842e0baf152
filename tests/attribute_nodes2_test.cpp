// Attribute nodes that combine, smooth, paint, set, move and derive attributes: Attrib-Add,
// Attrib-Blur, Attrib-from-Map (with the image reader), Attrib-Set, Attrib-Transfer and
// Calc-Velocity, on small hand-computed cases.
#include "nodetestkit.h"

#include "geo/attribtypes.h"
#include "graph/nodemaster.h"
#include "io/imagefile.h"
#include "io/pngfile.h"
#include "nodes/attribaddnode.h"
#include "nodes/attribblurnode.h"
#include "nodes/attribfrommapnode.h"
#include "nodes/attribsetnode.h"
#include "nodes/attribtransfernode.h"
#include "nodes/calcvelocitynode.h"

#include <openvdb/openvdb.h>
#include <png.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <unistd.h>

namespace fs = std::filesystem;

namespace {

using AttributeNodes2Test = NodeTestBase;

// Lines printed to stdout by `f`.
template <class F> std::string printedBy(F&& f)
{
    testing::internal::CaptureStdout();
    f();
    return testing::internal::GetCapturedStdout();
}

size_t lineCount(const std::string& text)
{
    size_t n = 0;
    for (char c : text) n += c == '\n';
    return n;
}

// Points with a float attribute of the given values.
BodyPtr floatBody(const std::string& name, const std::vector<float>& values)
{
    auto b = std::make_shared<Body>();
    for (size_t i = 0; i < values.size(); ++i) b->points->addPoint(Vec4f(float(i), 0.f, 0.f));
    b->points->addAttrib(name, ATTRIB_FLOAT);
    *b->points->attribAs<FloatArray>(name) = values;
    return b;
}

// ---- Attrib-Add ----

TEST_F(AttributeNodes2Test, AddScalesTheRightAttributeIntoTheLeftOnePointByPoint)
{
    BodyPtr a = floatBody("mass", {1.f, 2.f, 3.f});
    BodyPtr b = floatBody("extra", {10.f, 20.f}); // one point fewer: the third keeps its value
    auto* add = makeWith<AttribAddNode>("attrib-add", {a, b});
    set(add, "attrib_a", "mass");
    set(add, "attrib_b", "extra");
    set(add, "scale", "0.5");
    BodyPtr out = pull(add, 1.f);
    ASSERT_TRUE(out);
    const FloatArray& mass = *out->points->attribAs<FloatArray>("mass");
    EXPECT_FLOAT_EQ(mass[0], 6.f);
    EXPECT_FLOAT_EQ(mass[1], 12.f);
    EXPECT_FLOAT_EQ(mass[2], 3.f);
}

TEST_F(AttributeNodes2Test, AddOfVectorsKeepsWAndIntsDropTheFraction)
{
    BodyPtr a = pointsBody({Vec4f(1, 2, 3, 7), Vec4f()});
    a->points->addAttrib("count", ATTRIB_INT);
    (*a->points->attribAs<IntArray>("count"))[0] = 3;
    BodyPtr b = pointsBody({Vec4f(), Vec4f()});
    b->points->addAttrib("v", ATTRIB_VELOCITY);
    b->points->v[0] = Vec4f(1.f, 1.f, 2.f, 9.f);
    b->points->addAttrib("more", ATTRIB_INT);
    (*b->points->attribAs<IntArray>("more"))[0] = 3;
    auto* add = makeWith<AttribAddNode>("attrib-add", {a, b});
    set(add, "attrib_a", "P");
    set(add, "attrib_b", "v");
    set(add, "scale", "2");
    BodyPtr out = pull(add, 1.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->P[0], Vec4f(3.f, 4.f, 7.f, 7.f)) << "a vector attribute of another type adds";

    set(add, "attrib_a", "count");
    set(add, "attrib_b", "more");
    set(add, "scale", "0.5");
    out = pull(add, 1.f);
    ASSERT_TRUE(out);
    EXPECT_EQ((*out->points->attribAs<IntArray>("count"))[0], 4) << "3 + 1.5, toward zero";
}

TEST_F(AttributeNodes2Test, AddOfMismatchedOrMissingAttributesPrintsOneLineAndPassesA)
{
    BodyPtr a = floatBody("mass", {1.f, 2.f});
    BodyPtr b = pointsBody({Vec4f(), Vec4f()});
    b->points->addAttrib("v", ATTRIB_VELOCITY);
    auto* add = makeWith<AttribAddNode>("attrib-add", {a, b});
    set(add, "attrib_a", "mass");
    set(add, "attrib_b", "v");
    BodyPtr out;
    std::string printed = printedBy([&] { out = pull(add, 1.f); });
    EXPECT_EQ(lineCount(printed), 1u) << printed;
    ASSERT_TRUE(out);
    EXPECT_EQ(*out->points->attribAs<FloatArray>("mass"), (FloatArray{1.f, 2.f}));

    set(add, "attrib_b", "nothing");
    printed = printedBy([&] { out = pull(add, 1.f); });
    EXPECT_NE(printed.find(": attribute nothing doesn't exist.\n"), std::string::npos) << printed;
    EXPECT_EQ(lineCount(printed), 1u);
    ASSERT_TRUE(out);
    EXPECT_EQ(*out->points->attribAs<FloatArray>("mass"), (FloatArray{1.f, 2.f}));

    // no right input: A goes on as it is
    auto* alone = makeWith<AttribAddNode>("attrib-add", {a});
    set(alone, "attrib_a", "mass");
    set(alone, "attrib_b", "mass");
    out = pull(alone, 1.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(*out->points->attribAs<FloatArray>("mass"), (FloatArray{1.f, 2.f}));
}

// ---- Attrib-Blur ----

TEST_F(AttributeNodes2Test, BlurHashHelpers)
{
    EXPECT_EQ(AttribBlurNode::tableSizeFor(10), 260000u);
    EXPECT_EQ(AttribBlurNode::tableSizeFor(200001), 500002u) << "n * 2.5, truncated";
    EXPECT_EQ(AttribBlurNode::tableSizeFor(100000000), 30000000u);
    const size_t b = AttribBlurNode::bucketOf(-1, -7, 3, 260000);
    EXPECT_LT(b, 260000u);
    const int64_t h = (int64_t(-1) * 73856093) ^ (int64_t(-7) * 19349663) ^ (int64_t(3) * 83492791);
    EXPECT_EQ(int64_t(b), ((h % 260000) + 260000) % 260000);
}

TEST_F(AttributeNodes2Test, BlurMovesPointsTowardTheirNeighboursAndLonePointsTowardTheOrigin)
{
    // two neighbours in one cell, one point far from both
    BodyPtr in =
        pointsBody({Vec4f(0.1f, 0.1f, 0.1f, 5.f), Vec4f(0.3f, 0.1f, 0.1f), Vec4f(10.5f, 10.5f, 10.5f)});
    auto* blur = makeWith<AttribBlurNode>("attrib-blur", {in});
    set(blur, "radius", "1");
    set(blur, "amount", "0.5");
    set(blur, "iterations", "1");
    BodyPtr out = pull(blur, 1.f);
    ASSERT_TRUE(out);
    const VecArray& P = out->points->P;
    EXPECT_NEAR(P[0].x, 0.2f, 1e-6f);
    EXPECT_NEAR(P[1].x, 0.2f, 1e-6f);
    EXPECT_NEAR(P[0].y, 0.1f, 1e-6f);
    EXPECT_FLOAT_EQ(P[0].w, 5.f) << "w stays";
    EXPECT_NEAR(P[2].x, 5.25f, 1e-5f) << "no neighbours: the mean is the zero vector";
    EXPECT_NEAR(P[2].z, 5.25f, 1e-5f);

    // a second pass uses the hash of the first positions: the far point has moved to a cell
    // with nobody in it and keeps halving
    set(blur, "iterations", "2");
    out = pull(blur, 1.f);
    ASSERT_TRUE(out);
    EXPECT_NEAR(out->points->P[0].x, 0.2f, 1e-6f);
    EXPECT_NEAR(out->points->P[2].x, 2.625f, 1e-5f);

    set(blur, "iterations", "0");
    out = pull(blur, 1.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->P[0], Vec4f(0.1f, 0.1f, 0.1f, 5.f)) << "no passes, no change";
}

TEST_F(AttributeNodes2Test, BlurHasNoDistanceTestWithinTheNeighbouringCells)
{
    // 1.9 apart, but in neighbouring cells of size 1: they still see each other
    BodyPtr in = pointsBody({Vec4f(0.05f, 0.5f, 0.5f), Vec4f(1.95f, 0.5f, 0.5f)});
    auto* blur = makeWith<AttribBlurNode>("attrib-blur", {in});
    set(blur, "radius", "1");
    set(blur, "amount", "1");
    BodyPtr out = pull(blur, 1.f);
    ASSERT_TRUE(out);
    EXPECT_NEAR(out->points->P[0].x, 1.95f, 1e-6f);
    EXPECT_NEAR(out->points->P[1].x, 0.05f, 1e-6f);
}

// ---- the image reader and Attrib-from-Map ----

class AttribFromMapTest : public NodeTestBase {
protected:
    void SetUp() override
    {
        NodeTestBase::SetUp();
        dir = fs::temp_directory_path() / ("qorva_map_" + std::to_string(getpid()));
        fs::create_directories(dir);
    }
    void TearDown() override
    {
        NodeTestBase::TearDown();
        fs::remove_all(dir);
    }
    std::string file(const std::string& name) const { return (dir / name).string(); }

    // 2 x 2: top row red, green; bottom row blue, white (alpha 1).
    static ImageRgba quad()
    {
        ImageRgba img;
        img.width = 2;
        img.height = 2;
        img.rgba = {1, 0, 0, 1, 0, 1, 0, 1, 0, 0, 1, 1, 1, 1, 1, 1};
        return img;
    }
    // The same picture as 8-bit pixels.
    static ImageBuffer quadBytes()
    {
        ImageBuffer buf;
        buf.width = 2;
        buf.height = 2;
        buf.rgba = {255, 0, 0, 255, 0, 255, 0, 255, 0, 0, 255, 255, 255, 255, 255, 255};
        return buf;
    }
    // Points whose "uv" attribute holds the given coordinates.
    static BodyPtr uvPoints(const std::vector<Vec4f>& uvs)
    {
        auto b = std::make_shared<Body>();
        for (size_t i = 0; i < uvs.size(); ++i) b->points->addPoint(Vec4f(float(i), 0.f, 0.f));
        b->points->addAttrib("uv", ATTRIB_VECTOR);
        *b->points->attribAs<VecArray>("uv") = uvs;
        return b;
    }
    static void truncateFile(const std::string& from, const std::string& to, size_t keep)
    {
        std::ifstream in(from, std::ios::binary);
        std::string bytes((std::istreambuf_iterator<char>(in)), {});
        std::ofstream(to, std::ios::binary) << bytes.substr(0, std::min(keep, bytes.size()));
    }
    fs::path dir;
};

// Writes a PNG of any colour type and depth through libpng; 16-bit samples big-endian.
bool writeRawPng(const std::string& path, int width, int height, int colorType, int depth,
                 const std::vector<uint8_t>& bytes)
{
    FILE* f = std::fopen(path.c_str(), "wb");
    if (!f) return false;
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
    png_infop info = png_create_info_struct(png);
    if (setjmp(png_jmpbuf(png))) {
        png_destroy_write_struct(&png, &info);
        std::fclose(f);
        return false;
    }
    png_init_io(png, f);
    png_set_IHDR(png, info, png_uint_32(width), png_uint_32(height), depth, colorType, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    png_write_info(png, info);
    const size_t rowBytes = bytes.size() / size_t(height);
    for (int y = 0; y < height; ++y) png_write_row(png, bytes.data() + size_t(y) * rowBytes);
    png_write_end(png, nullptr);
    png_destroy_write_struct(&png, &info);
    return std::fclose(f) == 0;
}

void expectColor(const Vec4f& c, float r, float g, float b, float tolerance = 1e-6f)
{
    EXPECT_NEAR(c.x, r, tolerance);
    EXPECT_NEAR(c.y, g, tolerance);
    EXPECT_NEAR(c.z, b, tolerance);
}

TEST_F(AttribFromMapTest, ExrAndPngReadBackTheirPixels)
{
    std::string error;
    ASSERT_TRUE(writeExr(file("quad.exr"), quad(), error)) << error;
    ImageRgba img;
    ASSERT_TRUE(readImage(file("quad.exr"), img, error)) << error;
    ASSERT_TRUE(img.valid());
    EXPECT_EQ(img.rgba, quad().rgba);

    ASSERT_EQ(writePng(file("quad.png"), quadBytes()), 0);
    ASSERT_TRUE(readImage(file("quad.png"), img, error)) << error;
    EXPECT_EQ(img.rgba, quad().rgba);

    // the extension is not case-sensitive
    fs::copy_file(file("quad.png"), file("QUAD.PNG"));
    ASSERT_TRUE(readImage(file("QUAD.PNG"), img, error)) << error;
    EXPECT_EQ(img.width, 2);

    // RGB without alpha comes in opaque; 16-bit grey spreads to three channels
    ASSERT_TRUE(writeRawPng(file("rgb.png"), 1, 1, PNG_COLOR_TYPE_RGB, 8, {51, 102, 255}));
    ASSERT_TRUE(readImage(file("rgb.png"), img, error)) << error;
    EXPECT_EQ(img.rgba, (std::vector<float>{0.2f, 0.4f, 1.f, 1.f}));
    ASSERT_TRUE(writeRawPng(file("grey16.png"), 2, 1, PNG_COLOR_TYPE_GRAY, 16, {0x80, 0x00, 0xff, 0xff}));
    ASSERT_TRUE(readImage(file("grey16.png"), img, error)) << error;
    ASSERT_EQ(img.width, 2);
    const float half = 32768.f / 65535.f;
    EXPECT_EQ(img.rgba, (std::vector<float>{half, half, half, 1.f, 1.f, 1.f, 1.f, 1.f}));

    EXPECT_FALSE(readImage(file("missing.png"), img, error));
    EXPECT_FALSE(error.empty());
    EXPECT_FALSE(img.valid());
    EXPECT_FALSE(readImage(file("quad.tga"), img, error)) << "no hook: other formats aren't read";
}

TEST_F(AttribFromMapTest, TruncatedFilesFailWithAReason)
{
    ASSERT_EQ(writePng(file("quad.png"), quadBytes()), 0);
    std::string error;
    ASSERT_TRUE(writeExr(file("quad.exr"), quad(), error)) << error;
    truncateFile(file("quad.png"), file("cut.png"), 40);
    truncateFile(file("quad.exr"), file("cut.exr"), 60);
    truncateFile(file("quad.png"), file("short.png"), 5);
    ImageRgba img;
    for (const char* name : {"cut.png", "cut.exr", "short.png"}) {
        error.clear();
        EXPECT_FALSE(readImage(file(name), img, error)) << name;
        EXPECT_FALSE(error.empty()) << name;
        EXPECT_FALSE(img.valid()) << name;
    }
}

TEST_F(AttribFromMapTest, TheHookReadsOtherFormats)
{
    setImageReaderHook([](const std::string& path, ImageRgba& out, std::string& error) {
        if (path.find("good") == std::string::npos) {
            error = "hook says no";
            return false;
        }
        out.width = out.height = 1;
        out.rgba = {0.25f, 0.5f, 0.75f, 1.f};
        return true;
    });
    ImageRgba img;
    std::string error;
    EXPECT_TRUE(readImage("good.jpg", img, error));
    EXPECT_EQ(img.rgba, (std::vector<float>{0.25f, 0.5f, 0.75f, 1.f}));
    EXPECT_FALSE(readImage("bad.jpg", img, error));
    EXPECT_EQ(error, "hook says no");
    setImageReaderHook(nullptr);
    EXPECT_FALSE(readImage("good.jpg", img, error));
}

TEST_F(AttribFromMapTest, SamplingIsBilinearWithVUpAndWraps)
{
    const ImageRgba img = quad();
    // pixel centres: bottom row at v = 0.25, top row at v = 0.75
    expectColor(AttribFromMapNode::sampleImage(img, 0.25f, 0.25f), 0, 0, 1);
    expectColor(AttribFromMapNode::sampleImage(img, 0.75f, 0.25f), 1, 1, 1);
    expectColor(AttribFromMapNode::sampleImage(img, 0.25f, 0.75f), 1, 0, 0);
    expectColor(AttribFromMapNode::sampleImage(img, 0.75f, 0.75f), 0, 1, 0);
    // between blue and white
    expectColor(AttribFromMapNode::sampleImage(img, 0.5f, 0.25f), 0.5f, 0.5f, 1);
    // repeats in both directions
    expectColor(AttribFromMapNode::sampleImage(img, 1.25f, -0.75f), 0, 0, 1);
    // the edge blends across the seam with the far column
    expectColor(AttribFromMapNode::sampleImage(img, 0.f, 0.25f), 0.5f, 0.5f, 1);
}

TEST_F(AttribFromMapTest, CheckerboardIsEightByEight)
{
    expectColor(AttribFromMapNode::checker(0.01f, 0.01f), 0, 0, 0);
    expectColor(AttribFromMapNode::checker(0.13f, 0.01f), 1, 1, 1);
    expectColor(AttribFromMapNode::checker(0.13f, 0.13f), 0, 0, 0);
    expectColor(AttribFromMapNode::checker(0.99f, 0.01f), 1, 1, 1);
    expectColor(AttribFromMapNode::checker(-0.01f, 0.01f), 1, 1, 1); // continues below 0

    auto* map = makeWith<AttribFromMapNode>("attrib-from-map",
                                            {uvPoints({Vec4f(0.01f, 0.01f, 0), Vec4f(0.13f, 0.01f, 0)})});
    set(map, "makeCheckboard", "true");
    BodyPtr out = pull(map, 1.f);
    ASSERT_TRUE(out && out->points->hasCd);
    expectColor(out->points->Cd[0], 0, 0, 0);
    expectColor(out->points->Cd[1], 1, 1, 1);
}

TEST_F(AttribFromMapTest, PointsTakeTheColourOfTheImageAtTheirUv)
{
    std::string error;
    ASSERT_TRUE(writeExr(file("quad.exr"), quad(), error)) << error;
    ASSERT_EQ(writePng(file("quad.png"), quadBytes()), 0);
    BodyPtr in = uvPoints({Vec4f(0.25f, 0.25f, 0), Vec4f(0.75f, 0.75f, 0), Vec4f(0.5f, 0.25f, 0)});
    in->points->addAttrib("Cd", ATTRIB_COLOR);
    in->points->Cd[0].w = 3.f;
    auto* map = makeWith<AttribFromMapNode>("attrib-from-map", {in});
    for (const char* name : {"quad.exr", "quad.png"}) {
        set(map, "imagePath", file(name));
        BodyPtr out = pull(map, 1.f);
        ASSERT_TRUE(out && out->points->hasCd) << name;
        expectColor(out->points->Cd[0], 0, 0, 1);
        expectColor(out->points->Cd[1], 0, 1, 0);
        expectColor(out->points->Cd[2], 0.5f, 0.5f, 1);
        EXPECT_FLOAT_EQ(out->points->Cd[0].w, 3.f) << "w stays";
    }

    // another attribute name is made as a colour
    set(map, "colorAttribName", "tint");
    BodyPtr out = pull(map, 1.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->attribType("tint"), ATTRIB_COLOR);
    expectColor((*out->points->attribAs<VecArray>("tint"))[1], 0, 1, 0);
}

TEST_F(AttribFromMapTest, TheImageIsReadOnceUntilThePathChanges)
{
    std::string error;
    ASSERT_TRUE(writeExr(file("a.exr"), quad(), error)) << error;
    auto* map = makeWith<AttribFromMapNode>("attrib-from-map", {uvPoints({Vec4f(0.25f, 0.25f, 0)})});
    set(map, "imagePath", file("a.exr"));
    BodyPtr out = pull(map, 1.f);
    ASSERT_TRUE(out && out->points->hasCd);
    expectColor(out->points->Cd[0], 0, 0, 1);

    ImageRgba grey = quad();
    std::fill(grey.rgba.begin(), grey.rgba.end(), 0.5f);
    ASSERT_TRUE(writeExr(file("a.exr"), grey, error)) << error;
    ASSERT_TRUE(writeExr(file("b.exr"), grey, error)) << error;
    out = pull(map, 1.f);
    ASSERT_TRUE(out);
    expectColor(out->points->Cd[0], 0, 0, 1); // same path: the kept image
    set(map, "imagePath", file("b.exr"));
    out = pull(map, 1.f);
    ASSERT_TRUE(out);
    expectColor(out->points->Cd[0], 0.5f, 0.5f, 0.5f);
}

TEST_F(AttribFromMapTest, UvFromVerticesWhenThePointsHaveNone)
{
    ASSERT_EQ(writePng(file("quad.png"), quadBytes()), 0);
    BodyPtr in = pointsBody({Vec4f(), Vec4f(1, 0, 0), Vec4f(1, 1, 0), Vec4f(5, 5, 5)});
    in->prims->addPrim(PrimData::POLYGON);
    in->vertices->addVertexList({0, 1, 2});
    in->vertices->addAttrib("uv", PRIM_VECTOR);
    in->vertices->uv[0] = {Vec4f(0.25f, 0.25f, 0), Vec4f(0.75f, 0.25f, 0), Vec4f(0.75f, 0.75f, 0)};
    in->updateCounts();
    auto* map = makeWith<AttribFromMapNode>("attrib-from-map", {in});
    set(map, "imagePath", file("quad.png"));
    BodyPtr out = pull(map, 1.f);
    ASSERT_TRUE(out && out->points->hasCd);
    expectColor(out->points->Cd[0], 0, 0, 1);
    expectColor(out->points->Cd[1], 1, 1, 1);
    expectColor(out->points->Cd[2], 0, 1, 0);
    EXPECT_EQ(out->points->Cd[3], kDefaultColor) << "a point on no primitive keeps its colour";
}

TEST_F(AttribFromMapTest, BadImagesAndMissingUvsPrintOneLineAndChangeNothing)
{
    ASSERT_EQ(writePng(file("quad.png"), quadBytes()), 0);
    std::string error;
    ASSERT_TRUE(writeExr(file("quad.exr"), quad(), error)) << error;
    truncateFile(file("quad.png"), file("cut.png"), 60);
    truncateFile(file("quad.exr"), file("cut.exr"), 100);
    std::ofstream(file("junk.exr")) << "not an image at all";
    auto* map = makeWith<AttribFromMapNode>("attrib-from-map", {uvPoints({Vec4f(0.25f, 0.25f, 0)})});
    for (const char* name : {"cut.png", "cut.exr", "junk.exr", "none.png"}) {
        set(map, "imagePath", file(name));
        BodyPtr out;
        const std::string printed = printedBy([&] { out = pull(map, 1.f); });
        EXPECT_EQ(lineCount(printed), 1u) << name << ": " << printed;
        EXPECT_NE(printed.find(file(name)), std::string::npos) << printed;
        ASSERT_TRUE(out) << name;
        EXPECT_FALSE(out->points->hasCd) << name;
    }

    auto* noUv = makeWith<AttribFromMapNode>("attrib-from-map", {pointsBody({Vec4f()})});
    set(noUv, "imagePath", file("quad.png"));
    BodyPtr out;
    const std::string printed = printedBy([&] { out = pull(noUv, 1.f); });
    EXPECT_NE(printed.find(": attribute uv doesn't exist.\n"), std::string::npos) << printed;
    EXPECT_EQ(lineCount(printed), 1u);
    ASSERT_TRUE(out);
    EXPECT_FALSE(out->points->hasCd);
}

// ---- Attrib-Set ----

// A distance field equal to x (negative for x < 0) over a slab round the origin.
BodyPtr slabSdf()
{
    auto grid = openvdb::FloatGrid::create(1.f);
    grid->setTransform(openvdb::math::Transform::createLinearTransform(0.1));
    grid->setGridClass(openvdb::GRID_LEVEL_SET);
    auto acc = grid->getAccessor();
    for (int i = -20; i <= 20; ++i)
        for (int j = -2; j <= 2; ++j)
            for (int k = -2; k <= 2; ++k) acc.setValue(openvdb::Coord(i, j, k), float(i) * 0.1f);
    auto b = std::make_shared<Body>();
    b->volumes->setVolume("distance", VOLUME_FLOAT, grid);
    return b;
}

TEST_F(AttributeNodes2Test, SetMakesAndFillsScalarAndVectorAttributes)
{
    auto* s = makeWith<AttribSetNode>("attrib-set", {pointsBody({Vec4f(), Vec4f(1, 0, 0)})});
    set(s, "attribName", "mass");
    set(s, "x", "2.5");
    BodyPtr out = pull(s, 1.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->attribType("mass"), ATTRIB_FLOAT);
    EXPECT_EQ(*out->points->attribAs<FloatArray>("mass"), (FloatArray{2.5f, 2.5f}));

    set(s, "attribName", "dir");
    set(s, "attribType", "Vector");
    set(s, "y", "-1");
    set(s, "z", "4");
    out = pull(s, 1.f);
    ASSERT_TRUE(out);
    ASSERT_EQ(out->points->attribType("dir"), ATTRIB_VECTOR);
    EXPECT_EQ((*out->points->attribAs<VecArray>("dir"))[1], Vec4f(2.5f, -1.f, 4.f, 0.f));

    // a vector into a scalar attribute doesn't fit: one line, nothing changes
    BodyPtr massive = floatBody("mass", {1.f});
    auto* wrong = makeWith<AttribSetNode>("attrib-set", {massive});
    set(wrong, "attribName", "mass");
    set(wrong, "attribType", "Vector");
    const std::string printed = printedBy([&] { out = pull(wrong, 1.f); });
    EXPECT_EQ(lineCount(printed), 1u) << printed;
    ASSERT_TRUE(out);
    EXPECT_EQ(*out->points->attribAs<FloatArray>("mass"), FloatArray{1.f});
}

TEST_F(AttributeNodes2Test, SetThroughAnSdfMaskFadesOverTheFalloff)
{
    EXPECT_FLOAT_EQ(AttribSetNode::maskWeight(-1.f, 0.5f), 1.f);
    EXPECT_FLOAT_EQ(AttribSetNode::maskWeight(0.f, 0.f), 1.f);
    EXPECT_FLOAT_EQ(AttribSetNode::maskWeight(0.01f, 0.f), 0.f) << "no falloff: a hard edge";
    EXPECT_FLOAT_EQ(AttribSetNode::maskWeight(0.25f, 0.5f), 0.5f);
    EXPECT_FLOAT_EQ(AttribSetNode::maskWeight(0.6f, 0.5f), 0.f);

    BodyPtr pts = floatBody("mass", {2.f, 2.f, 2.f, 2.f});
    pts->points->P = {Vec4f(-0.5f, 0, 0), Vec4f(0.25f, 0, 0), Vec4f(0.75f, 0, 0), Vec4f(0.05f, 0, 0)};
    auto* s = makeWith<AttribSetNode>("attrib-set", {pts, slabSdf()});
    set(s, "attribName", "mass");
    set(s, "x", "10");
    set(s, "falloff", "0.5");
    BodyPtr out = pull(s, 1.f);
    ASSERT_TRUE(out);
    const FloatArray& mass = *out->points->attribAs<FloatArray>("mass");
    EXPECT_FLOAT_EQ(mass[0], 10.f) << "inside";
    EXPECT_NEAR(mass[1], 6.f, 1e-4f) << "halfway through the falloff";
    EXPECT_FLOAT_EQ(mass[2], 2.f) << "beyond the falloff";
    EXPECT_NEAR(mass[3], 2.f * 0.1f + 10.f * 0.9f, 1e-4f);

    set(s, "falloff", "0");
    out = pull(s, 1.f);
    ASSERT_TRUE(out);
    EXPECT_FLOAT_EQ((*out->points->attribAs<FloatArray>("mass"))[3], 2.f) << "hard edge";
}

TEST_F(AttributeNodes2Test, SetWithAMaskInputWithoutADistanceGridPassesThePoints)
{
    auto fog = std::make_shared<Body>();
    fog->volumes->addVolume("density", VOLUME_FLOAT);
    auto* s = makeWith<AttribSetNode>("attrib-set", {pointsBody({Vec4f()}), fog});
    set(s, "attribName", "mass");
    set(s, "x", "1");
    BodyPtr out;
    const std::string printed = printedBy([&] { out = pull(s, 1.f); });
    EXPECT_EQ(lineCount(printed), 1u) << printed;
    ASSERT_TRUE(out);
    EXPECT_FALSE(out->points->hasAttrib("mass"));
}

// ---- Attrib-Transfer ----

TEST_F(AttributeNodes2Test, TransferOfAMissingNamePrintsTheMessageAndPassesTheReceiver)
{
    BodyPtr receiver = pointsBody({Vec4f(), Vec4f(1, 0, 0)});
    auto* t = makeWith<AttribTransferNode>("attrib-transfer", {receiver, pointsBody({Vec4f()})});
    set(t, "attribName", "nothing");
    BodyPtr out;
    const std::string printed = printedBy([&] { out = pull(t, 1.f); });
    EXPECT_EQ(printed, t->name() + ": attribute nothing doesn't exist.\n");
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->size(), 2u);
    EXPECT_FALSE(out->points->hasCd);
}

TEST_F(AttributeNodes2Test, TransferByIndexCopiesEveryListedKind)
{
    BodyPtr receiver = pointsBody({Vec4f(), Vec4f(), Vec4f()});
    BodyPtr source = pointsBody({Vec4f(), Vec4f()});
    PointData& s = *source->points;
    s.addAttrib("Cd", ATTRIB_COLOR);
    s.Cd = {Vec4f(1, 0, 0, 0), Vec4f(0, 1, 0, 0)};
    s.addAttrib("label", ATTRIB_STRING);
    *s.attribAs<StringArray>("label") = {"a", "b"};
    s.addAttrib("flag", ATTRIB_BOOL);
    s.attribAs<BitArray>("flag")->set(1, true);
    s.addAttrib("weights", ATTRIB_FLOAT_LIST);
    *s.attribAs<FloatListArray>("weights") = {{1.f, 2.f}, {3.f}};
    auto* t = makeWith<AttribTransferNode>("attrib-transfer", {receiver, source});
    BodyPtr out = pull(t, 1.f);
    ASSERT_TRUE(out && out->points->hasCd);
    EXPECT_EQ(out->points->Cd[0], Vec4f(1, 0, 0, 0));
    EXPECT_EQ(out->points->Cd[1], Vec4f(0, 1, 0, 0));
    EXPECT_EQ(out->points->Cd[2], kDefaultColor) << "no partner: the default";

    set(t, "attribName", "label");
    set(t, "attribNameTo", "name");
    out = pull(t, 1.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(*out->points->attribAs<StringArray>("name"), (StringArray{"a", "b", ""}));

    set(t, "attribName", "flag");
    set(t, "attribNameTo", "flag");
    out = pull(t, 1.f);
    ASSERT_TRUE(out);
    const BitArray& flag = *out->points->attribAs<BitArray>("flag");
    EXPECT_FALSE(flag.get(0));
    EXPECT_TRUE(flag.get(1));

    set(t, "attribName", "weights");
    set(t, "attribNameTo", "weights");
    out = pull(t, 1.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->attribType("weights"), ATTRIB_FLOAT_LIST);
    EXPECT_EQ(*out->points->attribAs<FloatListArray>("weights"), (FloatListArray{{1.f, 2.f}, {3.f}, {}}));
}

TEST_F(AttributeNodes2Test, TransferByIdMatchesIds)
{
    BodyPtr receiver = pointsBody({Vec4f(), Vec4f(), Vec4f()});
    receiver->points->addAttrib("id", ATTRIB_INT);
    *receiver->points->attribAs<IntArray>("id") = {7, 3, 9};
    BodyPtr source = floatBody("temperature", {30.f, 70.f});
    source->points->addAttrib("id", ATTRIB_INT);
    *source->points->attribAs<IntArray>("id") = {3, 7};
    auto* t = makeWith<AttribTransferNode>("attrib-transfer", {receiver, source});
    set(t, "attribName", "temperature");
    set(t, "attribNameTo", "temperature");
    set(t, "transferBy", "Id");
    BodyPtr out = pull(t, 1.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(*out->points->attribAs<FloatArray>("temperature"), (FloatArray{70.f, 30.f, 0.f}));

    // without ids on one side: one line, the receiver unchanged
    auto* noIds = makeWith<AttribTransferNode>("attrib-transfer", {pointsBody({Vec4f()}), source});
    set(noIds, "attribName", "temperature");
    set(noIds, "attribNameTo", "temperature");
    set(noIds, "transferBy", "Id");
    const std::string printed = printedBy([&] { out = pull(noIds, 1.f); });
    EXPECT_EQ(printed, noIds->name() + ": attribute id doesn't exist.\n");
    ASSERT_TRUE(out);
    EXPECT_FALSE(out->points->hasCd);
    EXPECT_FALSE(out->points->hasAttrib("temperature"));
}

TEST_F(AttributeNodes2Test, TransferByProximityTakesTheNearestSourceWithinTheDistance)
{
    BodyPtr receiver =
        pointsBody({Vec4f(0.04f, 0, 0), Vec4f(0.96f, 0, 0), Vec4f(0.5f, 0, 0), Vec4f(-0.07f, 0, 0)});
    BodyPtr source = pointsBody({Vec4f(0, 0, 0), Vec4f(1, 0, 0), Vec4f(0.07f, 0, 0)});
    source->points->addAttrib("v", ATTRIB_VELOCITY);
    source->points->v = {Vec4f(1, 0, 0), Vec4f(2, 0, 0), Vec4f(3, 0, 0)};
    auto* t = makeWith<AttribTransferNode>("attrib-transfer", {receiver, source});
    set(t, "attribName", "v");
    set(t, "attribNameTo", "v");
    set(t, "transferBy", "Proximity");
    BodyPtr out = pull(t, 1.f);
    ASSERT_TRUE(out && out->points->hasV);
    EXPECT_EQ(out->points->v[0], Vec4f(3, 0, 0)) << "0.03 away beats 0.04 away";
    EXPECT_EQ(out->points->v[1], Vec4f(2, 0, 0));
    EXPECT_EQ(out->points->v[2], Vec4f()) << "nothing within 0.1";
    EXPECT_EQ(out->points->v[3], Vec4f(1, 0, 0));

    set(t, "searchDistance", "0.5");
    out = pull(t, 1.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->v[2], Vec4f(3, 0, 0)) << "0.43 away, within 0.5";
}

// ---- Calc-Velocity ----

// Points that move by `step` in x per frame: x = base + time * step.
class MovingNode : public GeoNode {
public:
    MovingNode(NodeMaster* master, std::vector<float> bases, float step)
        : GeoNode(master), bases_(std::move(bases)), step_(step)
    {
        setType("Moving");
        addOutput("Output");
    }
    void process(BodyPtr& result, const CookCaller& c) override
    {
        auto lock = beginProcess(c);
        auto b = std::make_shared<Body>();
        for (float x : bases_) b->points->addPoint(Vec4f(x + c.time * step_, 1.f, 0.f));
        finishProcess(result, c, b, false);
    }
    void checkDirty(DirtyResult& r, const CookCaller& c) override
    {
        GeoNode::checkDirty(r, c);
        timeDependent = r.timeDependent = true;
        dirty = r.dirty = true;
    }

private:
    std::vector<float> bases_;
    float step_;
};

class CalcVelocityTest : public NodeTestBase {
protected:
    CalcVelocityNode* velocityOfMovingPoints(float step)
    {
        auto* moving = new MovingNode(nodeMaster, {0.f, 2.f}, step);
        nodeMaster->registerNode(moving);
        auto* calc = make<CalcVelocityNode>("calc-velocity");
        wire(moving, calc);
        return calc;
    }
};

TEST_F(CalcVelocityTest, MemoryDifferencesConsecutiveFrames)
{
    CalcVelocityNode* calc = velocityOfMovingPoints(0.5f);
    set(calc, "mode", "Memory");
    set(calc, "scale", "2");
    const float fps = nodeMaster->fps();
    EXPECT_FLOAT_EQ(calc->storedFrame(), -1000.f);
    BodyPtr out = pull(calc, 3.f);
    ASSERT_TRUE(out && out->points->hasV);
    EXPECT_EQ(out->points->v[0], Vec4f()) << "nothing remembered yet";
    EXPECT_FLOAT_EQ(calc->storedFrame(), 3.f);

    out = pull(calc, 4.f);
    ASSERT_TRUE(out && out->points->hasV);
    EXPECT_FLOAT_EQ(out->points->v[0].x, 0.5f * fps * 2.f);
    EXPECT_FLOAT_EQ(out->points->v[1].x, 0.5f * fps * 2.f);
    EXPECT_FLOAT_EQ(out->points->v[0].y, 0.f);

    out = pull(calc, 6.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->v[0], Vec4f()) << "a skipped frame: no velocity";

    calc->reset();
    EXPECT_FLOAT_EQ(calc->storedFrame(), -1000.f);
    out = pull(calc, 7.f);
    ASSERT_TRUE(out);
    EXPECT_EQ(out->points->v[0], Vec4f()) << "the memory went with the reset";
}

TEST_F(CalcVelocityTest, TimeshiftAndAutoPullTheFrameBefore)
{
    CalcVelocityNode* calc = velocityOfMovingPoints(0.25f);
    set(calc, "mode", "Timeshift");
    const float fps = nodeMaster->fps();
    BodyPtr out = pull(calc, 10.f);
    ASSERT_TRUE(out && out->points->hasV);
    EXPECT_FLOAT_EQ(out->points->v[0].x, 0.25f * fps);

    set(calc, "mode", "Auto");
    out = pull(calc, 20.f); // the memory holds frame 10: the input is pulled at 19
    ASSERT_TRUE(out);
    EXPECT_FLOAT_EQ(out->points->v[1].x, 0.25f * fps);
    out = pull(calc, 21.f); // and now the memory serves
    ASSERT_TRUE(out);
    EXPECT_FLOAT_EQ(out->points->v[1].x, 0.25f * fps);

    const float start = float(simState->startFrame);
    out = pull(calc, start);
    ASSERT_TRUE(out && out->points->hasV);
    EXPECT_EQ(out->points->v[0], Vec4f()) << "no history at the start frame";
}

TEST_F(AttributeNodes2Test, CalcVelocityFromLinesFollowsTheSegments)
{
    BodyPtr line = pointsBody({Vec4f(0, 0, 0), Vec4f(1, 0, 0), Vec4f(1, 2, 0), Vec4f(9, 9, 9)});
    line->prims->addPrim(PrimData::LINE);
    line->vertices->addVertexList({0, 1, 2});
    line->updateCounts();
    line->points->addAttrib("v", ATTRIB_VELOCITY);
    line->points->v[3] = Vec4f(5, 5, 5);
    auto* calc = makeWith<CalcVelocityNode>("calc-velocity", {line});
    set(calc, "fromLine", "true");
    set(calc, "scale", "0.5");
    const float k = nodeMaster->fps() * 0.5f;
    BodyPtr out = pull(calc, 1.f);
    ASSERT_TRUE(out && out->points->hasV);
    EXPECT_EQ(out->points->v[0], Vec4f(k, 0, 0));
    EXPECT_EQ(out->points->v[1], Vec4f(0, 2 * k, 0));
    EXPECT_EQ(out->points->v[2], Vec4f(0, 2 * k, 0)) << "the last vertex: from the one before";
    EXPECT_EQ(out->points->v[3], Vec4f(5, 5, 5)) << "on no line: unchanged";
}

} // namespace
