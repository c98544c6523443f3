// The Log facade and the logger library behind it (literal texts, level mapping, Qt messages,
// where the files go, many writers while the live file is renamed away), and log rotation on
// real files with the real gzip.
#include "log.h"
#include "log_manager.h"
#include "qvlogger.h"
#include "shell_common.h"
#include "test_support.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <algorithm>
#include <memory>
#include <vector>

namespace {

TestHome* gHome = nullptr;
const int kLimit = 5242880;

QString param(const QByteArray& out, const QByteArray& name)
{
    for (const QByteArray& line : out.split('\n'))
        if (line.startsWith(name + "="))
            return QString::fromUtf8(line.mid(name.size() + 1));
    return QString();
}

// "<big>" is a live log over the limit, "<limit>" one exactly at it (both start with "live"
// so archives can be told apart); other text is itself.
QByteArray contentFor(const QString& text, const QByteArray& tag = "live")
{
    if (!text.startsWith('<'))
        return text.toUtf8() + "\n";
    return (tag + '\n' + QByteArray(kLimit, 'z')).left(text == "<big>" ? kLimit + 1 : kLimit);
}

bool logged(const QString& line)
{
    return shell::strippedLines(gHome->readLog()).contains(line);
}

} // namespace

class TestLogging : public QObject
{
    Q_OBJECT

private slots:
    void textsAreLoggedVerbatim_data()
    {
        QTest::addColumn<QString>("text");
        QTest::newRow("format characters") << "value %1 of %2, rate 100%s %d %n %ls %S %% at the end %";
        QTest::newRow("non-ASCII, longer than a first buffer")
            << QString::fromUtf8("Zürich ключ € 鍵 \U0001F511 ") + QString(20000, QChar('x')) + ":end";
    }
    void textsAreLoggedVerbatim()
    {
        QFETCH(QString, text);
        Log::print(Log::DEBUG, text);
        QVERIFY(logged("DEBUG dashboard: " + text));
    }

    // DEBUG, WARNING, ERR and CRIT are seen through the Qt messages below.
    void levelMapping_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<QString>("name");
        QTest::newRow("EMERG") << 0 << "CRIT";
        QTest::newRow("INFO") << 6 << "INFO";
        QTest::newRow("out of range 8") << 8 << "DEBUG";
        QTest::newRow("negative") << -1 << "DEBUG";
    }
    void levelMapping()
    {
        QFETCH(int, level);
        QFETCH(QString, name);
        const QString text = QString("level probe %1").arg(level);
        Log::print(static_cast<Log::LogLevel>(level), text);
        QVERIFY(logged(name + " dashboard: " + text));
    }

    void setLogChangesNothingLastLogIsTheTail()
    {
        QTemporaryDir other;
        Log::setLog(other.path() + "/elsewhere.log", Log::ERR, 10);
        Log::rotateLogFile();
        Log::print(Log::DEBUG, "after setLog");
        QVERIFY(logged("DEBUG dashboard: after setLog"));
        QVERIFY(QDir(other.path()).isEmpty());
        const QByteArray log = gHome->readLog().toUtf8();
        QCOMPARE(Log::lastLog(20).toUtf8(), log.right(20));
        QCOMPARE(Log::lastLog(1 << 30).toUtf8(), log);
        QVERIFY(Log::lastLog(0).isEmpty());
    }

    void qtMessagesAndInfoAbort()
    {
        TestHome child;
        QCOMPARE(shell::run(SHELL_HELPER_EXE, {"messages"}, child.environment()).status, QProcess::CrashExit);
        QCOMPARE(shell::strippedLines(child.readLog()),
                 QStringList({"DEBUG dashboard: debug line 1", "WARNING dashboard: warning line 2",
                              "ERROR dashboard: critical line 3", "CRIT dashboard: info line 4"}));
    }

    void pathRules_data()
    {
        QTest::addColumn<QStringList>("settings"); // NAME=value; "<t>" is the test's directory
        QTest::addColumn<QString>("userLog");
        QTest::addColumn<QString>("systemLog");
        const QString system = "/var/log/zorvik/dashboard.log";
        QTest::newRow("own dir wins") << QStringList{"ZORVIK_LOG_DIR=<t>/own", "XDG_STATE_HOME=<t>/state", "HOME=<t>/h"}
                                      << "<t>/own/dashboard.log" << system;
        QTest::newRow("empty own dir ignored") << QStringList{"ZORVIK_LOG_DIR=", "XDG_STATE_HOME=<t>/state", "HOME=<t>/h"}
                                               << "<t>/state/zorvik/dashboard.log" << system;
        QTest::newRow("empty state home ignored") << QStringList{"XDG_STATE_HOME=", "HOME=<t>/h"}
                                                  << "<t>/h/.local/state/zorvik/dashboard.log" << system;
        QTest::newRow("system dir") << QStringList{"HOME=<t>/h", "ZORVIK_SYSTEM_LOG_DIR=<t>/sys"}
                                    << "<t>/h/.local/state/zorvik/dashboard.log" << "<t>/sys/dashboard.log";
    }
    void pathRules()
    {
        QFETCH(QStringList, settings);
        QFETCH(QString, userLog);
        QFETCH(QString, systemLog);
        QTemporaryDir t;
        // Nothing of the user's log settings.
        QProcessEnvironment env;
        for (const char* keep : {"PATH", "ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LD_LIBRARY_PATH"})
            if (qEnvironmentVariableIsSet(keep))
                env.insert(keep, qEnvironmentVariable(keep));
        for (const QString& s : settings)
            env.insert(s.section('=', 0, 0), s.section('=', 1).replace("<t>", t.path()));
        const QByteArray out = shell::run(SHELL_HELPER_EXE, {"params"}, env).out;
        QCOMPARE(param(out, "user"), userLog.replace("<t>", t.path()));
        QCOMPARE(param(out, "system"), systemLog.replace("<t>", t.path()));
        QCOMPARE(param(out, "other"), QString("(null)"));
        // The library writes there, creating the missing directories.
        QCOMPARE(shell::run(SHELL_HELPER_EXE, {"lines", "2", "path-probe"}, env).code, 0);
        QCOMPARE(shell::strippedLines(QString::fromUtf8(readFile(userLog))),
                 QStringList({"DEBUG dashboard: path-probe 0", "DEBUG dashboard: path-probe 1"}));
    }

    void platformLinesAlsoGoToSystemLog()
    {
        TestHome child;
        QProcessEnvironment env = child.environment();
        const auto component = [&](const QString& text) {
            return shell::run(SHELL_HELPER_EXE, {"component", "qvtoken", text}, env).out.trimmed();
        };
        QCOMPARE(component("reader found"), QByteArray("component=0 dashboard=0"));
        QCOMPARE(shell::strippedLines(child.readLog()),
                 QStringList({"NOTICE qvtoken: reader found", "NOTICE dashboard: reader found"}));
        QCOMPARE(shell::strippedLines(QString::fromUtf8(readFile(child.systemLogDir() + "/dashboard.log"))),
                 QStringList({"NOTICE qvtoken: reader found"}));

        // A system log that cannot be made (below a regular file, not even by root) costs nothing
        // of the user log; with no writable file at all the call reports it and the process goes on.
        const QString blocker = child.path() + "/not-a-dir";
        QVERIFY(writeFile(blocker, "x"));
        env.insert("ZORVIK_SYSTEM_LOG_DIR", blocker + "/zorvik");
        QCOMPARE(component("still logging"), QByteArray("component=0 dashboard=0"));
        QVERIFY(child.readLog().endsWith("NOTICE dashboard: still logging\n"));
        env.insert("ZORVIK_LOG_DIR", blocker + "/user");
        QCOMPARE(component("nowhere"), QByteArray("component=-1 dashboard=-1"));
    }

    void concurrentWritersDuringRotation()
    {
        const int perWriter = 4000;
        const QStringList tags{"T0", "T1", "T2", "T3", "P0", "P1"}; // threads, then processes
        const QString live = gHome->userLog();
        QFile::remove(live);
        std::vector<std::unique_ptr<QThread>> threads;
        std::vector<std::unique_ptr<QProcess>> children;
        for (const QString& tag : tags) {
            if (tag.startsWith('T')) {
                threads.emplace_back(QThread::create([tag] {
                    for (int i = 0; i < perWriter; ++i)
                        Log::print(Log::DEBUG, QString("%1 %2").arg(tag).arg(i));
                }));
                threads.back()->start();
            } else {
                children.push_back(std::make_unique<QProcess>());
                children.back()->setProcessEnvironment(gHome->environment());
                children.back()->start(SHELL_HELPER_EXE, {"lines", QString::number(perWriter), tag});
            }
        }
        // Rename the live file away again and again while they write.
        QStringList pieces;
        const auto running = [&] {
            return std::any_of(threads.begin(), threads.end(), [](auto& t) { return !t->isFinished(); }) ||
                   std::any_of(children.begin(), children.end(), [](auto& p) {
                       return p->state() != QProcess::NotRunning && !p->waitForFinished(0);
                   });
        };
        while (running()) {
            const QString piece = QString("%1.piece%2").arg(live).arg(pieces.size());
            if (QFile::rename(live, piece))
                pieces << piece;
        }
        for (auto& p : children)
            QVERIFY(p->exitStatus() == QProcess::NormalExit && p->exitCode() == 0);
        pieces << live;
        QVERIFY2(pieces.size() >= 3, "the file was never renamed while the writers ran");

        // Every line whole, none lost, none twice.
        static const QRegularExpression lineRe(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} DEBUG dashboard: (\w\d) (\d+)$)");
        QHash<QString, QVector<int>> seen;
        for (const QString& tag : tags)
            seen.insert(tag, QVector<int>(perWriter, 0));
        for (const QString& piece : pieces) {
            const QByteArray data = readFile(piece);
            QVERIFY2(data.isEmpty() || data.endsWith('\n'), qPrintable(piece + " ends inside a line"));
            for (const QByteArray& raw : data.split('\n')) {
                const auto m = lineRe.match(QString::fromUtf8(raw));
                const int i = m.captured(2).toInt();
                QVERIFY2(raw.isEmpty() || (m.hasMatch() && seen.contains(m.captured(1)) && i < perWriter), raw.constData());
                if (!raw.isEmpty())
                    seen[m.captured(1)][i]++;
            }
        }
        for (auto it = seen.cbegin(); it != seen.cend(); ++it)
            QVERIFY2(it.value().count(1) == perWriter, qPrintable(it.key() + " lost or doubled lines"));
    }

    // Files before and after one rotation of "dashboard.log": "name=content", .gz archives
    // compared after decompression.
    void rotation_data()
    {
        QTest::addColumn<QString>("subdir");
        QTest::addColumn<QStringList>("before");
        QTest::addColumn<QStringList>("after");
        QTest::newRow("exactly the limit") << "" << QStringList{"dashboard.log=<limit>"}
                                           << QStringList{"dashboard.log=<limit>"};
        QTest::newRow("full series shifts")
            << "" << QStringList{"dashboard.log=<big>", "dashboard.log1.gz=one", "dashboard.log2.gz=two", "dashboard.log3.gz=three"}
            << QStringList{"dashboard.log1.gz=<big>", "dashboard.log2.gz=one", "dashboard.log3.gz=two"};
        QTest::newRow("gap in series") << "" << QStringList{"dashboard.log=<big>", "dashboard.log2.gz=two"}
                                       << QStringList{"dashboard.log1.gz=<big>", "dashboard.log2.gz=two"};
        QTest::newRow("leftover of an interrupted run") << "" << QStringList{"dashboard.log=<big>", "dashboard.log1=half"}
                                                        << QStringList{"dashboard.log1.gz=<big>"};
        // Logs of the earlier naming scheme ("<log>.1") become archive 1.
        QTest::newRow("previous log, archive 1")
            << "" << QStringList{"dashboard.log=small", "dashboard.log.1=previous", "dashboard.log1=stale", "dashboard.log1.gz=one"}
            << QStringList{"dashboard.log=small", "dashboard.log1.gz=previous", "dashboard.log2.gz=one"};
        QTest::newRow("previous log, live over the limit")
            << "" << QStringList{"dashboard.log=<big>", "dashboard.log.1=previous"}
            << QStringList{"dashboard.log1.gz=previous", "dashboard.log2.gz=<big>"};
        // gzip is handed the path in pieces: the renamed file stays uncompressed.
        QTest::newRow("blanks in the path") << "my logs" << QStringList{"dashboard.log=<big>"}
                                            << QStringList{"dashboard.log1=<big>"};
    }
    void rotation()
    {
        QFETCH(QString, subdir);
        QFETCH(QStringList, before);
        QFETCH(QStringList, after);
        QTemporaryDir tmp;
        const QString dir = tmp.path() + "/" + subdir;
        QVERIFY(QDir().mkpath(dir));
        for (const QString& file : before) {
            const QString path = dir + "/" + file.section('=', 0, 0).remove(QRegularExpression("\\.gz$"));
            QVERIFY(writeFile(path, contentFor(file.section('=', 1))));
            if (file.contains(".gz="))
                QCOMPARE(QProcess::execute("gzip", {"-q", path}), 0);
        }
        logItem it;
        LogManager::setLogCfg(&it, QDir::cleanPath(dir + "/dashboard.log"), kLimit, 4);
        LogManager().doRotate(it);
        QStringList names;
        for (const QString& file : after) {
            const QString name = file.section('=', 0, 0), path = dir + "/" + name;
            names << name;
            QCOMPARE(name.endsWith(".gz") ? gunzip(readFile(path)) : readFile(path), contentFor(file.section('=', 1)));
        }
        names.sort();
        QCOMPARE(QDir(dir).entryList(QDir::Files, QDir::Name), names);
        const QString log = gHome->readLog(), cleanDir = QDir::cleanPath(dir);
        QVERIFY(log.contains("LOGROTATE: cheking log file " + cleanDir + "/dashboard.log"));
        QCOMPARE(log.contains("LOGROTATE: perform rotation " + cleanDir), before.first().endsWith("<big>"));
    }

    void missingLiveFileIsReported()
    {
        QTemporaryDir tmp;
        const QString log = tmp.path() + "/dashboard.log";
        LogManager().archiveLog(log, 0, 4);
        QVERIFY(logged("WARNING dashboard: LOGROTATE: Cannot rotate log file:" + log));
        QVERIFY(logged("ERROR dashboard: LOGROTATE: Cannot archive file " + log));
        QVERIFY(QDir(tmp.path()).isEmpty());
    }

    void runRotatesBothLogs()
    {
        const QString user = gHome->userLog();
        const QString system = gHome->systemLogDir() + "/dashboard.log";
        // The user log is this process's live log: grow it past the limit with real lines.
        {
            QFile f(user);
            QVERIFY(f.open(QIODevice::Append));
            while (f.size() <= kLimit)
                f.write("2026-01-01 00:00:00.000 DEBUG dashboard: padding line for the rotation test\n");
        }
        const QByteArray userBefore = readFile(user);
        const QByteArray systemData = contentFor("<big>", "system");
        QVERIFY(writeFile(system, systemData));

        LogManager manager;
        QSignalSpy finished(&manager, &QThread::finished);
        manager.start();
        QVERIFY(finished.wait(60000));
        QCOMPARE(manager.config().user.maxSize, kLimit);
        QCOMPARE(manager.config().user.count, 4);

        // Everything the user log held, and the rotation's own first lines, are archived; the
        // logger started a new live file and went on writing into it.
        const QByteArray archived = gunzip(readFile(user + "1.gz"));
        QVERIFY(archived.startsWith(userBefore));
        QVERIFY(archived.contains("LOGROTATE: perform rotation " + user.toUtf8()));
        QCOMPARE(gunzip(readFile(system + "1.gz")), systemData);
        QVERIFY(!QFile::exists(system));
        QVERIFY(gHome->readLog().contains("DEBUG dashboard: LOGROTATE: perform rotation " + system));
        QVERIFY(QFileInfo(user).size() < 4096);
        QCOMPARE(LogManager().filesToSend(), QStringList({user, system, user + "1.gz", system + "1.gz"}));
    }
};

SHELL_TEST_MAIN(TestLogging)

#include "tst_logging.moc"
