// The update path against the services simulator: the version check itself, then the real
// window from the start-up check to the installer that quits the program, and the upgrade
// script on packages built with dpkg-deb. The tests run from a program directory laid out
// as an installed one (see CMakeLists.txt), so "Install Now" starts the real upgrade script;
// pkexec, sudo and the installer are stood in for.
#include "about_dialog.h"
#include "check_updates.h"
#include "dashboard_token_info.h"
#include "dashboard_window.h"
#include "modal_seam.h"
#include "os_platform.h"
#include "services_sim.h"
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
#include <QSystemTrayIcon>
#include <QtTest>

#include <memory>

namespace {
// Builds "<dir>/<name>_3.4.376_<arch>.deb" with dpkg-deb, holding `payload` bytes of data.
QString makeDebianPackage(const QString& dir, const QString& name, const QString& arch, int payload = 0)
{
    const QString root = dir + "/root-" + name + "-" + arch;
    const QString deb = QString("%1/%2_3.4.376_%3.deb").arg(dir, name, arch);
    QProcess build;
    if (writeFile(root + "/payload", QByteArray(payload, 'z')) &&
        writeFile(root + "/DEBIAN/control", QString("Package: %1\nVersion: 3.4.376\nArchitecture: %2\nMaintainer: "
                                                    "Zorvik <support@zorvik.test>\nDescription: test package\n")
                                                .arg(name, arch)
                                                .toUtf8()))
        build.start("dpkg-deb", {"--root-owner-group", "-Znone", "--build", root, deb});
    return build.waitForFinished(60000) && build.exitCode() == 0 ? deb : QString();
}

const QString kDownloadFailed = "Zorvik Dashboard message|Cannot download Zorvik Installation Package. Please try "
                                "again later or contact Zorvik support";
const QString kCloseToInstall = "Updating Zorvik Software|The Zorvik Dashboard will be closed in order to install "
                                "the most recent Zorvik Security Pack updates.";
} // namespace

class TestUpdates : public QObject
{
    Q_OBJECT

    int checksDone() const { return countLines(home.readLog(), "Checked available SP Upates"); }

    TestHome home;
    ServicesSim sim;
    QTemporaryDir packages;
    QString package; // a real package of the dashboard, 3.4.376, with 1 MiB of data
    QString machineArch;
    std::unique_ptr<DashboardWindow> window;

    // The update API publishes `version`, downloadable as the simulator's "package" says.
    void offer(const QString& version, const QJsonObject& package = {})
    {
        const QString reply = version + ";{base}/packages/zorvik-dashboard_" + version + "_all.deb";
        QVERIFY(sim.configure({{"versions", QJsonObject{{"pack", reply}}}, {"package", package}}));
    }

    void openWindow()
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

private slots:
    void initTestCase()
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
        package = makeDebianPackage(packages.path(), "zorvik-dashboard", "all", 1 << 20);
        QVERIFY(!package.isEmpty());
        // pkexec and sudo, as the upgrade script finds them on the PATH.
        QDir().mkpath(home.path() + "/bin");
        for (const char* name : {"pkexec", "sudo"})
            QVERIFY(QFile::link(UPDATES_STAND_IN_ELEVATE, home.path() + "/bin/" + name));
        QProcess dpkg;
        dpkg.start("dpkg", {"--print-architecture"});
        QVERIFY(dpkg.waitForFinished());
        machineArch = QString::fromUtf8(dpkg.readAllStandardOutput()).trimmed();
    }

    void init()
    {
        QVERIFY(sim.reset());
        ModalSeam::reset();
        QDir(home.path() + "/home/Downloads").removeRecursively();
        for (const char* name : {"elevated", "started", "logs/upgrade.log"})
            QFile::remove(home.path() + "/" + name);
    }

    void cleanup()
    {
        window.reset();
        ModalSeam::reset();
    }

    void versionReplies_data()
    {
        QTest::addColumn<QString>("reply");
        QTest::addColumn<int>("status");
        QTest::addColumn<bool>("update");
        QTest::addColumn<QString>("logLine");

        const QString found = "Update found";
        const QString none = "Check SP version and updates finished";
        QTest::newRow("numbers, not text") << "3.10.0;u" << 200 << true << found;
        QTest::newRow("older minor, higher build") << "3.3.999;u" << 200 << false << none;
        QTest::newRow("two parts, missing build is 0") << "3.4;u" << 200 << false << none;
        QTest::newRow("one part") << "4;u" << 200 << false << "getSPUpdateUrl error, invalid version format";
        QTest::newRow("no address") << "3.4.376" << 200 << false << "getUpdateInfo error, invalid reply format";
        QTest::newRow("server error") << "3.4.376;u" << 500 << false << "getUpdateInfo error, cannot get info from API";
    }

    void versionReplies()
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
        QVERIFY2(home.readLog().mid(logStart).contains(logLine), qPrintable(logLine));
        const QJsonArray asked = sim.requests("/api/version.txt");
        QCOMPARE(asked.size(), 1);
        QCOMPARE(asked.at(0)["target"].toString(),
                 "/api/version.txt?type=soft&platform=" + OsPlatform::updatePlatformName() + "&package=pack");
        // The change log is fetched only for a newer version.
        QCOMPARE(sim.requests("/changelogs/pack.linux.txt").size(), update ? 1 : 0);
        QCOMPARE(checker.changeLog().startsWith("Zorvik Security Pack 3.4.376"), update);
    }

    void platformNames_data()
    {
        QTest::addColumn<QByteArray>("osRelease");
        QTest::addColumn<QString>("name");
        QTest::newRow("debian") << QByteArray("PRETTY_NAME=\"Debian GNU/Linux 12 (bookworm)\"\nVERSION_ID=\"12\"\n"
                                              "ID=debian\n")
                                << "linux.debian.12";
        QTest::newRow("major of a dotted version, single quotes")
            << QByteArray("# os-release\n  ID='ubuntu'  \nVERSION_ID='22.04'\n") << "linux.ubuntu.22";
        QTest::newRow("no VERSION_ID, no ID") << QByteArray("BUILD_ID=rolling\n") << "linux.linux";
    }

    void platformNames()
    {
        QFETCH(QByteArray, osRelease);
        QFETCH(QString, name);
        QCOMPARE(OsPlatform::linuxPlatformName(osRelease), name);
    }

    void updateFoundAtStartup()
    {
        offer("3.4.376");
        openWindow();
        QCOMPARE(window->trayIconName(), QString(":/Icons/images/tokenicon-bw-update.png"));
        QCOMPARE(window->trayIcon()->toolTip(),
                 QString("Zorvik: No token found\nNew version of Zorvik Dashboard is available for download."));
        QVERIFY(ModalSeam::seen().isEmpty()); // an automatic check shows nothing

        // Help > About: the user follows "New version available" to the offer and chooses
        // "Update Later"; nothing is downloaded and the note stays.
        QString offered;
        ModalSeam::answer(ModalSeam::ShowIt);
        ModalSeam::answer(ModalSeam::ShowIt);
        ModalSeam::setObserver([&](QDialog* dialog) {
            if (auto* about = qobject_cast<AboutDialog*>(dialog)) {
                QTimer::singleShot(0, about, [about] { emit about->form()->update_label->linkActivated("update"); });
            } else if (auto* update = qobject_cast<UpdateDialog*>(dialog)) {
                offered = update->form()->new_vesion_label->text() + "|" + update->form()->textBrowser->toPlainText() +
                          "|" + update->form()->current_version_label->text();
                QTimer::singleShot(0, update->form()->cancelButton, &QPushButton::click);
            }
        });
        window->form()->actionAbout->trigger();
        QCOMPARE(ModalSeam::seen(), (QStringList{"About Zorvik Dashboard|", "Software Update|"}));
        QVERIFY2(offered.startsWith("Security Pack Version 3.4.376 \n is now available|Zorvik Security Pack 3.4.376\n"),
                 qPrintable(offered));
        QVERIFY(offered.endsWith("|Current version: 3.4.375"));
        QVERIFY(sim.requests("/packages/zorvik-dashboard_3.4.376_all.deb").isEmpty());
        QVERIFY(window->updateAvailable);
    }

    void nothingFound()
    {
        openWindow(); // the simulator publishes the built-in version
        QCOMPARE(window->trayIconName(), QString(":/Icons/images/tokenicon-bw.png"));

        // A user's check while the automatic one runs is not started twice, but it reports.
        QVERIFY(sim.script(QJsonObject{{"path", "/api/version.txt*"}, {"delay", 1.0}, {"times", 1}}));
        QVERIFY(sim.clearRequests());
        const int before = checksDone();
        ModalSeam::answer(QMessageBox::Ok);
        window->slotCheckSPUpdates();
        QVERIFY(sim.waitForRequests("/api/version.txt"));
        window->form()->actionCheck_for_updates->trigger();
        window->form()->actionCheck_for_updates->trigger();
        QTRY_COMPARE_WITH_TIMEOUT(checksDone(), before + 1, 15000);
        QCOMPARE(
            ModalSeam::seen(),
            QStringList{"Zorvik Dashboard|You already have the latest version of Zorvik Security Pack installed."});
        // Nothing runs or waits to run afterwards.
        QVERIFY(window->updateChecker()->wait(5000));
        QCoreApplication::processEvents();
        QVERIFY(!window->updateChecker()->isRunning());
        QCOMPARE(checksDone(), before + 1);
        QCOMPARE(sim.requests("/api/version.txt").size(), 1);
    }

    void installNowDownloadsAndQuits()
    {
        // A package slow enough to watch the bar move.
        offer("3.4.376", {{"file", package}, {"chunk_size", 65536}, {"chunk_delay", 0.05}});
        openWindow();

        int valuesBetween = 0;
        ModalSeam::answer(QDialog::Accepted); // Update dialog: "Install Now"
        ModalSeam::answer(ModalSeam::ShowIt); // the download's progress
        ModalSeam::answer(QMessageBox::Ok);   // the program will be closed
        ModalSeam::setObserver([&](QDialog* dialog) {
            if (auto* bar = dialog->findChild<QProgressBar*>())
                connect(bar, &QProgressBar::valueChanged, dialog, [&](int v) { valuesBetween += v > 0 && v < 100; });
        });
        QTimer::singleShot(0, window->form()->actionCheck_for_updates, &QAction::trigger);
        QTimer watchdog;
        connect(&watchdog, &QTimer::timeout, qApp, [] { QCoreApplication::exit(1); });
        watchdog.start(60000);
        QCOMPARE(QCoreApplication::exec(), 0); // the installer quit the program

        const QString downloaded = home.path() + "/home/Downloads/zorvik-dashboard_3.4.376_all.deb";
        QVERIFY(home.readLog().contains(QString("Installing application: sh \"%1/scripts/upgrade.sh\" \"%2\"")
                                            .arg(QCoreApplication::applicationDirPath(), downloaded)));
        QCOMPARE(ModalSeam::seen().mid(1), (QStringList{"Zorvik Software Installation|", kCloseToInstall}));
        QVERIFY2(valuesBetween >= 3, qPrintable(QString::number(valuesBetween)));

        // The upgrade script installed exactly the served package and started the dashboard.
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(home.path() + "/started"), 20000);
        const QList<QByteArray> lines = readFile(home.path() + "/elevated").split('\n');
        QVERIFY2(lines.value(0).endsWith(" " + QFile::encodeName(downloaded)), lines.value(0).constData());
        QCOMPARE(lines.value(1), QCryptographicHash::hash(readFile(package), QCryptographicHash::Sha256).toHex());
    }

    void failedDownloads_data()
    {
        QTest::addColumn<QJsonObject>("package");
        QTest::addColumn<bool>("cancel");
        QTest::addColumn<QList<int>>("answers"); // to the boxes after the progress dialog
        QTest::addColumn<QStringList>("boxes");

        QTest::newRow("cancelled") << QJsonObject{{"chunk_size", 65536}, {"chunk_delay", 0.05}} << true
                                   << QList<int>{QMessageBox::Ok} << QStringList{kDownloadFailed};
        QTest::newRow("broken halfway") << QJsonObject{{"fail_after", 1 << 19}} << false
                                        << QList<int>{QMessageBox::Ok, QMessageBox::Ok}
                                        << QStringList{"Download|Web: network error: 2", kDownloadFailed};
        QTest::newRow("no length, install declined")
            << QJsonObject{{"length", false}} << false << QList<int>{QMessageBox::Cancel, QMessageBox::Ok}
            << QStringList{kCloseToInstall, "Zorvik Dashboard message|Cannot install Zorvik Dashboard.Please try again "
                                            "later or contact Zorvik support"};
    }

    void failedDownloads()
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
    }

    void upgradeScript_data()
    {
        QTest::addColumn<QString>("package"); // "<name>:<architecture>" built with dpkg-deb, else a text file
        QTest::addColumn<QStringList>("env");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("elevation"); // how the install ran as root; empty: it did not run
        QTest::addColumn<QString>("logLine");

        const QString installed = "INFO upgrade: Installed zorvik-dashboard 3.4.376";
        const QString otherArch = machineArch == "arm64" ? "amd64" : "arm64";
        QTest::newRow("desktop session: pkexec")
            << "zorvik-dashboard:all" << QStringList{"DISPLAY=:99"} << 0 << "pkexec" << installed;
        QTest::newRow("no desktop: sudo")
            << "zorvik-dashboard:" + machineArch << QStringList{} << 0 << "sudo" << installed;
        QTest::newRow("ZORVIK_UPGRADE_ELEVATE")
            << "zorvik-dashboard:all"
            << QStringList{"DISPLAY=:99", QString("ZORVIK_UPGRADE_ELEVATE=%1 --as root").arg(UPDATES_STAND_IN_ELEVATE)}
            << 0 << "run-as-root --as root" << installed;
        QTest::newRow("install fails") << "zorvik-dashboard:all" << QStringList{"ZORVIK_TEST_ELEVATE_STATUS=100"} << 1
                                       << "sudo"
                                       << "ERROR upgrade: Installation failed with code 100";
        QTest::newRow("another program") << "other-tool:all" << QStringList{} << 2 << ""
                                         << "holds \"other-tool\", not zorvik-dashboard";
        QTest::newRow("another architecture") << "zorvik-dashboard:" + otherArch << QStringList{} << 2 << ""
                                              << "is built for " + otherArch + ", this machine is " + machineArch;
        QTest::newRow("not a package") << "text" << QStringList{} << 2 << ""
                                       << "is not a Debian package";
    }

    void upgradeScript()
    {
        QFETCH(QString, package);
        QFETCH(QStringList, env);
        QFETCH(int, exitCode);
        QFETCH(QString, elevation);
        QFETCH(QString, logLine);

        // In a folder whose name has a blank, named relative to it.
        const QString folder = home.path() + "/Down loads";
        QDir(folder).removeRecursively();
        QString file = folder + "/zorvik-dashboard_3.4.376_all.deb";
        if (package.contains(':')) {
            file = makeDebianPackage(folder, package.section(':', 0, 0), package.section(':', 1));
        } else {
            QVERIFY(writeFile(file, "not a package\n"));
        }
        QVERIFY(QFile::exists(file));

        QProcessEnvironment environment = QProcessEnvironment::systemEnvironment();
        for (const char* name : {"DISPLAY", "WAYLAND_DISPLAY", "SUDO_ASKPASS", "ZORVIK_UPGRADE_ELEVATE"})
            environment.remove(name);
        environment.insert("PATH", home.path() + "/bin:" + environment.value("PATH"));
        for (const QString& pair : env)
            environment.insert(pair.section('=', 0, 0), pair.section('=', 1));
        QProcess script;
        script.setProcessEnvironment(environment);
        script.setWorkingDirectory(folder);
        script.start("sh",
                     {QCoreApplication::applicationDirPath() + "/scripts/upgrade.sh", QFileInfo(file).fileName()});
        QVERIFY(script.waitForFinished(60000));
        QCOMPARE(script.exitCode(), exitCode);

        QVERIFY(QString::fromUtf8(readFile(home.logDir() + "/upgrade.log")).contains(logLine));
        QCOMPARE(QString::fromUtf8(readFile(home.path() + "/elevated")).section('\n', 0, 0),
                 elevation.isEmpty() ? ""
                                     : elevation +
                                           " env DEBIAN_FRONTEND=noninteractive apt-get install -y "
                                           "--reinstall -o Dpkg::Options::=--force-confdef -o "
                                           "Dpkg::Options::=--force-confold " +
                                           file);
        // Only an installed package is removed; installed or not, the user gets a dashboard back.
        QCOMPARE(QFile::exists(file), exitCode != 0);
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(home.path() + "/started"), 10000);
    }
};

QTEST_MAIN(TestUpdates)
#include "tst_updates.moc"
