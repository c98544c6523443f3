#include "cryptoki_interface.h"

#include "log.h"

// The module calls are added with the module itself; until then every listing reports that
// no key became available.

CryptokiInterface::CryptokiInterface(QObject* parent) : QObject(parent) {}

CryptokiInterface::~CryptokiInterface() = default;

void CryptokiInterface::whaitForToken(int ms)
{
    Q_UNUSED(ms)
}

bool CryptokiInterface::certExist(const char* der, int length)
{
    Q_UNUSED(der)
    Q_UNUSED(length)
    return false;
}

bool CryptokiInterface::readP12(QString path, EVP_PKEY** key, X509** cert, QString* friendlyName, QWidget* parent,
                                QString* errorText)
{
    Q_UNUSED(key)
    Q_UNUSED(cert)
    Q_UNUSED(friendlyName)
    Q_UNUSED(parent)
    *errorText = QString("Error opening file %1").arg(path);
    return false;
}

void CryptokiInterface::slotGetCertificates()
{
    Log::print(Log::DEBUG, "Cryptoki interface: get certificates");
    emit cannotGetCertificates(2, 7);
}

void CryptokiInterface::importCertificateAndKeys(EVP_PKEY* pkey, X509* cert, QString tokenpassword,
                                                 QString friendlyName)
{
    Q_UNUSED(tokenpassword)
    Q_UNUSED(friendlyName)
    X509_free(cert);
    EVP_PKEY_free(pkey);
    emit importFinished();
}

void CryptokiInterface::removeCertificate(const QByteArray& pkcs11id, QString tokenpassword)
{
    Q_UNUSED(pkcs11id)
    Q_UNUSED(tokenpassword)
}

QString CryptokiErrorString(unsigned long code)
{
    return QString("Your Vantrel does not appear to be responding correctly. Try removing and reinserting the "
                   "Vantrel. Contact support if the issue continues. Error code %1")
        .arg(QString::number(code, 16).toUpper());
}
