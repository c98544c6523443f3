#include "bench.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QProcess>
#include <QtGlobal>

namespace {

int liveBenches = 0;

// One directory per test process, short enough for a socket path.
QString processBenchDir()
{
    static const QString path =
        QStringLiteral("%1/zorvik-bench-%2")
            .arg(QFileInfo(QStringLiteral("/tmp")).isWritable() ? QStringLiteral("/tmp") : QDir::tempPath())
            .arg(QCoreApplication::applicationPid());
    return path;
}

QString scriptPath()
{
    return QStringLiteral(ZORVIK_SOURCE_DIR "/testbed/bench");
}

} // namespace

Bench::Bench() : dir(processBenchDir())
{
    if (liveBenches++ > 0)
        qWarning("Bench: only one bench may run per test process at a time");
}

Bench::~Bench()
{
    stop();
    QDir(dir).removeRecursively();
    --liveBenches;
}

QString Bench::simulatorPath()
{
    return QStringLiteral(ZORVIK_VANTREL_SIM);
}

bool Bench::run(const QStringList& args, QByteArray* output)
{
    QProcess p;
    p.setProgram(QStringLiteral("python3"));
    p.setArguments(QStringList{scriptPath(), QStringLiteral("--dir"), dir, QStringLiteral("--sim"), simulatorPath(),
                               QStringLiteral("--phone-driver"), QStringLiteral(ZORVIK_PHONE_DRIVER)} +
                   args);
    p.start();
    if (!p.waitForFinished(120000)) {
        p.kill();
        p.waitForFinished();
        error = QStringLiteral("bench %1 did not finish").arg(args.value(0));
        return false;
    }
    if (p.exitStatus() != QProcess::NormalExit || p.exitCode() != 0) {
        error = QString::fromUtf8(p.readAllStandardError()).trimmed();
        if (error.isEmpty())
            error = QStringLiteral("bench %1 failed (exit %2)").arg(args.value(0)).arg(p.exitCode());
        return false;
    }
    error.clear();
    if (output)
        *output = p.readAllStandardOutput();
    return true;
}

bool Bench::readState()
{
    QFile f(dir + QStringLiteral("/state.json"));
    if (!f.open(QIODevice::ReadOnly)) {
        error = QStringLiteral("no bench state in %1").arg(dir);
        return false;
    }
    const QJsonObject state = QJsonDocument::fromJson(f.readAll()).object();
    socket = state.value(QStringLiteral("socket")).toString();
    readers.clear();
    for (const QJsonValue& slot : state.value(QStringLiteral("slots")).toArray())
        readers.append(slot.toObject().value(QStringLiteral("name")).toString());
    return !socket.isEmpty();
}

bool Bench::start(const QStringList& options)
{
    if (running && !stop())
        return false;
    QStringList args{QStringLiteral("start"), QStringLiteral("--owner-pid"),
                     QString::number(QCoreApplication::applicationPid())};
    if (!run(args + options) || !readState())
        return false;
    running = true;
    // This process's PC/SC calls (the code under test) reach the bench's pcscd.
    qputenv("PCSCLITE_CSOCK_NAME", socket.toLocal8Bit());
    return true;
}

bool Bench::stop()
{
    if (!running)
        return true;
    running = false;
    return run({QStringLiteral("stop")});
}

bool Bench::insert(int reader, const QStringList& cardOptions)
{
    return run(QStringList{QStringLiteral("insert"), QStringLiteral("--reader"), QString::number(reader)} +
               cardOptions);
}

bool Bench::remove(int reader)
{
    return run({QStringLiteral("remove"), QStringLiteral("--reader"), QString::number(reader)});
}

bool Bench::removeAll()
{
    return run({QStringLiteral("remove"), QStringLiteral("--all")});
}

bool Bench::phone(const QStringList& args)
{
    return run(QStringList{QStringLiteral("phone")} + args);
}

QJsonObject Bench::phoneState()
{
    QByteArray out;
    if (!run({QStringLiteral("phone"), QStringLiteral("state")}, &out))
        return {};
    return QJsonDocument::fromJson(out).object();
}

bool Bench::stopPcscd()
{
    return run({QStringLiteral("pcscd-stop")});
}

bool Bench::startPcscd()
{
    return run({QStringLiteral("pcscd-start")});
}

QProcessEnvironment Bench::environment(QProcessEnvironment base) const
{
    base.insert(QStringLiteral("PCSCLITE_CSOCK_NAME"), socket);
    return base;
}
