// The dashboard lists the key's objects: CryptokiInterface with a simulated Vantrel in the
// bench's pcscd and the module over a SoftHSM2 token.
#include <QtTest>

#include <memory>

#include "bench.h"
#include "cryptoki_interface.h"
#include "softhsm_token.h"
#include "test_credential.h"
#include "test_support.h"

class TestCertificateListing : public QObject
{
    Q_OBJECT

private:
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
        connect(&ci, &CryptokiInterface::cannotGetCertificates, this, [&](int code, int status) {
            out.cannot = {code, status};
        });
        ci.slotGetCertificates();
        return out;
    }

    TestHome home_;
    Bench bench_;
    std::unique_ptr<SoftHsmToken> token_;

private slots:
    void initTestCase();
    void cleanupTestCase();
    void keyWithCertificates();
    void keyWithoutObjects();
    void keyThatIsNotActive();
    void noKey();
    void moduleNeverSeesTheToken();
};

void TestCertificateListing::initTestCase()
{
    QVERIFY(home_.isValid());
    home_.apply();
    qunsetenv("ZORVIK_CRYPTOKI_CONF");
    QVERIFY2(bench_.start(), qPrintable(bench_.errorText()));
    token_ = std::make_unique<SoftHsmToken>();
    QVERIFY2(token_->isValid(), qPrintable(token_->errorText()));
    token_->apply(false);
}

void TestCertificateListing::cleanupTestCase()
{
    bench_.removeAll();
}

void TestCertificateListing::keyWithCertificates()
{
    TestCredential::Options o;
    o.commonName = "Listed Valid";
    const TestCredential valid = TestCredential::make(o);
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
    int certificates = 0;
    for (const CryptokiStorageItem& item : out.items) {
        const TestCredential& c = item.pkcs11id == valid.moduleId() ? valid : expired;
        QCOMPARE(item.pkcs11id, c.moduleId());
        QCOMPARE(item.label, QString(&c == &valid ? "Valid one" : "Expired one"));
        if (item.type == CryptokiStorageItem::Certificate) {
            ++certificates;
            QCOMPARE(item.certificate.toDer(), c.certificateDer());
        } else {
            QCOMPARE(item.type, int(CryptokiStorageItem::RsaKeyPair));
            QCOMPARE(item.modulus, c.modulus());
            QCOMPARE(item.exponent, c.exponent());
            QCOMPARE(item.RSALength(), 2048);
        }
    }
    QCOMPARE(certificates, 2);
    // The expired one is listed, and logged.
    int expiredIndex = -1;
    for (const CryptokiStorageItem& item : out.items) {
        if (item.type == CryptokiStorageItem::Certificate && item.pkcs11id == expired.moduleId())
            expiredIndex = item.index;
    }
    QVERIFY(home_.readLog().contains(QString("Cryptoki interface: invalid cert %1 found").arg(expiredIndex)));
    QVERIFY(home_.readLog().contains("Cryptoki interface: found 4 certificates"));
    QVERIFY(bench_.remove(0));
}

void TestCertificateListing::keyWithoutObjects()
{
    token_ = std::make_unique<SoftHsmToken>();
    QVERIFY(token_->isValid());
    token_->apply(false);
    QVERIFY(bench_.insert(0));
    const Outcome out = listing();
    QVERIFY(!out.listed);
    QCOMPARE(out.cannot, QVariantList({4, 0}));
    QVERIFY(bench_.remove(0));
}

void TestCertificateListing::keyThatIsNotActive()
{
    // A blank key: its status stops the listing before the module is asked.
    QVERIFY(bench_.insert(0, {"--status", "4"}));
    const Outcome out = listing();
    QCOMPARE(out.cannot, QVariantList({1, 4}));
    QVERIFY(home_.readLog().contains("Cryptoki interface: incorrect token status 4"));
    QVERIFY(bench_.remove(0));
}

void TestCertificateListing::noKey()
{
    const Outcome out = listing();
    QCOMPARE(out.cannot, QVariantList({1, 0}));
}

void TestCertificateListing::moduleNeverSeesTheToken()
{
    // The key is active, but the module is configured for a token the backend does not
    // hold: the listing waits its 20 seconds, then gives up.
    QTemporaryFile conf;
    QVERIFY(conf.open());
    conf.write("token-label = Some other token\n");
    conf.flush();
    qputenv("ZORVIK_CRYPTOKI_CONF", conf.fileName().toLocal8Bit());
    QVERIFY(bench_.insert(0));
    QElapsedTimer timer;
    timer.start();
    const Outcome out = listing();
    qunsetenv("ZORVIK_CRYPTOKI_CONF");
    QCOMPARE(out.cannot, QVariantList({2, 7}));
    QVERIFY(timer.elapsed() >= 19000);
    QVERIFY(home_.readLog().contains("Cryptoki interface: 0 token available"));
    QVERIFY(home_.readLog().contains("holds no token labelled \"Some other token\""));
    QVERIFY(bench_.remove(0));
}

QTEST_GUILESS_MAIN(TestCertificateListing)
#include "tst_certificate_listing.moc"
