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

    TestHome home;
    Bench bench;

    struct Spies {
        explicit Spies(DashboardTokenInfo* info)
            : tokenFound(info, &DashboardTokenInfo::tokenFound), readersFound(info, &DashboardTokenInfo::readersFound),
              noTokenFound(info, &DashboardTokenInfo::noTokenFound),
              smartCardError(info, &DashboardTokenInfo::SmartCardError),
              smartCardNoError(info, &DashboardTokenInfo::SmartCardNoError)
        {
        }
        void clear()
        {
            for (QSignalSpy* spy : {&tokenFound, &readersFound, &noTokenFound, &smartCardError, &smartCardNoError})
                spy->clear();
        }
        QSignalSpy tokenFound, readersFound, noTokenFound, smartCardError, smartCardNoError;
    };

    static QStringList lastReaders(const QSignalSpy& spy)
    {
        return spy.isEmpty() ? QStringList() : spy.last().at(0).toStringList();
    }

private slots:
    void initTestCase()
    {
        QVERIFY(home.isValid());
        home.apply();
    }

    void cleanup() { QVERIFY2(bench.stop(), qPrintable(bench.errorText())); }

    void noReaderFailsOnceAndReportsNoKeyEveryRound()
    {
        QVERIFY2(bench.start({"--no-readers"}), qPrintable(bench.errorText()));
        auto info = std::make_unique<DashboardTokenInfo>();
        Spies spies(info.get());

        QTRY_VERIFY_WITH_TIMEOUT(spies.noTokenFound.count() >= 3, 4 * kRoundsWait);
        QCOMPARE(spies.smartCardError.count(), 1);
        QCOMPARE(spies.smartCardNoError.count(), 0);
        QCOMPARE(spies.tokenFound.count(), 0);
        QCOMPARE(spies.readersFound.count(), 0);

        const QString log = home.readLog();
        QVERIFY2(log.contains("Cannot list readers, status=-7fefffd2, readerNamesLen="), qPrintable(log));
        QVERIFY(countLines(log, "Cannot get readers info") >= 3);
    }

    void keyComesAndGoesInThePhysicalReader()
    {
        QVERIFY2(bench.start(), qPrintable(bench.errorText()));
        auto info = std::make_unique<DashboardTokenInfo>();
        Spies spies(info.get());

        QTRY_VERIFY_WITH_TIMEOUT(spies.readersFound.count() >= 2, kRoundsWait);
        // The virtual reader is never listed.
        QCOMPARE(lastReaders(spies.readersFound),
                 QStringList({"Zorvik Vantrel Reader 00 00", "Zorvik Vantrel Reader 00 01"}));
        QCOMPARE(spies.tokenFound.count(), 0);
        QCOMPARE(spies.noTokenFound.count(), 0);
        QCOMPARE(spies.smartCardError.count(), 0);

        QVERIFY2(bench.insert(1), qPrintable(bench.errorText()));
        spies.clear();
        QTRY_VERIFY_WITH_TIMEOUT(spies.tokenFound.count() >= 2, kRoundsWait);
        QCOMPARE(spies.readersFound.count(), 0);
        QCOMPARE(spies.noTokenFound.count(), 0);
        QVERIFY(info->tokenSeen);

        QVERIFY2(bench.remove(1), qPrintable(bench.errorText()));
        spies.clear();
        QTRY_VERIFY_WITH_TIMEOUT(spies.readersFound.count() >= 2, kRoundsWait);
        QCOMPARE(spies.tokenFound.count(), 0);
        QCOMPARE(lastReaders(spies.readersFound).size(), 2);
        // tokenSeen stays, but with no removal action nothing else happens.
        QVERIFY(info->tokenSeen);
        QVERIFY(!home.readLog().contains("on_noToken"));
    }

    void keyInTheVirtualReaderOnlyStillCounts()
    {
        QVERIFY2(bench.start({"--readers", "Zorvik Virtual Card Reader"}), qPrintable(bench.errorText()));
        auto info = std::make_unique<DashboardTokenInfo>();
        Spies spies(info.get());

        // Only the virtual reader: nothing to list, so no key means noTokenFound.
        QTRY_VERIFY_WITH_TIMEOUT(spies.noTokenFound.count() >= 2, kRoundsWait);
        QCOMPARE(spies.readersFound.count(), 0);
        QCOMPARE(spies.smartCardError.count(), 0);

        QVERIFY2(bench.insert(0), qPrintable(bench.errorText()));
        spies.clear();
        QTRY_VERIFY_WITH_TIMEOUT(spies.tokenFound.count() >= 2, kRoundsWait);
        QCOMPARE(spies.readersFound.count(), 0);
        QCOMPARE(spies.noTokenFound.count(), 0);
    }

    void serviceFailureAndRecoveryAreSignalledOnce()
    {
        QVERIFY2(bench.start(), qPrintable(bench.errorText()));
        QVERIFY2(bench.insert(0), qPrintable(bench.errorText()));
        auto info = std::make_unique<DashboardTokenInfo>();
        Spies spies(info.get());
        QTRY_VERIFY_WITH_TIMEOUT(spies.tokenFound.count() >= 1, kRoundsWait);

        QVERIFY2(bench.stopPcscd(), qPrintable(bench.errorText()));
        spies.clear();
        QTRY_VERIFY_WITH_TIMEOUT(spies.noTokenFound.count() >= 3, 2 * kRoundsWait);
        QCOMPARE(spies.smartCardError.count(), 1);
        QCOMPARE(spies.smartCardNoError.count(), 0);
        QCOMPARE(spies.tokenFound.count(), 0);
        // SCARD_E_NO_SERVICE, printed as a signed 32-bit number.
        QVERIFY2(home.readLog().contains("Cannot establish scard context, result -7fefffe3"),
                 qPrintable(home.readLog().right(2000)));

        // The same object sees the service come back, and the key still in its reader.
        QVERIFY2(bench.startPcscd(), qPrintable(bench.errorText()));
        spies.clear();
        QTRY_VERIFY_WITH_TIMEOUT(spies.tokenFound.count() >= 3, 2 * kRoundsWait);
        QCOMPARE(spies.smartCardNoError.count(), 1);
        QCOMPARE(spies.smartCardError.count(), 0);
    }

    void onlyTheFirstTenReadersCount()
    {
        // Two readers of two slots, the one-slot virtual reader and four more of two: eleven.
        QVERIFY2(bench.start({"--extra", "4"}), qPrintable(bench.errorText()));
        QCOMPARE(bench.readerNames().size(), 11);
        auto info = std::make_unique<DashboardTokenInfo>();
        Spies spies(info.get());

        QTRY_VERIFY_WITH_TIMEOUT(spies.readersFound.count() >= 1, kRoundsWait);
        QStringList expected;
        for (const QString& name : bench.readerNames().mid(0, 10))
            if (!name.startsWith("Zorvik Virtual Card Reader"))
                expected << name;
        QCOMPARE(lastReaders(spies.readersFound), expected);

        // A key in the eleventh reader is not looked at.
        QVERIFY2(bench.insert(10), qPrintable(bench.errorText()));
        spies.clear();
        QTRY_VERIFY_WITH_TIMEOUT(spies.readersFound.count() >= 3, 2 * kRoundsWait);
        QCOMPARE(spies.tokenFound.count(), 0);

        // The tenth one is.
        QVERIFY2(bench.insert(9), qPrintable(bench.errorText()));
        spies.clear();
        QTRY_VERIFY_WITH_TIMEOUT(spies.tokenFound.count() >= 2, kRoundsWait);
        QCOMPARE(spies.readersFound.count(), 0);
    }

    void readerNamesBeyondTheBufferAreAServiceError()
    {
        // Ten slots of 106-byte names do not fit the 1024-byte listing buffer.
        QStringList names;
        for (int i = 0; i < 5; ++i)
            names << QString("Zorvik Reader With A Rather Long Name %1 ").arg(i).leftJustified(100, 'x');
        QVERIFY2(bench.start({"--readers", names.join(",")}), qPrintable(bench.errorText()));
        auto info = std::make_unique<DashboardTokenInfo>();
        Spies spies(info.get());

        QTRY_VERIFY_WITH_TIMEOUT(spies.noTokenFound.count() >= 2, kRoundsWait);
        QCOMPARE(spies.smartCardError.count(), 1);
        QCOMPARE(spies.readersFound.count(), 0);
        // SCARD_E_INSUFFICIENT_BUFFER
        QVERIFY2(home.readLog().contains("Cannot list readers, status=-7feffff8"), qPrintable(home.readLog().right(2000)));
    }
};

QTEST_GUILESS_MAIN(TestPresencePolling)
#include "tst_presence_polling.moc"
