// WritingQueue: the one background thread that writes caches and images, in the order
// they came, so that simulating never waits for a disk. Producers hand in a full copy or
// a snapshot; the queue alone owns what it holds. A run's exit waits for `isIdle`, which
// unlike `isEmpty` also counts the job being written at that moment.
#pragma once

#include "io/pngfile.h"

#include <QMutex>
#include <QThread>

#include <deque>
#include <functional>
#include <memory>
#include <string>
#include <vector>

class Body;
class GranularParticleSystem;
class DumbParticleSystem;
class SimpleSPHParticleSystem;

// Run state at the moment a snapshot was queued; BIN headers carry it.
struct FrameStamp {
    float time = 0.f;
    int frame = 0;
    int fps = 24;
};

class WritingQueue : public QThread {
    Q_OBJECT
public:
    explicit WritingQueue(QObject* parent = nullptr);
    ~WritingQueue() override;

    QMutex mutex;
    std::deque<std::shared_ptr<Body>> bodies;
    std::deque<std::string> bodyPaths;
    std::deque<FrameStamp> bodyStamps;
    std::deque<ImageBuffer> images;
    std::deque<std::string> imagePaths;
    bool stop = false;

    // Queues a copy of `body`.
    void addBody(const std::string& path, const Body& body);
    // Queues a snapshot a producer has already made for the queue alone.
    void addSnapshot(const std::string& path, std::shared_ptr<Body> snapshot);
    // Queues the particles of a granular system without `excluded` channels (its cache
    // exclusions when empty).
    void addSystemSnapshot(const std::string& path, const GranularParticleSystem& system,
                           const std::vector<std::string>& excluded = {});
    void addSystemSnapshot(const std::string& path, const DumbParticleSystem& system,
                           const std::vector<std::string>& excluded = {});
    void addSystemSnapshot(const std::string& path, const SimpleSPHParticleSystem& system,
                           const std::vector<std::string>& excluded = {});
    // Forces every pixel opaque, then queues the image.
    void addImage(const std::string& path, ImageBuffer image);

    // Nothing is waiting. A job being written right now doesn't count.
    bool isEmpty();
    // Nothing is waiting and nothing is being written.
    bool isIdle();
    // Writes the jobs that are queued now in the calling thread (used when a run writes
    // without the background thread and by tests); answers how many failed.
    int flush();

    // Pause before each job, kept small so that tests and short runs don't wait long.
    unsigned long bodyDelayMs = 30;
    unsigned long imageDelayMs = 50;
    unsigned long idleSleepMs = 2000;
    unsigned long imageRetryDelayMs = 2000;
    // Files written so far and the points they held (bodies only); read them under `mutex`.
    long filesWritten = 0;
    long pointsWritten = 0;
    // Called on the writing thread after each job, with its path and whether it succeeded.
    std::function<void(const std::string& path, bool ok)> onJobDone;

protected:
    void run() override;

private:
    // Copies the points of `source` without `excluded` into a new queued body, under the lock.
    void queuePointsExcept(const std::string& path, const Body& source, const std::vector<std::string>& excluded);
    bool takeBody(std::string& path, std::shared_ptr<Body>& body, FrameStamp& stamp);
    bool takeImage(std::string& path, ImageBuffer& image);
    bool writeImageJob(const std::string& path, const ImageBuffer& image);
    void finishJob(const std::string& path, bool ok, size_t points = 0);
    void sleepIdle();
    int inFlight = 0; // guarded by mutex
};

// Writes one body the way the writing thread does (dispatch by extension, with retries).
int writeBodyJob(const std::string& path, const std::shared_ptr<Body>& body, const FrameStamp& stamp);
// The stamp of the run's current frame.
FrameStamp currentFrameStamp();
