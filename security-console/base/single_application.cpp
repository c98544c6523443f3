#include "single_application.h"

#include "log.h"
#include "process_helpers.h"

#include <QTimer>

#include <algorithm>
#include <cstring>

const char* const SingleApplication::raise_command = "raise";
const char* const SingleApplication::close_command = "exit";

namespace {
const char* const kMemoryName = "zorvikdashboard";
}

SingleApplication::SingleApplication(int& argc, char** argv) : QApplication(argc, argv), sharedMemory(kMemoryName) {}

SingleApplication::~SingleApplication() = default;

QString SingleApplication::memoryName() const
{
    return kMemoryName;
}

bool SingleApplication::isAppRunning()
{
    Log::print(Log::DEBUG, "Check for other instances");
    if (read_timer && sharedMemory.isAttached()) {
        // This process already owns the channel.
        Log::print(Log::DEBUG, tr("ERROR:read_timer already exisit"));
        return false;
    }
    // A client still attached from sendCommand() lets go first, so that the test below
    // sees whether the owner is still alive.
    if (sharedMemory.isAttached())
        sharedMemory.detach();
    if (sharedMemory.attach()) {
        // A segment left by a crashed process goes away with its last user, so only a
        // segment that a live process holds survives this detach and second attach.
        sharedMemory.detach();
        if (sharedMemory.attach()) {
            // A command the owner has not read yet (an "exit" on its way) is left alone.
            sharedMemory.lock();
            const bool idle = static_cast<const char*>(sharedMemory.constData())[0] == '\0';
            sharedMemory.unlock();
            if (idle)
                sendCommand(raise_command);
            sharedMemory.detach();
            return true;
        }
    }
    Log::print(Log::DEBUG, QString("shared memory segment '%1' not found").arg(memoryName()));
    if (!sharedMemory.create(segmentSize)) {
        Log::print(Log::DEBUG, tr("Unable to create shared memory segment."));
        return false;
    }
    if (!read_timer) {
        read_timer = new QTimer(this);
        connect(read_timer, &QTimer::timeout, this, &SingleApplication::readCommand);
        read_timer->start(100);
    } else {
        Log::print(Log::DEBUG, tr("ERROR:read_timer already exisit"));
    }
    return false;
}

void SingleApplication::sendCommand(const char* command)
{
    if (!sharedMemory.isAttached() && !sharedMemory.attach()) {
        Log::print(Log::DEBUG,
                   QString("Cannot send command '%1' shared memory segment '%2' not found").arg(command, memoryName()));
        return;
    }
    sharedMemory.lock();
    const size_t n = std::min(std::strlen(command), static_cast<size_t>(sharedMemory.size()));
    std::memcpy(sharedMemory.data(), command, n);
    sharedMemory.unlock();
}

void SingleApplication::readCommand()
{
    if (!sharedMemory.isAttached() && !sharedMemory.attach()) {
        Log::print(Log::DEBUG, QString("Cannot read command from shared memory segment '%1' ").arg(memoryName()));
        return;
    }
    char buffer[segmentSize + 1] = {};
    sharedMemory.lock();
    const int n = std::min(sharedMemory.size(), segmentSize);
    std::memcpy(buffer, sharedMemory.data(), static_cast<size_t>(n));
    std::memset(sharedMemory.data(), 0, static_cast<size_t>(n));
    sharedMemory.unlock();

    const QString command = QString::fromLatin1(buffer);
    if (command.isEmpty())
        return;
    Log::print(Log::DEBUG, QString("SingleApplication command '%1' ").arg(command));
    if (command == raise_command) {
        Log::print(Log::DEBUG, "Rise command");
        emit raiseApp();
    } else if (command == close_command) {
        Log::print(Log::DEBUG, "Close command");
        QCoreApplication::exit(0);
    }
}

int SingleApplication::closeApplication()
{
    sendCommand(close_command);
    for (int i = 0; i < 50; ++i) {
        if (!isAppRunning())
            return 0;
        MySleep(500);
    }
    return 1;
}

void SingleApplication::detach()
{
    sharedMemory.detach();
}
