// The writing thread's loop: idle until jobs arrive, polled in short slices so that a
// stop is seen at once.
#include "app/writingqueue.h"

#include <QMutexLocker>

WritingQueue::WritingQueue(QObject* parent) : QThread(parent) {}

WritingQueue::~WritingQueue()
{
    {
        QMutexLocker lock(&mutex);
        stop = true;
    }
    wait();
}

bool WritingQueue::isEmpty()
{
    QMutexLocker lock(&mutex);
    return true;
}

bool WritingQueue::isIdle()
{
    return isEmpty();
}

void WritingQueue::run()
{
    for (;;) {
        {
            QMutexLocker lock(&mutex);
            if (stop) return;
        }
        QThread::msleep(50);
    }
}
