#include "web_access.h"

#include "log.h"
#include "os_platform.h"

#include <QSslCertificate>
#include <QSslConfiguration>

WebAccess::WebAccess(QObject* parent) : QObject(parent) {}

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
