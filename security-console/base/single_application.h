#pragma once

#include "shared_segment.h"

#include <QApplication>

class QTimer;

// One instance per user: the first process creates the 20-byte segment "zorvikdashboard"
// (in the user's own run-time directory) and polls it every 100 ms for a command ("raise"
// or "exit") written by a later start.
class SingleApplication : public QApplication
{
    Q_OBJECT
public:
    static const char* const raise_command;
    static const char* const close_command;
    // constexpr (implicitly inline): std::min takes it by reference, which needs a definition.
    static constexpr int segmentSize = 20;

    SingleApplication(int& argc, char** argv);
    ~SingleApplication() override;

    QString memoryName() const;
    bool isAppRunning();
    void sendCommand(const char* command);
    int closeApplication();
    void detach();

signals:
    void raiseApp();

public slots:
    void readCommand();

private:
    SharedSegment sharedMemory;
    QTimer* read_timer = nullptr;
};
