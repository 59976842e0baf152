// AbcArchive: one Alembic file under writing, a sample per frame, finalised on close.
// The stitched outputs of the Write, Mesher and Stitcher nodes hold one while a run
// goes from its first frame to its last. The Ogawa writer lands behind this interface;
// until then making an archive throws, and the nodes report that they couldn't.
#pragma once

#include <memory>
#include <string>

class Body;

class AbcArchive {
public:
    // Opens `path` for writing: samples `timePerSample` apart starting at `frame`,
    // points or meshes by `hasPrims`. Throws std::runtime_error when it can't.
    AbcArchive(const std::string& path, float fps, float timePerSample, int frame, bool hasPrims);
    ~AbcArchive();
    AbcArchive(const AbcArchive&) = delete;
    AbcArchive& operator=(const AbcArchive&) = delete;

    // Appends one sample.
    void write(const Body& body);
    // Finalises the file; later writes are ignored.
    void close();

    std::string path;
    float fps = 24.f;
    float timePerSample = 1.f / 24.f;
    int startFrame = 0;
    bool hasPrims = false;
    int samplesWritten = 0;
};
