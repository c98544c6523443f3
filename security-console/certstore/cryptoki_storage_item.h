#pragma once

#include <QByteArray>
#include <QList>
#include <QMetaType>
#include <QSslCertificate>
#include <QString>

#include <openssl/evp.h>
#include <openssl/x509.h>

// One object stored on the key: a certificate or an RSA key pair.
class CryptokiStorageItem
{
public:
    enum Type { Empty = -1, Certificate = 1, RsaKeyPair = 2 };

    int index = 0;
    QByteArray pkcs11id;
    // Set by the key's module listing when the object is private; not read by the window.
    bool isPrivate = false;
    QString label;
    QSslCertificate certificate;
    int type = Empty;
    QByteArray modulus;
    QByteArray exponent;

    // "RSA keypair" for a key pair, "certificate" for every other type.
    QString typeName() const;
    // Bit length of the modulus of a key pair (leading zero bytes and bits skipped), else 0.
    int RSALength() const;
};

Q_DECLARE_METATYPE(CryptokiStorageItem)
Q_DECLARE_METATYPE(QList<CryptokiStorageItem>)

// The key and certificate of an import cross to the storage thread as raw pointers.
Q_DECLARE_OPAQUE_POINTER(EVP_PKEY*)
Q_DECLARE_METATYPE(EVP_PKEY*)
Q_DECLARE_OPAQUE_POINTER(X509*)
Q_DECLARE_METATYPE(X509*)
