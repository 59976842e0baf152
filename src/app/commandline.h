// The command line: Boost.Program_options over the options of the qorva executable.
// Parsing is separate from acting on the options, so tests can parse without a run.
#pragma once

#include <optional>
#include <string>
#include <vector>

struct CommandLine {
    bool help = false;
    bool version = false;
    bool sim = false;
    bool writeImages = false;
    bool headless = false;
    std::optional<int> startFrame;
    std::optional<int> endFrame;
    std::optional<int> numThreads;
    std::optional<int> cudaDevice;
    std::optional<std::string> cachePath;
    std::optional<std::string> imagePath;
    std::optional<bool> writeInBackground;
    std::vector<std::string> inputFiles;
    std::string helpText; // the "Allowed options" description, for --help
};

// Parses argv. On a parse error answers false with the error's text in `error`.
bool parseCommandLine(int argc, const char* const* argv, CommandLine& out, std::string& error);
