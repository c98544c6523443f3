// What a user sends with their logs never holds a secret: on the bench (pcscd with a
// simulated Vantrel, SoftHSM2 behind the module, the services simulator) the key answers a
// key-service ticket and a PKCS#12 file is imported with its password and the PIN; then a
// support request uploads the logs, and every uploaded byte, decompressed, is searched.
#include "bench.h"
#include "certificate_storage.h"
#include "services_sim.h"
#include "softhsm_token.h"
#include "support_flow.h"
#include "test_credential.h"
#include "test_support.h"
#include "ticket_sender.h"
#include "web_access.h"

#include <QUrlQuery>

#include <memory>

class TestSupportSecrets : public QObject
{
    Q_OBJECT

    TestHome home;
    Bench bench;
    ServicesSim sim;
    QTemporaryDir files;

private slots:
    void initTestCase()
    {
        Q_INIT_RESOURCE(dashboard);
        QVERIFY(home.isValid());
        home.apply();
        qunsetenv("ZORVIK_CRYPTOKI_CONF");
        QVERIFY2(sim.start(), qPrintable(sim.lastError()));
        sim.applyEnvironment();
        WebAccess::initSSL();
        QVERIFY2(bench.start(), qPrintable(bench.errorText()));
    }

    void secretsStayOutOfTheUpload()
    {
        const QString pin = "k7Q2x9PINmark";
        const QString password = "Zq8wFILEpassmark";
        SoftHsmToken token("Vantrel", pin);
        QVERIFY2(token.isValid(), qPrintable(token.errorText()));
        token.apply(false);
        ModalSeam::reset();
        QVERIFY2(bench.insert(0, {}), qPrintable(bench.errorText()));
        auto window = std::make_unique<DashboardWindow>();
        window->show();
        QTRY_VERIFY_WITH_TIMEOUT(window->tokenPresent, 10000);

        // The key answers a ticket of the key service.
        window->form()->tabs->setCurrentIndex(DashboardWindow::KeyStatusTab);
        QVERIFY(sim.waitForRequests("/a/view.json", 1, 30000));
        const QJsonArray auth = sim.requests("/a/auth-ticket/");
        QCOMPARE(auth.size(), 1);
        const QString answer =
            QUrlQuery(QString::fromUtf8(ServicesSim::body(auth[0]))).queryItemValue("answer", QUrl::FullyDecoded);
        QVERIFY(answer.size() >= 32);
        TokenStatus& status = window->tokenStatusWorker();
        QTRY_VERIFY_WITH_TIMEOUT(!status.busy && status.isFinished(), 20000);

        // A PKCS#12 file with a password goes onto the key with the PIN.
        window->form()->tabs->setCurrentIndex(DashboardWindow::CertificatesTab);
        QTRY_VERIFY_WITH_TIMEOUT(!window->certificateStorage()->working, 30000);
        const QString path = files.filePath("secret.p12");
        QVERIFY(TestCredential::make("Secret Holder").writePkcs12(path, password, "secret"));
        ModalSeam::answerFile(path);
        ModalSeam::answer(QDialog::Accepted, password);
        ModalSeam::answer(QDialog::Accepted, pin);
        ModalSeam::answer(ModalSeam::ShowIt); // "Installing certificate. Please wait"
        emit window->form()->import_cert->linkActivated("import");
        QTRY_COMPARE_WITH_TIMEOUT(ModalSeam::pending(), 0, 30000);
        QVERIFY(home.waitForLog("Certificate installed successfully", 30000));

        ModalSeam::reset();
        submitSupportRequest(window.get(), "Please look at my logs", QString(), QString());
        const QJsonArray sent = sim.requests("/api/report.json");
        QCOMPARE(sent.size(), 1);
        const QByteArray body = ServicesSim::body(sent[0]);
        QByteArray uploaded = body;
        for (const FormPart& part : formParts(body, TicketSender::boundaryText))
            if (part.fileName().endsWith(".gz"))
                uploaded += gunzip(part.content);
        // The scan sees the flows' own lines.
        QVERIFY(uploaded.contains("Certificate installed successfully"));
        QVERIFY(uploaded.contains("ticket authentication result 200"));
        for (const QString& secret : {pin, password, answer}) {
            const QByteArray utf16(reinterpret_cast<const char*>(secret.utf16()), secret.size() * 2);
            QVERIFY2(!uploaded.contains(secret.toUtf8()), qPrintable(secret));
            QVERIFY2(!uploaded.contains(utf16), qPrintable(secret + " (UTF-16)"));
        }
        window.reset();
        ModalSeam::reset();
    }
};

QTEST_MAIN(TestSupportSecrets)
#include "tst_support_secrets.moc"
