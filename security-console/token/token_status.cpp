#include "token_status.h"

#include "json_reply.h"
#include "log.h"
#include "os_platform.h"
#include "qvtoken.h"
#include "qvtoken_gui.h"

#include <QMetaObject>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QPointer>
#include <QUrl>
#include <QUrlQuery>

#include <memory>

namespace {

const char* const kSupportAddress = "support@zorvik.com";
const int kAtrBufferSize = 64;

QString contactSupport(const QString& head)
{
    return head + "\nPlease contact " + kSupportAddress + " for assistance.";
}

void log(const QString& text)
{
    Log::print(Log::DEBUG, text);
}

// Reads the first key found (waiting up to 400 ms) into `record`; the ATR goes to `atr`
// when given. False when no key is present.
bool readFirstKey(KeyStatusRecord* record, QByteArray* atr, bool destroySearch)
{
    qvtoken_search_t search = qvtoken_initSearchWithFlags(1);
    log("qvtoken_findNextToken");
    qvtoken_token_t token = qvtoken_findNextToken(search, 400);
    log("qvtoken_findNextToken -- END");
    bool found = false;
    if (token) {
        std::unique_ptr<unsigned char[]> buffer(new unsigned char[kAtrBufferSize]());
        int length = kAtrBufferSize;
        *record = qvtoken_getTokenStatus(token, buffer.get(), &length);
        if (atr)
            *atr = QByteArray(reinterpret_cast<const char*>(buffer.get()), qBound(0, length, kAtrBufferSize));
        found = true;
    }
    if (destroySearch)
        qvtoken_destroySearch(search);
    return found;
}

} // namespace

TokenStatus::TokenStatus(QObject* parent) : QThread(parent)
{
    connect(this, &TokenStatus::beginKSsession, this, &TokenStatus::requestKSTicket);
    // Queued: finished() is emitted on the worker thread once run() has returned.
    connect(this, &QThread::finished, this, &TokenStatus::keyReadFinished, Qt::QueuedConnection);
}

bool TokenStatus::startQuery()
{
    if (busy)
        return false;
    reading = true;
    updateBusy();
    start();
    return true;
}

void TokenStatus::keyReadFinished()
{
    reading = false;
    updateBusy();
}

void TokenStatus::updateBusy()
{
    busy = reading || serviceStage;
}

TokenStatus::~TokenStatus()
{
    if (isRunning()) {
        exit(0);
        wait();
    }
    delete networkManager;
    if (guiInstance) {
        log("Forse close qvtoken_gui instance");
        qvtoken_gui_release_instance(guiInstance);
        guiInstance = nullptr;
    }
}

QString TokenStatus::strTokenStatus()
{
    switch (ksResult) {
    case 200:
        break;
    case 400:
        return contactSupport("<b>Unknown server error.</b> ");
    case 403:
        return "<b>Key is temporarily blocked</b>";
    case 408:
        return "<b>Key is disabled</b>";
    case 421:
    case 422: {
        const QString address = OsPlatform::keyServiceUrl() + "/new-keyset/";
        return QString("This key is part of a KeySet that has not been fully activated.  Go to <a href=\"%1\">%1</a> "
                       "to activate your KeySet")
            .arg(address);
    }
    case 500:
        return contactSupport("<b>Security pack error.</b> ");
    case 503:
        return "<b>Unable to read status data.</b> \nPlease make sure your internet connection is working properly."
               "\nAlso, make sure your Key is connected properly. \nPress \"Refresh\" to try again.";
    case 504:
    case 505:
        return contactSupport("<b>Server communication error.</b> ");
    case 590:
    case 603:
        return "<b>Key status request was canceled. Click \"Refresh\" to try again.</b>";
    case 605:
        return "<b>Operation cancelled because of timeout<b>";
    default:
        return QString("Authorization error. Code = %1 %2").arg(ksResult).arg(authMessage);
    }

    switch (tokenStatus) {
    case 0:
        return "<b>No key present</b>";
    case 1:
        return "<b>A non-compatible device was detected.</b>\nConnect a Zorvik approved USB or NFC device, then click "
               "\"Refresh\" to view the status.";
    case 2:
        return "<b>Key is not initialized</b>";
    case 3:
        return "<b>Key is blank</b>";
    case 4:
        return "<b>Blank Vantrel</b>";
    case 5:
        return "<b>Blank Tessaron</b>";
    case 6:
        return contactSupport("<b>Key is not properly initialized. </b>");
    case 7:
        return "<b>Key is active and operating normally</b>";
    case 8:
        return contactSupport("<b>Key has an internal error. </b>");
    case 204:
        return "<b>SSL error occured. See dashboard.log for details</b>";
    default:
        return QString("Unknown status %1").arg(tokenStatus);
    }
}

QString TokenStatus::strNetworkType(int type)
{
    switch (type) {
    case 0:
        return QString();
    case 1:
        return "<b>Production network</b>";
    case 2:
        return "<b>Developers network</b>";
    case 3:
        return "<b>Test network</b>";
    default:
        return QString("Unknown network %1").arg(type);
    }
}

QString TokenStatus::verboseTokenType(QString type)
{
    if (type == "TOKEN")
        return "Vantrel";
    if (type == "MASTER_TOKEN")
        return "Tessaron";
    return "Unknown key";
}

QString TokenStatus::verboseTokenPrepersonalization(int status)
{
    if (status == 5)
        return "Tessaron";
    if (status == 4)
        return "Vantrel";
    return "Unknown";
}

int TokenStatus::getStatusFromToken()
{
    log("getStatusFromToken");
    KeyStatusRecord record{};
    return readFirstKey(&record, nullptr, false) ? record.tokenStatus : 0;
}

void TokenStatus::run()
{
    log("TOKEN INFO runner");
    keyTitle.clear();
    authMessage.clear();
    infoStatus = 0;
    tokenStatus = 0;
    ksResult = 200;

    KeyStatusRecord record{};
    QByteArray atrBytes;
    if (!readFirstKey(&record, &atrBytes, true)) {
        log("Error Token Status - token not found");
        tokenStatus = 0;
    } else {
        tokenStatus = record.tokenStatus;
        infoStatus = record.infoStatus;
        atr.clear();
        for (char byte : atrBytes)
            atr += QString("%1 ").arg(static_cast<unsigned char>(byte), 2, 16, QChar('0')).toUpper();
        networkType = record.networkType;
    }
    statusText = strTokenStatus();
    log(QString("status = %1").arg(statusText));
    log(QString("infostatus = %1").arg(infoStatus));
    keyType = verboseTokenPrepersonalization(tokenStatus);
    emit infoSCReady();
    if (tokenStatus == 7) {
        emit beginKSsession();
    } else {
        emit infoKSCanceled(QString());
    }
    log("END TOKEN INFO");
}

void TokenStatus::requestKSTicket()
{
    serviceStage = true;
    updateBusy();
    if (!networkManager)
        networkManager = new QNetworkAccessManager;
    QNetworkRequest request(QUrl(OsPlatform::keyServiceUrl() + "/a/get-ticket/"));
    request.setRawHeader("User-Agent", "Dashboard");
    log(QString("Proxy = %1").arg(networkManager->proxy().hostName()));
    QNetworkReply* reply = networkManager->get(request);
    connect(reply, &QNetworkReply::finished, this, &TokenStatus::requestKSTicket_reply);
    connect(reply, &QNetworkReply::sslErrors, this, &TokenStatus::slotSSLErrors);
}

void TokenStatus::slotSSLErrors(const QList<QSslError>& errors)
{
    for (const QSslError& error : errors)
        log("SSL ERROR: " + error.errorString());
    tokenStatus = 204;
}

void TokenStatus::requestKSTicket_reply()
{
    auto* reply = qobject_cast<QNetworkReply*>(sender());
    if (!reply)
        return;
    reply->deleteLater();
    if (reply->error() != QNetworkReply::NoError) {
        log(QString("requestKSTicket_reply error %1 %2").arg(reply->error()).arg(reply->errorString()));
        emit infoKSCanceled(QString("Error communicating with Key Services \n%1").arg(reply->errorString()));
        // Deliberately no cleanup(): `busy` stays set after a transport failure, and later
        // refreshes only log that a query is already active.
        return;
    }
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    log(QString("requestKSTicket_reply http status = %1").arg(status));
    if (status != 200) {
        log("http error string = " + reply->errorString());
        emit infoKSCanceled(
            QString("Error communicating with Key Services \n%1 %2").arg(status).arg(reply->errorString()));
        cleanup();
        return;
    }
    ticket = QString::fromUtf8(reply->readAll());
    if (!guiInstance)
        guiInstance = qvtoken_gui_create_instance();
    log("qvtoken_gui_authenticate");
    const QByteArray latin = ticket.toLatin1();
    qvtoken_gui_authenticate(guiInstance, latin.constData(), 0, tiket_authorization_callback, this);
}

void tiket_authorization_callback(int code, const char* text, void* context)
{
    auto* status = static_cast<TokenStatus*>(context);
    const QString message = text ? QString::fromUtf8(text) : QString();
    Log::print(Log::DEBUG, message);
    // The library may call back on its own thread; the key-service requests belong to the
    // main thread, so the rest of the exchange is carried over there.
    QMetaObject::invokeMethod(
        status,
        [status, code, message] {
            status->authMessage = message;
            status->requestTokenStatusFromKS(code);
        },
        Qt::QueuedConnection);
}

void TokenStatus::requestTokenStatusFromKS(int code)
{
    if (guiInstance) {
        log("Close qvtoken_gui instance");
        qvtoken_gui_release_instance(guiInstance);
        guiInstance = nullptr;
    } else if (ksResult == 603) {
        // Cancelled meanwhile (terminateKSRequest has already reported it).
        return;
    }
    ksResult = code;
    if (code != 200) {
        log(QString("Key service authorization failed. Result =  %1").arg(code));
        statusText = strTokenStatus();
        emit infoKSCanceled(statusText);
        cleanup();
        return;
    }
    log("requestTokenStatusFromKS");
    QNetworkRequest request(QUrl(OsPlatform::keyServiceUrl() + "/a/view.json"));
    request.setHeader(QNetworkRequest::ContentTypeHeader, "application/x-www-form-urlencoded");
    request.setRawHeader("User-Agent", "Dashboard");
    const QByteArray body = "ticket=" + QUrl::toPercentEncoding(ticket);
    QNetworkReply* reply = networkManager->post(request, body);
    connect(reply, &QNetworkReply::finished, this, &TokenStatus::getTokenStatusFromKS_reply);
}

void TokenStatus::getTokenStatusFromKS_reply()
{
    auto* reply = qobject_cast<QNetworkReply*>(sender());
    if (!reply)
        return;
    reply->deleteLater();
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    log(QString("getTokenStatusFromKS_reply httpstatus = %1").arg(status));
    if (status != 200) {
        log("http error string = " + reply->errorString());
        emit infoKSCanceled(
            QString("Key service communication error Http reply = %1 Error = %2").arg(status).arg(reply->errorString()));
        cleanup();
        return;
    }
    QByteArray body = reply->readAll();
    const int nul = body.indexOf('\0');
    if (nul >= 0)
        body.truncate(nul);
    log("JSON = " + QString::fromUtf8(body));
    // The answer is read member by member with each type checked: an answer of another
    // shape is a parse failure, never an exception out of this slot.
    const JsonReply root = JsonReply::parse(body);
    const bool serviceError = root.boolean("error", true);
    const bool hasMessage = root.wellFormed() && !serviceError && root.has("message");
    QString type;
    QString title;
    if (hasMessage) {
        const JsonReply message = root.object("message");
        type = message.text("type", "UTF-8");
        message.text("status", "UTF-8");
        title = message.text("title", "UTF-8");
    }
    if (!root.wellFormed()) {
        log("Cannot parse server response");
        emit infoKSCanceled("Cannot parse server response");
    } else if (serviceError) {
        log("KS error");
        emit infoKSCanceled("Key service error");
    } else if (hasMessage) {
        keyType = verboseTokenType(type);
        keyTitle = title;
        emit infoKSReady();
    }
    cleanup();
}

void TokenStatus::terminateKSRequest()
{
    log(" terminateKSRequest ");
    if (!guiInstance)
        return;
    log("Force close qvtoken_gui instance");
    qvtoken_gui_release_instance(guiInstance);
    guiInstance = nullptr;
    ksResult = 603;
    statusText = strTokenStatus();
    emit infoKSCanceled("Token status request cancelled");
    cleanup();
}

void TokenStatus::cleanup()
{
    log("TOKEN STATUS FINISHED");
    serviceStage = false;
    updateBusy();
}
