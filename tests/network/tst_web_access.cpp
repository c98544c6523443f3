// WebAccess against the services simulator over real HTTPS (verified with the bench CA):
// redirects, bodies, network errors, the exact multipart bytes, downloads, and the stored
// proxy setting in force through a real tinyproxy.
#include "dashboard_network_manager.h"
#include "proxy_sim.h"
#include "services_sim.h"
#include "test_support.h"
#include "web_access.h"
#include "zorvik_proxy.h"

#include <QHostAddress>
#include <QJsonArray>
#include <QJsonObject>
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

    // "@https", "@http" and "@bad" stand for the simulator's listeners.
    QString resolve(QString url) const
    {
        return url.replace("@https", sim.httpsUrl()).replace("@http", sim.httpUrl()).replace("@bad", sim.badTlsUrl());
    }

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

    // What a GET gives: the body as UTF-8 up to the first NUL byte, also with a status other
    // than 200; 301/302 followed up to the twentieth, while the scheme stays that of the first
    // URL, a relative target taken on the first server; a network error gives an empty
    // result and one error signal with the Qt error number.
    void getAnswers_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QJsonArray>("scripts");
        QTest::addColumn<QString>("result");
        QTest::addColumn<QString>("error");
        const QJsonObject next{{"path", "/next"}, {"body", "arrived"}};
        const auto body = [](int status, const QByteArray& bytes) {
            return QJsonArray{
                QJsonObject{{"path", "/b"}, {"status", status}, {"body_base64", QString(bytes.toBase64())}}};
        };
        QTest::newRow("NUL byte") << "@https/b" << body(200, QByteArray("befor\xc3\xa9\0after", 13))
                                  << QString::fromUtf8("beforé") << "";
        QTest::newRow("201 with body") << "@https/b" << body(201, "created") << "created"
                                       << "";
        QTest::newRow("relative redirect")
            << "@https/start" << QJsonArray{redirect("/start", "/next"), next} << "arrived"
            << "";
        QTest::newRow("relative without slash")
            << "@https/dir/start" << QJsonArray{redirect("/dir/start", "next"), next} << "arrived"
            << "";
        QTest::newRow("301 absolute") << "@https/start" << QJsonArray{redirect("/start", "@https/next", 301), next}
                                      << "arrived"
                                      << "";
        QTest::newRow("https to http refused")
            << "@https/start" << QJsonArray{redirect("/start", "@http/next", 301, "moved"), next} << "moved"
            << "";
        QTest::newRow("303 is not followed")
            << "@https/start" << QJsonArray{redirect("/start", "/next", 303, "see other"), next} << "see other"
            << "";
        QJsonArray chain;
        for (int i = 0; i < 20; ++i)
            chain.append(redirect(QString("/r/%1").arg(i), QString("/r/%1").arg(i + 1), 302, QString("hop %1").arg(i)));
        chain.append(QJsonObject{{"path", "/r/20"}, {"body", "end"}});
        QTest::newRow("20 redirects") << "@https/r/0" << chain << "hop 19"
                                      << "";
        QTest::newRow("404") << "@https/b" << body(404, "gone") << ""
                             << QString("Web: network error: %1").arg(QNetworkReply::ContentNotFoundError);
        QTest::newRow("untrusted certificate")
            << "@bad/a/get-ticket/" << QJsonArray() << ""
            << QString("Web: network error: %1").arg(QNetworkReply::SslHandshakeFailedError);
    }

    void getAnswers()
    {
        QFETCH(QString, url);
        QFETCH(QJsonArray, scripts);
        QFETCH(QString, error);
        for (QJsonValueRef script : scripts) {
            QJsonObject o = script.toObject();
            if (o.contains("redirect"))
                o["redirect"] = resolve(o["redirect"].toString());
            script = o;
        }
        QVERIFY(sim.script(scripts));
        WebAccess web;
        QSignalSpy errors(&web, &WebAccess::error);
        QTEST(web.syncGet(resolve(url)), "result");
        QCOMPARE(texts(errors), error.isEmpty() ? QStringList() : QStringList{error});
    }

    // The multipart body byte for byte, with the boundary derived from the clock.
    void multipartBytes_data()
    {
        QTest::addColumn<QString>("fileName");
        QTest::newRow("fields and file") << "/tmp/whatever.txt";
        QTest::newRow("no file name") << "";
    }

    void multipartBytes()
    {
        QFETCH(QString, fileName);
        const Fields params{{"version", "3.4.375"}, {"Os", QString::fromUtf8("Debian 12 – ü")}};
        const QByteArray data("line 1\r\nbinary \0\xff end", 20);
        QVERIFY(sim.script(QJsonObject{{"path", "/api/report"}, {"method", "POST"}, {"body", "received"}}));

        WebAccess web;
        QCOMPARE(web.syncPost(sim.httpsUrl() + "/api/report", params, fileName, data), QString("received"));

        const QJsonArray requests = sim.requests("/api/report");
        QCOMPARE(requests.size(), 1);
        const QString contentType = ServicesSim::header(requests.at(0), "Content-Type");
        QVERIFY(contentType.startsWith("multipart/form-data; boundary="));
        const QByteArray boundary = contentType.section('=', 1).toLatin1();

        QByteArray expected;
        for (auto it = params.constBegin(); it != params.constEnd(); ++it)
            expected += "--" + boundary + "\r\nContent-Disposition: form-data; name=\"" + it.key().toUtf8() +
                        "\"\r\n\r\n" + it.value().toUtf8() + "\r\n";
        if (!fileName.isEmpty())
            expected += "--" + boundary +
                        "\r\nContent-Disposition: form-data; name=\"log\"; filename=\"crash.log\"\r\n"
                        "Content-Type: text/plain; charset=utf-8\r\n\r\n" +
                        data + "\r\n";
        expected += "--" + boundary + "--\r\n";
        QCOMPARE(ServicesSim::body(requests.at(0)), expected);
        QCOMPARE(ServicesSim::header(requests.at(0), "Content-Length"), QString::number(expected.size()));
    }

    // Local file problems: a missing directory refuses the download before any request; a
    // directory that vanishes midway ends it with an error and no file.
    void localFileProblems()
    {
        WebAccess web;
        QSignalSpy errors(&web, &WebAccess::error);
        QSignalSpy completed(&web, &WebAccess::downloadCompleted);
        QVERIFY(!web.download(sim.httpsUrl() + "/pkg/pack.zip", home.path() + "/no/such/dir"));
        QCOMPARE(texts(errors), QStringList{"Cannot download file pack.zip to the local system"});

        QVERIFY(sim.script(QJsonObject{
            {"path", "/pkg/slow.zip"}, {"body_size", 1000000}, {"chunk_size", 10000}, {"chunk_delay", 0.05}}));
        auto dir = std::make_unique<QTemporaryDir>();
        const QString path = dir->path() + "/slow.zip";
        QVERIFY(web.download("  " + sim.httpsUrl() + "/pkg/slow.zip  ", dir->path())); // trimmed
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(path).size() > 0, 20000);
        dir.reset();
        QVERIFY(errors.wait(20000));
        QCOMPARE(errors.at(1).at(0).toString(), "Cannot write local file " + path);
        QVERIFY(!QFile::exists(path));
        QCOMPARE(completed.count(), 0);
        // A request wrongly sent for the refused download would have been logged before this one.
        QCOMPARE(sim.requests("/pkg/pack.zip").size(), 0);

        // An object that goes away in the middle of a download leaves quietly.
        QTemporaryDir other;
        auto gone = std::make_unique<WebAccess>();
        QVERIFY(gone->download(sim.httpsUrl() + "/pkg/slow.zip", other.path()));
        QTRY_VERIFY_WITH_TIMEOUT(QFileInfo(other.path() + "/slow.zip").size() > 0, 20000);
        gone.reset();
    }

    // The stored proxy in force, as the Advanced tab stores and installs it: requests for a
    // name only the proxy resolves go by CONNECT through it; a proxy that is not there fails them.
    void storedProxy()
    {
        const auto useProxy = [](const QString& address) {
            QCOMPARE(zorvikpc_set_proxy(1, address.toLatin1().constData(), 1), 0);
            DashboardNetworkManager::SetupProxy(DashboardNetworkManager::readProxySettings());
        };
        useProxy(QString("%1:%2").arg(proxy.host()).arg(proxy.port()));
        WebAccess web;
        QSignalSpy errors(&web, &WebAccess::error);
        const QString ticket = web.syncGet(sim.proxiedHttpsUrl() + "/a/get-ticket/");
        const QJsonArray requests = sim.requests("/a/get-ticket/");
        QCOMPARE(requests.size(), 1);
        // The tunnel ends at the simulator's HTTPS listener; a POST takes the same way.
        QVERIFY2(QRegularExpression("^[0-9A-F]{32}$").match(ticket).hasMatch(), qPrintable(ticket));
        QCOMPARE(requests.at(0)["listener"].toString(), QString("https"));
        const QString hostPort = QString("%1:%2").arg(sim.benchName()).arg(sim.httpsPort());
        QVERIFY2(proxy.waitForLog("CONNECT " + hostPort), qPrintable(proxy.readLog()));
        QVERIFY(!web.syncPost(sim.proxiedHttpsUrl() + "/a/view.json", {{"ticket", ticket}}, QString(), QByteArray())
                     .isEmpty());
        QCOMPARE(sim.requests("/a/view.json").size(), 1);
        QCOMPARE(errors.count(), 0);

        QTcpServer probe;
        QVERIFY(probe.listen(QHostAddress::LocalHost));
        const quint16 closed = probe.serverPort();
        probe.close();
        useProxy(QString("127.0.0.1:%1").arg(closed));
        QVERIFY(web.syncGet(sim.proxiedHttpsUrl() + "/a/get-ticket/").isEmpty());
        QCOMPARE(errors.count(), 1);
    }
};

QTEST_GUILESS_MAIN(TestWebAccess)
#include "tst_web_access.moc"
