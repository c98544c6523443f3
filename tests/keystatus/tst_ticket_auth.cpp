// Ticket authentication by libqvtoken_gui with a simulated key on the bench and the real
// key-service simulator: what the callback reports, that it comes exactly once, and never
// after the instance is released. Also the two user-interface parameters it keeps.
#include "bench.h"
#include "qvtoken_gui.h"
#include "services_sim.h"
#include "test_support.h"

#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QMutex>
#include <QTest>
#include <QUrlQuery>

#include <atomic>
#include <thread>

namespace {

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

class TestTicketAuth : public QObject
{
    Q_OBJECT

    TestHome home;
    Bench bench;
    ServicesSim sim;
    int baseThreads = 0;

    QByteArray freshTicket() const
    {
        const ServicesSim::Reply reply = sim.control("GET", "/a/get-ticket/");
        return reply.status == 200 ? reply.body : QByteArray();
    }

    QUrlQuery lastAuthForm() const
    {
        const QJsonArray requests = sim.requests("/a/auth-ticket/");
        return requests.isEmpty() ? QUrlQuery() : QUrlQuery(QString::fromLatin1(ServicesSim::body(requests.last())));
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
        QVERIFY(home.isValid());
        home.apply();
        qputenv("ZORVIK_SYSTEM_CONFIG_DIR", QFile::encodeName(home.path() + "/etc"));
        QVERIFY2(sim.start(), qPrintable(sim.lastError()));
        sim.applyEnvironment();
        QVERIFY2(bench.start(), qPrintable(bench.errorText()));
    }

    void init()
    {
        QVERIFY(sim.reset());
        qunsetenv("ZORVIK_KS_TIMEOUT_MS");
        baseThreads = threadCount();
    }

    void cleanup() { QVERIFY2(bench.removeAll(), qPrintable(bench.errorText())); }

    void keyAnswersAndServiceAccepts()
    {
        QVERIFY(bench.insert(0, {"--serial", "0102030405060708"}));
        const QByteArray ticket = freshTicket();
        QVERIFY(!ticket.isEmpty());
        Outcome outcome;
        authenticate(ticket, &outcome);
        QCOMPARE(outcome.code, 200);
        QCOMPARE(outcome.text, QString("Ticket authenticated"));

        const QUrlQuery form = lastAuthForm();
        QCOMPARE(form.queryItemValue("ticket"), QString::fromLatin1(ticket));
        QCOMPARE(form.queryItemValue("serial"), QString("0102030405060708"));
        QCOMPARE(form.queryItemValue("answer").size(), 64);
        // The service now takes the ticket as authenticated.
        const ServicesSim::Reply view = sim.control("POST", "/a/view.json", "ticket=" + ticket);
        QCOMPARE(QJsonDocument::fromJson(view.body).object()["error"].toBool(true), false);
    }

    // A key whose secret the service cannot derive: its answer is refused and the ticket
    // stays unauthenticated.
    void wrongAnswerIsRefused()
    {
        QVERIFY(bench.insert(0, {"--foreign-secret"}));
        const QByteArray ticket = freshTicket();
        Outcome outcome;
        authenticate(ticket, &outcome);
        QCOMPARE(outcome.code, 401);
        QCOMPARE(outcome.text, QString("The key's answer does not match the ticket"));
        const QJsonObject state = QJsonDocument::fromJson(sim.control("GET", "/_control/state").body).object();
        QCOMPARE(state["tickets"].toObject()[QString::fromLatin1(ticket)].toObject()["authenticated"].toBool(), false);
        // ... and the key service will not describe the key for it.
        const ServicesSim::Reply view = sim.control("POST", "/a/view.json", "ticket=" + ticket);
        QCOMPARE(QJsonDocument::fromJson(view.body).object()["message"].toString(), QString("Ticket not authenticated"));
    }

    void failuresBeforeTheService_data()
    {
        QTest::addColumn<QStringList>("card");
        QTest::addColumn<int>("code");
        QTest::newRow("no key") << QStringList{"none"} << int(QVTOKEN_GUI_NO_KEY);
        QTest::newRow("not a Vantrel") << QStringList{"--not-vantrel"} << int(QVTOKEN_GUI_NO_KEY);
        QTest::newRow("key refuses the ticket") << QStringList{"--fail-ticket", "6F00"} << int(QVTOKEN_GUI_NO_KEY);
    }

    void failuresBeforeTheService()
    {
        QFETCH(QStringList, card);
        QFETCH(int, code);
        if (card != QStringList{"none"})
            QVERIFY(bench.insert(0, card));
        Outcome outcome;
        authenticate(freshTicket(), &outcome);
        QCOMPARE(outcome.code, code);
        QCOMPARE(sim.requests("/a/auth-ticket/").size(), 0);
    }

    // The service's code reaches the caller unchanged, with its text.
    void serviceCodesPassThrough_data()
    {
        QTest::addColumn<QJsonObject>("answer");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("text");
        QTest::newRow("403") << QJsonObject{{"body", R"({"code": 403, "text": "Blocked"})"}} << 403 << "Blocked";
        QTest::newRow("421") << QJsonObject{{"body", R"({"code":421,"text":"KeySet"})"}} << 421 << "KeySet";
        QTest::newRow("999") << QJsonObject{{"body", "{\"code\": 999, \"text\": \"odd \\\"one\\\"\"}"}} << 999
                             << "odd \"one\"";
        QTest::newRow("http 500 without code")
            << QJsonObject{{"status", 500}, {"body", "oops"}} << 500 << "Unexpected key service answer, HTTP 500";
        QTest::newRow("garbage with 200")
            << QJsonObject{{"body", "<html>"}} << int(QVTOKEN_GUI_BAD_REPLY) << "Unexpected key service answer, HTTP 200";
        QTest::newRow("connection dropped") << QJsonObject{{"close", true}} << int(QVTOKEN_GUI_NETWORK) << QString();
        // Answers of the wrong shape are unreadable, whatever they seem to hold.
        const QString unreadable("Unexpected key service answer, HTTP 200");
        QTest::newRow("text is a list") << QJsonObject{{"body", R"({"code": 200, "text": ["ok"]})"}}
                                        << int(QVTOKEN_GUI_BAD_REPLY) << unreadable;
        QTest::newRow("answer inside a list") << QJsonObject{{"body", R"([{"code": 200, "text": "ok"}])"}}
                                              << int(QVTOKEN_GUI_BAD_REPLY) << unreadable;
        QTest::newRow("nested too deep") << QJsonObject{{"body", QString(100000, '[')}}
                                         << int(QVTOKEN_GUI_BAD_REPLY) << unreadable;
    }

    void serviceCodesPassThrough()
    {
        QFETCH(QJsonObject, answer);
        QFETCH(int, code);
        QFETCH(QString, text);
        QVERIFY(bench.insert(0));
        answer["path"] = "/a/auth-ticket/";
        answer["content_type"] = "application/json";
        QVERIFY(sim.script(answer));
        Outcome outcome;
        authenticate(freshTicket(), &outcome);
        QCOMPARE(outcome.code, code);
        if (!text.isNull())
            QCOMPARE(outcome.text, text);
    }

    void slowServiceTimesOut()
    {
        QVERIFY(bench.insert(0));
        qputenv("ZORVIK_KS_TIMEOUT_MS", "1000");
        QVERIFY(sim.script(QJsonObject{{"path", "/a/auth-ticket/"}, {"delay", 8}, {"body", R"({"code":200})"}}));
        Outcome outcome;
        authenticate(freshTicket(), &outcome);
        QCOMPARE(outcome.code, int(QVTOKEN_GUI_TIMEOUT));
    }

    // Released while the service is still answering: no callback, now or later, and the
    // worker ends.
    void releaseDuringExchangeNeverCallsBack()
    {
        QVERIFY(bench.insert(0));
        QVERIFY(sim.script(QJsonObject{{"path", "/a/auth-ticket/"}, {"delay", 4}, {"body", R"({"code":200})"}}));
        Outcome outcome;
        void* instance = qvtoken_gui_create_instance();
        QCOMPARE(qvtoken_gui_authenticate(instance, freshTicket().constData(), 0, record, &outcome), 0);
        // A second start on a busy instance is refused.
        QCOMPARE(qvtoken_gui_authenticate(instance, "ABCD", 0, record, &outcome), -1);
        QVERIFY(sim.waitForRequests("/a/auth-ticket/"));
        qvtoken_gui_release_instance(instance);
        // The worker has ended by the time release returns: nothing of it runs on into the
        // caller's (or the process's) teardown.
        QCOMPARE(threadCount(), baseThreads);
        QCOMPARE(outcome.calls.load(), 0);
    }

    void badArguments()
    {
        Outcome outcome;
        void* instance = qvtoken_gui_create_instance();
        QCOMPARE(qvtoken_gui_authenticate(nullptr, "T", 0, record, &outcome), -1);
        QCOMPARE(qvtoken_gui_authenticate(instance, nullptr, 0, record, &outcome), -1);
        QCOMPARE(qvtoken_gui_authenticate(instance, "T", 0, nullptr, &outcome), -1);
        qvtoken_gui_release_instance(instance);
        qvtoken_gui_release_instance(nullptr);
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
};

QTEST_GUILESS_MAIN(TestTicketAuth)
#include "tst_ticket_auth.moc"
