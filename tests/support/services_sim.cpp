#include "services_sim.h"

#include "bench.h"
#include "test_support.h"
#include "web_access.h"

#include <QDeadlineTimer>
#include <QFile>
#include <QJsonDocument>
#include <QNetworkProxy>
#include <QTcpSocket>
#include <QTest>
#include <QUrl>

namespace {
const char* const kScript = ZORVIK_SOURCE_DIR "/testbed/zorvik-services";
} // namespace

ServicesSim::ServicesSim() = default;

ServicesSim::~ServicesSim()
{
    stop();
}

bool ServicesSim::start(int timeoutMs)
{
    stop();
    workDir = std::make_unique<QTemporaryDir>();
    if (!workDir->isValid()) {
        error = "cannot create a temporary directory";
        return false;
    }
    process.setProcessChannelMode(QProcess::SeparateChannels);
    process.setStandardErrorFile(workDir->path() + "/stderr.txt");
    process.start("python3", {kScript, "--dir", workDir->path(), "--port-file", workDir->path() + "/ports.json"});
    if (!process.waitForStarted(timeoutMs)) {
        error = "cannot run python3: " + process.errorString();
        return false;
    }
    // The simulator prints one "READY {...}" line once every listener is bound.
    QDeadlineTimer deadline(timeoutMs);
    QByteArray line;
    while (!deadline.hasExpired()) {
        if (!process.canReadLine() && !process.waitForReadyRead(static_cast<int>(deadline.remainingTime()))) {
            if (process.state() != QProcess::Running)
                break;
            continue;
        }
        line = process.readLine().trimmed();
        if (line.startsWith("READY "))
            break;
    }
    if (!line.startsWith("READY ")) {
        QFile err(workDir->path() + "/stderr.txt");
        err.open(QIODevice::ReadOnly);
        error = "the services simulator did not start: " + QString::fromUtf8(err.readAll());
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
    if (process.state() != QProcess::NotRunning) {
        process.terminate();
        if (!process.waitForFinished(10000)) {
            process.kill();
            process.waitForFinished(5000);
        }
    }
    ports[0] = ports[1] = ports[2] = 0;
}

bool ServicesSim::isRunning() const
{
    return process.state() == QProcess::Running && ports[1] != 0;
}

QString ServicesSim::httpsUrl() const
{
    return QString("https://127.0.0.1:%1").arg(ports[0]);
}

QString ServicesSim::httpUrl() const
{
    return QString("http://127.0.0.1:%1").arg(ports[1]);
}

QString ServicesSim::badTlsUrl() const
{
    return QString("https://127.0.0.1:%1").arg(ports[2]);
}

QString ServicesSim::proxiedHttpsUrl() const
{
    return QString("https://%1:%2").arg(name).arg(ports[0]);
}

QString ServicesSim::caFile() const
{
    return dir() + "/ca.pem";
}

ServicesSim::Reply ServicesSim::control(const QByteArray& method, const QString& path, const QByteArray& body) const
{
    Reply reply;
    QTcpSocket socket;
    socket.setProxy(QNetworkProxy::NoProxy);
    socket.connectToHost("127.0.0.1", ports[1]);
    if (!socket.waitForConnected(5000))
        return reply;
    QByteArray request = method + ' ' + path.toUtf8() + " HTTP/1.1\r\nHost: 127.0.0.1\r\nConnection: close\r\n";
    if (!body.isEmpty())
        request += "Content-Type: application/json\r\n";
    request += "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
    socket.write(request);
    QByteArray answer;
    QDeadlineTimer deadline(15000);
    while (!deadline.hasExpired()) {
        if (socket.state() != QAbstractSocket::ConnectedState && socket.bytesAvailable() == 0)
            break;
        if (!socket.waitForReadyRead(static_cast<int>(qMax<qint64>(1, deadline.remainingTime()))))
            break;
        answer += socket.readAll();
    }
    answer += socket.readAll();
    const int headerEnd = answer.indexOf("\r\n\r\n");
    const QList<QByteArray> statusLine = answer.left(answer.indexOf("\r\n")).split(' ');
    if (headerEnd < 0 || statusLine.size() < 2)
        return reply;
    reply.status = statusLine.at(1).toInt();
    reply.body = answer.mid(headerEnd + 4);
    return reply;
}

bool ServicesSim::script(const QJsonObject& answer)
{
    return script(QJsonArray{answer});
}

bool ServicesSim::script(const QJsonArray& answers)
{
    return control("POST", "/_control/script", QJsonDocument(answers).toJson(QJsonDocument::Compact)).status == 200;
}

bool ServicesSim::configure(const QJsonObject& changes)
{
    return control("POST", "/_control/config", QJsonDocument(changes).toJson(QJsonDocument::Compact)).status == 200;
}

bool ServicesSim::reset()
{
    return control("POST", "/_control/reset").status == 200;
}

bool ServicesSim::clearRequests()
{
    return control("DELETE", "/_control/requests").status == 200;
}

QJsonArray ServicesSim::requests(const QString& path) const
{
    QString target = "/_control/requests";
    if (!path.isEmpty())
        target += "?path=" + QString::fromUtf8(QUrl::toPercentEncoding(path));
    return QJsonDocument::fromJson(control("GET", target).body).array();
}

bool ServicesSim::waitForRequests(const QString& path, int count, int timeoutMs) const
{
    QDeadlineTimer deadline(timeoutMs);
    while (requests(path).size() < count) {
        if (deadline.hasExpired())
            return false;
        QTest::qWait(20);
    }
    return true;
}

void ServicesSim::addTo(QProcessEnvironment* env) const
{
    env->insert("ZORVIK_KEYSERVICE_URL", httpsUrl());
    env->insert("ZORVIK_UPDATE_URL", httpsUrl());
    env->insert("ZORVIK_CHANGELOG_URL", httpsUrl());
    env->insert("ZORVIK_SUPPORT_URL", httpsUrl());
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
        const QJsonArray nameValue = pair.toArray();
        if (nameValue.at(0).toString().compare(name, Qt::CaseInsensitive) == 0)
            return nameValue.at(1).toString();
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
