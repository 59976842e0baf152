// fileio: the only entries to the file readers and writers. read and write pick the
// format by the path's extension and retry, since caches often live on network shares
// that another machine or thread is busy with. Nodes, the classic systems' caches and
// the writing thread all come through here; the formats sit in their own files.
#pragma once

#include <memory>
#include <string>

#include "io/abcinfo.h"
#include "io/binformat.h"

class Body;

namespace fileio {

// Fills `body` (which the caller has just made) from `path`. 0 on success; -1 on
// failure, and then `body` is reset to null; a reader's own other result is passed on.
// `frame`/`fps` (sample time), `interpolate` and `info` matter to Alembic only; `scale`
// to OBJ and Alembic. A missing file is tried twice 10 ms apart, a bad one three times
// 100 ms apart, and only once while the run is paused.
int read(const std::string& path, std::shared_ptr<Body>& body, float frame = 0.f, float fps = 24.f,
         bool interpolate = false, float scale = 1.f, AbcInfo* info = nullptr);

// Stores `body` at `path`, creating the folder chain first. 0 on success; otherwise
// up to 50 attempts 2 ms apart, then the last writer's result. `frameInfo` gives a BIN
// header the time, frame and rate of a queued snapshot (else SimState's).
int write(const std::string& path, const std::shared_ptr<Body>& body, const BinFrameInfo* frameInfo = nullptr);

// What follows the last "." of the whole path (the whole path without a dot),
// lower-cased with the locale's character classes.
std::string extensionOf(const std::string& path);

// The folder part of a path: backslashes made slashes, cut at the last "/"; empty
// when there is none.
std::string parentFolderOf(const std::string& path);

} // namespace fileio
