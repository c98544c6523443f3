#pragma once

#include <QByteArray>
#include <QEventLoop>
#include <QMap>
#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QUrl>

class QNetworkReply;

// The program's small HTTP client: a blocking GET that follows same-scheme redirects, a
// blocking multipart POST, and an asynchronous download into a local directory.
//
// "Blocking" means the call runs a private event loop until the reply has finished; the
// caller's thread keeps processing events meanwhile. One object serves one request at a
// time and must be created, used and destroyed in one thread. The proxy is the
// application-wide one (DashboardNetworkManager::SetupProxy).
class WebAccess : public QObject
{
    Q_OBJECT
public:
    explicit WebAccess(QObject* parent = nullptr);
    ~WebAccess() override;

    // Process-wide TLS set-up, once at start-up: adds the extra trusted CA certificates
    // named by the platform (used by the bench) to the default configuration.
    static void initSSL();

    // The text of an answer's body: UTF-8, up to its first NUL byte.
    static QString bodyText(const QByteArray& body);

    // Starts a GET without waiting; the answer arrives through finished() or error().
    void get(const QString& url);
    // The body of the answer (up to its first NUL byte), or an empty text after a network
    // error. 301/302 answers are followed while they keep the scheme of `url`, at most 20
    // times; otherwise the body of the last redirect answer is returned.
    QString syncGet(const QString& url);
    // Posts `params` as multipart/form-data, plus one file part "log" ("crash.log") holding
    // `data` when `fileName` is not empty. Returns the body, or an empty text on error.
    QString syncPost(const QString& url, const QMap<QString, QString>& params, const QString& fileName,
                     const QByteArray& data);
    // Bounds the wait of syncPost: after `ms` milliseconds the request is abandoned and
    // syncPost returns an empty text. 0 (the default) waits as long as it takes.
    void setPostTimeout(int ms) { postTimeoutMs = ms; }
    // Downloads `url` into `localDir` under the last part of the URL's path. False (and
    // error()) when the local file cannot be created. progress() reports percent when the
    // length is known; downloadCompleted() gives the file name at the end.
    bool download(const QString& url, const QString& localDir);
    // Stops the running download and deletes its partial file.
    void abortDownload();

signals:
    void error(const QString& text);
    void finished(const QString& text);
    void progress(int percent);
    void downloadCompleted(const QString& fileName);

public slots:
    void requestFinished(QNetworkReply* reply);
    void downloadProgress(qint64 received, qint64 total);

private:
    void updateDownloadedFile();

    QNetworkAccessManager manager;
    QEventLoop loop;
    int requestError = 0;
    QString replyText;
    QNetworkReply* downloadReply = nullptr;
    QString downloadDir;
    QString downloadFileName;
    QUrl requestUrl;
    QUrl redirectUrl;
    bool redirected = false;
    int postTimeoutMs = 0;
};
