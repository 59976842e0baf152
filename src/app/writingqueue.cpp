// The writing thread: one body, then one image, per pass, each kind in its order; idle
// sleeps when there is nothing to do. File work happens outside the lock.
#include "app/writingqueue.h"

#include "app/globals.h"
#include "app/simstate.h"
#include "geo/body.h"
#include "io/fileio.h"
#include "particles/dumbparticlesystem.h"
#include "particles/granularparticlesystem.h"
#include "particles/sphparticlesystem.h"

#include <QMutexLocker>
#include <boost/filesystem.hpp>

#include <cstdio>
#include <exception>

FrameStamp currentFrameStamp()
{
    FrameStamp s;
    if (simState) {
        s.time = simState->time;
        s.frame = simState->frame;
        s.fps = int(simState->fps);
    }
    return s;
}

int writeBodyJob(const std::string& path, const std::shared_ptr<Body>& body, const FrameStamp& stamp)
{
    fileio::BinFrameInfo info;
    info.time = stamp.time;
    info.frame = stamp.frame;
    info.fps = stamp.fps;
    return fileio::write(path, body, &info);
}

WritingQueue::WritingQueue(QObject* parent) : QThread(parent) {}

WritingQueue::~WritingQueue()
{
    {
        QMutexLocker lock(&mutex);
        stop = true;
    }
    wait();
}

void WritingQueue::addBody(const std::string& path, const Body& body)
{
    const FrameStamp stamp = currentFrameStamp();
    QMutexLocker lock(&mutex);
    bodies.push_back(std::make_shared<Body>(body));
    bodyPaths.push_back(path);
    bodyStamps.push_back(stamp);
}

void WritingQueue::addSnapshot(const std::string& path, std::shared_ptr<Body> snapshot)
{
    const FrameStamp stamp = currentFrameStamp();
    QMutexLocker lock(&mutex);
    bodies.push_back(std::move(snapshot));
    bodyPaths.push_back(path);
    bodyStamps.push_back(stamp);
}

void WritingQueue::queuePointsExcept(const std::string& path, const Body& source,
                                     const std::vector<std::string>& excluded)
{
    const FrameStamp stamp = currentFrameStamp();
    QMutexLocker lock(&mutex);
    auto snapshot = std::make_shared<Body>();
    snapshot->points = source.points->copyPointsExcept(excluded);
    bodies.push_back(std::move(snapshot));
    bodyPaths.push_back(path);
    bodyStamps.push_back(stamp);
}

void WritingQueue::addSystemSnapshot(const std::string& path, const GranularParticleSystem& system,
                                     const std::vector<std::string>& excluded)
{
    queuePointsExcept(path, *system.body, excluded.empty() ? system.exportExclusions() : excluded);
}

void WritingQueue::addSystemSnapshot(const std::string& path, const DumbParticleSystem& system,
                                     const std::vector<std::string>& excluded)
{
    queuePointsExcept(path, *system.body, excluded.empty() ? system.exportExcludedChannels : excluded);
}

void WritingQueue::addSystemSnapshot(const std::string& path, const SimpleSPHParticleSystem& system,
                                     const std::vector<std::string>& excluded)
{
    queuePointsExcept(path, *system.body, excluded.empty() ? system.exportExclusions() : excluded);
}

void WritingQueue::addImage(const std::string& path, ImageBuffer image)
{
    for (size_t i = 3; i < image.rgba.size(); i += 4) image.rgba[i] = 255;
    QMutexLocker lock(&mutex);
    images.push_back(std::move(image));
    imagePaths.push_back(path);
}

bool WritingQueue::isEmpty()
{
    QMutexLocker lock(&mutex);
    return bodies.empty() && images.empty();
}

bool WritingQueue::isIdle()
{
    QMutexLocker lock(&mutex);
    return bodies.empty() && images.empty() && inFlight == 0;
}

bool WritingQueue::takeBody(std::string& path, std::shared_ptr<Body>& body, FrameStamp& stamp)
{
    if (bodies.empty()) return false;
    body = std::move(bodies.front());
    path = std::move(bodyPaths.front());
    stamp = bodyStamps.front();
    bodies.pop_front();
    bodyPaths.pop_front();
    bodyStamps.pop_front();
    ++inFlight;
    return true;
}

bool WritingQueue::takeImage(std::string& path, ImageBuffer& image)
{
    if (images.empty()) return false;
    image = std::move(images.front());
    path = std::move(imagePaths.front());
    images.pop_front();
    imagePaths.pop_front();
    ++inFlight;
    return true;
}

void WritingQueue::finishJob(const std::string& path, bool ok, size_t points)
{
    if (onJobDone) onJobDone(path, ok);
    QMutexLocker lock(&mutex);
    --inFlight;
    if (ok) {
        ++filesWritten;
        pointsWritten += long(points);
    }
}

bool WritingQueue::writeImageJob(const std::string& path, const ImageBuffer& image)
{
    for (int attempt = 0; attempt < 5; ++attempt) {
        try {
            const size_t slash = path.find_last_of("/\\");
            if (slash != std::string::npos && slash > 0) {
                const std::string folder = path.substr(0, slash);
                if (boost::filesystem::create_directories(folder))
                    std::printf("created dir: %s\n", folder.c_str());
            }
            std::string error;
            if (writePng(path, image, &error) == 0) return true;
            std::fprintf(stderr, "\nimage write error happened. retrying...\n");
        } catch (const std::exception& e) {
            std::fprintf(stderr, "\nimage write error: %s\n", e.what());
        } catch (const std::string& s) {
            std::fprintf(stderr, "\nimage write error: %s\n", s.c_str());
        } catch (...) {
            std::fprintf(stderr, "\nimage write error. \n");
        }
        std::printf("%s\n", path.c_str());
        std::fflush(stdout);
        if (attempt < 4) QThread::msleep(imageRetryDelayMs);
    }
    return false;
}

void WritingQueue::sleepIdle()
{
    // Sleep in slices so a stop or new work is seen soon.
    for (unsigned long slept = 0; slept < idleSleepMs; slept += 50) {
        QThread::msleep(50);
        QMutexLocker lock(&mutex);
        if (stop || !bodies.empty() || !images.empty()) return;
    }
}

int WritingQueue::flush()
{
    int failures = 0;
    for (;;) {
        std::string path;
        std::shared_ptr<Body> body;
        FrameStamp stamp;
        ImageBuffer image;
        bool haveBody, haveImage;
        {
            QMutexLocker lock(&mutex);
            haveBody = takeBody(path, body, stamp);
        }
        if (haveBody) {
            const bool ok = writeBodyJob(path, body, stamp) == 0;
            failures += ok ? 0 : 1;
            finishJob(path, ok, body->points->size());
        }
        {
            QMutexLocker lock(&mutex);
            haveImage = takeImage(path, image);
        }
        if (haveImage) {
            const bool ok = writeImageJob(path, image);
            failures += ok ? 0 : 1;
            finishJob(path, ok);
        }
        if (!haveBody && !haveImage) return failures;
    }
}

void WritingQueue::run()
{
    for (;;) {
        std::string path;
        std::shared_ptr<Body> body;
        FrameStamp stamp;
        ImageBuffer image;
        {
            QMutexLocker lock(&mutex);
            if (stop) return;
            if (bodies.empty() && images.empty()) {
                lock.unlock();
                sleepIdle();
                continue;
            }
            if (takeBody(path, body, stamp)) {
                lock.unlock();
                QThread::msleep(bodyDelayMs);
                const bool ok = writeBodyJob(path, body, stamp) == 0;
                const size_t points = body->points->size();
                body.reset();
                finishJob(path, ok, points);
            }
        }
        bool haveImage;
        {
            QMutexLocker lock(&mutex);
            haveImage = takeImage(path, image);
        }
        if (haveImage) {
            QThread::msleep(imageDelayMs);
            finishJob(path, writeImageJob(path, image));
        }
    }
}
