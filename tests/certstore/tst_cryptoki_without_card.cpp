// The certificate store without a card: libzorvik-cryptoki over a private SoftHSM2 token
// (ZORVIK_CRYPTOKI_NO_CARDS; this process's PC/SC client points at a socket where no service
// listens), called the way the dashboard calls it, and the dashboard's side over it:
// CryptokiInterface, CryptokiStorage, the PKCS#12 reader and the PIN prompt.
#include <QtTest>

#include <QDialog>

#include <openssl/evp.h>

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "certificate_storage.h"
#include "cryptoki_interface.h"
#include "modal_seam.h"
#include "softhsm_token.h"
#include "test_credential.h"
#include "test_support.h"
#include "zorvik_cryptoki.h"

namespace {

constexpr const char* kPin = "8642097531";

struct Listed
{
    QByteArray id;
    int type = 0;
    QByteArray value, exponent;
    QString label;
};

QList<Listed> listObjects()
{
    ZorvikPublicTokenData* data = nullptr;
    QList<Listed> out;
    if (C_GetPublicTokenData(0, &data) != CKR_OK || !data)
        return out;
    const auto bytes = [](const unsigned char* p, uint32_t n) { return QByteArray(reinterpret_cast<const char*>(p), int(n)); };
    for (int i = 0; i < data->count; ++i) {
        const ZorvikPublicObject* o = data->objects[i];
        if (o->index != i)
            return {};
        out << Listed{bytes(o->id, o->idLength), o->type, bytes(o->value, o->valueLength),
                      bytes(o->exponent, o->exponentLength),
                      o->label ? QString::fromUtf8(bytes(o->label->text, o->label->length)) : QString()};
    }
    return out;
}

QList<QByteArray> certificateIds()
{
    QList<QByteArray> ids;
    for (const Listed& l : listObjects())
        if (l.type == ZORVIK_OBJECT_CERTIFICATE)
            ids << l.id;
    return ids;
}

CK_RV importCert(const QByteArray& name, const QByteArray& der, const QList<QByteArray>& parts)
{
    ZorvikRsaKeyParts kp{};
    ZorvikKeyPart* fields[] = {&kp.modulus,   &kp.publicExponent, &kp.prime1,     &kp.prime2,
                               &kp.exponent1, &kp.exponent2,      &kp.coefficient};
    for (int i = 0; i < 7; ++i)
        *fields[i] = {reinterpret_cast<const unsigned char*>(parts[i].constData()), uint64_t(parts[i].size())};
    return C_ImportCertAndKey(0, name.constData(), CK_ULONG(name.size()),
                              reinterpret_cast<const unsigned char*>(der.constData()), CK_ULONG(der.size()), kp);
}

CK_RV removeId(const QByteArray& id)
{
    return C_RemoveContainerByID(0, reinterpret_cast<const unsigned char*>(id.constData()), CK_ULONG(id.size()));
}

// The dashboard's sequence: session on slot 1, token password, user login, then `action`.
CK_RV asDashboard(const QByteArray& pin, const std::function<CK_RV()>& action = [] { return CKR_OK; })
{
    CK_SESSION_HANDLE session = 0;
    CK_RV rv = C_OpenSession(1, 0, nullptr, nullptr, &session);
    if (rv != CKR_OK)
        return rv;
    rv = C_SetTokenPassword(0, pin.constData(), CK_ULONG(pin.size()));
    if (rv == CKR_OK) {
        rv = C_Login(session, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(const_cast<char*>(pin.constData())),
                     CK_ULONG(pin.size()));
        if (rv == CKR_OK) {
            rv = action();
            C_Logout(session);
        }
    }
    C_CloseSession(session);
    return rv;
}

CK_RV importAsDashboard(const TestCredential& c, const QByteArray& name)
{
    return asDashboard(kPin, [&] { return importCert(name, c.certificateDer(), c.rsaParts()); });
}

// The control calls of faulty_backend.cpp, once the module has loaded it.
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

SecretPtr secret(const char* text)
{
    return shareSecret(SecretBytes::fromText(QString::fromUtf8(text)));
}

// The order in which an interface answered.
struct Answers : QObject
{
    explicit Answers(CryptokiInterface* ci)
    {
        connect(ci, &CryptokiInterface::importFinished, this, [this] { events << "finished"; });
        connect(ci, &CryptokiInterface::error, this,
                [this](const QString& message, int index) { events << QString("error %1: %2").arg(index).arg(message); });
    }
    QStringList events;
};

} // namespace

class TestCryptokiWithoutCard : public QObject
{
    Q_OBJECT

    TestHome home_;
    std::unique_ptr<SoftHsmToken> token_;

    // A fresh token; the module initialised over it unless the dashboard's interface will.
    void freshToken(bool initialize = true)
    {
        C_Finalize(nullptr);
        token_ = std::make_unique<SoftHsmToken>("Vantrel", kPin);
        QVERIFY2(token_->isValid(), qPrintable(token_->errorText()));
        token_->apply(true);
        if (initialize)
            QCOMPARE(C_Initialize(nullptr), CKR_OK);
    }

    // Objects under `id` as SoftHSM2 itself holds them (private keys included).
    int backendObjectsWithId(const QByteArray& id)
    {
        QString out;
        if (token_->pkcs11Tool({"--login", "--pin", kPin, "--list-objects"}, &out, false) != 0)
            return -1;
        return out.count("ID:         " + QString::fromLatin1(id.toHex()));
    }

    void overFaultyBackend(FaultyBackend* faults)
    {
        C_Finalize(nullptr);
        qputenv("FAULTY_BACKEND_TARGET", SoftHsmToken::backendPath().toLocal8Bit());
        qputenv("ZORVIK_CRYPTOKI_BACKEND", FAULTY_BACKEND);
        QCOMPARE(C_Initialize(nullptr), CKR_OK);
        QVERIFY(faults->resolve());
        faults->set(0, 0);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(home_.isValid());
        home_.apply();
        qputenv("PCSCLITE_CSOCK_NAME", (home_.path() + "/no-pcscd.comm").toLocal8Bit());
        qunsetenv("ZORVIK_CRYPTOKI_CONF");
    }

    void init()
    {
        ModalSeam::reset();
        freshToken();
    }

    void cleanupTestCase()
    {
        C_Finalize(nullptr);
        QStringList logs{home_.userLog()};
        for (const QFileInfo& f : QDir(home_.systemLogDir()).entryInfoList(QDir::Files))
            logs << f.filePath();
        for (const QString& path : logs) {
            QFile file(path);
            QVERIFY(file.open(QIODevice::ReadOnly));
            QVERIFY2(!file.readAll().contains(kPin), qPrintable("a PIN reached " + path));
        }
    }

    void slotsOfTheKey()
    {
        QCOMPARE(C_Initialize(nullptr), CKR_CRYPTOKI_ALREADY_INITIALIZED);
        CK_ULONG n = 0;
        CK_SLOT_ID slot = 0;
        n = 1;
        QCOMPARE(C_GetSlotList(CK_TRUE, &slot, &n), CKR_OK);
        QCOMPARE(n, CK_ULONG(1));
        QCOMPARE(slot, CK_SLOT_ID(ZORVIK_CRYPTOKI_SLOT));
        CK_TOKEN_INFO info{};
        QCOMPARE(C_GetTokenInfo(1, &info), CKR_OK);
        QCOMPARE(QByteArray(reinterpret_cast<char*>(info.label), 32).trimmed(), QByteArray("Vantrel"));
        CK_SLOT_INFO slotInfo{};
        QCOMPARE(C_GetSlotInfo(1, &slotInfo), CKR_OK);
        QCOMPARE(slotInfo.flags & (CKF_TOKEN_PRESENT | CKF_REMOVABLE_DEVICE), CK_FLAGS(CKF_TOKEN_PRESENT | CKF_REMOVABLE_DEVICE));

        // The dashboard names slot 0 in the vendor calls and opens its sessions on slot 1.
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
        ZorvikPublicTokenData* data = nullptr;
        QCOMPARE(C_GetPublicTokenData(0, &data), CKR_OK);
        QCOMPARE(data->count, 0);
        QCOMPARE(C_GetPublicTokenData(7, &data), CKR_SLOT_ID_INVALID);
        CK_SESSION_HANDLE session = 0;
        QCOMPARE(C_OpenSession(0, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_SLOT_ID_INVALID);
        QCOMPARE(C_OpenSession(1, 0, nullptr, nullptr, &session), CKR_OK);
        QCOMPARE(C_CloseSession(session), CKR_OK);
        QCOMPARE(C_CloseSession(session), CKR_SESSION_HANDLE_INVALID);
        // Nothing comes or goes without a card event.
        QCOMPARE(C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_NO_EVENT);
    }

    void listingAndImport()
    {
        const TestCredential alice = TestCredential::make("Alice Example");
        TestCredential::Options o;
        o.commonName = "Bob Example";
        o.bits = 1024;
        const TestCredential bob = TestCredential::make(o);
        QCOMPARE(importAsDashboard(alice, "Alice at work"), CKR_OK);
        QCOMPARE(importAsDashboard(bob, "Bob"), CKR_OK);

        // Without a login: each certificate followed by its key pair.
        const QList<Listed> objects = listObjects();
        QCOMPARE(objects.size(), 4);
        for (const TestCredential* c : {&alice, &bob}) {
            const int at = objects[0].id == c->moduleId() ? 0 : 2;
            QCOMPARE(objects[at].type, ZORVIK_OBJECT_CERTIFICATE);
            QCOMPARE(objects[at + 1].type, ZORVIK_OBJECT_RSA_KEYPAIR);
            QCOMPARE(objects[at + 1].id, c->moduleId());
            QCOMPARE(objects[at].value, c->certificateDer());
            QCOMPARE(objects[at + 1].value, c->modulus());
            QCOMPARE(objects[at + 1].exponent, c->exponent());
            QCOMPARE(objects[at + 1].label, QString(c == &alice ? "Alice at work" : "Bob"));
        }
        // The same import again stores nothing twice; what other tools stored is listed too.
        QCOMPARE(importAsDashboard(bob, "Bob"), CKR_OK);
        QCOMPARE(backendObjectsWithId(bob.moduleId()), 3);
        QVERIFY(home_.readLog().contains("stored the certificate \"Bob\" with its key pair, ID " +
                                         bob.moduleId().toHex().toUpper()));
        QVERIFY(!token_->load(TestCredential::make("Carol"), "Carol").isEmpty());
        QCOMPARE(listObjects().size(), 6);
    }

    // The private key stored from the parts (with its derived private exponent) signs, and
    // cannot be taken off the token.
    void importedKeyWorks()
    {
        const TestCredential cred = TestCredential::make("Signer");
        QCOMPARE(importAsDashboard(cred, "Signer"), CKR_OK);
        CK_SESSION_HANDLE s = 0;
        QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &s), CKR_OK);
        QByteArray pin(kPin), id = cred.moduleId(), message("the quick brown fox"), signature(512, '\0');
        QCOMPARE(C_Login(s, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(pin.data()), pin.size()), CKR_OK);
        CK_OBJECT_CLASS cls = CKO_PRIVATE_KEY;
        CK_ATTRIBUTE templ[] = {{CKA_CLASS, &cls, sizeof cls}, {CKA_ID, id.data(), CK_ULONG(id.size())}};
        CK_OBJECT_HANDLE key = 0;
        CK_ULONG found = 0;
        QCOMPARE(C_FindObjectsInit(s, templ, 2), CKR_OK);
        QCOMPARE(C_FindObjects(s, &key, 1, &found), CKR_OK);
        QCOMPARE(C_FindObjectsFinal(s), CKR_OK);
        QCOMPARE(found, CK_ULONG(1));
        CK_BBOOL extractable = CK_TRUE;
        CK_ATTRIBUTE ext{CKA_EXTRACTABLE, &extractable, sizeof extractable};
        QCOMPARE(C_GetAttributeValue(s, key, &ext, 1), CKR_OK);
        QCOMPARE(extractable, CK_BBOOL(CK_FALSE));
        CK_MECHANISM mech{CKM_SHA256_RSA_PKCS, nullptr, 0};
        CK_ULONG sigLen = signature.size();
        QCOMPARE(C_SignInit(s, &mech, key), CKR_OK);
        QCOMPARE(C_Sign(s, reinterpret_cast<CK_BYTE_PTR>(message.data()), message.size(),
                        reinterpret_cast<CK_BYTE_PTR>(signature.data()), &sigLen),
                 CKR_OK);
        C_Logout(s);
        C_CloseSession(s);
        std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
        QCOMPARE(EVP_DigestVerifyInit(ctx.get(), nullptr, EVP_sha256(), nullptr, cred.key()), 1);
        QCOMPARE(EVP_DigestVerify(ctx.get(), reinterpret_cast<const unsigned char*>(signature.constData()), sigLen,
                                  reinterpret_cast<const unsigned char*>(message.constData()), message.size()),
                 1);
    }

    void importRefusesWhatCannotBeStored()
    {
        const TestCredential a = TestCredential::make("A");
        const TestCredential b = TestCredential::make("B");
        const auto tryImport = [&](const QByteArray& der, const QList<QByteArray>& parts) {
            return asDashboard(kPin, [&] { return importCert("x", der, parts); });
        };
        QCOMPARE(tryImport(a.certificateDer(), b.rsaParts()), CKR_TEMPLATE_INCONSISTENT);
        QList<QByteArray> broken = a.rsaParts(); // a wrong d mod (p-1)
        broken[4][broken[4].size() - 1] = char(broken[4].at(broken[4].size() - 1) ^ 1);
        QCOMPARE(tryImport(a.certificateDer(), broken), CKR_TEMPLATE_INCONSISTENT);
        QList<QByteArray> missing = a.rsaParts();
        missing[6].clear();
        QCOMPARE(tryImport(a.certificateDer(), missing), CKR_ARGUMENTS_BAD);
        QCOMPARE(tryImport("not a certificate", a.rsaParts()), CKR_ARGUMENTS_BAD);
        QCOMPARE(tryImport(a.certificateDer().left(100), a.rsaParts()), CKR_ARGUMENTS_BAD);
        QCOMPARE(backendObjectsWithId(a.moduleId()), 0);
        QVERIFY(home_.readLog().contains("import refused: the key does not belong to the certificate"));
        QVERIFY(home_.readLog().contains("import refused: the RSA key parts do not make one key"));

        // No login and no PIN handed over: refused. A PIN handed over serves one import.
        QCOMPARE(importCert("Login", a.certificateDer(), a.rsaParts()), CKR_USER_NOT_LOGGED_IN);
        QCOMPARE(C_SetTokenPassword(0, kPin, CK_ULONG(strlen(kPin))), CKR_OK);
        QCOMPARE(importCert("Login", a.certificateDer(), a.rsaParts()), CKR_OK);
        QCOMPARE(importCert("Second", b.certificateDer(), b.rsaParts()), CKR_USER_NOT_LOGGED_IN);
        QCOMPARE(listObjects().size(), 2);
        QCOMPARE(C_SetTokenPassword(0, "12", 2), CKR_PIN_LEN_RANGE);
    }

    // The dashboard passes the name's character count, so a name outside ASCII arrives cut,
    // possibly inside a character: the label keeps whole characters. No name: the CN.
    void labels()
    {
        const QByteArray utf8 = QString::fromUtf8("Ångström").toUtf8();
        QCOMPARE(importAsDashboard(TestCredential::make("Zoe"), utf8.left(8)), CKR_OK);
        QCOMPARE(importAsDashboard(TestCredential::make(QString::fromUtf8("Jürgen Common")), QByteArray()), CKR_OK);
        QStringList labels;
        for (const Listed& l : listObjects())
            if (l.type == ZORVIK_OBJECT_CERTIFICATE)
                labels << l.label;
        labels.sort();
        QCOMPARE(labels, QStringList({QString::fromUtf8("Jürgen Common"), QString::fromUtf8("Ångstr")}));
    }

    void removalByIdentifier()
    {
        const TestCredential keep = TestCredential::make("Keep");
        const TestCredential drop = TestCredential::make("Drop");
        QCOMPARE(importAsDashboard(keep, "n"), CKR_OK);
        QCOMPARE(importAsDashboard(drop, "n"), CKR_OK);
        const QByteArray id = drop.moduleId();
        // Not logged in: the private key is out of sight, so nothing is removed.
        QCOMPARE(removeId(id), CKR_USER_NOT_LOGGED_IN);
        QCOMPARE(backendObjectsWithId(id), 3);
        QCOMPARE(asDashboard(kPin, [&] { return removeId(id); }), CKR_OK);
        QCOMPARE(backendObjectsWithId(id), 0);
        QCOMPARE(backendObjectsWithId(keep.moduleId()), 3);
        QVERIFY(home_.readLog().contains("removed 3 objects under ID " + id.toHex().toUpper()));
        QCOMPARE(asDashboard(kPin, [&] { return removeId(id); }), CKR_OBJECT_HANDLE_INVALID);
        QCOMPARE(asDashboard(kPin, [&] { return removeId(QByteArray()); }), CKR_ARGUMENTS_BAD);
    }

    void wrongAndLockedPin()
    {
        // Three wrong PINs in a row; a right one in between starts anew.
        QCOMPARE(asDashboard("0000"), CKR_PIN_INVALID);
        QCOMPARE(asDashboard("0000"), CKR_PIN_INVALID);
        QCOMPARE(asDashboard(kPin), CKR_OK);
        QCOMPARE(asDashboard("0000"), CKR_PIN_INVALID);
        QCOMPARE(asDashboard("0000"), CKR_PIN_INVALID);
        CK_TOKEN_INFO info{};
        QCOMPARE(C_GetTokenInfo(1, &info), CKR_OK);
        QVERIFY(info.flags & CKF_USER_PIN_FINAL_TRY);
        QCOMPARE(asDashboard("0000"), CKR_PIN_INVALID);
        QVERIFY(home_.readLog().contains("the PIN is now locked"));
        // Locked, also after the module started anew, and for the removal path.
        QCOMPARE(C_Finalize(nullptr), CKR_OK);
        QCOMPARE(C_Initialize(nullptr), CKR_OK);
        QCOMPARE(C_GetTokenInfo(1, &info), CKR_OK);
        QVERIFY(info.flags & CKF_USER_PIN_LOCKED);
        QCOMPARE(asDashboard(kPin, [] { return removeId(QByteArray(20, 'x')); }), CKR_PIN_LOCKED);

        // The security officer sets a new user PIN, which unlocks.
        CK_SESSION_HANDLE s = 0;
        QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &s), CKR_OK);
        QByteArray so = token_->soPin().toLatin1(), fresh("13579");
        QCOMPARE(C_Login(s, CKU_SO, reinterpret_cast<CK_UTF8CHAR_PTR>(so.data()), so.size()), CKR_OK);
        QCOMPARE(C_InitPIN(s, reinterpret_cast<CK_UTF8CHAR_PTR>(fresh.data()), fresh.size()), CKR_OK);
        C_Logout(s);
        C_CloseSession(s);
        QCOMPARE(asDashboard(fresh), CKR_OK);

        // "pin-retries = 0" leaves the counting to the backend; unknown lines are logged.
        QTemporaryFile conf;
        QVERIFY(conf.open());
        conf.write("pin-retries = 0\nfrobnicate = yes\n");
        conf.flush();
        qputenv("ZORVIK_CRYPTOKI_CONF", conf.fileName().toLocal8Bit());
        freshToken();
        qunsetenv("ZORVIK_CRYPTOKI_CONF");
        for (int i = 0; i < 4; ++i)
            QCOMPARE(asDashboard("0000"), CKR_PIN_INVALID);
        QCOMPARE(asDashboard(kPin), CKR_OK);
        QVERIFY(home_.readLog().contains(conf.fileName() + ":2: not understood, line ignored"));
    }

    void noVantrelNoToken()
    {
        C_Finalize(nullptr);
        token_->apply(false);
        QCOMPARE(C_Initialize(nullptr), CKR_OK);
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
        ZorvikPublicTokenData* data = nullptr;
        QCOMPARE(C_GetPublicTokenData(0, &data), CKR_TOKEN_NOT_RECOGNIZED);
        QCOMPARE(C_SetTokenPassword(0, kPin, 10), CKR_TOKEN_NOT_RECOGNIZED);
        QCOMPARE(removeId(QByteArray(20, 'x')), CKR_TOKEN_NOT_RECOGNIZED);
        CK_ULONG n = 5;
        QCOMPARE(C_GetSlotList(CK_TRUE, nullptr, &n), CKR_OK);
        QCOMPARE(n, CK_ULONG(0));
        QCOMPARE(C_GetSlotList(CK_FALSE, nullptr, &n), CKR_OK);
        QCOMPARE(n, CK_ULONG(1));
        CK_SESSION_HANDLE s = 0;
        QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &s), CKR_TOKEN_NOT_PRESENT);
        QVERIFY(home_.readLog().contains("no PC/SC service, so no Vantrel"));
    }

    void backendCannotBeLoaded()
    {
        C_Finalize(nullptr);
        qputenv("ZORVIK_CRYPTOKI_BACKEND", "/nonexistent/libnothing.so");
        QCOMPARE(C_Initialize(nullptr), CKR_GENERAL_ERROR);
        QVERIFY(home_.readLog().contains("ERROR cryptoki: cannot load the backing PKCS#11 module "
                                         "/nonexistent/libnothing.so (ZORVIK_CRYPTOKI_BACKEND)"));
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
        ZorvikPublicTokenData* data = nullptr;
        QCOMPARE(C_GetPublicTokenData(0, &data), CKR_CRYPTOKI_NOT_INITIALIZED);
        // From a configuration file, a file that is no PKCS#11 module; then the module itself.
        qunsetenv("ZORVIK_CRYPTOKI_BACKEND");
        QTemporaryFile conf;
        QVERIFY(conf.open());
        conf.write("backend = /usr/lib/x86_64-linux-gnu/libc.so.6\n");
        conf.flush();
        qputenv("ZORVIK_CRYPTOKI_CONF", conf.fileName().toLocal8Bit());
        QCOMPARE(C_Initialize(nullptr), CKR_GENERAL_ERROR);
        QVERIFY(home_.readLog().contains("(" + conf.fileName() + "): it exports no C_GetFunctionList"));
        qputenv("ZORVIK_CRYPTOKI_BACKEND", SoftHsmToken::modulePath().toLocal8Bit());
        QCOMPARE(C_Initialize(nullptr), CKR_GENERAL_ERROR);
        QVERIFY(home_.readLog().contains("it is this module itself"));
        qunsetenv("ZORVIK_CRYPTOKI_CONF");
        // Back to a working backend in the same process.
        token_->apply(true);
        QCOMPARE(C_Initialize(nullptr), CKR_OK);
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
    }

    // NSS ends a thread's C_WaitForSlotEvent by finalising from another thread: the waiter is
    // woken, and the backing module is finalised only once no call is left inside it.
    void finalizeWaitsForCallsUnderWay()
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
        QCOMPARE(C_Finalize(nullptr), CKR_OK);
        waiter.join();
        QCOMPARE(waited.load(), CKR_CRYPTOKI_NOT_INITIALIZED);
        QCOMPARE(faults.finalizedUnderCalls(), 0);
    }

    // A slot that appears between the backing module's count and its listing is no reason to
    // think the key's token gone.
    void slotListingThatGrowsKeepsSessions()
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
        qunsetenv("ZORVIK_CRYPTOKI_BACKEND");
    }

    void refusesFilesNotItsOwn_data()
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
    void refusesFilesNotItsOwn()
    {
        QFETCH(bool, counter);
        QFETCH(bool, link);
        if (!link && ::geteuid() != 0)
            QSKIP("giving a file to another user needs root");
        QCOMPARE(asDashboard("0000"), CKR_PIN_INVALID); // makes the counter and logs
        QString path = home_.userLog();
        if (counter) {
            const QDir state(qEnvironmentVariable("ZORVIK_CRYPTOKI_STATE_DIR"));
            const QStringList counters = state.entryList({"pin-failures-*"}, QDir::Files);
            QCOMPARE(counters.size(), 1);
            path = state.filePath(counters.first());
        }
        const QString decoy = home_.path() + "/decoy";
        QFile::remove(decoy);
        QFile d(decoy);
        QVERIFY(d.open(QIODevice::WriteOnly) && d.write("1\n") == 2);
        d.close();
        QVERIFY(QFile::remove(path));
        if (link)
            QVERIFY(QFile::link(decoy, path));
        else
            QVERIFY(QFile::copy(decoy, path) && ::chown(QFile::encodeName(path).constData(), 65534, 65534) == 0);
        QCOMPARE(asDashboard("0000"), CKR_PIN_INVALID);
        QFile written(link ? decoy : path);
        QVERIFY(written.open(QIODevice::ReadOnly));
        QCOMPARE(written.readAll(), QByteArray("1\n"));
        QFile::remove(path);
        if (counter)
            QVERIFY(home_.readLog().contains("is a link or not our own file; it is left alone"));
    }

    // The dashboard's side from here on.

    void itemBits_data()
    {
        QTest::addColumn<int>("type");
        QTest::addColumn<QByteArray>("modulus");
        QTest::addColumn<int>("bits");
        QTest::newRow("leading zero byte") << 2 << QByteArray(1, '\0') + QByteArray(256, '\xC5') << 2048;
        QTest::newRow("leading zero bits") << 2 << QByteArray(1, '\x01') + QByteArray(127, '\xFF') << 1017;
        QTest::newRow("empty modulus") << 2 << QByteArray() << 0;
        QTest::newRow("certificate") << 1 << QByteArray(256, '\xC5') << 0;
    }

    void itemBits()
    {
        QFETCH(int, type);
        QFETCH(QByteArray, modulus);
        CryptokiStorageItem item;
        item.type = type;
        item.modulus = modulus;
        QTEST(item.RSALength(), "bits");
    }

    void errorTextsOutsideTheTable()
    {
        // Codes without a text of their own, the backend's own wrong-PIN code among them, name
        // the code in hexadecimal.
        QVERIFY(CryptokiErrorString(170).endsWith("Contact support if the issue continues. Error code AA"));
        QVERIFY(CryptokiErrorString(160).endsWith("Error code A0"));
    }

    void extendedKeyUsages()
    {
        TestCredential::Options o;
        o.extKeyUsages = QStringList{"clientAuth", "1.3.6.1.4.1.99999.1"};
        QCOMPARE(CryptokiStorage::getEKU(TestCredential::make(o).certificateDer()),
                 QString("TLS Web Client Authentication;1.3.6.1.4.1.99999.1"));
        QCOMPARE(CryptokiStorage::getEKU(TestCredential::make("No EKU").certificateDer()), QString("Invalid certificate"));
    }

    void readingPkcs12()
    {
        const TestCredential c = TestCredential::make("P12 Holder");
        const QString dir = home_.path();
        QVERIFY(c.writePkcs12(dir + "/open.p12", QString(), "Open Name"));
        QVERIFY(c.writePkcs12(dir + "/locked.p12", "s3cret", "Locked Name"));
        QFile junk(dir + "/junk.p12");
        QVERIFY(junk.open(QIODevice::WriteOnly) && junk.write("this is no PKCS#12 file") > 0);
        junk.close();
        QString error, name;
        const auto read = [&](const QString& file) {
            EVP_PKEY* key = nullptr;
            X509* cert = nullptr;
            error.clear();
            const bool ok = CryptokiInterface::readP12(dir + file, &key, &cert, &name, nullptr, &error) && key && cert;
            EVP_PKEY_free(key);
            X509_free(cert);
            return ok;
        };
        QVERIFY(read("/open.p12"));
        QCOMPARE(name, QString("Open Name"));
        QCOMPARE(ModalSeam::seen().size(), 0); // no password asked
        ModalSeam::answer(QDialog::Accepted, "s3cret");
        QVERIFY(read("/locked.p12"));
        QCOMPARE(name, QString("Locked Name"));
        ModalSeam::answer(QDialog::Accepted, "wrong");
        QVERIFY(!read("/locked.p12"));
        QCOMPARE(error, QString("Error reading file %1\nWrong password").arg(dir + "/locked.p12"));
        // Cancelled, or nothing typed: a failure with nothing to show.
        ModalSeam::answer(QDialog::Rejected, "s3cret");
        QVERIFY(!read("/locked.p12") && error.isEmpty());
        ModalSeam::answer(QDialog::Accepted, "");
        QVERIFY(!read("/locked.p12") && error.isEmpty());
        QVERIFY(!read("/junk.p12"));
        QCOMPARE(error, QString("Error reading PKCS#12 file %1").arg(dir + "/junk.p12"));
        QVERIFY(!read("/missing.p12"));
        QCOMPARE(error, QString("Error opening file %1").arg(dir + "/missing.p12"));
        QVERIFY(!home_.readLog().contains("s3cret"));
    }

    // What was typed, outside Latin-1 too, reaches the module as UTF-8.
    void pinPromptHandsOverUtf8()
    {
        QWidget watcher;
        SecretPtr pin;
        ModalSeam::answer(QDialog::Accepted, QString::fromUtf8("12\u20ac4"));
        QVERIFY(CryptokiStorage::askTokenPassword(&watcher, &pin));
        QCOMPARE(QByteArray(pin->data(), int(pin->size())), QByteArray("12\xe2\x82\xac" "4"));
    }

    // "finished" comes before an error, and after it once the key was asked.
    void importAndRemovalThroughTheInterface()
    {
        C_Finalize(nullptr); // the interface initialises the module itself
        CryptokiInterface ci;
        Answers answers(&ci);
        const TestCredential c = TestCredential::make("Imported Person");
        ci.importCertificateAndKeys(c.takeKey(), c.takeCertificate(), secret(kPin), "Imported");
        QCOMPARE(answers.events, QStringList{"finished"});
        QCOMPARE(certificateIds(), QList<QByteArray>{c.moduleId()});
        QVERIFY(home_.readLog().contains("Certificate installed successfully"));

        const auto answered = [&](const std::function<void()>& action) {
            answers.events.clear();
            action();
            return answers.events;
        };
        QCOMPARE(answered([&] { ci.importCertificateAndKeys(c.takeKey(), c.takeCertificate(), secret(kPin), "I"); }),
                 QStringList({"finished", "error 2: Duplicate certificate"}));
        const TestCredential d = TestCredential::make("Second Person");
        QCOMPARE(answered([&] { ci.importCertificateAndKeys(d.takeKey(), d.takeCertificate(), secret("00000000"), "S"); }),
                 QStringList({"finished", "error 2: Cannot login to token. Incorrect PIN", "finished"}));
        TestCredential::Options o;
        o.kind = TestCredential::Ec;
        const TestCredential ec = TestCredential::make(o);
        QCOMPARE(answered([&] { ci.importCertificateAndKeys(ec.takeKey(), ec.takeCertificate(), secret(kPin), "EC"); }),
                 QStringList({"finished", "error 2: Incorrect key type = 408"}));
        QCOMPARE(answered([&] { ci.importCertificateAndKeys(d.takeKey(), nullptr, secret(kPin), "x"); }),
                 QStringList({"finished", "error 2: No certificate found"}));
        const QStringList shortPin =
            answered([&] { ci.importCertificateAndKeys(d.takeKey(), d.takeCertificate(), secret("12"), "x"); });
        QCOMPARE(shortPin.size(), 2);
        QVERIFY(shortPin[0].startsWith("error 2: Password error Your Vantrel does not appear to be responding"));
        QCOMPARE(certificateIds().size(), 1);

        QCOMPARE(answered([&] { ci.removeCertificate(c.moduleId(), secret("11111111")); }),
                 QStringList{"error 2: Incorrect PIN"});
        QCOMPARE(answered([&] { ci.removeCertificate(c.moduleId(), secret(kPin)); }), QStringList());
        QVERIFY(certificateIds().isEmpty());
        QVERIFY(home_.readLog().contains("Certificate deleted successfully"));
        QCOMPARE(answered([&] { ci.removeCertificate(c.moduleId(), secret(kPin)); }),
                 QStringList{"error 2: Cannot delete certificate. Object not found on key"});
        for (int i = 0; i < 3; ++i)
            ci.removeCertificate(c.moduleId(), secret("11111111"));
        QCOMPARE(answered([&] { ci.removeCertificate(c.moduleId(), secret(kPin)); }), QStringList{"error 2: Key blocked"});
    }

    // A listing asked for the moment the storage exists is answered (its worker may not have
    // set up the module yet); it asks the key's status first, and there is no key here.
    void storageRelaysOnItsThread()
    {
        C_Finalize(nullptr);
        CryptokiStorage storage;
        emit storage.getCertificates();
        storage.working = true;
        QSignalSpy finished(&storage, &CryptokiStorage::importFinished);
        QSignalSpy errors(&storage, &CryptokiStorage::error);
        QSignalSpy cannot(&storage, &CryptokiStorage::cannotGetCertificates);
        QVERIFY(cannot.wait(20000));
        QCOMPARE(cannot.first(), QVariantList({1, 0}));
        QVERIFY(!storage.working);

        const TestCredential c = TestCredential::make("Threaded");
        storage.working = true;
        storage.addCertificate(c.takeKey(), c.takeCertificate(), secret(kPin), "Threaded");
        QVERIFY(finished.wait(20000));
        QVERIFY(storage.working); // an import leaves it as it was
        storage.removeCertificate(c.moduleId(), secret("99999999"));
        QVERIFY(errors.wait(20000));
        QCOMPARE(errors.first(), QVariantList({"Incorrect PIN", 2}));
        QVERIFY(!storage.working);
    }
};

QTEST_MAIN(TestCryptokiWithoutCard)
#include "tst_cryptoki_without_card.moc"
