// The vendor calls of the module: the public listing of the key and the storing and
// removing of certificates with their key pairs.
#include <openssl/bn.h>
#include <openssl/core_names.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/sha.h>
#include <openssl/x509.h>

#include <algorithm>
#include <cstddef>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "cryptoki_log.h"
#include "cryptoki_module.h"
#include "zorvik_cryptoki.h"

using zcryptoki::Module;

static_assert(offsetof(ZorvikPublicTokenData, objects) == 0 && offsetof(ZorvikPublicTokenData, count) == 8,
              "public token data layout");
static_assert(offsetof(ZorvikPublicObject, index) == 0 && offsetof(ZorvikPublicObject, id) == 8 &&
                  offsetof(ZorvikPublicObject, idLength) == 16 && offsetof(ZorvikPublicObject, type) == 48 &&
                  offsetof(ZorvikPublicObject, value) == 56 && offsetof(ZorvikPublicObject, valueLength) == 64 &&
                  offsetof(ZorvikPublicObject, exponent) == 96 && offsetof(ZorvikPublicObject, exponentLength) == 104 &&
                  offsetof(ZorvikPublicObject, label) == 232,
              "public object layout");
static_assert(offsetof(ZorvikLabel, text) == 0 && offsetof(ZorvikLabel, length) == 8, "label layout");
static_assert(sizeof(ZorvikKeyPart) == 16 && sizeof(ZorvikRsaKeyParts) == 7 * 16, "key parts layout");

namespace {

using Bytes = std::vector<unsigned char>;

Module& M()
{
    return Module::instance();
}

CK_FUNCTION_LIST& B()
{
    return *M().backend().operator->();
}

// One public-data answer; kept until the next call.
struct PublicEntry
{
    ZorvikPublicObject object{};
    ZorvikLabel label{};
    Bytes id, value, exponent, labelText;
};

struct PublicData
{
    std::vector<std::unique_ptr<PublicEntry>> entries;
    std::vector<ZorvikPublicObject*> pointers;
    ZorvikPublicTokenData data{};
};

std::mutex& vendorMutex()
{
    static std::mutex m;
    return m;
}

std::unique_ptr<PublicData>& currentPublicData()
{
    static std::unique_ptr<PublicData> data;
    return data;
}

// A session on the backing module, closed when it goes out of scope.
class ScopedSession
{
public:
    ScopedSession() = default;
    ScopedSession(const ScopedSession&) = delete;
    ScopedSession& operator=(const ScopedSession&) = delete;
    ~ScopedSession()
    {
        if (loggedInHere_)
            B().C_Logout(handle_);
        if (open_)
            B().C_CloseSession(handle_);
    }
    CK_RV open(CK_SLOT_ID slot, bool readWrite)
    {
        const CK_FLAGS flags = CKF_SERIAL_SESSION | (readWrite ? CKF_RW_SESSION : 0);
        const CK_RV rv = B().C_OpenSession(slot, flags, nullptr, nullptr, &handle_);
        open_ = rv == CKR_OK;
        return rv;
    }
    // Makes sure the user is logged in: already (by the application), or now with the PIN
    // of C_SetTokenPassword. Logs out again at the end if it logged in here.
    CK_RV ensureUser()
    {
        CK_SESSION_INFO info{};
        CK_RV rv = B().C_GetSessionInfo(handle_, &info);
        if (rv != CKR_OK)
            return rv;
        if (info.state == CKS_RW_USER_FUNCTIONS || info.state == CKS_RO_USER_FUNCTIONS)
            return CKR_OK;
        if (info.state == CKS_RW_SO_FUNCTIONS)
            return CKR_USER_ANOTHER_ALREADY_LOGGED_IN;
        if (!M().havePin())
            return CKR_USER_NOT_LOGGED_IN;
        rv = M().login(handle_, CKU_USER, nullptr, 0);
        loggedInHere_ = rv == CKR_OK;
        return rv == CKR_USER_ALREADY_LOGGED_IN ? CKR_OK : rv;
    }
    CK_SESSION_HANDLE handle() const { return handle_; }

private:
    CK_SESSION_HANDLE handle_ = 0;
    bool open_ = false;
    bool loggedInHere_ = false;
};

std::optional<Bytes> attribute(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type)
{
    CK_ATTRIBUTE a{type, nullptr, 0};
    if (B().C_GetAttributeValue(session, object, &a, 1) != CKR_OK || a.ulValueLen == CK_UNAVAILABLE_INFORMATION)
        return std::nullopt;
    Bytes value(a.ulValueLen);
    a.pValue = value.data();
    if (B().C_GetAttributeValue(session, object, &a, 1) != CKR_OK)
        return std::nullopt;
    value.resize(a.ulValueLen);
    return value;
}

std::optional<CK_ULONG> ulongAttribute(CK_SESSION_HANDLE session, CK_OBJECT_HANDLE object, CK_ATTRIBUTE_TYPE type)
{
    CK_ULONG v = 0;
    CK_ATTRIBUTE a{type, &v, sizeof v};
    if (B().C_GetAttributeValue(session, object, &a, 1) != CKR_OK)
        return std::nullopt;
    return v;
}

CK_RV findAll(CK_SESSION_HANDLE session, std::vector<CK_ATTRIBUTE> templ, std::vector<CK_OBJECT_HANDLE>& found)
{
    found.clear();
    CK_RV rv = B().C_FindObjectsInit(session, templ.data(), templ.size());
    if (rv != CKR_OK)
        return rv;
    CK_OBJECT_HANDLE batch[64];
    CK_ULONG n = 0;
    do {
        rv = B().C_FindObjects(session, batch, 64, &n);
        if (rv != CKR_OK)
            break;
        found.insert(found.end(), batch, batch + n);
    } while (n == 64);
    const CK_RV fin = B().C_FindObjectsFinal(session);
    return rv != CKR_OK ? rv : fin;
}

// Public objects that a change cut short by the key's removal left behind: the first half of
// an import whose undoing failed, the rest of a removal whose private key had gone. A
// certificate without its private key is of no use and must not look like an entry of the
// key, so they are removed the next time the key is reached. Private keys are always made
// last and removed first, so none is ever left behind where only a login would find it.
struct Leftover
{
    std::string token; // the serial number of the token they are on
    Bytes id;
    CK_OBJECT_CLASS objectClass;
    Bytes value; // a certificate's DER, when only that certificate is meant
};

std::vector<Leftover>& leftovers()
{
    static std::vector<Leftover> pending;
    return pending;
}

std::string tokenSerial(CK_SLOT_ID backendSlot)
{
    CK_TOKEN_INFO info{};
    if (B().C_GetTokenInfo(backendSlot, &info) != CKR_OK)
        return std::string();
    return std::string(reinterpret_cast<const char*>(info.serialNumber), sizeof info.serialNumber);
}

// Removes what leftovers() names from the key in `backendSlot` (under the vendor mutex).
void settleLeftovers(CK_SLOT_ID backendSlot)
{
    auto& pending = leftovers();
    if (pending.empty())
        return;
    const std::string token = tokenSerial(backendSlot);
    CK_SESSION_HANDLE s = 0;
    if (B().C_OpenSession(backendSlot, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &s) != CKR_OK)
        return;
    for (auto it = pending.begin(); it != pending.end();) {
        if (it->token != token) {
            ++it;
            continue;
        }
        std::vector<CK_ATTRIBUTE> templ = {
            {CKA_CLASS, &it->objectClass, sizeof it->objectClass},
            {CKA_ID, it->id.data(), static_cast<CK_ULONG>(it->id.size())}};
        if (!it->value.empty())
            templ.push_back({CKA_VALUE, it->value.data(), static_cast<CK_ULONG>(it->value.size())});
        std::vector<CK_OBJECT_HANDLE> found;
        CK_RV rv = findAll(s, templ, found);
        for (CK_OBJECT_HANDLE h : found) {
            if (rv == CKR_OK)
                rv = B().C_DestroyObject(s, h);
        }
        if (rv != CKR_OK) {
            ++it;
            continue;
        }
        if (!found.empty())
            zcryptoki::logInfo("removed what an interrupted change left under ID " +
                               zcryptoki::hexBytes(it->id.data(), it->id.size()));
        it = pending.erase(it);
    }
    B().C_CloseSession(s);
}

// The codes the dashboard knows; codes that say nothing about the key pass unchanged.
CK_RV vendorCode(CK_RV rv)
{
    switch (rv) {
    case CKR_PIN_INCORRECT:
        return CKR_PIN_INVALID;
    case CKR_DEVICE_REMOVED:
    case CKR_TOKEN_NOT_PRESENT:
    case CKR_TOKEN_NOT_RECOGNIZED:
        return CKR_TOKEN_NOT_RECOGNIZED;
    case CKR_DEVICE_ERROR:
    case CKR_DEVICE_MEMORY:
    case CKR_GENERAL_ERROR:
    case CKR_FUNCTION_FAILED:
    case CKR_HOST_MEMORY:
        return CKR_DEVICE_ERROR;
    default:
        return rv;
    }
}

// The backing slot of the key's token for a vendor call naming `slot`.
CK_RV vendorToken(CK_SLOT_ID slot, CK_SLOT_ID* backendSlot)
{
    if (!M().initialized())
        return CKR_CRYPTOKI_NOT_INITIALIZED;
    if (slot != ZORVIK_CRYPTOKI_ANY_SLOT && slot != ZORVIK_CRYPTOKI_SLOT)
        return CKR_SLOT_ID_INVALID;
    const CK_RV rv = M().lookAtKey(true, backendSlot);
    if (rv == CKR_OK || rv == CKR_CRYPTOKI_NOT_INITIALIZED || rv == CKR_DEVICE_ERROR)
        return rv;
    return CKR_TOKEN_NOT_RECOGNIZED;
}

CK_ATTRIBUTE attr(CK_ATTRIBUTE_TYPE type, const void* value, size_t length)
{
    return CK_ATTRIBUTE{type, const_cast<void*>(value), static_cast<CK_ULONG>(length)};
}

template <typename T> CK_ATTRIBUTE attr(CK_ATTRIBUTE_TYPE type, const T& value)
{
    return attr(type, &value, sizeof value);
}

// ---- listing

CK_RV collect(CK_SESSION_HANDLE session, PublicData& out)
{
    struct Item
    {
        Bytes id;
        int type;
        std::optional<Bytes> label;
        Bytes value, exponent;
    };
    std::vector<Item> items;
    std::vector<CK_OBJECT_HANDLE> found;

    const CK_OBJECT_CLASS certClass = CKO_CERTIFICATE;
    CK_RV rv = findAll(session, {attr(CKA_CLASS, certClass)}, found);
    if (rv != CKR_OK)
        return rv;
    for (CK_OBJECT_HANDLE h : found) {
        const auto certType = ulongAttribute(session, h, CKA_CERTIFICATE_TYPE);
        if (certType && *certType != CKC_X_509)
            continue;
        items.push_back({attribute(session, h, CKA_ID).value_or(Bytes()), ZORVIK_OBJECT_CERTIFICATE,
                         attribute(session, h, CKA_LABEL), attribute(session, h, CKA_VALUE).value_or(Bytes()),
                         Bytes()});
    }

    // Key pairs: the public keys, and private keys (visible after a login) without one.
    std::vector<Bytes> keyIds;
    for (CK_OBJECT_CLASS keyClass : {CKO_PUBLIC_KEY, CKO_PRIVATE_KEY}) {
        const CK_KEY_TYPE rsa = CKK_RSA;
        rv = findAll(session, {attr(CKA_CLASS, keyClass), attr(CKA_KEY_TYPE, rsa)}, found);
        if (rv != CKR_OK)
            return rv;
        for (CK_OBJECT_HANDLE h : found) {
            Bytes id = attribute(session, h, CKA_ID).value_or(Bytes());
            if (keyClass == CKO_PRIVATE_KEY && !id.empty() && std::count(keyIds.begin(), keyIds.end(), id))
                continue;
            if (keyClass == CKO_PUBLIC_KEY)
                keyIds.push_back(id);
            items.push_back({id, ZORVIK_OBJECT_RSA_KEYPAIR, attribute(session, h, CKA_LABEL),
                             attribute(session, h, CKA_MODULUS).value_or(Bytes()),
                             attribute(session, h, CKA_PUBLIC_EXPONENT).value_or(Bytes())});
        }
    }

    // A certificate next to its key pair, in the order of the identifiers.
    std::stable_sort(items.begin(), items.end(),
                     [](const Item& a, const Item& b) { return a.id != b.id ? a.id < b.id : a.type < b.type; });
    for (Item& item : items) {
        auto e = std::make_unique<PublicEntry>();
        e->id = std::move(item.id);
        e->value = std::move(item.value);
        e->exponent = std::move(item.exponent);
        e->object.index = static_cast<int32_t>(out.entries.size());
        e->object.type = item.type;
        e->object.id = e->id.data();
        e->object.idLength = static_cast<uint32_t>(e->id.size());
        e->object.value = e->value.data();
        e->object.valueLength = static_cast<uint32_t>(e->value.size());
        e->object.exponent = e->exponent.data();
        e->object.exponentLength = static_cast<uint32_t>(e->exponent.size());
        if (item.label) {
            e->labelText = std::move(*item.label);
            const size_t length = e->labelText.size();
            e->labelText.push_back(0);
            e->label.text = e->labelText.data();
            e->label.length = static_cast<uint32_t>(length);
            e->object.label = &e->label;
        }
        out.pointers.push_back(&e->object);
        out.entries.push_back(std::move(e));
    }
    out.data.objects = out.pointers.empty() ? nullptr : out.pointers.data();
    out.data.count = static_cast<int32_t>(out.pointers.size());
    return CKR_OK;
}

// ---- import

using BigNum = std::unique_ptr<BIGNUM, decltype(&BN_clear_free)>;
using BnCtx = std::unique_ptr<BN_CTX, decltype(&BN_CTX_free)>;
using X509Ptr = std::unique_ptr<X509, decltype(&X509_free)>;

BigNum bn(const ZorvikKeyPart& part)
{
    return BigNum(BN_bin2bn(part.data, static_cast<int>(part.length), nullptr), BN_clear_free);
}

BigNum newBn()
{
    return BigNum(BN_new(), BN_clear_free);
}

// The big-endian magnitude of `n`; wiped by the caller for secrets.
Bytes toBytes(const BIGNUM* n)
{
    Bytes out(static_cast<size_t>(BN_num_bytes(n)));
    BN_bn2bin(n, out.data());
    return out;
}

// Drops a last UTF-8 sequence that was cut short and anything from the first NUL on.
std::string cleanLabel(const char* name, size_t length)
{
    std::string s(name, length);
    const auto nul = s.find('\0');
    if (nul != std::string::npos)
        s.erase(nul);
    size_t i = s.size();
    size_t continuation = 0;
    while (i > 0 && (static_cast<unsigned char>(s[i - 1]) & 0xC0) == 0x80) {
        --i;
        ++continuation;
    }
    if (i > 0) {
        const auto lead = static_cast<unsigned char>(s[i - 1]);
        const size_t need = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : lead >= 0xC0 ? 1 : 0;
        if (lead >= 0xC0 && continuation < need)
            s.erase(i - 1);
    }
    return s;
}

std::string commonName(X509* cert)
{
    X509_NAME* subject = X509_get_subject_name(cert);
    const int at = X509_NAME_get_index_by_NID(subject, NID_commonName, -1);
    if (at < 0)
        return {};
    unsigned char* utf8 = nullptr;
    const int n = ASN1_STRING_to_UTF8(&utf8, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(subject, at)));
    if (n < 0)
        return {};
    std::string cn(reinterpret_cast<char*>(utf8), static_cast<size_t>(n));
    OPENSSL_free(utf8);
    return cn;
}

Bytes derOf(int (*encode)(const void*, unsigned char**), const void* object)
{
    const int n = encode(object, nullptr);
    if (n <= 0)
        return {};
    Bytes out(static_cast<size_t>(n));
    unsigned char* p = out.data();
    encode(object, &p);
    return out;
}

int encodeName(const void* name, unsigned char** out)
{
    return i2d_X509_NAME(static_cast<const X509_NAME*>(name), out);
}

int encodeInteger(const void* integer, unsigned char** out)
{
    return i2d_ASN1_INTEGER(static_cast<const ASN1_INTEGER*>(integer), out);
}

// What the import checked and derived before touching the token.
struct PreparedImport
{
    Bytes id, label, der, subject, issuer, serial, modulus, exponent, privateExponent;
    ~PreparedImport()
    {
        if (!privateExponent.empty())
            OPENSSL_cleanse(privateExponent.data(), privateExponent.size());
    }
};

CK_RV prepareImport(const char* name, CK_ULONG nameLength, const unsigned char* der, CK_ULONG derLength,
                    const ZorvikRsaKeyParts& parts, PreparedImport& out)
{
    if (!der || derLength == 0 || (!name && nameLength > 0)) {
        zcryptoki::logError("import refused: no certificate given");
        return CKR_ARGUMENTS_BAD;
    }
    for (const ZorvikKeyPart* part : {&parts.modulus, &parts.publicExponent, &parts.prime1, &parts.prime2,
                                      &parts.exponent1, &parts.exponent2, &parts.coefficient}) {
        if (!part->data || part->length == 0 || part->length > 2048) {
            zcryptoki::logError("import refused: an RSA key part is missing or too long");
            return CKR_ARGUMENTS_BAD;
        }
    }
    const unsigned char* p = der;
    X509Ptr cert(d2i_X509(nullptr, &p, static_cast<long>(derLength)), X509_free);
    if (!cert || p != der + derLength) {
        zcryptoki::logError("import refused: the certificate is not one DER-encoded X.509 certificate");
        return CKR_ARGUMENTS_BAD;
    }
    BnCtx ctx(BN_CTX_new(), BN_CTX_free);
    BigNum n = bn(parts.modulus), e = bn(parts.publicExponent), pr = bn(parts.prime1), q = bn(parts.prime2),
           dp = bn(parts.exponent1), dq = bn(parts.exponent2), qinv = bn(parts.coefficient);
    if (!ctx || !n || !e || !pr || !q || !dp || !dq || !qinv)
        return CKR_HOST_MEMORY;

    // The certificate must carry this key's public half.
    EVP_PKEY* certKey = X509_get0_pubkey(cert.get());
    BIGNUM* certN = nullptr;
    BIGNUM* certE = nullptr;
    bool sameKey = false;
    if (certKey && EVP_PKEY_get_base_id(certKey) == EVP_PKEY_RSA &&
        EVP_PKEY_get_bn_param(certKey, OSSL_PKEY_PARAM_RSA_N, &certN) &&
        EVP_PKEY_get_bn_param(certKey, OSSL_PKEY_PARAM_RSA_E, &certE))
        sameKey = BN_cmp(certN, n.get()) == 0 && BN_cmp(certE, e.get()) == 0;
    BN_free(certN);
    BN_free(certE);
    if (!sameKey) {
        zcryptoki::logError("import refused: the key does not belong to the certificate");
        return CKR_TEMPLATE_INCONSISTENT;
    }

    // The parts must make one RSA key; the private exponent is derived from them:
    // d = e^-1 mod lcm(p-1, q-1).
    BigNum pq = newBn(), p1 = newBn(), q1 = newBn(), g = newBn(), lambda = newBn(), d = newBn(), check = newBn();
    if (!pq || !p1 || !q1 || !g || !lambda || !d || !check)
        return CKR_HOST_MEMORY;
    bool consistent = BN_mul(pq.get(), pr.get(), q.get(), ctx.get()) && BN_cmp(pq.get(), n.get()) == 0 &&
                      BN_sub(p1.get(), pr.get(), BN_value_one()) && BN_sub(q1.get(), q.get(), BN_value_one()) &&
                      BN_gcd(g.get(), p1.get(), q1.get(), ctx.get()) &&
                      BN_mul(lambda.get(), p1.get(), q1.get(), ctx.get()) &&
                      BN_div(lambda.get(), nullptr, lambda.get(), g.get(), ctx.get()) &&
                      BN_mod_inverse(d.get(), e.get(), lambda.get(), ctx.get()) != nullptr;
    consistent = consistent && BN_mod(check.get(), d.get(), p1.get(), ctx.get()) && BN_cmp(check.get(), dp.get()) == 0;
    consistent = consistent && BN_mod(check.get(), d.get(), q1.get(), ctx.get()) && BN_cmp(check.get(), dq.get()) == 0;
    consistent =
        consistent && BN_mod_mul(check.get(), qinv.get(), q.get(), pr.get(), ctx.get()) && BN_is_one(check.get());
    if (!consistent) {
        zcryptoki::logError("import refused: the RSA key parts do not make one key");
        return CKR_TEMPLATE_INCONSISTENT;
    }

    out.modulus = toBytes(n.get());
    out.exponent = toBytes(e.get());
    out.privateExponent = toBytes(d.get());
    out.id.resize(SHA_DIGEST_LENGTH);
    SHA1(out.modulus.data(), out.modulus.size(), out.id.data());
    std::string label = cleanLabel(name ? name : "", nameLength);
    if (label.empty())
        label = commonName(cert.get());
    out.label.assign(label.begin(), label.end());
    out.der.assign(der, der + derLength);
    out.subject = derOf(encodeName, X509_get_subject_name(cert.get()));
    out.issuer = derOf(encodeName, X509_get_issuer_name(cert.get()));
    out.serial = derOf(encodeInteger, X509_get0_serialNumber(cert.get()));
    return CKR_OK;
}

CK_RV storeImport(CK_SESSION_HANDLE s, const std::string& token, const PreparedImport& in,
                  const ZorvikRsaKeyParts& parts)
{
    const CK_BBOOL yes = CK_TRUE, no = CK_FALSE;
    const CK_KEY_TYPE rsa = CKK_RSA;
    const CK_OBJECT_CLASS certClass = CKO_CERTIFICATE, privClass = CKO_PRIVATE_KEY, pubClass = CKO_PUBLIC_KEY;
    const CK_CERTIFICATE_TYPE x509 = CKC_X_509;
    const CK_ATTRIBUTE idAttr = attr(CKA_ID, in.id.data(), in.id.size());

    // What is stored under the identifier already is not stored twice.
    std::vector<CK_OBJECT_HANDLE> found;
    CK_RV rv = findAll(s, {attr(CKA_CLASS, privClass), idAttr}, found);
    if (rv != CKR_OK)
        return rv;
    const bool havePrivate = !found.empty();
    rv = findAll(s, {attr(CKA_CLASS, pubClass), idAttr}, found);
    if (rv != CKR_OK)
        return rv;
    const bool havePublic = !found.empty();
    rv = findAll(s, {attr(CKA_CLASS, certClass), idAttr, attr(CKA_VALUE, in.der.data(), in.der.size())}, found);
    if (rv != CKR_OK)
        return rv;
    const bool haveCert = !found.empty();

    std::vector<std::pair<CK_OBJECT_HANDLE, CK_OBJECT_CLASS>> created;
    auto create = [&](std::vector<CK_ATTRIBUTE> templ) {
        CK_OBJECT_HANDLE h = 0;
        const CK_RV r = B().C_CreateObject(s, templ.data(), templ.size(), &h);
        if (r == CKR_OK)
            created.emplace_back(h, *static_cast<const CK_OBJECT_CLASS*>(templ.front().pValue));
        return r;
    };
    const CK_ATTRIBUTE labelAttr = attr(CKA_LABEL, in.label.data(), in.label.size());
    const CK_ATTRIBUTE subjectAttr = attr(CKA_SUBJECT, in.subject.data(), in.subject.size());
    const CK_ATTRIBUTE modulusAttr = attr(CKA_MODULUS, in.modulus.data(), in.modulus.size());
    const CK_ATTRIBUTE exponentAttr = attr(CKA_PUBLIC_EXPONENT, in.exponent.data(), in.exponent.size());
    // The public objects first, the private key last: a removal of the key halfway leaves
    // nothing that only a login would find.
    rv = CKR_OK;
    if (!havePublic) {
        rv = create({attr(CKA_CLASS, pubClass), attr(CKA_KEY_TYPE, rsa), attr(CKA_TOKEN, yes), attr(CKA_PRIVATE, no),
                     attr(CKA_ENCRYPT, yes), attr(CKA_VERIFY, yes), attr(CKA_VERIFY_RECOVER, yes), attr(CKA_WRAP, yes),
                     labelAttr, idAttr, subjectAttr, modulusAttr, exponentAttr});
    }
    if (rv == CKR_OK && !haveCert) {
        rv = create({attr(CKA_CLASS, certClass), attr(CKA_CERTIFICATE_TYPE, x509), attr(CKA_TOKEN, yes),
                     attr(CKA_PRIVATE, no), labelAttr, idAttr, subjectAttr,
                     attr(CKA_ISSUER, in.issuer.data(), in.issuer.size()),
                     attr(CKA_SERIAL_NUMBER, in.serial.data(), in.serial.size()),
                     attr(CKA_VALUE, in.der.data(), in.der.size())});
    }
    if (rv == CKR_OK && !havePrivate) {
        rv = create({attr(CKA_CLASS, privClass),
                     attr(CKA_KEY_TYPE, rsa),
                     attr(CKA_TOKEN, yes),
                     attr(CKA_PRIVATE, yes),
                     attr(CKA_SENSITIVE, yes),
                     attr(CKA_EXTRACTABLE, no),
                     attr(CKA_DECRYPT, yes),
                     attr(CKA_SIGN, yes),
                     attr(CKA_SIGN_RECOVER, yes),
                     attr(CKA_UNWRAP, yes),
                     labelAttr,
                     idAttr,
                     subjectAttr,
                     modulusAttr,
                     exponentAttr,
                     attr(CKA_PRIVATE_EXPONENT, in.privateExponent.data(), in.privateExponent.size()),
                     attr(CKA_PRIME_1, parts.prime1.data, parts.prime1.length),
                     attr(CKA_PRIME_2, parts.prime2.data, parts.prime2.length),
                     attr(CKA_EXPONENT_1, parts.exponent1.data, parts.exponent1.length),
                     attr(CKA_EXPONENT_2, parts.exponent2.data, parts.exponent2.length),
                     attr(CKA_COEFFICIENT, parts.coefficient.data, parts.coefficient.length)});
    }
    if (rv != CKR_OK) {
        // All or nothing; what cannot be undone now (the key went) goes at the next call.
        for (const auto& [handle, objectClass] : created) {
            if (B().C_DestroyObject(s, handle) != CKR_OK)
                leftovers().push_back({token, in.id, objectClass, objectClass == certClass ? in.der : Bytes()});
        }
        return rv;
    }
    if (havePrivate && havePublic && haveCert)
        zcryptoki::logInfo("import: the certificate and key under ID " +
                           zcryptoki::hexBytes(in.id.data(), in.id.size()) + " are stored already");
    return CKR_OK;
}

} // namespace

namespace zcryptoki {

void releasePublicData()
{
    std::lock_guard<std::mutex> lock(vendorMutex());
    currentPublicData().reset();
}

} // namespace zcryptoki

extern "C" {

CK_ULONG C_GetAvailableTokensCount(void)
{
    ZC_ENTER(0);
    return M().lookAtKey(true) == CKR_OK ? 1 : 0;
}

CK_RV C_GetPublicTokenData(CK_SLOT_ID slot, ZorvikPublicTokenData** data)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    if (!data)
        return CKR_ARGUMENTS_BAD;
    std::lock_guard<std::mutex> lock(vendorMutex());
    *data = nullptr;
    currentPublicData().reset();
    CK_SLOT_ID backendSlot = 0;
    CK_RV rv = vendorToken(slot, &backendSlot);
    if (rv != CKR_OK)
        return rv;
    settleLeftovers(backendSlot);
    ScopedSession session;
    rv = session.open(backendSlot, false);
    if (rv != CKR_OK) {
        zcryptoki::logError("public data: cannot open a session, code " + zcryptoki::hexCode(rv));
        return vendorCode(rv);
    }
    auto result = std::make_unique<PublicData>();
    rv = collect(session.handle(), *result);
    if (rv != CKR_OK) {
        zcryptoki::logError("public data: cannot read the key's objects, code " + zcryptoki::hexCode(rv));
        return vendorCode(rv);
    }
    zcryptoki::logDebug("public data: " + std::to_string(result->data.count) + " objects");
    currentPublicData() = std::move(result);
    *data = &currentPublicData()->data;
    return CKR_OK;
}

CK_RV C_SetTokenPassword(CK_SLOT_ID slot, const char* pin, CK_ULONG pinLength)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    if (!pin && pinLength > 0)
        return CKR_ARGUMENTS_BAD;
    CK_SLOT_ID backendSlot = 0;
    const CK_RV rv = vendorToken(slot, &backendSlot);
    if (rv != CKR_OK)
        return rv;
    CK_TOKEN_INFO info{};
    if (B().C_GetTokenInfo(backendSlot, &info) == CKR_OK &&
        (pinLength < info.ulMinPinLen || (info.ulMaxPinLen && pinLength > info.ulMaxPinLen))) {
        zcryptoki::logWarning("PIN refused: its length is outside " + std::to_string(info.ulMinPinLen) + " to " +
                              std::to_string(info.ulMaxPinLen));
        return CKR_PIN_LEN_RANGE;
    }
    if (pinLength == 0)
        return CKR_PIN_LEN_RANGE;
    M().storePin(reinterpret_cast<const unsigned char*>(pin), pinLength);
    return CKR_OK;
}

CK_RV C_ImportCertAndKey(CK_SLOT_ID slot, const char* name, CK_ULONG nameLength, const unsigned char* der,
                         CK_ULONG derLength, ZorvikRsaKeyParts keyParts)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    std::lock_guard<std::mutex> lock(vendorMutex());
    CK_SLOT_ID backendSlot = 0;
    CK_RV rv = vendorToken(slot, &backendSlot);
    if (rv != CKR_OK)
        return rv;
    settleLeftovers(backendSlot);
    PreparedImport prepared;
    rv = prepareImport(name, nameLength, der, derLength, keyParts, prepared);
    if (rv != CKR_OK)
        return rv;
    ScopedSession session;
    rv = session.open(backendSlot, true);
    if (rv == CKR_OK)
        rv = session.ensureUser();
    if (rv == CKR_OK)
        rv = storeImport(session.handle(), tokenSerial(backendSlot), prepared, keyParts);
    const std::string what = "certificate \"" + std::string(prepared.label.begin(), prepared.label.end()) +
                             "\" with its key pair, ID " + zcryptoki::hexBytes(prepared.id.data(), prepared.id.size());
    if (rv != CKR_OK) {
        zcryptoki::logError("cannot store the " + what + ", code " + zcryptoki::hexCode(rv));
        return vendorCode(rv);
    }
    zcryptoki::logInfo("stored the " + what);
    return CKR_OK;
}

CK_RV C_RemoveContainerByID(CK_SLOT_ID slot, const unsigned char* id, CK_ULONG idLength)
{
    ZC_ENTER(CKR_CRYPTOKI_NOT_INITIALIZED);
    if (!id || idLength == 0)
        return CKR_ARGUMENTS_BAD;
    std::lock_guard<std::mutex> lock(vendorMutex());
    CK_SLOT_ID backendSlot = 0;
    CK_RV rv = vendorToken(slot, &backendSlot);
    if (rv != CKR_OK)
        return rv;
    settleLeftovers(backendSlot);
    const std::string hexId = zcryptoki::hexBytes(id, idLength);
    ScopedSession session;
    rv = session.open(backendSlot, true);
    // The private key is seen only after a login; removing the rest without it would
    // leave it behind.
    if (rv == CKR_OK)
        rv = session.ensureUser();
    std::vector<CK_OBJECT_HANDLE> found;
    if (rv == CKR_OK)
        rv = findAll(session.handle(), {attr(CKA_ID, id, idLength)}, found);
    if (rv != CKR_OK) {
        zcryptoki::logError("cannot remove the objects under ID " + hexId + ", code " + zcryptoki::hexCode(rv));
        return vendorCode(rv);
    }
    if (found.empty()) {
        zcryptoki::logWarning("nothing to remove under ID " + hexId);
        return CKR_OBJECT_HANDLE_INVALID;
    }
    // Private keys first: one never stays behind where only a login would find it.
    std::vector<std::pair<bool, CK_OBJECT_HANDLE>> byKind;
    for (CK_OBJECT_HANDLE h : found) {
        const auto objectClass = ulongAttribute(session.handle(), h, CKA_CLASS);
        byKind.emplace_back(objectClass && *objectClass != CKO_PRIVATE_KEY, h);
    }
    std::stable_sort(byKind.begin(), byKind.end(),
                     [](const auto& a, const auto& b) { return a.first < b.first; });
    const std::string token = tokenSerial(backendSlot);
    for (const auto& [isPublic, h] : byKind) {
        rv = B().C_DestroyObject(session.handle(), h);
        if (rv != CKR_OK) {
            zcryptoki::logError("cannot remove an object under ID " + hexId + ", code " + zcryptoki::hexCode(rv));
            // The private key is gone: the rest goes the next time the key is reached.
            if (isPublic) {
                const Bytes idBytes(id, id + idLength);
                leftovers().push_back({token, idBytes, CKO_PUBLIC_KEY, Bytes()});
                leftovers().push_back({token, idBytes, CKO_CERTIFICATE, Bytes()});
            }
            return vendorCode(rv);
        }
    }
    zcryptoki::logInfo("removed " + std::to_string(found.size()) + " objects under ID " + hexId);
    return CKR_OK;
}

} // extern "C"
