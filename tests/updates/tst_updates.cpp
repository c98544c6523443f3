// The update path against the services simulator: the version check itself, then the real
// window from the start-up check to the installer that quits the program. The window runs
// from a program directory laid out as an installed one (see CMakeLists.txt), so "Install
// Now" starts the real upgrade script, with the privileged installer stood in for.
#include "about_dialog.h"
#include "check_updates.h"
#include "dashboard_token_info.h"
#include "dashboard_window.h"
#include "modal_seam.h"
#include "os_platform.h"
#include "services_sim.h"
#include "test_package.h"
#include "test_support.h"
#include "ui_about_dialog.h"
#include "ui_dashboard_window.h"
#include "ui_update_dialog.h"
#include "update_dialog.h"
#include "web_access.h"

#include <QCryptographicHash>
#include <QMessageBox>
#include <QProgressBar>
#include <QProgressDialog>
#include <QPushButton>
#include <QScreen>
#include <QSystemTrayIcon>
#include <QtTest>

#include <functional>
#include <memory>

namespace {
const QString kLatest = "Zorvik Dashboard|You already have the latest version of Zorvik Security Pack installed.";
const QString kDownloadFailed = "Zorvik Dashboard message|Cannot download Zorvik Installation Package. Please try "
                                "again later or contact Zorvik support";
} // namespace

class TestUpdates : public QObject
{
    Q_OBJECT
private slots:
    void initTestCase();
    void init();
    void cleanup();

    void versionReplies_data();
    void versionReplies();
    void platformNames_data();
    void platformNames();

    void startupCheckMarksTrayAndOffers();
    void checksThatFindNothing();
    void aboutLeadsToUpdate_data();
    void aboutLeadsToUpdate();
    void installNowDownloadsAndQuits();
    void failedDownloads_data();
    void failedDownloads();

private:
    void offer(const QString& version, const QJsonObject& package = {});
    void openWindow();
    int checksDone() const { return countLines(home.readLog(), "Checked available SP Upates"); }
    void afterShown(QWidget* dialog, const QString& name, std::function<void()> then);

    TestHome home;
    ServicesSim sim;
    QTemporaryDir packages;
    QString package; // a real package of the dashboard, 3.4.376, with 1 MiB of data
    std::unique_ptr<DashboardWindow> window;
};

void TestUpdates::initTestCase()
{
    Q_INIT_RESOURCE(dashboard);
    // As in the program, which lives on in the tray: closing the last dialog is no quit.
    QApplication::setQuitOnLastWindowClosed(false);
    home.apply();
    QVERIFY2(sim.start(), qPrintable(sim.lastError()));
    sim.applyEnvironment();
    WebAccess::initSSL();
    // No smart-card service: the window's first polling round fails once and is stopped.
    qputenv("PCSCLITE_CSOCK_NAME", QFile::encodeName(home.path() + "/no-pcscd.comm"));
    qputenv("ZORVIK_UPGRADE_ELEVATE", UPDATES_STAND_IN_ELEVATE);
    qputenv("ZORVIK_TEST_RECORD", QFile::encodeName(home.path() + "/elevated"));
    qputenv("ZORVIK_TEST_STARTED", QFile::encodeName(home.path() + "/started"));
    package = makeDebianPackage(packages.path(), "zorvik-dashboard", "3.4.376", "all", 1 << 20);
    QVERIFY(!package.isEmpty());
}

void TestUpdates::init()
{
    QVERIFY(sim.reset());
    ModalSeam::reset();
    QDir(home.path() + "/home/Downloads").removeRecursively();
    QFile::remove(home.path() + "/elevated");
    QFile::remove(home.path() + "/started");
}

void TestUpdates::cleanup()
{
    window.reset();
    ModalSeam::reset();
}

// The update API publishes `version` for the Security Pack, downloadable from the
// simulator (its "package" configuration says how).
void TestUpdates::offer(const QString& version, const QJsonObject& package)
{
    QVERIFY(sim.configure({{"versions", QJsonObject{{"pack", version + ";{base}/packages/zorvik-dashboard_" +
                                                                 version + "_all.deb"}}},
                           {"package", package}}));
}

void TestUpdates::openWindow()
{
    const int before = checksDone();
    ModalSeam::answer(QMessageBox::Cancel); // the smart-card service error
    window = std::make_unique<DashboardWindow>();
    QTRY_VERIFY(window->scardError);
    window->tokenInfo()->exit();
    window->tokenInfo()->wait();
    window->SCardInterfaceNoError();
    QTRY_COMPARE_WITH_TIMEOUT(checksDone(), before + 1, 15000); // the start-up check
    ModalSeam::reset();
}

// Runs `then` (the user's answer) once the dialog is up. With ZORVIK_SCREENSHOTS=<dir> (and
// a real X display) the screen is saved first as <dir>/<name>.png.
void TestUpdates::afterShown(QWidget* dialog, const QString& name, std::function<void()> then)
{
    const QString dir = qEnvironmentVariable("ZORVIK_SCREENSHOTS");
    QTimer::singleShot(dir.isEmpty() ? 0 : 600, dialog, [dialog, dir, name, then] {
        if (!dir.isEmpty() && QDir().mkpath(dir))
            dialog->screen()->grabWindow(0).save(dir + "/" + name + ".png");
        then();
    });
}

// ---------------------------------------------------------------------------------------
// The version check

void TestUpdates::versionReplies_data()
{
    QTest::addColumn<QString>("reply");
    QTest::addColumn<int>("status");
    QTest::addColumn<bool>("update");
    QTest::addColumn<QString>("logLine");

    const QString found = "Update found";
    const QString none = "Check SP version and updates finished";
    QTest::newRow("next build") << "3.4.376;u" << 200 << true << found;
    QTest::newRow("next minor") << "3.5.0;u" << 200 << true << found;
    QTest::newRow("next major, two parts") << "4.0;u" << 200 << true << found;
    QTest::newRow("numbers, not text") << "3.10.0;u" << 200 << true << found;
    QTest::newRow("same") << "3.4.375;u" << 200 << false << none;
    QTest::newRow("older build of a newer minor loses") << "3.3.999;u" << 200 << false << none;
    QTest::newRow("two parts, missing build is 0") << "3.4;u" << 200 << false << none;
    QTest::newRow("build not a number") << "3.4.x;u" << 200 << false << none;
    QTest::newRow("one part") << "4;u" << 200 << false << "getSPUpdateUrl error, invalid version format";
    QTest::newRow("no address") << "3.4.376" << 200 << false << "getUpdateInfo error, invalid reply format";
    QTest::newRow("three fields") << "3.4.376;u;x" << 200 << false << "getUpdateInfo error, invalid reply format";
    QTest::newRow("empty") << "" << 200 << false << "getUpdateInfo error, cannot get info from API";
    QTest::newRow("server error") << "3.4.376;u" << 500 << false << "getUpdateInfo error, cannot get info from API";
}

void TestUpdates::versionReplies()
{
    QFETCH(QString, reply);
    QFETCH(int, status);
    QFETCH(bool, update);
    QFETCH(QString, logLine);

    QVERIFY(sim.script(QJsonObject{{"path", "/api/version.txt*"}, {"status", status}, {"body", reply}}));
    const int logStart = home.readLog().size();
    Check_Updates checker;
    QSignalSpy checked(&checker, &Check_Updates::SPUpdatesChecked);
    checker.Check(false);
    QVERIFY(checked.wait(15000));
    QVERIFY(checker.wait(5000));

    QCOMPARE(checker.updateAvailable(), update);
    QCOMPARE(checked.at(0).at(0).toBool(), false);
    QVERIFY2(home.readLog().mid(logStart).contains(logLine), qPrintable(logLine));
    const QJsonArray asked = sim.requests("/api/version.txt");
    QCOMPARE(asked.size(), 1);
    QCOMPARE(asked.at(0)["target"].toString(), "/api/version.txt?type=soft&platform=" +
                                                   OsPlatform::updatePlatformName() + "&package=pack");
    // The change log is fetched only for a newer version.
    QCOMPARE(sim.requests("/changelogs/pack.linux.txt").size(), update ? 1 : 0);
    QCOMPARE(checker.changeLog().contains("Zorvik Security Pack 3.4.376"), update);
    if (update)
        QCOMPARE(checker.downloadUrl(), QString("u"));
}

void TestUpdates::platformNames_data()
{
    QTest::addColumn<QByteArray>("osRelease");
    QTest::addColumn<QString>("name");
    QTest::newRow("debian") << QByteArray("PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nVERSION_ID=\"12\"\n"
                                          "ID=debian\n")
                            << "linux.debian.12";
    QTest::newRow("major of a dotted version") << QByteArray("ID=ubuntu\nVERSION_ID=\"22.04\"\n") << "linux.ubuntu.22";
    QTest::newRow("single quotes, blanks, comments")
        << QByteArray("# os-release\n  ID='fedora'  \nVERSION_ID='39'\n") << "linux.fedora.39";
    QTest::newRow("rolling release") << QByteArray("ID=arch\nBUILD_ID=rolling\n") << "linux.arch";
    QTest::newRow("no ID") << QByteArray("VERSION_ID=1.2\n") << "linux.linux.1";
}

void TestUpdates::platformNames()
{
    QFETCH(QByteArray, osRelease);
    QFETCH(QString, name);
    QCOMPARE(OsPlatform::linuxPlatformName(osRelease), name);
}

// ---------------------------------------------------------------------------------------
// The window

void TestUpdates::startupCheckMarksTrayAndOffers()
{
    offer("3.4.376");
    openWindow();
    QVERIFY(window->updateAvailable);
    QCOMPARE(window->trayIconName(), QString(":/Icons/images/tokenicon-bw-update.png"));
    QCOMPARE(window->trayIcon()->toolTip(),
             QString("Zorvik: No token found\nNew version of Zorvik Dashboard is available for download."));
    QVERIFY(ModalSeam::seen().isEmpty()); // an automatic check shows nothing

    // Help > Check for updates offers the version with its change log; "Update Later".
    QString offered;
    QString changeLog;
    ModalSeam::answer(ModalSeam::ShowIt);
    ModalSeam::setObserver([&](QDialog* dialog) {
        auto* update = qobject_cast<UpdateDialog*>(dialog);
        QVERIFY(update);
        offered = update->form()->new_vesion_label->text() + "|" + update->form()->current_version_label->text();
        changeLog = update->form()->textBrowser->toPlainText();
        afterShown(update, "update-dialog", [update] { update->form()->cancelButton->click(); });
    });
    const int before = checksDone();
    window->form()->actionCheck_for_updates->trigger();
    QTRY_COMPARE_WITH_TIMEOUT(checksDone(), before + 1, 15000);
    QTRY_COMPARE(ModalSeam::seen(), QStringList{"Software Update|"});
    QCOMPARE(offered, QString("Security Pack Version 3.4.376 \n is now available|Current version: 3.4.375"));
    QVERIFY(changeLog.startsWith("Zorvik Security Pack 3.4.376"));
    QVERIFY(sim.requests("/packages/zorvik-dashboard_3.4.376_all.deb").isEmpty());
    QVERIFY(window->updateAvailable);

    // The tray offers it too, while the window is hidden.
    ModalSeam::setObserver(nullptr);
    ModalSeam::answer(QDialog::Rejected);
    window->show();
    window->slotTrayActivated(QSystemTrayIcon::Trigger);
    QCOMPARE(ModalSeam::seen().size(), 1);
    window->hide();
    window->slotTrayActivated(QSystemTrayIcon::Trigger);
    QCOMPARE(ModalSeam::seen().size(), 2);
}

void TestUpdates::checksThatFindNothing()
{
    openWindow(); // the simulator publishes the built-in version
    QVERIFY(!window->updateAvailable);
    QCOMPARE(window->trayIconName(), QString(":/Icons/images/tokenicon-bw.png"));

    // A user's check while the automatic one runs is not started twice, but it reports.
    QVERIFY(sim.script(QJsonObject{{"path", "/api/version.txt*"}, {"delay", 1.0}, {"times", 1}}));
    QVERIFY(sim.clearRequests());
    const int before = checksDone();
    const int logStart = home.readLog().size();
    ModalSeam::answer(QMessageBox::Ok);
    window->slotCheckSPUpdates();
    QVERIFY(sim.waitForRequests("/api/version.txt"));
    window->slotCheckUpdatesButton();
    window->form()->actionCheck_for_updates->trigger();
    QTRY_COMPARE_WITH_TIMEOUT(checksDone(), before + 1, 15000);
    QCOMPARE(ModalSeam::seen(), QStringList{kLatest});
    QTest::qWait(300);
    QCOMPARE(checksDone(), before + 1);
    QCOMPARE(sim.requests("/api/version.txt").size(), 1);
    QCOMPARE(countLines(home.readLog().mid(logStart), "Cannot start Check SP Updates. Already running!"), 2);
}

void TestUpdates::aboutLeadsToUpdate_data()
{
    QTest::addColumn<QString>("published");
    QTest::newRow("update known") << "3.4.376";
    QTest::newRow("up to date") << "3.4.375";
}

void TestUpdates::aboutLeadsToUpdate()
{
    QFETCH(QString, published);
    const bool update = published != "3.4.375";
    offer(published);
    openWindow();

    // The user follows "New version available" when there is one, else presses OK.
    QString version;
    bool linkShown = false;
    ModalSeam::answer(ModalSeam::ShowIt);
    ModalSeam::answer(QDialog::Rejected); // the Update dialog: "Update Later"
    ModalSeam::setObserver([&](QDialog* dialog) {
        auto* about = qobject_cast<AboutDialog*>(dialog);
        if (!about)
            return;
        version = about->form()->version_label->text();
        linkShown = about->form()->update_label->isVisibleTo(about);
        afterShown(about, update ? "about-update" : "about", [about, update] {
            if (update)
                emit about->form()->update_label->linkActivated("update");
            else
                about->form()->pushButton->click();
        });
    });
    window->form()->actionAbout->trigger();
    QCOMPARE(version, QString("Version 3.4.375"));
    QCOMPARE(linkShown, update);
    QStringList expected{"About Zorvik Dashboard|"};
    if (update)
        expected << "Software Update|";
    QCOMPARE(ModalSeam::seen(), expected);
}

void TestUpdates::installNowDownloadsAndQuits()
{
    // A package slow enough to watch the bar move.
    offer("3.4.376", {{"file", package}, {"chunk_size", 65536}, {"chunk_delay", 0.03}});
    openWindow();

    QList<int> shownValues;
    ModalSeam::answer(QDialog::Accepted);     // Update dialog: "Install Now"
    ModalSeam::answer(ModalSeam::ShowIt);     // the download's progress
    ModalSeam::answer(QMessageBox::Ok);       // "... will be closed in order to install ..."
    ModalSeam::setObserver([&](QDialog* dialog) {
        if (auto* progress = dialog->findChild<QProgressBar*>()) {
            connect(progress, &QProgressBar::valueChanged, dialog, [&](int v) { shownValues << v; });
            afterShown(dialog, "download", [] {});
        }
    });
    QTimer::singleShot(0, window->form()->actionCheck_for_updates, &QAction::trigger);
    QTimer watchdog;
    watchdog.setSingleShot(true);
    connect(&watchdog, &QTimer::timeout, qApp, [] { QCoreApplication::exit(1); });
    watchdog.start(60000);
    QCOMPARE(QCoreApplication::exec(), 0); // the installer quit the program

    const QString downloaded = home.path() + "/home/Downloads/zorvik-dashboard_3.4.376_all.deb";
    QVERIFY(home.readLog().contains(QString("Installing application: sh \"%1/scripts/upgrade.sh\" \"%2\"")
                                        .arg(QCoreApplication::applicationDirPath(), downloaded)));
    QCOMPARE(ModalSeam::seen().at(1), QString("Zorvik Software Installation|"));
    QCOMPARE(ModalSeam::seen().at(2), QString("Updating Zorvik Software|The Zorvik Dashboard will be closed in order "
                                              "to install the most recent Zorvik Security Pack updates."));
    int between = 0;
    for (int v : shownValues)
        between += v > 0 && v < 100;
    QVERIFY2(between >= 3, qPrintable(QString("progress values: %1").arg(shownValues.size())));

    // The upgrade script ran with the downloaded file, installed it and started the dashboard.
    QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(home.path() + "/started"), 20000);
    QFile record(home.path() + "/elevated");
    QVERIFY(record.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(record.readAll()).split('\n');
    QVERIFY2(lines.value(0).endsWith("apt-get install -y --reinstall -o Dpkg::Options::=--force-confdef -o "
                                     "Dpkg::Options::=--force-confold " + downloaded),
             qPrintable(lines.value(0)));
    QFile served(package);
    QVERIFY(served.open(QIODevice::ReadOnly));
    QCOMPARE(lines.value(1), QString(QCryptographicHash::hash(served.readAll(), QCryptographicHash::Sha256).toHex()));
}

void TestUpdates::failedDownloads_data()
{
    QTest::addColumn<QJsonObject>("package");
    QTest::addColumn<bool>("cancel");
    QTest::addColumn<QList<int>>("answers"); // after the progress dialog
    QTest::addColumn<QStringList>("boxes");

    const QString cannotInstall = "Zorvik Dashboard message|Cannot install Zorvik Dashboard.Please try again later or "
                                  "contact Zorvik support";
    const QJsonObject slow{{"chunk_size", 65536}, {"chunk_delay", 0.05}};
    QTest::newRow("cancelled") << slow << true << QList<int>{QMessageBox::Ok} << QStringList{kDownloadFailed};
    QTest::newRow("broken halfway") << QJsonObject{{"fail_after", 1 << 19}} << false
                                    << QList<int>{QMessageBox::Ok, QMessageBox::Ok}
                                    << QStringList{"Download|Web: network error: 2", kDownloadFailed};
    QTest::newRow("server error") << QJsonObject{{"file", "/nonexistent"}} << false
                                  << QList<int>{QMessageBox::Ok, QMessageBox::Ok}
                                  << QStringList{"Download|Web: network error: 401", kDownloadFailed};
    QTest::newRow("no length, install declined")
        << QJsonObject{{"length", false}} << false << QList<int>{QMessageBox::Cancel, QMessageBox::Ok}
        << QStringList{"Updating Zorvik Software|The Zorvik Dashboard will be closed in order to install the most "
                       "recent Zorvik Security Pack updates.",
                       cannotInstall};
}

void TestUpdates::failedDownloads()
{
    QFETCH(QJsonObject, package);
    QFETCH(bool, cancel);
    QFETCH(QList<int>, answers);
    QFETCH(QStringList, boxes);

    offer("3.4.376", package);
    openWindow();
    ModalSeam::answer(ModalSeam::ShowIt);
    for (int answer : answers)
        ModalSeam::answer(answer);
    ModalSeam::setObserver([&](QDialog* dialog) {
        auto* progress = qobject_cast<QProgressDialog*>(dialog);
        if (!progress || !cancel)
            return;
        // The user presses Cancel once the download is under way.
        connect(progress->findChild<QProgressBar*>(), &QProgressBar::valueChanged, progress, [progress](int v) {
            if (v > 0)
                QTimer::singleShot(0, progress->findChild<QPushButton*>(), &QPushButton::click);
        });
    });
    window->repairSP(); // the same download and install as "Install Now"

    QCOMPARE(ModalSeam::seen().mid(1), boxes);
    QCOMPARE(ModalSeam::pending(), 0);
    QVERIFY(QDir(home.path() + "/home/Downloads").isEmpty());
    QVERIFY(!QFile::exists(home.path() + "/elevated"));
}

QTEST_MAIN(TestUpdates)
#include "tst_updates.moc"
