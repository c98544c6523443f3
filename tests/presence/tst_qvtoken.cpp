// libqvtoken against the simulated key in a real pcscd.
#include "bench.h"
#include "qvtoken.h"
#include "test_support.h"

#include <QElapsedTimer>
#include <QTest>

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

#include <future>
#include <memory>

namespace {

const QByteArray kVantrelAtr = QByteArray::fromHex("3B8A80015A4F5256494B20565400" "3A");
const QByteArray kPlainAtr = QByteArray::fromHex("3B021450");

struct SearchDeleter {
    void operator()(qvtoken_search* s) const { qvtoken_destroySearch(s); }
};
using Search = std::unique_ptr<qvtoken_search, SearchDeleter>;

struct ContextDeleter {
    void operator()(qvtoken_context* c) const { qvtoken_releaseContext(c); }
};
using Context = std::unique_ptr<qvtoken_context, ContextDeleter>;

QByteArray bytes(const uint8_t* p, int n)
{
    return QByteArray(reinterpret_cast<const char*>(p), n);
}

// The bench key's answer to a ticket, computed here from the documented rule.
QByteArray expectedTicketAnswer(const QByteArray& serialHexUpper, const QByteArray& ticket)
{
    const QByteArray text = "zorvik-bench-key:" + serialHexUpper;
    unsigned char key[SHA256_DIGEST_LENGTH];
    SHA256(reinterpret_cast<const unsigned char*>(text.constData()), static_cast<size_t>(text.size()), key);
    unsigned char mac[32];
    unsigned int len = 0;
    HMAC(EVP_sha256(), key, sizeof key, reinterpret_cast<const unsigned char*>(ticket.constData()),
         static_cast<size_t>(ticket.size()), mac, &len);
    return QByteArray(reinterpret_cast<const char*>(mac), static_cast<int>(len));
}

} // namespace

class TestQvtoken : public QObject
{
    Q_OBJECT

    TestHome home;
    Bench bench;

    // The first key of a fresh search that keeps its handle alive.
    qvtoken_token* findKey(Search& search, int flags = QVTOKEN_SEARCH_VANTREL_ONLY, int waitMs = 2000)
    {
        search.reset(qvtoken_initSearchWithFlags(flags));
        return qvtoken_findNextToken(search.get(), waitMs);
    }

    void insert(int reader, const QStringList& options = {})
    {
        QVERIFY2(bench.insert(reader, options), qPrintable(bench.errorText()));
    }

private slots:
    void initTestCase()
    {
        QVERIFY(home.isValid());
        home.apply();
        QVERIFY2(bench.start(), qPrintable(bench.errorText()));
    }

    void cleanup()
    {
        // Every test leaves the readers empty and the service up.
        QVERIFY2(bench.startPcscd(), qPrintable(bench.errorText()));
        QVERIFY2(bench.removeAll(), qPrintable(bench.errorText()));
    }

    void statusRecord_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<int>("info");
        QTest::addColumn<int>("status");
        QTest::addColumn<int>("network");
        QTest::addColumn<QByteArray>("version1");
        QTest::addColumn<QByteArray>("version2");
        QTest::addColumn<QString>("controller");

        QTest::newRow("active production key") << QStringList() << 0 << 7 << 1 << QByteArray("\x01\x02\x03", 3)
                                               << QByteArray("\x01\x00", 2) << "2.1";
        QTest::newRow("blank Vantrel, negative info word, test network")
            << QStringList{"--status", "4", "--info", "-2", "--network", "3", "--version1", "9", "--version2", "",
                           "--controller", "10.0-rc1"}
            << -2 << 4 << 3 << QByteArray("\x09", 1) << QByteArray() << "10.0-rc1";
        QTest::newRow("internal error, info word with the top bit set")
            << QStringList{"--status", "8", "--info", "0x80000001", "--version1", "255.0.255", "--version2",
                           "0.0.0.1"}
            << static_cast<int>(0x80000001u) << 8 << 1 << QByteArray("\xff\x00\xff", 3) << QByteArray("\x00\x00\x00\x01", 4)
            << "2.1";
    }

    void statusRecord()
    {
        QFETCH(QStringList, options);
        insert(1, options);
        Search search;
        qvtoken_token* token = findKey(search);
        QVERIFY(token);
        QCOMPARE(QString(qvtoken_getReaderName(token)), bench.readerName(1));

        uint8_t atr[QVTOKEN_ATR_MAX];
        int atrLen = sizeof atr;
        const KeyStatusRecord rec = qvtoken_getTokenStatus(token, atr, &atrLen);
        QTEST(int(rec.infoStatus), "info");
        QTEST(int(rec.tokenStatus), "status");
        QTEST(int(rec.networkType), "network");
        QTEST(bytes(rec.firstVersion, rec.firstVersionLen), "version1");
        QTEST(bytes(rec.secondVersion, rec.secondVersionLen), "version2");
        QTEST(QString(rec.controllerVersion), "controller");
        QCOMPARE(bytes(atr, atrLen), kVantrelAtr);
        QCOMPARE(bytes(rec.serial, QVTOKEN_SERIAL_LEN), QByteArray::fromHex("5A52564B00000001"));
    }

    void atrBufferRules()
    {
        insert(0);
        Search search;
        qvtoken_token* token = findKey(search);
        QVERIFY(token);

        // No buffer: the record alone.
        int atrLen = 64;
        KeyStatusRecord rec = qvtoken_getTokenStatus(token, nullptr, &atrLen);
        QCOMPARE(rec.tokenStatus, 7);
        QCOMPARE(atrLen, 0);
        rec = qvtoken_getTokenStatus(token, nullptr, nullptr);
        QCOMPARE(rec.tokenStatus, 7);

        // A short buffer gets what fits, and nothing is written past it.
        uint8_t atr[8];
        memset(atr, 0xEE, sizeof atr);
        atrLen = 4;
        rec = qvtoken_getTokenStatus(token, atr, &atrLen);
        QCOMPARE(atrLen, 4);
        QCOMPARE(bytes(atr, 4), kVantrelAtr.left(4));
        QCOMPARE(bytes(atr + 4, 4), QByteArray(4, '\xEE'));
    }

    void cardThatIsNoVantrel()
    {
        insert(0, {"--not-vantrel"});
        Search vantrelOnly;
        QVERIFY(!findKey(vantrelOnly, QVTOKEN_SEARCH_VANTREL_ONLY, 0));
        QCOMPARE(qvtoken_isVantrelPresent(), 0);

        Search anyCard;
        qvtoken_token* token = findKey(anyCard, QVTOKEN_SEARCH_ANY_CARD);
        QVERIFY(token);
        uint8_t atr[QVTOKEN_ATR_MAX];
        int atrLen = sizeof atr;
        const KeyStatusRecord rec = qvtoken_getTokenStatus(token, atr, &atrLen);
        QCOMPARE(rec.tokenStatus, 1);
        QCOMPARE(bytes(atr, atrLen), kPlainAtr);

        uint8_t answer[32];
        QCOMPARE(qvtoken_answerTicket(token, reinterpret_cast<const uint8_t*>("t"), 1, answer),
                 QVTOKEN_ERR_NOT_VANTREL);

        // With a Vantrel beside it, the Vantrel-only search skips the plain card.
        insert(1);
        QCOMPARE(qvtoken_isVantrelPresent(), 1);
        Search again;
        qvtoken_token* vantrel = findKey(again);
        QVERIFY(vantrel);
        QCOMPARE(QString(qvtoken_getReaderName(vantrel)), bench.readerName(1));
    }

    void searchWaitsForAKeyAndReturnsEachOnce()
    {
        Search search(qvtoken_initSearch());
        QElapsedTimer t;
        t.start();
        QVERIFY(!qvtoken_findNextToken(search.get(), 300));
        QVERIFY(t.elapsed() >= 250);

        // A key inserted while the search waits is found by that wait.
        auto pending = std::async(std::launch::async, [&] { return qvtoken_findNextToken(search.get(), 30000); });
        insert(2);
        qvtoken_token* first = pending.get();
        QVERIFY(first);
        QCOMPARE(QString(qvtoken_getReaderName(first)), bench.readerName(2));

        insert(0);
        qvtoken_token* second = qvtoken_findNextToken(search.get(), 0);
        QVERIFY(second);
        QVERIFY(second != first);
        QCOMPARE(QString(qvtoken_getReaderName(second)), bench.readerName(0));
        QVERIFY(!qvtoken_findNextToken(search.get(), 0));
    }

    void closedHandlesAreRefused()
    {
        insert(0);
        qvtoken_search* search = qvtoken_initSearch();
        qvtoken_token* a = qvtoken_findNextToken(search, 2000);
        QVERIFY(a);
        Context ctx(qvtoken_getContext());

        qvtoken_closeToken(a);
        QVERIFY(!qvtoken_getReaderName(a));
        QCOMPARE(qvtoken_getTokenStatus(a, nullptr, nullptr).tokenStatus, 0);
        QCOMPARE(qvtoken_setParam(ctx.get(), QVTOKEN_PARAM_TOKEN, a), QVTOKEN_ERR_INVALID_HANDLE);
        qvtoken_closeToken(a); // twice is harmless

        // Destroying the search closes what it still holds.
        qvtoken_search* other = qvtoken_initSearch();
        qvtoken_token* b = qvtoken_findNextToken(other, 2000);
        QVERIFY(b);
        qvtoken_destroySearch(other);
        QVERIFY(!qvtoken_getReaderName(b));
        QVERIFY(!qvtoken_findNextToken(other, 0));
        qvtoken_destroySearch(search);
        qvtoken_destroySearch(search);
    }

    void keyFaults()
    {
        insert(0, {"--fail-status", "6F00"});
        {
            Search search;
            qvtoken_token* token = findKey(search);
            QVERIFY(token);
            const KeyStatusRecord rec = qvtoken_getTokenStatus(token, nullptr, nullptr);
            QCOMPARE(rec.tokenStatus, 8);
            QCOMPARE(rec.infoStatus, 0x6F00);
        }
        bench.remove(0);

        // The key goes between the search (one APDU) and the status read.
        insert(0, {"--drop-after", "1"});
        Search search;
        qvtoken_token* token = findKey(search);
        QVERIFY(token);
        uint8_t atr[QVTOKEN_ATR_MAX];
        int atrLen = sizeof atr;
        const KeyStatusRecord rec = qvtoken_getTokenStatus(token, atr, &atrLen);
        QCOMPARE(rec.tokenStatus, 0);
        QCOMPARE(atrLen, 0);
    }

    void ticketAnswer()
    {
        insert(2, {"--serial", "a1b2c3d4e5f60718"});
        Search search;
        qvtoken_token* token = findKey(search);
        QVERIFY(token);
        const QByteArray ticket = "one-time ticket 8d1f";
        uint8_t answer[32];
        QCOMPARE(qvtoken_answerTicket(token, reinterpret_cast<const uint8_t*>(ticket.constData()),
                                      static_cast<size_t>(ticket.size()), answer),
                 QVTOKEN_OK);
        QCOMPARE(bytes(answer, 32), expectedTicketAnswer("A1B2C3D4E5F60718", ticket));

        // A raw command goes to the selected application.
        const uint8_t getStatus[] = {0x80, 0x10, 0x00, 0x00, 0x00};
        uint8_t response[300];
        size_t len = sizeof response;
        QCOMPARE(qvtoken_sendApdu(token, getStatus, sizeof getStatus, response, &len), QVTOKEN_OK);
        QVERIFY(len > 2);
        QCOMPARE(bytes(response + len - 2, 2), QByteArray::fromHex("9000"));
        len = 4;
        QCOMPARE(qvtoken_sendApdu(token, getStatus, sizeof getStatus, response, &len), QVTOKEN_ERR_BUFFER_TOO_SMALL);

        bench.remove(2);
        insert(2, {"--fail-ticket", "6982"});
        Search again;
        token = findKey(again);
        QVERIFY(token);
        QCOMPARE(qvtoken_answerTicket(token, reinterpret_cast<const uint8_t*>("x"), 1, answer),
                 QVTOKEN_ERR_KEY_REFUSED);
    }

    // The upgrade itself runs through TokenUpdate on the bench; here what the dashboard never
    // sends: a malformed target, and the words of a refusal.
    void firmwareUpgradeRefusals_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("target");
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("text");
        QTest::newRow("malformed target") << QStringList() << "1.2.300.1;2.2" << int(QVTOKEN_ERR_INVALID_ARGUMENT)
                                          << "The key refused the target version 1.2.300.1;2.2";
        QTest::newRow("key refuses the switch") << QStringList{"--fail-upgrade", "6581"} << "3.0.0;3.0"
                                                << int(QVTOKEN_ERR_KEY_REFUSED)
                                                << "The key could not switch to the new firmware (status 6581)";
    }

    void firmwareUpgradeRefusals()
    {
        QFETCH(QStringList, options);
        QFETCH(QString, target);
        insert(0, options);
        Search search;
        qvtoken_token* token = findKey(search);
        QVERIFY(token);
        Context ctx(qvtoken_getContext());
        QCOMPARE(qvtoken_setParam(ctx.get(), QVTOKEN_PARAM_TOKEN, token), QVTOKEN_OK);
        int code = 12345;
        char text[128];
        const int rc = qvtoken_userfeOperation(ctx.get(), "upgradecode", 0, target.toLatin1().constData(), &code,
                                               text, sizeof text);
        QTEST(rc, "code");
        QCOMPARE(code, rc);
        QTEST(QString(text), "text");
        const KeyStatusRecord rec = qvtoken_getTokenStatus(token, nullptr, nullptr);
        QCOMPARE(bytes(rec.firstVersion, rec.firstVersionLen), QByteArray("\x01\x02\x03", 3));
        QCOMPARE(QString(rec.controllerVersion), QString("2.1"));
    }

    void upgradeWithoutAKey()
    {
        Context ctx(qvtoken_getContext());
        int code = 0;
        char text[64];
        QCOMPARE(qvtoken_userfeOperation(ctx.get(), "upgradecode", 0, "1.0.1;1.0", &code, text, sizeof text),
                 QVTOKEN_ERR_NO_KEY_SET);
        QCOMPARE(qvtoken_userfeOperation(ctx.get(), "formatkey", 0, nullptr, &code, text, sizeof text),
                 QVTOKEN_ERR_UNKNOWN_OPERATION);
        // The text is cut to the buffer and always terminated.
        char tiny[6];
        qvtoken_userfeOperation(ctx.get(), "upgradecode", 0, "1.0.1;1.0", nullptr, tiny, sizeof tiny);
        QCOMPARE(QString(tiny), QString("No ke"));

        // The key leaves before the upgrade.
        insert(0);
        Search search;
        qvtoken_token* token = findKey(search);
        QVERIFY(token);
        QCOMPARE(qvtoken_setParam(ctx.get(), QVTOKEN_PARAM_TOKEN, token), QVTOKEN_OK);
        QCOMPARE(qvtoken_setParam(ctx.get(), 99, token), QVTOKEN_ERR_INVALID_ARGUMENT);
        bench.remove(0);
        QCOMPARE(qvtoken_userfeOperation(ctx.get(), "upgradecode", 0, "1.0.1;1.0", &code, text, sizeof text),
                 QVTOKEN_ERR_KEY_GONE);
    }

    void serviceDown()
    {
        insert(0);
        QVERIFY2(bench.stopPcscd(), qPrintable(bench.errorText()));
        Search search(qvtoken_initSearch());
        QVERIFY(!qvtoken_findNextToken(search.get(), 200));
        QCOMPARE(qvtoken_isVantrelPresent(), QVTOKEN_ERR_NO_SERVICE);
        QVERIFY(home.waitForLog("qvtoken: Cannot reach the smart-card service: 0x8010001D"));

        QVERIFY2(bench.startPcscd(), qPrintable(bench.errorText()));
        QCOMPARE(qvtoken_isVantrelPresent(), 1);
    }
};

QTEST_GUILESS_MAIN(TestQvtoken)
#include "tst_qvtoken.moc"
