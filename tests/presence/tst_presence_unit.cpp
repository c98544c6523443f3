// Pieces of the presence and key code that need no bench: the polling clock, the SSL switch
// file, and the simulated key's answers to the out-of-order commands the bench tests rely on
// it to refuse. No smart-card service is reachable here, so every
// polling round fails at once.
#include "dashboard_token_info.h"
#include "os_platform.h"
#include "qvtoken.h"
#include "test_support.h"
#include "vantrel_applet.h"

#include <QDir>
#include <QTest>

class TestPresenceUnit : public QObject
{
    Q_OBJECT

    TestHome home;

    QString sslFile() const { return home.path() + "/config/zorvik/qvtoken.conf"; }

private slots:
    void initTestCase()
    {
        home.apply();
        qputenv("PCSCLITE_CSOCK_NAME", "/nonexistent/zorvik-test/pcscd.comm");
    }

    void cleanup() { qunsetenv("ZORVIK_READER_POLL_MS"); }

    void pollingInterval_data()
    {
        QTest::addColumn<QByteArray>("value");
        QTest::addColumn<int>("expected");
        QTest::newRow("unset") << QByteArray() << 500;
        QTest::newRow("fastest") << QByteArray("1") << 1;
        QTest::newRow("slower than normal") << QByteArray("501") << 500;
        QTest::newRow("zero") << QByteArray("0") << 500;
    }

    void pollingInterval()
    {
        QFETCH(QByteArray, value);
        if (!value.isNull())
            qputenv("ZORVIK_READER_POLL_MS", value);
        QTEST(OsPlatform::readerPollingIntervalMs(), "expected");
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
        QTRY_VERIFY(info.rounds >= before + 3);
    }

    // On until switched off; stored in one step in a file only the user reads, next to the
    // lines written by hand; a file that cannot be written leaves the stored choice alone.
    void sslSwitch()
    {
        QCOMPARE(qvtoken_getSsl(), 1);
        QVERIFY(writeFile(sslFile(), "# written by hand\nssl=maybe\nother=1"));
        QCOMPARE(qvtoken_getSsl(), 1);
        QCOMPARE(qvtoken_setSsl(0), 0);
        QCOMPARE(qvtoken_getSsl(), 0);
        QCOMPARE(readFile(sslFile()), QByteArray("# written by hand\nother=1\nssl=0\n"));
        QCOMPARE(QFile::permissions(sslFile()) & (QFile::ReadOther | QFile::ReadGroup), QFile::Permissions());
        QCOMPARE(QDir(home.path() + "/config/zorvik").entryList(QDir::Files), QStringList{"qvtoken.conf"});

        // The configuration directory lies under a plain file: nothing can be written.
        QVERIFY(writeFile(home.path() + "/blocker", ""));
        const QByteArray saved = qgetenv("XDG_CONFIG_HOME");
        qputenv("XDG_CONFIG_HOME", QFile::encodeName(home.path() + "/blocker"));
        QCOMPARE(qvtoken_setSsl(1), -1);
        QCOMPARE(qvtoken_getSsl(), 1);
        qputenv("XDG_CONFIG_HOME", saved);
        QCOMPARE(qvtoken_getSsl(), 0);
        QCOMPARE(qvtoken_setSsl(7), 0);
        QCOMPARE(qvtoken_getSsl(), 1);
    }

    void simulatedKeyAnswers_data()
    {
        QTest::addColumn<QStringList>("commands");
        QTest::addColumn<QByteArray>("lastStatusWord");
        const QString select = "00A404000"
                               "9F05A4F5256494B5654";
        QTest::newRow("status before SELECT") << QStringList{"8010000000"} << QByteArray("6985");
        QTest::newRow("commit without begin") << QStringList{select, "8030020000"} << QByteArray("6985");
        QTest::newRow("upgrade lost by a reset")
            << QStringList{select, "803000000D312E322E332E3235363B322E31", "reset", select, "8030010002AABB"}
            << QByteArray("6985");
    }

    void simulatedKeyAnswers()
    {
        QFETCH(QStringList, commands);
        CardProfile profile;
        VantrelApplet applet(profile);
        QByteArray response;
        for (const QString& c : commands) {
            if (c == "reset") {
                applet.reset();
                continue;
            }
            const QByteArray apdu = QByteArray::fromHex(c.toLatin1());
            const std::vector<uint8_t> answer = applet.process(std::vector<uint8_t>(apdu.begin(), apdu.end()));
            response = QByteArray(reinterpret_cast<const char*>(answer.data()), int(answer.size()));
        }
        QTEST(response.right(2).toHex().toUpper(), "lastStatusWord");
    }
};

QTEST_GUILESS_MAIN(TestPresenceUnit)
#include "tst_presence_unit.moc"
