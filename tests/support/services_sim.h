#pragma once

#include <QByteArray>
#include <QJsonArray>
#include <QJsonObject>
#include <QProcess>
#include <QProcessEnvironment>
#include <QString>
#include <QTemporaryDir>

#include <memory>

// The Zorvik services simulator (testbed/zorvik-services) run for one test: HTTPS with its
// own test CA, plain HTTP and an untrusted HTTPS port, all on 127.0.0.1, in a private
// temporary directory. Answers are scripted and the request log read through the
// simulator's control endpoints (spoken over a direct socket, never through a proxy).
class ServicesSim
{
public:
    ServicesSim() = default;
    ~ServicesSim() { stop(); }
    ServicesSim(const ServicesSim&) = delete;
    ServicesSim& operator=(const ServicesSim&) = delete;

    // Starts the simulator and waits until it listens. False, with lastError(), when it
    // does not come up in time.
    bool start(int timeoutMs = 30000);
    void stop();
    bool isRunning() const { return process.state() == QProcess::Running && ports[1] != 0; }
    QString lastError() const { return error; }

    // https://127.0.0.1:<port>, trusted through caFile()
    QString httpsUrl() const { return QString("https://127.0.0.1:%1").arg(ports[0]); }
    QString httpUrl() const { return QString("http://127.0.0.1:%1").arg(ports[1]); }
    // https://127.0.0.1:<port> with an untrusted certificate
    QString badTlsUrl() const { return QString("https://127.0.0.1:%1").arg(ports[2]); }
    // The HTTPS service under a name that only a proxy can reach (Qt never sends requests
    // for loopback addresses through a proxy). ProxySim forwards this name here.
    QString proxiedHttpsUrl() const { return QString("https://%1:%2").arg(name).arg(ports[0]); }
    QString benchName() const { return name; }
    quint16 httpsPort() const { return ports[0]; }
    quint16 httpPort() const { return ports[1]; }
    QString caFile() const { return dir() + "/ca.pem"; }
    QString dir() const { return workDir ? workDir->path() : QString(); }

    // Scripted answers: each object names a "path" (exact, with or without the query, or a
    // prefix ending in "*"), optionally "method", and any of "status", "body",
    // "body_base64", "body_size", "headers", "content_type", "delay" (seconds), "redirect"
    // (Location; status 302 unless given), "close" (drop the connection without answer),
    // "length": "none" (no Content-Length), "chunk_size"/"chunk_delay", "fail_after" (drop
    // after that many bytes of the body), "route": true (the service's own answer, with the
    // script's "delay" and "fail_after"), "times".
    bool script(const QJsonObject& answer) { return script(QJsonArray{answer}); }
    bool script(const QJsonArray& answers) { return post("/_control/script", answers); }
    // Changes the default behaviour (e.g. {"key": {"type": "MASTER_TOKEN"}}).
    bool configure(const QJsonObject& changes) { return post("/_control/config", changes); }
    // Forgets scripts, logged requests, tickets and configuration.
    bool reset() { return control("POST", "/_control/reset").status == 200; }
    bool clearRequests() { return control("DELETE", "/_control/requests").status == 200; }
    // The logged requests (method, target, path, headers [[name, value]...], body,
    // body_base64, listener), all of them or those for one path.
    QJsonArray requests(const QString& path = QString()) const;
    // Waits until at least `count` requests for `path` have been logged.
    bool waitForRequests(const QString& path, int count = 1, int timeoutMs = 10000) const;

    // The service addresses and the extra CA for the program: ZORVIK_KEYSERVICE_URL,
    // ZORVIK_UPDATE_URL, ZORVIK_CHANGELOG_URL, ZORVIK_SUPPORT_URL and ZORVIK_EXTRA_CA.
    void addTo(QProcessEnvironment* env) const;
    // The same for this process.
    void applyEnvironment() const;

    struct Reply
    {
        int status = 0;
        QByteArray body;
    };
    // One raw control call, e.g. control("GET", "/_control/state").
    Reply control(const QByteArray& method, const QString& path, const QByteArray& body = QByteArray()) const;

    // Decoded body of a logged request.
    static QByteArray body(const QJsonValue& request);
    // First value of a header of a logged request (case-insensitive name).
    static QString header(const QJsonValue& request, const QString& name);

private:
    bool post(const QString& path, const QJsonValue& json) const;

    std::unique_ptr<QTemporaryDir> workDir;
    QProcess process;
    quint16 ports[3] = {0, 0, 0};
    QString name;
    QString error;
};

class Bench;
class TestHome;

// The set-up of the tests that run the program against both benches: the private home, the
// services simulator (its addresses and CA in this process's environment, trusted by the
// program's TLS set-up), then the smart-card bench. Empty when all of it started, else what
// failed.
QString startServicesAndBench(const TestHome& home, ServicesSim& sim, Bench& bench);
