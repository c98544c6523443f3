// The window's key state, tray icon and service-error handling driven by a real pcscd with
// vpcd readers and the simulated key.
#include "bench.h"
#include "dashboard_token_info.h"
#include "dashboard_window.h"
#include "modal_seam.h"
#include "softhsm_token.h"
#include "test_credential.h"
#include "test_support.h"
#include "ui_dashboard_window.h"

#include <QMessageBox>
#include <QSystemTrayIcon>
#include <QtTest>

#include <memory>

namespace {
const QString kKey = ":/Icons/images/tokenicon.png";
const QString kReader = ":/Icons/images/tokenicon-orange.png";
const QString kError = ":/Icons/images/tokenicon-red.png";
const int kRound = testTime(5000); // generous: a polling round plus pcscd's own card detection
} // namespace

class TestWindowBench : public QObject
{
    Q_OBJECT

    TestHome home;
    std::unique_ptr<Bench> bench;
    std::unique_ptr<DashboardWindow> window;

    static int serviceBoxes() { return ModalSeam::seen().filter("SmartCard Service error").size(); }
    // Starts the bench (with a key in reader 0 if asked) and a window, shown unless in the tray.
    bool startWindow(const QStringList& options = {}, bool shown = true, bool key = false)
    {
        bench = std::make_unique<Bench>();
        if (!bench->start(options) || (key && !bench->insert(0))) {
            qWarning().noquote() << "bench:" << bench->errorText();
            return false;
        }
        window = std::make_unique<DashboardWindow>();
        if (shown)
            window->show();
        return true;
    }
    // Waits until the presence worker has finished `n` more polling rounds: every round ends
    // in exactly one of these.
    bool waitRounds(int n = 3)
    {
        DashboardTokenInfo* worker = window->tokenInfo();
        QSignalSpy key(worker, &DashboardTokenInfo::tokenFound), readers(worker, &DashboardTokenInfo::readersFound),
            none(worker, &DashboardTokenInfo::noTokenFound);
        return QTest::qWaitFor([&] { return key.count() + readers.count() + none.count() >= n; }, n * kRound);
    }

private slots:
    void initTestCase()
    {
        Q_INIT_RESOURCE(dashboard);
        home.apply();
    }

    void cleanup()
    {
        window.reset();
        bench.reset();
        ModalSeam::reset();
    }

    void noReaderIsAServiceError()
    {
        ModalSeam::answer(QMessageBox::Cancel);
        QVERIFY(startWindow({"--no-readers"}));
        QTRY_COMPARE_WITH_TIMEOUT(window->trayIconName(), kError, kRound);
        // Later rounds fail the same way without another box.
        QVERIFY(waitRounds());
        QCOMPARE(serviceBoxes(), 1);
    }

    void readerKeyAndRemoval()
    {
        QVERIFY(startWindow());
        QTRY_COMPARE_WITH_TIMEOUT(window->trayIconName(), kReader, kRound);
        QCOMPARE(window->trayIcon()->toolTip(), QString("Zorvik: Reader %1 found").arg(bench->readerName(0)));

        QSignalSpy noToken(window.get(), &DashboardWindow::noToken);
        window->form()->tabs->setCurrentIndex(DashboardWindow::CertificatesTab);
        QVERIFY2(bench->insert(0, {"--status", "4"}), qPrintable(bench->errorText()));
        QTRY_COMPARE_WITH_TIMEOUT(window->trayIconName(), kKey, kRound);
        QCOMPARE(window->trayIcon()->toolTip(), QString("Zorvik: Key available"));
        QVERIFY(window->form()->import_cert_icon->text().contains("import_cert.png"));

        QVERIFY2(bench->remove(0), qPrintable(bench->errorText()));
        QTRY_COMPARE_WITH_TIMEOUT(window->trayIconName(), kReader, kRound);
        QCOMPARE(window->form()->stackedWidget->currentIndex(), 0);
        QVERIFY(window->form()->import_cert_icon->text().contains("import_cert-gray.png"));
        // The rounds after the removal change nothing more.
        QVERIFY(waitRounds());
        QCOMPARE(noToken.count(), 1);
        QCOMPARE(serviceBoxes(), 0);

        // A key in the phone's virtual reader counts as a key too.
        const int virtualReader = bench->readerNames().indexOf(QRegularExpression("^Zorvik Virtual Card Reader.*"));
        QVERIFY2(virtualReader >= 0 && bench->insert(virtualReader), qPrintable(bench->errorText()));
        QTRY_COMPARE_WITH_TIMEOUT(window->trayIconName(), kKey, kRound);
        QVERIFY(window->tokenPresent);
    }

    void serviceStopsAndRecovers()
    {
        QVERIFY(startWindow());
        QTRY_COMPARE_WITH_TIMEOUT(window->trayIconName(), kReader, kRound);
        // Cancel keeps the program running in the error state.
        ModalSeam::answer(QMessageBox::Cancel);
        QVERIFY2(bench->stopPcscd(), qPrintable(bench->errorText()));
        QTRY_COMPARE_WITH_TIMEOUT(window->trayIconName(), kError, kRound);
        QVERIFY(waitRounds());
        QCOMPARE(serviceBoxes(), 1);

        QVERIFY2(bench->startPcscd(), qPrintable(bench->errorText()));
        QTRY_COMPARE_WITH_TIMEOUT(window->trayIconName(), kReader, kRound);
        QCOMPARE(serviceBoxes(), 1);
    }

    // The tray menu's "Certificates" while the window is in the tray lists what is on the key
    // now, whether the program started in the tray or the window was closed to it.
    void trayCertificatesWhileHidden_data()
    {
        QTest::addColumn<bool>("shownBefore");
        QTest::newRow("started in the tray") << false;
        QTest::newRow("closed to the tray on the Certificates tab") << true;
    }
    void trayCertificatesWhileHidden()
    {
        QFETCH(bool, shownBefore);
        SoftHsmToken token;
        QVERIFY2(token.isValid(), qPrintable(token.errorText()));
        token.apply(false);
        QVERIFY(startWindow({}, false, true));
        QTRY_VERIFY_WITH_TIMEOUT(window->tokenPresent, kRound);
        if (shownBefore) {
            window->show();
            window->form()->tabs->setCurrentIndex(DashboardWindow::CertificatesTab);
            QTRY_VERIFY_WITH_TIMEOUT(window->form()->stackedWidget->currentIndex() != 1, testTime(30000));
            window->close();
        }
        // Put on the key while the window is away: only a fresh listing shows it.
        QVERIFY(!token.load(TestCredential::make("Tray Listing")).isEmpty());
        window->form()->actionOpenCertificates->trigger();
        QVERIFY(window->isVisible());
        QCOMPARE(window->form()->tabs->currentIndex(), int(DashboardWindow::CertificatesTab));
        QTRY_COMPARE_WITH_TIMEOUT(window->form()->stackedWidget->currentIndex(), 2, testTime(30000));
        QVERIFY(window->findChild<QLabel*>("certNameLabel0")->text().contains("Tray Listing"));
    }
};

QTEST_MAIN(TestWindowBench)
#include "test_window_bench.moc"
