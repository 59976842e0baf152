// The start-up steps of the qorva executable that need no window, in the order main()
// calls them, plus the headless main loop and the shutdown. main() itself owns the
// QApplication and the window.
#pragma once

#include <string>

struct CommandLine;

// Creates the writing queue and starts its thread at high priority.
void startWritingQueue();
// Device check and self test; fills qorvaCudaDevId and SimState::cudaAvailable. Ends the
// process with code 1 when a requested device cannot be initialised.
void runCudaCheck();
// Creates Simulation, the node master and GlobalSettings, selects GlobalSettings, and
// creates (without starting) the solver thread.
void createSceneRecords();
// Opens a scene file: 0 on success, -1 when it cannot be loaded.
int openScene(const std::string& path);
// The scene named on the command line, tried against the working directory first.
void openSceneFromCommandLine(const CommandLine& cl);
// The overrides of the command line, applied after the scene is open.
void applyOverrides(const CommandLine& cl);
// Runs once at start: remembers the scene, resets and updates everything at startFrame.
void postLoad();
// Starts the solver thread.
void startSolver();
// Sleeps a second at a time until a --sim run has finished and its files are written.
[[noreturn]] void headlessMainLoop();
// Stops the solver thread and exits with code 0.
[[noreturn]] void shutdown(bool printMessages);
// Worker threads when neither --numthreads nor the preferences say otherwise.
int defaultThreadCount();
