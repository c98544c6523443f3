#pragma once

#include <QDeadlineTimer>

class QThread;

// Ending the program's worker threads at quit without waiting without limit.
namespace WorkerThreads {

// Asks `thread` to stop (this also ends a network wait inside it, which runs a local event
// loop, and a wait that checks QThread::isInterruptionRequested) and waits for it until
// `deadline`. True when it has ended. A thread still running then is let go, since
// destroying a running QThread ends the process: it loses its parent and its connections,
// deletes itself once it ends, and is counted.
bool stop(QThread* thread, QDeadlineTimer deadline);

// True once a thread has been let go: the process must then end without running the static
// destructors of the libraries that thread may still be using (see main).
bool anyLeftRunning();

} // namespace WorkerThreads
