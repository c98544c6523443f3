// The built program as a user starts it: one instance per user, handing over to the running
// instance, "--exit", "--tray", a crashed instance, and the program under X11.
//
// Every test has its own temporary directory, which gives it its own single-instance
// channel; each process gets its own log directory so its lines can be told apart.
#include "test_support.h"

#include <QDir>
#include <QFileInfo>
#include <QSharedMemory>
#include <QTest>

#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>
#include <memory>
#include <vector>

namespace {

const int kWait = 30000;
const QString kFinishBanner = "NOTICE dashboard: =============== ZORVIK Dashboard application finished ===============";

// One start of the program.
struct Dashboard
{
    QString logDir;
    std::unique_ptr<QProcess> process = std::make_unique<QProcess>();

    QString logText() const { return QString::fromUtf8(readFile(logDir + "/dashboard.log")); }
    QString lastLine() const { return logText().section('\n', -2, -2).mid(24); }
    bool has(const QString& text) const { return logText().contains(text); }
    bool running() const { return process->state() != QProcess::NotRunning; }
    bool waitFor(const QString& text) const
    {
        return QTest::qWaitFor([&] { return has(text) || !running(); }, kWait) && has(text);
    }
    // Waits for the end; true when the program ended by itself with `code`.
    bool endsWith(int code)
    {
        return (!running() || process->waitForFinished(kWait)) && process->exitStatus() == QProcess::NormalExit &&
               process->exitCode() == code;
    }
};

// The processes below `pid`: children, their children, and so on.
QList<qint64> descendants(qint64 pid)
{
    QList<qint64> out;
    for (const QByteArray& c : readFile(QString("/proc/%1/task/%1/children").arg(pid)).simplified().split(' '))
        if (!c.isEmpty())
            out << c.toLongLong() << descendants(c.toLongLong());
    return out;
}

} // namespace

class TestStartup : public QObject
{
    Q_OBJECT

    std::unique_ptr<TestHome> home;
    std::vector<std::unique_ptr<Dashboard>> started;

    Dashboard& start(const QStringList& args, const QProcessEnvironment& extra = {},
                     const QString& program = ZORVIK_DASHBOARD_EXE)
    {
        auto d = std::make_unique<Dashboard>();
        d->logDir = QString("%1/logs-%2").arg(home->path()).arg(started.size());
        QProcessEnvironment env = home->environment();
        env.insert("ZORVIK_LOG_DIR", d->logDir);
        env.insert(extra);
        d->process->setProcessEnvironment(env);
        d->process->setProcessChannelMode(QProcess::ForwardedErrorChannel);
        d->process->setStandardOutputFile(QProcess::nullDevice());
        d->process->start(program, args);
        d->process->waitForStarted();
        started.push_back(std::move(d));
        return *started.back();
    }
    Dashboard& startReady(const QStringList& args, const QProcessEnvironment& extra = {})
    {
        Dashboard& d = start(args, extra);
        if (!d.waitFor("DashboardWindow end init"))
            qWarning("the program did not come up");
        return d;
    }
    // The channel of the running instance `a` works: a second start hands over to it, then
    // "--exit" ends it.
    bool channelWorks(Dashboard& a, const QProcessEnvironment& env = {})
    {
        return start({}, env).endsWith(1) && a.waitFor("Rise command") && start({"--exit"}, env).endsWith(0) &&
               a.endsWith(0);
    }

private slots:
    // A child that a killed instance leaves behind (Qt's, caught between its fork and its
    // program) comes to this process, so cleanup() ends it with the rest.
    void initTestCase() { QCOMPARE(::prctl(PR_SET_CHILD_SUBREAPER, 1), 0); }

    void init()
    {
        home = std::make_unique<TestHome>();
        QVERIFY(home->isValid());
    }

    void cleanup()
    {
        // A wrapper (xvfb-run) goes with everything it started.
        for (qint64 pid : descendants(QCoreApplication::applicationPid()))
            ::kill(static_cast<pid_t>(pid), SIGKILL);
        for (auto& d : started)
            if (d->running())
                d->process->waitForFinished();
        started.clear();
        home.reset();
    }

    // A second start hands over to the running instance and ends with 1: a window left in the
    // tray is brought up. "--exit" ends the running instance, or finds none and returns at
    // once; anywhere but first it is an ordinary argument, and the option names are exact.
    void handOverAndExit_data()
    {
        QTest::addColumn<QStringList>("firstArgs");
        QTest::addColumn<QStringList>("secondArgs");
        QTest::addColumn<bool>("hidden");
        QTest::newRow("--tray later, plain second start")
            << QStringList{"x", "--restart", "--tray"} << QStringList{} << true;
        QTest::newRow("case matters, --exit not first")
            << QStringList{"--Tray", "--exit"} << QStringList{"first", "--exit"} << false;
    }
    void handOverAndExit()
    {
        QFETCH(QStringList, firstArgs);
        QFETCH(QStringList, secondArgs);
        QFETCH(bool, hidden);
        Dashboard& none = start({"--exit"});
        QVERIFY(none.endsWith(0));
        QCOMPARE(countLines(none.logText(), "Check for other instances"), 1);
        Dashboard& a = startReady(firstArgs);
        QVERIFY(a.running());
        Dashboard& b = start(secondArgs);
        QVERIFY(b.endsWith(1));
        QVERIFY(!b.has("DashboardWindow begin init"));
        QVERIFY(a.waitFor("Dashboard window raised"));
        QCOMPARE(a.has("showWindow"), hidden);
        // From a terminal or a script without a display: it must not need one.
        QProcessEnvironment noDisplay;
        for (const char* name : {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY"})
            noDisplay.insert(name, "");
        Dashboard& stopper = start({"--exit"}, noDisplay);
        QVERIFY(stopper.endsWith(0));
        QVERIFY(!stopper.has("DashboardWindow begin init"));
        QVERIFY(a.endsWith(0));
        QCOMPARE(a.lastLine(), kFinishBanner);
        // The command was read once and cleared: one raise, one stop.
        QCOMPARE(countLines(a.logText(), "Rise command"), 1);
        QCOMPARE(countLines(a.logText(), "Close command"), 1);
    }

    void crashedInstanceDoesNotBlock()
    {
        Dashboard& a = startReady({});
        a.process->kill(); // SIGKILL: the segment stays behind with nobody attached
        QVERIFY(a.process->waitForFinished(kWait));
        QCOMPARE(a.process->exitStatus(), QProcess::CrashExit);

        Dashboard& b = startReady({});
        QVERIFY(b.running() && !b.has("instance found"));
        QVERIFY(channelWorks(b));
    }

    void channelInUsersOwnDirectory_data()
    {
        QTest::addColumn<bool>("runtimeDir");
        QTest::addColumn<bool>("foreignZorvikDir");
        QTest::addColumn<QString>("channelDir");
        QTest::newRow("run-time directory") << true << false << "runtime/zorvik";
        QTest::newRow("no run-time directory") << false << false << "cache/zorvik-runtime";
        QTest::newRow("another user's directory") << true << true << "cache/zorvik-runtime";
    }
    void channelInUsersOwnDirectory()
    {
        QFETCH(bool, runtimeDir);
        QFETCH(bool, foreignZorvikDir);
        QFETCH(QString, channelDir);
        if (foreignZorvikDir) {
            QVERIFY(QDir(home->runtimeDir()).mkdir("zorvik"));
            if (::chown(QFile::encodeName(home->runtimeDir() + "/zorvik").constData(), 65534, 65534) != 0)
                QSKIP("needs root to plant another user's directory");
        }
        // What another user could plant in the shared temporary directory: the segment of the
        // old place, held by a live process. It must not count as a running instance.
        const QByteArray oldTmp = qgetenv("TMPDIR");
        qputenv("TMPDIR", home->environment().value("TMPDIR").toLocal8Bit());
        QSharedMemory planted("zorvikdashboard");
        qputenv("TMPDIR", oldTmp);
        QVERIFY(planted.create(20));

        QProcessEnvironment env;
        env.insert("XDG_RUNTIME_DIR", runtimeDir ? home->runtimeDir() : QString());
        env.insert("XDG_CACHE_HOME", home->path() + "/cache");
        Dashboard& a = startReady({}, env);
        QVERIFY(!a.has("instance found"));
        const QString dir = home->path() + "/" + channelDir;
        struct stat st = {};
        QCOMPARE(::stat(QFile::encodeName(dir).constData(), &st), 0);
        QVERIFY(S_ISDIR(st.st_mode));
        QCOMPARE(st.st_mode & 0777, 0700u);
        QVERIFY(QFileInfo::exists(dir + "/zorvikdashboard"));
        QVERIFY(channelWorks(a, env));
    }

    void x11WithGtk()
    {
        // Under X11 the program initialises GTK when the library is installed. GTK hooks into
        // the GLib loop that runs Qt's events, so the program must live through many rounds of
        // its event loop afterwards: raised by a second start, then stopped.
        QProcessEnvironment x11;
        x11.insert("QT_QPA_PLATFORM", "xcb");
        Dashboard& a = start({"-a", "-s", "-nolisten tcp", ZORVIK_DASHBOARD_EXE, "--restart"}, x11, "xvfb-run");
        QVERIFY2(a.waitFor("DashboardWindow end init"), qPrintable(a.logText()));
        QVERIFY(a.has("DEBUG dashboard: QT Style: "));
        qint64 program = 0;
        for (qint64 pid : descendants(a.process->processId()))
            if (QFileInfo(QString("/proc/%1/exe").arg(pid)).symLinkTarget() ==
                QFileInfo(ZORVIK_DASHBOARD_EXE).canonicalFilePath())
                program = pid;
        QVERIFY(program > 0);
        QVERIFY2(readFile(QString("/proc/%1/maps").arg(program)).contains("libgtk-x11-2.0"),
                 "GTK is not mapped in the running program: unloaded after gtk_init, or not installed "
                 "(scripts/install-deps installs libgtk2.0-0)");
        QVERIFY(channelWorks(a));
        QCOMPARE(a.lastLine(), kFinishBanner);
    }
};

QTEST_GUILESS_MAIN(TestStartup)
#include "tst_startup.moc"
