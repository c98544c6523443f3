// libqvtoken against the simulated key in a real pcscd.
#include "bench.h"
#include "qvtoken.h"
#include "test_support.h"

#include <QTest>

#include <openssl/evp.h>
#include <openssl/hmac.h>
#include <openssl/sha.h>

#include <future>
#include <memory>

namespace {

const QByteArray kVantrelAtr = QByteArray::fromHex("3B8A80015A4F5256494B20565400"
                                                   "3A");

using Search = std::unique_ptr<qvtoken_search, decltype(&qvtoken_destroySearch)>;
using Context = std::unique_ptr<qvtoken_context, decltype(&qvtoken_releaseContext)>;

Context context()
{
    return Context(qvtoken_getContext(), qvtoken_releaseContext);
}

QByteArray bytes(const void* p, int n)
{
    return QByteArray(static_cast<const char*>(p), n);
}

} // namespace

class TestQvtoken : public QObject
{
    Q_OBJECT

    TestHome home;
    Bench bench;
    Search search{nullptr, qvtoken_destroySearch};

    // Inserts a key (vantrel-sim `options`) and returns the first key of a fresh search,
    // which stays open until the next call.
    qvtoken_token* keyIn(int reader, const QStringList& options = {}, int flags = QVTOKEN_SEARCH_VANTREL_ONLY)
    {
        if (reader >= 0 && !bench.insert(reader, options))
            qWarning("%s", qPrintable(bench.errorText()));
        search.reset(qvtoken_initSearchWithFlags(flags));
        return qvtoken_findNextToken(search.get(), 2000);
    }

private slots:
    void initTestCase()
    {
        home.apply();
        QVERIFY2(bench.start(), qPrintable(bench.errorText()));
    }

    void cleanup()
    {
        // Every test leaves the readers empty and the service up.
        search.reset();
        QVERIFY2(bench.startPcscd(), qPrintable(bench.errorText()));
        QVERIFY2(bench.removeAll(), qPrintable(bench.errorText()));
    }

    // The status record as the key sends it, and what a key that fails gives instead.
    void statusRecord_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<int>("flags");
        QTest::addColumn<QString>("record"); // info status network version1 version2 controller
        QTest::addColumn<QByteArray>("atr");
        const int vantrelOnly = QVTOKEN_SEARCH_VANTREL_ONLY;
        QTest::newRow("active production key")
            << QStringList() << vantrelOnly << "0 7 1 010203 0100 2.1" << kVantrelAtr;
        QTest::newRow("blank Vantrel, negative info word, test network")
            << QStringList{"--status",   "4", "--info",     "-2", "--network",    "3",
                           "--version1", "9", "--version2", "",   "--controller", "10.0-rc1"}
            << vantrelOnly << "-2 4 3 09  10.0-rc1" << kVantrelAtr;
        QTest::newRow("status refused") << QStringList{"--fail-status", "6F00"} << vantrelOnly
                                        << QString("%1 8 0   ").arg(0x6F00) << kVantrelAtr;
        // The key goes between the search (one APDU) and the status read.
        QTest::newRow("key gone") << QStringList{"--drop-after", "1"} << vantrelOnly << "0 0 0   " << QByteArray();
        QTest::newRow("no Vantrel") << QStringList{"--not-vantrel"} << int(QVTOKEN_SEARCH_ANY_CARD) << "0 1 0   "
                                    << QByteArray::fromHex("3B021450");
    }

    void statusRecord()
    {
        QFETCH(QStringList, options);
        QFETCH(int, flags);
        qvtoken_token* token = keyIn(1, options, flags);
        QVERIFY(token);
        QCOMPARE(QString(qvtoken_getReaderName(token)), bench.readerName(1));
        uint8_t atr[QVTOKEN_ATR_MAX];
        int atrLen = sizeof atr;
        const KeyStatusRecord rec = qvtoken_getTokenStatus(token, atr, &atrLen);
        const QStringList fields{QString::number(rec.infoStatus),
                                 QString::number(rec.tokenStatus),
                                 QString::number(rec.networkType),
                                 bytes(rec.firstVersion, rec.firstVersionLen).toHex(),
                                 bytes(rec.secondVersion, rec.secondVersionLen).toHex(),
                                 rec.controllerVersion};
        QTEST(fields.join(' '), "record");
        QTEST(bytes(atr, atrLen), "atr");
        if (rec.tokenStatus == 7)
            QCOMPARE(bytes(rec.serial, QVTOKEN_SERIAL_LEN), QByteArray::fromHex("5A52564B00000001"));
    }

    void atrBufferRules()
    {
        qvtoken_token* token = keyIn(0);
        QVERIFY(token);
        // No buffer: the record alone.
        int atrLen = 64;
        QCOMPARE(qvtoken_getTokenStatus(token, nullptr, &atrLen).tokenStatus, 7);
        QCOMPARE(atrLen, 0);
        QCOMPARE(qvtoken_getTokenStatus(token, nullptr, nullptr).tokenStatus, 7);
        // A short buffer gets what fits, and nothing is written past it.
        QByteArray atr(8, '\xEE');
        atrLen = 4;
        qvtoken_getTokenStatus(token, reinterpret_cast<uint8_t*>(atr.data()), &atrLen);
        QCOMPARE(atrLen, 4);
        QCOMPARE(atr, kVantrelAtr.left(4) + QByteArray(4, '\xEE'));
    }

    void cardThatIsNoVantrel()
    {
        qvtoken_token* plain = keyIn(0, {"--not-vantrel"}, QVTOKEN_SEARCH_ANY_CARD);
        QVERIFY(plain);
        uint8_t answer[32];
        QCOMPARE(qvtoken_answerTicket(plain, reinterpret_cast<const uint8_t*>("t"), 1, answer),
                 QVTOKEN_ERR_NOT_VANTREL);
        QVERIFY(!keyIn(-1));
        QCOMPARE(qvtoken_isVantrelPresent(), 0);

        // With a Vantrel beside it, the Vantrel-only search skips the plain card.
        qvtoken_token* vantrel = keyIn(1);
        QVERIFY(vantrel);
        QCOMPARE(QString(qvtoken_getReaderName(vantrel)), bench.readerName(1));
        QCOMPARE(qvtoken_isVantrelPresent(), 1);
    }

    void searchWaitsForAKeyAndReturnsEachOnce()
    {
        Search waiting(qvtoken_initSearch(), qvtoken_destroySearch);
        QVERIFY(!qvtoken_findNextToken(waiting.get(), 300));

        // A key inserted while the search waits is found by that wait.
        auto pending = std::async(std::launch::async, [&] { return qvtoken_findNextToken(waiting.get(), 30000); });
        QVERIFY(bench.insert(2));
        qvtoken_token* first = pending.get();
        QVERIFY(first);
        QCOMPARE(QString(qvtoken_getReaderName(first)), bench.readerName(2));

        QVERIFY(bench.insert(0));
        qvtoken_token* second = qvtoken_findNextToken(waiting.get(), 0);
        QVERIFY(second && second != first);
        QCOMPARE(QString(qvtoken_getReaderName(second)), bench.readerName(0));
        QVERIFY(!qvtoken_findNextToken(waiting.get(), 0));
    }

    void closedHandlesAreRefused()
    {
        QVERIFY(bench.insert(0));
        qvtoken_search* first = qvtoken_initSearch();
        qvtoken_token* a = qvtoken_findNextToken(first, 2000);
        QVERIFY(a);
        qvtoken_closeToken(a);
        QVERIFY(!qvtoken_getReaderName(a));
        QCOMPARE(qvtoken_getTokenStatus(a, nullptr, nullptr).tokenStatus, 0);
        Context ctx = context();
        QCOMPARE(qvtoken_setParam(ctx.get(), QVTOKEN_PARAM_TOKEN, a), QVTOKEN_ERR_INVALID_HANDLE);
        qvtoken_closeToken(a); // twice is harmless

        // Destroying the search closes what it still holds.
        qvtoken_search* other = qvtoken_initSearch();
        qvtoken_token* b = qvtoken_findNextToken(other, 2000);
        QVERIFY(b);
        qvtoken_destroySearch(other);
        QVERIFY(!qvtoken_getReaderName(b));
        QVERIFY(!qvtoken_findNextToken(other, 0));
        qvtoken_destroySearch(first);
        qvtoken_destroySearch(first);
    }

    void ticketAnswer()
    {
        qvtoken_token* token = keyIn(2, {"--serial", "a1b2c3d4e5f60718"});
        QVERIFY(token);
        const QByteArray ticket = "one-time ticket 8d1f";
        uint8_t answer[32];
        QCOMPARE(qvtoken_answerTicket(token, reinterpret_cast<const uint8_t*>(ticket.constData()),
                                      static_cast<size_t>(ticket.size()), answer),
                 QVTOKEN_OK);
        // The bench key's answer: HMAC-SHA256 keyed with SHA-256 of "zorvik-bench-key:<SERIAL>".
        unsigned char key[SHA256_DIGEST_LENGTH];
        SHA256(reinterpret_cast<const unsigned char*>("zorvik-bench-key:A1B2C3D4E5F60718"), 33, key);
        unsigned char mac[32];
        unsigned int macLen = 0;
        HMAC(EVP_sha256(), key, sizeof key, reinterpret_cast<const unsigned char*>(ticket.constData()),
             static_cast<size_t>(ticket.size()), mac, &macLen);
        QCOMPARE(bytes(answer, 32), bytes(mac, int(macLen)));

        // A raw command goes to the selected application.
        const uint8_t getStatus[] = {0x80, 0x10, 0x00, 0x00, 0x00};
        uint8_t response[300];
        size_t len = sizeof response;
        QCOMPARE(qvtoken_sendApdu(token, getStatus, sizeof getStatus, response, &len), QVTOKEN_OK);
        QVERIFY(len > 2);
        QCOMPARE(bytes(response + len - 2, 2), QByteArray::fromHex("9000"));
        len = 4;
        QCOMPARE(qvtoken_sendApdu(token, getStatus, sizeof getStatus, response, &len), QVTOKEN_ERR_BUFFER_TOO_SMALL);

        QVERIFY(bench.remove(2));
        token = keyIn(2, {"--fail-ticket", "6982"});
        QVERIFY(token);
        QCOMPARE(qvtoken_answerTicket(token, reinterpret_cast<const uint8_t*>("x"), 1, answer),
                 QVTOKEN_ERR_KEY_REFUSED);
    }

    // The upgrade itself runs through TokenUpdate on the bench; here what the dashboard never
    // sends: a malformed target, and a refusal; the key keeps its firmware.
    void firmwareUpgradeRefusals_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("target");
        QTest::addColumn<int>("code");
        QTest::newRow("malformed target") << QStringList() << "1.2.300.1;2.2" << int(QVTOKEN_ERR_INVALID_ARGUMENT);
        QTest::newRow("key refuses the switch")
            << QStringList{"--fail-upgrade", "6581"} << "3.0.0;3.0" << int(QVTOKEN_ERR_KEY_REFUSED);
    }

    void firmwareUpgradeRefusals()
    {
        QFETCH(QStringList, options);
        QFETCH(QString, target);
        qvtoken_token* token = keyIn(0, options);
        QVERIFY(token);
        Context ctx = context();
        QCOMPARE(qvtoken_setParam(ctx.get(), QVTOKEN_PARAM_TOKEN, token), QVTOKEN_OK);
        int code = 12345;
        char text[128];
        const int rc = qvtoken_userfeOperation(ctx.get(), "upgradecode", 0, target.toLatin1().constData(), &code, text,
                                               sizeof text);
        QTEST(rc, "code");
        QCOMPARE(code, rc);
        QVERIFY(text[0]);
        const KeyStatusRecord rec = qvtoken_getTokenStatus(token, nullptr, nullptr);
        QCOMPARE(bytes(rec.firstVersion, rec.firstVersionLen) + rec.controllerVersion, QByteArray("\x01\x02\x03"
                                                                                                  "2.1"));
    }

    void upgradeWithoutAKey()
    {
        Context ctx = context();
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
        qvtoken_token* token = keyIn(0);
        QVERIFY(token);
        QCOMPARE(qvtoken_setParam(ctx.get(), QVTOKEN_PARAM_TOKEN, token), QVTOKEN_OK);
        QCOMPARE(qvtoken_setParam(ctx.get(), 99, token), QVTOKEN_ERR_INVALID_ARGUMENT);
        QVERIFY(bench.remove(0));
        QCOMPARE(qvtoken_userfeOperation(ctx.get(), "upgradecode", 0, "1.0.1;1.0", &code, text, sizeof text),
                 QVTOKEN_ERR_KEY_GONE);
    }

    void serviceDown()
    {
        QVERIFY(bench.insert(0));
        QVERIFY2(bench.stopPcscd(), qPrintable(bench.errorText()));
        QVERIFY(!keyIn(-1));
        QCOMPARE(qvtoken_isVantrelPresent(), QVTOKEN_ERR_NO_SERVICE);
        QVERIFY2(bench.startPcscd(), qPrintable(bench.errorText()));
        QCOMPARE(qvtoken_isVantrelPresent(), 1);
    }
};

QTEST_GUILESS_MAIN(TestQvtoken)
#include "tst_qvtoken.moc"
