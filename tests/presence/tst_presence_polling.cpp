// DashboardTokenInfo against a real pcscd with vpcd readers and simulated keys.
#include "bench.h"
#include "dashboard_token_info.h"
#include "test_support.h"

#include <QSignalSpy>
#include <QTest>

#include <memory>

namespace {
// One polling round is 500 ms; a change must show within the next round or so.
const int kRoundsWait = 2500;
} // namespace

class TestPresencePolling : public QObject
{
    Q_OBJECT

    struct Spies
    {
        using I = DashboardTokenInfo;
        explicit Spies(I* i)
            : token(i, &I::tokenFound), readers(i, &I::readersFound), noToken(i, &I::noTokenFound),
              error(i, &I::SmartCardError), noError(i, &I::SmartCardNoError)
        {
        }
        QSignalSpy token, readers, noToken, error, noError;
        void clear()
        {
            for (QSignalSpy* spy : {&token, &readers, &noToken, &error, &noError})
                spy->clear();
        }
        QStringList lastReaders() const
        {
            return readers.isEmpty() ? QStringList() : readers.last().at(0).toStringList();
        }
    };

    TestHome home;
    Bench bench;
    std::unique_ptr<DashboardTokenInfo> info;
    std::unique_ptr<Spies> spies;

    // Starts pcscd with `options` and a DashboardTokenInfo watching it.
    void watch(const QStringList& options = {})
    {
        QVERIFY2(bench.start(options), qPrintable(bench.errorText()));
        info = std::make_unique<DashboardTokenInfo>();
        spies = std::make_unique<Spies>(info.get());
    }

    // Inserts (or pulls) a key and forgets the signals of the rounds before.
    void insert(int reader, bool in = true)
    {
        QVERIFY2(in ? bench.insert(reader) : bench.remove(reader), qPrintable(bench.errorText()));
        spies->clear();
    }

private slots:
    void initTestCase() { home.apply(); }

    void cleanup()
    {
        spies.reset();
        info.reset();
        QVERIFY2(bench.stop(), qPrintable(bench.errorText()));
    }

    // Readers that cannot be listed: the service error once, no key every round.
    void listingFails_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::newRow("no reader") << QStringList{"--no-readers"};
        // Ten slots of 106-byte names do not fit the 1024-byte listing buffer.
        QStringList names;
        for (int i = 0; i < 5; ++i)
            names << QString("Zorvik Reader With A Rather Long Name %1 ").arg(i).leftJustified(100, 'x');
        QTest::newRow("names beyond the buffer") << QStringList{"--readers", names.join(",")};
    }

    void listingFails()
    {
        QFETCH(QStringList, options);
        watch(options);
        QTRY_VERIFY_WITH_TIMEOUT(spies->noToken.count() >= 3, 4 * kRoundsWait);
        QCOMPARE(spies->error.count(), 1);
        QCOMPARE(spies->noError.count() + spies->token.count() + spies->readers.count(), 0);
    }

    void keyComesAndGoesInThePhysicalReader()
    {
        watch();
        QTRY_VERIFY_WITH_TIMEOUT(spies->readers.count() >= 2, kRoundsWait);
        // The virtual reader is never listed.
        QCOMPARE(spies->lastReaders(), QStringList({"Zorvik Vantrel Reader 00 00", "Zorvik Vantrel Reader 00 01"}));
        QCOMPARE(spies->token.count() + spies->noToken.count() + spies->error.count(), 0);

        insert(1);
        QTRY_VERIFY_WITH_TIMEOUT(spies->token.count() >= 2, kRoundsWait);
        QCOMPARE(spies->readers.count() + spies->noToken.count(), 0);
        QVERIFY(info->tokenSeen);

        insert(1, false);
        QTRY_VERIFY_WITH_TIMEOUT(spies->readers.count() >= 2, kRoundsWait);
        QCOMPARE(spies->token.count(), 0);
        QCOMPARE(spies->lastReaders().size(), 2);
        // tokenSeen stays, but with no removal action nothing else happens.
        QVERIFY(info->tokenSeen);
        QVERIFY(!home.readLog().contains("on_noToken"));
    }

    void keyInTheVirtualReaderOnlyStillCounts()
    {
        watch({"--readers", "Zorvik Virtual Card Reader"});
        // Only the virtual reader: nothing to list, so no key means noTokenFound.
        QTRY_VERIFY_WITH_TIMEOUT(spies->noToken.count() >= 2, kRoundsWait);
        QCOMPARE(spies->readers.count() + spies->error.count(), 0);

        insert(0);
        QTRY_VERIFY_WITH_TIMEOUT(spies->token.count() >= 2, kRoundsWait);
        QCOMPARE(spies->readers.count() + spies->noToken.count(), 0);
    }

    void serviceFailureAndRecoveryAreSignalledOnce()
    {
        watch();
        insert(0);
        QTRY_VERIFY_WITH_TIMEOUT(spies->token.count() >= 1, kRoundsWait);

        QVERIFY2(bench.stopPcscd(), qPrintable(bench.errorText()));
        spies->clear();
        QTRY_VERIFY_WITH_TIMEOUT(spies->noToken.count() >= 3, 2 * kRoundsWait);
        QCOMPARE(spies->error.count(), 1);
        QCOMPARE(spies->noError.count() + spies->token.count(), 0);

        // The same object sees the service come back, and the key still in its reader.
        QVERIFY2(bench.startPcscd(), qPrintable(bench.errorText()));
        spies->clear();
        QTRY_VERIFY_WITH_TIMEOUT(spies->token.count() >= 3, 2 * kRoundsWait);
        QCOMPARE(spies->noError.count(), 1);
        QCOMPARE(spies->error.count(), 0);
    }

    void onlyTheFirstTenReadersCount()
    {
        // Two readers of two slots, the one-slot virtual reader and four more of two: eleven.
        watch({"--extra", "4"});
        QCOMPARE(bench.readerNames().size(), 11);
        QTRY_VERIFY_WITH_TIMEOUT(spies->readers.count() >= 1, kRoundsWait);
        QStringList expected;
        for (const QString& name : bench.readerNames().mid(0, 10))
            if (!name.startsWith("Zorvik Virtual Card Reader"))
                expected << name;
        QCOMPARE(spies->lastReaders(), expected);

        // A key in the eleventh reader is not looked at; the tenth one is.
        insert(10);
        QTRY_VERIFY_WITH_TIMEOUT(spies->readers.count() >= 3, 2 * kRoundsWait);
        QCOMPARE(spies->token.count(), 0);
        insert(9);
        QTRY_VERIFY_WITH_TIMEOUT(spies->token.count() >= 2, kRoundsWait);
        QCOMPARE(spies->readers.count(), 0);
    }
};

QTEST_GUILESS_MAIN(TestPresencePolling)
#include "tst_presence_polling.moc"
