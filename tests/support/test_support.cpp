#include "test_support.h"

#include <algorithm>

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QTest>

TestHome::TestHome()
{
    for (const char* sub : {"logs", "syslogs", "tmp", "config", "home", "runtime"})
        QDir(dir.path()).mkpath(sub);
    QFile::setPermissions(runtimeDir(), QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
}

QProcessEnvironment TestHome::environment() const
{
    QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
    env.insert("ZORVIK_LOG_DIR", logDir());
    env.insert("ZORVIK_SYSTEM_LOG_DIR", systemLogDir());
    env.insert("XDG_CONFIG_HOME", dir.path() + "/config");
    env.insert("HOME", dir.path() + "/home");
    env.insert("TMPDIR", dir.path() + "/tmp");
    // The single-instance channel lives in the user's run-time directory: a private one
    // gives the test its own.
    env.insert("XDG_RUNTIME_DIR", runtimeDir());
    if (!env.contains("QT_QPA_PLATFORM"))
        env.insert("QT_QPA_PLATFORM", "offscreen");
    // The update check runs whenever a window starts: unless a test points it at the
    // services simulator, it meets a closed loopback port instead of the real service.
    for (const char* key : {"ZORVIK_UPDATE_URL", "ZORVIK_CHANGELOG_URL"})
        if (env.value(key).isEmpty())
            env.insert(key, "https://127.0.0.1:9");
    return env;
}

void TestHome::apply() const
{
    const QProcessEnvironment env = environment();
    for (const char* key : {"ZORVIK_LOG_DIR", "ZORVIK_SYSTEM_LOG_DIR", "XDG_CONFIG_HOME", "HOME", "TMPDIR",
                            "XDG_RUNTIME_DIR", "ZORVIK_UPDATE_URL", "ZORVIK_CHANGELOG_URL"})
        qputenv(key, env.value(key).toLocal8Bit());
}

QString TestHome::readLog() const
{
    return QString::fromUtf8(readFile(userLog()));
}

bool TestHome::waitForLog(const QString& text, int ms) const
{
    return QTest::qWaitFor([&] { return readLog().contains(text); }, ms);
}

int countLines(const QString& text, const QString& needle)
{
    int n = 0;
    for (const QString& line : text.split('\n'))
        n += line.contains(needle);
    return n;
}

QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QDir().mkpath(QFileInfo(path).path());
    QFile f(path);
    return f.open(QIODevice::WriteOnly | QIODevice::Truncate) && f.write(bytes) == bytes.size();
}

QByteArray gunzip(const QByteArray& data)
{
    QByteArray out;
    runProgram("gzip", {"-dc"}, &out, QProcessEnvironment::systemEnvironment(), nullptr, data, 60000);
    return out;
}

int testTime(int ms)
{
    static const int scale = std::max(1, qEnvironmentVariableIntValue("ZORVIK_TEST_TIME_SCALE"));
    return ms * scale;
}

int runProgram(const QString& program, const QStringList& args, QByteArray* output, const QProcessEnvironment& env,
               QByteArray* errors, const QByteArray& input, int timeoutMs)
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.setProcessChannelMode(errors ? QProcess::SeparateChannels : QProcess::MergedChannels);
    p.start(program, args);
    if (!p.waitForStarted(10000)) {
        if (output)
            *output = (program + ": " + p.errorString()).toLocal8Bit();
        return -1;
    }
    p.write(input);
    p.closeWriteChannel();
    const bool ended = p.waitForFinished(timeoutMs);
    if (!ended)
        stopProcess(p);
    if (output)
        *output = p.readAllStandardOutput();
    if (errors)
        *errors = p.readAllStandardError();
    return ended && p.exitStatus() == QProcess::NormalExit ? p.exitCode() : -1;
}

void stopProcess(QProcess& process)
{
    if (process.state() == QProcess::NotRunning)
        return;
    process.terminate();
    if (!process.waitForFinished(10000)) {
        process.kill();
        process.waitForFinished(5000);
    }
}
