// Path tokens, cache paths and file sequences. A path row holds tokens such as
// "$SCENEFOLDER" or "$F" that are replaced when it is evaluated, so one text serves every
// frame, scene and machine.
#pragma once

#include <string>

class Parameter;

// Tokens of a node's or object's parameter, at the frame the parameter is evaluated at.
std::string resolveTokens(const Parameter& parameter, const std::string& text, float frame);
// Tokens of a cache path, at the current frame of the run.
std::string resolveCacheTokens(const std::string& path, const std::string& systemName,
                               const std::string& format);
// Full file path of a classic system's cache at the current frame.
std::string cachePath(const std::string& systemName, const std::string& format);
// A system's initial-state path: normalised, dots resolved, cache tokens replaced.
std::string initialStatePath(const std::string& text, const std::string& systemName,
                             const std::string& format);
// Removes "/../" steps: "/a/b/../c" -> "/a/c".
std::string resolveRelativeDots(const std::string& path);
// Collapses doubled separators; a path that started with "//" keeps it.
std::string normalizePath(const std::string& path);
// The path up to its last separator, after normalising.
std::string folderOf(const std::string& path);
// The file name without its folder, up to its first ".".
std::string fileStem(const std::string& path);
// Replaces "#####" to "##" (widest first) by the zero-padded frame; false if none was there.
bool replaceHashes(std::string& path, int frame);
// If `file` is one file of a name.NNNN.ext sequence with a neighbour on disk, the path with
// "####" in place of the frame digits; otherwise empty.
std::string checkSequence(const std::string& file);
// Replaces every occurrence of `from` in `s` by `to`.
void replaceAll(std::string& s, const std::string& from, const std::string& to);
