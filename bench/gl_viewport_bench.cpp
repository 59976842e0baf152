// Viewport drawing speed: frames per second for a granular system of 100k and 1M grains,
// each frame a full paint (grid, points, overlay) read back with grabFramebuffer.
#include "benchenv.h"

#include "particles/granularparticlesystem.h"
#include "ui/openglwidget.h"

#include <QApplication>
#include <QImage>

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

} // namespace

BENCHMARK(BM_DrawGrains)->Arg(100000)->Arg(1000000)->Unit(benchmark::kMillisecond)->UseRealTime();
