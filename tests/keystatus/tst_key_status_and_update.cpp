// The key's status on the bench (a simulated key, the real key-service simulator and, for
// the proxy case, a real tinyproxy): the ticket authentication of libqvtoken_gui (what its
// callback reports, exactly once, never after the instance is released, and the two
// user-interface parameters it keeps); TokenStatus and the window's Key Status tab; then the
// key's firmware update: published versions from the simulator's update API, the user's
// consent, and the key rewritten by the token library.
#include "bench.h"
#include "dashboard_network_manager.h"
#include "dashboard_window.h"
#include "modal_seam.h"
#include "proxy_sim.h"
#include "qvtoken_gui.h"
#include "services_sim.h"
#include "test_support.h"
#include "token_status.h"
#include "token_update.h"
#include "ui_dashboard_window.h"
#include "web_access.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QMessageBox>
#include <QJsonObject>
#include <QPointer>
#include <QMutex>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QSignalSpy>
#include <QUrlQuery>
#include <QtTest>

#include <atomic>
#include <memory>
#include <thread>
#include <utility>

namespace {

const QString kVantrelAtr = "3B 8A 80 01 5A 4F 52 56 49 4B 20 56 54 00 3A ";
const QString kActive = "<b>Key is active and operating normally</b>";
const QString kCancelled = "<b>Key status request was canceled. Click \"Refresh\" to try again.</b>";
const int kFlowTimeout = 20000;
const int kNoUpdate = 1000;

QString icon(const DashboardWindow& window)
{
    return QRegularExpression("images/([^']+)'").match(window.form()->tokenStatus_icon->text()).captured(1);
}

// Scripts the key service's answer to the key's ticket proof.
QJsonObject authAnswer(int code, const QString& text)
{
    return {{"path", "/a/auth-ticket/"},
            {"content_type", "application/json"},
            {"body", QString(R"({"code": %1, "text": "%2"})").arg(code).arg(text)}};
}

// "<key firmware version>;<controller version>" of the first key, read afresh.
QString keyVersions()
{
    qvtoken_search_t search = qvtoken_initSearch();
    qvtoken_token_t token = qvtoken_findNextToken(search, 2000);
    QString text;
    if (token) {
        const KeyStatusRecord record = qvtoken_getTokenStatus(token, nullptr, nullptr);
        text = TokenUpdate::keyVersionText(record) + ";" + QString::fromLatin1(record.controllerVersion);
    }
    qvtoken_destroySearch(search);
    return text;
}

// What the library reported through its callback.
struct Outcome {
    QMutex mutex;
    std::atomic<int> calls{0};
    int code = 0;
    QString text;
    std::thread::id thread;
};

void record(int code, const char* text, void* context)
{
    auto* outcome = static_cast<Outcome*>(context);
    QMutexLocker lock(&outcome->mutex);
    outcome->code = code;
    outcome->text = text ? QString::fromUtf8(text) : QString();
    outcome->thread = std::this_thread::get_id();
    ++outcome->calls;
}

// Threads of this process, so a test can wait for the library's worker to end.
int threadCount()
{
    return QDir("/proc/self/task").entryList(QDir::Dirs | QDir::NoDotAndDotDot).size();
}

struct InstanceDeleter {
    void operator()(void* instance) const { qvtoken_gui_release_instance(instance); }
};

} // namespace

class TestKeyStatusAndUpdate : public QObject
{
    Q_OBJECT

    TestHome home;
    Bench bench;
    ServicesSim sim;
    std::unique_ptr<DashboardWindow> window;
    int baseThreads = 0;

    // A window whose presence polling has seen the key, switched to `tab` (the Key Status
    // tab starts the query).
    void openWindow(int tab = 2)
    {
        window = std::make_unique<DashboardWindow>();
        window->show();
        QTRY_VERIFY_WITH_TIMEOUT(window->tokenPresent, 5000);
        window->form()->tabs->setCurrentIndex(tab);
    }

    void waitUntilIdle(TokenStatus& status)
    {
        QTRY_VERIFY_WITH_TIMEOUT(!status.busy && status.isFinished(), kFlowTimeout);
        QTRY_VERIFY(!window || !window->form()->tabs->testAttribute(Qt::WA_SetCursor));
    }

    QByteArray freshTicket() const
    {
        const ServicesSim::Reply reply = sim.control("GET", "/a/get-ticket/");
        return reply.status == 200 ? reply.body : QByteArray();
    }

    // Authenticates `ticket` and waits for the callback and for the worker to end.
    void authenticate(const QByteArray& ticket, Outcome* outcome)
    {
        std::unique_ptr<void, InstanceDeleter> instance(qvtoken_gui_create_instance());
        QVERIFY(instance);
        QCOMPARE(qvtoken_gui_authenticate(instance.get(), ticket.constData(), 0, record, outcome), 0);
        QTRY_COMPARE_WITH_TIMEOUT(outcome->calls.load(), 1, 20000);
        QTRY_COMPARE_WITH_TIMEOUT(threadCount(), baseThreads, 10000);
        QCOMPARE(outcome->calls.load(), 1);
        QVERIFY(outcome->thread != std::this_thread::get_id());
    }

private slots:
    void initTestCase()
    {
        Q_INIT_RESOURCE(dashboard);
        qputenv("ZORVIK_SYSTEM_CONFIG_DIR", QFile::encodeName(home.path() + "/etc"));
        const QString started = startServicesAndBench(home, sim, bench);
        QVERIFY2(started.isEmpty(), qPrintable(started));
    }

    void init()
    {
        QVERIFY(sim.reset());
        sim.applyEnvironment();
        ModalSeam::reset();
        qunsetenv("ZORVIK_KS_TIMEOUT_MS");
        baseThreads = threadCount();
    }

    void cleanup()
    {
        window.reset();
        QVERIFY2(bench.removeAll(), qPrintable(bench.errorText()));
    }

    // What the callback reports for each key and each answer of the key service: failures
    // before the service never reach it, the service's code reaches the caller unchanged with
    // its text, and an answer of the wrong shape is unreadable whatever it seems to hold.
    void outcome_data()
    {
        QTest::addColumn<QStringList>("card"); // "none": no key
        QTest::addColumn<QJsonObject>("answer"); // scripted; empty: the service's own
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("text");
        const QStringList key;
        const QJsonObject own;
        const QString unreadable("Unexpected key service answer, HTTP 200");
        QTest::newRow("accepted") << QStringList{"--serial", "0102030405060708"} << own << 200
                                  << "Ticket authenticated";
        QTest::newRow("no key") << QStringList{"none"} << own << int(QVTOKEN_GUI_NO_KEY) << QString();
        QTest::newRow("not a Vantrel") << QStringList{"--not-vantrel"} << own << int(QVTOKEN_GUI_NO_KEY) << QString();
        QTest::newRow("key refuses the ticket") << QStringList{"--fail-ticket", "6F00"} << own
                                                << int(QVTOKEN_GUI_NO_KEY) << QString();
        QTest::newRow("999, quotes in the text")
            << key << QJsonObject{{"body", "{\"code\":999,\"text\":\"odd \\\"one\\\"\"}"}} << 999 << "odd \"one\"";
        QTest::newRow("http 500 without code") << key << QJsonObject{{"status", 500}, {"body", "oops"}} << 500
                                               << "Unexpected key service answer, HTTP 500";
        QTest::newRow("garbage with 200") << key << QJsonObject{{"body", "<html>"}} << int(QVTOKEN_GUI_BAD_REPLY)
                                          << unreadable;
        QTest::newRow("connection dropped") << key << QJsonObject{{"close", true}} << int(QVTOKEN_GUI_NETWORK)
                                            << QString();
        QTest::newRow("text is a list") << key << QJsonObject{{"body", R"({"code": 200, "text": ["ok"]})"}}
                                        << int(QVTOKEN_GUI_BAD_REPLY) << unreadable;
        QTest::newRow("answer inside a list") << key << QJsonObject{{"body", R"([{"code": 200, "text": "ok"}])"}}
                                              << int(QVTOKEN_GUI_BAD_REPLY) << unreadable;
        QTest::newRow("nested too deep") << key << QJsonObject{{"body", QString(100000, '[')}}
                                         << int(QVTOKEN_GUI_BAD_REPLY) << unreadable;
        QTest::newRow("service too slow") << key << QJsonObject{{"delay", 8}, {"body", R"({"code":200})"}}
                                          << int(QVTOKEN_GUI_TIMEOUT) << QString();
    }

    void outcome()
    {
        QFETCH(QStringList, card);
        QFETCH(QJsonObject, answer);
        QFETCH(int, code);
        QFETCH(QString, text);
        if (card != QStringList{"none"})
            QVERIFY(bench.insert(0, card));
        if (answer.contains("delay")) {
            answer["delay"] = testTime(8000) / 1000;
            qputenv("ZORVIK_KS_TIMEOUT_MS", QByteArray::number(testTime(1000)));
        }
        if (!answer.isEmpty()) {
            answer["path"] = "/a/auth-ticket/";
            answer["content_type"] = "application/json";
            QVERIFY(sim.script(answer));
        }
        const QByteArray ticket = freshTicket();
        QVERIFY(!ticket.isEmpty());
        Outcome outcome;
        authenticate(ticket, &outcome);
        QCOMPARE(outcome.code, code);
        if (!text.isNull())
            QCOMPARE(outcome.text, text);
        const QJsonArray sent = sim.requests("/a/auth-ticket/");
        QCOMPARE(sent.isEmpty(), code == QVTOKEN_GUI_NO_KEY);
        if (answer.isEmpty() && code == 200) {
            const QUrlQuery form(QString::fromLatin1(ServicesSim::body(sent.last())));
            QCOMPARE(form.queryItemValue("ticket") + ";" + form.queryItemValue("serial"),
                     QString::fromLatin1(ticket + ";0102030405060708"));
            QCOMPARE(form.queryItemValue("answer").size(), 64);
        }
    }

    // Released while the service is still answering: no callback, now or later, and the
    // worker ends. Bad arguments, and a second start on a busy instance, are refused.
    void releaseDuringExchangeNeverCallsBack()
    {
        QVERIFY(bench.insert(0));
        QVERIFY(sim.script(QJsonObject{{"path", "/a/auth-ticket/"}, {"delay", 4}, {"body", R"({"code":200})"}}));
        Outcome outcome;
        void* instance = qvtoken_gui_create_instance();
        // Released however the test ends: an exchange left running would call back into this
        // function's finished frame.
        const auto release = qScopeGuard([&instance] { qvtoken_gui_release_instance(std::exchange(instance, nullptr)); });
        QCOMPARE(qvtoken_gui_authenticate(nullptr, "T", 0, record, &outcome), -1);
        QCOMPARE(qvtoken_gui_authenticate(instance, nullptr, 0, record, &outcome), -1);
        QCOMPARE(qvtoken_gui_authenticate(instance, "T", 0, nullptr, &outcome), -1);
        QCOMPARE(qvtoken_gui_authenticate(instance, freshTicket().constData(), 0, record, &outcome), 0);
        QCOMPARE(qvtoken_gui_authenticate(instance, "ABCD", 0, record, &outcome), -1);
        QVERIFY(sim.waitForRequests("/a/auth-ticket/"));
        qvtoken_gui_release_instance(std::exchange(instance, nullptr));
        qvtoken_gui_release_instance(nullptr);
        // The worker has ended by the time release returns: nothing of it runs on into the
        // caller's (or the process's) teardown.
        QCOMPARE(threadCount(), baseThreads);
        QCOMPARE(outcome.calls.load(), 0);
    }

    // Parameter 8 is the user's choice; 2 ("no choice") reads as a failure so the caller
    // falls back to parameter 9, the system default.
    void simpleCodeParameters()
    {
        int value = -7;
        QCOMPARE(qvtoken_gui_get_data(nullptr, QVTOKEN_GUI_PARAM_SIMPLE_CODES, &value, sizeof value), -1);
        for (int stored : {1, 0}) {
            QCOMPARE(qvtoken_gui_set_data(nullptr, QVTOKEN_GUI_PARAM_SIMPLE_CODES, &stored, sizeof stored), 0);
            QCOMPARE(qvtoken_gui_get_data(nullptr, QVTOKEN_GUI_PARAM_SIMPLE_CODES, &value, sizeof value), 0);
            QCOMPARE(value, stored);
        }
        const int none = 2;
        QCOMPARE(qvtoken_gui_set_data(nullptr, QVTOKEN_GUI_PARAM_SIMPLE_CODES, &none, sizeof none), 0);
        value = -7;
        QCOMPARE(qvtoken_gui_get_data(nullptr, QVTOKEN_GUI_PARAM_SIMPLE_CODES, &value, sizeof value), -1);
        QCOMPARE(value, -7);
        QVERIFY(QFile::exists(home.path() + "/config/zorvik/qvtoken_gui.conf"));

        // The system default lives elsewhere and is untouched by the user's choice.
        const int allow = 1;
        QCOMPARE(qvtoken_gui_set_data(nullptr, QVTOKEN_GUI_PARAM_SIMPLE_CODES_SYSTEM, &allow, sizeof allow), 0);
        QCOMPARE(qvtoken_gui_get_data(nullptr, QVTOKEN_GUI_PARAM_SIMPLE_CODES_SYSTEM, &value, sizeof value), 0);
        QCOMPARE(value, 1);
        QVERIFY(QFile::exists(home.path() + "/etc/qvtoken_gui.conf"));
        QCOMPARE(qvtoken_gui_get_data(nullptr, QVTOKEN_GUI_PARAM_SIMPLE_CODES, &value, sizeof value), -1);

        // Unknown parameters and short buffers are refused.
        QCOMPARE(qvtoken_gui_set_data(nullptr, 7, &allow, sizeof allow), -1);
        QCOMPARE(qvtoken_gui_get_data(nullptr, 7, &value, sizeof value), -1);
        QCOMPARE(qvtoken_gui_get_data(nullptr, QVTOKEN_GUI_PARAM_SIMPLE_CODES_SYSTEM, &value, 2), -1);
        QCOMPARE(qvtoken_gui_set_data(nullptr, QVTOKEN_GUI_PARAM_SIMPLE_CODES, nullptr, 4), -1);
    }
    // The tab for each kind of key and each answer to the key's ticket proof. Only an
    // active key reaches the key service; a refusal's code picks the message, nothing more
    // is asked, and the next Refresh starts afresh.
    void keyStatusTab_data()
    {
        QTest::addColumn<QStringList>("card");
        QTest::addColumn<QJsonObject>("service"); // the key service's configuration, or a scripted answer
        QTest::addColumn<QString>("info");
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("retStatus");
        QTest::addColumn<QString>("network");
        QTest::addColumn<int>("code"); // the service's answer to the proof; 0: never asked
        const auto key = [](const QString& type, const QString& title) {
            return QJsonObject{{"key", QJsonObject{{"type", type}, {"title", title}}}};
        };
        QTest::newRow("Vantrel") << QStringList{"--info", "36864"} << key("TOKEN", "Bench Vantrel") << kActive
                                 << "Vantrel" << "Bench Vantrel" << "0x9000" << "" << 200;
        QTest::newRow("Tessaron, long title") << QStringList() << key("MASTER_TOKEN", QString(150, QChar(0xe9)))
                                              << kActive << "Tessaron" << QString(100, QChar(0xe9)) << "0x0" << ""
                                              << 200;
        QTest::newRow("unknown type") << QStringList() << key("SOMETHING", "Odd") << kActive << "Unknown key" << "Odd"
                                      << "0x0" << "" << 200;
        QTest::newRow("blank Vantrel") << QStringList{"--status", "4", "--info", "43981"} << QJsonObject()
                                       << "<b>Blank Vantrel</b>" << "Vantrel" << "" << "0xABCD" << "" << 0;
        QTest::newRow("blank Tessaron, test network")
            << QStringList{"--status", "5", "--network", "3"} << QJsonObject() << "<b>Blank Tessaron</b>" << "Tessaron"
            << "" << "0x0" << "<b>Test network</b>" << 0;
        QTest::newRow("not a Vantrel") << QStringList{"--not-vantrel"} << QJsonObject()
                                       << "<b>A non-compatible device was detected.</b>" << "Unknown" << ""
                                       << "Not available" << "" << 0;
        QTest::newRow("999") << QStringList() << authAnswer(999, "Strange answer")
                             << "Authorization error. Code = 999 Strange answer" << "Unknown" << "" << "0x0" << ""
                             << 999;
    }

    void keyStatusTab()
    {
        QFETCH(QStringList, card);
        QFETCH(QJsonObject, service);
        QFETCH(QString, info);
        QFETCH(QString, network);
        QFETCH(int, code);
        info.replace("@", sim.httpsUrl());
        QVERIFY(service.contains("path") ? sim.script(service) : sim.configure(service));
        QVERIFY(bench.insert(0, card));
        openWindow();
        TokenStatus& status = window->tokenStatusWorker();
        QSignalSpy ready(&status, &TokenStatus::infoKSReady);
        const Ui::DashboardWindow* ui = window->form();
        QTRY_VERIFY_WITH_TIMEOUT(ui->label_info->text().startsWith(info), kFlowTimeout);
        waitUntilIdle(status);
        QTEST(ui->label_type->text(), "type");
        const QString type = ui->label_type->text(), style = ui->label_type->styleSheet();
        QCOMPARE(style.contains(type == "Vantrel" ? "#006090" : "#aa0033"), type == "Vantrel" || type == "Tessaron");
        QTEST(ui->label_title->text(), "title");
        QTEST(ui->label_ret_status->text(), "retStatus");
        QCOMPARE(ui->label_network->text(), network);
        QCOMPARE(ui->label_network_title->isHidden(), network.isEmpty());
        QCOMPARE(icon(*window), QString(code == 200 ? "ok.png" : "update.png"));
        QCOMPARE(ready.count(), code == 200 ? 1 : 0);
        QCOMPARE(sim.requests("/a/auth-ticket/").size(), code ? 1 : 0);
        const QJsonArray tickets = sim.requests("/a/get-ticket/"), views = sim.requests("/a/view.json");
        QCOMPARE(tickets.size(), code ? 1 : 0);
        QCOMPARE(views.size(), code == 200 ? 1 : 0);
        if (code == 200) {
            // The status request carried the ticket the service handed out.
            QCOMPARE(ui->label_atr->text(), kVantrelAtr);
            QCOMPARE(ServicesSim::header(views.at(0), "User-Agent"), QString("Dashboard"));
            QCOMPARE(QUrlQuery(QString::fromLatin1(ServicesSim::body(views.at(0)))).queryItemValue("ticket"),
                     status.ticket);
        } else if (code) {
            QCOMPARE(status.ksResult, code);
            QCOMPARE(status.authMessage, QString("Strange answer"));
            QVERIFY(sim.reset());
            emit window->form()->tokenStatus_refresh->linkActivated(QString());
            QTRY_COMPARE_WITH_TIMEOUT(ui->label_type->text(), QString("Vantrel"), kFlowTimeout);
            QCOMPARE(ui->label_info->text(), kActive);
        }
    }

    // An untrusted service certificate: logged, key status 204, the query is over; once the
    // service can be trusted again, Refresh goes through.
    void untrustedCertificate()
    {
        qputenv("ZORVIK_KEYSERVICE_URL", sim.badTlsUrl().toUtf8());
        QVERIFY(bench.insert(0));
        openWindow();
        TokenStatus& status = window->tokenStatusWorker();
        QSignalSpy cancelled(&status, &TokenStatus::infoKSCanceled);
        QTRY_COMPARE_WITH_TIMEOUT(cancelled.count(), 1, kFlowTimeout);
        QCOMPARE(status.tokenStatus, 204);
        QTRY_COMPARE(window->form()->label_info->text(),
                     QString("<b>SSL error occured. See dashboard.log for details</b>"));
        QTRY_VERIFY(!window->form()->tabs->testAttribute(Qt::WA_SetCursor));
        // A transport failure leaves the query marked active on purpose: Refresh is refused.
        QTRY_VERIFY_WITH_TIMEOUT(status.isFinished(), kFlowTimeout);
        QVERIFY(status.busy);
        sim.applyEnvironment();
        emit window->form()->tokenStatus_refresh_icon->linkActivated(QString());
        QVERIFY(home.waitForLog("Get token status already active"));
        QCOMPARE(window->form()->label_info->text(),
                 QString("<b>SSL error occured. See dashboard.log for details</b>"));
        QCOMPARE(sim.requests("/a/get-ticket/").size(), 0);
    }

    // A Refresh let through the moment the previous query ends is never lost: each one
    // reads the key again and none leaves the tab waiting.
    void refreshAsSoonAsAllowed()
    {
        QVERIFY(bench.insert(0, {"--status", "4"}));
        openWindow();
        TokenStatus& status = window->tokenStatusWorker();
        // Counted on this thread (a spy would be written from the worker's own thread).
        int read = 0;
        QObject counter;
        connect(&status, &TokenStatus::infoSCReady, &counter, [&read] { ++read; });
        for (int round = 1; round <= 5; ++round) {
            const QDeadlineTimer deadline(kFlowTimeout);
            while (status.busy && !deadline.hasExpired())
                QCoreApplication::processEvents();
            window->updateTokenInfo();
            QTRY_COMPARE_WITH_TIMEOUT(read, round + 1, kFlowTimeout);
        }
        waitUntilIdle(status);
        QCOMPARE(window->form()->label_info->text(), QString("<b>Blank Vantrel</b>"));
    }

    // No key, or an answer of the key service of whatever shape but the expected one: the
    // query ends with the reason.
    void queryEndsWithReason_data()
    {
        QTest::addColumn<QString>("body"); // of view.json; null: no key
        QTest::addColumn<QString>("reason");
        const QString parse = "Cannot parse server response";
        const QString service = "Key service error";
        QTest::newRow("no key") << QString() << "";
        QTest::newRow("not JSON") << "<html>" << parse;
        QTest::newRow("error a number") << R"({"error":0,"message":{"type":"TOKEN"}})" << parse;
        QTest::newRow("title a number") << R"({"error":false,"message":{"type":"TOKEN","title":7}})" << parse;
        QTest::newRow("error with a text message") << R"({"error":true,"message":"expired"})" << service;
        QTest::newRow("no error member") << R"({"message":{"type":"TOKEN"}})" << service;
    }

    void queryEndsWithReason()
    {
        QFETCH(QString, body);
        if (!body.isNull()) {
            QVERIFY(sim.script(QJsonObject{{"path", "/a/view.json"}, {"content_type", "application/json"}, {"body", body}}));
            QVERIFY(bench.insert(0));
        }
        TokenStatus status;
        QSignalSpy read(&status, &TokenStatus::infoSCReady);
        QSignalSpy cancelled(&status, &TokenStatus::infoKSCanceled);
        QSignalSpy ready(&status, &TokenStatus::infoKSReady);
        QVERIFY(status.startQuery());
        // The key is read on the worker thread, which emits straight into the spies: they are
        // read once it has ended (the service's answer then arrives on this thread).
        QVERIFY(status.wait(kFlowTimeout));
        QTRY_COMPARE_WITH_TIMEOUT(cancelled.count(), 1, kFlowTimeout);
        QTEST(cancelled.at(0).at(0).toString(), "reason");
        QCOMPARE(read.count(), 1); // the key's side is reported, key or none
        QCOMPARE(ready.count(), 0);
        QTRY_VERIFY(!status.busy);
        if (body.isNull())
            QCOMPARE(status.statusText, QString("<b>No key present</b>"));
    }

    // Quitting while a query still waits on a slow key does not wait for the key: the window
    // goes, and the worker, let go, ends on its own once the key is pulled.
    void quitWhileKeyIsSlow()
    {
        QVERIFY(bench.insert(0, {"--delay", "120000"}));
        openWindow();
        QPointer<TokenStatus> worker(&window->tokenStatusWorker());
        QVERIFY(worker->isRunning());
        window->slotQuit();
        window.reset();
        QVERIFY(worker);
        QVERIFY(worker->isRunning());
        QVERIFY2(bench.removeAll(), qPrintable(bench.errorText()));
        QTRY_VERIFY_WITH_TIMEOUT(worker.isNull(), kFlowTimeout);
    }

    // Leaving the tab, pulling the key or closing the window while the key authenticates
    // cancels the query; the service's late answer changes nothing.
    void cancelDuringAuthentication_data()
    {
        QTest::addColumn<QString>("how");
        QTest::newRow("leave the tab") << "tab";
        QTest::newRow("pull the key") << "pull";
        QTest::newRow("close the window") << "close";
    }

    void cancelDuringAuthentication()
    {
        QFETCH(QString, how);
        QJsonObject slow = authAnswer(200, "Ticket authenticated");
        slow["delay"] = 3;
        // Only the abandoned exchange is scripted: the next one is the service's own, which
        // marks its ticket authenticated so that view.json answers it.
        slow["times"] = 1;
        QVERIFY(sim.script(slow));
        QVERIFY(bench.insert(0));
        openWindow();
        TokenStatus& status = window->tokenStatusWorker();
        QSignalSpy cancelled(&status, &TokenStatus::infoKSCanceled);
        QSignalSpy ready(&status, &TokenStatus::infoKSReady);
        QVERIFY(sim.waitForRequests("/a/auth-ticket/", 1, kFlowTimeout));
        QVERIFY(status.guiInstance);
        if (how == "tab")
            window->form()->tabs->setCurrentIndex(3);
        else if (how == "pull")
            QVERIFY(bench.remove(0));
        else
            window->close();

        QTRY_COMPARE_WITH_TIMEOUT(cancelled.count(), 1, 5000);
        QCOMPARE(cancelled.at(0).at(0).toString(), QString("Token status request cancelled"));
        QCOMPARE(status.statusText, kCancelled);
        QVERIFY(!status.busy && !status.guiInstance);
        QTRY_COMPARE(window->form()->label_info->text(),
                     QString(how == "pull" ? "No Key present." : "Token status request cancelled"));
        QCOMPARE(icon(*window), QString(how == "pull" ? "new.png" : "update.png"));

        // A new query goes through; the abandoned exchange never adds a status request.
        if (how == "pull")
            QVERIFY(bench.insert(0)); // the key comes back while the tab is shown
        else if (how == "tab")
            window->form()->tabs->setCurrentIndex(2);
        else
            emit window->form()->tokenStatus_refresh->linkActivated(QString());
        QTRY_COMPARE_WITH_TIMEOUT(ready.count(), 1, kFlowTimeout);
        waitUntilIdle(status);
        QCOMPARE(cancelled.count(), 1);
        QCOMPARE(sim.requests("/a/auth-ticket/").size(), 2);
        QCOMPARE(sim.requests("/a/view.json").size(), 1);
    }

    // With the proxy switched on in the Advanced tab, the whole exchange goes through it.
    void throughTheProxy()
    {
        ProxySim proxy;
        QVERIFY2(proxy.start(sim), qPrintable(proxy.lastError()));
        qputenv("ZORVIK_KEYSERVICE_URL", sim.proxiedHttpsUrl().toUtf8());
        QVERIFY(bench.insert(0));
        openWindow(3);
        Ui::DashboardWindow* ui = window->form();
        ui->proxyAddressLineEdit->setText(proxy.host());
        ui->proxyPortLineEdit->setText(QString::number(proxy.port()));
        ui->useProxyCheckBox->setChecked(false);
        ui->useProxyCheckBox->setChecked(true);

        ui->tabs->setCurrentIndex(2);
        QTRY_COMPARE_WITH_TIMEOUT(ui->label_type->text(), QString("Vantrel"), kFlowTimeout);
        const QString connect = QString("CONNECT %1:%2").arg(sim.benchName()).arg(sim.httpsPort());
        QVERIFY2(proxy.waitForLog(connect), qPrintable(proxy.readLog()));
        // Both the program and the token GUI library went through it.
        QVERIFY2(countLines(proxy.readLog(), connect) >= 2, qPrintable(proxy.readLog()));
        for (const QString path : {"/a/get-ticket/", "/a/auth-ticket/", "/a/view.json"}) {
            const QJsonArray requests = sim.requests(path);
            QCOMPARE(requests.size(), 1);
            QCOMPARE(ServicesSim::header(requests.at(0), "Host"),
                     QString("%1:%2").arg(sim.benchName()).arg(sim.httpsPort()));
        }
        ui->useProxyCheckBox->setChecked(false);
        DashboardNetworkManager::SetupProxy(ProxyConfig());
    }

    // The published versions come from the update API; only a key that differs from them
    // is offered the update, and only consent rewrites it (a refusal by the key still closes
    // the wait box).
    void firmwareUpdate_data()
    {
        QTest::addColumn<QStringList>("card"); // "none": no key
        QTest::addColumn<bool>("apiDown");
        QTest::addColumn<int>("answer"); // to the question; 0: not asked
        QTest::addColumn<int>("result"); // of the update; kNoUpdate: none ran
        QTest::addColumn<QString>("after");
        const int ok = QMessageBox::Ok;
        const QStringList refusing{"--version1", "1.2.2", "--fail-upgrade", "6F00"};
        QTest::newRow("key up to date") << QStringList() << false << 0 << kNoUpdate << "1.2.3.256;2.1";
        QTest::newRow("update API fails") << QStringList{"--version1", "1.0.0"} << true << 0 << kNoUpdate << "1.0.0.256;2.1";
        QTest::newRow("no key") << QStringList{"none"} << false << 0 << kNoUpdate << "";
        QTest::newRow("older firmware") << QStringList{"--version1", "1.2.2", "--version2", "0.255"} << false << ok
                                        << int(QVTOKEN_OK) << "1.2.3.256;2.1";
        QTest::newRow("newer firmware") << QStringList{"--version1", "1.3.0"} << false << ok << int(QVTOKEN_OK)
                                        << "1.2.3.256;2.1";
        QTest::newRow("other controller only") << QStringList{"--controller", "2.0"} << false << ok
                                               << int(QVTOKEN_OK) << "1.2.3.256;2.1";
        QTest::newRow("declined") << refusing << false << int(QMessageBox::No) << kNoUpdate << "1.2.2.256;2.1";
        QTest::newRow("refused by the key") << refusing << false << ok << int(QVTOKEN_ERR_KEY_REFUSED)
                                            << "1.2.2.256;2.1";
    }

    void firmwareUpdate()
    {
        QFETCH(QStringList, card);
        QFETCH(bool, apiDown);
        QFETCH(int, answer);
        QFETCH(int, result);
        if (apiDown)
            QVERIFY(sim.script(QJsonObject{{"path", "/api/version.txt"}, {"status", 503}}));
        if (card != QStringList{"none"})
            QVERIFY(bench.insert(0, card));
        TokenUpdate update;
        update.mode = 2;
        update.start();
        QVERIFY(update.wait(30000));
        QCOMPARE(update.seVersion + ";" + update.mcVersion, QString(apiDown ? ";" : "1.2.3.256;2.1"));
        QStringList packages;
        for (const QJsonValue& request : sim.requests("/api/version.txt")) {
            const QUrlQuery query(QUrl(request["target"].toString()).query());
            packages << query.queryItemValue("package") + "/" + query.queryItemValue("platform");
        }
        QCOMPARE(packages, (QStringList{"sefw/hard", "mcfw/hard"}));

        QSignalSpy results(&update, &TokenUpdate::updateResult);
        if (answer)
            ModalSeam::answer(answer);
        QCOMPARE(update.NeedUpdateToken(), answer == QMessageBox::Ok ? 1 : 0);
        QStringList boxes;
        for (const QString& box : ModalSeam::seen())
            boxes << box.section('|', 0, 0);
        const QString ask = "Zorvik Dashboard: Update ZORVIK Key";
        QCOMPARE(boxes, (answer == QMessageBox::Ok ? QStringList{ask, "Zorvik Dashboard"}
                         : answer                 ? QStringList{ask}
                                                  : QStringList()));
        // The box closes on updateFinished; the result is emitted right after it, on the worker.
        QVERIFY(update.wait(5000));
        QCOMPARE(results.count(), result == kNoUpdate ? 0 : 1);
        QCOMPARE(results.isEmpty() ? kNoUpdate : results.at(0).at(0).toInt(), result);
        QVERIFY(!update.token);
        QVERIFY(!QApplication::overrideCursor());
        QTEST(keyVersions(), "after");
    }
};

QTEST_MAIN(TestKeyStatusAndUpdate)
#include "tst_key_status_and_update.moc"
