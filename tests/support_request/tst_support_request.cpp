// Support requests and critical error reports on the bench: the real window, pcscd with a
// simulated Vantrel, SoftHSM2 behind the module and the services simulator. Forms and boxes
// run through the modal seam; what the support desk receives is read back from the simulator.
#include "bench.h"
#include "certificate_storage.h"
#include "dashboard_window.h"
#include "modal_seam.h"
#include "report_error.h"
#include "services_sim.h"
#include "softhsm_token.h"
#include "support_dialog.h"
#include "system_configuration.h"
#include "test_credential.h"
#include "test_support.h"
#include "ui_dashboard_window.h"
#include "ui_support_dialog.h"
#include "web_access.h"

#include <QMessageBox>
#include <QUrlQuery>
#include <QtTest>

#include <memory>

namespace {

const QString kOutcome = "Zorvik Dashboard message|";
const QString kNotSent = "Error sending support request. Your help request has not been sent.";

using FormParts = QList<QPair<QByteArray, QByteArray>>;

// The parts of a logged multipart request as (headers, content).
FormParts formParts(const QJsonValue& request)
{
    const QByteArray body = ServicesSim::body(request),
                     boundary = ServicesSim::header(request, "Content-Type").section('=', 1).toLatin1();
    FormParts parts;
    const QByteArray text = "\r\n" + body, delimiter = "\r\n--" + boundary;
    for (int at = text.indexOf(delimiter), end; at >= 0 && (end = text.indexOf(delimiter, at + 1)) > 0; at = end) {
        const QByteArray chunk = text.mid(at + delimiter.size() + 2, end - at - delimiter.size() - 2);
        const int blank = chunk.indexOf("\r\n\r\n");
        parts.append({chunk.left(blank), chunk.mid(blank + 4)});
    }
    return parts;
}

// "name=value" for the text parts (the first five), "name<file name>=" for the files.
QStringList formFields(const FormParts& parts)
{
    QStringList fields;
    for (const auto& p : parts)
        fields << QString(p.first).section('"', 1, 1) + QString(p.first).section('"', 3, 3) + "=" +
                      (fields.size() < 5 ? QString::fromUtf8(p.second) : "");
    return fields;
}

} // namespace

class TestSupportRequest : public QObject
{
    Q_OBJECT

    TestHome home;
    Bench bench;
    ServicesSim sim;
    const QString pin = "k7Q2x9PINmark";
    SoftHsmToken token{"Vantrel", pin};
    std::unique_ptr<DashboardWindow> window;

    // Help > Contact support..., the form filled in and submitted; the wait box shown for
    // real; the outcome box answered and returned.
    QString submit(const QString& text, const QString& name = QString(), const QString& email = QString())
    {
        ModalSeam::setObserver([=](QDialog* d) {
            if (auto* dialog = qobject_cast<SupportDialog*>(d)) {
                dialog->form()->ticketText->setPlainText(text);
                dialog->form()->Name->setText(name);
                dialog->form()->Email->setText(email);
                QMetaObject::invokeMethod(dialog->form()->submitButton, "click", Qt::QueuedConnection);
            }
        });
        for (int answer : {int(ModalSeam::ShowIt), int(ModalSeam::ShowIt), int(QMessageBox::Ok)})
            ModalSeam::answer(answer);
        window->form()->actionContact_support->trigger();
        [&] { QTRY_COMPARE_WITH_TIMEOUT(ModalSeam::pending(), 0, 20000); }();
        const QString last = ModalSeam::seen().value(ModalSeam::seen().size() - 1);
        return last.startsWith(kOutcome) ? last.mid(kOutcome.size()) : "no outcome box: " + last;
    }

private slots:
    void initTestCase()
    {
        Q_INIT_RESOURCE(dashboard);
        const QString started = startServicesAndBench(home, sim, bench);
        QVERIFY2(started.isEmpty(), qPrintable(started));
        QVERIFY2(token.isValid(), qPrintable(token.errorText()));
        token.apply(false); // before the window sets up the module
        qunsetenv("ZORVIK_CRYPTOKI_CONF");
    }

    void init()
    {
        QVERIFY(sim.reset());
        ModalSeam::reset();
        window = std::make_unique<DashboardWindow>();
        window->show();
    }

    void cleanup()
    {
        ModalSeam::reset();
        window.reset();
    }

    // After the key has answered a key-service ticket and a PKCS#12 file has gone onto it
    // with its password and the PIN, the support desk gets the fields, then the logs in
    // order: plain ones compressed under their name + ".tmp.gz" (each opening to the log as
    // copied, the copy removed afterwards), archives as they are, missing ones empty; and
    // none of the three secrets.
    void sendsTheLogsButNoSecret()
    {
        const QString password = "Zq8wFILEpassmark";
        QVERIFY2(bench.insert(0), qPrintable(bench.errorText()));
        QTRY_VERIFY_WITH_TIMEOUT(window->tokenPresent, 10000);
        window->form()->tabs->setCurrentIndex(DashboardWindow::KeyStatusTab);
        QVERIFY(sim.waitForRequests("/a/view.json", 1, 30000));
        const QString answer = QUrlQuery(QString(ServicesSim::body(sim.requests("/a/auth-ticket/")[0])))
                                   .queryItemValue("answer", QUrl::FullyDecoded);
        QTRY_VERIFY_WITH_TIMEOUT(window->tokenStatusWorker().isFinished(), 20000);
        window->form()->tabs->setCurrentIndex(DashboardWindow::CertificatesTab);
        QTRY_VERIFY_WITH_TIMEOUT(!window->certificateStorage()->working, 30000);
        const QString p12 = home.path() + "/secret.p12";
        QVERIFY(TestCredential::make("Secret Holder").writePkcs12(p12, password, "secret"));
        ModalSeam::answerFile(p12);
        for (const QString& secret : {password, pin})
            ModalSeam::answer(QDialog::Accepted, secret);
        ModalSeam::answer(ModalSeam::ShowIt); // "Installing certificate. Please wait"
        emit window->form()->import_cert->linkActivated("import");
        QVERIFY(home.waitForLog("Certificate installed successfully", 30000));
        QVERIFY(writeFile(home.logDir() + "/dashboard.log1.gz", "archived"));

        QCOMPARE(submit("My key is not seen", "Ana", "ana@example.org"),
                 QString("Your support request was successfully sent.\n\nTicket:  ZD-00001   \n"));
        QTRY_VERIFY(!QApplication::overrideCursor());
        const QJsonArray sent = sim.requests("/api/report.json");
        QCOMPARE(sent.size(), 1);
        const QByteArray body = ServicesSim::body(sent[0]);
        QVERIFY(ServicesSim::header(sent[0], "Content-Type").startsWith("multipart/form-data; boundary="));
        QCOMPARE(ServicesSim::header(sent[0], "Content-Length").toInt(), body.size());
        const FormParts parts = formParts(sent[0]);
        QCOMPARE(parts.size(), 9);
        const QStringList fields = formFields(parts);
        QCOMPARE(fields.mid(0, 6), (QStringList{"email=ana@example.org", "name=Ana", "phone=", "text=My key is not seen",
                                                "ua=ZORVIK Dashboard 3.4.375 OS: " + systemConfiguration(),
                                                "files[]dashboard.log.tmp.gz="}));
        QCOMPARE(fields[7], QString("files[]dashboard.log1.gz="));
        QCOMPARE(QDir(home.logDir()).entryList({"*.tmp*"}) + QDir(home.systemLogDir()).entryList({"*.tmp*"}),
                 QStringList());
        QCOMPARE(parts[7].second + "|" + parts[8].second, QByteArray("archived|")); // the missing archive empty
        const QByteArray userLog = gunzip(parts[5].second), systemLog = gunzip(parts[6].second);
        QVERIFY(userLog.contains("Sending support ticket: My key is not seen"));
        QVERIFY(readFile(home.userLog()).startsWith(userLog));
        QVERIFY((userLog + systemLog).contains("ticket authentication result 200"));
        const QByteArray uploaded = body + userLog + systemLog;
        for (const QString& secret : {pin, password, answer}) {
            QVERIFY(!secret.isEmpty());
            QVERIFY2(!uploaded.contains(secret.toUtf8()), qPrintable(secret));
            QVERIFY(!uploaded.contains(QByteArray(reinterpret_cast<const char*>(secret.utf16()), secret.size() * 2)));
        }
        QVERIFY(bench.removeAll());
    }

    // Any answer but a ticket ends in the error box; the details go to the log only.
    void answersOtherThanATicket_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("body");
        QTest::addColumn<QString>("shown");
        QTest::newRow("numeric ticket") << 200 << R"({"result": true, "ticket": 123})"
                                        << "Your support request was successfully sent.\n\nTicket:  123   \n";
        QTest::newRow("result false") << 200 << R"({"result": false, "message": "Mailbox full"})" << kNotSent;
        QTest::newRow("result not a boolean") << 200 << R"({"result": "yes", "ticket": 1})"
                                              << "Error sending support request.";
        QTest::newRow("ticket an object") << 200 << R"({"result": true, "ticket": {"id": 1}})"
                                          << "Error sending support request.";
        QTest::newRow("HTTP 503") << 503 << R"({"result": true})" << kNotSent;
    }

    void answersOtherThanATicket()
    {
        QFETCH(int, status);
        QFETCH(QString, body);
        QFETCH(QString, shown);
        QVERIFY(sim.script(QJsonObject{{"path", "/api/report.json"}, {"status", status}, {"body", body}}));
        QCOMPARE(submit("help"), shown);
        QTRY_VERIFY(!QApplication::overrideCursor());
    }

    // The description stops at 20,000 characters while it is typed; Cancel sends nothing.
    void descriptionLimitAndCancel()
    {
        int length = 0;
        ModalSeam::setObserver([&](QDialog* d) {
            QMetaObject::invokeMethod(d, [&, d] {
                auto* form = static_cast<SupportDialog*>(d)->form();
                form->ticketText->setPlainText(QString(24990, 'a'));
                QTest::keyClicks(form->ticketText, "bcdefghijklmnop");
                length = form->ticketText->textCursor().atEnd() ? form->ticketText->toPlainText().size() : -1;
                form->cancelButton->click();
            }, Qt::QueuedConnection);
        });
        ModalSeam::answer(ModalSeam::ShowIt);
        window->form()->actionContact_support->trigger();
        QCOMPARE(length, 20000);
        QVERIFY(sim.requests("/api/report.json").isEmpty());
    }

    // A critical error posts the report with the tail of the log (at most 128 KiB, ending
    // with the error's own line) before the program ends.
    void criticalErrorIsReported_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("filler");
        QTest::addColumn<int>("silence"); // seconds the service keeps the report waiting
        QTest::newRow("short log") << "ASSERTION FAILED AT security-console/dashboard_window:42" << 0 << 0;
        QTest::newRow("long log, empty message") << "" << 300000 << 0;
        QTest::newRow("service never answers") << "late" << 0 << 600;
    }

    void criticalErrorIsReported()
    {
        QFETCH(QString, message);
        QFETCH(int, filler);
        QFETCH(int, silence);
        QVERIFY(sim.script(QJsonObject{{"path", "/api/report"}, {"delay", silence}}));
        TestHome child;
        QByteArray lines;
        for (int i = 0; lines.size() < filler; ++i)
            lines += "filler \xc3\xa4 " + QByteArray::number(i) + "\n";
        QVERIFY(writeFile(child.userLog(), lines));
        QProcessEnvironment env = child.environment();
        sim.addTo(&env);
        // The report waits 30 s at most.
        QCOMPARE(runProgram(QCoreApplication::applicationFilePath(), {"--critical-child", message}, nullptr, env,
                            nullptr, {}, 60000),
                 1);

        const QJsonArray sent = sim.requests("/api/report");
        QCOMPARE(sent.size(), 1);
        const FormParts parts = formParts(sent[0]);
        QCOMPARE(formFields(parts), (QStringList{"application=Dashboard", "platform=Linux", "sysconfig=" + systemConfiguration(),
                                      "title=Critical error: " + message, "version=3.4.375", "logcrash.log="}));
        const QByteArray tail = parts[5].second, log = readFile(child.userLog());
        QVERIFY(tail.endsWith("dashboard: " + message.toUtf8() + "\n"));
        const int at = log.indexOf(tail);
        QVERIFY(filler ? at > 0 && tail.size() > 131068 && tail.size() <= 131072 : at == 0);
    }
};

int main(int argc, char** argv)
{
    if (argc == 3 && QByteArray(argv[1]) == "--critical-child") {
        QApplication app(argc, argv);
        WebAccess::initSSL();
        ModalSeam::answer(QMessageBox::Ok);
        criticalMessage(QString::fromUtf8(argv[2]));
    }
    QApplication app(argc, argv);
    TestSupportRequest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_support_request.moc"
