#pragma once

#include <QProcess>
#include <QString>
#include <QTemporaryDir>

#include <memory>

class ServicesSim;

// A real HTTP proxy for one test: Debian's tinyproxy on a free 127.0.0.1 port with its own
// configuration and log file, so a test can see in the log which CONNECTs went through.
class ProxySim
{
public:
    ProxySim() = default;
    ~ProxySim() { stop(); }
    ProxySim(const ProxySim&) = delete;
    ProxySim& operator=(const ProxySim&) = delete;

    // Starts tinyproxy. Requests for `forwardHost` are handed on to the upstream proxy at
    // 127.0.0.1:`upstreamPort` (none when empty). False, with lastError(), on failure.
    bool start(const QString& forwardHost = QString(), quint16 upstreamPort = 0, int timeoutMs = 15000);
    // Starts tinyproxy so that the simulator's proxy-only name reaches the simulator.
    bool start(const ServicesSim& services, int timeoutMs = 15000);
    void stop();
    QString lastError() const { return error; }

    QString host() const { return "127.0.0.1"; }
    quint16 port() const { return listenPort; }
    QString logFile() const { return workDir ? workDir->path() + "/tinyproxy.log" : QString(); }
    QString readLog() const;
    // Waits until the log contains `text`.
    bool waitForLog(const QString& text, int timeoutMs = 10000) const;

private:
    bool startOnce(const QString& forwardHost, quint16 upstreamPort, int timeoutMs);

    std::unique_ptr<QTemporaryDir> workDir;
    QProcess process;
    quint16 listenPort = 0;
    QString error;
};
