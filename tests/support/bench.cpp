#include "bench.h"

#include "test_support.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>

namespace {

int liveBenches = 0;

} // namespace

// One directory per test process, short enough for a socket path.
Bench::Bench()
    : dir(QString("%1/zorvik-bench-%2")
              .arg(QFileInfo("/tmp").isWritable() ? "/tmp" : QDir::tempPath())
              .arg(QCoreApplication::applicationPid()))
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

bool Bench::run(const QStringList& args, QByteArray* output)
{
    QByteArray out, errors;
    const int rc = runProgram("python3",
                              QStringList{ZORVIK_SOURCE_DIR "/testbed/bench", "--dir", dir, "--sim", ZORVIK_VANTREL_SIM,
                                          "--phone-driver", ZORVIK_PHONE_DRIVER} +
                                  args,
                              &out, QProcessEnvironment::systemEnvironment(), &errors);
    error = rc == 0 ? QString() : QString::fromUtf8(errors).trimmed();
    if (rc != 0 && error.isEmpty())
        error = QString("bench %1 failed (exit %2)").arg(args.value(0)).arg(rc);
    if (output)
        *output = out;
    return rc == 0;
}

bool Bench::readState()
{
    const QJsonObject state = QJsonDocument::fromJson(readFile(dir + "/state.json")).object();
    socket = state.value("socket").toString();
    readers.clear();
    for (const QJsonValue& slot : state.value("slots").toArray())
        readers.append(slot.toObject().value("name").toString());
    error = socket.isEmpty() ? "no bench state in " + dir : QString();
    return !socket.isEmpty();
}

bool Bench::start(const QStringList& options)
{
    if (running && !stop())
        return false;
    if (!run(QStringList{"start", "--owner-pid", QString::number(QCoreApplication::applicationPid())} + options) ||
        !readState())
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
    return run({"stop"});
}

QJsonObject Bench::phoneState()
{
    QByteArray out;
    return run({"phone", "state"}, &out) ? QJsonDocument::fromJson(out).object() : QJsonObject();
}

QProcessEnvironment Bench::environment(QProcessEnvironment base) const
{
    base.insert("PCSCLITE_CSOCK_NAME", socket);
    return base;
}
