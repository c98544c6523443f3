#pragma once

#include <QByteArray>
#include <QDateTime>
#include <QList>
#include <QString>
#include <QStringList>

#include <memory>

typedef struct evp_pkey_st EVP_PKEY;
typedef struct x509_st X509;

// A key and a self-signed certificate for it, made with OpenSSL for a test.
class TestCredential
{
public:
    enum KeyKind { Rsa, Ec };
    struct Options
    {
        QString commonName = "Test User";
        QStringList organizations;
        QStringList emails;       // subject alternative names, rfc822Name
        QStringList dnsNames;     // subject alternative names, dNSName
        QStringList extKeyUsages; // OpenSSL short names, e.g. "clientAuth", "emailProtection"
        KeyKind kind = Rsa;
        int bits = 2048;
        QDateTime notBefore = QDateTime::currentDateTimeUtc().addDays(-1);
        QDateTime notAfter = QDateTime::currentDateTimeUtc().addDays(365);
    };

    static TestCredential make(const Options& options);
    static TestCredential make(const QString& commonName);

    bool isValid() const { return key_ && cert_; }
    EVP_PKEY* key() const { return key_.get(); }
    X509* certificate() const { return cert_.get(); }
    // New references, for code that takes ownership.
    EVP_PKEY* takeKey() const;
    X509* takeCertificate() const;

    QByteArray certificateDer() const;
    bool writePem(const QString& certPath, const QString& keyPath) const;
    // A PKCS#12 file; an empty password writes one without encryption or MAC.
    bool writePkcs12(const QString& path, const QString& password, const QString& friendlyName) const;

    // RSA parts, big-endian magnitudes: n, e, p, q, d mod (p-1), d mod (q-1), q^-1 mod p.
    QList<QByteArray> rsaParts() const;
    QByteArray modulus() const { return rsaParts().value(0); }
    QByteArray exponent() const { return rsaParts().value(1); }
    // The identifier the cryptoki module gives the key: SHA-1 of the modulus.
    QByteArray moduleId() const;

private:
    std::shared_ptr<EVP_PKEY> key_;
    std::shared_ptr<X509> cert_;
};
