#include "proxy_sim.h"

#include "services_sim.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QHostAddress>
#include <QNetworkProxy>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

namespace {

quint16 freePort()
{
    QTcpServer server;
    server.setProxy(QNetworkProxy::NoProxy);
    if (!server.listen(QHostAddress::LocalHost, 0))
        return 0;
    return server.serverPort();
}

} // namespace

ProxySim::ProxySim() = default;

ProxySim::~ProxySim()
{
    stop();
}

bool ProxySim::start(const ServicesSim& services, int timeoutMs)
{
    return start(services.benchName(), services.httpPort(), timeoutMs);
}

bool ProxySim::start(const QString& forwardHost, quint16 upstreamPort, int timeoutMs)
{
    // The free port is only known to be free a moment ago: try again if tinyproxy lost it.
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (startOnce(forwardHost, upstreamPort, timeoutMs))
            return true;
    }
    return false;
}

bool ProxySim::startOnce(const QString& forwardHost, quint16 upstreamPort, int timeoutMs)
{
    stop();
    const QString program = QStandardPaths::findExecutable("tinyproxy", {"/usr/bin", "/usr/sbin", "/usr/local/bin"});
    if (program.isEmpty()) {
        error = "tinyproxy is not installed (scripts/install-deps)";
        return false;
    }
    workDir = std::make_unique<QTemporaryDir>();
    listenPort = freePort();
    if (!workDir->isValid() || listenPort == 0) {
        error = "cannot prepare a directory and a port for tinyproxy";
        return false;
    }
    QByteArray config = "Port " + QByteArray::number(listenPort) +
                        "\n"
                        "Listen 127.0.0.1\n"
                        "Timeout 120\n"
                        "LogFile \"" +
                        logFile().toUtf8() +
                        "\"\n"
                        "LogLevel Connect\n"
                        "PidFile \"" +
                        workDir->path().toUtf8() +
                        "/tinyproxy.pid\"\n"
                        "MaxClients 50\n"
                        "Allow 127.0.0.1\n";
    if (!forwardHost.isEmpty())
        config += "Upstream http 127.0.0.1:" + QByteArray::number(upstreamPort) + " \"" + forwardHost.toUtf8() + "\"\n";
    QFile file(workDir->path() + "/tinyproxy.conf");
    if (!file.open(QIODevice::WriteOnly) || file.write(config) != config.size()) {
        error = "cannot write the tinyproxy configuration";
        return false;
    }
    file.close();

    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardOutputFile(workDir->path() + "/tinyproxy.out");
    process.start(program, {"-d", "-c", file.fileName()});
    if (!process.waitForStarted(timeoutMs)) {
        error = "cannot run tinyproxy: " + process.errorString();
        return false;
    }
    // Ready when it accepts connections.
    QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired() && process.state() == QProcess::Running) {
        QTcpSocket probe;
        probe.setProxy(QNetworkProxy::NoProxy);
        probe.connectToHost(QHostAddress::LocalHost, listenPort);
        if (probe.waitForConnected(500))
            return true;
        QTest::qWait(20);
    }
    QFile out(workDir->path() + "/tinyproxy.out");
    out.open(QIODevice::ReadOnly);
    error = "tinyproxy did not start: " + QString::fromUtf8(out.readAll()) + readLog();
    stop();
    return false;
}

void ProxySim::stop()
{
    if (process.state() != QProcess::NotRunning) {
        process.terminate();
        if (!process.waitForFinished(10000)) {
            process.kill();
            process.waitForFinished(5000);
        }
    }
}

QString ProxySim::logFile() const
{
    return workDir ? workDir->path() + "/tinyproxy.log" : QString();
}

QString ProxySim::readLog() const
{
    QFile file(logFile());
    if (!file.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(file.readAll());
}

bool ProxySim::waitForLog(const QString& text, int timeoutMs) const
{
    QDeadlineTimer deadline(timeoutMs);
    while (!readLog().contains(text)) {
        if (deadline.hasExpired())
            return false;
        QTest::qWait(20);
    }
    return true;
}
