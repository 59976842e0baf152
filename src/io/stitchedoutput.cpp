#include "io/stitchedoutput.h"

#include "io/abcarchive.h"
#include "io/fileio.h"

#include <boost/filesystem.hpp>

#include <cstdio>
#include <exception>

StitchedOutput::StitchedOutput() = default;
StitchedOutput::~StitchedOutput()
{
    close();
}

bool StitchedOutput::wantsStitching(const std::string& pathText)
{
    if (fileio::extensionOf(pathText) != "abc") return false;
    return pathText.find("##") == std::string::npos && pathText.find("$F") == std::string::npos;
}

bool StitchedOutput::open(const std::string& path, float fps, float timePerSample, int frame, bool hasPrims,
                          std::string& error)
{
    close();
    try {
        const std::string folder = fileio::parentFolderOf(path);
        if (!folder.empty() && boost::filesystem::create_directories(folder))
            std::printf("created dir: %s\n", folder.c_str());
        archive = std::make_unique<AbcArchive>(path, fps, timePerSample, frame, hasPrims);
    } catch (const std::exception& e) {
        archive.reset();
        error = e.what();
        return false;
    }
    return true;
}

void StitchedOutput::write(const Body& body)
{
    if (archive) archive->write(body);
}

void StitchedOutput::close()
{
    if (!archive) return;
    archive->close();
    archive.reset();
}
