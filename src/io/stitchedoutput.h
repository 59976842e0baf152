// StitchedOutput: the one-file-per-run Alembic output shared by the Write, Mesher and
// Stitcher nodes. It decides whether a path asks for stitching, opens the archive (and
// its folder) on the first frame, appends a sample per frame and finalises it.
#pragma once

#include <memory>
#include <string>

class AbcArchive;
class Body;

class StitchedOutput {
public:
    StitchedOutput();
    ~StitchedOutput();

    // True when `pathText` ends in ".abc" and holds no frame token ("##" to "######", "$F").
    static bool wantsStitching(const std::string& pathText);

    bool isOpen() const { return archive != nullptr; }
    // Closes any open archive, makes the folder ("created dir: ..." when it was made)
    // and opens a new archive. False on failure, with `error` holding why.
    bool open(const std::string& path, float fps, float timePerSample, int frame, bool hasPrims,
              std::string& error);
    void write(const Body& body);
    void close();

    std::unique_ptr<AbcArchive> archive;
};
