// The integrations with the programs of a Debian desktop: NSS modutil on real profile
// databases with our PKCS#11 module over a private SoftHSM2 token, Chrome's preferences, and
// the Solutions tab's link commands.
#include "dashboard_token_info.h"
#include "dashboard_window.h"
#include "modal_seam.h"
#include "softhsm_token.h"
#include "sp_components.h"
#include "test_support.h"
#include "ui_dashboard_window.h"

#include <QLockFile>
#include <QMessageBox>
#include <QtTest>

#include <memory>

class TestIntegrations : public QObject
{
    Q_OBJECT

    QString thunderbirdProfile() const { return home.path() + "/home/.thunderbird/zz.default"; }

    TestHome home;
    SoftHsmToken token;
    std::unique_ptr<DashboardWindow> window;
    QStringList startupDialogs;

    // One window for the cases that need it, made when the first one runs.
    DashboardWindow* mainWindow()
    {
        if (window)
            return window.get();
        ModalSeam::reset();
        ModalSeam::answer(QMessageBox::Cancel); // the service-error box of the first polling round
        ModalSeam::answer(QMessageBox::Ok);     // a component error of the start-up pass, if any
        window = std::make_unique<DashboardWindow>();
        QSignalSpy passes(window->componentsUpdater(), &SP_Components::componentsUpdated);
        if (!window->componentsUpdater()->isFinished())
            passes.wait(30000);
        if (!QTest::qWaitFor([this] { return window->scardError; }, 10000))
            qWarning("no service-error round");
        window->tokenInfo()->exit();
        window->tokenInfo()->wait();
        window->SCardInterfaceNoError();
        startupDialogs = ModalSeam::seen();
        ModalSeam::reset();
        return window.get();
    }

private slots:
    void initTestCase()
    {
        Q_INIT_RESOURCE(dashboard);
        home.apply();
        QVERIFY2(token.isValid(), qPrintable(token.errorText()));
        token.apply(true);
        qputenv("PCSCLITE_CSOCK_NAME", QFile::encodeName(home.path() + "/no-pcscd.comm"));
        // Services on a closed loopback port: the window's update check goes nowhere.
        qputenv("ZORVIK_UPDATE_URL", "https://127.0.0.1:9");
        // A Thunderbird on PATH (only its presence counts) and its profile made as Thunderbird
        // makes it: profiles.ini naming an NSS database directory.
        const QString bin = home.path() + "/bin";
        QVERIFY(writeFile(bin + "/thunderbird", "#!/bin/sh\nexit 0\n"));
        QFile::setPermissions(bin + "/thunderbird", QFileDevice::ReadOwner | QFileDevice::ExeOwner);
        // openvpn lives in /usr/sbin on Debian.
        qputenv("PATH", QFile::encodeName(bin) + ":" + qgetenv("PATH") + ":/usr/sbin:/sbin");
        QVERIFY(writeFile(home.path() + "/home/.thunderbird/profiles.ini",
                          "[General]\nStartWithLastProfile=1\n\n[Profile0]\nName=default\nIsRelative=1\n"
                          "Path=zz.default\nDefault=1\n"));
        QDir().mkpath(thunderbirdProfile());
        QByteArray out;
        QVERIFY2(runProgram("certutil", {"-N", "-d", "sql:" + thunderbirdProfile(), "--empty-password"}, &out) == 0,
                 out.constData());
    }

    void cleanupTestCase() { window.reset(); }

    void readCert_data()
    {
        QTest::addColumn<QString>("block");
        QTest::addColumn<QStringList>("fields"); // name, serial, serialized id, e-mail
        // The length taken is the comma's position in the whole line, and the key stays in: the
        // name and e-mail run past their comma by the key's position.
        QTest::newRow("e-mail, CR LF")
            << "\r\nDN: CN=Alice, emailAddress=a@b.test, O=Z\r\nSerial: 01\r\nSerialized id: X/Y\r\n"
            << QStringList{"CN=Alice, em", "Serial: 01", "X/Y", "emailAddress=a@b.test, O=Z"};
        QTest::newRow("truncated") << "\nDN: CN=Carol\n" << QStringList{"CN=Carol", "", "", ""};
    }

    void readCert()
    {
        QFETCH(QString, block);
        QFETCH(QStringList, fields);
        const VPNCert cert = SP_Components::ReadCert(block);
        QCOMPARE((QStringList{cert.commonName, cert.serial, cert.serializedId, cert.email}), fields);
    }

    void profileLookup_data()
    {
        QTest::addColumn<QString>("profilePath"); // Profile0's Path; "@" stands for the test home
        QTest::addColumn<QString>("expected");
        const QString root = home.path() + "/home/.mozilla/firefox";
        QDir().mkpath(root + "/ab.default");
        QDir().mkpath(home.path() + "/elsewhere");
        QTest::newRow("relative") << "ab.default" << root + "/ab.default";
        QTest::newRow("absolute") << "@/elsewhere" << home.path() + "/elsewhere";
        QTest::newRow("missing directory") << "gone.default"
                                           << "";
    }

    void profileLookup()
    {
        QFETCH(QString, profilePath);
        QFETCH(QString, expected);
        const QString ini = home.path() + "/home/.mozilla/firefox/profiles.ini";
        QVERIFY(writeFile(ini, "[Profile0]\nPath=" + profilePath.replace("@", home.path()).toUtf8() + "\n"));
        SP_Components components(nullptr);
        QCOMPARE(components.getFirefoxConfigPath(), expected);
    }

    void chromeEdit_data()
    {
        QTest::addColumn<QByteArray>("prefs"); // null: no file
        QTest::addColumn<QString>("outcome");
        QTest::addColumn<QByteArray>("after");
        const QByteArray id = kChromeExtensionId;
        const QByteArray head = "{\"extensions\":{\"settings\":{\"" + id + "\":{\"path\":\"" + id + "/1.0_0\",";
        QTest::newRow("switched off") << head + "\"state\":0}}}}"
                                      << "Chrome extenstion enabled" << head + "\"state\":1}}}}";
        // The failures leave the file empty; the backup keeps what it held.
        QTest::newRow("already on") << head + "\"state\":1}}}}"
                                    << "error enabling chrome extension" << QByteArray("");
        QTest::newRow("state too far") << head + "\"x\":\"" + QByteArray(500, 'x') + "\",\"state\":0}}}}"
                                       << "unknown config format" << QByteArray("");
        QTest::newRow("no file") << QByteArray() << "Cannot open chrome preferences file: " << QByteArray();
    }

    void chromeEdit()
    {
        QFETCH(QByteArray, prefs);
        QFETCH(QString, outcome);
        QFETCH(QByteArray, after);
        const QString file = ChromePrefsFile();
        QFile::remove(file);
        QFile::remove(file + ".d.back");
        if (!prefs.isNull())
            QVERIFY(writeFile(file, prefs));
        else
            outcome += file;
        QCOMPARE(editCromePrefs(), outcome);
        QCOMPARE(readFile(file), after);
        // A second run keeps the first backup.
        editCromePrefs();
        QCOMPARE(readFile(file + ".d.back"), prefs.isNull() ? QByteArray() : prefs);
    }

    void chromeWaitsWhileRunning()
    {
        const QByteArray id = kChromeExtensionId;
        const QByteArray prefs = "{\"x\":{\"path\":\"" + id + "\",\"state\":0}}";
        QVERIFY(writeFile(ChromePrefsFile(), prefs));
        SP_Components components(nullptr);
        ModalSeam::reset();
        {
            // Chrome holds the profile's lock: every OK asks again, Cancel gives up.
            QLockFile held(ChromeProfileDir() + "/lockfile");
            QVERIFY(held.tryLock(0));
            ModalSeam::answer(QMessageBox::Ok);
            ModalSeam::answer(QMessageBox::Ok);
            ModalSeam::answer(QMessageBox::Cancel);
            QVERIFY(!components.enableChromeExtension(nullptr));
            QCOMPARE(ModalSeam::seen().size(), 3);
            QVERIFY(ModalSeam::seen().first().startsWith("Zorvik Dashboard|Google Chrome is running."));
        }
        // Chrome's own marker counts as running too; once it is gone the edit goes through.
        const QString marker = QFileInfo(ChromePrefsFile()).path() + "/../SingletonLock";
        QVERIFY(QFile::link("host-99999", marker));
        ModalSeam::reset();
        ModalSeam::answer(QMessageBox::Cancel);
        QVERIFY(!components.enableChromeExtension(nullptr));
        QCOMPARE(readFile(ChromePrefsFile()), prefs);
        QFile::remove(marker);
        QVERIFY(components.enableChromeExtension(nullptr));
        QVERIFY(readFile(ChromePrefsFile()).endsWith("\"state\":1}}"));
    }

    void thunderbirdRegistration()
    {
        // The window's start-up pass finds Thunderbird and registers the module with modutil.
        DashboardWindow* window = mainWindow();
        // No component error: the only box was the smart-card service's.
        QVERIFY2(startupDialogs.size() == 1, qPrintable(startupDialogs.join("\n")));
        SP_Components* components = window->componentsUpdater();
        QCOMPARE(components->thunderbirdState.load(), 2);
        QVERIFY(!components->thunderbirdCheckRequested);
        QByteArray listing;
        runProgram("modutil", {"-dbdir", "sql:" + thunderbirdProfile(), "-list"}, &listing);
        QCOMPARE(listing.count("Zorvik PKCS#11 Module"), 1);
        QVERIFY(listing.contains(components->CryptokiPath().toUtf8()));

        // The full refresh checks again and finds it: no second "-add".
        const int adds = countLines(home.readLog(), "-add \"Zorvik PKCS#11 Module\"");
        QSignalSpy done(components, &SP_Components::componentsUpdated);
        window->updateApplicationsFull();
        QVERIFY(done.wait(60000));
        QCOMPARE(components->thunderbirdState.load(), 2);
        QCOMPARE(countLines(home.readLog(), "-add \"Zorvik PKCS#11 Module\""), adds);
        runProgram("modutil", {"-dbdir", "sql:" + thunderbirdProfile(), "-list"}, &listing);
        QCOMPARE(listing.count("Zorvik PKCS#11 Module"), 1);
    }

    void registrationFailureIsReported()
    {
        // A profile whose databases NSS cannot open: modutil fails and the user is told.
        const QString ini = home.path() + "/home/.thunderbird/profiles.ini";
        const QByteArray good = readFile(ini);
        const QString broken = home.path() + "/home/.thunderbird/broken";
        QVERIFY(writeFile(broken + "/cert9.db", "garbage") && writeFile(broken + "/key4.db", "garbage"));
        QVERIFY(writeFile(ini, "[Profile0]\nPath=broken\n"));
        SP_Components components(nullptr);
        components.modutilPath = components.getModutilPath();
        QSignalSpy errors(&components, &SP_Components::ComponentError);
        QVERIFY(!components.updateCryptokiTBConfig());
        QVERIFY(writeFile(ini, good));
        QCOMPARE(errors.count(), 1);
        QVERIFY(errors.first().first().toString().startsWith("Cannot configure library, modutil returns error: "));
    }

    void solutionsLinks_data()
    {
        QTest::addColumn<QString>("link");
        QTest::addColumn<QString>("shown"); // title of the one dialog shown, empty for none
        QTest::newRow("openvpn setup") << "setup-openvpn"
                                       << "Zorvik support for OpenVPN";
        QTest::newRow("unknown setup") << "setup-juniper"
                                       << "";
        QTest::newRow("no key") << "configure-openvpn-cryptoki"
                                << "Configuring OpenVPN";
        QTest::newRow("report, answered No") << "report-Vaultry"
                                             << "Zorvik Dashboard";
    }

    void solutionsLinks()
    {
        QFETCH(QString, link);
        QFETCH(QString, shown);
        DashboardWindow* window = mainWindow();
        ModalSeam::reset();
        ModalSeam::answer(QMessageBox::No);
        window->slotApplicationActivated(link);
        QCOMPARE(ModalSeam::seen().size(), shown.isEmpty() ? 0 : 1);
        if (!shown.isEmpty())
            QCOMPARE(ModalSeam::seen().first().section('|', 0, 0), shown);
    }

    void solutionsTabStates()
    {
        DashboardWindow* window = mainWindow();
        ModalSeam::reset();
        SP_Components* components = window->componentsUpdater();
        QVERIFY(components->openVPNInstalled); // openvpn is on PATH
        QVERIFY(window->form()->openvpn_status->text().contains("configure-openvpn-cryptoki"));
        components->openVPNInstalled = false;
        window->updateSolutions();
        QVERIFY(window->form()->openvpn_status->text().contains("setup-openvpn"));
        QVERIFY(ModalSeam::seen().isEmpty());
    }
};

QTEST_MAIN(TestIntegrations)
#include "tst_integrations.moc"
