// TempFile: temporary name, checked writes and the final rename. The counter makes
// the name unique between threads of this process that write the same path.
#include "io/tempfile.h"

#include <atomic>
#include <unistd.h>

namespace {
std::atomic<unsigned> tempCounter{0};
}

TempFile::TempFile(const std::string& finalPath) : finalPath_(finalPath)
{
    tempPath_ = finalPath + ".tmp" + std::to_string(getpid()) + "." + std::to_string(tempCounter++);
    file_ = std::fopen(tempPath_.c_str(), "wb");
}

TempFile::~TempFile()
{
    discard();
}

bool TempFile::write(const void* data, size_t bytes)
{
    if (!file_ || failed_) return false;
    if (bytes == 0) return true;
    if (std::fwrite(data, 1, bytes, file_) != bytes) failed_ = true;
    return !failed_;
}

bool TempFile::commit()
{
    if (!file_) return false;
    bool ok = !failed_ && std::fflush(file_) == 0 && !std::ferror(file_);
    ok = (std::fclose(file_) == 0) && ok;
    file_ = nullptr;
    if (ok) ok = std::rename(tempPath_.c_str(), finalPath_.c_str()) == 0;
    if (!ok) std::remove(tempPath_.c_str());
    return ok;
}

void TempFile::discard()
{
    if (!file_) return;
    std::fclose(file_);
    file_ = nullptr;
    std::remove(tempPath_.c_str());
}
