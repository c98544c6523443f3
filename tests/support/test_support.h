#pragma once

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>
#include <QTemporaryDir>

// A private home for one test: its own log directories, config and temp directory, so
// tests never touch the user's files nor each other's single-instance channel.
class TestHome
{
public:
    TestHome();
    bool isValid() const { return dir.isValid(); }
    QString path() const { return dir.path(); }
    QString logDir() const { return dir.path() + "/logs"; }
    QString systemLogDir() const { return dir.path() + "/syslogs"; }
    QString userLog() const { return logDir() + "/dashboard.log"; }
    QString runtimeDir() const { return dir.path() + "/runtime"; }
    // The environment for a child process (and, with apply(), for this process).
    QProcessEnvironment environment() const;
    void apply() const;
    // Everything logged so far in the user log.
    QString readLog() const;
    // Waits until the user log contains `text` (up to `ms`).
    bool waitForLog(const QString& text, int ms = 10000) const;

private:
    QTemporaryDir dir;
};

// Lines of `text` that contain `needle`.
int countLines(const QString& text, const QString& needle);

// A whole file; empty when it cannot be read.
QByteArray readFile(const QString& path);
// Writes a whole file, making the missing directories.
bool writeFile(const QString& path, const QByteArray& bytes);
// A wait of `ms` stretched by ZORVIK_TEST_TIME_SCALE (set for runs under valgrind, many times
// slower): for the waits that are part of what a test checks, not only a limit on failure.
int testTime(int ms);
// Decompresses gzip data with the real gzip.
QByteArray gunzip(const QByteArray& data);
// Runs a program to its end (up to `timeoutMs`), with `input` on its standard input: the exit
// code, or -1 when it did not start, crashed or ran out of time. Output and errors go to `output`
// (merged unless `errors` is given).
int runProgram(const QString& program, const QStringList& args, QByteArray* output = nullptr,
               const QProcessEnvironment& env = QProcessEnvironment::systemEnvironment(), QByteArray* errors = nullptr,
               const QByteArray& input = QByteArray(), int timeoutMs = 120000);
// Ends a helper process: terminated, killed if it will not go.
void stopProcess(QProcess& process);
