// The Log facade and the logger library behind it: literal texts, level mapping, Qt
// messages, where the files go, and many writers while the live file is renamed away.
#include "log.h"
#include "qvlogger.h"
#include "shell_common.h"
#include "test_support.h"

#include <QDir>
#include <QHash>
#include <QRegularExpression>
#include <QSet>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <memory>
#include <vector>

namespace {

// Set up before the first line is logged: the library fixes its paths then.
TestHome* gHome = nullptr;

QString libraryLevelName(int libraryLevel)
{
    static const char* const names[] = {"CRIT", "ERROR", "WARNING", "NOTICE", "INFO", "DEBUG"};
    return names[libraryLevel];
}

// An environment with nothing of the user's log settings in it.
QProcessEnvironment bareEnvironment()
{
    QProcessEnvironment env;
    env.insert("PATH", qEnvironmentVariable("PATH"));
    for (const char* keep : {"ASAN_OPTIONS", "UBSAN_OPTIONS", "TSAN_OPTIONS", "LD_LIBRARY_PATH"})
        if (qEnvironmentVariableIsSet(keep))
            env.insert(keep, qEnvironmentVariable(keep));
    return env;
}

QHash<QString, QString> parseParams(const QByteArray& out)
{
    QHash<QString, QString> params;
    for (const QByteArray& line : out.split('\n')) {
        const int eq = line.indexOf('=');
        if (eq > 0)
            params.insert(QString::fromUtf8(line.left(eq)), QString::fromUtf8(line.mid(eq + 1)));
    }
    return params;
}

} // namespace

class TestLogger : public QObject
{
    Q_OBJECT

private slots:
    // The facade in this process.
    void textsAreNeverFormats_data();
    void textsAreNeverFormats();
    void levelMapping_data();
    void levelMapping();
    void nonAsciiAndLongTexts();
    void setLogChangesNothingLastLogIsTheTail();

    // Qt's own messages, in a child process.
    void qtMessagesAndInfoAbort();

    // Where the files go.
    void pathRules_data();
    void pathRules();
    void platformLinesAlsoGoToSystemLog();
    void unwritableSystemLogDir();

    // Writers from threads and processes while the file is rotated away.
    void concurrentWritersDuringRotation();
};

void TestLogger::textsAreNeverFormats_data()
{
    QTest::addColumn<QString>("text");
    QTest::newRow("qt placeholder") << "value %1 of %2";
    QTest::newRow("printf conversions") << "rate 100%s %d %n %ls %S %%";
    QTest::newRow("lone percent at end") << "at the end %";
}

void TestLogger::textsAreNeverFormats()
{
    QFETCH(QString, text);
    const QString marker = QString("[%1] ").arg(QTest::currentDataTag());
    Log::print(Log::DEBUG, marker + text);
    const QStringList lines = shell::strippedLines(gHome->readLog());
    QVERIFY2(lines.contains("DEBUG dashboard: " + marker + text), qPrintable(lines.join('\n')));
}

void TestLogger::levelMapping_data()
{
    QTest::addColumn<int>("level");
    QTest::addColumn<int>("libraryLevel");
    QTest::newRow("EMERG") << 0 << 0;
    QTest::newRow("ALERT") << 1 << 0;
    QTest::newRow("CRIT") << 2 << 0;
    QTest::newRow("ERR") << 3 << 1;
    QTest::newRow("WARNING") << 4 << 2;
    QTest::newRow("NOTICE") << 5 << 3;
    QTest::newRow("INFO") << 6 << 4;
    QTest::newRow("DEBUG") << 7 << 5;
    QTest::newRow("out of range 9") << 9 << 5;
    QTest::newRow("out of range 8") << 8 << 5;
    QTest::newRow("negative") << -1 << 5;
}

void TestLogger::levelMapping()
{
    QFETCH(int, level);
    QFETCH(int, libraryLevel);
    QCOMPARE(Log::libraryLevel(level), libraryLevel);

    const QString text = QString("level probe %1").arg(level);
    Log::print(static_cast<Log::LogLevel>(level), text);
    const QStringList lines = shell::strippedLines(gHome->readLog());
    const QString expected = libraryLevelName(libraryLevel) + " dashboard: " + text;
    QVERIFY2(lines.contains(expected), qPrintable("missing: " + expected));
}

void TestLogger::nonAsciiAndLongTexts()
{
    const QString text = QString::fromUtf8("Zürich ключ € 鍵 \U0001F511");
    Log::print(Log::INFO, text);
    QVERIFY(shell::strippedLines(gHome->readLog()).contains("INFO dashboard: " + text));

    // Longer than any first buffer guess of the library.
    const QString longText = "long:" + QString(20000, QChar('x')) + ":end";
    Log::print(Log::DEBUG, longText);
    QVERIFY(shell::strippedLines(gHome->readLog()).contains("DEBUG dashboard: " + longText));
}

void TestLogger::setLogChangesNothingLastLogIsTheTail()
{
    QTemporaryDir other;
    const QString otherLog = other.path() + "/elsewhere.log";
    Log::setLog(otherLog, Log::ERR, 10);
    Log::rotateLogFile();
    Log::print(Log::DEBUG, "after setLog");
    QVERIFY(shell::strippedLines(gHome->readLog()).contains("DEBUG dashboard: after setLog"));
    QVERIFY(!QFile::exists(otherLog));
    // lastLog reads the end of the user log, whatever setLog was told.
    const QByteArray log = gHome->readLog().toUtf8();
    QCOMPARE(Log::lastLog(20).toUtf8(), log.right(20)); // within the ASCII line above
    QCOMPARE(Log::lastLog(1 << 30).toUtf8(), log);
    QVERIFY(Log::lastLog(0).isEmpty());
}

void TestLogger::qtMessagesAndInfoAbort()
{
    TestHome child;
    const shell::RunResult r = shell::run(SHELL_HELPER_EXE, {"messages"}, child.environment());
    QVERIFY(r.finished);
    QCOMPARE(r.status, QProcess::CrashExit);

    const QStringList lines = shell::strippedLines(child.readLog());
    QVERIFY2(lines.contains("DEBUG dashboard: debug line 1"), qPrintable(lines.join('\n')));
    QVERIFY(lines.contains("WARNING dashboard: warning line 2"));
    QVERIFY(lines.contains("ERROR dashboard: critical line 3"));
    QVERIFY(lines.contains("CRIT dashboard: info line 4"));
    QVERIFY(!child.readLog().contains("still running after qInfo"));
}

void TestLogger::pathRules_data()
{
    QTest::addColumn<QStringList>("settings"); // NAME=value; "<t>" is the test's directory
    QTest::addColumn<QString>("userLog");
    QTest::addColumn<QString>("systemLog");

    const QString allSet = "ZORVIK_LOG_DIR=<t>/own/logs";
    QTest::newRow("own dir wins") << QStringList{allSet, "XDG_STATE_HOME=<t>/state", "HOME=<t>/home"}
                                  << "<t>/own/logs/dashboard.log"
                                  << "/var/log/zorvik/dashboard.log";
    QTest::newRow("state home") << QStringList{"XDG_STATE_HOME=<t>/state", "HOME=<t>/home"}
                                << "<t>/state/zorvik/dashboard.log"
                                << "/var/log/zorvik/dashboard.log";
    QTest::newRow("empty own dir ignored")
        << QStringList{"ZORVIK_LOG_DIR=", "XDG_STATE_HOME=<t>/state", "HOME=<t>/home"}
        << "<t>/state/zorvik/dashboard.log"
        << "/var/log/zorvik/dashboard.log";
    QTest::newRow("home") << QStringList{"HOME=<t>/home"} << "<t>/home/.local/state/zorvik/dashboard.log"
                          << "/var/log/zorvik/dashboard.log";
    QTest::newRow("empty state home ignored") << QStringList{"XDG_STATE_HOME=", "HOME=<t>/home"}
                                              << "<t>/home/.local/state/zorvik/dashboard.log"
                                              << "/var/log/zorvik/dashboard.log";
    QTest::newRow("system dir") << QStringList{"HOME=<t>/home", "ZORVIK_SYSTEM_LOG_DIR=<t>/sys"}
                                << "<t>/home/.local/state/zorvik/dashboard.log"
                                << "<t>/sys/dashboard.log";
}

void TestLogger::pathRules()
{
    QFETCH(QStringList, settings);
    QFETCH(QString, userLog);
    QFETCH(QString, systemLog);
    QTemporaryDir t;
    QVERIFY(t.isValid());
    userLog.replace("<t>", t.path());
    systemLog.replace("<t>", t.path());

    QProcessEnvironment env = bareEnvironment();
    for (QString s : settings) {
        s.replace("<t>", t.path());
        const int eq = s.indexOf('=');
        env.insert(s.left(eq), s.mid(eq + 1));
    }
    const shell::RunResult params = shell::run(SHELL_HELPER_EXE, {"params"}, env);
    QCOMPARE(params.code, 0);
    const auto p = parseParams(params.out);
    QCOMPARE(p.value("user"), userLog);
    QCOMPARE(p.value("system"), systemLog);
    QCOMPARE(p.value("other"), QString("(null)"));

    // The library writes there, creating the missing directories.
    const shell::RunResult lines = shell::run(SHELL_HELPER_EXE, {"lines", "2", "path-probe"}, env);
    QCOMPARE(lines.code, 0);
    const QStringList written = shell::strippedLines(QString::fromUtf8(shell::readFile(userLog)));
    QCOMPARE(written, QStringList({"DEBUG dashboard: path-probe 0", "DEBUG dashboard: path-probe 1"}));
}

void TestLogger::platformLinesAlsoGoToSystemLog()
{
    TestHome child;
    const shell::RunResult r =
        shell::run(SHELL_HELPER_EXE, {"component", "qvtoken", "reader found"}, child.environment());
    QCOMPARE(r.code, 0);
    QCOMPARE(r.out.trimmed(), QByteArray("component=0 dashboard=0"));
    const QStringList user = shell::strippedLines(child.readLog());
    QCOMPARE(user, QStringList({"NOTICE qvtoken: reader found", "NOTICE dashboard: reader found"}));
    const QStringList system =
        shell::strippedLines(QString::fromUtf8(shell::readFile(child.systemLogDir() + "/dashboard.log")));
    QCOMPARE(system, QStringList({"NOTICE qvtoken: reader found"}));
}

void TestLogger::unwritableSystemLogDir()
{
    TestHome child;
    // A directory below a regular file cannot be made, not even by root.
    const QString blocker = child.path() + "/not-a-dir";
    QVERIFY(shell::writeFile(blocker, "x"));
    QProcessEnvironment env = child.environment();
    env.insert("ZORVIK_SYSTEM_LOG_DIR", blocker + "/zorvik");

    const shell::RunResult params = shell::run(SHELL_HELPER_EXE, {"params"}, env);
    QCOMPARE(parseParams(params.out).value("system"), blocker + "/zorvik/dashboard.log");

    const shell::RunResult r = shell::run(SHELL_HELPER_EXE, {"component", "qvtoken", "still logging"}, env);
    QVERIFY(r.finished);
    QCOMPARE(r.code, 0);
    QCOMPARE(r.out.trimmed(), QByteArray("component=0 dashboard=0"));
    QCOMPARE(shell::strippedLines(child.readLog()),
             QStringList({"NOTICE qvtoken: still logging", "NOTICE dashboard: still logging"}));

    // With no writable file at all the call reports it and the process goes on.
    env.insert("ZORVIK_LOG_DIR", blocker + "/user");
    const shell::RunResult none = shell::run(SHELL_HELPER_EXE, {"component", "qvtoken", "nowhere"}, env);
    QCOMPARE(none.code, 0);
    QCOMPARE(none.out.trimmed(), QByteArray("component=-1 dashboard=-1"));
}

void TestLogger::concurrentWritersDuringRotation()
{
    const int perWriter = 4000;
    const int threads = 4;
    const int processes = 2;
    const QString live = gHome->userLog();
    QFile::remove(live);

    std::vector<std::unique_ptr<QThread>> writers;
    for (int t = 0; t < threads; ++t) {
        writers.emplace_back(QThread::create([t] {
            for (int i = 0; i < perWriter; ++i)
                Log::print(Log::DEBUG, QString("T%1 %2").arg(t).arg(i));
        }));
    }
    std::vector<std::unique_ptr<QProcess>> children;
    for (int c = 0; c < processes; ++c) {
        auto p = std::make_unique<QProcess>();
        p->setProcessEnvironment(gHome->environment());
        p->start(SHELL_HELPER_EXE, {"lines", QString::number(perWriter), QString("P%1").arg(c)});
        QVERIFY(p->waitForStarted());
        children.push_back(std::move(p));
    }
    for (auto& w : writers)
        w->start();

    // Rename the live file away again and again while they write.
    QStringList pieces;
    auto running = [&] {
        for (auto& w : writers)
            if (!w->isFinished())
                return true;
        for (auto& p : children)
            if (p->state() != QProcess::NotRunning && !p->waitForFinished(0))
                return true;
        return false;
    };
    while (running()) {
        const QString piece = QString("%1.piece%2").arg(live).arg(pieces.size());
        if (QFile::rename(live, piece))
            pieces << piece;
        else
            QThread::yieldCurrentThread();
    }
    for (auto& w : writers)
        QVERIFY(w->wait(60000));
    for (auto& p : children) {
        if (p->state() != QProcess::NotRunning)
            QVERIFY(p->waitForFinished(60000));
        QCOMPARE(p->exitStatus(), QProcess::NormalExit);
        QCOMPARE(p->exitCode(), 0);
    }
    pieces << live;
    QVERIFY2(pieces.size() >= 3, "the file was never renamed while the writers ran");

    static const QRegularExpression lineRe(
        R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d\.\d{3} DEBUG dashboard: ([TP]\d) (\d+)$)");
    QHash<QString, QVector<int>> seen;
    for (int t = 0; t < threads; ++t)
        seen.insert(QString("T%1").arg(t), QVector<int>(perWriter, 0));
    for (int c = 0; c < processes; ++c)
        seen.insert(QString("P%1").arg(c), QVector<int>(perWriter, 0));

    int bad = 0;
    QString firstBad;
    for (const QString& piece : pieces) {
        const QByteArray data = shell::readFile(piece);
        QVERIFY2(data.isEmpty() || data.endsWith('\n'), qPrintable(piece + " ends inside a line"));
        for (const QByteArray& raw : data.split('\n')) {
            if (raw.isEmpty())
                continue;
            const auto m = lineRe.match(QString::fromUtf8(raw));
            const int i = m.hasMatch() ? m.captured(2).toInt() : -1;
            if (!m.hasMatch() || !seen.contains(m.captured(1)) || i < 0 || i >= perWriter) {
                if (bad++ == 0)
                    firstBad = QString::fromUtf8(raw);
                continue;
            }
            seen[m.captured(1)][i]++;
        }
    }
    QVERIFY2(bad == 0, qPrintable(QString("%1 torn or foreign lines, first: %2").arg(bad).arg(firstBad)));
    for (auto it = seen.cbegin(); it != seen.cend(); ++it) {
        for (int i = 0; i < perWriter; ++i)
            QVERIFY2(it.value()[i] == 1,
                     qPrintable(QString("%1 %2 arrived %3 times").arg(it.key()).arg(i).arg(it.value()[i])));
    }
}

int main(int argc, char** argv)
{
    TestHome home;
    home.apply();
    gHome = &home;
    QCoreApplication app(argc, argv);
    TestLogger test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_logger.moc"
