#include "proxy_sim.h"

#include "services_sim.h"
#include "test_support.h"

#include <QElapsedTimer>
#include <QHostAddress>
#include <QNetworkProxy>
#include <QStandardPaths>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

bool ProxySim::start(const ServicesSim& services, int timeoutMs)
{
    return start(services.benchName(), services.httpPort(), timeoutMs);
}

bool ProxySim::start(const QString& forwardHost, quint16 upstreamPort, int timeoutMs)
{
    // The free port is only known to be free a moment ago: try again if tinyproxy lost it.
    // Every failed attempt is kept in the error, so a failure says what each one saw.
    QString failures;
    for (int attempt = 1; attempt <= 3; ++attempt) {
        if (startOnce(forwardHost, upstreamPort, timeoutMs))
            return true;
        failures += QString("[attempt %1] %2\n").arg(attempt).arg(error);
    }
    error = failures;
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
    QTcpServer probe; // a free port
    probe.setProxy(QNetworkProxy::NoProxy);
    listenPort = probe.listen(QHostAddress::LocalHost, 0) ? probe.serverPort() : 0;
    probe.close();
    QString config = QString("Port %1\nListen 127.0.0.1\nTimeout 120\nLogFile \"%2\"\nLogLevel Connect\n"
                             "PidFile \"%3/tinyproxy.pid\"\nMaxClients 50\nAllow 127.0.0.1\n")
                         .arg(listenPort)
                         .arg(logFile(), workDir->path());
    if (!forwardHost.isEmpty())
        config += QString("Upstream http 127.0.0.1:%1 \"%2\"\n").arg(upstreamPort).arg(forwardHost);
    const QString configFile = workDir->path() + "/tinyproxy.conf";
    if (!workDir->isValid() || listenPort == 0 || !writeFile(configFile, config.toUtf8())) {
        error = "cannot prepare a directory, a port and a configuration for tinyproxy";
        return false;
    }
    process.setProcessChannelMode(QProcess::MergedChannels);
    process.setStandardOutputFile(workDir->path() + "/tinyproxy.out");
    QElapsedTimer clock;
    clock.start();
    process.start(program, {"-d", "-c", configFile});
    // Ready when it accepts connections. QProcess says Running only once it has handled the
    // child's start, which tinyproxy can beat to its first connection: wait for that first.
    QString socketError;
    const bool ready = process.waitForStarted(timeoutMs) &&
                       QTest::qWaitFor(
                           [&] {
                               QTcpSocket socket;
                               socket.setProxy(QNetworkProxy::NoProxy);
                               socket.connectToHost(QHostAddress::LocalHost, listenPort);
                               if (process.state() != QProcess::Running || socket.waitForConnected(500))
                                   return true;
                               socketError = socket.errorString();
                               return false;
                           },
                           timeoutMs);
    if (ready && process.state() == QProcess::Running)
        return true;
    const QString outcome =
        process.state() == QProcess::Running
            ? QString("still not accepting on port %1 (%2)").arg(listenPort).arg(socketError)
        : process.state() == QProcess::Starting || process.error() == QProcess::FailedToStart
            ? "not started: " + process.errorString()
        : process.exitStatus() == QProcess::CrashExit ? "crashed: " + process.errorString()
                                                        : QString("exited with code %1").arg(process.exitCode());
    error = QString("tinyproxy did not start: %1 after %2 ms; its output: %3; its log: %4")
                .arg(outcome)
                .arg(clock.elapsed())
                .arg(QString::fromUtf8(readFile(workDir->path() + "/tinyproxy.out")), readLog());
    stop();
    return false;
}

void ProxySim::stop()
{
    stopProcess(process);
}

QString ProxySim::readLog() const
{
    return QString::fromUtf8(readFile(logFile()));
}

bool ProxySim::waitForLog(const QString& text, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return readLog().contains(text); }, timeoutMs);
}
