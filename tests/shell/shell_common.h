#pragma once

// Small helpers shared by the shell tests.

#include <QByteArray>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

namespace shell {

// The log lines of `text` without their time stamp: "<LEVEL> <component>: <text>".
inline QStringList strippedLines(const QString& text)
{
    QStringList out;
    for (const QString& line : text.split('\n', Qt::SkipEmptyParts)) {
        // "YYYY-MM-DD HH:MM:SS.mmm " is 24 characters.
        out << (line.size() > 24 ? line.mid(24) : line);
    }
    return out;
}

struct RunResult
{
    bool finished = false;
    QProcess::ExitStatus status = QProcess::NormalExit;
    int code = -1;
    QByteArray out;
    QByteArray err;
};

// Runs a program to its end (or `ms`), collecting its output.
inline RunResult run(const QString& program, const QStringList& args, const QProcessEnvironment& env, int ms = 60000)
{
    QProcess p;
    p.setProcessEnvironment(env);
    p.start(program, args);
    RunResult r;
    r.finished = p.waitForFinished(ms);
    if (!r.finished) {
        p.kill();
        p.waitForFinished();
    }
    r.status = p.exitStatus();
    r.code = p.exitCode();
    r.out = p.readAllStandardOutput();
    r.err = p.readAllStandardError();
    return r;
}

} // namespace shell
