// Entry point of the qorva executable: one program for the window and for headless runs.
// It brings the process-wide records to life in a fixed order, applies the command line,
// and then sits in the main loop of its mode until the run ends.
#include "app/application.h"
#include "app/commandline.h"
#include "app/globals.h"
#include "app/simstate.h"
#include "io/imagefile.h"
#include "ui/guimainloop.h"
#include "ui/mainwindow.h"
#include "ui/openglwidget.h"
#include "ui/theme.h"
#include "ui/uiglobals.h"

#include <QApplication>
#include <QImage>
#include <QImageReader>
#include <QOpenGLContext>
#include <QOpenGLFunctions>
#include <QSettings>
#include <QSurfaceFormat>
#include <QVector>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <sys/stat.h>
#include <unistd.h>

namespace {
// Qt wants a private runtime folder; a render node's batch shell often has none.
void ensureRuntimeDir()
{
    if (std::getenv("XDG_RUNTIME_DIR") != nullptr) return;
    const std::string dir = "/tmp/qorva-runtime-" + std::to_string(getuid());
    mkdir(dir.c_str(), 0700);
    setenv("XDG_RUNTIME_DIR", dir.c_str(), 1);
}

// Image formats the core doesn't read itself (JPEG, TIFF, BMP, ...) come through Qt.
bool readImageWithQt(const std::string& path, ImageRgba& out, std::string& error)
{
    QImageReader reader(QString::fromStdString(path));
    QImage image = reader.read();
    if (image.isNull()) {
        error = reader.errorString().toStdString();
        return false;
    }
    image = image.convertToFormat(QImage::Format_RGBA8888);
    out.width = image.width();
    out.height = image.height();
    out.rgba.resize(size_t(out.width) * size_t(out.height) * 4);
    for (int y = 0; y < out.height; ++y) {
        const uchar* row = image.constScanLine(y);
        float* dst = out.rgba.data() + size_t(y) * size_t(out.width) * 4;
        for (int k = 0; k < out.width * 4; ++k) dst[k] = float(row[k]) / 255.f;
    }
    return true;
}
} // namespace

int main(int argc, char** argv)
{
    std::setlocale(LC_ALL, "C");
    QCoreApplication::setAttribute(Qt::AA_EnableHighDpiScaling);
    QApplication::setEffectEnabled(Qt::UI_AnimateMenu, false);
    QApplication::setEffectEnabled(Qt::UI_FadeMenu, false);

    initVersion();
    std::printf("%s: hello\nbuilt on: %s\n\n", titleString.c_str(), QORVA_BUILD_DATE);
    std::fflush(stdout);

    startWritingQueue();

    CommandLine cl;
    std::string error;
    if (!parseCommandLine(argc, argv, cl, error)) {
        std::printf("%s", error.c_str());
        std::fflush(stdout);
        return 0;
    }
    if (cl.help) {
        std::printf("%s\n", cl.helpText.c_str());
        return 0;
    }
    if (cl.version) {
        std::printf("Qorva version: %s\n", versionString.c_str());
        return 0;
    }
    if (cl.cudaDevice) {
        qorvaCudaDevId = *cl.cudaDevice;
        std::printf("choosing cuda device %d\n", *cl.cudaDevice);
    }
    if (cl.headless) {
        std::printf("Enabling headless mode.\n");
        // A render node has no display: Qt's offscreen platform needs none.
        if (std::getenv("QT_QPA_PLATFORM") == nullptr) setenv("QT_QPA_PLATFORM", "offscreen", 1);
        ensureRuntimeDir();
    } else {
        QCoreApplication::setAttribute(Qt::AA_UseDesktopOpenGL);
    }
    std::fflush(stdout);

    QApplication app(argc, argv);
    std::setlocale(LC_ALL, "C");
    QCoreApplication::setOrganizationName("Qorva");
    QCoreApplication::setApplicationName("Qorva");
    QCoreApplication::setApplicationVersion(QString::fromStdString(versionString));
    setImageReaderHook(readImageWithQt);

    simState = new SimState();
    simState->headless = cl.headless;
    simState->numThreads = defaultThreadCount();
    installRoot = computeInstallRoot();
    if (!cl.headless) {
        applyTheme(app);
        QSettings prefs;
        simState->antialiasing = prefs.value("Prefs/antialiasing", true).toBool();
        QSurfaceFormat format;
        format.setVersion(2, 1);
        format.setDepthBufferSize(24);
        if (simState->antialiasing) format.setSamples(8);
        QSurfaceFormat::setDefaultFormat(format);
    }
    qRegisterMetaType<QVector<int>>("QVector<int>");
    if (cl.writeImages) {
        simState->writeImages = true;
        std::printf("Enabling playblast image writing.\n");
    }
    runCudaCheck();
    createSceneRecords();
    if (!cl.headless) {
        applyTheme(app);
        QFont font = QApplication::font();
        font.setPointSize(9);
        QApplication::setFont(font);
        new MainWindow(QString::fromStdString(titleString), "Qorva", QString::fromStdString(versionString),
                       nodeMaster);
        mainWindow->show();
        viewport->makeCurrent();
        if (QOpenGLContext* context = QOpenGLContext::currentContext()) {
            const auto* version = context->functions()->glGetString(GL_VERSION);
            std::printf("OpenGL version: %s\n", version ? reinterpret_cast<const char*>(version) : "unknown");
        }
        viewport->doneCurrent();
    }
    openSceneFromCommandLine(cl);
    std::printf("\n");
    applyOverrides(cl);
    postLoad();
    std::srand(1);
    if (mainWindow) mainWindow->afterLoad();
    startSolver();
    std::setlocale(LC_ALL, "C");
    if (cl.headless) headlessMainLoop();
    guiMainLoop(app);
    shutdown(false);
}
