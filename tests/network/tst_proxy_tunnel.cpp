// The stored proxy setting in force: requests go through a real tinyproxy by CONNECT while
// it is enabled, and straight to the service again once it is disabled.
#include "dashboard_network_manager.h"
#include "proxy_sim.h"
#include "services_sim.h"
#include "test_support.h"
#include "web_access.h"
#include "zorvik_proxy.h"

#include <QNetworkProxyFactory>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTest>

namespace {

// What the Advanced tab does after an edit: store, read back, install.
void storeAndInstall(const QString& address, bool enabled)
{
    QCOMPARE(zorvikpc_set_proxy(1, address.toLatin1().constData(), enabled), 0);
    DashboardNetworkManager::SetupProxy(DashboardNetworkManager::readProxySettings());
}

QNetworkProxy::ProxyType proxyTypeFor(const QString& url)
{
    return QNetworkProxyFactory::proxyForQuery(QNetworkProxyQuery(QUrl(url))).value(0).type();
}

} // namespace

class TestProxyTunnel : public QObject
{
    Q_OBJECT

    TestHome home;
    ServicesSim sim;
    ProxySim proxy;

    QString proxyAddress() const { return QString("%1:%2").arg(proxy.host()).arg(proxy.port()); }
    int proxiedRequests() const { return countLines(proxy.readLog(), "Request (file descriptor"); }

private slots:
    void initTestCase()
    {
        home.apply();
        QVERIFY2(sim.start(), qPrintable(sim.lastError()));
        QVERIFY2(proxy.start(sim), qPrintable(proxy.lastError()));
        sim.applyEnvironment();
        WebAccess::initSSL();
    }

    void cleanupTestCase() { DashboardNetworkManager::SetupProxy(ProxyConfig()); }

    void init() { QVERIFY(sim.reset()); }

    void throughProxyWhenEnabled()
    {
        storeAndInstall(proxyAddress(), true);
        QCOMPARE(proxyTypeFor(sim.proxiedHttpsUrl()), QNetworkProxy::HttpProxy);

        WebAccess web;
        const QString ticket = web.syncGet(sim.proxiedHttpsUrl() + "/a/get-ticket/");
        QVERIFY2(QRegularExpression("^[0-9A-F]{32}$").match(ticket).hasMatch(), qPrintable(ticket));
        QVERIFY2(proxy.waitForLog(QString("CONNECT %1:%2").arg(sim.benchName()).arg(sim.httpsPort())),
                 qPrintable(proxy.readLog()));
        // The tunnel ends at the simulator's HTTPS listener, which saw the request itself.
        const QJsonArray requests = sim.requests("/a/get-ticket/");
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests.at(0)["listener"].toString(), QString("https"));
        QCOMPARE(ServicesSim::header(requests.at(0), "Host"),
                 QString("%1:%2").arg(sim.benchName()).arg(sim.httpsPort()));

        // A POST takes the same way.
        QCOMPARE(web.syncPost(sim.proxiedHttpsUrl() + "/a/view.json", {{"ticket", ticket}}, QString(), QByteArray())
                     .isEmpty(),
                 false);
        QCOMPARE(sim.requests("/a/view.json").size(), 1);
    }

    void directWhenDisabled()
    {
        storeAndInstall(proxyAddress(), true);
        storeAndInstall(proxyAddress(), false);
        // The address stays stored; nothing is proxied any more.
        const ProxyConfig stored = DashboardNetworkManager::readProxySettings();
        QCOMPARE(stored.host + ":" + stored.port, proxyAddress());
        QCOMPARE(QNetworkProxy::applicationProxy().type(), QNetworkProxy::NoProxy);
        QCOMPARE(proxyTypeFor(sim.proxiedHttpsUrl()), QNetworkProxy::NoProxy);

        const int before = proxiedRequests();
        WebAccess web;
        QVERIFY(!web.syncGet(sim.httpsUrl() + "/a/get-ticket/").isEmpty());
        QCOMPARE(sim.requests("/a/get-ticket/").size(), 1);
        QCOMPARE(proxiedRequests(), before);
    }

    // An enabled proxy that is not there makes requests fail: the setting is really used.
    void deadProxyFails()
    {
        quint16 closedPort = 0;
        {
            QTcpServer probe;
            QVERIFY(probe.listen(QHostAddress::LocalHost));
            closedPort = probe.serverPort();
        }
        storeAndInstall(QString("127.0.0.1:%1").arg(closedPort), true);
        WebAccess web;
        QSignalSpy errors(&web, &WebAccess::error);
        QCOMPARE(web.syncGet(sim.proxiedHttpsUrl() + "/a/get-ticket/"), QString());
        QCOMPARE(errors.count(), 1);
        QVERIFY(errors.at(0).at(0).toString().startsWith("Web: network error: "));
        QCOMPARE(sim.requests("/a/get-ticket/").size(), 0);
    }
};

QTEST_GUILESS_MAIN(TestProxyTunnel)
#include "tst_proxy_tunnel.moc"
