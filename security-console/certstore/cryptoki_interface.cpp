#include "cryptoki_interface.h"

#include "log.h"
#include "modal_seam.h"
#include "process_helpers.h"
#include "token_status.h"
#include "zorvik_cryptoki.h"

#include <QCoreApplication>
#include <QFile>
#include <QThread>
#include <QInputDialog>
#include <QLineEdit>
#include <QSslCertificate>

#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/err.h>
#include <openssl/pkcs12.h>
#include <openssl/provider.h>

#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>

namespace {

void log(const QString& text)
{
    Log::print(Log::DEBUG, text);
}

// Listing rounds: 40 waits of 500 ms for the module to see a key.
constexpr int kTokenWaitRounds = 40;
constexpr int kTokenWaitMs = 500;

// The module is initialised once for the process: C_Initialize and C_Finalize act on all
// of it. An interface let go at quit, still ending its work, must not finalise the module
// under the one that took its place, so the last interface to go finalises it.
std::mutex moduleMutex;
int moduleUsers = 0;

// Waiting for the module to see the key ends early when the thread is asked to stop.
bool stopRequested()
{
    return QThread::currentThread()->isInterruptionRequested();
}

// A PIN as the module's calls take it.
CK_UTF8CHAR_PTR pinBytes(const SecretPtr& pin)
{
    static CK_UTF8CHAR none = 0;
    return pin && pin->udata() ? pin->udata() : &none;
}

CK_ULONG pinLength(const SecretPtr& pin)
{
    return pin ? static_cast<CK_ULONG>(pin->size()) : 0;
}

// PKCS#12 files of older tools (OpenSSL 1.x, many browsers) encrypt their certificates with
// RC2-40 or 3DES, which OpenSSL 3 keeps in its legacy provider. Reading PKCS#12 uses a library
// context of its own with the legacy and default providers; the process-wide default stays as
// it is. Made once and kept for the life of the program.
OSSL_LIB_CTX* pkcs12Context()
{
    static OSSL_LIB_CTX* const context = [] {
        OSSL_LIB_CTX* ctx = OSSL_LIB_CTX_new();
        if (!ctx)
            return ctx;
        if (!OSSL_PROVIDER_load(ctx, "legacy"))
            log("Cryptoki interface: OpenSSL legacy provider not available, old PKCS#12 files cannot be read");
        OSSL_PROVIDER_load(ctx, "default");
        ERR_clear_error();
        return ctx;
    }();
    return context;
}

// The seven RSA parts of an import, each in a buffer of its own.
class RsaParts
{
public:
    explicit RsaParts(EVP_PKEY* key)
    {
        static const char* const names[7] = {OSSL_PKEY_PARAM_RSA_N,           OSSL_PKEY_PARAM_RSA_E,
                                             OSSL_PKEY_PARAM_RSA_FACTOR1,     OSSL_PKEY_PARAM_RSA_FACTOR2,
                                             OSSL_PKEY_PARAM_RSA_EXPONENT1,   OSSL_PKEY_PARAM_RSA_EXPONENT2,
                                             OSSL_PKEY_PARAM_RSA_COEFFICIENT1};
        ZorvikKeyPart* fields[7] = {&record.modulus,   &record.publicExponent, &record.prime1,     &record.prime2,
                                    &record.exponent1, &record.exponent2,      &record.coefficient};
        for (int i = 0; i < 7; ++i) {
            BIGNUM* bn = nullptr;
            if (EVP_PKEY_get_bn_param(key, names[i], &bn) && bn) {
                // (bits + 7) / 8 bytes: the magnitude without leading zero bytes.
                buffers[i].resize(static_cast<int>((BN_num_bits(bn) + 7) / 8));
                BN_bn2bin(bn, reinterpret_cast<unsigned char*>(buffers[i].data()));
                BN_clear_free(bn);
            }
            fields[i]->data = reinterpret_cast<const unsigned char*>(buffers[i].constData());
            fields[i]->length = static_cast<uint64_t>(buffers[i].size());
        }
    }
    ~RsaParts()
    {
        for (QByteArray& b : buffers) {
            if (!b.isEmpty())
                OPENSSL_cleanse(b.data(), static_cast<size_t>(b.size()));
        }
    }
    RsaParts(const RsaParts&) = delete;
    RsaParts& operator=(const RsaParts&) = delete;

    ZorvikRsaKeyParts record{};

private:
    QByteArray buffers[7];
};

QString labelText(const ZorvikLabel* label)
{
    if (!label || !label->text)
        return QString();
    const auto* text = reinterpret_cast<const char*>(label->text);
    const void* nul = std::memchr(text, 0, label->length);
    const int length = nul ? static_cast<int>(static_cast<const char*>(nul) - text) : static_cast<int>(label->length);
    return QString::fromUtf8(text, length);
}

QByteArray bytes(const unsigned char* data, uint32_t length)
{
    return data ? QByteArray(reinterpret_cast<const char*>(data), static_cast<int>(length)) : QByteArray();
}

QString errorString()
{
    char buf[256];
    ERR_error_string_n(ERR_peek_last_error(), buf, sizeof buf);
    return QString::fromLatin1(buf);
}

} // namespace

CryptokiInterface::CryptokiInterface(QObject* parent) : QObject(parent)
{
    const std::lock_guard<std::mutex> lock(moduleMutex);
    if (moduleUsers++ > 0)
        return;
    log("call C_Initialize");
    C_Initialize(nullptr);
    log("call C_Initialize END");
}

CryptokiInterface::~CryptokiInterface()
{
    const std::lock_guard<std::mutex> lock(moduleMutex);
    if (--moduleUsers > 0)
        return;
    log("call C_Finalize");
    C_Finalize(nullptr);
    log("call C_Finalize END");
}

void CryptokiInterface::slotGetCertificates()
{
    log("Cryptoki interface: get certificates");
    const int status = TokenStatus::getStatusFromToken();
    if (status != 7) {
        log(QString("Cryptoki interface: incorrect token status %1").arg(status));
        emit cannotGetCertificates(1, status);
        return;
    }

    CK_ULONG available = C_GetAvailableTokensCount();
    for (int round = 0; available == 0 && round < kTokenWaitRounds && !stopRequested(); ++round) {
        MySleep(kTokenWaitMs);
        available = C_GetAvailableTokensCount();
    }
    log(QString("Cryptoki interface: %1 token available").arg(available));
    if (available == 0) {
        emit cannotGetCertificates(2, 7);
        return;
    }

    ZorvikPublicTokenData* data = nullptr;
    const CK_RV result = C_GetPublicTokenData(0, &data);
    log(QString("Cryptoki interface: get public data result %1").arg(result));
    if (result != CKR_OK) {
        log(QString("Cryptoki interface: zorvik-cryptoki error, cannot get public token data, code = %1").arg(result));
        emit cannotGetCertificates(3, static_cast<int>(result));
        return;
    }
    if (!data) {
        log("Cryptoki interface: zorvik-cryptoki error, no public token data");
        emit certificates(QList<CryptokiStorageItem>());
        return;
    }

    QList<CryptokiStorageItem> list;
    for (int i = 0; i < data->count; ++i) {
        const ZorvikPublicObject* object = data->objects[i];
        CryptokiStorageItem item;
        item.index = object->index;
        item.pkcs11id = bytes(object->id, object->idLength);
        item.label = labelText(object->label);
        item.type = object->type;
        if (object->type == CryptokiStorageItem::Certificate) {
            if (object->valueLength == 0 || !object->value) {
                item.type = CryptokiStorageItem::Empty;
            } else {
                item.certificate = QSslCertificate(bytes(object->value, object->valueLength), QSsl::Der);
                if (!isCertValid(item.certificate))
                    log(QString("Cryptoki interface: invalid cert %1 found").arg(item.index));
            }
        } else if (object->type == CryptokiStorageItem::RsaKeyPair) {
            log(QString("Cryptoki interface: RSA keypair found %1").arg(item.index));
            item.modulus = bytes(object->value, object->valueLength);
            if (item.modulus.isEmpty())
                item.type = CryptokiStorageItem::Empty;
            item.exponent = bytes(object->exponent, object->exponentLength);
        }
        list.append(item);
    }
    log(QString("Cryptoki interface: found %1 certificates").arg(list.size()));
    if (list.isEmpty())
        emit cannotGetCertificates(4, 0);
    else
        emit certificates(list);
}

void CryptokiInterface::whaitForToken(int ms)
{
    const int rounds = ms / kTokenWaitMs;
    for (int round = 0; C_GetAvailableTokensCount() == 0 && round < rounds && !stopRequested(); ++round)
        MySleep(kTokenWaitMs);
}

bool CryptokiInterface::certExist(const char* der, int length)
{
    if (C_GetAvailableTokensCount() == 0)
        return false;
    ZorvikPublicTokenData* data = nullptr;
    const CK_RV result = C_GetPublicTokenData(0, &data);
    if (result != CKR_OK) {
        log(QString("Cryptoki interface: zorvik-cryptoki error, cannot get public token data, code = %1").arg(result));
        emit error(tr("Cannot get certificate information: zorvik-cryptoki error."), 0);
        return false;
    }
    if (!data) {
        log("Cryptoki interface: zorvik-cryptoki error, no public token data");
        return false;
    }
    for (int i = 0; i < data->count; ++i) {
        const ZorvikPublicObject* object = data->objects[i];
        if (object->type == CryptokiStorageItem::Certificate && object->value && length >= 0 &&
            object->valueLength == static_cast<uint32_t>(length) && std::memcmp(object->value, der, length) == 0)
            return true;
    }
    return false;
}

bool CryptokiInterface::readP12(QString path, EVP_PKEY** key, X509** cert, QString* friendlyName, QWidget* parent,
                                QString* errorText)
{
    log("Cryptoki interface: readP12 from " + path);
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        *errorText = QString("Error opening file %1").arg(path);
        return false;
    }
    ERR_clear_error();
    PKCS12* p12 = decodeP12(file.readAll());
    file.close();
    if (!p12) {
        *errorText = QString("Error reading PKCS#12 file %1").arg(path);
        return false;
    }
    std::unique_ptr<PKCS12, decltype(&PKCS12_free)> p12Owner(p12, PKCS12_free);

    bool result = true;
    if (!PKCS12_parse(p12, nullptr, key, cert, nullptr)) {
        const unsigned long first = ERR_peek_error();
        if (ERR_GET_LIB(first) == ERR_LIB_PKCS12 && ERR_GET_REASON(first) == PKCS12_R_MAC_VERIFY_FAILURE) {
            // The file has a password.
            QInputDialog dialog(parent);
            dialog.setWindowTitle(tr("Password request"));
            dialog.setLabelText(tr("Please enter the password that was used to encrypt this certificate:"));
            dialog.setTextEchoMode(QLineEdit::Password);
            dialog.setTextValue(QString());
            SecretBytes::prepare(&dialog);
            const int answer = ModalSeam::exec(&dialog);
            // UTF-8, as PKCS#12 and OpenSSL take passwords.
            const SecretBytes password = SecretBytes::takeFrom(&dialog);
            if (answer != QDialog::Accepted || password.isEmpty()) {
                errorText->clear();
                result = false;
            } else {
                ERR_clear_error();
                if (!PKCS12_parse(p12, password.data(), key, cert, nullptr)) {
                    const unsigned long last = ERR_peek_last_error();
                    *errorText = ERR_GET_REASON(last) == PKCS12_R_MAC_VERIFY_FAILURE
                                     ? QString("Error reading file %1\nWrong password").arg(path)
                                     : QString("Error reading file %1").arg(path);
                    log(QString("Error parsing PKCS#12 file %1 errstring=%2").arg(path, errorString()));
                    result = false;
                }
            }
        }
        // Any other failure is not reported here: the import rejects what it receives.
    }

    *friendlyName = p12FriendlyName(p12);
    ERR_clear_error();
    return result;
}

PKCS12* CryptokiInterface::decodeP12(const QByteArray& der)
{
    // Decoded into a structure bound to our context, which its safes and bags inherit.
    PKCS12* p12 = PKCS12_init_ex(NID_pkcs7_data, pkcs12Context(), nullptr);
    const unsigned char* in = reinterpret_cast<const unsigned char*>(der.constData());
    if (p12 && !d2i_PKCS12(&p12, &in, der.size()))
        p12 = nullptr; // freed by the decoder
    return p12;
}

QString CryptokiInterface::p12FriendlyName(PKCS12* p12)
{
    QString friendlyName;
    if (STACK_OF(PKCS7)* safes = PKCS12_unpack_authsafes(p12)) {
        bool found = false;
        for (int i = 0; i < sk_PKCS7_num(safes) && !found; ++i) {
            PKCS7* safe = sk_PKCS7_value(safes, i);
            if (OBJ_obj2nid(safe->type) != NID_pkcs7_data)
                continue;
            STACK_OF(PKCS12_SAFEBAG)* bags = PKCS12_unpack_p7data(safe);
            for (int j = 0; bags && j < sk_PKCS12_SAFEBAG_num(bags) && !found; ++j) {
                if (char* name = PKCS12_get_friendlyname(sk_PKCS12_SAFEBAG_value(bags, j))) {
                    friendlyName = QString::fromUtf8(name);
                    OPENSSL_free(name);
                    found = true;
                }
            }
            sk_PKCS12_SAFEBAG_pop_free(bags, PKCS12_SAFEBAG_free);
        }
        sk_PKCS7_pop_free(safes, PKCS7_free);
    }
    return friendlyName;
}

void CryptokiInterface::importCertificateAndKeys(EVP_PKEY* pkey, X509* cert, SecretPtr tokenpassword,
                                                 QString friendlyName)
{
    log("Cryptoki interface: importCertificateAndKeys");
    std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(pkey, EVP_PKEY_free);
    std::unique_ptr<X509, decltype(&X509_free)> certificate(cert, X509_free);

    const int keyType = key ? EVP_PKEY_get_base_id(key.get()) : 0;
    if (keyType != EVP_PKEY_RSA) {
        log(QString("Incorrect key type = %1").arg(keyType));
        certificate.reset();
        key.reset();
        emit importFinished();
        emit error(tr("Incorrect key type = %1").arg(keyType), 2);
        return;
    }
    if (!certificate) {
        log("No certificate found");
        key.reset();
        emit importFinished();
        emit error(tr("No certificate found"), 2);
        return;
    }
    log("User Certificate found");
    unsigned char* buf = nullptr;
    const int derLength = i2d_X509(certificate.get(), &buf);
    if (!buf || derLength <= 0) {
        log("OPENSSL error buf=null");
        certificate.reset();
        key.reset();
        emit importFinished();
        emit error(tr("OPENSSL error "), 2);
        return;
    }
    std::unique_ptr<unsigned char, void (*)(unsigned char*)> der(buf, [](unsigned char* p) { OPENSSL_free(p); });
    const QByteArray derBytes(reinterpret_cast<const char*>(buf), derLength);
    const QList<QSslCertificate> certs = QSslCertificate::fromData(derBytes, QSsl::Der);
    if (certs.isEmpty()) {
        log("no certificates found");
        der.reset();
        certificate.reset();
        key.reset();
        emit importFinished();
        emit error(tr("invalid certificate file"), 2);
        return;
    }
    if (!isCertValid(certs.first()))
        log("invalid certificate");
    log(QString("Found certificate: issuerInfo: %1")
            .arg(certs.first().issuerInfo(QSslCertificate::Organization).join(", ")));
    if (certExist(derBytes.constData(), derLength)) {
        log("Duplicate certificate");
        der.reset();
        certificate.reset();
        key.reset();
        emit importFinished();
        emit error(tr("Duplicate certificate"), 2);
        return;
    }

    RsaParts parts(key.get());
    CK_SESSION_HANDLE session = 0;
    C_OpenSession(1, 0, nullptr, nullptr, &session);
    CK_RV rv = C_SetTokenPassword(0, reinterpret_cast<const char*>(pinBytes(tokenpassword)), pinLength(tokenpassword));
    if (rv != CKR_OK) {
        log(QString("Password error %1").arg(CryptokiErrorString(rv)));
        emit error(tr("Password error %1").arg(CryptokiErrorString(rv)), 2);
    } else {
        rv = C_Login(session, CKU_USER, pinBytes(tokenpassword), pinLength(tokenpassword));
        if (rv != CKR_OK) {
            log(QString("Cannot login to token. %1").arg(CryptokiErrorString(rv)));
            emit importFinished();
            emit error(tr("Cannot login to token. %1").arg(CryptokiErrorString(rv)), 2);
        } else {
            // The name's character count, not its byte count, as the module has always had it.
            const QByteArray name = friendlyName.toUtf8();
            rv = C_ImportCertAndKey(0, name.constData(), static_cast<CK_ULONG>(friendlyName.length()), buf,
                                    static_cast<CK_ULONG>(derLength), parts.record);
            if (rv == CKR_OK) {
                log("Certificate installed successfully");
            } else {
                log(QString("Cannot install certificate. Code = %1").arg(rv));
                emit importFinished();
                emit error(tr("Cannot install certificate. Return code %1").arg(rv), 2);
            }
        }
        C_Logout(session);
    }
    C_CloseSession(session);
    der.reset();
    certificate.reset();
    key.reset();
    emit importFinished();
}

void CryptokiInterface::removeCertificate(const QByteArray& pkcs11id, SecretPtr tokenpassword)
{
    log("CryptokiInterface::removeCertificate");
    CK_SESSION_HANDLE session = 0;
    C_OpenSession(1, 0, nullptr, nullptr, &session);
    log("Loging into token");
    CK_RV rv = C_SetTokenPassword(0, reinterpret_cast<const char*>(pinBytes(tokenpassword)), pinLength(tokenpassword));
    if (rv != CKR_OK) {
        log(QString("Password error %1").arg(CryptokiErrorString(rv)));
        emit error(tr("Password error %1").arg(CryptokiErrorString(rv)), 2);
        C_CloseSession(session);
        return;
    }
    rv = C_Login(session, CKU_USER, pinBytes(tokenpassword), pinLength(tokenpassword));
    log(QString("C_Login result %1").arg(rv));
    if (rv != CKR_OK) {
        log(QString("Cannot login to token. %1").arg(CryptokiErrorString(rv)));
        emit error(CryptokiErrorString(rv), 2);
    } else {
        rv = C_RemoveContainerByID(0, reinterpret_cast<const unsigned char*>(pkcs11id.constData()),
                                   static_cast<CK_ULONG>(pkcs11id.size()));
        if (rv == CKR_OK) {
            log("Certificate deleted successfully");
        } else {
            log(QString("Cannot delete certificate. %1").arg(CryptokiErrorString(rv)));
            emit error(tr("Cannot delete certificate. %1").arg(CryptokiErrorString(rv)), 2);
        }
    }
    C_Logout(session);
    C_CloseSession(session);
}

QString CryptokiErrorString(unsigned long code)
{
    switch (code) {
    case 48:
        return QCoreApplication::translate("Error message", "Internal Key error");
    case 130:
        return QCoreApplication::translate("Error message", "Object not found on key");
    case 161:
        return QCoreApplication::translate("Error message", "Incorrect PIN");
    case 164:
        return QCoreApplication::translate("Error message", "Key blocked");
    case 225:
        return QCoreApplication::translate("Error message",
                                           "Your Vantrel is needed to display your certificates. Insert your Vantrel.");
    case 2147483648UL:
        return QCoreApplication::translate("Error message", "The authentication server is not responding.");
    case 2147483649UL:
        return QCoreApplication::translate("Error message", "Key was disabled by user");
    default:
        return QCoreApplication::translate(
                   "Error message",
                   "Your Vantrel does not appear to be responding correctly. Try removing and reinserting the "
                   "Vantrel. Contact support if the issue continues. Error code %1")
            .arg(QString::number(code, 16).toUpper());
    }
}
