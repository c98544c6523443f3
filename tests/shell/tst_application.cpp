// The application object in this process: its command line, the main window it makes (left
// in the tray here), the raise wiring, the dialogs other threads ask it for, and the fatal
// path (in a child process).
#include "dashboard_gui.h"
#include "dashboard_token_info.h"
#include "dashboard_window.h"
#include "log.h"
#include "modal_seam.h"
#include "report_error.h"
#include "test_support.h"

#include <QDialog>
#include <QMessageBox>
#include <QSignalSpy>
#include <QTest>
#include <QThread>
#include <QTimer>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <vector>

namespace {

TestHome* gHome = nullptr;
// The application's own command line; the test runner's arguments are not part of it.
const char* const kAppArgs[] = {"--tray", "plain", "--restart", "--Tray"};

} // namespace

class TestApplication : public QObject
{
    Q_OBJECT
public:
    explicit TestApplication(DashboardGUI& app) : app(app) {}

private:
    DashboardGUI& app;

private slots:
    void cleanup() { ModalSeam::reset(); }

    // The application's own command line, the program name not part of it.
    void hasArgIsExact_data()
    {
        QTest::addColumn<QString>("arg");
        QTest::addColumn<bool>("present");
        QTest::newRow("last") << "--Tray" << true;
        QTest::newRow("other case") << "--TRAY" << false;
        QTest::newRow("prefix") << "--tra" << false;
        QTest::newRow("program name") << QCoreApplication::arguments().value(0) << false;
    }
    void hasArgIsExact()
    {
        QFETCH(QString, arg);
        QFETCH(bool, present);
        QCOMPARE(app.hasArg(arg), present);
    }

    // The owner of the channel keeps one reading timer, and reads whole commands only: one cut
    // to the channel's 20 bytes, or another word, raises nothing.
    void ownerReadsCommands()
    {
        QVERIFY(!app.isAppRunning());
        QVERIFY(!app.isAppRunning());
        const auto timers = app.findChildren<QTimer*>();
        QCOMPARE(std::count_if(timers.begin(), timers.end(),
                               [](QTimer* t) { return t->interval() == 100 && t->isActive(); }),
                 1);
        QSignalSpy raised(&app, &SingleApplication::raiseApp);
        app.sendCommand("raise");
        QVERIFY(raised.wait(5000));
        for (const char* cmd : {"raise-and-then-some-more-text", "exited"}) {
            app.sendCommand(cmd);
            QVERIFY(gHome->waitForLog("SingleApplication command '" + QString(cmd).left(20) + "'"));
        }
        QCOMPARE(raised.count(), 1);
        QVERIFY(!gHome->readLog().contains("Close command"));
    }

    // The main window, started in the tray ("--tray") and asked to restart ("--restart").
    void raiseShowsTheHiddenWindowOnce()
    {
        ModalSeam::answer(QMessageBox::Cancel); // the service-error box of the first polling round
        app.initMainWindow();
        DashboardWindow* w = app.window();
        QVERIFY(w && !w->isVisible() && w->restartRequested);
        // No polling from here on: the dialogs below are the only ones.
        QTRY_VERIFY(w->scardError);
        w->tokenInfo()->exit();
        w->tokenInfo()->wait();
        w->SCardInterfaceNoError();
        QVERIFY(!app.quitOnLastWindowClosed());
        emit app.raiseApp();
        QTRY_VERIFY(w->isVisible());
        // Already shown: asked again, it is not shown anew.
        emit app.raiseApp();
        QCOMPARE(countLines(gHome->readLog(), "Raising Dashboard"), 1);
    }

    // Dialogs asked for by worker threads: shown by the application's thread over its window,
    // their answer signalled back once.
    void dialogsFromWorkers_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<int>("answer");
        QTest::newRow("message") << "message" << int(QMessageBox::Ok);
        QTest::newRow("info rejected") << "info" << int(QDialog::Rejected);
        QTest::newRow("openvpn cancelled") << "vpn" << int(QDialog::Rejected);
    }
    void dialogsFromWorkers()
    {
        QFETCH(QString, kind);
        QFETCH(int, answer);
        QThread* dialogThread = nullptr;
        QWidget* parent = nullptr;
        ModalSeam::setObserver([&](QDialog* d) {
            dialogThread = QThread::currentThread();
            parent = d->parentWidget();
        });
        ModalSeam::answer(answer);
        QSignalSpy closed(&app, kind == "vpn"
                                    ? SIGNAL(openVPNDialogClosed(bool, QString, QString, QString, QString, QString))
                                : kind == "info" ? SIGNAL(infoClosed(int))
                                                 : SIGNAL(messageClosed()));
        QThread* worker = QThread::create([this, kind] {
            QMetaObject::invokeMethod(
                &app,
                [this, kind] {
                    if (kind == "vpn")
                        app.runOpenVPNDialog("/tmp/openvpn", "office", "1194", {{"serial-1", "Alice VPN"}});
                    else if (kind == "info")
                        app.showInfo("Info title", "Some <b>text</b>", "A label", false);
                    else
                        app.showMessage("Title from worker", "Text from worker");
                },
                Qt::QueuedConnection);
        });
        worker->start();
        worker->wait();
        delete worker;
        QVERIFY(closed.wait(10000));
        QCOMPARE(closed.count(), 1);
        QCOMPARE(ModalSeam::seen().size(), 1);
        QCOMPARE(dialogThread, app.thread());
        const QList<QVariant> args = closed.at(0);
        if (kind == "message") {
            QCOMPARE(ModalSeam::seen(), QStringList({"Title from worker|Text from worker"}));
            QCOMPARE(parent, static_cast<QWidget*>(app.window()));
        } else if (kind == "info") {
            QCOMPARE(args.at(0).toInt(), answer);
        } else {
            // The values come back also when the dialog was cancelled.
            QCOMPARE(args.at(0).toBool(), answer == QDialog::Accepted);
            QCOMPARE(args.at(1).toString() + ":" + args.at(3).toString(), QString("office:1194"));
        }
    }

    // The fatal path, in a child process.
    void criticalMessageEndsTheProcess()
    {
        TestHome child;
        QProcessEnvironment env = child.environment();
        env.insert("ZORVIK_SUPPORT_URL", "http://127.0.0.1:9"); // the error report goes nowhere
        QByteArray out, err;
        QCOMPARE(runProgram(QCoreApplication::applicationFilePath(), {"--critical-child"}, &out, env, &err), 1);
        // The observer in the child wrote the box it was about to show.
        const QString box = "Zorvik Dashboard Error|The application encountered a critical problem and will be closed "
                            "immediately.\nPlease contact Zorvik support if the problem remains.\n";
        QVERIFY2(QString::fromUtf8(err).contains(box), err.constData());
        QVERIFY(child.readLog().contains("CRIT dashboard: the disk is gone"));
        // No orderly shutdown: the application object is never destroyed.
        QVERIFY(!child.readLog().contains("application finished"));
        QVERIFY(!child.readLog().contains("not reached"));
    }
};

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
    // No smart-card service for these cases.
    qputenv("PCSCLITE_CSOCK_NAME", QFile::encodeName(home.path() + "/no-pcscd.comm"));
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
