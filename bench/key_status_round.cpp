// Key status queries timed end to end, next to their parts done directly.
//   key_status_round RUNS
// Needs a key in a reader of the PC/SC service named by PCSCLITE_CSOCK_NAME and the key
// service at ZORVIK_KEYSERVICE_URL (ZORVIK_EXTRA_CA trusted). Prints one line per figure:
//   <name> runs=N median_us=M min_us=A max_us=B
#include "qvtoken.h"
#include "token_status.h"
#include "web_access.h"

#include <QCoreApplication>
#include <QElapsedTimer>
#include <QEventLoop>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>
#include <QUrl>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>
#include <vector>

namespace {

std::map<std::string, std::vector<qint64>> figures;

void add(const std::string& name, qint64 us)
{
    figures[name].push_back(us);
}

// One "Refresh": from start() to infoSCReady and to infoKSReady.
bool statusQuery(TokenStatus& status)
{
    QEventLoop loop;
    QElapsedTimer clock;
    qint64 sc = -1;
    qint64 ks = -1;
    bool ok = false;
    auto c1 = QObject::connect(&status, &TokenStatus::infoSCReady, &loop, [&] { sc = clock.nsecsElapsed() / 1000; });
    auto c2 = QObject::connect(&status, &TokenStatus::infoKSReady, &loop, [&] {
        ks = clock.nsecsElapsed() / 1000;
        ok = true;
        loop.quit();
    });
    auto c3 = QObject::connect(&status, &TokenStatus::infoKSCanceled, &loop, [&](const QString& reason) {
        std::fprintf(stderr, "cancelled: %s\n", qPrintable(reason));
        loop.quit();
    });
    QTimer::singleShot(60000, &loop, &QEventLoop::quit);
    clock.start();
    status.start();
    loop.exec();
    status.wait();
    QObject::disconnect(c1);
    QObject::disconnect(c2);
    QObject::disconnect(c3);
    if (!ok)
        return false;
    add("refresh_to_infoSCReady", sc);
    add("refresh_to_infoKSReady", ks);
    return true;
}

// The same key exchange through libqvtoken: find the key, read status and ATR, answer a
// ticket. Returns the form that presents the answer to the key service.
QByteArray rawKey(const QByteArray& ticket)
{
    QElapsedTimer clock;
    clock.start();
    qvtoken_search_t search = qvtoken_initSearchWithFlags(1);
    qvtoken_token_t token = qvtoken_findNextToken(search, 400);
    uint8_t atr[QVTOKEN_ATR_MAX];
    int atrLen = sizeof atr;
    KeyStatusRecord record{};
    if (token)
        record = qvtoken_getTokenStatus(token, atr, &atrLen);
    add("qvtoken_find_and_status", clock.nsecsElapsed() / 1000);
    clock.restart();
    uint8_t answer[32] = {};
    if (token)
        qvtoken_answerTicket(token, reinterpret_cast<const uint8_t*>(ticket.constData()), ticket.size(), answer);
    add("qvtoken_answerTicket", clock.nsecsElapsed() / 1000);
    qvtoken_destroySearch(search);
    return "ticket=" + QUrl::toPercentEncoding(QString::fromLatin1(ticket)) + "&serial=" +
           QByteArray(reinterpret_cast<const char*>(record.serial), sizeof record.serial).toHex().toUpper() +
           "&answer=" + QByteArray(reinterpret_cast<const char*>(answer), sizeof answer).toHex().toUpper();
}

QByteArray roundTrip(QNetworkAccessManager& manager, const QString& path, const QByteArray& postBody,
                     const std::string& name)
{
    QNetworkRequest request(QUrl(qEnvironmentVariable("ZORVIK_KEYSERVICE_URL") + path));
    request.setRawHeader("User-Agent", "Dashboard");
    QElapsedTimer clock;
    clock.start();
    QNetworkReply* reply;
    if (postBody.isNull()) {
        reply = manager.get(request);
    } else {
        request.setHeader(QNetworkRequest::ContentTypeHeader, "application/x-www-form-urlencoded");
        reply = manager.post(request, postBody);
    }
    QEventLoop loop;
    QObject::connect(reply, &QNetworkReply::finished, &loop, &QEventLoop::quit);
    loop.exec();
    add(name, clock.nsecsElapsed() / 1000);
    const QByteArray body = reply->readAll();
    reply->deleteLater();
    return body;
}

} // namespace

int main(int argc, char** argv)
{
    QCoreApplication app(argc, argv);
    const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 20;
    WebAccess::initSSL();

    TokenStatus status;
    int failed = 0;
    for (int i = 0; i < runs; ++i)
        failed += statusQuery(status) ? 0 : 1;

    // Direct HTTPS: a fresh connection each time, and one kept alive as TokenStatus does.
    for (int i = 0; i < runs; ++i) {
        QNetworkAccessManager fresh;
        roundTrip(fresh, "/a/get-ticket/", QByteArray(), "https_get_ticket_new_connection");
    }
    QNetworkAccessManager kept;
    roundTrip(kept, "/a/get-ticket/", QByteArray(), "warm-up");
    for (int i = 0; i < runs; ++i) {
        const QByteArray ticket = roundTrip(kept, "/a/get-ticket/", QByteArray(), "https_get_ticket_kept_alive");
        // The key service describes the key only for a ticket the key has answered.
        roundTrip(kept, "/a/auth-ticket/", rawKey(ticket), "https_auth_ticket_kept_alive");
        const QByteArray view = roundTrip(kept, "/a/view.json",
                                          "ticket=" + QUrl::toPercentEncoding(QString::fromLatin1(ticket)),
                                          "https_view_json_kept_alive");
        if (!view.contains("\"error\": false"))
            std::fprintf(stderr, "view.json: %s\n", view.constData());
    }
    figures.erase("warm-up");

    for (auto& [name, values] : figures) {
        std::sort(values.begin(), values.end());
        std::printf("%s runs=%zu median_us=%lld min_us=%lld max_us=%lld\n", name.c_str(), values.size(),
                    static_cast<long long>(values[values.size() / 2]), static_cast<long long>(values.front()),
                    static_cast<long long>(values.back()));
    }
    std::printf("failed_queries=%d\n", failed);
    return failed == runs ? 1 : 0;
}
