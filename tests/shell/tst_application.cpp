// The application object in this process: its command line, the main window it makes (left
// in the tray here), the raise wiring, the dialogs other threads ask it for, and the fatal
// path (in a child process).
#include "dashboard_gui.h"
#include "dashboard_window.h"
#include "log.h"
#include "modal_seam.h"
#include "report_error.h"
#include "shell_common.h"
#include "test_support.h"

#include <QDialog>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <cstdio>
#include <cstring>
#include <vector>

namespace {

TestHome* gHome = nullptr;
// The application's own command line; the test runner's arguments are not part of it.
const char* const kAppArgs[] = {"--tray", "plain", "--restart", "--Tray"};

// Asks for a slot from another thread, the way the workers do.
void invokeFromWorker(QObject* target, std::function<void()> call)
{
    QThread* worker = QThread::create([target, call] { QMetaObject::invokeMethod(target, call, Qt::QueuedConnection); });
    worker->start();
    worker->wait();
    delete worker;
}

} // namespace

class TestApplication : public QObject
{
    Q_OBJECT
public:
    explicit TestApplication(DashboardGUI& app) : app(app) {}

private slots:
    void cleanup();

    // The command line.
    void argumentsAreKeptAndLogged();
    void hasArgIsExact_data();
    void hasArgIsExact();
    void systemNameOnThisPlatform();

    // The command channel, owned by this process.
    void becomesOwnerOnce();
    void commandsAreReadAndCut();

    // The main window, started in the tray.
    void mainWindowStartsHidden();
    void raiseShowsTheWindowOnce();

    // Dialogs asked for by worker threads.
    void showMessageFromWorker();
    void showInfoResult_data();
    void showInfoResult();
    void openVPNDialogAnswers_data();
    void openVPNDialogAnswers();

    // The fatal path.
    void criticalMessageEndsTheProcess();

private:
    DashboardGUI& app;
};

void TestApplication::cleanup()
{
    ModalSeam::reset();
}

void TestApplication::argumentsAreKeptAndLogged()
{
    QCOMPARE(app.args(), QStringList({"--tray", "plain", "--restart", "--Tray"}));
    QString missing;
    QStringList expected = {"DEBUG dashboard: argc = 5"};
    for (int i = 0; i < 4; ++i)
        expected << QString("DEBUG dashboard: i = %1").arg(i + 1) << QString("DEBUG dashboard: argv = %1").arg(kAppArgs[i]);
    expected << "DEBUG dashboard: DashboardGUI: ok";
    const QStringList lines = shell::strippedLines(gHome->readLog());
    int at = lines.indexOf(expected.first());
    QVERIFY(at >= 0);
    QCOMPARE(lines.mid(at, expected.size()), expected);
}

void TestApplication::hasArgIsExact_data()
{
    QTest::addColumn<QString>("arg");
    QTest::addColumn<bool>("present");
    QTest::newRow("first") << "--tray" << true;
    QTest::newRow("middle") << "plain" << true;
    QTest::newRow("later") << "--restart" << true;
    QTest::newRow("other case") << "--TRAY" << false;
    QTest::newRow("prefix") << "--tra" << false;
    QTest::newRow("program name") << QString(QCoreApplication::arguments().value(0)) << false;
    QTest::newRow("empty") << "" << false;
}

void TestApplication::hasArgIsExact()
{
    QFETCH(QString, arg);
    QFETCH(bool, present);
    QCOMPARE(app.hasArg(arg), present);
}

void TestApplication::systemNameOnThisPlatform()
{
    QCOMPARE(systemConfiguration(), QString("Mac OS (unknown version)"));
    QVERIFY(gHome->readLog().contains("DEBUG dashboard: Operating system: Mac OS (unknown version)\n"));
}

void TestApplication::becomesOwnerOnce()
{
    QCOMPARE(app.memoryName(), QString("zorvikdashboard"));
    QVERIFY(!app.isAppRunning());
    QVERIFY(gHome->readLog().contains("DEBUG dashboard: shared memory segment 'zorvikdashboard' not found\n"));
    const auto pollers = [this] {
        int n = 0;
        for (QTimer* t : app.findChildren<QTimer*>())
            if (t->interval() == 100 && t->isActive())
                ++n;
        return n;
    };
    QCOMPARE(pollers(), 1);

    // Asked again, the owner says so and keeps its one timer.
    QVERIFY(!app.isAppRunning());
    QCOMPARE(countLines(gHome->readLog(), "ERROR:read_timer already exisit"), 1);
    QCOMPARE(pollers(), 1);
}

void TestApplication::commandsAreReadAndCut()
{
    // Before the window exists nothing is connected to raiseApp but the spy.
    QSignalSpy raised(&app, &SingleApplication::raiseApp);
    app.sendCommand("raise");
    QVERIFY(raised.wait(5000));
    QVERIFY(gHome->waitForLog("DEBUG dashboard: Rise command\n"));

    // A command longer than the segment arrives cut to its 20 bytes and is ignored.
    app.sendCommand("raise-and-then-some-more-text");
    QVERIFY(gHome->waitForLog("DEBUG dashboard: SingleApplication command 'raise-and-then-some-' \n"));
    QCOMPARE(raised.count(), 1);
    QCOMPARE(countLines(gHome->readLog(), "Rise command"), 1);
}

void TestApplication::mainWindowStartsHidden()
{
    QVERIFY(!app.window());
    // There is no pcscd here: the window's first polling round shows the smart-card service
    // error. It is declined now, so it cannot take an answer meant for a later dialog (and
    // restart the test program) when that round comes late, as it does under a sanitizer.
    ModalSeam::answer(QMessageBox::Cancel);
    app.initMainWindow();
    DashboardWindow* w = app.window();
    QVERIFY(w);
    QVERIFY(!w->isVisible());
    QVERIFY(w->restartRequested);
    QVERIFY(!app.quitOnLastWindowClosed());
    QTRY_VERIFY_WITH_TIMEOUT(w->scardError, 30000);
    QCOMPARE(ModalSeam::pending(), 0);
    ModalSeam::reset();
}

void TestApplication::raiseShowsTheWindowOnce()
{
    DashboardWindow* w = app.window();
    QVERIFY(w);
    QVERIFY(!w->isVisible());
    const int raised = countLines(gHome->readLog(), "Dashboard window raised");
    emit app.raiseApp();
    QTRY_VERIFY(w->isVisible());
    QString log = gHome->readLog();
    QCOMPARE(countLines(log, "Dashboard window raised"), raised + 1);
    QCOMPARE(countLines(log, "Raising Dashboard"), 1);

    // Already shown: asked again, it only logs.
    emit app.raiseApp();
    log = gHome->readLog();
    QCOMPARE(countLines(log, "Dashboard window raised"), raised + 2);
    QCOMPARE(countLines(log, "Raising Dashboard"), 1);
}

void TestApplication::showMessageFromWorker()
{
    QThread* dialogThread = nullptr;
    QWidget* parent = nullptr;
    ModalSeam::setObserver([&](QDialog* d) {
        dialogThread = QThread::currentThread();
        parent = d->parentWidget();
    });
    ModalSeam::answer(QMessageBox::Ok);
    QSignalSpy closed(&app, &DashboardGUI::messageClosed);
    invokeFromWorker(&app, [this] { app.showMessage("Title from worker", "Text from worker"); });
    QVERIFY(closed.wait(10000));
    QCOMPARE(closed.count(), 1);
    QCOMPARE(ModalSeam::seen(), QStringList({"Title from worker|Text from worker"}));
    QCOMPARE(dialogThread, app.thread());
    QCOMPARE(parent, static_cast<QWidget*>(app.window()));
}

void TestApplication::showInfoResult_data()
{
    QTest::addColumn<int>("answer");
    QTest::newRow("accepted") << int(QDialog::Accepted);
    QTest::newRow("rejected") << int(QDialog::Rejected);
}

void TestApplication::showInfoResult()
{
    QFETCH(int, answer);
    ModalSeam::answer(answer);
    QSignalSpy closed(&app, &DashboardGUI::infoClosed);
    invokeFromWorker(&app, [this] { app.showInfo("Info title", "Some <b>text</b>", "A label", false); });
    QVERIFY(closed.wait(10000));
    QCOMPARE(closed.count(), 1);
    QCOMPARE(closed.at(0).at(0).toInt(), answer);
    QCOMPARE(ModalSeam::seen().size(), 1);
    QVERIFY(ModalSeam::seen().first().startsWith("Info title|"));
}

void TestApplication::openVPNDialogAnswers_data()
{
    QTest::addColumn<int>("answer");
    QTest::newRow("accepted") << int(QDialog::Accepted);
    QTest::newRow("cancelled") << int(QDialog::Rejected);
}

void TestApplication::openVPNDialogAnswers()
{
    QFETCH(int, answer);
    ModalSeam::answer(answer);
    QSignalSpy closed(&app, &DashboardGUI::openVPNDialogClosed);
    QMap<QString, QString> certs;
    certs.insert("serial-1", "Alice VPN");
    invokeFromWorker(&app, [this, certs] { app.runOpenVPNDialog("/tmp/openvpn", "office", "1194", certs); });
    QVERIFY(closed.wait(10000));
    QCOMPARE(closed.count(), 1);
    const QList<QVariant> args = closed.at(0);
    // The values come back also when the dialog was cancelled.
    QCOMPARE(args.at(0).toBool(), answer == QDialog::Accepted);
    QCOMPARE(args.at(1).toString(), QString("office"));
    QCOMPARE(args.at(3).toString(), QString("1194"));
}

void TestApplication::criticalMessageEndsTheProcess()
{
    TestHome child;
    QProcessEnvironment env = child.environment();
    env.insert("ZORVIK_SUPPORT_URL", "http://127.0.0.1:9"); // the error report goes nowhere
    const shell::RunResult r = shell::run(QCoreApplication::applicationFilePath(), {"--critical-child"}, env);
    QVERIFY(r.finished);
    QCOMPARE(r.status, QProcess::NormalExit);
    QCOMPARE(r.code, 1);
    // The observer in the child wrote the box it was about to show.
    const QString box = "Zorvik Dashboard Error|The application encountered a critical problem and will be closed "
                        "immediately.\nPlease contact Zorvik support if the problem remains.\n";
    QVERIFY2(QString::fromUtf8(r.err).contains(box), r.err.constData());
    const QStringList lines = shell::strippedLines(child.readLog());
    QVERIFY(lines.contains("CRIT dashboard: the disk is gone"));
    // No orderly shutdown: the application object is never destroyed.
    QVERIFY(lines.contains("DEBUG dashboard: DashboardGUI: ok"));
    QVERIFY(!child.readLog().contains("application finished"));
    QVERIFY(!child.readLog().contains("not reached"));
}

namespace {

// The child of criticalMessageEndsTheProcess.
int criticalChild(int argc, char** argv)
{
    DashboardGUI app(argc, argv);
    ModalSeam::answer(QMessageBox::Ok);
    ModalSeam::setObserver([](QDialog* d) {
        const QString seen = d->windowTitle() + "|" + static_cast<QMessageBox*>(d)->text() + "\n";
        std::fputs(seen.toUtf8().constData(), stderr);
        std::fflush(stderr);
    });
    criticalMessage("the disk is gone");
    Log::print(Log::DEBUG, "not reached");
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--critical-child") == 0)
        return criticalChild(argc, argv);

    TestHome home;
    home.apply();
    gHome = &home;
    qputenv("PCSCLITE_CSOCK_NAME", QByteArray(home.path().toLocal8Bit() + "/no-pcscd.comm"));
    if (!qEnvironmentVariableIsSet("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    std::vector<char*> appArgv = {argv[0]};
    for (const char* a : kAppArgs)
        appArgv.push_back(const_cast<char*>(a));
    appArgv.push_back(nullptr);
    int appArgc = static_cast<int>(appArgv.size()) - 1;
    DashboardGUI app(appArgc, appArgv.data());
    TestApplication test(app);
    return QTest::qExec(&test, argc, argv);
}

#include "tst_application.moc"
