// WritingQueue: the one background thread that writes caches and images so that the
// solver never waits for a disk. This is the idle form of the queue: nothing is queued
// yet, and the exit of a run asks `isIdle` so it never leaves while a file is open.
#pragma once

#include <QMutex>
#include <QThread>

class WritingQueue : public QThread {
    Q_OBJECT
public:
    explicit WritingQueue(QObject* parent = nullptr);
    ~WritingQueue() override;

    QMutex mutex;
    bool stop = false;

    // No job is waiting. A job the thread has taken out and is still writing doesn't count.
    bool isEmpty();
    // No job is waiting and none is being written: what an exit waits for.
    bool isIdle();

protected:
    void run() override;
};
