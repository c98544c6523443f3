#pragma once

#include "cryptoki_storage_item.h"
#include "secret_bytes.h"

#include <QByteArray>
#include <QObject>
#include <QString>

#include <openssl/evp.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>

class QWidget;

// The program's door to the key's PKCS#11 module: lists, imports and removes objects.
// Lives on the certificate storage thread.
class CryptokiInterface : public QObject
{
    Q_OBJECT
public:
    explicit CryptokiInterface(QObject* parent = nullptr);
    ~CryptokiInterface() override;

    void whaitForToken(int ms);
    bool certExist(const char* der, int length);

    // Reads a PKCS#12 file (asking for its password when it has one). On failure errorText
    // holds the message to show, or is empty when the user cancelled.
    static bool readP12(QString path, EVP_PKEY** key, X509** cert, QString* friendlyName, QWidget* parent,
                        QString* errorText);
    // The steps of readP12 that need no file and no user. decodeP12 gives nullptr when the
    // bytes are not PKCS#12 (free the result with PKCS12_free). The friendly name is that
    // of the first bag that carries one, in the unencrypted safes; empty when none does.
    static PKCS12* decodeP12(const QByteArray& der);
    static QString p12FriendlyName(PKCS12* p12);

signals:
    void certificates(QList<CryptokiStorageItem> certs);
    void noTokenFound();
    void importFinished();
    void error(QString message, int index);
    void cannotGetCertificates(int code, int tokenStatus);

public slots:
    void slotGetCertificates();
    void importCertificateAndKeys(EVP_PKEY* pkey, X509* cert, SecretPtr tokenpassword, QString friendlyName);
    void removeCertificate(const QByteArray& pkcs11id, SecretPtr tokenpassword);
};

QString CryptokiErrorString(unsigned long code);
