#include "test_credential.h"

#include "test_support.h"

#include <QCryptographicHash>

#include <openssl/bio.h>
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/evp.h>
#include <openssl/pem.h>
#include <openssl/pkcs12.h>
#include <openssl/x509.h>
#include <openssl/x509v3.h>

namespace {

// What `write` puts into a memory BIO; empty when it fails.
template <typename Write> QByteArray written(Write write)
{
    std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), BIO_free);
    if (write(bio.get()) <= 0)
        return {};
    char* data = nullptr;
    const long n = BIO_get_mem_data(bio.get(), &data);
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
    const bool ok = ext && X509_add_ext(cert, ext, -1) == 1;
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
    BIGNUM* serial = BN_new();
    BN_rand(serial, 127, BN_RAND_TOP_ANY, BN_RAND_BOTTOM_ANY); // positive, 16 bytes at most
    BN_to_ASN1_INTEGER(serial, X509_get_serialNumber(cert.get()));
    BN_free(serial);
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
    if ((!san.isEmpty() && !addExtension(cert.get(), NID_subject_alt_name, san.join(','))) ||
        (!o.extKeyUsages.isEmpty() && !addExtension(cert.get(), NID_ext_key_usage, o.extKeyUsages.join(','))) ||
        !X509_sign(cert.get(), key, EVP_sha256()))
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
    return written([this](BIO* bio) { return cert_ ? i2d_X509_bio(bio, cert_.get()) : 0; });
}

bool TestCredential::writePem(const QString& certPath, const QString& keyPath) const
{
    return isValid() && writeFile(certPath, written([this](BIO* bio) { return PEM_write_bio_X509(bio, cert_.get()); })) &&
           writeFile(keyPath, written([this](BIO* bio) {
               return PEM_write_bio_PrivateKey(bio, key_.get(), nullptr, nullptr, 0, nullptr, nullptr);
           }));
}

bool TestCredential::writePkcs12(const QString& path, const QString& password, const QString& friendlyName) const
{
    if (!isValid())
        return false;
    const QByteArray pass = password.toLatin1(), fname = friendlyName.toUtf8();
    // Without a password: no encryption and no MAC, as some exporting tools do.
    const int nid = password.isEmpty() ? -1 : 0;
    std::unique_ptr<PKCS12, decltype(&PKCS12_free)> p12(
        PKCS12_create(password.isEmpty() ? nullptr : pass.constData(),
                      friendlyName.isEmpty() ? nullptr : fname.constData(), key_.get(), cert_.get(), nullptr, nid, nid,
                      0, password.isEmpty() ? -1 : 0, 0),
        PKCS12_free);
    const QByteArray der = written([&](BIO* bio) { return p12 ? i2d_PKCS12_bio(bio, p12.get()) : 0; });
    return !der.isEmpty() && writeFile(path, der);
}

QList<QByteArray> TestCredential::rsaParts() const
{
    QList<QByteArray> parts;
    for (const char* name :
         {OSSL_PKEY_PARAM_RSA_N, OSSL_PKEY_PARAM_RSA_E, OSSL_PKEY_PARAM_RSA_FACTOR1, OSSL_PKEY_PARAM_RSA_FACTOR2,
          OSSL_PKEY_PARAM_RSA_EXPONENT1, OSSL_PKEY_PARAM_RSA_EXPONENT2, OSSL_PKEY_PARAM_RSA_COEFFICIENT1})
        parts << bnParam(key_.get(), name);
    return parts;
}

QByteArray TestCredential::moduleId() const
{
    return QCryptographicHash::hash(modulus(), QCryptographicHash::Sha1);
}
