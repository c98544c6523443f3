// The certificate store without a card: libzorvik-cryptoki over a private SoftHSM2 token
// (ZORVIK_CRYPTOKI_NO_CARDS; the PC/SC clients point at a socket where no service listens),
// called the way the dashboard calls it and loaded by the programs that use PKCS#11 modules
// (NSS, OpenVPN, pkcs11-tool), and the dashboard's side over it: CryptokiInterface,
// CryptokiStorage, the PKCS#12 reader and the PIN prompt.
#include <QtTest>

#include <QDialog>

#include <openssl/evp.h>

#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <memory>
#include <thread>

#include "certificate_storage.h"
#include "certstore_helpers.h"
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
    const auto bytes = [](const unsigned char* p, uint32_t n) { return QByteArray(reinterpret_cast<const char*>(p), int(n)); };
    for (int i = 0; C_GetPublicTokenData(0, &data) == CKR_OK && data && i < data->count; ++i) {
        const ZorvikPublicObject* o = data->objects[i];
        if (o->index != i)
            return {};
        out << Listed{bytes(o->id, o->idLength), o->type, bytes(o->value, o->valueLength),
                      bytes(o->exponent, o->exponentLength),
                      o->label ? QString::fromUtf8(bytes(o->label->text, o->label->length)) : QString()};
    }
    return out;
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

CK_RV login(CK_SESSION_HANDLE session, CK_USER_TYPE user, QByteArray pin)
{
    return C_Login(session, user, reinterpret_cast<CK_UTF8CHAR_PTR>(pin.data()), CK_ULONG(pin.size()));
}

// The dashboard's sequence: session on slot 1, token password, user login, then `action`.
CK_RV asDashboard(const QByteArray& pin, const std::function<CK_RV()>& action = [] { return CKR_OK; })
{
    CK_SESSION_HANDLE session = 0;
    CK_RV rv = C_OpenSession(1, 0, nullptr, nullptr, &session);
    if (rv != CKR_OK)
        return rv;
    rv = C_SetTokenPassword(0, pin.constData(), CK_ULONG(pin.size()));
    if (rv == CKR_OK && (rv = login(session, CKU_USER, pin)) == CKR_OK) {
        rv = action();
        C_Logout(session);
    }
    C_CloseSession(session);
    return rv;
}

CK_RV importAsDashboard(const TestCredential& c, const QByteArray& name)
{
    return asDashboard(kPin, [&] { return importCert(name, c.certificateDer(), c.rsaParts()); });
}

SecretPtr secret(const char* text)
{
    return shareSecret(SecretBytes::fromText(QString::fromUtf8(text)));
}

} // namespace

class TestCryptokiWithoutCard : public QObject
{
    Q_OBJECT

    TestHome home_;
    std::unique_ptr<SoftHsmToken> token_;

    // A fresh token with the module initialised over it.
    void freshToken()
    {
        C_Finalize(nullptr);
        token_ = std::make_unique<SoftHsmToken>("Vantrel", kPin);
        QVERIFY2(token_->isValid(), qPrintable(token_->errorText()));
        token_->apply(true);
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

    void overFaultyBackend()
    {
        C_Finalize(nullptr);
        qputenv("FAULTY_BACKEND_TARGET", SoftHsmToken::backendPath().toLocal8Bit());
        qputenv("ZORVIK_CRYPTOKI_BACKEND", FAULTY_BACKEND);
        QCOMPARE(C_Initialize(nullptr), CKR_OK);
        QCOMPARE(faultyBackend("faulty_backend_set", 0, 0), 0);
    }

    void withConf(const QByteArray& text, const std::function<void()>& body)
    {
        QTemporaryFile conf;
        QVERIFY(conf.open() && conf.write(text) == text.size() && conf.flush());
        qputenv("ZORVIK_CRYPTOKI_CONF", conf.fileName().toLocal8Bit());
        body();
        qunsetenv("ZORVIK_CRYPTOKI_CONF");
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
        for (const QString& path : logs)
            QVERIFY2(!readFile(path).contains(kPin), qPrintable("a PIN reached " + path));
    }

    // Each certificate listed with its key pair; the stored private key signs and cannot be
    // taken off the token.
    void importListAndSign()
    {
        const TestCredential alice = TestCredential::make("Alice Example");
        TestCredential::Options o;
        o.commonName = "Bob Example";
        o.bits = 1024;
        const TestCredential bob = TestCredential::make(o);
        QCOMPARE(importAsDashboard(alice, "Alice at work"), CKR_OK);
        QCOMPARE(importAsDashboard(bob, "Bob"), CKR_OK);
        const QList<Listed> objects = listObjects(); // without a login
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
        QVERIFY(!token_->load(TestCredential::make("Carol"), "Carol").isEmpty());
        QCOMPARE(listObjects().size(), 6);

        CK_SESSION_HANDLE s = 0;
        QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &s), CKR_OK);
        QCOMPARE(login(s, CKU_USER, kPin), CKR_OK);
        QByteArray id = alice.moduleId(), message("the quick brown fox"), signature(512, '\0');
        CK_OBJECT_CLASS cls = CKO_PRIVATE_KEY;
        CK_ATTRIBUTE templ[] = {{CKA_CLASS, &cls, sizeof cls}, {CKA_ID, id.data(), CK_ULONG(id.size())}};
        CK_OBJECT_HANDLE key = 0;
        CK_ULONG found = 0, sigLen = signature.size();
        QCOMPARE(C_FindObjectsInit(s, templ, 2), CKR_OK);
        QCOMPARE(C_FindObjects(s, &key, 1, &found), CKR_OK);
        QCOMPARE(C_FindObjectsFinal(s), CKR_OK);
        QCOMPARE(found, CK_ULONG(1));
        CK_BBOOL extractable = CK_TRUE;
        CK_ATTRIBUTE ext{CKA_EXTRACTABLE, &extractable, sizeof extractable};
        QCOMPARE(C_GetAttributeValue(s, key, &ext, 1), CKR_OK);
        QCOMPARE(extractable, CK_BBOOL(CK_FALSE));
        CK_MECHANISM mech{CKM_SHA256_RSA_PKCS, nullptr, 0};
        QCOMPARE(C_SignInit(s, &mech, key), CKR_OK);
        const auto bytes = [](QByteArray& b) { return reinterpret_cast<CK_BYTE_PTR>(b.data()); };
        QCOMPARE(C_Sign(s, bytes(message), message.size(), bytes(signature), &sigLen), CKR_OK);
        C_CloseSession(s);
        std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> ctx(EVP_MD_CTX_new(), EVP_MD_CTX_free);
        QCOMPARE(EVP_DigestVerifyInit(ctx.get(), nullptr, EVP_sha256(), nullptr, alice.key()), 1);
        QCOMPARE(EVP_DigestVerify(ctx.get(), bytes(signature), sigLen, bytes(message), message.size()), 1);
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
        QCOMPARE(backendObjectsWithId(a.moduleId()), 0);

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
        QCOMPARE(importAsDashboard(TestCredential::make("Zoe"), QString::fromUtf8("Ångström").toUtf8().left(8)), CKR_OK);
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
        QCOMPARE(asDashboard(kPin, [&] { return removeId(id); }), CKR_OBJECT_HANDLE_INVALID);
        QCOMPARE(asDashboard(kPin, [&] { return removeId(QByteArray()); }), CKR_ARGUMENTS_BAD);
    }

    void wrongAndLockedPin()
    {
        // Three wrong PINs in a row; a right one in between starts anew.
        for (const char* pin : {"0000", "0000", kPin, "0000", "0000"})
            QCOMPARE(asDashboard(pin), pin == kPin ? CKR_OK : CKR_PIN_INVALID);
        CK_TOKEN_INFO info{};
        QCOMPARE(C_GetTokenInfo(1, &info), CKR_OK);
        QVERIFY(info.flags & CKF_USER_PIN_FINAL_TRY);
        QCOMPARE(asDashboard("0000"), CKR_PIN_INVALID);
        // Locked, also after the module started anew, and for the removal path.
        QCOMPARE(C_Finalize(nullptr), CKR_OK);
        QCOMPARE(C_Initialize(nullptr), CKR_OK);
        QCOMPARE(C_GetTokenInfo(1, &info), CKR_OK);
        QVERIFY(info.flags & CKF_USER_PIN_LOCKED);
        QCOMPARE(asDashboard(kPin, [] { return removeId(QByteArray(20, 'x')); }), CKR_PIN_LOCKED);
        // The security officer sets a new user PIN, which unlocks.
        CK_SESSION_HANDLE s = 0;
        QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION | CKF_RW_SESSION, nullptr, nullptr, &s), CKR_OK);
        QCOMPARE(login(s, CKU_SO, token_->soPin().toLatin1()), CKR_OK);
        QCOMPARE(C_InitPIN(s, reinterpret_cast<CK_UTF8CHAR_PTR>(const_cast<char*>("13579")), 5), CKR_OK);
        C_CloseSession(s);
        QCOMPARE(asDashboard("13579"), CKR_OK);
        // "pin-retries = 0" leaves the counting to the backend; an unknown line changes nothing.
        withConf("pin-retries = 0\nfrobnicate = yes\n", [&] {
            freshToken();
            for (int i = 0; i < 4; ++i)
                QCOMPARE(asDashboard("0000"), CKR_PIN_INVALID);
            QCOMPARE(asDashboard(kPin), CKR_OK);
        });
    }

    void backendCannotBeLoaded()
    {
        C_Finalize(nullptr);
        qputenv("ZORVIK_CRYPTOKI_BACKEND", "/nonexistent/libnothing.so");
        QCOMPARE(C_Initialize(nullptr), CKR_GENERAL_ERROR);
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
        // From a configuration file, a file that is no PKCS#11 module; then the module itself.
        qunsetenv("ZORVIK_CRYPTOKI_BACKEND");
        withConf("backend = /usr/lib/x86_64-linux-gnu/libc.so.6\n", [&] {
            QCOMPARE(C_Initialize(nullptr), CKR_GENERAL_ERROR);
            qputenv("ZORVIK_CRYPTOKI_BACKEND", SoftHsmToken::modulePath().toLocal8Bit());
            QCOMPARE(C_Initialize(nullptr), CKR_GENERAL_ERROR);
        });
        // Back to a working backend in the same process.
        token_->apply(true);
        QCOMPARE(C_Initialize(nullptr), CKR_OK);
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
    }

    // NSS ends a thread's C_WaitForSlotEvent by finalising from another thread: the waiter is
    // woken, and the backing module is finalised only once no call is left inside it.
    void finalizeWaitsForCallsUnderWay()
    {
        overFaultyBackend();
        faultyBackend("faulty_backend_set", 0, 300); // every look at the token takes 300 ms
        std::atomic<CK_RV> waited{CKR_OK};
        std::thread waiter([&] {
            CK_SLOT_ID slot = 0;
            waited = C_WaitForSlotEvent(0, &slot, nullptr);
        });
        QTRY_VERIFY(faultyBackend("faulty_backend_calls_in_flight") > 0);
        QCOMPARE(C_Finalize(nullptr), CKR_OK);
        waiter.join();
        QCOMPARE(waited.load(), CKR_CRYPTOKI_NOT_INITIALIZED);
        QCOMPARE(faultyBackend("faulty_backend_finalized_under_calls"), 0);
    }

    // A slot that appears between the backing module's count and its listing is no reason to
    // think the key's token gone.
    void slotListingThatGrowsKeepsSessions()
    {
        overFaultyBackend();
        CK_SESSION_HANDLE session = 0;
        QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &session), CKR_OK);
        faultyBackend("faulty_backend_set", 1, 0);
        CK_ULONG n = 0;
        QCOMPARE(C_GetSlotList(CK_TRUE, nullptr, &n), CKR_OK);
        QCOMPARE(n, CK_ULONG(1));
        CK_SESSION_INFO info{};
        QCOMPARE(C_GetSessionInfo(session, &info), CKR_OK);
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
        QVERIFY(writeFile(decoy, "1\n") && QFile::remove(path));
        if (link)
            QVERIFY(QFile::link(decoy, path));
        else
            QVERIFY(QFile::copy(decoy, path) && ::chown(QFile::encodeName(path).constData(), 65534, 65534) == 0);
        QCOMPARE(asDashboard("0000"), CKR_PIN_INVALID);
        QCOMPARE(readFile(link ? decoy : path), QByteArray("1\n"));
        QFile::remove(path);
    }

    // NSS, OpenVPN and OpenSC's pkcs11-tool load the module from the build tree and find the
    // key's certificates; its private keys only after a login.
    void otherProgramsUseTheModule()
    {
        QString ids[2], out;
        for (const QString name : {"Alice", "Bob"})
            ids[name == "Bob"] = token_->load(TestCredential::make(name + " Tools"), name);
        QCOMPARE(token_->pkcs11Tool({"--list-objects"}, &out), 0);
        QCOMPARE(out.count("Certificate Object; type = X.509 cert"), 2);
        QCOMPARE(out.count("ID:         " + ids[1]), 2);
        QVERIFY(!out.contains("Private Key Object"));
        QCOMPARE(token_->pkcs11Tool({"--login", "--pin", kPin, "--list-objects"}, &out), 0);
        QCOMPARE(out.count("Private Key Object; RSA"), 2);

        // The identifier OpenVPN keeps in users' configurations names our token and the key's ID.
        const QProcessEnvironment env = token_->environment(true);
        auto r = runTool("openvpn", {"--show-pkcs11-ids", SoftHsmToken::modulePath()}, env);
        QVERIFY2(r.second.contains(QRegularExpression("Serialized id:\\s+Zorvik/Vantrel/[0-9a-f]+/Vantrel/" + ids[0],
                                                      QRegularExpression::CaseInsensitiveOption)),
                 qPrintable(r.second));
        // NSS reads the certificates through it: nickname "<token>:<label>". (Registering the
        // module with NSS is the integrations' test.)
        const QString db = "sql:" + home_.path() + "/nssdb";
        QDir().mkpath(home_.path() + "/nssdb");
        QCOMPARE(runTool("certutil", {"-N", "-d", db, "--empty-password"}, env).first, 0);
        r = runTool("modutil", {"-dbdir", db, "-add", "Zorvik Cryptoki", "-libfile", SoftHsmToken::modulePath(), "-force"}, env);
        QVERIFY2(r.first == 0 && r.second.contains("added to database"), qPrintable(r.second));
        r = runTool("certutil", {"-L", "-d", db, "-h", "all"}, env);
        QVERIFY2(r.second.contains("Vantrel:Alice") && r.second.contains("Vantrel:Bob"), qPrintable(r.second));
    }

    // Three wrong PINs, each in a process of its own, lock the PIN for the next process;
    // SoftHSM2 itself never locked.
    void pinLockHoldsAcrossProcesses()
    {
        QString out;
        for (int i = 0; i < 3; ++i) {
            QVERIFY(token_->pkcs11Tool({"--login", "--pin", "00000000", "--list-objects"}, &out) != 0);
            QVERIFY2(out.contains("CKR_PIN_INVALID"), qPrintable(out));
        }
        QVERIFY(token_->pkcs11Tool({"--login", "--pin", kPin, "--list-objects"}, &out) != 0);
        QVERIFY2(out.contains("CKR_PIN_LOCKED"), qPrintable(out));
        QCOMPARE(token_->pkcs11Tool({"--login", "--pin", kPin, "--list-objects"}, &out, false), 0);
    }

    void setGidProgramIgnoresTheUsersEnvironment_data()
    {
        QTest::addColumn<QString>("namedBy");
        QTest::newRow("backend variable") << "ZORVIK_CRYPTOKI_BACKEND";
        QTest::newRow("configuration variable") << "ZORVIK_CRYPTOKI_CONF";
        QTest::newRow("per-user configuration") << "XDG_CONFIG_HOME";
    }

    // The module inside a set-gid program (a root OpenVPN, a PAM stack) takes no code and no
    // paths from the user who started it: SoftHSM2 named in the user's environment is loaded by
    // a plain run of the probe, never by its set-gid copy, which logs to the system log only.
    void setGidProgramIgnoresTheUsersEnvironment()
    {
        QFETCH(QString, namedBy);
        if (::geteuid() != 0)
            QSKIP("making a set-gid program of another group needs root");
        const QString probe = home_.path() + "/setgid/cryptoki_env_probe";
        if (!QFile::exists(probe)) {
            QVERIFY(QDir().mkpath(home_.path() + "/setgid") && QFile::copy(CRYPTOKI_ENV_PROBE, probe));
            QCOMPARE(::chown(QFile::encodeName(probe).constData(), 0, 65534), 0);
            QCOMPARE(::chmod(QFile::encodeName(probe).constData(), 02755), 0);
        }
        QProcessEnvironment e = token_->environment(true);
        const QString conf = home_.path() + "/named-backend.conf";
        const QString userConf = e.value("XDG_CONFIG_HOME") + "/zorvik/cryptoki.conf";
        QVERIFY(writeFile(namedBy == "XDG_CONFIG_HOME" ? userConf : conf,
                          "backend = " + SoftHsmToken::backendPath().toUtf8() + "\n"));
        if (namedBy != "ZORVIK_CRYPTOKI_BACKEND")
            e.remove("ZORVIK_CRYPTOKI_BACKEND");
        if (namedBy == "ZORVIK_CRYPTOKI_CONF")
            e.insert("ZORVIK_CRYPTOKI_CONF", conf);
        // The probe's "name=value" lines.
        const auto answers = [](const QString& output) {
            QMap<QString, QString> values;
            for (const QString& line : output.split('\n'))
                if (line.indexOf('=') > 0)
                    values[line.section('=', 0, 0)] = line.section('=', 1);
            return values;
        };
        const auto plain = answers(runTool(CRYPTOKI_ENV_PROBE, {}, e).second);
        // Its own mount namespace keeps the set-gid run's system log off the machine's /var/log.
        const auto r = runTool("unshare", {"--mount", "--propagation", "private", "sh", "-c",
                                       "mount -t tmpfs tmpfs /var/log && exec \"$0\"", probe}, e);
        const auto setGid = answers(r.second);
        QFile::remove(userConf);
        QCOMPARE(plain.value("softhsm"), QString("1"));
        QCOMPARE(plain.value("tokens"), QString("1"));
        QCOMPARE(plain.value("user_log"), home_.userLog());
        if (!setGid.contains("softhsm") && (r.second.startsWith("unshare:") || r.second.startsWith("mount:")))
            QSKIP(qPrintable("no private mount namespace here: " + r.second));
        QVERIFY2(setGid.contains("softhsm"), qPrintable(r.second));
        QCOMPARE(setGid.value("softhsm"), QString("0"));
        QCOMPARE(setGid.value("tokens"), QString("0"));
        QCOMPARE(setGid.value("user_log"), QString());
        QCOMPARE(setGid.value("system_log"), QString("/var/log/zorvik/dashboard.log"));
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

    // Codes without a text of their own (the backend's own wrong-PIN code among them) name the
    // code in hexadecimal; what was typed at the PIN prompt, outside Latin-1 too, reaches the
    // module as UTF-8.
    void codesAndPinPrompt()
    {
        QVERIFY(CryptokiErrorString(160).endsWith("Error code A0"));
        QWidget watcher;
        SecretPtr pin;
        ModalSeam::answer(QDialog::Accepted, QString::fromUtf8("12\u20ac4"));
        QVERIFY(CryptokiStorage::askTokenPassword(&watcher, &pin));
        QCOMPARE(QByteArray(pin->data(), int(pin->size())), QByteArray("12\xe2\x82\xac" "4"));
    }

    // The files the Certificates tab does not meet: a cancelled or empty password prompt ends
    // quietly, a broken or missing file is named.
    void pkcs12ThatCannotBeRead_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<int>("answer"); // -1: no prompt
        QTest::addColumn<QString>("password");
        QTest::addColumn<QString>("error");
        QTest::newRow("cancelled") << "locked.p12" << int(QDialog::Rejected) << "s3cret" << QString();
        QTest::newRow("no password") << "locked.p12" << int(QDialog::Accepted) << "" << QString();
        QTest::newRow("no PKCS#12") << "junk.p12" << -1 << "" << "Error reading PKCS#12 file %1";
        QTest::newRow("missing") << "missing.p12" << -1 << "" << "Error opening file %1";
    }

    void pkcs12ThatCannotBeRead()
    {
        QFETCH(QString, file);
        QFETCH(int, answer);
        QFETCH(QString, password);
        QFETCH(QString, error);
        const QString path = home_.path() + "/" + file;
        QVERIFY(TestCredential::make("P12").writePkcs12(home_.path() + "/locked.p12", "s3cret", "x"));
        QVERIFY(writeFile(home_.path() + "/junk.p12", "this is no PKCS#12 file"));
        if (answer >= 0)
            ModalSeam::answer(answer, password);
        EVP_PKEY* key = nullptr;
        X509* cert = nullptr;
        QString shown = "unset", name;
        QVERIFY(!CryptokiInterface::readP12(path, &key, &cert, &name, nullptr, &shown));
        QCOMPARE(shown, error.isNull() ? QString() : error.arg(path));
    }

    // "finished" comes before an error, and after it once the key was asked.
    void importAndRemovalThroughTheInterface()
    {
        C_Finalize(nullptr); // the interface initialises the module itself
        CryptokiInterface ci;
        QStringList events;
        connect(&ci, &CryptokiInterface::importFinished, this, [&] { events << "finished"; });
        connect(&ci, &CryptokiInterface::error, this,
                [&](const QString& message, int index) { events << QString("error %1: %2").arg(index).arg(message); });
        const auto answered = [&](const std::function<void()>& action) {
            events.clear();
            action();
            return events;
        };
        const TestCredential c = TestCredential::make("Imported Person");
        const TestCredential d = TestCredential::make("Second Person");
        const auto import = [&](const TestCredential& who, const char* pin, bool withCert = true) {
            return answered([&] { ci.importCertificateAndKeys(who.takeKey(), withCert ? who.takeCertificate() : nullptr, secret(pin), "I"); });
        };
        QCOMPARE(import(c, kPin), QStringList{"finished"});
        QCOMPARE(listObjects().value(0).id, c.moduleId());
        QCOMPARE(import(c, kPin), QStringList({"finished", "error 2: Duplicate certificate"}));
        QCOMPARE(import(d, "00000000"), QStringList({"finished", "error 2: Cannot login to token. Incorrect PIN", "finished"}));
        QCOMPARE(import(d, kPin, false), QStringList({"finished", "error 2: No certificate found"}));
        const QStringList shortPin = import(d, "12");
        QCOMPARE(shortPin.size(), 2);
        QVERIFY(shortPin[0].startsWith("error 2: Password error Your Vantrel does not appear to be responding"));
        QCOMPARE(listObjects().size(), 2);

        const auto remove = [&](const char* pin) { return answered([&] { ci.removeCertificate(c.moduleId(), secret(pin)); }); };
        QCOMPARE(remove("11111111"), QStringList{"error 2: Incorrect PIN"});
        QCOMPARE(remove(kPin), QStringList());
        QVERIFY(listObjects().isEmpty());
        QCOMPARE(remove(kPin), QStringList{"error 2: Cannot delete certificate. Object not found on key"});
        for (int i = 0; i < 3; ++i)
            remove("11111111");
        QCOMPARE(remove(kPin), QStringList{"error 2: Key blocked"});
    }
};

QTEST_MAIN(TestCryptokiWithoutCard)
#include "tst_cryptoki_without_card.moc"
