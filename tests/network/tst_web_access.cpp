// WebAccess against the services simulator over real HTTPS (verified with the bench CA):
// redirects, bodies, network errors, the exact multipart bytes, downloads, and the stored
// proxy setting in force through a real tinyproxy.
#include "dashboard_network_manager.h"
#include "proxy_sim.h"
#include "services_sim.h"
#include "test_support.h"
#include "web_access.h"
#include "zorvik_proxy.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
#include <QNetworkProxyFactory>
#include <QNetworkReply>
#include <QRegularExpression>
#include <QSignalSpy>
#include <QTcpServer>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

using Fields = QMap<QString, QString>;

namespace {

QJsonObject redirect(const QString& path, const QString& target, int status = 302, const QString& body = QString())
{
    return QJsonObject{{"path", path}, {"status", status}, {"redirect", target}, {"body", body}};
}

QByteArray pattern(int size)
{
    QByteArray bytes(size, Qt::Uninitialized);
    for (int i = 0; i < size; ++i)
        bytes[i] = static_cast<char>(i % 251);
    return bytes;
}

quint16 closedPort()
{
    QTcpServer probe;
    probe.listen(QHostAddress::LocalHost);
    return probe.serverPort();
}

QStringList texts(const QSignalSpy& spy)
{
    QStringList out;
    for (const QList<QVariant>& args : spy)
        out << args.at(0).toString();
    return out;
}

} // namespace

class TestWebAccess : public QObject
{
    Q_OBJECT

    TestHome home;
    ServicesSim sim;
    ProxySim proxy;

    QString logSince(int mark) const { return home.readLog().mid(mark); }

private slots:
    void initTestCase()
    {
        home.apply();
        QVERIFY2(sim.start(), qPrintable(sim.lastError()));
        QVERIFY2(proxy.start(sim), qPrintable(proxy.lastError()));
        sim.applyEnvironment();
        WebAccess::initSSL();
        DashboardNetworkManager::SetupProxy(ProxyConfig());
    }

    void cleanupTestCase() { DashboardNetworkManager::SetupProxy(ProxyConfig()); }

    void init() { QVERIFY(sim.reset()); }

    // The key service's default answer over HTTPS, trusted through the extra CA only.
    void getOverVerifiedTls()
    {
        WebAccess web;
        QSignalSpy finished(&web, &WebAccess::finished);
        const QString ticket = web.syncGet(sim.httpsUrl() + "/a/get-ticket/");
        QVERIFY2(QRegularExpression("^[0-9A-F]{32}$").match(ticket).hasMatch(), qPrintable(ticket));
        QCOMPARE(texts(finished), QStringList{ticket});
        const QJsonArray requests = sim.requests("/a/get-ticket/");
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests.at(0)["listener"].toString(), QString("https"));
        QCOMPARE(requests.at(0)["method"].toString(), QString("GET"));
    }

    // 301/302 are followed while the scheme stays that of the first URL; a relative
    // target is taken on the first server.
    void redirects_data()
    {
        QTest::addColumn<bool>("startHttps");
        QTest::addColumn<QJsonArray>("scripts");
        QTest::addColumn<QString>("result");
        QTest::addColumn<int>("landed");
        QTest::addColumn<bool>("schemeRefused");
        const QJsonObject next{{"path", "/next"}, {"body", "arrived"}};
        QTest::newRow("relative path") << true << QJsonArray{redirect("/start", "/next"), next} << "arrived" << 1
                                       << false;
        QTest::newRow("relative without slash")
            << true << QJsonArray{redirect("/dir/start", "next"), next} << "arrived" << 1 << false;
        QTest::newRow("301 absolute") << true << QJsonArray{redirect("/start", "@https/next", 301), next} << "arrived"
                                      << 1 << false;
        QTest::newRow("https to http refused")
            << true << QJsonArray{redirect("/start", "@http/next", 301, "moved"), next} << "moved" << 0 << true;
        QTest::newRow("http to https refused")
            << false << QJsonArray{redirect("/start", "@https/next", 302, "moved"), next} << "moved" << 0 << true;
        QTest::newRow("303 is not followed")
            << true << QJsonArray{redirect("/start", "/next", 303, "see other"), next} << "see other" << 0 << false;
    }

    void redirects()
    {
        QFETCH(bool, startHttps);
        QFETCH(QJsonArray, scripts);
        QFETCH(QString, result);
        QFETCH(int, landed);
        QFETCH(bool, schemeRefused);
        for (QJsonValueRef script : scripts) {
            QJsonObject o = script.toObject();
            QString target = o.value("redirect").toString();
            target.replace("@https", sim.httpsUrl()).replace("@http", sim.httpUrl());
            if (o.contains("redirect"))
                o["redirect"] = target;
            script = o;
        }
        QVERIFY(sim.script(scripts));

        WebAccess web;
        QSignalSpy errors(&web, &WebAccess::error);
        const int mark = home.readLog().size();
        const QString start = (startHttps ? sim.httpsUrl() : sim.httpUrl()) + scripts.at(0)["path"].toString();
        QCOMPARE(web.syncGet(start), result);
        QCOMPARE(errors.count(), 0);
        QCOMPARE(sim.requests("/next").size(), landed);
        if (landed)
            QCOMPARE(sim.requests("/next").at(0)["listener"].toString(), QString(startHttps ? "https" : "http"));
        QCOMPARE(logSince(mark).contains("Web: Error redirect protocol change"), schemeRefused);
    }

    // Nineteen redirects are followed; the twentieth stops the loop with the body of the
    // last answer.
    void redirectLimit_data()
    {
        QTest::addColumn<int>("hops");
        QTest::addColumn<QString>("result");
        QTest::addColumn<int>("requests");
        QTest::newRow("19 redirects") << 19 << "end" << 20;
        QTest::newRow("20 redirects") << 20 << "hop 19" << 20;
    }

    void redirectLimit()
    {
        QFETCH(int, hops);
        QFETCH(QString, result);
        QFETCH(int, requests);
        QJsonArray chain;
        for (int i = 0; i < hops; ++i)
            chain.append(redirect(QString("/r/%1").arg(i), QString("/r/%1").arg(i + 1), 302, QString("hop %1").arg(i)));
        chain.append(QJsonObject{{"path", QString("/r/%1").arg(hops)}, {"body", "end"}});
        QVERIFY(sim.script(chain));
        WebAccess web;
        QCOMPARE(web.syncGet(sim.httpsUrl() + "/r/0"), result);
        QCOMPARE(sim.requests().size(), requests);
    }

    // Bodies: cut at the first NUL byte; a non-200 status without a network error still
    // gives its body.
    void bodies_data()
    {
        QTest::addColumn<QJsonObject>("script");
        QTest::addColumn<QString>("result");
        QTest::newRow("NUL byte") << QJsonObject{{"body_base64", QString(QByteArray("before\0after", 12).toBase64())}}
                                  << "before";
        QTest::newRow("UTF-8") << QJsonObject{{"body", QString::fromUtf8("Grüße €")}} << QString::fromUtf8("Grüße €");
        QTest::newRow("201 with body") << QJsonObject{{"status", 201}, {"body", "created"}} << "created";
        QTest::newRow("unknown length") << QJsonObject{{"body", "no length"}, {"length", "none"}} << "no length";
    }

    void bodies()
    {
        QFETCH(QJsonObject, script);
        QFETCH(QString, result);
        script["path"] = "/body";
        QVERIFY(sim.script(script));
        WebAccess web;
        QSignalSpy errors(&web, &WebAccess::error);
        QCOMPARE(web.syncGet(sim.httpsUrl() + "/body"), result);
        QCOMPARE(errors.count(), 0);
    }

    // Network errors: an empty result, one error signal with the Qt error number, a log line.
    void networkErrors_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QJsonObject>("script");
        QTest::addColumn<int>("code");
        QTest::newRow("404") << "@https/missing" << QJsonObject{{"path", "/missing"}, {"status", 404}, {"body", "gone"}}
                             << int(QNetworkReply::ContentNotFoundError);
        QTest::newRow("closed without answer") << "@http/drop" << QJsonObject{{"path", "/drop"}, {"close", true}}
                                               << int(QNetworkReply::RemoteHostClosedError);
        QTest::newRow("untrusted certificate")
            << "@bad/a/get-ticket/" << QJsonObject() << int(QNetworkReply::SslHandshakeFailedError);
        QTest::newRow("nobody listening") << "@closed/x" << QJsonObject() << int(QNetworkReply::ConnectionRefusedError);
    }

    void networkErrors()
    {
        QFETCH(QString, url);
        QFETCH(QJsonObject, script);
        QFETCH(int, code);
        if (!script.isEmpty())
            QVERIFY(sim.script(script));
        url.replace("@https", sim.httpsUrl())
            .replace("@http", sim.httpUrl())
            .replace("@bad", sim.badTlsUrl())
            .replace("@closed", QString("http://127.0.0.1:%1").arg(closedPort()));

        WebAccess web;
        QSignalSpy errors(&web, &WebAccess::error);
        const int mark = home.readLog().size();
        QCOMPARE(web.syncGet(url), QString());
        const QString expected = QString("Web: network error: %1").arg(code);
        QCOMPARE(texts(errors), QStringList{expected});
        QVERIFY(logSince(mark).contains(expected));
        QVERIFY(logSince(mark).contains("Web: finishing loop, error 1"));
    }

    // The multipart body byte for byte, with the boundary derived from the clock.
    void multipartBytes_data()
    {
        QTest::addColumn<Fields>("params");
        QTest::addColumn<QString>("fileName");
        QTest::addColumn<QByteArray>("data");
        QTest::addColumn<bool>("filePart");
        const Fields params{{"version", "3.4.375"}, {"Os", QString::fromUtf8("Debian 12 – ü")}};
        const QByteArray data("line 1\r\nbinary \0\xff end", 20);
        QTest::newRow("fields and file") << params << "/tmp/whatever.txt" << data << true;
        QTest::newRow("no file name") << params << "" << data << false;
        QTest::newRow("file only") << Fields() << "x" << QByteArray() << true;
    }

    void multipartBytes()
    {
        QFETCH(Fields, params);
        QFETCH(QString, fileName);
        QFETCH(QByteArray, data);
        QFETCH(bool, filePart);
        QVERIFY(sim.script(QJsonObject{{"path", "/api/report"}, {"method", "POST"}, {"body", "received"}}));

        const QDateTime before = QDateTime::currentDateTime();
        WebAccess web;
        QCOMPARE(web.syncPost(sim.httpsUrl() + "/api/report", params, fileName, data), QString("received"));
        const QDateTime after = QDateTime::currentDateTime();

        const QJsonArray requests = sim.requests("/api/report");
        QCOMPARE(requests.size(), 1);
        const QString contentType = ServicesSim::header(requests.at(0), "Content-Type");
        QVERIFY(contentType.startsWith("multipart/form-data; boundary="));
        const QString boundary = contentType.section('=', 1);

        QStringList candidates;
        for (QDateTime t = before.addSecs(-1); t <= after.addSecs(1); t = t.addSecs(1))
            candidates << QString::number(static_cast<uint>(qHash(t.toString(), 0) * 123u), 16);
        QVERIFY2(candidates.contains(boundary), qPrintable(boundary + " not in " + candidates.join(',')));

        QByteArray expected;
        for (auto it = params.constBegin(); it != params.constEnd(); ++it)
            expected += "--" + boundary.toLatin1() + "\r\nContent-Disposition: form-data; name=\"" + it.key().toUtf8() +
                        "\"\r\n\r\n" + it.value().toUtf8() + "\r\n";
        if (filePart)
            expected += "--" + boundary.toLatin1() +
                        "\r\nContent-Disposition: form-data; name=\"log\"; filename=\"crash.log\"\r\n"
                        "Content-Type: text/plain; charset=utf-8\r\n\r\n" +
                        data + "\r\n";
        expected += "--" + boundary.toLatin1() + "--\r\n";
        QCOMPARE(ServicesSim::body(requests.at(0)), expected);
        QCOMPARE(ServicesSim::header(requests.at(0), "Content-Length"), QString::number(expected.size()));
    }

    // A download: the file, and progress up to 100 percent when the length is known.
    void downloads_data()
    {
        QTest::addColumn<bool>("length");
        QTest::newRow("known length") << true;
        QTest::newRow("unknown length") << false;
    }

    void downloads()
    {
        QFETCH(bool, length);
        QJsonObject script{{"path", "/pkg/pack-3.5.0.zip"}, {"body_size", 300000}, {"chunk_size", 30000},
                           {"chunk_delay", 0.02}};
        if (!length)
            script["length"] = "none";
        QVERIFY(sim.script(script));
        QTemporaryDir dir;
        WebAccess web;
        QSignalSpy progress(&web, &WebAccess::progress);
        QSignalSpy completed(&web, &WebAccess::downloadCompleted);
        QSignalSpy errors(&web, &WebAccess::error);
        QVERIFY(web.download("  " + sim.httpsUrl() + "/pkg/pack-3.5.0.zip  ", dir.path()));
        QVERIFY(completed.wait(20000));
        QCOMPARE(texts(completed), QStringList{"pack-3.5.0.zip"});
        QCOMPARE(readFile(dir.path() + "/pack-3.5.0.zip"), pattern(300000));
        QCOMPARE(errors.count(), 0);
        QCOMPARE(progress.count() >= 2, length);
        int last = length ? -1 : 100;
        for (const QList<QVariant>& args : progress) {
            QVERIFY(args.at(0).toInt() >= last && args.at(0).toInt() <= 100);
            last = args.at(0).toInt();
        }
        QCOMPARE(last, 100);
    }

    // Aborting deletes the partial file and reports nothing but the log line.
    void abortDeletesPartialFile()
    {
        QVERIFY(sim.script(QJsonObject{
            {"path", "/pkg/big.zip"}, {"body_size", 2000000}, {"chunk_size", 10000}, {"chunk_delay", 0.05}}));
        QTemporaryDir dir;
        const QString path = dir.path() + "/big.zip";
        WebAccess web;
        QSignalSpy progress(&web, &WebAccess::progress);
        QSignalSpy completed(&web, &WebAccess::downloadCompleted);
        QSignalSpy errors(&web, &WebAccess::error);
        const int mark = home.readLog().size();
        QVERIFY(web.download(sim.httpsUrl() + "/pkg/big.zip", dir.path()));
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(path).size() > 0, 20000);
        web.abortDownload();
        QVERIFY(!QFile::exists(path));
        QCOMPARE(completed.count(), 0);
        QCOMPARE(errors.count(), 0);
        QVERIFY(progress.count() > 0);
        const QString log = logSince(mark);
        QVERIFY(log.contains("Web: aborting download " + path));
        QVERIFY(log.contains("Web: download cancelled"));

        // An object that goes away in the middle of a download leaves quietly.
        auto gone = std::make_unique<WebAccess>();
        QVERIFY(gone->download(sim.httpsUrl() + "/pkg/big.zip", dir.path()));
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(path).size() > 0, 20000);
        gone.reset();
    }

    // Local file problems: a missing directory refuses the download before any request; a
    // directory that vanishes midway ends it with an error.
    void localFileProblems()
    {
        WebAccess web;
        QSignalSpy errors(&web, &WebAccess::error);
        QSignalSpy completed(&web, &WebAccess::downloadCompleted);
        QVERIFY(!web.download(sim.httpsUrl() + "/pkg/pack.zip", home.path() + "/no/such/dir"));
        QCOMPARE(texts(errors), QStringList{"Cannot download file pack.zip to the local system"});
        QVERIFY(home.readLog().contains("Web: cannot create local file " + home.path() + "/no/such/dir/pack.zip"));

        QVERIFY(sim.script(QJsonObject{
            {"path", "/pkg/slow.zip"}, {"body_size", 1000000}, {"chunk_size", 10000}, {"chunk_delay", 0.05}}));
        auto dir = std::make_unique<QTemporaryDir>();
        const QString path = dir->path() + "/slow.zip";
        QVERIFY(web.download(sim.httpsUrl() + "/pkg/slow.zip", dir->path()));
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(path).size() > 0, 20000);
        dir.reset();
        QVERIFY(errors.wait(20000));
        QCOMPARE(errors.at(1).at(0).toString(), "Cannot write local file " + path);
        QVERIFY(!QFile::exists(path));
        QCOMPARE(completed.count(), 0);
        // A request wrongly sent for the refused download would have been logged before this one.
        QCOMPARE(sim.requests("/pkg/pack.zip").size(), 0);
    }

    // The stored proxy in force, as the Advanced tab stores and installs it: enabled, requests
    // for a name only the proxy resolves go by CONNECT through it; disabled, the address stays
    // stored and nothing is proxied; enabled but not there, requests fail.
    void storedProxy_data()
    {
        QTest::addColumn<QString>("proxyState");
        QTest::newRow("enabled") << "enabled";
        QTest::newRow("disabled") << "disabled";
        QTest::newRow("dead") << "dead";
    }

    void storedProxy()
    {
        QFETCH(QString, proxyState);
        const QString address = proxyState == "dead" ? QString("127.0.0.1:%1").arg(closedPort())
                                                     : QString("%1:%2").arg(proxy.host()).arg(proxy.port());
        QCOMPARE(zorvikpc_set_proxy(1, address.toLatin1().constData(), proxyState != "disabled"), 0);
        DashboardNetworkManager::SetupProxy(DashboardNetworkManager::readProxySettings());
        const int proxied = countLines(proxy.readLog(), "Request (file descriptor");
        const QString url = (proxyState == "disabled" ? sim.httpsUrl() : sim.proxiedHttpsUrl()) + "/a/get-ticket/";
        WebAccess web;
        QSignalSpy errors(&web, &WebAccess::error);
        const QString ticket = web.syncGet(url);
        QCOMPARE(QNetworkProxyFactory::proxyForQuery(QNetworkProxyQuery(QUrl(sim.proxiedHttpsUrl()))).value(0).type(),
                 proxyState == "disabled" ? QNetworkProxy::NoProxy : QNetworkProxy::HttpProxy);
        if (proxyState == "dead") {
            QCOMPARE(ticket, QString());
            QVERIFY(texts(errors).value(0).startsWith("Web: network error: "));
            QCOMPARE(sim.requests("/a/get-ticket/").size(), 0);
            return;
        }
        QVERIFY2(QRegularExpression("^[0-9A-F]{32}$").match(ticket).hasMatch(), qPrintable(ticket));
        const QJsonArray requests = sim.requests("/a/get-ticket/");
        QCOMPARE(requests.size(), 1);
        QCOMPARE(requests.at(0)["listener"].toString(), QString("https"));
        if (proxyState == "disabled") {
            const ProxyConfig stored = DashboardNetworkManager::readProxySettings();
            QCOMPARE(stored.host + ":" + stored.port, address);
            QCOMPARE(countLines(proxy.readLog(), "Request (file descriptor"), proxied);
            return;
        }
        // The tunnel ends at the simulator's HTTPS listener; a POST takes the same way.
        const QString hostPort = QString("%1:%2").arg(sim.benchName()).arg(sim.httpsPort());
        QVERIFY2(proxy.waitForLog("CONNECT " + hostPort), qPrintable(proxy.readLog()));
        QCOMPARE(ServicesSim::header(requests.at(0), "Host"), hostPort);
        QVERIFY(!web.syncPost(sim.proxiedHttpsUrl() + "/a/view.json", {{"ticket", ticket}}, QString(), QByteArray())
                     .isEmpty());
        QCOMPARE(sim.requests("/a/view.json").size(), 1);
    }
};

QTEST_GUILESS_MAIN(TestWebAccess)
#include "tst_web_access.moc"
