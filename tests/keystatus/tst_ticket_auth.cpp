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
#include <QScopeGuard>
#include <QTest>
#include <QUrlQuery>

#include <atomic>
#include <thread>
#include <utility>

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
        qputenv("ZORVIK_SYSTEM_CONFIG_DIR", QFile::encodeName(home.path() + "/etc"));
        const QString started = startServicesAndBench(home, sim, bench);
        QVERIFY2(started.isEmpty(), qPrintable(started));
    }

    void init()
    {
        QVERIFY(sim.reset());
        qunsetenv("ZORVIK_KS_TIMEOUT_MS");
        baseThreads = threadCount();
    }

    void cleanup() { QVERIFY2(bench.removeAll(), qPrintable(bench.errorText())); }

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
        if (answer.isEmpty() && !sent.isEmpty()) {
            const QUrlQuery form(QString::fromLatin1(ServicesSim::body(sent.last())));
            QCOMPARE(form.queryItemValue("ticket"), QString::fromLatin1(ticket));
            if (code == 200)
                QCOMPARE(form.queryItemValue("serial"), QString("0102030405060708"));
            QCOMPARE(form.queryItemValue("answer").size(), 64);
            // Only an accepted answer lets the key service describe the key for the ticket.
            const ServicesSim::Reply view = sim.control("POST", "/a/view.json", "ticket=" + ticket);
            QCOMPARE(QJsonDocument::fromJson(view.body).object()["message"].toString() != "Ticket not authenticated",
                     code == 200);
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
};

QTEST_GUILESS_MAIN(TestTicketAuth)
#include "tst_ticket_auth.moc"
