// The base library with real files and real child programs: the Log facade and the logger
// library behind it, log rotation with the real gzip, the process, environment and file
// helpers, where the settings live, and the single-instance segment across processes.
//
// The test program is also its own child process ("--child <mode>"), so the logger's path rules
// and the abort of the message handler can be seen from outside.
#include "log.h"
#include "log_manager.h"
#include "os_platform.h"
#include "process_helpers.h"
#include "qvlogger.h"
#include "shared_segment.h"
#include "test_support.h"

#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSettings>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

namespace {

TestHome* gHome = nullptr;
const int kLimit = 5242880;
const char* const kSegment = "zorvikdashboard";

// The log lines of `text` without their 24-character time stamp.
QStringList stripped(const QString& text)
{
    QStringList out;
    for (const QString& line : text.split('\n', Qt::SkipEmptyParts))
        out << line.mid(24);
    return out;
}

// "<big>" is a live log over the limit, "<limit>" one exactly at it; other text is itself.
QByteArray contentFor(const QString& text, const QByteArray& tag = "live")
{
    if (!text.startsWith('<'))
        return text.toUtf8() + "\n";
    return (tag + '\n' + QByteArray(kLimit, 'z')).left(text == "<big>" ? kLimit + 1 : kLimit);
}

bool logged(const QString& line) { return stripped(gHome->readLog()).contains(line); }

// This program as a child: its exit code (-1 on a crash) and standard output.
int runChild(const QStringList& args, const QProcessEnvironment& env, QByteArray* out = nullptr)
{
    QByteArray errors;
    return runProgram(QCoreApplication::applicationFilePath(), QStringList{"--child"} + args, out, env, &errors);
}

//   params                  prints the logger's parameters 3, 4 and 7, one a line
//   lines <n> <tag>         logs "<tag> <i>" for i = 0 .. n-1 through Log::print
//   component <name> <text> logs <text> as component <name> and as the dashboard, prints both codes
//   messages                routes Qt messages into the log, ends with a qInfo
//   hold-segment            creates the segment, forks a child that never runs a program (as
//                           Qt's does when its parent is killed mid-start), prints the child's
//                           process ID and dies of SIGKILL
//   probe-segment           prints 1 when a live process holds the segment, else 0
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
    } else if (mode == "hold-segment") {
        SharedSegment segment(kSegment);
        if (!segment.create(20))
            return 3;
        const pid_t child = ::fork();
        if (child == 0) {
            const int null = ::open("/dev/null", O_RDWR);
            for (int fd : {0, 1, 2})
                ::dup2(null, fd);
            ::pause();
            ::_exit(0);
        }
        std::printf("%d\n", int(child));
        std::fflush(stdout);
        ::raise(SIGKILL);
    } else if (mode == "probe-segment") {
        SharedSegment segment(kSegment);
        std::printf("%d\n", int(segment.attach()));
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
        writeFile(path, "#!/bin/sh\n" + body);
        QFile::setPermissions(path, QFileDevice::ReadOwner | QFileDevice::WriteOwner | QFileDevice::ExeOwner);
        return path;
    }

private slots:
    void initTestCase()
    {
        spacedDir = tmp.path() + "/My App/bin";
        QVERIFY(QDir().mkpath(spacedDir));
        // Prints each argument on its own line, exits with 7.
        tool = script("tool", "for a in \"$@\"; do echo \"[$a]\"; done\nexit 7\n");
    }

    // The program path with blanks around it or quoted; no shell: quotes group, and shell
    // syntax arrives as plain text.
    void argumentsExitCodesAndOutput()
    {
        QCOMPARE(executeCommand("  " + tool + "  ", "  one two  ", false), 7);
        QCOMPARE(executeCommandWithOutput("\"" + tool + "\"", "\"a b\" c $HOME ; | *", false),
                 QString("[a b]\n[c]\n[$HOME]\n[;]\n[|]\n[*]\n"));
        // A crash cannot be told from success, by design.
        QCOMPARE(executeCommand(script("crash", "kill -SEGV $$\n"), "", false), 0);
        QCOMPARE(executeCommandWithOutput(script("nul", "printf 'Z\\303\\274rich\\000after'\n"), "", false),
                 QString::fromUtf8("Zürich"));
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

    void noCardsEnvironmentAndNoElevation()
    {
        qunsetenv("ZORVIK_CRYPTOKI_NO_CARDS");
        qunsetenv("ZORVIK_CRYPTOKI_NO_GUI");
        const QString env = script("env", "echo \"cards=${ZORVIK_CRYPTOKI_NO_CARDS-unset} "
                                          "gui=${ZORVIK_CRYPTOKI_NO_GUI-unset}\"\n"
                                          "[ \"${ZORVIK_CRYPTOKI_NO_CARDS-}\" = 1 ] && exit 10\nexit 20\n");
        QCOMPARE(executeCommandWithOutput(env, "", true), QString("cards=1 gui=1\n"));
        QCOMPARE(executeCommand(env, "", true), 10);
        QCOMPARE(executeCommand(env, "", false), 20);
        QCOMPARE(executeAdminCommandWithOutput(env, ""), QString("cards=unset gui=unset\n"));
        QVERIFY(!qEnvironmentVariableIsSet("ZORVIK_CRYPTOKI_NO_CARDS"));

        const QString flag = tmp.path() + "/admin-ran";
        QCOMPARE(executeAdminCommand("\"" + script("touch-flag", "touch \"$1\"\nexit 9\n") + "\" \"" + flag + "\""), 0);
        QVERIFY(!QFile::exists(flag));
    }

    void envVarPathsAndSleep()
    {
        qunsetenv("SHELL_TEST_UNSET");
        qputenv("SHELL_TEST_EMPTY", "");
        QVERIFY(getEnvVar("SHELL_TEST_UNSET").isNull());
        QVERIFY(!getEnvVar("SHELL_TEST_EMPTY").isNull());
        // Blanks around a path are not part of it.
        const QString file = tmp.path() + "/readable";
        QVERIFY(writeFile(file, "x"));
        QVERIFY(checkDir("  " + tmp.path() + "  "));
        QVERIFY(!checkDir(file) && !checkDir(tmp.path() + "/missing"));
        QVERIFY(::checkFile(" " + file + "\t"));
        QVERIFY(!::checkFile(tmp.path()) && !::checkFile(tmp.path() + "/missing"));
        QCOMPARE(::hexlify(QByteArray("\x00\xab\xff", 3)), QString("00:AB:FF"));
        // A negative time must not turn into an endless sleep.
        for (int ms : {-5, -1000})
            MySleep(ms);
    }

    // The settings file an earlier version wrote is taken over once, never lost.
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
        QSettings(earlierFile, QSettings::IniFormat).setValue("showAllPKCS", false);
        QCOMPARE(showAll().toBool(), true);
        QVERIFY(QFile::exists(earlierFile));
    }

    // Texts verbatim (no format expansion, no cut), and the level names.
    void linesAndLevels_data()
    {
        QTest::addColumn<int>("level");
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("line");
        const QString format = "value %1 of %2, rate 100%s %d %n %ls %S %% at the end %";
        const QString longText = QString::fromUtf8("Zürich ключ 鍵 \U0001F511 ") + QString(20000, 'x') + ":end";
        QTest::newRow("format characters") << int(Log::DEBUG) << format << "DEBUG dashboard: " + format;
        QTest::newRow("non-ASCII, long") << int(Log::DEBUG) << longText << "DEBUG dashboard: " + longText;
        QTest::newRow("EMERG") << 0 << "emerg" << "CRIT dashboard: emerg";
        QTest::newRow("INFO") << 6 << "info" << "INFO dashboard: info";
        QTest::newRow("out of range") << 8 << "eight" << "DEBUG dashboard: eight";
        QTest::newRow("negative") << -1 << "minus" << "DEBUG dashboard: minus";
    }
    void linesAndLevels()
    {
        QFETCH(int, level);
        QFETCH(QString, text);
        QFETCH(QString, line);
        Log::print(static_cast<Log::LogLevel>(level), text);
        QVERIFY(logged(line));
    }

    void lastLogIsTheTail()
    {
        const QByteArray log = gHome->readLog().toUtf8();
        QCOMPARE(Log::lastLog(20).toUtf8(), log.right(20));
        QCOMPARE(Log::lastLog(1 << 30).toUtf8(), log);
    }

    void qtMessagesAndInfoAbort()
    {
        TestHome child;
        QCOMPARE(runChild({"messages"}, child.environment()), -1);
        QCOMPARE(stripped(child.readLog()),
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
        userLog.replace("<t>", t.path());
        QByteArray out;
        QCOMPARE(runChild({"params"}, env, &out), 0);
        QCOMPARE(QString::fromUtf8(out), userLog + "\n" + systemLog.replace("<t>", t.path()) + "\n(null)\n");
        // The library writes there, creating the missing directories.
        QCOMPARE(runChild({"lines", "1", "path-probe"}, env), 0);
        QCOMPARE(stripped(QString::fromUtf8(readFile(userLog))), QStringList({"DEBUG dashboard: path-probe 0"}));
    }

    void platformLinesAlsoGoToSystemLog()
    {
        TestHome child;
        QProcessEnvironment env = child.environment();
        const auto component = [&](const QString& text) {
            QByteArray out;
            runChild({"component", "qvtoken", text}, env, &out);
            return out.trimmed();
        };
        QCOMPARE(component("reader found"), QByteArray("component=0 dashboard=0"));
        QCOMPARE(stripped(child.readLog()), QStringList({"NOTICE qvtoken: reader found", "NOTICE dashboard: reader found"}));
        QCOMPARE(stripped(QString::fromUtf8(readFile(child.systemLogDir() + "/dashboard.log"))),
                 QStringList({"NOTICE qvtoken: reader found"}));

        // A system log that cannot be made costs nothing of the user log; with no writable file
        // at all the call reports it and the process goes on.
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
        QStringList got, expected;
        for (const QString& piece : pieces) {
            const QString data = QString::fromUtf8(readFile(piece));
            QVERIFY2(data.isEmpty() || data.endsWith('\n'), qPrintable(piece + " ends inside a line"));
            got << stripped(data);
        }
        for (const QString& tag : tags)
            for (int i = 0; i < perWriter; ++i)
                expected << QString("DEBUG dashboard: %1 %2").arg(tag).arg(i);
        got.sort();
        expected.sort();
        QVERIFY(got == expected);
    }

    // Files before and after one rotation of "dashboard.log": "name=content", .gz archives
    // compared after decompression.
    // The segment lives exactly as long as the process that created it: a child left behind by
    // a killed owner does not keep it, and a second object in the owner's process neither
    // takes it over nor lets go of it.
    void segmentLivesWithItsCreator()
    {
        const QProcessEnvironment env = gHome->environment();
        const auto heldElsewhere = [&env] {
            QByteArray out;
            return runChild({"probe-segment"}, env, &out) == 0 ? out.trimmed() : "probe failed";
        };
        QByteArray out;
        QCOMPARE(runChild({"hold-segment"}, env, &out), -1);
        const pid_t stray = out.trimmed().toInt();
        QVERIFY(stray > 0);
        const auto endStray = qScopeGuard([stray] { ::kill(stray, SIGKILL); });
        QCOMPARE(::kill(stray, 0), 0); // still there, with the owner's files open
        QCOMPARE(heldElsewhere(), QByteArray("0"));

        SharedSegment mine(kSegment);
        QVERIFY(mine.create(20));
        QCOMPARE(heldElsewhere(), QByteArray("1"));
        {
            SharedSegment second(kSegment);
            QVERIFY(!second.create(20));
            QVERIFY(second.attach());
        }
        QCOMPARE(heldElsewhere(), QByteArray("1"));
        mine.detach();
        QCOMPARE(heldElsewhere(), QByteArray("0"));
    }

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
        QTest::newRow("no live file") << "" << QStringList{} << QStringList{};
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

        // Everything the user log held is archived; the logger started a new live file.
        QVERIFY(gunzip(readFile(user + "1.gz")).startsWith(userBefore));
        QCOMPARE(gunzip(readFile(system + "1.gz")), systemData);
        QVERIFY(!QFile::exists(system));
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
