// The firmware update of a simulated key: published versions from the update API of the
// services simulator, the user's consent, and the key rewritten by the token library.
#include "bench.h"
#include "modal_seam.h"
#include "services_sim.h"
#include "test_support.h"
#include "token_update.h"
#include "web_access.h"

#include <QMessageBox>
#include <QSignalSpy>
#include <QUrlQuery>
#include <QtTest>

namespace {

const QString kNote =
    "\nUpdate procedure can take about 5-15 minutes. \nPlease do not remove your key untill end of operation";
const QString kAsk = "Zorvik Dashboard: Update ZORVIK Key|Your Key is outdated. Do you want to update your Key?" + kNote;
const QString kWait = "Zorvik Dashboard|Updating token. Please wait" + kNote;

// "<key firmware version>;<controller version>" of the first key, read afresh.
QString keyVersions()
{
    qvtoken_search_t search = qvtoken_initSearch();
    qvtoken_token_t token = qvtoken_findNextToken(search, 2000);
    QString text;
    if (token) {
        const KeyStatusRecord record = qvtoken_getTokenStatus(token, nullptr, nullptr);
        text = TokenUpdate::keyVersionText(record) + ";" + QString::fromLatin1(record.controllerVersion);
    }
    qvtoken_destroySearch(search);
    return text;
}

} // namespace

class TestTokenUpdate : public QObject
{
    Q_OBJECT

    TestHome home;
    Bench bench;
    ServicesSim sim;

    // Fetches the published versions as the program does: a run in mode 2.
    void fetchPublished(TokenUpdate& update)
    {
        update.mode = 2;
        update.start();
        QVERIFY(update.wait(30000));
    }

private slots:
    void initTestCase()
    {
        const QString started = startServicesAndBench(home, sim, bench);
        QVERIFY2(started.isEmpty(), qPrintable(started));
    }

    void init()
    {
        QVERIFY(sim.reset());
        ModalSeam::reset();
    }

    void cleanup() { QVERIFY2(bench.removeAll(), qPrintable(bench.errorText())); }

    void publishedVersionsFromTheUpdateApi()
    {
        QVERIFY(sim.configure({{"versions", QJsonObject{{"sefw", "9.8.7.1;image.bin;x"}, {"mcfw", "3.0"}}}}));
        TokenUpdate update;
        fetchPublished(update);
        QCOMPARE(update.seVersion, QString("9.8.7.1"));
        QCOMPARE(update.mcVersion, QString("3.0"));
        const QJsonArray requests = sim.requests("/api/version.txt");
        QCOMPARE(requests.size(), 2);
        QStringList packages;
        for (const QJsonValue& request : requests) {
            const QUrlQuery query(QUrl(request["target"].toString()).query());
            QCOMPARE(query.queryItemValue("platform"), QString("hard"));
            packages << query.queryItemValue("package");
        }
        QCOMPARE(packages, (QStringList{"sefw", "mcfw"}));
    }

    // Keys that match what is published are left alone without a question.
    void upToDateKeyIsNotAsked()
    {
        QVERIFY(bench.insert(0));
        TokenUpdate update;
        fetchPublished(update);
        QCOMPARE(keyVersions(), QString("1.2.3.256;2.1"));
        QCOMPARE(update.NeedUpdateToken(), 0);
        QCOMPARE(ModalSeam::seen(), QStringList());
    }

    void nothingToCompareAsksNothing_data()
    {
        QTest::addColumn<QString>("failure");
        QTest::newRow("update API fails") << "api";
        QTest::newRow("no key") << "key";
    }

    void nothingToCompareAsksNothing()
    {
        QFETCH(QString, failure);
        if (failure == "api")
            QVERIFY(sim.script(QJsonObject{{"path", "/api/version.txt"}, {"status", 503}}));
        if (failure != "key")
            QVERIFY(bench.insert(0, {"--version1", "1.0.0"}));
        TokenUpdate update;
        fetchPublished(update);
        QCOMPARE(update.NeedUpdateToken(), 0);
        QCOMPARE(ModalSeam::seen(), QStringList());
    }

    // An outdated key, the user agrees: the key is rewritten to the published versions.
    void outdatedKeyUpdatedAfterConsent_data()
    {
        QTest::addColumn<QStringList>("card");
        QTest::newRow("older firmware") << QStringList{"--version1", "1.2.2", "--version2", "0.255"};
        QTest::newRow("newer firmware") << QStringList{"--version1", "1.3.0"};
        QTest::newRow("other controller only") << QStringList{"--controller", "2.0"};
    }

    void outdatedKeyUpdatedAfterConsent()
    {
        QFETCH(QStringList, card);
        QVERIFY(bench.insert(0, card));
        TokenUpdate update;
        fetchPublished(update);
        QVERIFY(keyVersions() != "1.2.3.256;2.1");
        QSignalSpy finished(&update, &TokenUpdate::updateFinished);
        QSignalSpy result(&update, &TokenUpdate::updateResult);
        ModalSeam::answer(QMessageBox::Ok); // the question; the wait box runs for real
        QVERIFY(update.NeedUpdateToken() != 0);
        QCOMPARE(ModalSeam::seen(), (QStringList{kAsk, kWait}));
        QCOMPARE(finished.count(), 1);
        QCOMPARE(result.count(), 1);
        QCOMPARE(result.at(0).at(0).toInt(), int(QVTOKEN_OK));
        QVERIFY(update.wait(5000));
        QVERIFY(!update.token);
        QCOMPARE(keyVersions(), QString("1.2.3.256;2.1"));
        QVERIFY(home.readLog().contains("Update Token result: 0 "));
        QVERIFY(!QApplication::overrideCursor());

        // Now equal: no second question.
        ModalSeam::reset();
        QCOMPARE(update.NeedUpdateToken(), 0);
        QCOMPARE(ModalSeam::seen(), QStringList());
    }

    void declinedUpdateLeavesKeyUntouched()
    {
        QVERIFY(bench.insert(0, {"--version1", "1.2.2"}));
        TokenUpdate update;
        fetchPublished(update);
        QSignalSpy result(&update, &TokenUpdate::updateResult);
        const int logMark = home.readLog().size();
        ModalSeam::answer(QMessageBox::No);
        QCOMPARE(update.NeedUpdateToken(), 0);
        QCOMPARE(ModalSeam::seen(), QStringList{kAsk});
        QCOMPARE(result.count(), 0);
        QVERIFY(!update.isRunning());
        QCOMPARE(keyVersions(), QString("1.2.2.256;2.1"));
        QVERIFY(!home.readLog().mid(logMark).contains("Starting token update procedure"));
    }

    // The key refuses the new firmware: the library's code comes through, the wait box
    // still closes, and the key keeps its firmware.
    void refusedUpgradeReported()
    {
        QVERIFY(bench.insert(0, {"--version1", "1.2.2", "--fail-upgrade", "6F00"}));
        TokenUpdate update;
        fetchPublished(update);
        QSignalSpy result(&update, &TokenUpdate::updateResult);
        ModalSeam::answer(QMessageBox::Ok);
        update.NeedUpdateToken();
        QCOMPARE(result.count(), 1);
        QCOMPARE(result.at(0).at(0).toInt(), int(QVTOKEN_ERR_KEY_REFUSED));
        QVERIFY(!result.at(0).at(1).toString().isEmpty());
        QCOMPARE(keyVersions(), QString("1.2.2.256;2.1"));
    }
};

QTEST_MAIN(TestTokenUpdate)
#include "tst_token_update.moc"
