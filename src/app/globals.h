// Process-wide records and locks, each created once at start-up and never replaced
// while the program runs. Pointers stay null until their step of the start-up order;
// tests create the records they need themselves.
#pragma once

#include <QMutex>
#include <string>

class SimState;
class Simulation;
class WritingQueue;
class SolverMainLoop;
class NodeMaster;

extern SimState* simState;
extern Simulation* simulation;
extern WritingQueue* writingQueue;
extern SolverMainLoop* solverThread;
extern NodeMaster* nodeMaster;

// Locks, always taken in this order when more than one is held.
extern QMutex vboMutex;    // classic systems' data and classic objects
extern QMutex graphMutex;  // node results shown in the viewport
extern QMutex objectMutex; // evaluation of object parameters

// Version and installation facts.
extern int versionMajor, versionMinor, versionPatch;
extern std::string versionString; // "0.6.0"
extern std::string titleString;   // "Qorva 0.6.0"
extern std::string installRoot;   // parent of the executable's folder
extern int qorvaCudaDevId;        // -1: let the program pick a device

// Parses the version strings and fills versionString and titleString.
void initVersion();
// Folder of the running executable (from /proc/self/exe), without a trailing "/".
std::string executableDir();
// Parent of `executableDir()`, or empty where it has none.
std::string computeInstallRoot();
