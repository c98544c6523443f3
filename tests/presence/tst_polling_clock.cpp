// The polling clock: its environment override, and rounds that do not pile up behind a
// busy GUI thread. No smart-card service is reachable here, so every round fails at once.
#include "dashboard_token_info.h"
#include "os_platform.h"

#include <QSignalSpy>
#include <QTest>

class TestPollingClock : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { qputenv("PCSCLITE_CSOCK_NAME", "/nonexistent/zorvik-test/pcscd.comm"); }

    void intervalOverride_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<int>("expected");
        QTest::newRow("unset") << QByteArray() << 500;
        QTest::newRow("fastest") << QByteArray("1") << 1;
        QTest::newRow("slower than normal") << QByteArray("501") << 500;
        QTest::newRow("zero") << QByteArray("0") << 500;
        QTest::newRow("not a number") << QByteArray("fast") << 500;
    }
    void intervalOverride()
    {
        QFETCH(QByteArray, value);
        QFETCH(int, expected);
        if (value.isNull())
            qunsetenv("ZORVIK_READER_POLL_MS");
        else
            qputenv("ZORVIK_READER_POLL_MS", value);
        QCOMPARE(OsPlatform::readerPollingIntervalMs(), expected);
        qunsetenv("ZORVIK_READER_POLL_MS");
    }

    void blockedGuiThreadGetsOneRoundNotABacklog()
    {
        qputenv("ZORVIK_READER_POLL_MS", "2");
        DashboardTokenInfo info;
        QTRY_VERIFY(info.rounds >= 3);
        // The GUI thread is busy for 400 ms: some 200 ticks of the clock go by meanwhile.
        QThread::msleep(400);
        const quint64 before = info.rounds;
        QCoreApplication::processEvents();
        QVERIFY2(info.rounds - before <= 1, qPrintable(QString("%1 rounds ran at once").arg(info.rounds - before)));
        // And polling goes on afterwards.
        QTRY_VERIFY(info.rounds >= before + 3);
        qunsetenv("ZORVIK_READER_POLL_MS");
    }
};

QTEST_GUILESS_MAIN(TestPollingClock)
#include "tst_polling_clock.moc"
