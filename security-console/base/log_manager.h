#pragma once

#include <QString>
#include <QStringList>
#include <QThread>

// One managed log: its size limit, path and the length of its rotation series
// (the live file plus the archives).
struct logItem {
    int maxSize = 0;
    QString path;
    int count = 0;
};

struct logRotateCfg {
    logItem user;
    logItem system;
};

// Compresses a file in place with gzip (the path is appended to the command as it is).
void gzipfile(QString path);

// Keeps the user and system logs of the logger library under 5 MiB each: a bigger file
// becomes archive 1 (gzip), older archives shift up, at most three are kept.
class LogManager : public QThread
{
    Q_OBJECT
public:
    explicit LogManager(QObject* parent = nullptr);

    void readSettings();
    static void setLogCfg(logItem* item, QString path, int maxSize, int count);
    void rotateLogs();
    void doRotate(logItem item);
    void archiveLog(QString path, int n, int count);
    bool ziplog(QString path);
    // The live logs and their newest archives, for a support request.
    QStringList filesToSend();

    const logRotateCfg& config() const { return cfg; }

protected:
    void run() override;

private:
    logRotateCfg cfg;
};
