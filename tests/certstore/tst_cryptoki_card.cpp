// libzorvik-cryptoki with cards: the token is there only while a Vantrel sits in a reader of
// the bench's pcscd (vpcd readers, simulated keys).
#include <QtTest>

#include <atomic>
#include <memory>
#include <thread>

#include "bench.h"
#include "softhsm_token.h"
#include "test_credential.h"
#include "test_support.h"
#include "zorvik_cryptoki.h"

class TestCryptokiCard : public QObject
{
    Q_OBJECT

private:
    static int listedObjects(CK_RV* rv)
    {
        ZorvikPublicTokenData* data = nullptr;
        *rv = C_GetPublicTokenData(0, &data);
        return data ? data->count : -1;
    }

    TestHome home_;
    Bench bench_;
    std::unique_ptr<SoftHsmToken> token_;

private slots:
    void initTestCase();
    void cleanupTestCase();
    void tokenFollowsTheVantrel();
    void otherCardsAreNoVantrel();
    void removalEndsSessions();
    void slotEvents();
    void smartCardServiceFailure();
};

void TestCryptokiCard::initTestCase()
{
    QVERIFY(home_.isValid());
    home_.apply();
    QVERIFY2(bench_.start(), qPrintable(bench_.errorText()));
    token_ = std::make_unique<SoftHsmToken>();
    QVERIFY2(token_->isValid(), qPrintable(token_->errorText()));
    QVERIFY(!token_->load(TestCredential::make("Card Holder"), "Card Holder").isEmpty());
    token_->apply(false);
    QCOMPARE(C_Initialize(nullptr), CKR_OK);
}

void TestCryptokiCard::cleanupTestCase()
{
    C_Finalize(nullptr);
    bench_.removeAll();
}

void TestCryptokiCard::tokenFollowsTheVantrel()
{
    CK_RV rv = 0;
    QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
    QCOMPARE(listedObjects(&rv), -1);
    QCOMPARE(rv, CKR_TOKEN_NOT_RECOGNIZED);

    QVERIFY2(bench_.insert(0), qPrintable(bench_.errorText()));
    QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
    QCOMPARE(listedObjects(&rv), 2);
    QCOMPARE(rv, CKR_OK);
    QVERIFY(home_.readLog().contains("Vantrel found in reader \"" + bench_.readerName(0)));

    QVERIFY(bench_.remove(0));
    QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
    QCOMPARE(listedObjects(&rv), -1);
    QCOMPARE(rv, CKR_TOKEN_NOT_RECOGNIZED);

    // Any reader will do, the virtual one included.
    QVERIFY(bench_.insert(2));
    QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
    QVERIFY(bench_.remove(2));
}

void TestCryptokiCard::otherCardsAreNoVantrel()
{
    QVERIFY(bench_.insert(1, {"--not-vantrel"}));
    QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
    CK_ULONG n = 0;
    QCOMPARE(C_GetSlotList(CK_TRUE, nullptr, &n), CKR_OK);
    QCOMPARE(n, CK_ULONG(0));
    // Next to it, a Vantrel makes the token available.
    QVERIFY(bench_.insert(0));
    QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
    QVERIFY(bench_.removeAll());
}

void TestCryptokiCard::removalEndsSessions()
{
    QVERIFY(bench_.insert(0));
    CK_SESSION_HANDLE s = 0;
    QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &s), CKR_OK);
    QByteArray pin = token_->pin().toLatin1();
    QCOMPARE(C_Login(s, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(pin.data()), pin.size()), CKR_OK);
    CK_SESSION_INFO info{};
    QCOMPARE(C_GetSessionInfo(s, &info), CKR_OK);
    QCOMPARE(info.state, CK_STATE(CKS_RO_USER_FUNCTIONS));

    QVERIFY(bench_.remove(0));
    // The module may reuse its last look for a moment; the session ends all the same.
    CK_RV first = CKR_OK;
    const auto sessionEnded = [&] {
        if (first == CKR_OK)
            first = C_GetSessionInfo(s, &info);
        return first != CKR_OK;
    };
    QTRY_VERIFY(sessionEnded());
    QCOMPARE(first, CKR_DEVICE_REMOVED);
    QCOMPARE(C_GetSessionInfo(s, &info), CKR_SESSION_HANDLE_INVALID);
    QVERIFY(home_.readLog().contains("the key's token is gone"));

    // Back in: a new session starts logged out.
    QVERIFY(bench_.insert(0));
    QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &s), CKR_OK);
    QCOMPARE(C_GetSessionInfo(s, &info), CKR_OK);
    QCOMPARE(info.state, CK_STATE(CKS_RO_PUBLIC_SESSION));
    QCOMPARE(C_CloseSession(s), CKR_OK);
    QVERIFY(bench_.remove(0));
}

void TestCryptokiCard::slotEvents()
{
    CK_SLOT_ID slot = 0;
    // Settle: report whatever is pending.
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

void TestCryptokiCard::smartCardServiceFailure()
{
    QVERIFY(bench_.insert(0));
    QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
    QVERIFY(bench_.stopPcscd());
    QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
    CK_RV rv = 0;
    listedObjects(&rv);
    QCOMPARE(rv, CKR_TOKEN_NOT_RECOGNIZED);
    // The service comes back with the key still in its reader.
    QVERIFY(bench_.startPcscd());
    QTRY_COMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
    QVERIFY(bench_.remove(0));
}

QTEST_GUILESS_MAIN(TestCryptokiCard)
#include "tst_cryptoki_card.moc"
