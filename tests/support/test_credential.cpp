#include "test_credential.h"

#include <QCryptographicHash>
#include <QFile>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/rand.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace {

using BioPtr = std::unique_ptr<BIO, decltype(&BIO_free)>;

QByteArray bioBytes(BIO* bio)
{
    char* data = nullptr;
    const long n = BIO_get_mem_data(bio, &data);
    return QByteArray(data, static_cast<int>(n));
}

QByteArray bnParam(EVP_PKEY* key, const char* name)
{
    BIGNUM* bn = nullptr;
    if (!key || !EVP_PKEY_get_bn_param(key, name, &bn))
        return {};
    QByteArray out(BN_num_bytes(bn), '\0');
    BN_bn2bin(bn, reinterpret_cast<unsigned char*>(out.data()));
    BN_clear_free(bn);
    return out;
}

bool addExtension(X509* cert, int nid, const QString& value)
{
    X509V3_CTX ctx;
    X509V3_set_ctx_nodb(&ctx);
    X509V3_set_ctx(&ctx, cert, cert, nullptr, nullptr, 0);
    X509_EXTENSION* ext = X509V3_EXT_conf_nid(nullptr, &ctx, nid, value.toUtf8().constData());
    if (!ext)
        return false;
    const bool ok = X509_add_ext(cert, ext, -1) == 1;
    X509_EXTENSION_free(ext);
    return ok;
}

} // namespace

TestCredential TestCredential::make(const QString& commonName)
{
    Options o;
    o.commonName = commonName;
    return make(o);
}

TestCredential TestCredential::make(const Options& o)
{
    TestCredential c;
    EVP_PKEY* key = o.kind == Rsa ? EVP_RSA_gen(static_cast<unsigned>(o.bits)) : EVP_EC_gen("P-256");
    if (!key)
        return c;
    c.key_.reset(key, EVP_PKEY_free);
    std::shared_ptr<X509> cert(X509_new(), X509_free);
    X509_set_version(cert.get(), 2);
    unsigned char serial[16];
    RAND_bytes(serial, sizeof serial);
    serial[0] &= 0x7F;
    BIGNUM* sn = BN_bin2bn(serial, sizeof serial, nullptr);
    BN_to_ASN1_INTEGER(sn, X509_get_serialNumber(cert.get()));
    BN_free(sn);
    ASN1_TIME_set(X509_getm_notBefore(cert.get()), static_cast<time_t>(o.notBefore.toSecsSinceEpoch()));
    ASN1_TIME_set(X509_getm_notAfter(cert.get()), static_cast<time_t>(o.notAfter.toSecsSinceEpoch()));
    X509_set_pubkey(cert.get(), key);
    X509_NAME* name = X509_get_subject_name(cert.get());
    X509_NAME_add_entry_by_txt(name, "CN", MBSTRING_UTF8,
                               reinterpret_cast<const unsigned char*>(o.commonName.toUtf8().constData()), -1, -1, 0);
    for (const QString& org : o.organizations)
        X509_NAME_add_entry_by_txt(name, "O", MBSTRING_UTF8,
                                   reinterpret_cast<const unsigned char*>(org.toUtf8().constData()), -1, -1, 0);
    X509_set_issuer_name(cert.get(), name);
    QStringList san;
    for (const QString& e : o.emails)
        san << "email:" + e;
    for (const QString& d : o.dnsNames)
        san << "DNS:" + d;
    if (!san.isEmpty() && !addExtension(cert.get(), NID_subject_alt_name, san.join(',')))
        return c;
    if (!o.extKeyUsages.isEmpty() && !addExtension(cert.get(), NID_ext_key_usage, o.extKeyUsages.join(',')))
        return c;
    if (!X509_sign(cert.get(), key, EVP_sha256()))
        return c;
    c.cert_ = cert;
    return c;
}

EVP_PKEY* TestCredential::takeKey() const
{
    if (key_)
        EVP_PKEY_up_ref(key_.get());
    return key_.get();
}

X509* TestCredential::takeCertificate() const
{
    if (cert_)
        X509_up_ref(cert_.get());
    return cert_.get();
}

QByteArray TestCredential::certificateDer() const
{
    if (!cert_)
        return {};
    unsigned char* der = nullptr;
    const int n = i2d_X509(cert_.get(), &der);
    if (n <= 0)
        return {};
    QByteArray out(reinterpret_cast<char*>(der), n);
    OPENSSL_free(der);
    return out;
}

QByteArray TestCredential::certificatePem() const
{
    BioPtr bio(BIO_new(BIO_s_mem()), BIO_free);
    if (!cert_ || !PEM_write_bio_X509(bio.get(), cert_.get()))
        return {};
    return bioBytes(bio.get());
}

QByteArray TestCredential::keyPem() const
{
    BioPtr bio(BIO_new(BIO_s_mem()), BIO_free);
    if (!key_ || !PEM_write_bio_PrivateKey(bio.get(), key_.get(), nullptr, nullptr, 0, nullptr, nullptr))
        return {};
    return bioBytes(bio.get());
}

bool TestCredential::writePem(const QString& certPath, const QString& keyPath) const
{
    QFile c(certPath), k(keyPath);
    return c.open(QIODevice::WriteOnly) && c.write(certificatePem()) > 0 && k.open(QIODevice::WriteOnly) &&
           k.write(keyPem()) > 0;
}

bool TestCredential::writePkcs12(const QString& path, const QString& password, const QString& friendlyName) const
{
    if (!isValid())
        return false;
    const QByteArray pass = password.toLatin1();
    const QByteArray fname = friendlyName.toUtf8();
    // Without a password: no encryption and no MAC, as some exporting tools do.
    const int nid = password.isEmpty() ? -1 : 0;
    PKCS12* p12 = PKCS12_create(password.isEmpty() ? nullptr : pass.constData(),
                                friendlyName.isEmpty() ? nullptr : fname.constData(), key_.get(), cert_.get(), nullptr,
                                nid, nid, 0, password.isEmpty() ? -1 : 0, 0);
    if (!p12)
        return false;
    unsigned char* der = nullptr;
    const int n = i2d_PKCS12(p12, &der);
    PKCS12_free(p12);
    if (n <= 0)
        return false;
    QFile f(path);
    const bool ok = f.open(QIODevice::WriteOnly) && f.write(reinterpret_cast<char*>(der), n) == n;
    OPENSSL_free(der);
    return ok;
}

QList<QByteArray> TestCredential::rsaParts() const
{
    EVP_PKEY* k = key_.get();
    return {bnParam(k, OSSL_PKEY_PARAM_RSA_N),           bnParam(k, OSSL_PKEY_PARAM_RSA_E),
            bnParam(k, OSSL_PKEY_PARAM_RSA_FACTOR1),     bnParam(k, OSSL_PKEY_PARAM_RSA_FACTOR2),
            bnParam(k, OSSL_PKEY_PARAM_RSA_EXPONENT1),   bnParam(k, OSSL_PKEY_PARAM_RSA_EXPONENT2),
            bnParam(k, OSSL_PKEY_PARAM_RSA_COEFFICIENT1)};
}

QByteArray TestCredential::modulus() const
{
    return bnParam(key_.get(), OSSL_PKEY_PARAM_RSA_N);
}

QByteArray TestCredential::exponent() const
{
    return bnParam(key_.get(), OSSL_PKEY_PARAM_RSA_E);
}

QByteArray TestCredential::moduleId() const
{
    return QCryptographicHash::hash(modulus(), QCryptographicHash::Sha1);
}
