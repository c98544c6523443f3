#pragma once

#include <QByteArray>
#include <QList>
#include <QString>
#include <QThread>

class QNetworkAccessManager;
class QNetworkReply;

// The bytes of a file, or an empty array (logged) when it cannot be read.
QByteArray filedata(QString path);

// Sends a support request: the description, name and e-mail address and the log files
// (gzip-compressed) as one multipart/form-data POST to the support-report API. One run of
// the thread per request; the caller waits in a modal box that sentFinished() closes. The
// outcome comes back as support_sent() or support_error() with the text to show.
class TicketSender : public QThread
{
    Q_OBJECT
public:
    static const char* const boundaryText;

    explicit TicketSender(QObject* parent = nullptr);

    // Stores the request and blocks in the wait box until the answer is in. Ignored while
    // a request is running. The caller's override cursor is the wait cursor until
    // support_sent or support_error has been handled.
    void sendTicket(QString text, QString email, QString name, QList<QString> files);
    // Step one of sendTicket: what the next run sends.
    void setRequest(QString text, QString email, QString name, QList<QString> files);

    // The request body: the five text parts, one part per file, the closing line.
    QByteArray requestBody();
    void addParam(QByteArray& body, QString name, QString value);
    void addFile(QByteArray& body, QString path);
    // Compresses a copy of `path` into path + ".tmp.gz"; an existing path + ".tmp" is reused.
    bool zipfile(QString path);
    void parseReply(QByteArray body);

signals:
    void support_error(QString message);
    void support_sent(QString message);
    void sentFinished();

private slots:
    void support_reply();

protected:
    void run() override;
    void sendInfo();

private:
    QNetworkAccessManager* manager = nullptr;
    QString text;
    QString email;
    QString name;
    QString boundary;
    QList<QString> files;
    QNetworkReply* reply = nullptr;
};
