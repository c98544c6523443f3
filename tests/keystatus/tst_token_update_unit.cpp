// The firmware version texts TokenUpdate compares: the key's, built from its status
// record, and the published one, cut from the update API's answer.
#include "token_update.h"

#include <QTest>

#include <initializer_list>

Q_DECLARE_METATYPE(QList<int>)

class TestTokenUpdateUnit : public QObject
{
    Q_OBJECT

    static KeyStatusRecord record(const QList<int>& first, const QList<int>& second)
    {
        KeyStatusRecord r{};
        for (int i = 0; i < first.size(); ++i)
            r.firstVersion[i] = static_cast<uint8_t>(first[i]);
        r.firstVersionLen = static_cast<int16_t>(first.size());
        for (int i = 0; i < second.size(); ++i)
            r.secondVersion[i] = static_cast<uint8_t>(second[i]);
        r.secondVersionLen = static_cast<int16_t>(second.size());
        return r;
    }

private slots:
    void keyVersionText_data()
    {
        QTest::addColumn<QList<int>>("first");
        QTest::addColumn<QList<int>>("second");
        QTest::addColumn<QString>("text");
        QTest::newRow("1.2.3 and 01 00") << QList<int>{1, 2, 3} << QList<int>{1, 0} << "1.2.3.256";
        QTest::newRow("one byte") << QList<int>{9} << QList<int>{7} << "9.7";
        QTest::newRow("no second bytes") << QList<int>{1, 2} << QList<int>{} << "1.2.0";
        QTest::newRow("bytes above 127") << QList<int>{200, 255} << QList<int>{0xff, 0xfe} << "200.255.65534";
        QTest::newRow("32 bits at most") << QList<int>{1} << QList<int>{0xff, 0xff, 0xff, 0xff} << "1.4294967295";
        QTest::newRow("kept to 32 bits") << QList<int>{1} << QList<int>{0x01, 0x00, 0x00, 0x00, 0x05} << "1.5";
        QTest::newRow("zeros") << QList<int>{0, 0, 0} << QList<int>{0, 0} << "0.0.0.0";
    }

    void keyVersionText()
    {
        QFETCH(QList<int>, first);
        QFETCH(QList<int>, second);
        QFETCH(QString, text);
        QCOMPARE(TokenUpdate::keyVersionText(record(first, second)), text);
    }

    // Lengths out of range never read past the record.
    void keyVersionTextBadLengths()
    {
        KeyStatusRecord r = record({4, 5}, {1});
        r.firstVersionLen = -3;
        r.secondVersionLen = -1;
        QCOMPARE(TokenUpdate::keyVersionText(r), QString("4.0"));
        r.firstVersionLen = 1000;
        r.secondVersionLen = 1000;
        const QString text = TokenUpdate::keyVersionText(r);
        QCOMPARE(text.count('.'), QVTOKEN_VERSION_MAX);
    }

    void publishedVersion_data()
    {
        QTest::addColumn<QString>("body");
        QTest::addColumn<QString>("version");
        QTest::newRow("with rest") << "1.2.4.256;sefw.img" << "1.2.4.256";
        QTest::newRow("two semicolons") << "2.1;a;b" << "2.1";
        QTest::newRow("no semicolon") << "2.1" << "2.1";
        QTest::newRow("empty") << "" << "";
        QTest::newRow("nothing before") << ";x" << "";
    }

    void publishedVersion()
    {
        QFETCH(QString, body);
        QFETCH(QString, version);
        QCOMPARE(TokenUpdate::publishedVersion(body), version);
    }
};

QTEST_GUILESS_MAIN(TestTokenUpdateUnit)
#include "tst_token_update_unit.moc"
