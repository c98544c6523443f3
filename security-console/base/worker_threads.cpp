#include "worker_threads.h"

#include "log.h"

#include <QThread>

#include <atomic>

namespace {
std::atomic<int> leftRunning{0};
}

bool WorkerThreads::stop(QThread* thread, QDeadlineTimer deadline)
{
    thread->requestInterruption();
    thread->exit(0);
    if (thread->wait(deadline))
        return true;
    Log::print(Log::WARNING,
               QString("%1 did not stop in time; it is left to end on its own").arg(thread->metaObject()->className()));
    thread->disconnect();
    thread->setParent(nullptr);
    QObject::connect(thread, &QThread::finished, thread, &QObject::deleteLater);
    if (thread->isFinished())
        thread->deleteLater(); // ended meanwhile; a second deleteLater is harmless
    ++leftRunning;
    return false;
}

bool WorkerThreads::anyLeftRunning()
{
    return leftRunning > 0;
}
