// Token replacement for parameters and cache paths, folder clean-up and the file-sequence
// test. Tokens are replaced in a fixed order: the long "$F..." tokens before "$F".
#include "params/paths.h"

#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "params/parameter.h"
#include "params/parameterset.h"

#include <cstdio>
#include <fstream>
#include <vector>

namespace {

std::string frameDigits(int frame, int width)
{
    char buf[32];
    std::snprintf(buf, sizeof(buf), "%0*d", width, frame);
    return buf;
}

std::string fixedFrame(double frame)
{
    char buf[64];
    std::snprintf(buf, sizeof(buf), "%f", frame);
    return buf;
}

std::string scenePathNow()
{
    return simulation ? simulation->scenePath : std::string();
}

struct TokenFrame {
    double frameF;   // "$FF"
    int frame;       // "$F", "####"
};

// The tokens both kinds of path share, in their order. `cache` adds $SYSTEMNAME and formats.
std::string replaceTokens(std::string s, const TokenFrame& f, const std::string* systemName,
                          const std::string* format, const std::string* nodeName)
{
    const std::string scene = scenePathNow();
    const std::string folder = folderOf(scene);
    const std::string stem = fileStem(scene);
    replaceAll(s, "$SCENEFOLDER", folder);
    replaceAll(s, "$FILEFOLDER", folder);
    replaceAll(s, "$SCENENAME", stem);
    replaceAll(s, "$SCENEFILE", folder);
    replaceAll(s, "$FILENAME", stem);
    if (systemName) replaceAll(s, "$SYSTEMNAME", *systemName);
    if (format) {
        replaceAll(s, "$FORMAT", *format);
        replaceAll(s, "$FILEFORMAT", *format);
    }
    replaceAll(s, "$FF", fixedFrame(f.frameF));
    replaceAll(s, "$F", frameDigits(f.frame, 4));
    replaceAll(s, "####", frameDigits(f.frame, 4));
    replaceAll(s, "$SF", frameDigits(simState ? simState->substep : 0, 2));
    replaceAll(s, "$STARTFRAME", std::to_string(simState ? simState->startFrame : 0));
    replaceAll(s, "$ENDFRAME", std::to_string(simState ? simState->endFrame : 0));
    replaceAll(s, "$QORVAFOLDER", installRoot);
    replaceAll(s, "$GEO", installRoot + "/geo");
    if (nodeName) replaceAll(s, "$NODENAME", *nodeName);
    return normalizePath(s);
}

bool canOpen(const std::string& path)
{
    std::ifstream f(path, std::ios::binary);
    return bool(f);
}

} // namespace

void replaceAll(std::string& s, const std::string& from, const std::string& to)
{
    if (from.empty()) return;
    size_t pos = 0;
    while ((pos = s.find(from, pos)) != std::string::npos) {
        s.replace(pos, from.size(), to);
        pos += to.size();
    }
}

std::string resolveTokens(const Parameter& parameter, const std::string& text, float frame)
{
    const ParameterSet* set = parameter.owner;
    const std::string* nodeName = set && set->typeCode == 13 ? &set->name : nullptr;
    return replaceTokens(text, TokenFrame{double(frame), int(frame)}, nullptr, nullptr, nodeName);
}

std::string resolveCacheTokens(const std::string& path, const std::string& systemName,
                               const std::string& format)
{
    const TokenFrame f{simState ? double(simState->frameF) : 0.0, simState ? simState->frame : 0};
    return resolveRelativeDots(replaceTokens(path, f, &systemName, &format, nullptr));
}

std::string cachePath(const std::string& systemName, const std::string& format)
{
    std::string fallback;
    if (simulation && simulation->globalSettings) fallback = simulation->globalSettings->fallbackPathCaches;
    const std::string pattern = fallback.empty() ? "$SCENEFOLDER/caches/$SCENENAME/$SYSTEMNAME.$F.$FORMAT"
                                                 : folderOf(fallback + "/");
    const std::string result = resolveCacheTokens(pattern, systemName, format);
    // Only the last component can name a file, and only with a cache extension: "./out" and
    // "/tmp/run.1" are folders, "/out/x.bin" is one file for every frame.
    const size_t slash = result.find_last_of('/');
    const std::string last = slash == std::string::npos ? result : result.substr(slash + 1);
    const size_t dot = last.rfind('.');
    if (dot != std::string::npos) {
        const std::string ext = last.substr(dot + 1);
        if (ext == format || ext == "bin" || ext == "prt" || ext == "abc") return result;
    }
    const int frame = simState ? simState->frame : 0;
    return result + "/" + systemName + "." + frameDigits(frame, 4) + "." + format;
}

std::string initialStatePath(const std::string& text, const std::string& systemName,
                             const std::string& format)
{
    return resolveCacheTokens(resolveRelativeDots(normalizePath(text)), systemName, format);
}

std::string resolveRelativeDots(const std::string& path)
{
    std::string s = path;
    for (int pass = 0; pass < 101; ++pass) {
        const size_t m = s.find("/../");
        if (m == std::string::npos || m == 0) return s;
        const size_t p = s.rfind('/', m - 1);
        if (p == std::string::npos) return s;
        s.erase(p, (m + 3) - p); // keeps the last "/" of the match
    }
    std::printf("warning: path resolver couldn't finish.\n");
    return s;
}

std::string normalizePath(const std::string& path)
{
    const bool network = path.size() >= 2 && (path[0] == '/' || path[0] == '\\') &&
                         (path[1] == '/' || path[1] == '\\');
    std::string s;
    s.reserve(path.size());
    for (char c : path) {
        if (c == '\\') c = '/';
        if (c == '/' && !s.empty() && s.back() == '/') continue;
        s.push_back(c);
    }
    if (network) s.insert(s.begin(), '/');
    return s;
}

std::string folderOf(const std::string& path)
{
    const std::string s = normalizePath(path);
    const size_t slash = s.find_last_of('/');
    return slash == std::string::npos ? std::string() : s.substr(0, slash);
}

std::string fileStem(const std::string& path)
{
    const size_t slash = path.find_last_of("/\\");
    const std::string name = slash == std::string::npos ? path : path.substr(slash + 1);
    return name.substr(0, name.find('.'));
}

bool replaceHashes(std::string& path, int frame)
{
    for (int width = 5; width >= 2; --width) {
        const std::string hashes(size_t(width), '#');
        if (path.find(hashes) != std::string::npos) {
            replaceAll(path, hashes, frameDigits(frame, width));
            return true;
        }
    }
    return false;
}

std::string checkSequence(const std::string& file)
{
    const size_t slash = file.find_last_of("/\\");
    const size_t nameStart = slash == std::string::npos ? 0 : slash + 1;
    const size_t lastDot = file.rfind('.');
    if (lastDot == std::string::npos || lastDot < nameStart + 6) return std::string();
    const size_t digits = lastDot - 4;
    if (file[digits - 1] != '.') return std::string();
    for (size_t i = digits; i < lastDot; ++i)
        if (file[i] < '0' || file[i] > '9') return std::string();
    const int n = std::stoi(file.substr(digits, 4));
    for (int neighbour : {n + 1, n - 1}) {
        if (neighbour < 0) continue;
        std::string candidate = file;
        candidate.replace(digits, 4, frameDigits(neighbour, 4));
        if (candidate.size() == file.size() && canOpen(candidate)) {
            std::string seq = file;
            seq.replace(digits, 4, "####");
            return seq;
        }
    }
    return std::string();
}
