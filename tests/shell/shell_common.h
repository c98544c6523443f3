#pragma once

// Small helpers shared by the shell tests.

#include <QByteArray>
#include <QFile>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QStringList>

#ifndef SHELL_HELPER_EXE
#define SHELL_HELPER_EXE ""
#endif

namespace shell {

inline QByteArray readFile(const QString& path)
{
    QFile f(path);
    if (!f.open(QIODevice::ReadOnly))
        return QByteArray();
    return f.readAll();
}

inline bool writeFile(const QString& path, const QByteArray& data)
{
    QFile f(path);
    if (!f.open(QIODevice::WriteOnly | QIODevice::Truncate))
        return false;
    return f.write(data) == data.size();
}

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

struct RunResult {
    bool finished = false;
    QProcess::ExitStatus status = QProcess::NormalExit;
    int code = -1;
    QByteArray out;
    QByteArray err;
};

// Runs a program to its end (or `ms`), collecting its output.
inline RunResult run(const QString& program, const QStringList& args, const QProcessEnvironment& env,
                     int ms = 60000)
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

// Decompresses a gzip archive with the real gzip.
inline QByteArray gunzip(const QString& path)
{
    QProcess p;
    p.start("gzip", {"-dc", path});
    if (!p.waitForFinished(60000) || p.exitCode() != 0)
        return QByteArray("<gzip -dc failed>");
    return p.readAllStandardOutput();
}

} // namespace shell
