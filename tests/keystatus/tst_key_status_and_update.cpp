// The key's status as the user sees it: TokenStatus and the window's Key Status tab with a
// simulated key on the bench, the real key-service simulator and, for the proxy case, a
// real tinyproxy. Then the key's firmware update: published versions from the simulator's
// update API, the user's consent, and the key rewritten by the token library.
#include "bench.h"
#include "dashboard_network_manager.h"
#include "dashboard_window.h"
#include "modal_seam.h"
#include "proxy_sim.h"
#include "services_sim.h"
#include "test_support.h"
#include "token_status.h"
#include "token_update.h"
#include "ui_dashboard_window.h"
#include "web_access.h"

#include <QDeadlineTimer>
#include <QMessageBox>
#include <QJsonObject>
#include <QPointer>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QUrlQuery>
#include <QtTest>

#include <memory>

namespace {

const QString kVantrelAtr = "3B 8A 80 01 5A 4F 52 56 49 4B 20 56 54 00 3A ";
const QString kActive = "<b>Key is active and operating normally</b>";
const QString kCancelled = "<b>Key status request was canceled. Click \"Refresh\" to try again.</b>";
const QString kBlueStyle = "QLabel { background-color : #006090; color: white;}";
const QString kRedStyle = "QLabel { background-color : #aa0033; color: white; }";
const int kFlowTimeout = 20000;
const QString kUpdateNote =
    "\nUpdate procedure can take about 5-15 minutes. \nPlease do not remove your key untill end of operation";
const QString kUpdateAsk =
    "Zorvik Dashboard: Update ZORVIK Key|Your Key is outdated. Do you want to update your Key?" + kUpdateNote;
const QString kUpdateWait = "Zorvik Dashboard|Updating token. Please wait" + kUpdateNote;

QString icon(const DashboardWindow& window)
{
    return QRegularExpression("images/([^']+)'").match(window.form()->tokenStatus_icon->text()).captured(1);
}

// Scripts the key service's answer to the key's ticket proof.
QJsonObject authAnswer(int code, const QString& text)
{
    return {{"path", "/a/auth-ticket/"},
            {"content_type", "application/json"},
            {"body", QString(R"({"code": %1, "text": "%2"})").arg(code).arg(text)}};
}

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

// Fetches the published versions as the program does: a run in mode 2.
bool fetchPublished(TokenUpdate& update)
{
    update.mode = 2;
    update.start();
    return update.wait(30000);
}

} // namespace

class TestKeyStatusAndUpdate : public QObject
{
    Q_OBJECT

    TestHome home;
    Bench bench;
    ServicesSim sim;
    std::unique_ptr<DashboardWindow> window;

    // A window whose presence polling has seen the key, switched to the Key Status tab
    // (which starts the query).
    void openKeyStatusTab()
    {
        window = std::make_unique<DashboardWindow>();
        window->show();
        QTRY_VERIFY_WITH_TIMEOUT(window->tokenPresent, 5000);
        window->form()->tabs->setCurrentIndex(2);
    }

    void waitUntilIdle(TokenStatus& status)
    {
        QTRY_VERIFY_WITH_TIMEOUT(!status.busy && status.isFinished(), kFlowTimeout);
        QTRY_VERIFY(!window || !window->form()->tabs->testAttribute(Qt::WA_SetCursor));
    }

private slots:
    void initTestCase()
    {
        Q_INIT_RESOURCE(dashboard);
        const QString started = startServicesAndBench(home, sim, bench);
        QVERIFY2(started.isEmpty(), qPrintable(started));
    }

    void init()
    {
        QVERIFY(sim.reset());
        sim.applyEnvironment();
        ModalSeam::reset();
    }

    void cleanup()
    {
        window.reset();
        QVERIFY2(bench.removeAll(), qPrintable(bench.errorText()));
    }

    // An active key and a reachable service: the key's type and name, styled by type.
    void activeKeyShowsTypeAndTitle_data()
    {
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("title");
        QTest::addColumn<QString>("shownType");
        QTest::addColumn<QString>("style");
        QTest::newRow("Vantrel") << "TOKEN" << "Bench Vantrel" << "Vantrel" << kBlueStyle;
        QTest::newRow("Tessaron, long name") << "MASTER_TOKEN" << QString(150, QChar(0x00e9)) << "Tessaron"
                                             << kRedStyle;
        QTest::newRow("unknown type") << "SOMETHING" << "Odd" << "Unknown key" << QString();
    }

    void activeKeyShowsTypeAndTitle()
    {
        QFETCH(QString, type);
        QFETCH(QString, title);
        QFETCH(QString, shownType);
        QFETCH(QString, style);
        QVERIFY(sim.configure({{"key", QJsonObject{{"type", type}, {"title", title}}}}));
        QVERIFY(bench.insert(0, {"--info", "36864"}));
        openKeyStatusTab();
        TokenStatus& status = window->tokenStatusWorker();
        QSignalSpy ready(&status, &TokenStatus::infoKSReady);
        QSignalSpy cancelled(&status, &TokenStatus::infoKSCanceled);
        QTRY_COMPARE_WITH_TIMEOUT(window->form()->label_type->text(), shownType, kFlowTimeout);
        waitUntilIdle(status);

        const Ui::DashboardWindow* ui = window->form();
        QCOMPARE(ready.count(), 1);
        QCOMPARE(cancelled.count(), 0);
        QCOMPARE(ui->label_title->text(), title.left(100));
        QCOMPARE(ui->label_type->styleSheet(), style);
        QCOMPARE(ui->label_info->text(), kActive);
        QCOMPARE(icon(*window), QString("ok.png"));
        QCOMPARE(ui->label_atr->text(), kVantrelAtr);
        QCOMPARE(ui->label_ret_status->text(), QString("0x9000"));
        // A production key shows no network wording.
        QCOMPARE(ui->label_network->text(), QString());

        // The status request carried the ticket the service handed out.
        const QJsonArray tickets = sim.requests("/a/get-ticket/");
        const QJsonArray views = sim.requests("/a/view.json");
        QCOMPARE(tickets.size(), 1);
        QCOMPARE(views.size(), 1);
        QCOMPARE(ServicesSim::header(tickets.at(0), "User-Agent"), QString("Dashboard"));
        QCOMPARE(ServicesSim::header(views.at(0), "User-Agent"), QString("Dashboard"));
        QCOMPARE(QUrlQuery(QString::fromLatin1(ServicesSim::body(views.at(0)))).queryItemValue("ticket"),
                 status.ticket);
        QCOMPARE(sim.requests("/a/auth-ticket/").size(), 1);
    }

    // Keys that are not active never reach the key service.
    void inactiveKeysStayLocal_data()
    {
        QTest::addColumn<QStringList>("card");
        QTest::addColumn<QString>("message");
        QTest::addColumn<QString>("type");
        QTest::addColumn<QString>("retStatus");
        QTest::addColumn<QString>("network");
        QTest::newRow("blank Vantrel") << QStringList{"--status", "4", "--info", "43981"} << "<b>Blank Vantrel</b>"
                                       << "Vantrel" << "0xABCD" << QString();
        QTest::newRow("blank Tessaron, test network")
            << QStringList{"--status", "5", "--network", "3"} << "<b>Blank Tessaron</b>" << "Tessaron" << "0x0"
            << "<b>Test network</b>";
        QTest::newRow("not a Vantrel") << QStringList{"--not-vantrel"} << "<b>A non-compatible device was detected.</b>"
                                       << "Unknown" << "Not available" << QString();
    }

    void inactiveKeysStayLocal()
    {
        QFETCH(QStringList, card);
        QFETCH(QString, message);
        QFETCH(QString, type);
        QFETCH(QString, retStatus);
        QFETCH(QString, network);
        QVERIFY(bench.insert(0, card));
        openKeyStatusTab();
        TokenStatus& status = window->tokenStatusWorker();
        QTRY_VERIFY_WITH_TIMEOUT(window->form()->label_info->text().startsWith(message), kFlowTimeout);
        waitUntilIdle(status);
        const Ui::DashboardWindow* ui = window->form();
        QCOMPARE(ui->label_type->text(), type);
        QCOMPARE(ui->label_type->styleSheet(), type == "Vantrel" ? kBlueStyle : type == "Tessaron" ? kRedStyle : "");
        QCOMPARE(ui->label_ret_status->text(), retStatus);
        QCOMPARE(icon(*window), QString("update.png"));
        QCOMPARE(ui->label_network->text(), network);
        if (!network.isEmpty())
            QVERIFY(!ui->label_network_title->isHidden());
        QCOMPARE(sim.requests("/a/get-ticket/").size(), 0);
        QCOMPARE(sim.requests("/a/auth-ticket/").size(), 0);
        QCOMPARE(sim.requests("/a/view.json").size(), 0);
    }

    void noKeyInAnyReader()
    {
        TokenStatus status;
        QSignalSpy ready(&status, &TokenStatus::infoSCReady);
        QSignalSpy cancelled(&status, &TokenStatus::infoKSCanceled);
        status.start();
        QTRY_COMPARE_WITH_TIMEOUT(cancelled.count(), 1, kFlowTimeout);
        QVERIFY(status.wait(5000));
        QCOMPARE(ready.count(), 1);
        QCOMPARE(cancelled.at(0).at(0).toString(), QString());
        QCOMPARE(status.tokenStatus, 0);
        QCOMPARE(status.statusText, QString("<b>No key present</b>"));
        QVERIFY(!status.busy);
        QVERIFY(home.readLog().contains("Error Token Status - token not found"));
    }

    // The key service refuses the key's proof: its code picks the message, nothing more is
    // asked, and the query is over.
    void serviceRefusals_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<QString>("message");
        QTest::newRow("403") << 403 << "<b>Key is temporarily blocked</b>";
        QTest::newRow("421") << 421
                             << "This key is part of a KeySet that has not been fully activated.  Go to <a "
                                "href=\"@/new-keyset/\">@/new-keyset/</a> to activate your KeySet";
        QTest::newRow("999") << 999 << "Authorization error. Code = 999 Strange answer";
    }

    void serviceRefusals()
    {
        QFETCH(int, code);
        QFETCH(QString, message);
        message.replace("@", sim.httpsUrl());
        QVERIFY(sim.script(authAnswer(code, "Strange answer")));
        QVERIFY(bench.insert(0));
        openKeyStatusTab();
        TokenStatus& status = window->tokenStatusWorker();
        QSignalSpy ready(&status, &TokenStatus::infoKSReady);
        QTRY_COMPARE_WITH_TIMEOUT(window->form()->label_info->text(), message, kFlowTimeout);
        waitUntilIdle(status);
        QCOMPARE(status.ksResult, code);
        QCOMPARE(status.statusText, message);
        QCOMPARE(status.authMessage, QString("Strange answer"));
        QCOMPARE(icon(*window), QString("update.png"));
        QCOMPARE(ready.count(), 0);
        QCOMPARE(sim.requests("/a/view.json").size(), 0);
        QVERIFY(home.readLog().contains(QString("Key service authorization failed. Result =  %1").arg(code)));

        // The next refresh starts afresh and succeeds.
        QVERIFY(sim.reset());
        emit window->form()->tokenStatus_refresh->linkActivated(QString());
        QTRY_COMPARE_WITH_TIMEOUT(window->form()->label_info->text(), kActive, kFlowTimeout);
        QTRY_COMPARE(window->form()->label_type->text(), QString("Vantrel"));
    }

    // An untrusted service certificate: logged, key status 204, the query is over; once the
    // service can be trusted again, Refresh goes through.
    void untrustedCertificate()
    {
        qputenv("ZORVIK_KEYSERVICE_URL", sim.badTlsUrl().toUtf8());
        QVERIFY(bench.insert(0));
        openKeyStatusTab();
        TokenStatus& status = window->tokenStatusWorker();
        QSignalSpy cancelled(&status, &TokenStatus::infoKSCanceled);
        QTRY_COMPARE_WITH_TIMEOUT(cancelled.count(), 1, kFlowTimeout);
        QVERIFY(cancelled.at(0).at(0).toString().startsWith("Error communicating with Key Services \n"));
        QCOMPARE(status.tokenStatus, 204);
        QTRY_COMPARE(window->form()->label_info->text(),
                     QString("<b>SSL error occured. See dashboard.log for details</b>"));
        QTRY_VERIFY(!window->form()->tabs->testAttribute(Qt::WA_SetCursor));
        const QString log = home.readLog();
        QVERIFY(countLines(log, "SSL ERROR: ") >= 1);
        QVERIFY(log.contains("requestKSTicket_reply error "));

        // A transport failure leaves the query marked active on purpose: Refresh is refused.
        QTRY_VERIFY_WITH_TIMEOUT(status.isFinished(), kFlowTimeout);
        QVERIFY(status.busy);
        sim.applyEnvironment();
        emit window->form()->tokenStatus_refresh_icon->linkActivated(QString());
        QVERIFY(home.waitForLog("Get token status already active"));
        QCOMPARE(window->form()->label_info->text(),
                 QString("<b>SSL error occured. See dashboard.log for details</b>"));
        QCOMPARE(sim.requests("/a/get-ticket/").size(), 0);
    }

    // A Refresh let through the moment the previous query ends is never lost: each one
    // reads the key again and none leaves the tab waiting.
    void refreshAsSoonAsAllowed()
    {
        QVERIFY(bench.insert(0, {"--status", "4"}));
        openKeyStatusTab();
        TokenStatus& status = window->tokenStatusWorker();
        QSignalSpy read(&status, &TokenStatus::infoSCReady);
        for (int round = 1; round <= 5; ++round) {
            const QDeadlineTimer deadline(kFlowTimeout);
            while (status.busy && !deadline.hasExpired())
                QCoreApplication::processEvents();
            window->updateTokenInfo();
            QTRY_COMPARE_WITH_TIMEOUT(read.count(), round + 1, kFlowTimeout);
        }
        waitUntilIdle(status);
        QCOMPARE(window->form()->label_info->text(), QString("<b>Blank Vantrel</b>"));
    }

    // Whatever shape the key service's answer has, the query ends in one of its failure texts.
    void wrongShapedAnswers_data()
    {
        QTest::addColumn<QString>("body");
        QTest::addColumn<QString>("reason");
        const QString parse = "Cannot parse server response";
        const QString service = "Key service error";
        QTest::newRow("not JSON") << "<html>" << parse;
        QTest::newRow("error a number") << R"({"error":0,"message":{"type":"TOKEN"}})" << parse;
        QTest::newRow("message a text") << R"({"error":false,"message":"TOKEN"})" << parse;
        QTest::newRow("type an object") << R"({"error":false,"message":{"type":{"a":1},"title":"T"}})" << parse;
        QTest::newRow("title a number") << R"({"error":false,"message":{"type":"TOKEN","title":7}})" << parse;
        QTest::newRow("error with a text message") << R"({"error":true,"message":"expired"})" << service;
        QTest::newRow("no error member") << R"({"message":{"type":"TOKEN"}})" << service;
    }

    void wrongShapedAnswers()
    {
        QFETCH(QString, body);
        QFETCH(QString, reason);
        QVERIFY(sim.script(QJsonObject{{"path", "/a/view.json"}, {"content_type", "application/json"}, {"body", body}}));
        QVERIFY(bench.insert(0));
        TokenStatus status;
        QSignalSpy cancelled(&status, &TokenStatus::infoKSCanceled);
        QSignalSpy ready(&status, &TokenStatus::infoKSReady);
        QVERIFY(status.startQuery());
        QTRY_COMPARE_WITH_TIMEOUT(cancelled.count(), 1, kFlowTimeout);
        QCOMPARE(cancelled.at(0).at(0).toString(), reason);
        QCOMPARE(ready.count(), 0);
        QTRY_VERIFY(!status.busy);
    }

    // Quitting while a query still waits on a slow key does not wait for the key: the window
    // goes, and the worker, let go, ends on its own once the key is pulled.
    void quitWhileKeyIsSlow()
    {
        QVERIFY(bench.insert(0, {"--delay", "120000"}));
        openKeyStatusTab();
        QPointer<TokenStatus> worker(&window->tokenStatusWorker());
        QVERIFY(worker->isRunning());
        window->slotQuit();
        window.reset();
        QVERIFY(worker);
        QVERIFY(worker->isRunning());
        QVERIFY(home.readLog().contains("TokenStatus did not stop in time; it is left to end on its own"));
        QVERIFY2(bench.removeAll(), qPrintable(bench.errorText()));
        QTRY_VERIFY_WITH_TIMEOUT(worker.isNull(), kFlowTimeout);
    }

    // Leaving the tab, pulling the key or closing the window while the key authenticates
    // cancels the query; the service's late answer changes nothing.
    void cancelDuringAuthentication_data()
    {
        QTest::addColumn<QString>("how");
        QTest::addColumn<QString>("shown");
        QTest::newRow("leave the tab") << "tab" << "Token status request cancelled";
        QTest::newRow("pull the key") << "pull" << "No Key present.";
        QTest::newRow("close the window") << "close" << "Token status request cancelled";
    }

    void cancelDuringAuthentication()
    {
        QFETCH(QString, how);
        QFETCH(QString, shown);
        QJsonObject slow = authAnswer(200, "Ticket authenticated");
        slow["delay"] = 3;
        // Only the abandoned exchange is scripted: the next one is the service's own, which
        // marks its ticket authenticated so that view.json answers it.
        slow["times"] = 1;
        QVERIFY(sim.script(slow));
        QVERIFY(bench.insert(0));
        openKeyStatusTab();
        TokenStatus& status = window->tokenStatusWorker();
        QSignalSpy cancelled(&status, &TokenStatus::infoKSCanceled);
        QSignalSpy ready(&status, &TokenStatus::infoKSReady);
        QVERIFY(sim.waitForRequests("/a/auth-ticket/", 1, kFlowTimeout));
        QVERIFY(status.guiInstance);

        if (how == "tab")
            window->form()->tabs->setCurrentIndex(3);
        else if (how == "pull")
            QVERIFY(bench.remove(0));
        else
            window->close();

        QTRY_COMPARE_WITH_TIMEOUT(cancelled.count(), 1, 5000);
        QCOMPARE(cancelled.at(0).at(0).toString(), QString("Token status request cancelled"));
        QCOMPARE(status.ksResult, 603);
        QCOMPARE(status.statusText, kCancelled);
        QVERIFY(!status.busy);
        QVERIFY(!status.guiInstance);
        QTRY_COMPARE(window->form()->label_info->text(), shown);
        QCOMPARE(icon(*window), QString(how == "pull" ? "new.png" : "update.png"));
        QVERIFY(home.readLog().contains("Force close qvtoken_gui instance"));

        // A new query goes through; the abandoned exchange never adds a status request.
        if (how == "pull")
            QVERIFY(bench.insert(0)); // the key comes back while the tab is shown
        else if (how == "tab")
            window->form()->tabs->setCurrentIndex(2);
        else
            emit window->form()->tokenStatus_refresh->linkActivated(QString());
        QTRY_COMPARE_WITH_TIMEOUT(ready.count(), 1, kFlowTimeout);
        waitUntilIdle(status);
        QCOMPARE(cancelled.count(), 1);
        QCOMPARE(sim.requests("/a/auth-ticket/").size(), 2);
        QCOMPARE(sim.requests("/a/view.json").size(), 1);
    }

    // With the proxy switched on in the Advanced tab, the whole exchange goes through it.
    void throughTheProxy()
    {
        ProxySim proxy;
        QVERIFY2(proxy.start(sim), qPrintable(proxy.lastError()));
        qputenv("ZORVIK_KEYSERVICE_URL", sim.proxiedHttpsUrl().toUtf8());
        QVERIFY(bench.insert(0));
        window = std::make_unique<DashboardWindow>();
        window->show();
        QTRY_VERIFY_WITH_TIMEOUT(window->tokenPresent, 5000);
        Ui::DashboardWindow* ui = window->form();
        ui->tabs->setCurrentIndex(3);
        ui->proxyAddressLineEdit->setText(proxy.host());
        ui->proxyPortLineEdit->setText(QString::number(proxy.port()));
        ui->useProxyCheckBox->setChecked(false);
        ui->useProxyCheckBox->setChecked(true);

        ui->tabs->setCurrentIndex(2);
        QTRY_COMPARE_WITH_TIMEOUT(ui->label_type->text(), QString("Vantrel"), kFlowTimeout);
        QCOMPARE(ui->label_title->text(), QString("Bench Vantrel"));
        QCOMPARE(ui->label_info->text(), kActive);
        const QString connect = QString("CONNECT %1:%2").arg(sim.benchName()).arg(sim.httpsPort());
        QVERIFY2(proxy.waitForLog(connect), qPrintable(proxy.readLog()));
        // Both the program and the token GUI library went through it.
        QVERIFY2(countLines(proxy.readLog(), connect) >= 2, qPrintable(proxy.readLog()));
        for (const QString path : {"/a/get-ticket/", "/a/auth-ticket/", "/a/view.json"}) {
            const QJsonArray requests = sim.requests(path);
            QCOMPARE(requests.size(), 1);
            QCOMPARE(ServicesSim::header(requests.at(0), "Host"),
                     QString("%1:%2").arg(sim.benchName()).arg(sim.httpsPort()));
        }
        ui->useProxyCheckBox->setChecked(false);
        DashboardNetworkManager::SetupProxy(ProxyConfig());
    }

    void publishedVersionsFromTheUpdateApi()
    {
        QVERIFY(sim.configure({{"versions", QJsonObject{{"sefw", "9.8.7.1;image.bin;x"}, {"mcfw", "3.0"}}}}));
        TokenUpdate update;
        QVERIFY(fetchPublished(update));
        QCOMPARE(update.seVersion + "|" + update.mcVersion, QString("9.8.7.1|3.0"));
        QStringList packages;
        for (const QJsonValue& request : sim.requests("/api/version.txt")) {
            const QUrlQuery query(QUrl(request["target"].toString()).query());
            QCOMPARE(query.queryItemValue("platform"), QString("hard"));
            packages << query.queryItemValue("package");
        }
        QCOMPARE(packages, (QStringList{"sefw", "mcfw"}));
    }

    // Nothing to compare, or nothing newer: no question.
    void updateNotOffered_data()
    {
        QTest::addColumn<QString>("situation");
        QTest::newRow("key up to date") << "same";
        QTest::newRow("update API fails") << "api";
        QTest::newRow("no key") << "key";
    }

    void updateNotOffered()
    {
        QFETCH(QString, situation);
        if (situation == "api")
            QVERIFY(sim.script(QJsonObject{{"path", "/api/version.txt"}, {"status", 503}}));
        if (situation != "key")
            QVERIFY(bench.insert(0, situation == "same" ? QStringList() : QStringList{"--version1", "1.0.0"}));
        TokenUpdate update;
        QVERIFY(fetchPublished(update));
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
        QVERIFY(fetchPublished(update));
        QSignalSpy finished(&update, &TokenUpdate::updateFinished);
        QSignalSpy result(&update, &TokenUpdate::updateResult);
        ModalSeam::answer(QMessageBox::Ok); // the question; the wait box runs for real
        QVERIFY(update.NeedUpdateToken() != 0);
        QCOMPARE(ModalSeam::seen(), (QStringList{kUpdateAsk, kUpdateWait}));
        QCOMPARE(finished.count(), 1);
        // The box closes on updateFinished; the result is emitted right after it, on the worker.
        QVERIFY(update.wait(5000));
        QCOMPARE(result.count(), 1);
        QCOMPARE(result.at(0).at(0).toInt(), int(QVTOKEN_OK));
        QVERIFY(!update.token);
        QCOMPARE(keyVersions(), QString("1.2.3.256;2.1"));
        QVERIFY(!QApplication::overrideCursor());
        // Now equal: no second question.
        ModalSeam::reset();
        QCOMPARE(update.NeedUpdateToken(), 0);
        QCOMPARE(ModalSeam::seen(), QStringList());
    }

    // Declined, or refused by the key (the wait box still closes): the key keeps its firmware.
    void updateDeclinedOrRefused_data()
    {
        QTest::addColumn<bool>("agree");
        QTest::newRow("declined") << false;
        QTest::newRow("refused by the key") << true;
    }

    void updateDeclinedOrRefused()
    {
        QFETCH(bool, agree);
        QVERIFY(bench.insert(0, {"--version1", "1.2.2", "--fail-upgrade", "6F00"}));
        TokenUpdate update;
        QVERIFY(fetchPublished(update));
        QSignalSpy result(&update, &TokenUpdate::updateResult);
        const int logMark = home.readLog().size();
        ModalSeam::answer(agree ? QMessageBox::Ok : QMessageBox::No);
        const int asked = update.NeedUpdateToken();
        QVERIFY(update.wait(5000));
        QCOMPARE(result.count(), agree ? 1 : 0);
        if (agree) {
            QCOMPARE(result.at(0).at(0).toInt(), int(QVTOKEN_ERR_KEY_REFUSED));
            QVERIFY(!result.at(0).at(1).toString().isEmpty());
        } else {
            QCOMPARE(asked, 0);
            QCOMPARE(ModalSeam::seen(), QStringList{kUpdateAsk});
            QVERIFY(!update.isRunning());
            QVERIFY(!home.readLog().mid(logMark).contains("Starting token update procedure"));
        }
        QCOMPARE(keyVersions(), QString("1.2.2.256;2.1"));
    }
};

QTEST_MAIN(TestKeyStatusAndUpdate)
#include "tst_key_status_and_update.moc"
