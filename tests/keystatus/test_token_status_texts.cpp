// The code-to-message tables of the key status worker.
#include "token_status.h"

#include <QtTest>

class TestTokenStatusTexts : public QObject
{
    Q_OBJECT
private slots:
    void keyStatusMessages_data();
    void keyStatusMessages();
    void authorizationMessages_data();
    void authorizationMessages();
    void networkWords_data();
    void networkWords();
    void keyTypes();
};

void TestTokenStatusTexts::keyStatusMessages_data()
{
    QTest::addColumn<int>("status");
    QTest::addColumn<QString>("message");
    const QString support = "\nPlease contact support@zorvik.com for assistance.";
    QTest::newRow("none") << 0 << "<b>No key present</b>";
    QTest::newRow("non-compatible") << 1
                                    << "<b>A non-compatible device was detected.</b>\nConnect a Zorvik approved USB or "
                                       "NFC device, then click \"Refresh\" to view the status.";
    QTest::newRow("not initialized") << 2 << "<b>Key is not initialized</b>";
    QTest::newRow("blank") << 3 << "<b>Key is blank</b>";
    QTest::newRow("blank vantrel") << 4 << "<b>Blank Vantrel</b>";
    QTest::newRow("blank tessaron") << 5 << "<b>Blank Tessaron</b>";
    QTest::newRow("bad init") << 6 << "<b>Key is not properly initialized. </b>" + support;
    QTest::newRow("active") << 7 << "<b>Key is active and operating normally</b>";
    QTest::newRow("internal error") << 8 << "<b>Key has an internal error. </b>" + support;
    QTest::newRow("ssl error") << 204 << "<b>SSL error occured. See dashboard.log for details</b>";
    QTest::newRow("unknown") << 9 << "Unknown status 9";
    QTest::newRow("negative") << -1 << "Unknown status -1";
}

void TestTokenStatusTexts::keyStatusMessages()
{
    QFETCH(int, status);
    QFETCH(QString, message);
    TokenStatus worker;
    worker.ksResult = 200;
    worker.tokenStatus = status;
    QCOMPARE(worker.strTokenStatus(), message);
}

void TestTokenStatusTexts::authorizationMessages_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("message");
    const QString support = "\nPlease contact support@zorvik.com for assistance.";
    const QString cancelled = "<b>Key status request was canceled. Click \"Refresh\" to try again.</b>";
    const QString keyset = "This key is part of a KeySet that has not been fully activated.  Go to "
                           "<a href=\"https://ks.test/new-keyset/\">https://ks.test/new-keyset/</a> to activate your "
                           "KeySet";
    QTest::newRow("400") << 400 << "<b>Unknown server error.</b> " + support;
    QTest::newRow("403") << 403 << "<b>Key is temporarily blocked</b>";
    QTest::newRow("408") << 408 << "<b>Key is disabled</b>";
    QTest::newRow("421") << 421 << keyset;
    QTest::newRow("422") << 422 << keyset;
    QTest::newRow("500") << 500 << "<b>Security pack error.</b> " + support;
    QTest::newRow("503") << 503
                         << "<b>Unable to read status data.</b> \nPlease make sure your internet connection is working "
                            "properly.\nAlso, make sure your Key is connected properly. \nPress \"Refresh\" to try "
                            "again.";
    QTest::newRow("504") << 504 << "<b>Server communication error.</b> " + support;
    QTest::newRow("505") << 505 << "<b>Server communication error.</b> " + support;
    QTest::newRow("590") << 590 << cancelled;
    QTest::newRow("603") << 603 << cancelled;
    QTest::newRow("605 unclosed tag") << 605 << "<b>Operation cancelled because of timeout<b>";
    QTest::newRow("401 falls through") << 401 << "Authorization error. Code = 401 denied";
    QTest::newRow("506 falls through") << 506 << "Authorization error. Code = 506 denied";
    QTest::newRow("999") << 999 << "Authorization error. Code = 999 denied";
}

void TestTokenStatusTexts::authorizationMessages()
{
    QFETCH(int, code);
    QFETCH(QString, message);
    qputenv("ZORVIK_KEYSERVICE_URL", "https://ks.test/");
    TokenStatus worker;
    worker.tokenStatus = 7;
    worker.ksResult = code;
    worker.authMessage = "denied";
    QCOMPARE(worker.strTokenStatus(), message);
}

void TestTokenStatusTexts::networkWords_data()
{
    QTest::addColumn<int>("code");
    QTest::addColumn<QString>("text");
    QTest::newRow("none") << 0 << QString();
    QTest::newRow("production") << 1 << "<b>Production network</b>";
    QTest::newRow("developers") << 2 << "<b>Developers network</b>";
    QTest::newRow("test") << 3 << "<b>Test network</b>";
    QTest::newRow("other") << 17 << "Unknown network 17";
}

void TestTokenStatusTexts::networkWords()
{
    QFETCH(int, code);
    QFETCH(QString, text);
    QCOMPARE(TokenStatus::strNetworkType(code), text);
}

void TestTokenStatusTexts::keyTypes()
{
    QCOMPARE(TokenStatus::verboseTokenType("TOKEN"), QString("Vantrel"));
    QCOMPARE(TokenStatus::verboseTokenType("MASTER_TOKEN"), QString("Tessaron"));
    QCOMPARE(TokenStatus::verboseTokenType("token"), QString("Unknown key"));
    QCOMPARE(TokenStatus::verboseTokenType("UTF-8"), QString("Unknown key"));
    QCOMPARE(TokenStatus::verboseTokenPrepersonalization(4), QString("Vantrel"));
    QCOMPARE(TokenStatus::verboseTokenPrepersonalization(5), QString("Tessaron"));
    QCOMPARE(TokenStatus::verboseTokenPrepersonalization(7), QString("Unknown"));
}

QTEST_GUILESS_MAIN(TestTokenStatusTexts)
#include "test_token_status_texts.moc"
