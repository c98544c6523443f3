// Pieces of the presence and key code that need no bench: result-code texts, the SSL
// switch file, and the simulated key's answers to the out-of-order commands the bench tests
// rely on it to refuse (its firmware upgrade is exercised through libqvtoken).
#include "dashboard_token_info.h"
#include "qvtoken.h"
#include "test_support.h"
#include "vantrel_applet.h"

#include <QDir>
#include <QFile>
#include <QTest>

namespace {

std::vector<uint8_t> apduBytes(const char* text)
{
    const QByteArray b = QByteArray::fromHex(text);
    return std::vector<uint8_t>(b.begin(), b.end());
}

QByteArray swOf(const std::vector<uint8_t>& response)
{
    if (response.size() < 2)
        return QByteArray();
    return QByteArray(reinterpret_cast<const char*>(response.data()) + response.size() - 2, 2).toHex().toUpper();
}

} // namespace

class TestPresenceUnit : public QObject
{
    Q_OBJECT

    TestHome home;

    QString sslFile() const { return home.path() + "/config/zorvik/qvtoken.conf"; }

private slots:
    void initTestCase()
    {
        QVERIFY(home.isValid());
        home.apply();
    }

    void resultCodeText_data()
    {
        QTest::addColumn<qlonglong>("code");
        QTest::addColumn<QString>("text");
        QTest::newRow("success") << 0LL << "0";
        QTest::newRow("no readers") << 0x8010002ELL << "-7fefffd2";
        QTest::newRow("largest positive") << 0x7FFFFFFFLL << "7fffffff";
    }

    void resultCodeText()
    {
        QFETCH(qlonglong, code);
        QTEST(scardResultText(static_cast<LONG>(code)), "text");
    }

    void sslSwitchIsKeptInTheUserConfig()
    {
        QFile::remove(sslFile());
        QCOMPARE(qvtoken_getSsl(), 1); // on until switched off

        QCOMPARE(qvtoken_setSsl(0), 0);
        QCOMPARE(qvtoken_getSsl(), 0);
        QFile f(sslFile());
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), QByteArray("ssl=0\n"));
        f.close();
        QCOMPARE(QFile::permissions(sslFile()) & (QFile::ReadOther | QFile::ReadGroup), QFile::Permissions());

        QCOMPARE(qvtoken_setSsl(7), 0);
        QCOMPARE(qvtoken_getSsl(), 1);
        // Replaced in one step: no temporary file is left beside it.
        QCOMPARE(QDir(home.path() + "/config/zorvik").entryList(QDir::Files), QStringList{"qvtoken.conf"});
    }

    void sslSwitchKeepsOtherLinesAndSurvivesGarbage()
    {
        QDir().mkpath(home.path() + "/config/zorvik");
        QFile f(sslFile());
        QVERIFY(f.open(QIODevice::WriteOnly | QIODevice::Truncate));
        f.write("# written by hand\nssl=maybe\nother=1");
        f.close();
        QCOMPARE(qvtoken_getSsl(), 1);

        QCOMPARE(qvtoken_setSsl(0), 0);
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), QByteArray("# written by hand\nother=1\nssl=0\n"));
    }

    void sslSwitchThatCannotBeStored()
    {
        QCOMPARE(qvtoken_setSsl(0), 0);
        // The configuration directory lies under a plain file: nothing can be written.
        const QString blocker = home.path() + "/blocker";
        QFile b(blocker);
        QVERIFY(b.open(QIODevice::WriteOnly));
        b.close();
        const QByteArray saved = qgetenv("XDG_CONFIG_HOME");
        qputenv("XDG_CONFIG_HOME", blocker.toLocal8Bit());
        QCOMPARE(qvtoken_setSsl(1), -1);
        QCOMPARE(qvtoken_getSsl(), 1); // nothing stored there: the default
        qputenv("XDG_CONFIG_HOME", saved);
        QCOMPARE(qvtoken_getSsl(), 0); // the stored choice is untouched
        QVERIFY(home.readLog().contains("qvtoken: Cannot store the SSL setting"));
    }

    void simulatedKeyAnswers_data()
    {
        QTest::addColumn<bool>("vantrel");
        QTest::addColumn<QStringList>("commands");
        QTest::addColumn<QByteArray>("lastStatusWord");

        const QString select = "00A404000" "9F05A4F5256494B5654";
        QTest::newRow("Lc longer than the data") << true << QStringList{select, "80200000050102"} << QByteArray("6700");
        QTest::newRow("status before SELECT") << true << QStringList{"8010000000"} << QByteArray("6985");
        QTest::newRow("plain card") << false << QStringList{select} << QByteArray("6A82");
        QTest::newRow("commit without begin") << true << QStringList{select, "8030020000"} << QByteArray("6985");
        QTest::newRow("upgrade lost by a reset")
            << true << QStringList{select, "803000000D312E322E332E3235363B322E31", "reset", select, "8030010002AABB"}
            << QByteArray("6985");
    }

    void simulatedKeyAnswers()
    {
        QFETCH(bool, vantrel);
        QFETCH(QStringList, commands);
        CardProfile profile;
        profile.vantrel = vantrel;
        VantrelApplet applet(profile);
        std::vector<uint8_t> response;
        for (const QString& c : commands) {
            if (c == "reset") {
                applet.reset();
                continue;
            }
            response = applet.process(apduBytes(c.toLatin1().constData()));
        }
        QTEST(swOf(response), "lastStatusWord");
    }

};

QTEST_GUILESS_MAIN(TestPresenceUnit)
#include "tst_presence_unit.moc"
