#include "test_support.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QProcess>
#include <QTest>

TestHome::TestHome()
{
    QDir(dir.path()).mkpath("logs");
    QDir(dir.path()).mkpath("syslogs");
    QDir(dir.path()).mkpath("tmp");
    QDir(dir.path()).mkpath("config");
    QDir(dir.path()).mkpath("home");
    QDir(dir.path()).mkpath("runtime");
    QFile::setPermissions(dir.path() + "/runtime", QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner);
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
    for (const char* key :
         {"ZORVIK_LOG_DIR", "ZORVIK_SYSTEM_LOG_DIR", "XDG_CONFIG_HOME", "HOME", "TMPDIR", "XDG_RUNTIME_DIR"})
        qputenv(key, env.value(key).toLocal8Bit());
    // The update service addresses environment() chose.
    for (const char* key : {"ZORVIK_UPDATE_URL", "ZORVIK_CHANGELOG_URL"})
        qputenv(key, env.value(key).toLocal8Bit());
}

QString TestHome::readLog() const
{
    QFile f(userLog());
    if (!f.open(QIODevice::ReadOnly))
        return QString();
    return QString::fromUtf8(f.readAll());
}

bool TestHome::waitForLog(const QString& text, int ms) const
{
    QElapsedTimer t;
    t.start();
    while (t.elapsed() < ms) {
        if (readLog().contains(text))
            return true;
        QTest::qWait(20);
    }
    return readLog().contains(text);
}

int countLines(const QString& text, const QString& needle)
{
    int n = 0;
    for (const QString& line : text.split('\n'))
        if (line.contains(needle))
            ++n;
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
    QProcess gzip;
    gzip.start("gzip", {"-dc"});
    gzip.write(data);
    gzip.closeWriteChannel();
    gzip.waitForFinished(60000);
    return gzip.readAllStandardOutput();
}
