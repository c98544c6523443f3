#pragma once

#include "cryptoki_storage_item.h"
#include "secret_bytes.h"

#include <QByteArray>
#include <QList>
#include <QString>
#include <QThread>

#include <memory>

#include <openssl/evp.h>
#include <openssl/x509.h>

class CryptokiInterface;
class QWidget;

// The window's handle on the key's certificate store. The PKCS#11 work happens on this
// object's own thread, where a CryptokiInterface lives; requests and answers cross by
// queued signals. PINs travel as shared SecretBytes, wiped once the worker is done with them.
class CryptokiStorage : public QThread
{
    Q_OBJECT
public:
    explicit CryptokiStorage(QObject* parent = nullptr);
    ~CryptokiStorage() override;

    // A request is outstanding (set by the window after each request).
    bool working = false;

    void addCertificate(EVP_PKEY* pkey, X509* cert, SecretPtr tokenpassword, QString friendlyName);
    void removeCertificate(const QByteArray& pkcs11id, SecretPtr tokenpassword);

    // The PIN prompt; closes as cancelled when the parent's noToken() signal fires. `pin` gets
    // what was typed whatever the outcome; the dialog keeps no copy.
    static bool askTokenPassword(QWidget* parent, SecretPtr* pin);
    // Extended key usages of a DER certificate joined by ";", or "Invalid certificate".
    static QString getEKU(QByteArray der);

signals:
    void getCertificates();
    void certificates(QList<CryptokiStorageItem> certs);
    void noTokenFound();
    void importFinished();
    void error(QString message, int index);
    void importCertificate(EVP_PKEY* pkey, X509* cert, SecretPtr tokenpassword, QString friendlyName);
    void delCertificate(const QByteArray& pkcs11id, SecretPtr tokenpassword);
    void cannotGetCertificates(int code, int tokenStatus);

public slots:
    void slotCertificates(QList<CryptokiStorageItem> list);
    void slotNoTokenFound();
    void slotCannotGetCertificates(int code, int tokenStatus);
    void slotError(QString message, int index);
    void slotImportFinished();

protected:
    void run() override;

private:
    // Lives on the worker thread from before it starts, so a request made before run() has
    // set up the interface waits in the thread's queue instead of getting lost.
    std::unique_ptr<QObject> requests;
    // Made and used by run() only.
    CryptokiInterface* interface = nullptr;
};
