#include "services_sim.h"

#include "bench.h"
#include "test_support.h"
#include "web_access.h"

#include <QDeadlineTimer>
#include <QJsonDocument>
#include <QNetworkProxy>
#include <QTcpSocket>
#include <QTest>
#include <QUrl>

bool ServicesSim::start(int timeoutMs)
{
    stop();
    workDir = std::make_unique<QTemporaryDir>();
    if (!workDir->isValid()) {
        error = "cannot create a temporary directory";
        return false;
    }
    process.setStandardErrorFile(dir() + "/stderr.txt");
    process.start("python3",
                  {ZORVIK_SOURCE_DIR "/testbed/zorvik-services", "--dir", dir(), "--port-file", dir() + "/ports.json"});
    // The simulator prints one "READY {...}" line once every listener is bound.
    QByteArray line;
    const QDeadlineTimer deadline(timeoutMs);
    while (!line.startsWith("READY ") && !deadline.hasExpired()) {
        if (process.canReadLine())
            line = process.readLine().trimmed();
        else if (!process.waitForReadyRead(static_cast<int>(deadline.remainingTime())) &&
                 process.state() != QProcess::Running)
            break;
    }
    if (!line.startsWith("READY ")) {
        error = "the services simulator did not start: " + QString::fromUtf8(readFile(dir() + "/stderr.txt"));
        stop();
        return false;
    }
    const QJsonObject description = QJsonDocument::fromJson(line.mid(6)).object();
    ports[0] = static_cast<quint16>(description.value("https").toInt());
    ports[1] = static_cast<quint16>(description.value("http").toInt());
    ports[2] = static_cast<quint16>(description.value("bad_tls").toInt());
    name = description.value("name").toString();
    return true;
}

void ServicesSim::stop()
{
    stopProcess(process);
    ports[0] = ports[1] = ports[2] = 0;
}

ServicesSim::Reply ServicesSim::control(const QByteArray& method, const QString& path, const QByteArray& body) const
{
    QTcpSocket socket;
    socket.setProxy(QNetworkProxy::NoProxy);
    socket.connectToHost("127.0.0.1", ports[1]);
    if (!socket.waitForConnected(5000))
        return {};
    socket.write(method + ' ' + path.toUtf8() + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n" +
                 (body.isEmpty() ? "" : "Content-Type: application/json\r\n") +
                 "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body);
    // The simulator closes the connection after its answer.
    const QDeadlineTimer deadline(15000);
    while (socket.state() == QAbstractSocket::ConnectedState && !deadline.hasExpired())
        socket.waitForReadyRead(static_cast<int>(qMax<qint64>(1, deadline.remainingTime())));
    const QByteArray answer = socket.readAll();
    const int headerEnd = answer.indexOf("\r\n\r\n");
    const QList<QByteArray> statusLine = answer.left(answer.indexOf("\r\n")).split(' ');
    if (headerEnd < 0 || statusLine.size() < 2)
        return {};
    return {statusLine.at(1).toInt(), answer.mid(headerEnd + 4)};
}

bool ServicesSim::post(const QString& path, const QJsonValue& json) const
{
    const QJsonDocument document = json.isArray() ? QJsonDocument(json.toArray()) : QJsonDocument(json.toObject());
    return control("POST", path, document.toJson(QJsonDocument::Compact)).status == 200;
}

QJsonArray ServicesSim::requests(const QString& path) const
{
    const QString query = path.isEmpty() ? QString() : "?path=" + QString::fromUtf8(QUrl::toPercentEncoding(path));
    return QJsonDocument::fromJson(control("GET", "/_control/requests" + query).body).array();
}

bool ServicesSim::waitForRequests(const QString& path, int count, int timeoutMs) const
{
    return QTest::qWaitFor([&] { return requests(path).size() >= count; }, testTime(timeoutMs));
}

void ServicesSim::addTo(QProcessEnvironment* env) const
{
    for (const char* key : {"ZORVIK_KEYSERVICE_URL", "ZORVIK_UPDATE_URL", "ZORVIK_CHANGELOG_URL", "ZORVIK_SUPPORT_URL"})
        env->insert(key, httpsUrl());
    env->insert("ZORVIK_EXTRA_CA", caFile());
}

void ServicesSim::applyEnvironment() const
{
    QProcessEnvironment env;
    addTo(&env);
    for (const QString& key : env.keys())
        qputenv(key.toLocal8Bit(), env.value(key).toLocal8Bit());
}

QByteArray ServicesSim::body(const QJsonValue& request)
{
    return QByteArray::fromBase64(request.toObject().value("body_base64").toString().toLatin1());
}

QString ServicesSim::header(const QJsonValue& request, const QString& name)
{
    for (const QJsonValue& pair : request.toObject().value("headers").toArray()) {
        if (pair.toArray().at(0).toString().compare(name, Qt::CaseInsensitive) == 0)
            return pair.toArray().at(1).toString();
    }
    return QString();
}

QString startServicesAndBench(const TestHome& home, ServicesSim& sim, Bench& bench)
{
    if (!home.isValid())
        return "no temporary home";
    home.apply();
    if (!sim.start())
        return sim.lastError();
    sim.applyEnvironment();
    WebAccess::initSSL();
    return bench.start() ? QString() : bench.errorText();
}
