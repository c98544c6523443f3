// The base library with real files and real child programs: the Log facade and the logger
// library behind it (literal texts, level mapping, Qt messages, where the files go, many writers
// while the live file is renamed away), log rotation with the real gzip, the process,
// environment and file helpers, and where the settings live.
//
// The test program is also its own child process ("--child <mode>"), so the logger's path rules
// and the abort of the message handler can be seen from outside.
#include "log.h"
#include "log_manager.h"
#include "os_platform.h"
#include "process_helpers.h"
#include "qvlogger.h"
#include "shell_common.h"
#include "test_support.h"

#include <QDir>
#include <QFileInfo>
#include <QHash>
#include <QRegularExpression>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

TestHome* gHome = nullptr;
const int kLimit = 5242880;

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

// This program as a child: `mode` and its arguments.
shell::RunResult runChild(const QStringList& args, const QProcessEnvironment& env)
{
    return shell::run(QCoreApplication::applicationFilePath(), QStringList{"--child"} + args, env);
}

//   params                  prints the logger's parameters 3, 4 and 7, one a line
//   lines <n> <tag>         logs "<tag> <i>" for i = 0 .. n-1 through Log::print
//   component <name> <text> logs <text> as component <name> and as the dashboard, prints both codes
//   messages                routes Qt messages into the log, ends with a qInfo
int childMain(int argc, char** argv)
{
    const QByteArray mode = argc > 2 ? argv[2] : "";
    if (mode == "params") {
        for (int param : {int(QVLOGGER_PARAM_USER_LOG_PATH), int(QVLOGGER_PARAM_SYSTEM_LOG_PATH), 7}) {
            const char* value = qvlogger_get_param(param);
            std::printf("%s\n", value ? value : "(null)");
        }
    } else if (mode == "lines" && argc == 5) {
        for (int i = 0; i < std::atoi(argv[3]); ++i)
            Log::print(Log::DEBUG, QString("%1 %2").arg(QString::fromLocal8Bit(argv[4])).arg(i));
    } else if (mode == "component" && argc == 5) {
        const int own = qvlogger_log(QVLOGGER_NOTICE, argv[3], "%s", argv[4]);
        const int dashboard = qvlogger_logw(QVLOGGER_NOTICE, "dashboard", L"%s", argv[4]);
        std::printf("component=%d dashboard=%d\n", own, dashboard);
    } else if (mode == "messages") {
        qInstallMessageHandler(Log::messageHandler);
        qDebug("debug line %d", 1);
        qWarning("warning line %d", 2);
        qCritical("critical line %d", 3);
        qInfo("info line %d", 4); // ends the process
        Log::print(Log::DEBUG, "still running after qInfo");
    } else {
        return 2;
    }
    return 0;
}

} // namespace

class TestBaseLibrary : public QObject
{
    Q_OBJECT

    QTemporaryDir tmp;
    QString spacedDir;
    QString tool;

    QString script(const QString& name, const QByteArray& body)
    {
        const QString path = spacedDir + "/" + name;
        if (!writeFile(path, "#!/bin/sh\n" + body))
            return QString();
        QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        return path;
    }
    // This process's log lines written after `mark` characters.
    static QStringList logSince(int mark) { return shell::strippedLines(gHome->readLog().mid(mark)); }

private slots:
    void initTestCase()
    {
        spacedDir = tmp.path() + "/My App/bin";
        QVERIFY(QDir().mkpath(spacedDir));
        // Prints each argument on its own line, exits with the code given in $EXIT_WITH.
        tool = script("tool", "for a in \"$@\"; do echo \"[$a]\"; done\nexit ${EXIT_WITH:-0}\n");
        QVERIFY(!tool.isEmpty());
    }

    void programPathWithBlanks_data()
    {
        QTest::addColumn<QString>("program");
        const QString quoted = "\"" + spacedDir + "/tool\"";
        QTest::newRow("bare") << spacedDir + "/tool";
        QTest::newRow("surrounding blanks") << "  " + spacedDir + "/tool  ";
        QTest::newRow("already quoted") << quoted;
    }
    void programPathWithBlanks()
    {
        QFETCH(QString, program);
        const QString logged = "\"" + spacedDir + "/tool\"";
        qputenv("EXIT_WITH", "7");
        const int mark = gHome->readLog().size();
        QCOMPARE(executeCommand(program, "  one two  ", false), 7);
        QCOMPARE(executeCommandWithOutput(program, "one two", false), QString("[one]\n[two]\n"));
        qunsetenv("EXIT_WITH");
        QCOMPARE(logSince(mark), QStringList({"DEBUG dashboard: executeCommand " + logged + " one two",
                                              "DEBUG dashboard: done executeCommand " + logged + " exit code 7",
                                              "DEBUG dashboard: executeCommandWithOutput " + logged + " one two",
                                              "DEBUG dashboard: done executeCommandWithOutput " + logged +
                                                  " exit code 7 output size: 12"}));
    }

    void argumentsExitCodesAndOutput()
    {
        // No shell: quotes group, and shell syntax arrives as plain text.
        QCOMPARE(executeCommandWithOutput(tool, "\"a b\" c $HOME ; | *", false),
                 QString("[a b]\n[c]\n[$HOME]\n[;]\n[|]\n[*]\n"));
        QCOMPARE(executeCommandWithOutput(tool, "", false), QString(""));
        QCOMPARE(executeCommand(script("exit-3", "exit 3\n"), "", false), 3);
        // A crash cannot be told from success, by design.
        QCOMPARE(executeCommand(script("crash", "kill -SEGV $$\n"), "", false), 0);
        QCOMPARE(executeCommandWithOutput(script("nul", "printf 'before\\000after'\n"), "", false), QString("before"));
        QCOMPARE(executeCommandWithOutput(script("utf8", "printf 'Z\\303\\274rich\\n'\n"), "", false),
                 QString::fromUtf8("Zürich\n"));
        // A program that cannot be started gives no text at all, and 0 as exit code.
        const QString missing = tmp.path() + "/no such program";
        QVERIFY(executeCommandWithOutput(missing, "", false).isNull());
        QCOMPARE(executeCommand(missing, "x", false), 0);
    }

    void outputIsDiscardedAndInputClosed()
    {
        // Far more output than a pipe holds, on both channels, and a read of standard input:
        // the child must neither block on a full pipe nor wait for input.
        const QString noisy = script("noisy", "head -c 4000000 /dev/zero\nhead -c 4000000 /dev/zero >&2\n"
                                              "cat > \"$1\"\nexit 4\n");
        const QString got = tmp.path() + "/stdin-was";
        QCOMPARE(executeCommand(noisy, "\"" + got + "\"", false), 4);
        QVERIFY(QFile::exists(got) && QFileInfo(got).size() == 0);
        const QString big = script("big", "head -c 3000000 /dev/zero | tr '\\0' 'x'\nhead -c 100000 /dev/zero >&2\n");
        QCOMPARE(executeCommandWithOutput(big, "", false).size(), 3000000);
    }

    void noCardsEnvironment_data()
    {
        QTest::addColumn<bool>("noCards");
        QTest::addColumn<QString>("expected");
        QTest::newRow("asked") << true << "cards=1 gui=1 mark=kept\n";
        QTest::newRow("not asked") << false << "cards=unset gui=unset mark=kept\n";
    }
    void noCardsEnvironment()
    {
        QFETCH(bool, noCards);
        QFETCH(QString, expected);
        qunsetenv("ZORVIK_CRYPTOKI_NO_CARDS");
        qunsetenv("ZORVIK_CRYPTOKI_NO_GUI");
        qputenv("SHELL_TEST_MARK", "kept");
        const QString env = script("env", "echo \"cards=${ZORVIK_CRYPTOKI_NO_CARDS-unset} "
                                          "gui=${ZORVIK_CRYPTOKI_NO_GUI-unset} mark=${SHELL_TEST_MARK-unset}\"\n"
                                          "[ \"${ZORVIK_CRYPTOKI_NO_CARDS-}\" = 1 ] && exit 10\nexit 20\n");
        QCOMPARE(executeCommandWithOutput(env, "", noCards), expected);
        QCOMPARE(executeCommand(env, "", noCards), noCards ? 10 : 20);
        QCOMPARE(executeAdminCommandWithOutput(env, ""), QString("cards=unset gui=unset mark=kept\n"));
        // This process's own environment is untouched.
        QVERIFY(!qEnvironmentVariableIsSet("ZORVIK_CRYPTOKI_NO_CARDS"));
    }

    void adminCommandsRunNothingElevated()
    {
        const QString flag = tmp.path() + "/admin-ran";
        QCOMPARE(executeAdminCommand("\"" + script("touch-flag", "touch \"$1\"\nexit 9\n") + "\" \"" + flag + "\""), 0);
        QVERIFY(!QFile::exists(flag));
    }

    void envVarPathsHexlifyAndSleep()
    {
        // Unset: a null text and no line; set, even empty: the value and one line.
        qunsetenv("SHELL_TEST_UNSET");
        qputenv("SHELL_TEST_EMPTY", "");
        qputenv("SHELL_TEST_SET", "a value");
        const int mark = gHome->readLog().size();
        QVERIFY(getEnvVar("SHELL_TEST_UNSET").isNull());
        const QString empty = getEnvVar("SHELL_TEST_EMPTY");
        QVERIFY(!empty.isNull() && empty.isEmpty());
        QCOMPARE(getEnvVar("SHELL_TEST_SET"), QString("a value"));
        QCOMPARE(logSince(mark), QStringList({"DEBUG dashboard: getEnvVar SHELL_TEST_EMPTY=",
                                              "DEBUG dashboard: getEnvVar SHELL_TEST_SET=a value"}));

        // Blanks around a path are not part of it.
        const QString file = tmp.path() + "/readable";
        QVERIFY(writeFile(file, "x"));
        QVERIFY(checkDir("  " + tmp.path() + "  "));
        QVERIFY(!checkDir(file) && !checkDir(tmp.path() + "/missing"));
        QVERIFY(::checkFile(" " + file + "\t"));
        QVERIFY(!::checkFile(tmp.path()) && !::checkFile(tmp.path() + "/missing"));
        QVERIFY(gHome->readLog().contains("DEBUG dashboard: checking path:  " + tmp.path() + "  \n"));

        QCOMPARE(::hexlify(QByteArray()), QString());
        QCOMPARE(::hexlify(QByteArray("\x00\xab\xff", 3)), QString("00:AB:FF"));
        // These must come back: a negative time must not turn into an endless sleep.
        for (int ms : {0, -5, -1000, 1})
            MySleep(ms);
    }

    // The program's settings: one file beside the other per-user settings, and the file an
    // earlier version wrote taken over once, never lost.
    void earlierSettingsTakenOverOnce_data()
    {
        QTest::addColumn<QString>("earlier");
        QTest::newRow("application settings of earlier versions") << "Zorvik";
        QTest::newRow("file named after the application's organisation") << "ZORVIK";
    }
    void earlierSettingsTakenOverOnce()
    {
        QFETCH(QString, earlier);
        QTemporaryDir home;
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.path()));
        const QString earlierFile = home.path() + "/" + earlier + "/Dashboard.conf";
        const auto showAll = [] {
            return std::unique_ptr<QSettings>(OsPlatform::applicationSettings(nullptr))->value("showAllPKCS", false);
        };
        QCOMPARE(showAll(), QVariant(false));
        QSettings(earlierFile, QSettings::IniFormat).setValue("showAllPKCS", true);
        QCOMPARE(showAll().toBool(), true);
        QVERIFY(QFile::exists(home.path() + "/zorvik/Dashboard.conf"));
        // Taken once: the new file holds from now on, and the earlier one is left as it was.
        QSettings(earlierFile, QSettings::IniFormat).setValue("showAllPKCS", false);
        QCOMPARE(showAll().toBool(), true);
        QVERIFY(QFile::exists(earlierFile));
    }

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
        QCOMPARE(runChild({"messages"}, child.environment()).status, QProcess::CrashExit);
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
        QTest::newRow("empty own dir ignored")
            << QStringList{"ZORVIK_LOG_DIR=", "XDG_STATE_HOME=<t>/state", "HOME=<t>/h"}
            << "<t>/state/zorvik/dashboard.log" << system;
        QTest::newRow("empty state home ignored")
            << QStringList{"XDG_STATE_HOME=", "HOME=<t>/h"} << "<t>/h/.local/state/zorvik/dashboard.log" << system;
        QTest::newRow("system dir") << QStringList{"HOME=<t>/h", "ZORVIK_SYSTEM_LOG_DIR=<t>/sys"}
                                    << "<t>/h/.local/state/zorvik/dashboard.log"
                                    << "<t>/sys/dashboard.log";
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
        userLog.replace("<t>", t.path());
        QCOMPARE(QString::fromUtf8(runChild({"params"}, env).out),
                 userLog + "\n" + systemLog.replace("<t>", t.path()) + "\n(null)\n");
        // The library writes there, creating the missing directories.
        QCOMPARE(runChild({"lines", "2", "path-probe"}, env).code, 0);
        QCOMPARE(shell::strippedLines(QString::fromUtf8(readFile(userLog))),
                 QStringList({"DEBUG dashboard: path-probe 0", "DEBUG dashboard: path-probe 1"}));
    }

    void platformLinesAlsoGoToSystemLog()
    {
        TestHome child;
        QProcessEnvironment env = child.environment();
        const auto component = [&](const QString& text) {
            return runChild({"component", "qvtoken", text}, env).out.trimmed();
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
                children.back()->start(QCoreApplication::applicationFilePath(),
                                       {"--child", "lines", QString::number(perWriter), tag});
            }
        }
        // Rename the live file away again and again while they write.
        QStringList pieces;
        const auto running = [&] {
            return std::any_of(threads.begin(), threads.end(), [](auto& t) { return !t->isFinished(); }) ||
                   std::any_of(children.begin(), children.end(),
                               [](auto& p) { return p->state() != QProcess::NotRunning && !p->waitForFinished(0); });
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
        static const QRegularExpression lineRe(
            R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} DEBUG dashboard: (\w\d) (\d+)$)");
        QHash<QString, QVector<int>> seen;
        for (const QString& tag : tags)
            seen.insert(tag, QVector<int>(perWriter, 0));
        for (const QString& piece : pieces) {
            const QByteArray data = readFile(piece);
            QVERIFY2(data.isEmpty() || data.endsWith('\n'), qPrintable(piece + " ends inside a line"));
            for (const QByteArray& raw : data.split('\n')) {
                const auto m = lineRe.match(QString::fromUtf8(raw));
                const int i = m.captured(2).toInt();
                QVERIFY2(raw.isEmpty() || (m.hasMatch() && seen.contains(m.captured(1)) && i < perWriter),
                         raw.constData());
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
        QTest::newRow("exactly the limit")
            << "" << QStringList{"dashboard.log=<limit>"} << QStringList{"dashboard.log=<limit>"};
        QTest::newRow("full series shifts")
            << ""
            << QStringList{"dashboard.log=<big>", "dashboard.log1.gz=one", "dashboard.log2.gz=two",
                           "dashboard.log3.gz=three"}
            << QStringList{"dashboard.log1.gz=<big>", "dashboard.log2.gz=one", "dashboard.log3.gz=two"};
        QTest::newRow("gap in series") << "" << QStringList{"dashboard.log=<big>", "dashboard.log2.gz=two"}
                                       << QStringList{"dashboard.log1.gz=<big>", "dashboard.log2.gz=two"};
        QTest::newRow("leftover of an interrupted run")
            << "" << QStringList{"dashboard.log=<big>", "dashboard.log1=half"}
            << QStringList{"dashboard.log1.gz=<big>"};
        // Logs of the earlier naming scheme ("<log>.1") become archive 1.
        QTest::newRow("previous log, archive 1")
            << ""
            << QStringList{"dashboard.log=small", "dashboard.log.1=previous", "dashboard.log1=stale",
                           "dashboard.log1.gz=one"}
            << QStringList{"dashboard.log=small", "dashboard.log1.gz=previous", "dashboard.log2.gz=one"};
        QTest::newRow("previous log, live over the limit")
            << "" << QStringList{"dashboard.log=<big>", "dashboard.log.1=previous"}
            << QStringList{"dashboard.log1.gz=previous", "dashboard.log2.gz=<big>"};
        // gzip is handed the path in pieces: the renamed file stays uncompressed.
        QTest::newRow("blanks in the path")
            << "my logs" << QStringList{"dashboard.log=<big>"} << QStringList{"dashboard.log1=<big>"};
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
        manager.start();
        QVERIFY(manager.wait(60000)); // a spy on finished() would be written from the thread itself
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

int main(int argc, char** argv)
{
    if (argc > 1 && std::strcmp(argv[1], "--child") == 0)
        return childMain(argc, argv);
    // A private home, set up before the first line is logged: the logger fixes its paths then.
    TestHome home;
    home.apply();
    gHome = &home;
    QCoreApplication app(argc, argv);
    TestBaseLibrary test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_base_library.moc"
