#include "io/abcarchive.h"

#include <stdexcept>

AbcArchive::AbcArchive(const std::string& path_, float fps_, float timePerSample_, int frame, bool hasPrims_)
    : path(path_), fps(fps_), timePerSample(timePerSample_), startFrame(frame), hasPrims(hasPrims_)
{
    throw std::runtime_error("Alembic output is not supported yet");
}

AbcArchive::~AbcArchive() = default;

void AbcArchive::write(const Body&)
{
    ++samplesWritten;
}

void AbcArchive::close() {}
