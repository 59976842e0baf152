// Start-up, headless main loop and shutdown.
#include "app/application.h"

#include "app/commandline.h"
#include "app/globals.h"
#include "app/globalsettings.h"
#include "app/simstate.h"
#include "app/simulation.h"
#include "app/solvermainloop.h"
#include "app/writingqueue.h"
#include "graph/nodemaster.h"
#include "graph/basenode.h"
#include "particles/cudahost.h"

#include <tinyxml2.h>

#include <QDir>
#include <QMutexLocker>
#include <QSettings>
#include <QThread>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>

namespace {
void flushOut() { std::fflush(stdout); }
}

int defaultThreadCount()
{
    return std::max(1, int(std::thread::hardware_concurrency()));
}

void startWritingQueue()
{
    writingQueue = new WritingQueue();
    writingQueue->start(QThread::InheritPriority);
    writingQueue->setPriority(QThread::HighPriority);
}

void runCudaCheck()
{
    std::printf("CUDA version\n\n");
    flushOut();
    qorvaCudaDevId = cudaCheckDevice(qorvaCudaDevId);
    if (qorvaCudaDevId == -2) {
        std::printf("exiting...\n");
        flushOut();
        std::exit(1);
    }
    bool available = false;
    if (qorvaCudaDevId >= 0) {
        std::printf("running cuda test... [%d]\n", qorvaCudaDevId);
        flushOut();
        try {
            available = cudaSelfTest(qorvaCudaDevId);
        } catch (...) {
            available = false;
        }
    }
    simState->cudaAvailable = available;
    std::printf(available ? "CUDA OK\n\n" : "CUDA off.\n\n");
    flushOut();
}

void createSceneRecords()
{
    simulation = new Simulation();
    simulation->sceneExtension = "qrv";
    simulation->programName = "Qorva";
    nodeMaster = new NodeMaster();
    simulation->nodeMaster = nodeMaster;
    nodeMaster->simulation = simulation;
    GlobalSettings* settings = simulation->createGlobalSettings();
    simulation->selection.clear();
    simulation->selection.push_back(SelectionEntry{kTypeGlobalSettings, settings->id, settings->name});
    solverThread = new SolverMainLoop();
}

int openScene(const std::string& path)
{
    if (simulation->loadScene(path) != 0) return -1;
    std::printf("ok.\n");
    // the graph stands beside the classic objects in the same file
    tinyxml2::XMLDocument graph;
    std::vector<BaseNode*> created;
    graph.Parse(simulation->keptGraphXml.c_str());
    if (nodeMaster->loadGraph(path, created, false, &graph) != 0) return 0;
    std::printf("ok.\n");
    return 0;
}

void openSceneFromCommandLine(const CommandLine& cl)
{
    if (cl.inputFiles.empty()) return;
    const std::string& name = cl.inputFiles.front();
    const std::string joined = QDir::currentPath().toStdString() + "/" + name;
    const std::string path = std::ifstream(joined).good() ? joined : name;
    std::printf("opening %s...\n", path.c_str());
    flushOut();
    if (openScene(path) < 0) {
        std::printf("error opening scene file.\n");
    } else {
        std::printf("ok\n");
    }
    flushOut();
}

void applyOverrides(const CommandLine& cl)
{
    SimState& s = *simState;
    GlobalSettings* settings = simulation->globalSettings;
    if (cl.startFrame) {
        settings->setIntRow("startFrame", *cl.startFrame);
        s.frame = *cl.startFrame;
        std::printf("Startframe was set to %d.\n", *cl.startFrame);
    }
    if (cl.endFrame) {
        settings->setIntRow("endFrame", *cl.endFrame);
        std::printf("Endframe was set to %d.\n", *cl.endFrame);
    }
    if (cl.numThreads) {
        s.numThreads = std::max(1, *cl.numThreads);
        std::printf("Thread count was set to %d.\n", *cl.numThreads);
    }
    if (cl.cachePath) {
        std::printf("Overriding cache path: %s\n", cl.cachePath->c_str());
        settings->fallbackPathCaches = *cl.cachePath;
        if (Parameter* row = settings->params.get("fallbackPathCaches")) row->text = *cl.cachePath;
    }
    if (cl.imagePath) {
        std::printf("Overriding image path: %s\n", cl.imagePath->c_str());
        settings->fallbackPathImages = *cl.imagePath;
        if (Parameter* row = settings->params.get("fallbackPathImages")) row->text = *cl.imagePath;
    }
    if (cl.writeInBackground) {
        s.writeInBackground = *cl.writeInBackground;
        std::printf(s.writeInBackground ? "Enabling writing in background.\n" : "Disabling writing in background.\n");
    }
    if (cl.sim) {
        std::printf("Starting sim.\n");
        s.writeCaches = true;
        s.exitWhenFinished = true;
        s.play();
    }
    flushOut();
}

void postLoad()
{
    SimState& s = *simState;
    const std::string& scene = simulation->scenePath;
    if (!scene.empty()) {
        QSettings user("Qorva", "Qorva");
        const size_t slash = scene.find_last_of("/\\");
        user.setValue("openScenePath", QString::fromStdString(slash == std::string::npos ? "" : scene.substr(0, slash)));
        user.setValue("saveScenePath", QString::fromStdString(scene));
    }
    s.frame = s.startFrame;
    s.frameF = float(s.frame);
    s.time = s.frameF / s.fps;
    s.viewportRedraw = true;
    // reset as SimState::reset does, without waiting for a solver that hasn't started
    {
        QMutexLocker lock(&vboMutex);
        simulation->resetAll();
        nodeMaster->resetAll();
    }
    solverThread->updateObjects();
}

namespace {

// One line per solved frame for long headless runs: where the run stands and how long
// it has left, at the pace of the frames so far.
void printProgress(int frame)
{
    const SimState& s = *simState;
    const int total = std::max(1, s.endFrame - s.startFrame + 1);
    const int done = std::max(1, frame - s.startFrame + 1);
    const double perFrame = s.elapsedSeconds / done;
    const long left = long(perFrame * double(std::max(0, total - done)) + 0.5);
    std::printf("progress: frame %d of %d (%d/%d) | %zu particles | %.3f s/frame | %ldm %02lds left\n", frame,
                s.endFrame, done, total, simulation->particleCount(), perFrame, left / 60, left % 60);
}

} // namespace

void startSolver()
{
    if (simState->headless) solverThread->onFrameSolved = printProgress;
    solverThread->start(QThread::InheritPriority);
    std::printf("\nready.\n\n");
    flushOut();
}

void headlessMainLoop()
{
    for (;;) {
        QThread::msleep(1000);
        if (simState->simFinished && simState->exitWhenFinished && writingQueue->isIdle()) shutdown(true);
    }
}

void shutdown(bool printMessages)
{
    if (printMessages && simState->writeCaches && simState->writeInBackground) {
        QMutexLocker lock(&writingQueue->mutex);
        std::printf("caches written in the background: %ld files, %ld particles in all.\n",
                    writingQueue->filesWritten, writingQueue->pointsWritten);
    }
    if (printMessages) std::printf("shutting down... ");
    flushOut();
    solverThread->quit();
    simState->quitRequested = true;
    solverThread->wait();
    if (printMessages) std::printf("ok.\n");
    flushOut();
    std::exit(0);
}
