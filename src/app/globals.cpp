// Definitions of the process-wide records, locks and version facts.
#include "app/globals.h"

#include <QByteArray>
#include <cstdlib>
#include <unistd.h>

SimState* simState = nullptr;
Simulation* simulation = nullptr;
WritingQueue* writingQueue = nullptr;
SolverMainLoop* solverThread = nullptr;
NodeMaster* nodeMaster = nullptr;

QMutex vboMutex;
QMutex graphMutex;
QMutex objectMutex;

int versionMajor = 0, versionMinor = 0, versionPatch = 0;
std::string versionString;
std::string titleString;
std::string installRoot;
int qorvaCudaDevId = -1;

namespace {
const char* const kVersionMajor = "0";
const char* const kVersionMinor = "6";
const char* const kVersionPatch = "0";
const char* const kProgramName = "Qorva";
} // namespace

void initVersion()
{
    versionMajor = std::atoi(kVersionMajor);
    versionMinor = std::atoi(kVersionMinor);
    versionPatch = std::atoi(kVersionPatch);
    versionString = std::to_string(versionMajor) + "." + std::to_string(versionMinor) + "." +
                    std::to_string(versionPatch);
    titleString = std::string(kProgramName) + " " + versionString;
}

std::string executableDir()
{
    char buf[4096];
    const ssize_t n = readlink("/proc/self/exe", buf, sizeof(buf) - 1);
    if (n <= 0) return ".";
    std::string path(buf, size_t(n));
    const size_t slash = path.find_last_of('/');
    if (slash == std::string::npos) return ".";
    return slash == 0 ? std::string("/") : path.substr(0, slash);
}

std::string computeInstallRoot()
{
    std::string dir = executableDir();
    while (dir.size() > 1 && dir.back() == '/') dir.pop_back();
    const size_t slash = dir.find_last_of('/');
    if (slash == std::string::npos || dir == "/") return std::string();
    return slash == 0 ? std::string("/") : dir.substr(0, slash);
}
