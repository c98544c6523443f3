#include "process_helpers.h"

#include "log.h"
#include "modal_seam.h"
#include "os_platform.h"

#include <QCoreApplication>
#include <QDateTime>
#include <QFileInfo>
#include <QGridLayout>
#include <QMessageBox>
#include <QProcess>
#include <QProcessEnvironment>
#include <QSpacerItem>
#include <QSslConfiguration>

#include <ctime>

namespace {

const char* const kProductName = "Zorvik Dashboard";

// Prepares the process and returns the program as it will be logged (quoted when needed).
QString prepare(QProcess& process, const QString& program, const QString& args, bool noCards)
{
    if (noCards) {
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert("ZORVIK_CRYPTOKI_NO_CARDS", "1");
        env.insert("ZORVIK_CRYPTOKI_NO_GUI", "1");
        process.setProcessEnvironment(env);
    }
    QString quoted = program.trimmed();
    if (quoted.contains(' ') && !quoted.startsWith('"'))
        quoted = "\"" + quoted + "\"";
    QStringList parts = QProcess::splitCommand(quoted + " " + args.trimmed());
    if (!parts.isEmpty()) {
        const QString exe = parts.takeFirst();
        process.setProgram(exe);
        process.setArguments(parts);
    }
    return quoted;
}

} // namespace

bool isSessionActive()
{
    return true;
}

bool checkFile(const QString& path)
{
    const QFileInfo info(path.trimmed());
    return info.exists() && info.isFile() && info.isReadable();
}

bool checkDir(const QString& path)
{
    Log::print(Log::DEBUG, "checking path:" + path);
    const QFileInfo info(path.trimmed());
    const bool exists = info.exists();
    const bool isDir = info.isDir();
    if (!exists)
        Log::print(Log::DEBUG, "not exist");
    if (!isDir)
        Log::print(Log::DEBUG, "not dir");
    return exists && isDir;
}

QString hexlify(const QByteArray& data)
{
    const QByteArray hex = data.toHex().toUpper();
    QStringList pairs;
    pairs.reserve(hex.size() / 2);
    for (int i = 0; i + 1 < hex.size(); i += 2)
        pairs << QString::fromLatin1(hex.mid(i, 2));
    return pairs.join(':');
}

void MySleep(int ms)
{
    if (ms <= 0)
        return;
    struct timespec ts;
    ts.tv_sec = ms / 1000;
    ts.tv_nsec = static_cast<long>(ms % 1000) * 1000000L;
    while (nanosleep(&ts, &ts) != 0) {
    }
}

QString getEnvVar(QString name)
{
    const QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    if (!env.contains(name))
        return QString();
    // A variable set to nothing is an empty text, not a null one: null means "not set".
    QString value = env.value(name);
    if (value.isNull())
        value = QLatin1String("");
    Log::print(Log::DEBUG, QString("getEnvVar %1=%2").arg(name, value));
    return value;
}

QString getPlatform()
{
    return OsPlatform::componentPlatform();
}

int errorBox(QWidget* parent, QString text)
{
    QMessageBox box(parent);
    box.setWindowTitle(QCoreApplication::translate("Application messages", "%1 message").arg(kProductName));
    box.setText(text);
    box.setIcon(QMessageBox::Critical);
    // Keeps the box at least 220 pixels wide.
    auto* spacer = new QSpacerItem(220, 0, QSizePolicy::Minimum, QSizePolicy::Expanding);
    if (auto* grid = qobject_cast<QGridLayout*>(box.layout()))
        grid->addItem(spacer, grid->rowCount(), 0, 1, grid->columnCount());
    else
        delete spacer;
    return ModalSeam::exec(&box);
}

bool isCertValid(QSslCertificate cert)
{
    const QDateTime now = QDateTime::currentDateTime();
    if (now < cert.effectiveDate() || cert.expiryDate() < now)
        return false;
    return !cert.isBlacklisted();
}

int executeCommand(const QString& program, const QString& args, bool noCards)
{
    QProcess process;
    const QString quoted = prepare(process, program, args, noCards);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardOutputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(QIODevice::ReadWrite);
    Log::print(Log::DEBUG, QString("executeCommand %1 %2").arg(quoted, args.trimmed()));
    if (!process.waitForFinished(-1) || process.exitStatus() != QProcess::NormalExit)
        return 0;
    Log::print(Log::DEBUG, QString("done executeCommand %1 exit code %2").arg(quoted).arg(process.exitCode()));
    return process.exitCode();
}

QString executeCommandWithOutput(QString program, QString args, bool noCards)
{
    QProcess process;
    const QString quoted = prepare(process, program, args, noCards);
    process.setStandardInputFile(QProcess::nullDevice());
    process.setStandardErrorFile(QProcess::nullDevice());
    process.start(QIODevice::ReadWrite);
    Log::print(Log::DEBUG, QString("executeCommandWithOutput %1 %2").arg(quoted, args.trimmed()));
    if (!process.waitForFinished(-1))
        return QString();
    QByteArray out = process.readAllStandardOutput();
    const int nul = out.indexOf('\0');
    if (nul >= 0)
        out.truncate(nul);
    const QString text = QString::fromUtf8(out);
    process.closeReadChannel(QProcess::StandardOutput);
    Log::print(Log::DEBUG, QString("done executeCommandWithOutput %1 exit code %2 output size: %3")
                               .arg(quoted)
                               .arg(process.exitCode())
                               .arg(text.size()));
    return text;
}

int executeAdminCommand(QString command)
{
    Q_UNUSED(command)
    return 0;
}

QString executeAdminCommandWithOutput(const QString& program, const QString& args)
{
    return executeCommandWithOutput(program, args, false);
}
