// libzorvik-cryptoki over a private SoftHSM2 token, called the way the dashboard calls it.
// No card: ZORVIK_CRYPTOKI_NO_CARDS makes the token available, and the PC/SC client of this
// process points at a socket where no service listens.
#include <QtTest>

#include <openssl/evp.h>

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <thread>

#include "softhsm_token.h"
#include "test_credential.h"
#include "test_support.h"
#include "zorvik_cryptoki.h"

namespace {

// One object of the public token data, read at the offsets the dashboard reads.
struct Listed
{
    int index = -1;
    QByteArray id;
    int type = 0;
    QByteArray value;
    QByteArray exponent;
    bool hasLabel = false;
    QString label;
};

template <typename T> T at(const void* base, size_t offset)
{
    T v;
    std::memcpy(&v, static_cast<const char*>(base) + offset, sizeof v);
    return v;
}

QByteArray bytesAt(const void* object, size_t pointerOffset, size_t lengthOffset)
{
    const auto* p = at<const char*>(object, pointerOffset);
    const auto n = at<uint32_t>(object, lengthOffset);
    return p ? QByteArray(p, static_cast<int>(n)) : QByteArray();
}

QList<Listed> listObjects(CK_RV* result)
{
    ZorvikPublicTokenData* data = nullptr;
    *result = C_GetPublicTokenData(0, &data);
    QList<Listed> out;
    if (*result != CKR_OK || !data)
        return out;
    const auto* const* objects = at<void**>(data, 0);
    const int count = at<int32_t>(data, 8);
    for (int i = 0; i < count; ++i) {
        const void* o = objects[i];
        Listed l;
        l.index = at<int32_t>(o, 0);
        l.id = bytesAt(o, 8, 16);
        l.type = at<int32_t>(o, 48);
        l.value = bytesAt(o, 56, 64);
        l.exponent = bytesAt(o, 96, 104);
        if (const void* label = at<const void*>(o, 232)) {
            l.hasLabel = true;
            l.label = QString::fromUtf8(bytesAt(label, 0, 8));
        }
        out << l;
    }
    return out;
}

QList<Listed> listOrFail()
{
    CK_RV rv = 0;
    const QList<Listed> l = listObjects(&rv);
    if (rv != CKR_OK)
        qWarning("C_GetPublicTokenData failed with %lu", rv);
    return l;
}

// The key parts record handed to C_ImportCertAndKey; keeps the bytes it points at.
struct KeyParts
{
    explicit KeyParts(const QList<QByteArray>& parts) : bytes(parts)
    {
        ZorvikKeyPart* fields[] = {&record.modulus,   &record.publicExponent, &record.prime1,     &record.prime2,
                                   &record.exponent1, &record.exponent2,      &record.coefficient};
        for (int i = 0; i < 7; ++i) {
            fields[i]->data = reinterpret_cast<const unsigned char*>(bytes[i].constData());
            fields[i]->length = static_cast<uint64_t>(bytes[i].size());
        }
    }
    QList<QByteArray> bytes;
    ZorvikRsaKeyParts record{};
};

CK_RV importCert(const QByteArray& name, const QByteArray& der, const QList<QByteArray>& parts)
{
    KeyParts kp(parts);
    return C_ImportCertAndKey(0, name.constData(), static_cast<CK_ULONG>(name.size()),
                              reinterpret_cast<const unsigned char*>(der.constData()),
                              static_cast<CK_ULONG>(der.size()), kp.record);
}

// The dashboard's sequence: session on slot 1, token password, user login, then `action`.
CK_RV asDashboard(const QByteArray& pin, const std::function<CK_RV()>& action)
{
    CK_SESSION_HANDLE session = 0;
    CK_RV rv = C_OpenSession(1, 0, nullptr, nullptr, &session);
    if (rv != CKR_OK)
        return rv;
    rv = C_SetTokenPassword(0, pin.constData(), static_cast<CK_ULONG>(pin.size()));
    if (rv == CKR_OK) {
        rv = C_Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(const_cast<char*>(pin.constData())),
                     static_cast<CK_ULONG>(pin.size()));
        if (rv == CKR_OK) {
            rv = action();
            C_Logout(session);
        }
    }
    C_CloseSession(session);
    return rv;
}

CK_RV loginOnce(const QByteArray& pin)
{
    return asDashboard(pin, [] { return CKR_OK; });
}

// The control calls of tests/certstore/faulty_backend.cpp, once the module has loaded it.
struct FaultyBackend
{
    void (*set)(int growSlotListOnce, int slowTokenInfoMs) = nullptr;
    int (*callsInFlight)() = nullptr;
    int (*finalizedUnderCalls)() = nullptr;

    bool resolve()
    {
        void* handle = dlopen(FAULTY_BACKEND, RTLD_NOW | RTLD_NOLOAD);
        if (!handle)
            return false;
        set = reinterpret_cast<decltype(set)>(dlsym(handle, "faulty_backend_set"));
        callsInFlight = reinterpret_cast<decltype(callsInFlight)>(dlsym(handle, "faulty_backend_calls_in_flight"));
        finalizedUnderCalls =
            reinterpret_cast<decltype(finalizedUnderCalls)>(dlsym(handle, "faulty_backend_finalized_under_calls"));
        dlclose(handle);
        return set && callsInFlight && finalizedUnderCalls;
    }
};

} // namespace

class TestCryptokiModule : public QObject
{
    Q_OBJECT

private:
    // A fresh token and a fresh module initialisation over it.
    void freshToken(const QString& pin = kPin);
    // Objects under `id` as SoftHSM2 itself holds them (private keys included).
    int backendObjectsWithId(const QByteArray& id);
    // The module initialised anew over the faulty backend, in front of the current token.
    void overFaultyBackend(FaultyBackend* faults);

    static constexpr const char* kPin = "8642097531";
    TestHome home_;
    std::unique_ptr<SoftHsmToken> token_;

private slots:
    void initTestCase();
    void cleanupTestCase();

    void slotsOfTheKey();
    void listingAndImport();
    void importedKeyWorks();
    void importRefusesWhatCannotBeStored();
    void importNeedsALogin();
    void labels();
    void removalByIdentifier();
    void wrongAndLockedPin();
    void lockingCanBeLeftToTheBackend();
    void noVantrelNoToken();
    void backendCannotBeLoaded();
    void finalizeWaitsForCallsUnderWay();
    void refusesFilesNotItsOwn_data();
    void refusesFilesNotItsOwn();
    void slotListingThatGrowsKeepsSessions();
};

void TestCryptokiModule::initTestCase()
{
    QVERIFY(home_.isValid());
    home_.apply();
    // This process's PC/SC client talks to a socket where no pcscd listens.
    qputenv("PCSCLITE_CSOCK_NAME", (home_.path() + "/no-pcscd.comm").toLocal8Bit());
    qunsetenv("ZORVIK_CRYPTOKI_CONF");
    freshToken();
}

void TestCryptokiModule::cleanupTestCase()
{
    C_Finalize(nullptr);
    QVERIFY2(!home_.readLog().contains(kPin), "a PIN reached the log");
    QDir syslogs(home_.systemLogDir());
    for (const QString& f : syslogs.entryList(QDir::Files)) {
        QFile file(syslogs.filePath(f));
        QVERIFY(file.open(QIODevice::ReadOnly));
        QVERIFY2(!file.readAll().contains(kPin), "a PIN reached the system log");
    }
}

void TestCryptokiModule::freshToken(const QString& pin)
{
    C_Finalize(nullptr);
    token_ = std::make_unique<SoftHsmToken>("Vantrel", pin);
    QVERIFY2(token_->isValid(), qPrintable(token_->errorText()));
    token_->apply(true);
    QCOMPARE(C_Initialize(nullptr), CKR_OK);
}

void TestCryptokiModule::overFaultyBackend(FaultyBackend* faults)
{
    C_Finalize(nullptr);
    qputenv("FAULTY_BACKEND_TARGET", SoftHsmToken::backendPath().toLocal8Bit());
    qputenv("ZORVIK_CRYPTOKI_BACKEND", FAULTY_BACKEND);
    QCOMPARE(C_Initialize(nullptr), CKR_OK);
    QVERIFY(faults->resolve());
    faults->set(0, 0);
}

int TestCryptokiModule::backendObjectsWithId(const QByteArray& id)
{
    QString out;
    const int rc = token_->pkcs11Tool({"--login", "--pin", token_->pin(), "--list-objects"}, &out, false);
    if (rc != 0)
        return -1;
    return out.count("ID:         " + QString::fromLatin1(id.toHex()));
}

void TestCryptokiModule::slotsOfTheKey()
{
    QCOMPARE(C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);

    CK_ULONG n = 0;
    QCOMPARE(C_GetSlotList(CK_TRUE, nullptr, &n), CKR_OK);
    QCOMPARE(n, CK_ULONG(1));
    CK_SLOT_ID slot = 0;
    QCOMPARE(C_GetSlotList(CK_TRUE, &slot, &n), CKR_OK);
    QCOMPARE(slot, CK_SLOT_ID(ZORVIK_CRYPTOKI_SLOT));

    CK_TOKEN_INFO info{};
    QCOMPARE(C_GetTokenInfo(1, &info), CKR_OK);
    QCOMPARE(QByteArray(reinterpret_cast<char*>(info.label), 32).trimmed(), QByteArray("Vantrel"));
    QCOMPARE(QByteArray(reinterpret_cast<char*>(info.model), 16).trimmed(), QByteArray("Vantrel"));
    QVERIFY(!(info.flags & CKF_USER_PIN_LOCKED));
    CK_SLOT_INFO slotInfo{};
    QCOMPARE(C_GetSlotInfo(1, &slotInfo), CKR_OK);
    QVERIFY(slotInfo.flags & CKF_TOKEN_PRESENT);
    QVERIFY(slotInfo.flags & CKF_REMOVABLE_DEVICE);

    // The dashboard names slot 0 in the vendor calls and opens its sessions on slot 1.
    QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
    ZorvikPublicTokenData* data = nullptr;
    QCOMPARE(C_GetPublicTokenData(0, &data), CKR_OK);
    QVERIFY(data);
    QCOMPARE(data->count, 0);
    QCOMPARE(C_GetPublicTokenData(1, &data), CKR_OK);
    QCOMPARE(C_GetPublicTokenData(7, &data), CKR_SLOT_ID_INVALID);
    CK_SESSION_HANDLE session = 0;
    QCOMPARE(C_OpenSession(0, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_SLOT_ID_INVALID);
    QCOMPARE(C_OpenSession(1, 0, nullptr, nullptr, &session), CKR_OK);
    CK_SESSION_INFO sessionInfo{};
    QCOMPARE(C_GetSessionInfo(session, &sessionInfo), CKR_OK);
    QCOMPARE(sessionInfo.slotID, CK_SLOT_ID(1));
    QCOMPARE(C_CloseSession(session), CKR_OK);
    QCOMPARE(C_CloseSession(session), CKR_SESSION_HANDLE_INVALID);

    // Nothing comes or goes without a card event.
    QCOMPARE(C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_NO_EVENT);
}

void TestCryptokiModule::listingAndImport()
{
    freshToken();
    TestCredential::Options o;
    o.commonName = "Alice Example";
    const TestCredential alice = TestCredential::make(o);
    o.commonName = "Bob Example";
    o.bits = 1024;
    const TestCredential bob = TestCredential::make(o);
    QVERIFY(alice.isValid() && bob.isValid());

    QCOMPARE(asDashboard(kPin, [&] { return importCert("Alice at work", alice.certificateDer(), alice.rsaParts()); }),
             CKR_OK);
    QCOMPARE(asDashboard(kPin, [&] { return importCert("Bob", bob.certificateDer(), bob.rsaParts()); }), CKR_OK);

    // Without a login: two certificates and two key pairs, each pair next to its certificate.
    const QList<Listed> objects = listOrFail();
    QCOMPARE(objects.size(), 4);
    for (int i = 0; i < objects.size(); ++i)
        QCOMPARE(objects[i].index, i);
    QCOMPARE(objects[0].id, objects[1].id);
    QCOMPARE(objects[2].id, objects[3].id);
    QCOMPARE(objects[0].type, ZORVIK_OBJECT_CERTIFICATE);
    QCOMPARE(objects[1].type, ZORVIK_OBJECT_RSA_KEYPAIR);
    for (const TestCredential* c : {&alice, &bob}) {
        const int at = objects[0].id == c->moduleId() ? 0 : 2;
        QCOMPARE(objects[at].id, c->moduleId());
        QCOMPARE(objects[at].value, c->certificateDer());
        QCOMPARE(objects[at + 1].value, c->modulus());
        QCOMPARE(objects[at + 1].exponent, c->exponent());
        const QString label = c == &alice ? "Alice at work" : "Bob";
        QVERIFY(objects[at].hasLabel);
        QCOMPARE(objects[at].label, label);
        QCOMPARE(objects[at + 1].label, label);
    }

    // The same import again stores nothing twice.
    QCOMPARE(asDashboard(kPin, [&] { return importCert("Bob", bob.certificateDer(), bob.rsaParts()); }), CKR_OK);
    QCOMPARE(listOrFail().size(), 4);
    QCOMPARE(backendObjectsWithId(bob.moduleId()), 3);
    QVERIFY(home_.readLog().contains("stored the certificate \"Bob\" with its key pair, ID " +
                                     bob.moduleId().toHex().toUpper()));

    // What other tools stored is listed as well.
    const TestCredential carol = TestCredential::make("Carol");
    QVERIFY(!token_->load(carol, "Carol").isEmpty());
    QCOMPARE(listOrFail().size(), 6);
}

void TestCryptokiModule::importedKeyWorks()
{
    freshToken();
    const TestCredential cred = TestCredential::make("Signer");
    QCOMPARE(asDashboard(kPin, [&] { return importCert("Signer", cred.certificateDer(), cred.rsaParts()); }), CKR_OK);

    // Sign through the module's standard calls and check with the certificate's key: the
    // private key stored from the parts (with its derived private exponent) is the real one.
    CK_SESSION_HANDLE s = 0;
    QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &s), CKR_OK);
    QByteArray pin(kPin);
    QCOMPARE(C_Login(s, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(pin.data()), pin.size()), CKR_OK);
    CK_OBJECT_CLASS cls = CKO_PRIVATE_KEY;
    QByteArray id = cred.moduleId();
    CK_ATTRIBUTE templ[] = {{CKA_CLASS, &cls, sizeof cls}, {CKA_ID, id.data(), static_cast<CK_ULONG>(id.size())}};
    QCOMPARE(C_FindObjectsInit(s, templ, 2), CKR_OK);
    CK_OBJECT_HANDLE key = 0;
    CK_ULONG found = 0;
    QCOMPARE(C_FindObjects(s, &key, 1, &found), CKR_OK);
    QCOMPARE(C_FindObjectsFinal(s), CKR_OK);
    QCOMPARE(found, CK_ULONG(1));
    CK_BBOOL extractable = CK_TRUE;
    CK_ATTRIBUTE ext{CKA_EXTRACTABLE, &extractable, sizeof extractable};
    QCOMPARE(C_GetAttributeValue(s, key, &ext, 1), CKR_OK);
    QCOMPARE(extractable, CK_BBOOL(CK_FALSE));

    QByteArray message("the quick brown fox");
    CK_MECHANISM mech{CKM_SHA256_RSA_PKCS, nullptr, 0};
    QCOMPARE(C_SignInit(s, &mech, key), CKR_OK);
    QByteArray signature(512, '\0');
    CK_ULONG sigLen = signature.size();
    QCOMPARE(C_Sign(s, reinterpret_cast<CK_BYTE_PTR>(message.data()), message.size(),
                    reinterpret_cast<CK_BYTE_PTR>(signature.data()), &sigLen),
             CKR_OK);
    signature.resize(static_cast<int>(sigLen));
    C_Logout(s);
    C_CloseSession(s);

    std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    QCOMPARE(EVP_DigestVerifyInit(ctx.get(), nullptr, EVP_sha256(), nullptr, cred.key()), 1);
    QCOMPARE(EVP_DigestVerify(ctx.get(), reinterpret_cast<const unsigned char*>(signature.constData()),
                              signature.size(), reinterpret_cast<const unsigned char*>(message.constData()),
                              message.size()),
             1);
}

void TestCryptokiModule::importRefusesWhatCannotBeStored()
{
    freshToken();
    const TestCredential a = TestCredential::make("A");
    const TestCredential b = TestCredential::make("B");
    const auto tryImport = [&](const QByteArray& der, const QList<QByteArray>& parts) {
        return asDashboard(kPin, [&] { return importCert("x", der, parts); });
    };
    // Another key's parts.
    QCOMPARE(tryImport(a.certificateDer(), b.rsaParts()), CKR_TEMPLATE_INCONSISTENT);
    // Parts that do not make one key: a wrong d mod (p-1).
    QList<QByteArray> broken = a.rsaParts();
    broken[4][broken[4].size() - 1] = static_cast<char>(broken[4].at(broken[4].size() - 1) ^ 1);
    QCOMPARE(tryImport(a.certificateDer(), broken), CKR_TEMPLATE_INCONSISTENT);
    // A missing part, a certificate that is not DER, a truncated one.
    QList<QByteArray> missing = a.rsaParts();
    missing[6].clear();
    QCOMPARE(tryImport(a.certificateDer(), missing), CKR_ARGUMENTS_BAD);
    QCOMPARE(tryImport("not a certificate", a.rsaParts()), CKR_ARGUMENTS_BAD);
    QCOMPARE(tryImport(a.certificateDer().left(100), a.rsaParts()), CKR_ARGUMENTS_BAD);
    // Nothing of it reached the token, and the log says why.
    QCOMPARE(listOrFail().size(), 0);
    QCOMPARE(backendObjectsWithId(a.moduleId()), 0);
    QVERIFY(home_.readLog().contains("import refused: the key does not belong to the certificate"));
    QVERIFY(home_.readLog().contains("import refused: the RSA key parts do not make one key"));
}

void TestCryptokiModule::importNeedsALogin()
{
    freshToken();
    const TestCredential c = TestCredential::make("Login");
    // No login and no PIN handed over: the private key cannot be stored.
    QCOMPARE(importCert("Login", c.certificateDer(), c.rsaParts()), CKR_USER_NOT_LOGGED_IN);
    QCOMPARE(listOrFail().size(), 0);
    // With the PIN handed over, the module logs in for the import itself (and out again).
    QByteArray pin(kPin);
    QCOMPARE(C_SetTokenPassword(0, pin.constData(), pin.size()), CKR_OK);
    QCOMPARE(importCert("Login", c.certificateDer(), c.rsaParts()), CKR_OK);
    QCOMPARE(listOrFail().size(), 2);
    // That PIN served once.
    const TestCredential d = TestCredential::make("Second");
    QCOMPARE(importCert("Second", d.certificateDer(), d.rsaParts()), CKR_USER_NOT_LOGGED_IN);
    // A PIN outside the token's length range is refused at once.
    QCOMPARE(C_SetTokenPassword(0, "12", 2), CKR_PIN_LEN_RANGE);
    QCOMPARE(C_SetTokenPassword(0, "", 0), CKR_PIN_LEN_RANGE);
}

void TestCryptokiModule::labels()
{
    freshToken();
    // The dashboard passes the name's character count, so a name outside ASCII arrives
    // cut short, possibly inside a character: the stored label keeps whole characters.
    const QString name = QString::fromUtf8("Ångström");
    const QByteArray utf8 = name.toUtf8();
    const TestCredential zoe = TestCredential::make("Zoe");
    QCOMPARE(
        asDashboard(kPin, [&] { return importCert(utf8.left(name.size()), zoe.certificateDer(), zoe.rsaParts()); }),
        CKR_OK);
    // Without a name the certificate's common name is the label.
    TestCredential::Options o;
    o.commonName = QString::fromUtf8("Jürgen Common");
    const TestCredential cn = TestCredential::make(o);
    QCOMPARE(asDashboard(kPin, [&] { return importCert(QByteArray(), cn.certificateDer(), cn.rsaParts()); }), CKR_OK);

    QStringList labels;
    for (const Listed& l : listOrFail()) {
        if (l.type == ZORVIK_OBJECT_CERTIFICATE)
            labels << l.label;
    }
    labels.sort();
    const QString cut = QString::fromUtf8(utf8.left(name.size()));
    QVERIFY2(cut.contains(QChar::ReplacementCharacter), "the test's name must be cut inside a character");
    QCOMPARE(labels, QStringList({QString::fromUtf8("Jürgen Common"), QString::fromUtf8("Ångstr")}));
}

void TestCryptokiModule::removalByIdentifier()
{
    freshToken();
    const TestCredential keep = TestCredential::make("Keep");
    const TestCredential drop = TestCredential::make("Drop");
    for (const TestCredential* c : {&keep, &drop})
        QCOMPARE(asDashboard(kPin, [&] { return importCert("n", c->certificateDer(), c->rsaParts()); }), CKR_OK);
    const QByteArray id = drop.moduleId();
    QCOMPARE(backendObjectsWithId(id), 3);

    const auto removeId = [](const QByteArray& which) {
        return C_RemoveContainerByID(0, reinterpret_cast<const unsigned char*>(which.constData()), which.size());
    };
    // Not logged in: the private key is out of sight, so nothing is removed.
    QCOMPARE(removeId(id), CKR_USER_NOT_LOGGED_IN);
    QCOMPARE(backendObjectsWithId(id), 3);

    QCOMPARE(asDashboard(kPin, [&] { return removeId(id); }), CKR_OK);
    QCOMPARE(backendObjectsWithId(id), 0);
    QCOMPARE(backendObjectsWithId(keep.moduleId()), 3);
    const QList<Listed> left = listOrFail();
    QCOMPARE(left.size(), 2);
    QCOMPARE(left[0].id, keep.moduleId());
    QVERIFY(home_.readLog().contains("removed 3 objects under ID " + id.toHex().toUpper()));

    // Nothing under the identifier any more: the code the dashboard calls "Object not found on key".
    QCOMPARE(asDashboard(kPin, [&] { return removeId(id); }), CKR_OBJECT_HANDLE_INVALID);
    QCOMPARE(asDashboard(kPin, [&] { return removeId(QByteArray()); }), CKR_ARGUMENTS_BAD);
}

void TestCryptokiModule::wrongAndLockedPin()
{
    freshToken();
    // The default allows three wrong PINs in a row; a right one in between starts anew.
    QCOMPARE(loginOnce("0000"), CKR_PIN_INVALID);
    QCOMPARE(loginOnce("0000"), CKR_PIN_INVALID);
    QCOMPARE(loginOnce(kPin), CKR_OK);
    QCOMPARE(loginOnce("0000"), CKR_PIN_INVALID);
    QCOMPARE(loginOnce("0000"), CKR_PIN_INVALID);
    CK_TOKEN_INFO info{};
    QCOMPARE(C_GetTokenInfo(1, &info), CKR_OK);
    QVERIFY(info.flags & CKF_USER_PIN_FINAL_TRY);
    QCOMPARE(loginOnce("0000"), CKR_PIN_INVALID);
    QVERIFY(home_.readLog().contains("the PIN is now locked"));

    // Locked: even the right PIN is refused, also after the module started anew.
    QCOMPARE(loginOnce(kPin), CKR_PIN_LOCKED);
    QCOMPARE(C_GetTokenInfo(1, &info), CKR_OK);
    QVERIFY(info.flags & CKF_USER_PIN_LOCKED);
    QCOMPARE(C_Finalize(nullptr), CKR_OK);
    QCOMPARE(C_Initialize(nullptr), CKR_OK);
    QCOMPARE(loginOnce(kPin), CKR_PIN_LOCKED);
    // The removal path of the dashboard meets the same code at its login.
    const QByteArray id(20, 'x');
    QCOMPARE(asDashboard(kPin,
                         [&] {
                             return C_RemoveContainerByID(0, reinterpret_cast<const unsigned char*>(id.constData()),
                                                          id.size());
                         }),
             CKR_PIN_LOCKED);

    // The security officer sets a new user PIN, which unlocks.
    CK_SESSION_HANDLE s = 0;
    QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &s), CKR_OK);
    QByteArray so = token_->soPin().toLatin1();
    QCOMPARE(C_Login(s, CKU_SO, reinterpret_cast<CK_UTF8CHAR_PTR>(so.data()), so.size()), CKR_OK);
    QByteArray fresh("13579");
    QCOMPARE(C_InitPIN(s, reinterpret_cast<CK_UTF8CHAR_PTR>(fresh.data()), fresh.size()), CKR_OK);
    C_Logout(s);
    C_CloseSession(s);
    QCOMPARE(loginOnce("13579"), CKR_OK);
}

void TestCryptokiModule::lockingCanBeLeftToTheBackend()
{
    QTemporaryFile conf;
    QVERIFY(conf.open());
    conf.write("# the backend counts for itself\npin-retries = 0\nfrobnicate = yes\n");
    conf.flush();
    qputenv("ZORVIK_CRYPTOKI_CONF", conf.fileName().toLocal8Bit());
    freshToken();
    qunsetenv("ZORVIK_CRYPTOKI_CONF");
    for (int i = 0; i < 5; ++i)
        QCOMPARE(loginOnce("0000"), CKR_PIN_INVALID);
    QCOMPARE(loginOnce(kPin), CKR_OK);
    QVERIFY(home_.readLog().contains(conf.fileName() + ":3: not understood, line ignored"));
}

void TestCryptokiModule::noVantrelNoToken()
{
    C_Finalize(nullptr);
    token_->apply(false);
    QCOMPARE(C_Initialize(nullptr), CKR_OK);
    // Without a Vantrel (here: without a PC/SC service) the slot is there but empty.
    QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
    ZorvikPublicTokenData* data = nullptr;
    QCOMPARE(C_GetPublicTokenData(0, &data), CKR_TOKEN_NOT_RECOGNIZED);
    QVERIFY(!data);
    QCOMPARE(C_SetTokenPassword(0, kPin, 10), CKR_TOKEN_NOT_RECOGNIZED);
    const QByteArray id(20, 'x');
    QCOMPARE(C_RemoveContainerByID(0, reinterpret_cast<const unsigned char*>(id.constData()), id.size()),
             CKR_TOKEN_NOT_RECOGNIZED);
    CK_ULONG n = 5;
    QCOMPARE(C_GetSlotList(CK_TRUE, nullptr, &n), CKR_OK);
    QCOMPARE(n, CK_ULONG(0));
    QCOMPARE(C_GetSlotList(CK_FALSE, nullptr, &n), CKR_OK);
    QCOMPARE(n, CK_ULONG(1));
    CK_SLOT_INFO info{};
    QCOMPARE(C_GetSlotInfo(1, &info), CKR_OK);
    QVERIFY(!(info.flags & CKF_TOKEN_PRESENT));
    CK_SESSION_HANDLE s = 0;
    QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &s), CKR_TOKEN_NOT_PRESENT);
    QVERIFY(home_.readLog().contains("no PC/SC service, so no Vantrel"));
    C_Finalize(nullptr);
    token_->apply(true);
}

void TestCryptokiModule::backendCannotBeLoaded()
{
    C_Finalize(nullptr);
    qputenv("ZORVIK_CRYPTOKI_BACKEND", "/nonexistent/libnothing.so");
    QCOMPARE(C_Initialize(nullptr), CKR_GENERAL_ERROR);
    QVERIFY(home_.readLog().contains(
        "ERROR cryptoki: cannot load the backing PKCS#11 module /nonexistent/libnothing.so (ZORVIK_CRYPTOKI_BACKEND)"));
    // The dashboard's calls fail cleanly.
    QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
    ZorvikPublicTokenData* data = nullptr;
    QCOMPARE(C_GetPublicTokenData(0, &data), CKR_CRYPTOKI_NOT_INITIALIZED);
    CK_SESSION_HANDLE s = 0;
    QCOMPARE(C_OpenSession(1, 0, nullptr, nullptr, &s), CKR_CRYPTOKI_NOT_INITIALIZED);

    // From a configuration file, and a file that is no PKCS#11 module.
    qunsetenv("ZORVIK_CRYPTOKI_BACKEND");
    QTemporaryFile conf;
    QVERIFY(conf.open());
    conf.write("backend = /usr/lib/x86_64-linux-gnu/libc.so.6\n");
    conf.flush();
    qputenv("ZORVIK_CRYPTOKI_CONF", conf.fileName().toLocal8Bit());
    QCOMPARE(C_Initialize(nullptr), CKR_GENERAL_ERROR);
    QVERIFY(home_.readLog().contains("(" + conf.fileName() + "): it exports no C_GetFunctionList"));

    // The module itself named as its backend.
    qputenv("ZORVIK_CRYPTOKI_BACKEND", SoftHsmToken::modulePath().toLocal8Bit());
    QCOMPARE(C_Initialize(nullptr), CKR_GENERAL_ERROR);
    QVERIFY(home_.readLog().contains("it is this module itself"));
    qunsetenv("ZORVIK_CRYPTOKI_CONF");

    // Back to a working backend: initialisation succeeds again in the same process.
    token_->apply(true);
    QCOMPARE(C_Initialize(nullptr), CKR_OK);
    QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
}

// NSS ends a thread's C_WaitForSlotEvent by finalising from another thread: the waiter is
// woken, and the backing module is finalised only once no call is left inside it.
void TestCryptokiModule::finalizeWaitsForCallsUnderWay()
{
    FaultyBackend faults;
    overFaultyBackend(&faults);
    faults.set(0, 300); // every look at the token stays 300 ms inside the backing module
    std::atomic<CK_RV> waited{CKR_OK};
    std::thread waiter([&] {
        CK_SLOT_ID slot = 0;
        waited = C_WaitForSlotEvent(0, &slot, nullptr);
    });
    QTRY_VERIFY(faults.callsInFlight() > 0);
    const CK_RV finalized = C_Finalize(nullptr);
    waiter.join();
    QCOMPARE(finalized, CKR_OK);
    QCOMPARE(waited.load(), CKR_CRYPTOKI_NOT_INITIALIZED);
    QCOMPARE(faults.finalizedUnderCalls(), 0);
    token_->apply(true);
    QCOMPARE(C_Initialize(nullptr), CKR_OK);
}

// A slot that appears between the backing module's count and its listing is no reason to
// think the key's token gone.
void TestCryptokiModule::slotListingThatGrowsKeepsSessions()
{
    FaultyBackend faults;
    overFaultyBackend(&faults);
    CK_SESSION_HANDLE session = 0;
    QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_OK);
    faults.set(1, 0);
    CK_ULONG n = 0;
    QCOMPARE(C_GetSlotList(CK_TRUE, nullptr, &n), CKR_OK);
    QCOMPARE(n, CK_ULONG(1));
    CK_SESSION_INFO info{};
    QCOMPARE(C_GetSessionInfo(session, &info), CKR_OK);
    QVERIFY(!home_.readLog().contains("the key's token is gone"));
    C_CloseSession(session);
    C_Finalize(nullptr);
    token_->apply(true);
    QCOMPARE(C_Initialize(nullptr), CKR_OK);
}

void TestCryptokiModule::refusesFilesNotItsOwn_data()
{
    QTest::addColumn<bool>("counter");
    QTest::addColumn<bool>("link");
    QTest::newRow("PIN counter, a link") << true << true;
    QTest::newRow("PIN counter, another user's") << true << false;
    QTest::newRow("user log, a link") << false << true;
    QTest::newRow("user log, another user's") << false << false;
}

// The module runs inside other users' programs: a state or log file that someone swapped
// for a link, or for a file of their own, is never written through.
void TestCryptokiModule::refusesFilesNotItsOwn()
{
    QFETCH(bool, counter);
    QFETCH(bool, link);
    if (!link && ::geteuid() != 0)
        QSKIP("giving a file to another user needs root");
    freshToken();
    QCOMPARE(loginOnce("0000"), CKR_PIN_INVALID); // makes the counter and logs
    QString path = home_.userLog();
    if (counter) {
        const QDir state(qEnvironmentVariable("ZORVIK_CRYPTOKI_STATE_DIR"));
        const QStringList counters = state.entryList({"pin-failures-*"}, QDir::Files);
        QCOMPARE(counters.size(), 1);
        path = state.filePath(counters.first());
    }
    const QByteArray planted = "1\n";
    const QString decoy = home_.path() + "/decoy";
    QFile::remove(decoy);
    QFile d(decoy);
    QVERIFY(d.open(QIODevice::WriteOnly) && d.write(planted) == planted.size());
    d.close();
    QVERIFY(QFile::remove(path));
    if (link) {
        QVERIFY(QFile::link(decoy, path));
    } else {
        QVERIFY(QFile::copy(decoy, path));
        QCOMPARE(::chown(QFile::encodeName(path).constData(), 65534, 65534), 0);
    }

    QCOMPARE(loginOnce("0000"), CKR_PIN_INVALID);
    QFile written(link ? decoy : path);
    QVERIFY(written.open(QIODevice::ReadOnly));
    QCOMPARE(written.readAll(), planted);
    QFile::remove(path);
    if (counter)
        QVERIFY(home_.readLog().contains("is a link or not our own file; it is left alone"));
}

QTEST_GUILESS_MAIN(TestCryptokiModule)
#include "tst_cryptoki_module.moc"
