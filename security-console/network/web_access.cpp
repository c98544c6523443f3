#include "web_access.h"

#include "log.h"
#include "os_platform.h"

#include <QDateTime>
#include <QDir>
#include <QFile>
#include <QHash>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QSslCertificate>
#include <QSslConfiguration>
#include <QTimer>

namespace {
const int kMaxRedirects = 20;
// A GET that receives nothing for this long is given up: a check in the background must not
// wait for ever on a server that took the request and never answers.
const int kStallTimeoutMs = 30000;
} // namespace

WebAccess::WebAccess(QObject* parent) : QObject(parent)
{
    connect(&manager, &QNetworkAccessManager::finished, this, &WebAccess::requestFinished);
}

WebAccess::~WebAccess()
{
    // The manager outlives the event loop member; replies it ends while it is destroyed
    // must not reach this half-destroyed object.
    disconnect(&manager, nullptr, this, nullptr);
    if (downloadReply)
        disconnect(downloadReply, nullptr, this, nullptr);
}

void WebAccess::initSSL()
{
    const QString caFile = OsPlatform::extraCaFile();
    if (caFile.isEmpty())
        return;
    const QList<QSslCertificate> extra = QSslCertificate::fromPath(caFile, QSsl::Pem);
    if (extra.isEmpty()) {
        Log::print(Log::WARNING, "Cannot read extra CA certificates from " + caFile);
        return;
    }
    QSslConfiguration config = QSslConfiguration::defaultConfiguration();
    config.setCaCertificates(config.caCertificates() + extra);
    QSslConfiguration::setDefaultConfiguration(config);
}

void WebAccess::get(const QString& url)
{
    Log::print(Log::DEBUG, QString("Web: retreiving url: %1").arg(url));
    replyText = "";
    requestError = 0;
    redirected = false;
    QNetworkRequest request;
    request.setUrl(QUrl(url));
    request.setTransferTimeout(kStallTimeoutMs);
    manager.get(request);
}

QString WebAccess::bodyText(const QByteArray& body)
{
    // The text ends at the first NUL byte, as a C string would.
    const int nul = body.indexOf('\0');
    return QString::fromUtf8(nul < 0 ? body : body.left(nul));
}

QString WebAccess::syncGet(const QString& url)
{
    requestUrl = QUrl(url);
    int redirects = 0;
    QString current = url;
    for (;;) {
        get(current);
        Log::print(Log::DEBUG, "Web: starting loop");
        loop.exec();
        Log::print(Log::DEBUG, QString("Web: finishing loop, error %1").arg(requestError));
        if (!redirected)
            break;
        if (redirectUrl.scheme() != requestUrl.scheme()) {
            Log::print(Log::DEBUG, "Web: Error redirect protocol change");
            break;
        }
        current = redirectUrl.toString();
        if (++redirects >= kMaxRedirects)
            break;
    }
    return requestError ? QString() : replyText;
}

void WebAccess::requestFinished(QNetworkReply* reply)
{
    const QNetworkReply::NetworkError code = reply->error();
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    Log::print(Log::DEBUG, QString("WebAccess reply http status = %1").arg(status));
    if (status != 200) {
        Log::print(Log::DEBUG, "Network request error string = " + reply->errorString());
        if (status == 301 || status == 302) {
            redirected = true;
            redirectUrl = reply->attribute(QNetworkRequest::RedirectionTargetAttribute).toUrl();
            Log::print(Log::DEBUG, "Redirect url = " + redirectUrl.toString());
            if (redirectUrl.isRelative()) {
                // A relative target is taken on the server first asked (its port too, so
                // services on a non-default port keep working).
                if (!redirectUrl.path().startsWith('/'))
                    redirectUrl.setPath('/' + redirectUrl.path());
                redirectUrl.setHost(requestUrl.host());
                redirectUrl.setPort(requestUrl.port());
                redirectUrl.setScheme(requestUrl.scheme());
            }
            Log::print(Log::DEBUG, "Result Redirect Url = " + redirectUrl.toString());
        } else {
            redirected = false;
        }
    } else {
        redirected = false;
    }

    if (code != QNetworkReply::NoError) {
        if (code == QNetworkReply::OperationCanceledError) {
            // Cancelled by the user (a download) or given up by a time limit (any other).
            Log::print(Log::DEBUG, reply == downloadReply ? QString("Web: download cancelled")
                                                          : QString("Web: request given up, no answer in time"));
            loop.exit(0);
            return;
        }
        const QString text = QString("Web: network error: %1").arg(static_cast<int>(code));
        Log::print(Log::DEBUG, text);
        emit error(text);
        requestError = 1;
        loop.exit(0);
        return;
    }

    if (downloadReply && reply == downloadReply) {
        updateDownloadedFile();
        Log::print(Log::DEBUG, "Web: downloading completed");
        emit downloadCompleted(downloadFileName);
        return;
    }

    const QByteArray body = reply->readAll();
    replyText = bodyText(body);
    emit finished(replyText);
    Log::print(Log::DEBUG, QString("Web: network reply (size %1): %2").arg(body.size()).arg(replyText.trimmed()));
    loop.exit(0);
}

QString WebAccess::syncPost(const QString& url, const QMap<QString, QString>& params, const QString& fileName,
                            const QByteArray& data)
{
    replyText = "";
    QNetworkRequest request;
    request.setUrl(QUrl(url));

    const uint hash = qHash(QDateTime::currentDateTime().toString(), 0);
    const QString boundary = QString::number(static_cast<uint>(hash * 123u), 16);
    const QByteArray open = "--" + boundary.toLatin1() + "\r\n";
    const QByteArray close = "--" + boundary.toLatin1() + "--\r\n";
    request.setHeader(QNetworkRequest::ContentTypeHeader, "multipart/form-data; boundary=" + boundary);

    QByteArray body;
    for (auto it = params.constBegin(); it != params.constEnd(); ++it) {
        body += open;
        body += QString("Content-Disposition: form-data; name=\"%1\"\r\n\r\n").arg(it.key()).toUtf8();
        body += it.value().toUtf8();
        body += "\r\n";
    }
    if (!fileName.isEmpty()) {
        // The part's name and file name are fixed; fileName only says whether there is one.
        body += open;
        body += "Content-Disposition: form-data; name=\"log\"; filename=\"crash.log\"\r\n";
        body += "Content-Type: text/plain; charset=utf-8\r\n\r\n";
        body += data;
        body += "\r\n";
    }
    body += close;
    request.setHeader(QNetworkRequest::ContentLengthHeader, body.size());

    QNetworkReply* reply = manager.post(request, body);
    // An answer that takes longer than the caller allows is given up (as a cancellation).
    QTimer limit;
    if (postTimeoutMs > 0) {
        limit.setSingleShot(true);
        connect(&limit, &QTimer::timeout, reply, &QNetworkReply::abort);
        limit.start(postTimeoutMs);
    }
    loop.exec();
    return requestError ? QString() : replyText;
}

bool WebAccess::download(const QString& url, const QString& localDir)
{
    downloadDir = localDir;
    const QUrl source(url.trimmed());
    downloadFileName = source.path().section('/', -1);
    const QString path = downloadDir + "/" + downloadFileName;
    Log::print(Log::DEBUG, QString("Web: downloading url %1 to %2").arg(url, path));

    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate)) {
        Log::print(
            Log::WARNING,
            QString("Web: cannot create local file %1, error: %2").arg(path).arg(static_cast<int>(file.error())));
        emit error(tr("Cannot download file %1 to the local system", "Error message").arg(downloadFileName));
        return false;
    }
    file.close();

    if (downloadReply) {
        downloadReply->deleteLater();
        downloadReply = nullptr;
    }
    downloadReply = manager.get(QNetworkRequest(source));
    connect(downloadReply, &QNetworkReply::downloadProgress, this, &WebAccess::downloadProgress);
    return true;
}

void WebAccess::downloadProgress(qint64 received, qint64 total)
{
    if (!downloadReply)
        return;
    Log::print(Log::DEBUG, QString("Web: network download progress %1/%2").arg(received).arg(total));
    // Qt reports a download of unknown length once more at its end with the received size
    // as total; only an announced length gives percentages.
    if (total > 0 && downloadReply->header(QNetworkRequest::ContentLengthHeader).isValid())
        emit progress(static_cast<int>(received * 100 / total));
    updateDownloadedFile();
}

void WebAccess::updateDownloadedFile()
{
    if (!downloadReply || downloadReply->bytesAvailable() <= 0)
        return;
    const QString path = downloadDir + QDir::separator() + downloadFileName;
    QFile file(path);
    if (!file.open(QIODevice::Append)) {
        Log::print(Log::WARNING, QString("Web: cannot open local file %1 for writing").arg(path));
        emit error(QString("Cannot write local file %1").arg(path));
        abortDownload();
        return;
    }
    file.write(downloadReply->readAll());
    file.close();
}

void WebAccess::abortDownload()
{
    const QString path = downloadDir + QDir::separator() + downloadFileName;
    Log::print(Log::WARNING, QString("Web: aborting download %1").arg(path));
    if (downloadReply)
        downloadReply->abort();
    QFile::remove(path);
}
