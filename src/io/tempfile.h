// TempFile: the way every cache writer in io/ puts a file on disk. It writes to a
// temporary name beside the final one and renames it over the final name only once
// everything was written, so a reader never sees a half-written cache. A TempFile
// that is not committed removes its temporary when it goes away.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

class TempFile {
public:
    // Opens "<finalPath>.tmp<pid>.<n>" for binary writing; check isOpen().
    explicit TempFile(const std::string& finalPath);
    ~TempFile();
    TempFile(const TempFile&) = delete;
    TempFile& operator=(const TempFile&) = delete;

    bool isOpen() const { return file_ != nullptr; }
    FILE* file() const { return file_; }
    const std::string& tempPath() const { return tempPath_; }
    const std::string& finalPath() const { return finalPath_; }

    // fwrite of the whole block; false on a short write (the file stays uncommitted).
    bool write(const void* data, size_t bytes);
    // Flushes, closes and renames over the final name. False on any failure, and
    // then the temporary is gone and the final name is untouched.
    bool commit();
    // Closes and removes the temporary.
    void discard();

private:
    std::string finalPath_;
    std::string tempPath_;
    FILE* file_ = nullptr;
    bool failed_ = false;
};
