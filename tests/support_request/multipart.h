// Reading what the services simulator received: multipart/form-data bodies split into
// their parts, and gzip data opened with the system's gzip.
#pragma once

#include <QByteArray>
#include <QList>
#include <QProcess>
#include <QRegularExpression>

struct FormPart
{
    QByteArray headers; // the header lines, without the blank line after them
    QByteArray content;

    QString field() const
    {
        return QRegularExpression(R"re(\bname="([^"]*)")re").match(QString::fromUtf8(headers)).captured(1);
    }
    QString fileName() const
    {
        return QRegularExpression(R"re(filename="([^"]*)")re").match(QString::fromUtf8(headers)).captured(1);
    }
};

// The parts between "--boundary" lines, up to the closing "--boundary--"; an empty list
// when the body does not have that shape.
inline QList<FormPart> formParts(const QByteArray& body, const QByteArray& boundary)
{
    const QByteArray delimiter = "--" + boundary;
    QList<FormPart> parts;
    if (!body.startsWith(delimiter + "\r\n") || !body.endsWith(delimiter + "--\r\n"))
        return parts;
    int at = delimiter.size() + 2;
    while (at < body.size()) {
        const int next = body.indexOf("\r\n" + delimiter, at);
        if (next < 0)
            return {};
        const QByteArray chunk = body.mid(at, next - at);
        const int blank = chunk.indexOf("\r\n\r\n");
        if (blank < 0)
            return {};
        parts.append({chunk.left(blank), chunk.mid(blank + 4)});
        at = next + 2 + delimiter.size();
        if (body.mid(at, 4) == "--\r\n")
            break;
        at += 2;
    }
    return parts;
}

inline QByteArray gunzip(const QByteArray& data)
{
    QProcess gzip;
    gzip.start("gzip", {"-dc"});
    gzip.write(data);
    gzip.closeWriteChannel();
    gzip.waitForFinished(30000);
    return gzip.exitCode() == 0 ? gzip.readAllStandardOutput() : QByteArray();
}
