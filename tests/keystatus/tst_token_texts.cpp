// Texts the key status and firmware update code build without a key: the status message's
// edges (the bench flows show the common ones), the key's firmware version from its status
// record, and the published version cut from the update API's answer.
#include "token_status.h"
#include "token_update.h"

#include <QtTest>

Q_DECLARE_METATYPE(QList<int>)

class TestTokenTexts : public QObject
{
    Q_OBJECT

    static KeyStatusRecord record(const QList<int>& first, const QList<int>& second)
    {
        KeyStatusRecord r{};
        for (int i = 0; i < first.size(); ++i)
            r.firstVersion[i] = uint8_t(first[i]);
        for (int i = 0; i < second.size(); ++i)
            r.secondVersion[i] = uint8_t(second[i]);
        r.firstVersionLen = int16_t(first.size());
        r.secondVersionLen = int16_t(second.size());
        return r;
    }

private slots:
    void statusMessage_data()
    {
        QTest::addColumn<int>("service");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("message");
        QTest::newRow("unknown status") << 200 << -1 << "Unknown status -1";
        const QString keySet = "This key is part of a KeySet that has not been fully activated.  Go to <a "
                               "href=\"https://ks.test/new-keyset/\">https://ks.test/new-keyset/</a> to activate your KeySet";
        QTest::newRow("403") << 403 << 7 << "<b>Key is temporarily blocked</b>";
        QTest::newRow("421, the address without a double slash") << 421 << 7 << keySet;
        QTest::newRow("422 as 421") << 422 << 7 << keySet;
        QTest::newRow("590 as 603") << 590 << 7 << "<b>Key status request was canceled. Click \"Refresh\" to try again.</b>";
        QTest::newRow("605, its tag left open") << 605 << 7 << "<b>Operation cancelled because of timeout<b>";
        QTest::newRow("401 falls through") << 401 << 7 << "Authorization error. Code = 401 denied";
        QTest::newRow("506 falls through") << 506 << 7 << "Authorization error. Code = 506 denied";
    }

    void statusMessage()
    {
        QFETCH(int, service);
        QFETCH(int, status);
        qputenv("ZORVIK_KEYSERVICE_URL", "https://ks.test/");
        TokenStatus worker;
        worker.ksResult = service;
        worker.tokenStatus = status;
        worker.authMessage = "denied";
        QTEST(worker.strTokenStatus(), "message");
    }

    void typeAndNetworkWords()
    {
        QCOMPARE(TokenStatus::strNetworkType(17), QString("Unknown network 17"));
        QCOMPARE(TokenStatus::verboseTokenType("token"), QString("Unknown key")); // case matters
    }

    void keyVersionText_data()
    {
        QTest::addColumn<QList<int>>("first");
        QTest::addColumn<QList<int>>("second");
        QTest::addColumn<QString>("text");
        QTest::newRow("no second bytes") << QList<int>{1, 2} << QList<int>{} << "1.2.0";
        QTest::newRow("bytes above 127") << QList<int>{200, 255} << QList<int>{0xff, 0xfe} << "200.255.65534";
        QTest::newRow("32 bits at most") << QList<int>{1} << QList<int>{0xff, 0xff, 0xff, 0xff} << "1.4294967295";
        QTest::newRow("kept to 32 bits") << QList<int>{1} << QList<int>{0x01, 0x00, 0x00, 0x00, 0x05} << "1.5";
    }

    void keyVersionText()
    {
        QFETCH(QList<int>, first);
        QFETCH(QList<int>, second);
        QTEST(TokenUpdate::keyVersionText(record(first, second)), "text");
    }

    // Lengths out of range never read past the record.
    void keyVersionTextBadLengths()
    {
        KeyStatusRecord r = record({4, 5}, {1});
        r.firstVersionLen = -3;
        r.secondVersionLen = -1;
        QCOMPARE(TokenUpdate::keyVersionText(r), QString("4.0"));
        r.firstVersionLen = r.secondVersionLen = 1000;
        QCOMPARE(TokenUpdate::keyVersionText(r).count('.'), QVTOKEN_VERSION_MAX);
    }

    void publishedVersion_data()
    {
        QTest::addColumn<QString>("body");
        QTest::addColumn<QString>("version");
        QTest::newRow("cut at the first of two") << "2.1;a;b" << "2.1";
        QTest::newRow("no semicolon") << "2.1" << "2.1";
        QTest::newRow("nothing before") << ";x" << "";
    }

    void publishedVersion()
    {
        QFETCH(QString, body);
        QTEST(TokenUpdate::publishedVersion(body), "version");
    }
};

QTEST_GUILESS_MAIN(TestTokenTexts)
#include "tst_token_texts.moc"
