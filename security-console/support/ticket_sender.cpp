#include "ticket_sender.h"

#include "log.h"
#include "log_manager.h"
#include "modal_seam.h"
#include "os_platform.h"
#include "system_configuration.h"

#include <QApplication>
#include <QFile>
#include <QFileInfo>
#include <QMessageBox>
#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QNetworkRequest>

#include <json/json.h>

const char* const TicketSender::boundaryText = "--DASHBOARD---237582364582639485761982651892365253y6548174sdrjghs5-";

namespace {

const char* const kVersion = "3.4.375";
const char* const kNotSent = "Error sending support request. Your help request has not been sent.";

// The text of a reply member that may be absent, a string or a number; false for any
// other shape (an object, an array, a boolean).
bool memberText(const Json::Value& root, const char* name, QString* out)
{
    const Json::Value& v = root[name];
    if (v.isNull()) {
        out->clear();
        return true;
    }
    if (!v.isString() && !v.isIntegral())
        return false;
    *out = QString::fromStdString(v.asString());
    return true;
}

} // namespace

QByteArray filedata(QString path)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        Log::print(Log::DEBUG, "Cannot read file: " + path);
        return QByteArray();
    }
    return file.readAll();
}

TicketSender::TicketSender(QObject* parent) : QThread(parent), boundary(boundaryText) {}

void TicketSender::setRequest(QString text_, QString email_, QString name_, QList<QString> files_)
{
    text = text_;
    email = email_;
    name = name_;
    files = files_;
}

void TicketSender::sendTicket(QString text_, QString email_, QString name_, QList<QString> files_)
{
    if (isRunning())
        return;
    setRequest(text_, email_, name_, files_);

    QMessageBox box;
    connect(this, &TicketSender::sentFinished, &box, &QMessageBox::reject);
    box.setWindowTitle(tr("Zorvik Dashboard"));
    box.setText(tr("Sending support request. Please wait"));
    box.setStandardButtons(QMessageBox::NoButton);
    QApplication::setOverrideCursor(Qt::WaitCursor);
    start();
    ModalSeam::exec(&box);
}

void TicketSender::run()
{
    Log::print(Log::DEBUG, "Ticket sender run");
    if (!manager)
        manager = new QNetworkAccessManager;
    sendInfo();
    exec();
    delete manager;
    manager = nullptr;
    reply = nullptr;
}

QByteArray TicketSender::requestBody()
{
    const QString ua = QString("ZORVIK Dashboard %1 OS: %2").arg(kVersion, systemConfiguration());
    QByteArray body;
    addParam(body, "email", email);
    addParam(body, "name", name);
    addParam(body, "phone", QString());
    addParam(body, "text", text);
    addParam(body, "ua", ua);
    for (const QString& path : files) {
        if (path.split('.').last() == "gz") {
            Log::print(Log::DEBUG, "Zip File attached " + path);
            addFile(body, path);
        } else {
            zipfile(path);
            addFile(body, path + ".tmp.gz");
            QFile::remove(path + ".tmp.gz");
        }
    }
    body += "--" + boundary.toUtf8() + "--\r\n";
    return body;
}

void TicketSender::sendInfo()
{
    const QString address = OsPlatform::supportUrl() + "/api/report.json";
    QNetworkRequest request{QUrl(address)};
    const QByteArray body = requestBody();
    request.setRawHeader("Content-Type", "multipart/form-data; boundary=" + boundary.toUtf8());
    request.setRawHeader("Content-Length", QByteArray::number(body.size()));
    Log::print(Log::DEBUG, "Sending support request to " + address);
    reply = manager->post(request, body);
    // The reply lives in this thread, and so does its handling.
    connect(reply, &QNetworkReply::finished, this, &TicketSender::support_reply, Qt::DirectConnection);
}

void TicketSender::addParam(QByteArray& body, QString name, QString value)
{
    body += "--" + boundary.toUtf8() + "\r\n";
    body += "Content-Disposition: form-data; name=\"" + name.toUtf8() + "\";\r\n\r\n";
    body += value.toUtf8() + "\r\n";
}

void TicketSender::addFile(QByteArray& body, QString path)
{
    const QString fileName = QFileInfo(path).fileName();
    Log::print(Log::DEBUG, "Adding logfile to support request: " + fileName);
    body += "--" + boundary.toUtf8() + "\r\n";
    body += "Content-Disposition: form-data; name=\"files[]\"; filename=\"" + fileName.toUtf8() + "\"\r\n";
    body += "Content-Type: plain/text\r\n\r\n";
    body += filedata(path) + "\r\n";
}

bool TicketSender::zipfile(QString path)
{
    QFile::copy(path, path + ".tmp");
    QFile::remove(path + ".tmp.gz");
    Log::print(Log::DEBUG, "ZIP: " + path);
    gzipfile(path + ".tmp");
    return true;
}

void TicketSender::support_reply()
{
    Log::print(Log::DEBUG, "Support reply");
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    Log::print(Log::DEBUG, QString("support_reply httpstatus = %1").arg(status));
    const QString errorText = reply->errorString();
    const QByteArray body = reply->readAll();
    exit(0);
    emit sentFinished();
    if (status == 200) {
        parseReply(body);
    } else {
        emit support_error(kNotSent);
        Log::print(Log::DEBUG, QString("http error string = %1").arg(errorText));
    }
}

void TicketSender::parseReply(QByteArray body)
{
    Json::Value root;
    Json::Reader reader;
    const std::string json = body.toStdString();
    QString message;
    QString ticket;
    // Anything but an object with a boolean (or absent) "result" is not an answer we know.
    const bool known = reader.parse(json, root, false) && root.isObject() &&
                       (root["result"].isNull() || root["result"].isBool()) && memberText(root, "message", &message) &&
                       memberText(root, "ticket", &ticket);
    if (!known) {
        emit support_error("Error sending support request.");
        Log::print(Log::DEBUG, QString("Incorrect server response = %1").arg(QString::fromUtf8(body)));
        return;
    }
    if (root["result"].isBool() && root["result"].asBool()) {
        emit support_sent(QString("Your support request was successfully sent.\n\nTicket:  %1   \n").arg(ticket));
    } else {
        Log::print(Log::DEBUG, QString("Support api returns erorr: %1").arg(message));
        emit support_error(kNotSent);
    }
}
