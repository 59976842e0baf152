// Viewport drawing speed: frames per second for a granular system of 100k and 1M grains,
// each frame a full paint (grid, points, overlay) read back with grabFramebuffer.
#include "benchenv.h"

#include "app/solvermainloop.h"
#include "particles/granularparticlesystem.h"
#include "ui/guimainloop.h"
#include "ui/mainwindow.h"
#include "ui/openglwidget.h"

#include <QApplication>
#include <QElapsedTimer>
#include <QImage>
#include <QTimer>

#include <cmath>

namespace {

QApplication& application()
{
    static int argc = 1;
    static char name[] = "gl_viewport_bench";
    static char* argv[] = {name, nullptr};
    static QApplication app(argc, argv);
    return app;
}

// `count` grains in a cube of side 4 centred above the origin.
void fillSystem(size_t count)
{
    simulation->clear();
    GranularParticleSystem* g = simulation->createGranularSystem("sand");
    const int side = int(std::ceil(std::cbrt(double(count))));
    const float step = 4.f / float(side);
    size_t made = 0;
    for (int i = 0; i < side && made < count; ++i)
        for (int j = 0; j < side && made < count; ++j)
            for (int k = 0; k < side && made < count; ++k, ++made)
                g->addParticle(Vec4f(-2.f + step * i, step * j, -2.f + step * k), Vec4f());
}

void BM_DrawGrains(benchmark::State& state)
{
    application();
    ensureBenchRecords(true);
    fillSystem(size_t(state.range(0)));
    OpenGLWidget widget;
    widget.resize(1280, 720);
    widget.show();
    QCoreApplication::processEvents();
    widget.refreshBuffers(100);
    widget.frameAll();
    widget.grabFramebuffer(); // uploads the buffers once
    for (auto _ : state) {
        const QImage image = widget.grabFramebuffer();
        benchmark::DoNotOptimize(image.constBits());
    }
    state.counters["fps"] = benchmark::Counter(double(state.iterations()), benchmark::Counter::kIsRate);
    simulation->clear();
}

// How long the window goes without handling events while the demo scene simulates on the
// solver thread: a 5 ms timer notes the longest gap between its ticks over 24 frames.
void BM_WindowStallWhileSimulating(benchmark::State& state)
{
    QApplication& app = application();
    ensureBenchRecords(true);
    simState->headless = false;
    installRoot = QORVA_SOURCE_DIR;
    if (!solverThread) {
        solverThread = new SolverMainLoop();
        solverThread->start();
    }
    for (auto _ : state) {
        auto* window = new MainWindow("Qorva", "Qorva", "bench", nodeMaster);
        window->askBeforeDiscarding = false;
        window->resize(1280, 720);
        window->show();
        window->openSceneFile(QORVA_SOURCE_DIR "/scenes/sand_demo.qrv");
        const int lastFrame = simState->frame + 24;
        QElapsedTimer sinceTick;
        sinceTick.start();
        double worst = 0.0;
        QTimer tick;
        QObject::connect(&tick, &QTimer::timeout, [&] {
            worst = std::max(worst, double(sinceTick.nsecsElapsed()) / 1e6);
            sinceTick.restart();
            if (simState->frame >= lastFrame) window->hide();
        });
        tick.start(5);
        window->togglePlay();
        guiMainLoop(app);
        simState->pause();
        state.counters["max_stall_ms"] = worst;
        state.counters["frames"] = 24;
        delete window;
    }
}

} // namespace

BENCHMARK(BM_WindowStallWhileSimulating)->Iterations(1)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_DrawGrains)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
