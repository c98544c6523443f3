#include "log_manager.h"

#include "log.h"
#include "process_helpers.h"
#include "qvlogger.h"

#include <QFile>
#include <QFileInfo>
#include <QProcess>

namespace {
const int kMaxLogSize = 5242880;
const int kSeriesLength = 4;

QString archiveName(const QString& path, int n)
{
    return n == 0 ? path : QString("%1%2.gz").arg(path).arg(n);
}
} // namespace

void gzipfile(QString path)
{
    QStringList parts = QProcess::splitCommand("gzip -q " + path);
    const QString program = parts.takeFirst();
    QProcess::execute(program, parts);
}

LogManager::LogManager(QObject* parent) : QThread(parent) {}

void LogManager::setLogCfg(logItem* item, QString path, int maxSize, int count)
{
    item->path = path;
    item->maxSize = maxSize;
    item->count = count;
}

void LogManager::readSettings()
{
    const QString userPath = QString::fromLocal8Bit(qvlogger_get_param(QVLOGGER_PARAM_USER_LOG_PATH));
    const QString systemPath = QString::fromLocal8Bit(qvlogger_get_param(QVLOGGER_PARAM_SYSTEM_LOG_PATH));
    Log::print(Log::DEBUG, "LOGROTATE: userpath=" + userPath);
    Log::print(Log::DEBUG, "LOGROTATE: systempath=" + systemPath);
    setLogCfg(&cfg.user, userPath, kMaxLogSize, kSeriesLength);
    setLogCfg(&cfg.system, systemPath, kMaxLogSize, kSeriesLength);
}

void LogManager::run()
{
    readSettings();
    doRotate(cfg.user);
    doRotate(cfg.system);
}

void LogManager::rotateLogs()
{
    doRotate(cfg.user);
    doRotate(cfg.system);
}

void LogManager::doRotate(logItem item)
{
    const QString& path = item.path;
    Log::print(Log::DEBUG, "LOGROTATE: cheking log file " + path);
    if (QFileInfo(path).size() > item.maxSize) {
        Log::print(Log::DEBUG, "LOGROTATE: perform rotation " + path);
        archiveLog(path, 0, item.count);
    }

    // A log left by the earlier naming scheme ("<log>.1") joins the series as archive 1.
    const QString previous = path + ".1";
    if (checkFile(previous)) {
        Log::print(Log::DEBUG, "LOGROTATE: found previous log" + previous);
        QFile::remove(path + "1");
        if (QFile::rename(previous, path + "1")) {
            archiveLog(path, 1, item.count);
            gzipfile(path + "1");
        } else {
            Log::print(Log::DEBUG, "LOGROTATE: rename previouslog failed");
        }
    }
}

void LogManager::archiveLog(QString path, int n, int count)
{
    const QString name = archiveName(path, n);
    if (n + 1 == count) {
        QFile::remove(name);
        return;
    }
    if (QFile::exists(archiveName(path, n + 1)))
        archiveLog(path, n + 1, count);
    if (n == 0) {
        if (!ziplog(path))
            Log::print(Log::ERR, "LOGROTATE: Cannot archive file " + path);
        return;
    }
    const QString next = archiveName(path, n + 1);
    Log::print(Log::DEBUG, QString("LOGROTATE: rename %1 to %2").arg(name, next));
    if (!QFile::rename(name, next))
        Log::print(Log::ERR, "LOGROTATE: rename failed");
}

bool LogManager::ziplog(QString path)
{
    const QString first = path + "1";
    QFile::remove(first);
    for (int attempt = 0; attempt < 3; ++attempt) {
        if (attempt > 0)
            MySleep(100);
        if (QFile::rename(path, first)) {
            gzipfile(first);
            return true;
        }
    }
    Log::print(Log::WARNING, "LOGROTATE: Cannot rotate log file:" + path);
    return false;
}

QStringList LogManager::filesToSend()
{
    readSettings();
    return {cfg.user.path, cfg.system.path, cfg.user.path + "1.gz", cfg.system.path + "1.gz"};
}
