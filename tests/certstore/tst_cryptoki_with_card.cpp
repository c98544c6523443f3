// The certificate store with cards: libzorvik-cryptoki's token is there only while a Vantrel
// sits in a reader of the bench's pcscd, and the dashboard lists the key's objects through
// CryptokiInterface. SoftHSM2 holds the token.
#include <QtTest>

#include <atomic>
#include <memory>
#include <thread>

#include "bench.h"
#include "cryptoki_interface.h"
#include "softhsm_token.h"
#include "test_credential.h"
#include "test_support.h"
#include "zorvik_cryptoki.h"

namespace {

CK_RV publicTokenData()
{
    ZorvikPublicTokenData* data = nullptr;
    return C_GetPublicTokenData(0, &data);
}

} // namespace

class TestCryptokiWithCard : public QObject
{
    Q_OBJECT

    TestHome home_;
    Bench bench_;
    std::unique_ptr<SoftHsmToken> token_;

    struct Outcome
    {
        QList<CryptokiStorageItem> items;
        bool listed = false;
        QVariantList cannot;
    };
    // One listing by a fresh interface (which initialises the module as the worker does).
    Outcome listing()
    {
        Outcome out;
        CryptokiInterface ci;
        connect(&ci, &CryptokiInterface::certificates, this, [&](const QList<CryptokiStorageItem>& items) {
            out.items = items;
            out.listed = true;
        });
        connect(&ci, &CryptokiInterface::cannotGetCertificates, this,
                [&](int code, int status) { out.cannot = {code, status}; });
        ci.slotGetCertificates();
        return out;
    }

    void newToken()
    {
        token_ = std::make_unique<SoftHsmToken>();
        QVERIFY2(token_->isValid(), qPrintable(token_->errorText()));
        token_->apply(false);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(home_.isValid());
        home_.apply();
        qunsetenv("ZORVIK_CRYPTOKI_CONF");
        QVERIFY2(bench_.start(), qPrintable(bench_.errorText()));
    }

    // The module tests initialise it themselves; the listings leave that to the interface.
    void init()
    {
        newToken();
        if (QByteArray(QTest::currentTestFunction()).startsWith("module"))
            QCOMPARE(C_Initialize(nullptr), CKR_OK);
    }

    void cleanup()
    {
        C_Finalize(nullptr);
        QVERIFY2(bench_.startPcscd() && bench_.removeAll(), qPrintable(bench_.errorText()));
    }

    void moduleTokenFollowsTheVantrel()
    {
        QVERIFY(!token_->load(TestCredential::make("Card Holder"), "Card Holder").isEmpty());
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
        QCOMPARE(publicTokenData(), CKR_TOKEN_NOT_RECOGNIZED);
        QVERIFY2(bench_.insert(0), qPrintable(bench_.errorText()));
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
        QCOMPARE(publicTokenData(), CKR_OK);
        QVERIFY(home_.readLog().contains("Vantrel found in reader \"" + bench_.readerName(0)));
        QVERIFY(bench_.remove(0));
        QCOMPARE(publicTokenData(), CKR_TOKEN_NOT_RECOGNIZED);
        // A card that is no Vantrel does not count; any reader does, the virtual one included.
        QVERIFY(bench_.insert(1, {"--not-vantrel"}));
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
        QVERIFY(bench_.insert(2));
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));

        // The smart-card service goes and comes back with the key still in its reader.
        QVERIFY(bench_.stopPcscd());
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
        QCOMPARE(publicTokenData(), CKR_TOKEN_NOT_RECOGNIZED);
        QVERIFY(bench_.startPcscd());
        QTRY_COMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
    }

    void moduleRemovalEndsSessions()
    {
        QVERIFY(bench_.insert(0));
        CK_SESSION_HANDLE s = 0;
        QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &s), CKR_OK);
        QByteArray pin = token_->pin().toLatin1();
        QCOMPARE(C_Login(s, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(pin.data()), pin.size()), CKR_OK);
        CK_SESSION_INFO info{};
        QVERIFY(bench_.remove(0));
        // The module may reuse its last look for a moment; the session ends all the same.
        CK_RV first = CKR_OK;
        QTRY_VERIFY((first = first == CKR_OK ? C_GetSessionInfo(s, &info) : first) != CKR_OK);
        QCOMPARE(first, CKR_DEVICE_REMOVED);
        QCOMPARE(C_GetSessionInfo(s, &info), CKR_SESSION_HANDLE_INVALID);
        QVERIFY(home_.readLog().contains("the key's token is gone"));
        // Back in: a new session starts logged out.
        QVERIFY(bench_.insert(0));
        QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &s), CKR_OK);
        QCOMPARE(C_GetSessionInfo(s, &info), CKR_OK);
        QCOMPARE(info.state, CK_STATE(CKS_RO_PUBLIC_SESSION));
    }

    void moduleSlotEvents()
    {
        CK_SLOT_ID slot = 0;
        while (C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr) == CKR_OK) {
        }
        QVERIFY(bench_.insert(0));
        QCOMPARE(C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_OK);
        QCOMPARE(slot, CK_SLOT_ID(ZORVIK_CRYPTOKI_SLOT));
        QCOMPARE(C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr), CKR_NO_EVENT);
        // A blocking wait returns when the key is pulled.
        std::atomic<CK_RV> waited{CKR_GENERAL_ERROR};
        std::atomic<bool> done{false};
        std::thread waiter([&] {
            CK_SLOT_ID s = 0;
            waited = C_WaitForSlotEvent(0, &s, nullptr);
            done = true;
        });
        QVERIFY(bench_.remove(0));
        QTRY_VERIFY_WITH_TIMEOUT(done.load(), 10000);
        waiter.join();
        QCOMPARE(waited.load(), CKR_OK);
    }

    void listingKeyWithCertificates()
    {
        const TestCredential valid = TestCredential::make("Listed Valid");
        TestCredential::Options o;
        o.commonName = "Listed Expired";
        o.notBefore = QDateTime::currentDateTimeUtc().addDays(-60);
        o.notAfter = QDateTime::currentDateTimeUtc().addDays(-2);
        const TestCredential expired = TestCredential::make(o);
        QVERIFY(!token_->load(valid, "Valid one").isEmpty());
        QVERIFY(!token_->load(expired, "Expired one").isEmpty());
        QVERIFY2(bench_.insert(0), qPrintable(bench_.errorText()));
        const Outcome out = listing();
        QVERIFY(out.listed);
        QCOMPARE(out.items.size(), 4);
        for (const CryptokiStorageItem& item : out.items) {
            const TestCredential& c = item.pkcs11id == valid.moduleId() ? valid : expired;
            QCOMPARE(item.pkcs11id, c.moduleId());
            QCOMPARE(item.label, QString(&c == &valid ? "Valid one" : "Expired one"));
            if (item.type == CryptokiStorageItem::Certificate) {
                QCOMPARE(item.certificate.toDer(), c.certificateDer());
                if (&c == &expired) // listed, and logged
                    QVERIFY(home_.readLog().contains(QString("Cryptoki interface: invalid cert %1 found").arg(item.index)));
            } else {
                QCOMPARE(item.type, int(CryptokiStorageItem::RsaKeyPair));
                QCOMPARE(item.modulus, c.modulus());
                QCOMPARE(item.exponent, c.exponent());
            }
        }
    }

    void listingKeyWithoutObjects()
    {
        QVERIFY(bench_.insert(0));
        const Outcome out = listing();
        QVERIFY(!out.listed);
        QCOMPARE(out.cannot, QVariantList({4, 0}));
    }

    // The key is active, but the module is configured for a token the backend does not hold:
    // the listing waits its 20 seconds, then gives up.
    void listingModuleNeverSeesTheToken()
    {
        QTemporaryFile conf;
        QVERIFY(conf.open());
        conf.write("token-label = Some other token\n");
        conf.flush();
        qputenv("ZORVIK_CRYPTOKI_CONF", conf.fileName().toLocal8Bit());
        QVERIFY(bench_.insert(0));
        QElapsedTimer timer;
        timer.start();
        const Outcome out = listing();
        QVERIFY(timer.elapsed() >= 19000);
        qunsetenv("ZORVIK_CRYPTOKI_CONF");
        QCOMPARE(out.cannot, QVariantList({2, 7}));
        QVERIFY(home_.readLog().contains("Cryptoki interface: 0 token available"));
        QVERIFY(home_.readLog().contains("holds no token labelled \"Some other token\""));
    }
};

QTEST_GUILESS_MAIN(TestCryptokiWithCard)
#include "tst_cryptoki_with_card.moc"
