#include "log.h"

#include "qvlogger.h"

#include <cstdlib>
#include <string>

Log Log::theLog;

namespace {
const char* const kComponent = "dashboard";
const int kLibraryLevels[8] = {0, 0, 0, 1, 2, 3, 4, 5};
} // namespace

Log::~Log()
{
    if (file.isOpen())
        file.close();
}

int Log::libraryLevel(int level)
{
    return (level >= 0 && level < 8) ? kLibraryLevels[level] : 5;
}

void Log::print(LogLevel level, const QString& text)
{
    // The text always travels as the argument of a fixed format, never as the format.
    const std::wstring wide = text.toStdWString();
    qvlogger_logw(libraryLevel(level), kComponent, L"%S", wide.c_str());
}

void Log::doPrint(LogLevel level, const QString& text)
{
    print(level, text);
}

void Log::messageHandler(QtMsgType type, const QMessageLogContext& context, const QString& text)
{
    Q_UNUSED(context)
    switch (type) {
    case QtDebugMsg:
        doPrint(DEBUG, text);
        break;
    case QtWarningMsg:
        doPrint(WARNING, text);
        break;
    case QtCriticalMsg:
        doPrint(ERR, text);
        break;
    default:
        // Fatal, and every other type including info, ends the process.
        print(CRIT, text);
        std::abort();
    }
}

void Log::setLog(const QString& path, LogLevel level, unsigned limit)
{
    Q_UNUSED(path)
    Q_UNUSED(level)
    Q_UNUSED(limit)
}

void Log::rotateLogFile() {}

void Log::setupMarker()
{
    QMutexLocker lock(&theLog.mutex);
    if (!theLog.file.isOpen())
        theLog.file.open(QIODevice::Append);
    theLog.marker = theLog.file.pos();
}

QString Log::lastLog(int n)
{
    const char* path = qvlogger_get_param(QVLOGGER_PARAM_USER_LOG_PATH);
    if (!path || n <= 0)
        return QString();
    QFile current(QFile::decodeName(path));
    if (!current.open(QIODevice::ReadOnly))
        return QString();
    const qint64 size = current.size();
    if (size > n)
        current.seek(size - n);
    QByteArray tail = current.read(n);
    // The cut may fall inside a character: start at the next whole one.
    int skip = 0;
    while (skip < tail.size() && skip < 3 && (static_cast<unsigned char>(tail[skip]) & 0xC0) == 0x80)
        ++skip;
    return QString::fromUtf8(tail.mid(skip));
}
