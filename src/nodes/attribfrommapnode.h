// Attrib-from-Map: colours the points from an image (or a checker map) looked up at each
// point's uv coordinate.
#pragma once

#include "graph/geonode.h"
#include "io/imagefile.h"

class AttribFromMapNode : public GeoNode {
public:
    explicit AttribFromMapNode(NodeMaster* master);
    QORVA_FILTER_PROCESS
    void cookBody(BodyPtr& body) override;
    void reset() override;

    // Bilinear RGBA at (u, v): v = 0 is the bottom row, both wrap (repeat).
    static Vec4f sampleImage(const ImageRgba& image, float u, float v);
    // Black and white squares, 8 x 8 over the unit square; the square at the origin is black.
    static Vec4f checker(float u, float v);

    std::string imagePath;
    std::string colorAttribName = "Cd";
    std::string uvAttribName = "uv";
    bool makeCheckboard = false;

private:
    // The image of `imagePath`, read on the first cook that needs it and kept until the
    // path changes (or the node is reset). False, with the line printed, when unreadable.
    bool ensureImage();

    ImageRgba image_;
    std::string imageLoadedFrom_;
};
