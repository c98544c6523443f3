// "Add a connection" on the bench: a simulated Vantrel in a reader of a private pcscd, its
// certificates in SoftHSM2 behind our module, and the real openvpn listing them and taking
// the configuration the dialog ends in.
#include "bench.h"
#include "dashboard_window.h"
#include "information_dialog.h"
#include "modal_seam.h"
#include "openvpn_dialog.h"
#include "softhsm_token.h"
#include "sp_components.h"
#include "test_credential.h"
#include "test_support.h"
#include "ui_openvpn_dialog.h"

#include <QMessageBox>
#include <QTextBrowser>
#include <QtTest>

#include <memory>

class TestIntegrationsBench : public QObject
{
    Q_OBJECT

    TestHome home;
    Bench bench;
    SoftHsmToken token;
    QString caFile;
    std::unique_ptr<DashboardWindow> window;

private slots:
    void initTestCase()
    {
        Q_INIT_RESOURCE(dashboard);
        home.apply();
        qputenv("ZORVIK_UPDATE_URL", "https://127.0.0.1:9");
        qputenv("PATH", qgetenv("PATH") + ":/usr/sbin:/sbin");
        QVERIFY2(bench.start(), qPrintable(bench.errorText()));
        QVERIFY2(token.isValid(), qPrintable(token.errorText()));

        // On the token: a self-signed certificate, and one issued by a CA stored twice under
        // two identifiers (same name, e-mail and serial).
        TestCredential::Options options;
        options.commonName = "Alice Vpn";
        QVERIFY(!token.load(TestCredential::make(options), "alice").isEmpty());
        const QString d = home.path();
        caFile = d + "/ca.pem";
        const QList<QStringList> steps{{"req", "-x509", "-newkey", "rsa:2048", "-nodes", "-keyout", d + "/ca.key",
                                        "-out", caFile, "-days", "2", "-subj", "/CN=Bench VPN CA"},
                                       {"req", "-newkey", "rsa:2048", "-nodes", "-keyout", d + "/bob.key", "-out",
                                        d + "/bob.csr", "-subj", "/CN=Bob Vpn/emailAddress=bob@example.test"},
                                       {"x509", "-req", "-in", d + "/bob.csr", "-CA", caFile, "-CAkey", d + "/ca.key",
                                        "-CAcreateserial", "-days", "2", "-out", d + "/bob.pem"}};
        for (const QStringList& step : steps) {
            QByteArray out;
            QVERIFY2(runProgram("openssl", step, &out) == 0, out.constData());
        }
        for (const char* id : {"01", "02"}) {
            QProcess load;
            load.setProcessEnvironment(token.environment());
            load.start("bash",
                       {SoftHsmToken::setupScript(), "load", token.directory(), "--cert", d + "/bob.pem", "--key",
                        d + "/bob.key", "--label", QString("bob ") + id, "--id", id, "--pin", token.pin()});
            QVERIFY(load.waitForFinished(60000) && load.exitCode() == 0);
        }
        token.apply(false);
        window = std::make_unique<DashboardWindow>();
        // The first pass over the programs (modutil, openvpn) ends on its own thread.
        QVERIFY(window->componentsUpdater()->wait(testTime(120000)));
    }

    void cleanupTestCase()
    {
        window.reset();
        bench.removeAll();
    }

    void addConnection()
    {
        // The key's certificates in the dialog, and a configuration openvpn takes.
        ModalSeam::reset();
        QVERIFY2(bench.insert(0), qPrintable(bench.errorText()));
        QTRY_VERIFY_WITH_TIMEOUT(window->tokenPresent, 10000);
        int choices = -1;
        QString config;
        ModalSeam::setObserver([&](QDialog* dialog) {
            if (auto* vpn = qobject_cast<OpenVPNDialog*>(dialog)) {
                choices = vpn->form()->certCombo->count();
                vpn->form()->certCombo->setCurrentIndex(0);
                vpn->form()->addressEdit->setText("127.0.0.1");
                vpn->form()->caEdit->setText(caFile);
            } else if (auto* info = qobject_cast<InformationDialog*>(dialog)) {
                config = info->findChild<QTextBrowser*>("message")->toPlainText();
            }
        });
        ModalSeam::answer(QDialog::Accepted);
        ModalSeam::answer(QDialog::Accepted);
        window->slotApplicationActivated("configure-openvpn-cryptoki");
        ModalSeam::setObserver(nullptr);
        QCOMPARE(choices, 2); // the certificate stored twice is one entry
        QVERIFY2(config.startsWith("pkcs11-providers '" + window->componentsUpdater()->CryptokiPath() + "'\n"),
                 qPrintable(config));
        QVERIFY(config.trimmed().endsWith("\ncomp-lzo\nverb 3"));

        // openvpn lists the chosen id, and takes the whole text up to contacting the server.
        const QString id = config.section("pkcs11-id '", 1).section("'", 0, 0);
        QByteArray ids;
        runProgram("openvpn", {"--show-pkcs11-ids", window->componentsUpdater()->CryptokiPath()}, &ids);
        QVERIFY(ids.contains(id.toUtf8()));
        const QString file = home.path() + "/zorvik.ovpn";
        QVERIFY(writeFile(file, config.toUtf8()));
        QProcess vpn;
        vpn.setProcessChannelMode(QProcess::MergedChannels);
        vpn.start("openvpn", {"--config", file, "--verb", "4"});
        QString out;
        QTRY_VERIFY_WITH_TIMEOUT(
            (out += vpn.readAll(), out.contains("link remote") || vpn.state() == QProcess::NotRunning), 30000);
        vpn.kill();
        vpn.waitForFinished();
        QVERIFY2(!out.contains("Options error") && out.contains("link remote"), qPrintable(out.right(2000)));
    }
};

QTEST_MAIN(TestIntegrationsBench)
#include "tst_integrations_bench.moc"
