#pragma once

#include <QFile>
#include <QMutex>
#include <QString>
#include <QtGlobal>

// The program's one logging facade. Every line goes to the logger library with the
// component name "dashboard"; file placement, time stamps and size are the library's.
class Log
{
public:
    // A fixed underlying type: values outside 0..7 are legal and are delivered at level 5.
    enum LogLevel : int { EMERG = 0, ALERT = 1, CRIT = 2, ERR = 3, WARNING = 4, NOTICE = 5, INFO = 6, DEBUG = 7 };

    static void print(LogLevel level, const QString& text);
    static void doPrint(LogLevel level, const QString& text);
    static void messageHandler(QtMsgType type, const QMessageLogContext& context, const QString& text);

    // Accepted for compatibility; the logger library governs file, level and size.
    static void setLog(const QString& path, LogLevel level, unsigned limit);
    // Rotation is LogManager's job.
    static void rotateLogFile();
    static void setupMarker();
    // The last `n` bytes of the current user log (all of it when it is shorter), as text.
    static QString lastLog(int n);

    // The library level a LogLevel is delivered at (out-of-range values give 5).
    static int libraryLevel(int level);

    ~Log();

private:
    Log() = default;
    static Log theLog;

    LogLevel level = DEBUG;
    QFile file;
    QString fileName;
    qint64 marker = 0;
    quint32 limit = 0;
    QMutex mutex;
};
