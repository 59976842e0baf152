// Runs a shipped scene headless through the executable, from a copy whose paths the test
// points into its own folder, and reads back the files it wrote.
#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>
#include <sys/wait.h>

inline std::string readTextFile(const std::filesystem::path& p)
{
    std::ifstream f(p, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(f), {});
}

// Copies scenes/<scene> into `dir` as scene.qrv with every `from` text replaced by its
// `to`, and runs it to `endFrame` with its classic caches under dir/caches. True when
// every replaced text was found and the run exited cleanly; the log is dir/log.
inline bool runSceneCopy(const std::string& scene, const std::vector<std::pair<std::string, std::string>>& edits,
                         const std::filesystem::path& dir, int endFrame)
{
    std::string text = readTextFile(std::string(QORVA_SOURCE_DIR) + "/scenes/" + scene);
    for (const auto& [from, to] : edits) {
        size_t at = text.find(from);
        if (at == std::string::npos) {
            ADD_FAILURE() << from << " not in " << scene;
            return false;
        }
        for (; at != std::string::npos; at = text.find(from, at + to.size())) text.replace(at, from.size(), to);
    }
    std::ofstream(dir / "scene.qrv") << text;
    const std::string cmd = "cd /tmp && env -u DISPLAY timeout 300 " + std::string(QORVA_BINARY) +
                            " --sim --headless --numthreads 2 --endframe " + std::to_string(endFrame) +
                            " --cachepath " + (dir / "caches").string() + " " + (dir / "scene.qrv").string() +
                            " > " + (dir / "log").string() + " 2>&1";
    const int status = std::system(cmd.c_str());
    EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << readTextFile(dir / "log");
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}
