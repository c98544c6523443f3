// Log rotation on real files with the real gzip: the size limit, the archive series, the
// earlier naming scheme, paths with blanks, and a full run over the logger's own files.
#include "log_manager.h"
#include "shell_common.h"
#include "test_support.h"

#include <QDir>
#include <QFileInfo>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {

TestHome* gHome = nullptr;
const int kLimit = 5242880;

// Content of `size` bytes that starts with `tag`, so archives can be told apart.
QByteArray content(const QByteArray& tag, int size)
{
    QByteArray data = tag + '\n';
    if (data.size() < size)
        data += QByteArray(size - data.size(), 'z');
    return data.left(size);
}

// An archive made the way the rotation makes them.
bool makeArchive(const QString& archive, const QByteArray& data)
{
    QString plain = archive;
    plain.chop(3);
    if (!shell::writeFile(plain, data))
        return false;
    return QProcess::execute("gzip", {"-q", plain}) == 0 && QFile::exists(archive);
}

logItem item(const QString& path)
{
    logItem it;
    LogManager::setLogCfg(&it, path, kLimit, 4);
    return it;
}

QStringList filesIn(const QString& dir)
{
    return QDir(dir).entryList(QDir::Files, QDir::Name);
}

} // namespace

class TestLogRotation : public QObject
{
    Q_OBJECT

private slots:
    void init();

    // When a log is rotated and what becomes of the archives.
    void sizeLimit_data();
    void sizeLimit();
    void fullSeriesShifts();
    void gapInSeries();
    void leftoverOfInterruptedRun();

    // Logs of the earlier naming scheme ("<log>.1").
    void previousLog_data();
    void previousLog();

    // Failures that are logged and leave the files usable.
    void blanksInPathStayUncompressed();
    void missingLiveFileIsReported();

    // The thread over the logger's two files, and what a support request attaches.
    void runRotatesBothLogs();
    void filesToSendOrder();

private:
    std::unique_ptr<QTemporaryDir> tmp;
    QString log;
};

void TestLogRotation::init()
{
    tmp = std::make_unique<QTemporaryDir>();
    QVERIFY(tmp->isValid());
    log = tmp->path() + "/dashboard.log";
}

void TestLogRotation::sizeLimit_data()
{
    QTest::addColumn<int>("size");
    QTest::addColumn<bool>("rotated");
    QTest::newRow("empty") << 0 << false;
    QTest::newRow("one byte under") << kLimit - 1 << false;
    QTest::newRow("exactly the limit") << kLimit << false;
    QTest::newRow("one byte over") << kLimit + 1 << true;
}

void TestLogRotation::sizeLimit()
{
    QFETCH(int, size);
    QFETCH(bool, rotated);
    const QByteArray data = content("live", size);
    QVERIFY(shell::writeFile(log, data));

    LogManager manager;
    manager.doRotate(item(log));

    if (rotated) {
        QCOMPARE(filesIn(tmp->path()), QStringList({"dashboard.log1.gz"}));
        QCOMPARE(shell::gunzip(log + "1.gz"), data);
        QVERIFY(gHome->readLog().contains("LOGROTATE: perform rotation " + log));
    } else {
        QCOMPARE(filesIn(tmp->path()), QStringList({"dashboard.log"}));
        QCOMPARE(shell::readFile(log), data);
        QVERIFY(!gHome->readLog().contains("LOGROTATE: perform rotation " + log));
    }
    QVERIFY(gHome->readLog().contains("LOGROTATE: cheking log file " + log));
}

void TestLogRotation::fullSeriesShifts()
{
    const QByteArray live = content("live", kLimit + 100);
    QVERIFY(shell::writeFile(log, live));
    QVERIFY(makeArchive(log + "1.gz", "archive one\n"));
    QVERIFY(makeArchive(log + "2.gz", "archive two\n"));
    QVERIFY(makeArchive(log + "3.gz", "archive three\n"));

    LogManager manager;
    manager.doRotate(item(log));

    QCOMPARE(filesIn(tmp->path()), QStringList({"dashboard.log1.gz", "dashboard.log2.gz", "dashboard.log3.gz"}));
    QCOMPARE(shell::gunzip(log + "1.gz"), live);
    QCOMPARE(shell::gunzip(log + "2.gz"), QByteArray("archive one\n"));
    QCOMPARE(shell::gunzip(log + "3.gz"), QByteArray("archive two\n"));
    const QStringList lines = shell::strippedLines(gHome->readLog());
    QVERIFY(lines.contains(QString("DEBUG dashboard: LOGROTATE: rename %1 to %2").arg(log + "2.gz", log + "3.gz")));
    QVERIFY(lines.contains(QString("DEBUG dashboard: LOGROTATE: rename %1 to %2").arg(log + "1.gz", log + "2.gz")));
}

void TestLogRotation::gapInSeries()
{
    const QByteArray live = content("live", kLimit + 1);
    QVERIFY(shell::writeFile(log, live));
    QVERIFY(makeArchive(log + "2.gz", "archive two\n"));

    LogManager manager;
    manager.doRotate(item(log));

    QCOMPARE(filesIn(tmp->path()), QStringList({"dashboard.log1.gz", "dashboard.log2.gz"}));
    QCOMPARE(shell::gunzip(log + "1.gz"), live);
    QCOMPARE(shell::gunzip(log + "2.gz"), QByteArray("archive two\n"));
}

void TestLogRotation::leftoverOfInterruptedRun()
{
    const QByteArray live = content("live", kLimit + 1);
    QVERIFY(shell::writeFile(log, live));
    QVERIFY(shell::writeFile(log + "1", "half-done rename\n"));

    LogManager manager;
    manager.doRotate(item(log));

    QCOMPARE(filesIn(tmp->path()), QStringList({"dashboard.log1.gz"}));
    QCOMPARE(shell::gunzip(log + "1.gz"), live);
}

void TestLogRotation::previousLog_data()
{
    QTest::addColumn<bool>("bigLive");
    QTest::addColumn<bool>("archiveOne");
    QTest::newRow("small live, no archives") << false << false;
    QTest::newRow("small live, archive 1") << false << true;
    QTest::newRow("live over the limit too") << true << false;
}

void TestLogRotation::previousLog()
{
    QFETCH(bool, bigLive);
    QFETCH(bool, archiveOne);
    const QByteArray live = content("live", bigLive ? kLimit + 1 : 100);
    QVERIFY(shell::writeFile(log, live));
    QVERIFY(shell::writeFile(log + ".1", "previous scheme\n"));
    QVERIFY(shell::writeFile(log + "1", "stale leftover\n"));
    if (archiveOne)
        QVERIFY(makeArchive(log + "1.gz", "archive one\n"));

    LogManager manager;
    manager.doRotate(item(log));

    QStringList expected = {"dashboard.log1.gz"};
    // The previous log becomes archive 1; what was archive 1 (old, or the live log that was
    // just rotated) moves to 2.
    if (archiveOne || bigLive)
        expected << "dashboard.log2.gz";
    if (!bigLive)
        expected.prepend("dashboard.log");
    QCOMPARE(filesIn(tmp->path()), expected);
    QCOMPARE(shell::gunzip(log + "1.gz"), QByteArray("previous scheme\n"));
    if (bigLive)
        QCOMPARE(shell::gunzip(log + "2.gz"), live);
    else if (archiveOne)
        QCOMPARE(shell::gunzip(log + "2.gz"), QByteArray("archive one\n"));
    if (!bigLive)
        QCOMPARE(shell::readFile(log), live);
    QVERIFY(gHome->readLog().contains("LOGROTATE: found previous log"));
}

void TestLogRotation::blanksInPathStayUncompressed()
{
    QVERIFY(QDir(tmp->path()).mkpath("my logs"));
    const QString spaced = tmp->path() + "/my logs/dashboard.log";
    const QByteArray live = content("live", kLimit + 1);
    QVERIFY(shell::writeFile(spaced, live));

    LogManager manager;
    manager.doRotate(item(spaced));

    // gzip was handed the path in pieces: the renamed file stays as it is.
    QCOMPARE(filesIn(tmp->path() + "/my logs"), QStringList({"dashboard.log1"}));
    QCOMPARE(shell::readFile(spaced + "1"), live);
}

void TestLogRotation::missingLiveFileIsReported()
{
    LogManager manager;
    manager.archiveLog(log, 0, 4);
    const QStringList lines = shell::strippedLines(gHome->readLog());
    QVERIFY(lines.contains("WARNING dashboard: LOGROTATE: Cannot rotate log file:" + log));
    QVERIFY(lines.contains("ERROR dashboard: LOGROTATE: Cannot archive file " + log));
    QVERIFY(filesIn(tmp->path()).isEmpty());
}

void TestLogRotation::runRotatesBothLogs()
{
    const QString user = gHome->userLog();
    const QString system = gHome->systemLogDir() + "/dashboard.log";
    QFile::remove(user + "1.gz");
    QFile::remove(system + "1.gz");
    // The user log is this process's live log: grow it past the limit with real lines.
    {
        QFile f(user);
        QVERIFY(f.open(QIODevice::Append));
        const QByteArray line = "2026-01-01 00:00:00.000 DEBUG dashboard: padding line for the rotation test\n";
        while (f.size() <= kLimit)
            f.write(line);
    }
    const QByteArray userBefore = shell::readFile(user);
    const QByteArray systemData = content("system", kLimit + 7);
    QVERIFY(shell::writeFile(system, systemData));

    LogManager manager;
    QSignalSpy finished(&manager, &QThread::finished);
    manager.start();
    QVERIFY(finished.wait(60000));

    QCOMPARE(manager.config().user.path, user);
    QCOMPARE(manager.config().system.path, system);
    QCOMPARE(manager.config().user.maxSize, kLimit);
    QCOMPARE(manager.config().user.count, 4);

    // Everything the user log held before, and the rotation's own first lines, are archived.
    const QByteArray archived = shell::gunzip(user + "1.gz");
    QVERIFY(archived.startsWith(userBefore));
    QVERIFY(archived.contains("LOGROTATE: perform rotation " + user.toUtf8()));
    QCOMPARE(shell::gunzip(system + "1.gz"), systemData);
    QVERIFY(!QFile::exists(system));

    // The logger started a new live file and went on writing into it.
    const QStringList fresh = shell::strippedLines(gHome->readLog());
    QVERIFY2(fresh.contains("DEBUG dashboard: LOGROTATE: cheking log file " + system), qPrintable(fresh.join('\n')));
    QVERIFY(fresh.contains("DEBUG dashboard: LOGROTATE: perform rotation " + system));
    QVERIFY(QFileInfo(user).size() < 4096);
}

void TestLogRotation::filesToSendOrder()
{
    LogManager manager;
    const QString user = gHome->userLog();
    const QString system = gHome->systemLogDir() + "/dashboard.log";
    QCOMPARE(manager.filesToSend(), QStringList({user, system, user + "1.gz", system + "1.gz"}));
    const QStringList lines = shell::strippedLines(gHome->readLog());
    QVERIFY(lines.contains("DEBUG dashboard: LOGROTATE: userpath=" + user));
    QVERIFY(lines.contains("DEBUG dashboard: LOGROTATE: systempath=" + system));
}

int main(int argc, char** argv)
{
    TestHome home;
    home.apply();
    gHome = &home;
    QCoreApplication app(argc, argv);
    TestLogRotation test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_log_rotation.moc"
