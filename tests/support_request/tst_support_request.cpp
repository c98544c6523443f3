// Support requests and critical error reports as the user and the support desk meet them:
// the real window with the services simulator on 127.0.0.1 (no smart-card service), the
// help menu's Contact support, the form, the wait box and the outcome; the request body
// byte for byte; a critical error reported by a child process before it ends.
#include "dashboard_token_info.h"
#include "dashboard_window.h"
#include "log.h"
#include "report_error.h"
#include "services_sim.h"
#include "support_flow.h"
#include "system_configuration.h"
#include "test_support.h"
#include "ticket_sender.h"
#include "web_access.h"

#include <QJsonDocument>
#include <QMessageBox>
#include <QtTest>

#include <cstring>
#include <memory>

namespace {

const QByteArray kBoundary = "--DASHBOARD---237582364582639485761982651892365253y6548174sdrjghs5-";
const QString kOutcomeTitle = "Zorvik Dashboard message|";
const QString kNotSent = "Error sending support request. Your help request has not been sent.";

QByteArray readFile(const QString& path)
{
    QFile f(path);
    return f.open(QIODevice::ReadOnly) ? f.readAll() : QByteArray();
}

bool writeFile(const QString& path, const QByteArray& bytes)
{
    QFile f(path);
    return f.open(QIODevice::WriteOnly) && f.write(bytes) == bytes.size();
}

QByteArray textPart(const QByteArray& name, const QByteArray& value)
{
    return "--" + kBoundary + "\r\nContent-Disposition: form-data; name=\"" + name + "\";\r\n\r\n" + value + "\r\n";
}

QByteArray filePart(const QByteArray& fileName, const QByteArray& content)
{
    return "--" + kBoundary + "\r\nContent-Disposition: form-data; name=\"files[]\"; filename=\"" + fileName +
           "\"\r\nContent-Type: plain/text\r\n\r\n" + content + "\r\n";
}

QByteArray uaValue()
{
    return "ZORVIK Dashboard 3.4.375 OS: " + systemConfiguration().toUtf8();
}

// The child of criticalErrorIsReported: reports `message` as a critical error.
int criticalChild(int argc, char** argv)
{
    QApplication app(argc, argv);
    WebAccess::initSSL();
    ModalSeam::answer(QMessageBox::Ok);
    criticalMessage(QString::fromUtf8(argv[2]));
}

} // namespace

class TestSupportRequest : public QObject
{
    Q_OBJECT

    TestHome home;
    ServicesSim sim;
    std::unique_ptr<DashboardWindow> window;

    QString outcome() const
    {
        const QStringList seen = ModalSeam::seen();
        return seen.isEmpty() || !seen.last().startsWith(kOutcomeTitle) ? QString()
                                                                          : seen.last().mid(kOutcomeTitle.size());
    }

private slots:
    void initTestCase()
    {
        Q_INIT_RESOURCE(dashboard);
        QVERIFY(home.isValid());
        home.apply();
        qputenv("PCSCLITE_CSOCK_NAME", QFile::encodeName(home.path() + "/no-pcscd.comm"));
        QVERIFY2(sim.start(), qPrintable(sim.lastError()));
        sim.applyEnvironment();
        WebAccess::initSSL();
    }

    void init()
    {
        QVERIFY(sim.reset());
        ModalSeam::reset();
        ModalSeam::answer(QMessageBox::Cancel); // the service-error box of the first polling round
        window = std::make_unique<DashboardWindow>();
        QTRY_VERIFY(window->scardError);
        window->tokenInfo()->exit();
        window->tokenInfo()->wait();
        window->show();
        ModalSeam::reset();
    }

    void cleanup()
    {
        ModalSeam::reset();
        window.reset();
    }

    // The body: five text parts, then one part per file in list order: archives as they
    // are, other files compressed under their name + ".tmp.gz", unreadable ones empty.
    void requestBodyBytes()
    {
        QTemporaryDir dir;
        const QByteArray log = "line one\nzweite Zeile \xc3\xa4\n";
        const QByteArray archive = "\x1f\x8b not really gzip, sent as it is";
        QVERIFY(writeFile(dir.filePath("app.log"), log));
        QVERIFY(writeFile(dir.filePath("app.log1.gz"), archive));
        TicketSender sender;
        sender.setRequest(QString::fromUtf8("Cannot log in \xe2\x80\x94 again\nsecond line"), "ana@example.org",
                          QString::fromUtf8("Ana Mu\xc3\xb1oz"),
                          {dir.filePath("app.log"), dir.filePath("app.log1.gz"), dir.filePath("gone.log"),
                           dir.filePath("gone.log1.gz")});
        const QByteArray body = sender.requestBody();

        const QByteArray head = textPart("email", "ana@example.org") + textPart("name", "Ana Mu\xc3\xb1oz") +
                                textPart("phone", "") +
                                textPart("text", "Cannot log in \xe2\x80\x94 again\nsecond line") +
                                textPart("ua", uaValue()) + filePart("app.log.tmp.gz", QByteArray()).chopped(2);
        const QByteArray tail = "\r\n" + filePart("app.log1.gz", archive) + filePart("gone.log.tmp.gz", "") +
                                filePart("gone.log1.gz", "") + "--" + kBoundary + "--\r\n";
        QVERIFY2(body.startsWith(head), body.left(head.size() + 40).constData());
        QVERIFY(body.endsWith(tail));
        // The one part whose bytes gzip chooses: it opens to the log.
        QCOMPARE(gunzip(body.mid(head.size(), body.size() - head.size() - tail.size())), log);
        QVERIFY(!QFile::exists(dir.filePath("app.log.tmp.gz")));
        QCOMPARE(readFile(dir.filePath("app.log")), log);
    }

    // What the support desk receives from the window: headers, fields, and each log
    // compressed, opening to the log as it was when it was copied.
    void requestReachesTheService()
    {
        Log::print(Log::DEBUG, "written before the request");
        QVERIFY(writeFile(home.logDir() + "/dashboard.log1.gz", "archived"));
        submitSupportRequest(window.get(), "My key is not seen", "Ana", "ana@example.org");
        QCOMPARE(outcome(), QString("Your support request was successfully sent.\n\nTicket:  ZD-00001   \n"));
        QTRY_VERIFY(!QApplication::overrideCursor());

        const QJsonArray requests = sim.requests("/api/report.json");
        QCOMPARE(requests.size(), 1);
        const QByteArray body = ServicesSim::body(requests[0]);
        QCOMPARE(ServicesSim::header(requests[0], "Content-Type"), "multipart/form-data; boundary=" + kBoundary);
        QCOMPARE(ServicesSim::header(requests[0], "Content-Length").toInt(), body.size());
        const QList<FormPart> parts = formParts(body, kBoundary);
        QStringList fields;
        for (const FormPart& p : parts)
            fields << p.field() + "=" + (p.fileName().isEmpty() ? QString::fromUtf8(p.content) : p.fileName());
        QCOMPARE(fields, (QStringList{"email=ana@example.org", "name=Ana", "phone=", "text=My key is not seen",
                                      "ua=" + QString::fromUtf8(uaValue()), "files[]=dashboard.log.tmp.gz",
                                      "files[]=dashboard.log.tmp.gz", "files[]=dashboard.log1.gz",
                                      "files[]=dashboard.log1.gz"}));
        const QByteArray userLog = gunzip(parts[5].content);
        QVERIFY(userLog.contains("written before the request"));
        QVERIFY(userLog.contains("Sending support ticket: My key is not seen"));
        QVERIFY(readFile(home.userLog()).startsWith(userLog));
        QCOMPARE(parts[7].content, QByteArray("archived"));
        QVERIFY(parts[8].content.isEmpty()); // no system archive
        QVERIFY(!QFile::exists(home.userLog() + ".tmp.gz"));
    }

    // Every answer other than a ticket ends in the error box; the details go to the log only.
    void answersOtherThanATicket_data()
    {
        QTest::addColumn<QJsonObject>("answer");
        QTest::addColumn<QString>("shown");
        QTest::addColumn<QString>("logged");
        const QJsonObject json{{"path", "/api/report.json"}, {"content_type", "application/json"}};
        auto with = [](QJsonObject o, const char* key, const QJsonValue& v) {
            o.insert(key, v);
            return o;
        };
        QTest::newRow("numeric ticket")
            << with(json, "body", R"({"result": true, "ticket": 123})")
            << "Your support request was successfully sent.\n\nTicket:  123   \n" << "support_reply httpstatus = 200";
        QTest::newRow("result false") << with(json, "body", R"({"result": false, "message": "Mailbox full"})")
                                      << kNotSent << "Support api returns erorr: Mailbox full";
        QTest::newRow("no result") << with(json, "body", R"({"ticket": "T-9"})") << kNotSent
                                   << "Support api returns erorr: ";
        QTest::newRow("not JSON") << with(json, "body", "<html>busy</html>") << "Error sending support request."
                                  << "Incorrect server response = <html>busy</html>";
        QTest::newRow("result of the wrong type")
            << with(json, "body", R"({"result": "yes", "ticket": "T-1"})") << "Error sending support request."
            << R"(Incorrect server response = {"result": "yes", "ticket": "T-1"})";
        QTest::newRow("ticket of the wrong type")
            << with(json, "body", R"({"result": true, "ticket": {"id": 1}})") << "Error sending support request."
            << "Incorrect server response = ";
        QTest::newRow("array") << with(json, "body", "[true]") << "Error sending support request."
                               << "Incorrect server response = [true]";
        QTest::newRow("HTTP 503") << with(with(json, "status", 503), "body", R"({"result": true, "ticket": "T"})")
                                  << kNotSent << "support_reply httpstatus = 503";
        QTest::newRow("connection dropped") << with(json, "close", true) << kNotSent
                                            << "support_reply httpstatus = 0";
    }

    void answersOtherThanATicket()
    {
        QFETCH(QJsonObject, answer);
        QFETCH(QString, shown);
        QFETCH(QString, logged);
        QVERIFY(sim.script(answer));
        const QByteArray logBefore = readFile(home.userLog());
        submitSupportRequest(window.get(), "help", QString(), QString());
        QCOMPARE(outcome(), shown);
        QTRY_VERIFY(!QApplication::overrideCursor());
        QVERIFY2(home.readLog().contains(logged), qPrintable(logged));
        QVERIFY(!window->findChild<TicketSender*>()->isRunning() || window->findChild<TicketSender*>()->wait(5000));
        // The logs themselves are only read.
        QVERIFY(readFile(home.userLog()).startsWith(logBefore));
    }

    // The description stops at 20,000 characters while it is typed; Cancel sends nothing.
    void descriptionLimitAndCancel()
    {
        int length = -1;
        bool cursorAtEnd = false;
        ModalSeam::setObserver([&](QDialog* d) {
            auto* dialog = qobject_cast<SupportDialog*>(d);
            QMetaObject::invokeMethod(dialog, [&, dialog] {
                QPlainTextEdit* edit = dialog->form()->ticketText;
                edit->setPlainText(QString(24990, QChar('a')));
                QTest::keyClicks(edit, "bcdefghijklmnop");
                length = dialog->description().size();
                cursorAtEnd = edit->textCursor().atEnd();
                dialog->form()->cancelButton->click();
            }, Qt::QueuedConnection);
        });
        ModalSeam::answer(ModalSeam::ShowIt);
        window->form()->actionContact_support->trigger();
        QCOMPARE(length, 20000);
        QVERIFY(cursorAtEnd);
        QCOMPARE(ModalSeam::seen().size(), 1);
        QVERIFY(sim.requests("/api/report.json").isEmpty());
    }

    // Contact support again while a request is on its way: the form opens, Submit Report
    // warns and the form stays; the first request still ends normally.
    void secondRequestWhileSending()
    {
        QVERIFY(sim.script(QJsonObject{{"path", "/api/report.json"}, {"delay", 2}, {"times", 1},
                                       {"content_type", "application/json"},
                                       {"body", R"({"result": true, "ticket": "T-1"})"}}));
        int forms = 0;
        bool stayedOpen = false;
        ModalSeam::setObserver([&](QDialog* d) {
            if (auto* dialog = qobject_cast<SupportDialog*>(d)) {
                if (++forms == 1) {
                    QMetaObject::invokeMethod(dialog->form()->submitButton, "click", Qt::QueuedConnection);
                    return;
                }
                QMetaObject::invokeMethod(dialog, [dialog, &stayedOpen] {
                    dialog->form()->submitButton->click();
                    stayedOpen = dialog->isVisible();
                    dialog->form()->cancelButton->click();
                }, Qt::QueuedConnection);
            } else if (d->windowTitle() == "Zorvik Dashboard" && forms == 1) {
                QMetaObject::invokeMethod(window->form()->actionContact_support, "trigger", Qt::QueuedConnection);
            }
        });
        for (int answer : {int(ModalSeam::ShowIt), int(ModalSeam::ShowIt), int(ModalSeam::ShowIt),
                           int(QMessageBox::Ok), int(QMessageBox::Ok)})
            ModalSeam::answer(answer);
        window->form()->actionContact_support->trigger();
        QTRY_COMPARE_WITH_TIMEOUT(ModalSeam::pending(), 0, 20000);
        QCOMPARE(forms, 2);
        QVERIFY(stayedOpen);
        QVERIFY(ModalSeam::seen().contains("Dashboard warning|Zorvik Dashboard is sending your previous support "
                                           "request. Please wait and try again later."));
        QCOMPARE(outcome(), QString("Your support request was successfully sent.\n\nTicket:  T-1   \n"));
        QCOMPARE(sim.requests("/api/report.json").size(), 1);
        QTRY_VERIFY(!QApplication::overrideCursor());
    }

    // A critical error posts the report, with the tail of the log, before the program ends.
    void criticalErrorIsReported_data()
    {
        QTest::addColumn<QString>("message");
        QTest::addColumn<int>("filler");
        QTest::newRow("assertion") << "ASSERTION FAILED AT security-console/dashboard_window:42" << 0;
        QTest::newRow("empty message") << "" << 0;
        QTest::newRow("log longer than the tail") << "the disk is gone" << 300000;
    }

    void criticalErrorIsReported()
    {
        QFETCH(QString, message);
        QFETCH(int, filler);
        TestHome child;
        QByteArray lines;
        for (int i = 0; lines.size() < filler; ++i)
            lines += "2026-01-01 00:00:00.000 DEBUG dashboard: filler \xc3\xa4 " + QByteArray::number(i) + "\n";
        QVERIFY(writeFile(child.userLog(), lines));
        QProcessEnvironment env = child.environment();
        sim.addTo(&env);
        QProcess p;
        p.setProcessEnvironment(env);
        p.start(QCoreApplication::applicationFilePath(), {"--critical-child", message});
        QVERIFY(p.waitForFinished(60000));
        QCOMPARE(p.exitCode(), 1);

        const QJsonArray requests = sim.requests("/api/report");
        QCOMPARE(requests.size(), 1);
        const QString type = ServicesSim::header(requests[0], "Content-Type");
        QVERIFY(type.startsWith("multipart/form-data; boundary="));
        const QList<FormPart> parts = formParts(ServicesSim::body(requests[0]), type.mid(30).toLatin1());
        QStringList fields;
        for (const FormPart& part : parts.mid(0, 5))
            fields << part.field() + "=" + QString::fromUtf8(part.content);
        QCOMPARE(fields, (QStringList{"application=Dashboard", "platform=Linux", "sysconfig=" + systemConfiguration(),
                                      "title=Critical error: " + message, "version=3.4.375"}));
        QCOMPARE(parts.size(), 6);
        QCOMPARE(parts[5].headers, QByteArray("Content-Disposition: form-data; name=\"log\"; filename=\"crash.log\"\r\n"
                                              "Content-Type: text/plain; charset=utf-8"));
        // The tail ends with the error's own line and is cut to 128 KiB from the log.
        const QByteArray tail = parts[5].content;
        const QByteArray log = readFile(child.userLog());
        QVERIFY(tail.endsWith("dashboard: " + message.toUtf8() + "\n"));
        const int at = log.indexOf(tail);
        QVERIFY(at >= 0);
        if (filler == 0) {
            QCOMPARE(at, 0);
        } else {
            QVERIFY(at > 0);
            QVERIFY(tail.size() <= 131072 && tail.size() > 131068);
        }
        QVERIFY(sim.clearRequests());
    }
};

int main(int argc, char** argv)
{
    if (argc == 3 && std::strcmp(argv[1], "--critical-child") == 0)
        return criticalChild(argc, argv);
    QApplication app(argc, argv);
    TestSupportRequest test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_support_request.moc"
