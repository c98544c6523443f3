// The dashboard's side of the certificate store without a card: items, error texts, the
// PKCS#12 reader, extended key usages, the details dialogs, and import and removal through
// CryptokiInterface and CryptokiStorage over the real module and a SoftHSM2 token
// (ZORVIK_CRYPTOKI_NO_CARDS).
#include <QtTest>

#include <QInputDialog>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QTextDocument>
#include <QTextEdit>

#include <memory>

#include "certificate_details_dialog.h"
#include "certificate_storage.h"
#include "cryptoki_interface.h"
#include "modal_seam.h"
#include "rsa_key_details_dialog.h"
#include "softhsm_token.h"
#include "test_credential.h"
#include "test_support.h"
#include "zorvik_cryptoki.h"

namespace {

// A widget that announces the key's removal, as the main window does.
class KeyWatcher : public QWidget
{
    Q_OBJECT
signals:
    void noToken();
};

// The order in which an interface answered.
class Answers : public QObject
{
public:
    explicit Answers(CryptokiInterface* ci)
    {
        connect(ci, &CryptokiInterface::importFinished, this, [this] { events << "finished"; });
        connect(ci, &CryptokiInterface::error, this, [this](const QString& message, int index) {
            events << QString("error %1: %2").arg(index).arg(message);
        });
    }
    QStringList events;
};

// Certificates on the token, by identifier, as the module lists them.
QList<QByteArray> certificateIds()
{
    ZorvikPublicTokenData* data = nullptr;
    QList<QByteArray> ids;
    if (C_GetPublicTokenData(0, &data) != CKR_OK || !data)
        return ids;
    for (int i = 0; i < data->count; ++i) {
        if (data->objects[i]->type == ZORVIK_OBJECT_CERTIFICATE)
            ids << QByteArray(reinterpret_cast<const char*>(data->objects[i]->id),
                              static_cast<int>(data->objects[i]->idLength));
    }
    return ids;
}

SecretPtr secret(const char* text)
{
    return shareSecret(SecretBytes::fromText(QString::fromUtf8(text)));
}

QString valueText(QLabel* label)
{
    QTextDocument doc;
    doc.setHtml(label->text());
    return doc.toPlainText();
}

} // namespace

class TestCertificateStore : public QObject
{
    Q_OBJECT

private:
    static constexpr const char* kPin = "24681357";
    TestHome home_;
    std::unique_ptr<SoftHsmToken> token_;

private slots:
    void initTestCase();
    void cleanupTestCase();
    void init() { ModalSeam::reset(); }

    void itemTypeAndLength_data();
    void itemTypeAndLength();
    void errorTexts_data();
    void errorTexts();
    void extendedKeyUsages();
    void readingPkcs12();
    void certificateDetails();
    void rsaKeyDetails();
    void pinPrompt();

    void importThroughTheInterface();
    void importRefusals();
    void removalThroughTheInterface();
    void storageRelaysOnItsThread();
};

void TestCertificateStore::initTestCase()
{
    QVERIFY(home_.isValid());
    home_.apply();
    qputenv("PCSCLITE_CSOCK_NAME", (home_.path() + "/no-pcscd.comm").toLocal8Bit());
    qunsetenv("ZORVIK_CRYPTOKI_CONF");
    token_ = std::make_unique<SoftHsmToken>("Vantrel", kPin);
    QVERIFY2(token_->isValid(), qPrintable(token_->errorText()));
    token_->apply(true);
}

void TestCertificateStore::cleanupTestCase()
{
    QVERIFY2(!home_.readLog().contains(kPin), "a PIN reached the log");
}

void TestCertificateStore::itemTypeAndLength_data()
{
    QTest::addColumn<int>("type");
    QTest::addColumn<QByteArray>("modulus");
    QTest::addColumn<QString>("name");
    QTest::addColumn<int>("bits");
    QByteArray m2048(256, '\xC5');
    QTest::newRow("2048 bits") << 2 << m2048 << "RSA keypair" << 2048;
    QTest::newRow("leading zero byte") << 2 << QByteArray(1, '\0') + m2048 << "RSA keypair" << 2048;
    QTest::newRow("leading zero bits") << 2 << QByteArray(1, '\x01') + QByteArray(127, '\xFF') << "RSA keypair" << 1017;
    QTest::newRow("empty modulus") << 2 << QByteArray() << "RSA keypair" << 0;
    QTest::newRow("certificate") << 1 << m2048 << "certificate" << 0;
    QTest::newRow("empty object") << -1 << QByteArray() << "certificate" << 0;
}

void TestCertificateStore::itemTypeAndLength()
{
    QFETCH(int, type);
    QFETCH(QByteArray, modulus);
    CryptokiStorageItem item;
    item.type = type;
    item.modulus = modulus;
    QTEST(item.typeName(), "name");
    QTEST(item.RSALength(), "bits");
}

void TestCertificateStore::errorTexts_data()
{
    QTest::addColumn<qulonglong>("code");
    QTest::addColumn<QString>("text");
    const QString other = "Your Vantrel does not appear to be responding correctly. Try removing and reinserting the "
                          "Vantrel. Contact support if the issue continues. Error code %1";
    QTest::newRow("device") << 48ULL << "Internal Key error";
    QTest::newRow("object") << 130ULL << "Object not found on key";
    QTest::newRow("pin") << 161ULL << "Incorrect PIN";
    QTest::newRow("locked") << 164ULL << "Key blocked";
    QTest::newRow("no key") << 225ULL << "Your Vantrel is needed to display your certificates. Insert your Vantrel.";
    QTest::newRow("server") << 2147483648ULL << "The authentication server is not responding.";
    QTest::newRow("disabled") << 2147483649ULL << "Key was disabled by user";
    QTest::newRow("5") << 5ULL << other.arg("5");
    QTest::newRow("170") << 170ULL << other.arg("AA");
    QTest::newRow("160, the backend's own wrong PIN") << 160ULL << other.arg("A0");
}

void TestCertificateStore::errorTexts()
{
    QFETCH(qulonglong, code);
    QTEST(CryptokiErrorString(code), "text");
}

void TestCertificateStore::extendedKeyUsages()
{
    TestCredential::Options o;
    o.extKeyUsages = QStringList{"clientAuth", "emailProtection", "1.3.6.1.4.1.99999.1"};
    const TestCredential c = TestCredential::make(o);
    QCOMPARE(CryptokiStorage::getEKU(c.certificateDer()),
             QString("TLS Web Client Authentication;E-mail Protection;1.3.6.1.4.1.99999.1"));
    QCOMPARE(CryptokiStorage::getEKU(TestCredential::make("No EKU").certificateDer()), QString("Invalid certificate"));
    QCOMPARE(CryptokiStorage::getEKU("not a certificate"), QString("Invalid certificate"));
}

void TestCertificateStore::readingPkcs12()
{
    const TestCredential c = TestCredential::make("P12 Holder");
    const QString dir = home_.path();
    QVERIFY(c.writePkcs12(dir + "/open.p12", QString(), "Open Name"));
    QVERIFY(c.writePkcs12(dir + "/locked.p12", "s3cret", "Locked Name"));
    QFile junk(dir + "/junk.p12");
    QVERIFY(junk.open(QIODevice::WriteOnly));
    junk.write("this is no PKCS#12 file");
    junk.close();

    const auto read = [](const QString& path, QString* error, QString* friendly) {
        EVP_PKEY* key = nullptr;
        X509* cert = nullptr;
        const bool ok = CryptokiInterface::readP12(path, &key, &cert, friendly, nullptr, error);
        const bool both = key && cert;
        EVP_PKEY_free(key);
        X509_free(cert);
        return ok && both;
    };
    QString error, name;

    // Without a password: no prompt, the friendly name from the bags.
    QVERIFY(read(dir + "/open.p12", &error, &name));
    QCOMPARE(name, QString("Open Name"));
    QCOMPARE(ModalSeam::seen().size(), 0);

    // With one: asked once.
    ModalSeam::answer(QDialog::Accepted, "s3cret");
    QVERIFY(read(dir + "/locked.p12", &error, &name));
    QCOMPARE(name, QString("Locked Name"));
    QCOMPARE(ModalSeam::seen(),
             QStringList{"Password request|Please enter the password that was used to encrypt this certificate:"});

    ModalSeam::answer(QDialog::Accepted, "wrong");
    QVERIFY(!read(dir + "/locked.p12", &error, &name));
    QCOMPARE(error, QString("Error reading file %1\nWrong password").arg(dir + "/locked.p12"));
    QVERIFY(home_.readLog().contains("Error parsing PKCS#12 file " + dir + "/locked.p12 errstring="));

    // Cancelled, or nothing typed: a failure with nothing to show.
    ModalSeam::answer(QDialog::Rejected, "s3cret");
    QVERIFY(!read(dir + "/locked.p12", &error, &name));
    QCOMPARE(error, QString());
    ModalSeam::answer(QDialog::Accepted, "");
    QVERIFY(!read(dir + "/locked.p12", &error, &name));
    QCOMPARE(error, QString());

    QVERIFY(!read(dir + "/junk.p12", &error, &name));
    QCOMPARE(error, QString("Error reading PKCS#12 file %1").arg(dir + "/junk.p12"));
    QVERIFY(!read(dir + "/missing.p12", &error, &name));
    QCOMPARE(error, QString("Error opening file %1").arg(dir + "/missing.p12"));
    QVERIFY(!home_.readLog().contains("s3cret"));
}

void TestCertificateStore::certificateDetails()
{
    TestCredential::Options o;
    o.commonName = "Dora Details";
    o.organizations = QStringList{"Zorvik Bench"};
    o.emails = QStringList{"dora@example.com", "d@example.org"};
    o.dnsNames = QStringList{"dora.example.com"};
    o.extKeyUsages = QStringList{"clientAuth"};
    const TestCredential valid = TestCredential::make(o);
    const QSslCertificate cert(valid.certificateDer(), QSsl::Der);
    CertificateDetailsDialog dialog(QByteArray::fromHex("010203"), "Dora <on the key>", cert);
    const auto field = [](QDialog& d, const char* name) { return d.findChild<QLabel*>(name); };
    QCOMPARE(dialog.windowTitle(), QString("Certificate Details"));
    QCOMPARE(valueText(field(dialog, "typeLabel")), QString("X509 Certificate"));
    QCOMPARE(valueText(field(dialog, "pkcs11IDLabel")), QString("01:02:03"));
    QCOMPARE(valueText(field(dialog, "pkcs11Label")), QString("Dora <on the key>"));
    QCOMPARE(valueText(field(dialog, "ownerCNLabel")), QString("Dora Details"));
    QCOMPARE(valueText(field(dialog, "ownerOLabel")), QString("Zorvik Bench"));
    // The addresses (in the order Qt gives them), then the name.
    const QStringList san = valueText(field(dialog, "SANLabel")).split(';');
    QCOMPARE(san.size(), 3);
    QCOMPARE(QSet<QString>(san.begin(), san.begin() + 2), QSet<QString>({"dora@example.com", "d@example.org"}));
    QCOMPARE(san.last(), QString("dora.example.com"));
    QCOMPARE(valueText(field(dialog, "EKU_label")), QString("TLS Web Client Authentication"));
    QVERIFY(field(dialog, "typeLabel")->text().startsWith("<span style=\"font-size: 10pt\">"));
    QVERIFY(dialog.findChild<QPushButton*>("inspectButton")->isHidden());

    o.notBefore = QDateTime::currentDateTimeUtc().addDays(-30);
    o.notAfter = QDateTime::currentDateTimeUtc().addDays(-1);
    o.emails.clear();
    o.dnsNames.clear();
    o.extKeyUsages.clear();
    const TestCredential expired = TestCredential::make(o);
    CertificateDetailsDialog old(QByteArray(), QString(), QSslCertificate(expired.certificateDer(), QSsl::Der));
    QCOMPARE(field(old, "typeLabel")->text(),
             QString("<span style=\"font-size: 10pt\">X509 Certificate <strong>[Invalid]</strong></span>"));
    QCOMPARE(valueText(field(old, "SANLabel")), QString());
    QCOMPARE(valueText(field(old, "EKU_label")), QString("Invalid certificate"));
}

void TestCertificateStore::rsaKeyDetails()
{
    RsaKeyDetailsDialog dialog(QByteArray::fromHex("0a0b"), "Pair", QByteArray::fromHex("c0ffee"),
                               QByteArray::fromHex("010001"));
    QCOMPARE(dialog.windowTitle(), QString("RSA Keypair Details"));
    QCOMPARE(valueText(dialog.findChild<QLabel*>("typeLabel")), QString("RSA Keypair"));
    QCOMPARE(valueText(dialog.findChild<QLabel*>("pkcs11IDLabel")), QString("0A:0B"));
    QCOMPARE(dialog.findChild<QTextEdit*>("modulusLabel")->toPlainText(), QString("C0:FF:EE"));
    QCOMPARE(valueText(dialog.findChild<QLabel*>("exponentLabel")), QString("01:00:01"));
}

void TestCertificateStore::pinPrompt()
{
    KeyWatcher watcher;
    SecretPtr pin;
    // What was typed, outside Latin-1 too, reaches the module as UTF-8.
    ModalSeam::answer(QDialog::Accepted, QString::fromUtf8("12\u20ac4"));
    QVERIFY(CryptokiStorage::askTokenPassword(&watcher, &pin));
    QCOMPARE(QByteArray(pin->data(), int(pin->size())), QByteArray("12\xe2\x82\xac" "4"));
    QCOMPARE(ModalSeam::seen(), QStringList{"Zorvik PIN Request|Please enter PIN for your Vantrel:"});

    // Pulling the key while the prompt is open closes it as cancelled.
    ModalSeam::answer(ModalSeam::ShowIt);
    ModalSeam::setObserver([&](QDialog* dialog) {
        QTimer::singleShot(0, &watcher, [&, dialog] {
            QTest::keyClicks(dialog->findChild<QLineEdit*>(), "typed");
            emit watcher.noToken();
        });
    });
    const bool accepted = CryptokiStorage::askTokenPassword(&watcher, &pin);
    ModalSeam::setObserver(nullptr);
    QVERIFY(!accepted);
    QCOMPARE(QByteArray(pin->data()), QByteArray("typed"));
}

void TestCertificateStore::importThroughTheInterface()
{
    CryptokiInterface ci;
    Answers answers(&ci);
    const TestCredential c = TestCredential::make("Imported Person");
    ci.importCertificateAndKeys(c.takeKey(), c.takeCertificate(), secret(kPin), "Imported");
    QCOMPARE(answers.events, QStringList{"finished"});
    QCOMPARE(certificateIds(), QList<QByteArray>{c.moduleId()});
    QVERIFY(home_.readLog().contains("Certificate installed successfully"));
    QVERIFY(ci.certExist(c.certificateDer().constData(), c.certificateDer().size()));

    // The same certificate again: refused before the key is touched.
    answers.events.clear();
    ci.importCertificateAndKeys(c.takeKey(), c.takeCertificate(), secret(kPin), "Imported");
    QCOMPARE(answers.events, QStringList({"finished", "error 2: Duplicate certificate"}));

    // A wrong PIN: refused at the login, "finished" before and after the error.
    const TestCredential d = TestCredential::make("Second Person");
    answers.events.clear();
    ci.importCertificateAndKeys(d.takeKey(), d.takeCertificate(), secret("00000000"), "Second");
    QCOMPARE(answers.events, QStringList({"finished", "error 2: Cannot login to token. Incorrect PIN", "finished"}));
    QCOMPARE(certificateIds().size(), 1);
}

void TestCertificateStore::importRefusals()
{
    CryptokiInterface ci;
    Answers answers(&ci);
    TestCredential::Options o;
    o.kind = TestCredential::Ec;
    const TestCredential ec = TestCredential::make(o);
    ci.importCertificateAndKeys(ec.takeKey(), ec.takeCertificate(), secret(kPin), "EC");
    QCOMPARE(answers.events, QStringList({"finished", "error 2: Incorrect key type = 408"}));

    const TestCredential rsa = TestCredential::make("No Cert");
    answers.events.clear();
    ci.importCertificateAndKeys(rsa.takeKey(), nullptr, secret(kPin), "x");
    QCOMPARE(answers.events, QStringList({"finished", "error 2: No certificate found"}));

    // A PIN the token cannot take fails at the token password.
    answers.events.clear();
    ci.importCertificateAndKeys(rsa.takeKey(), rsa.takeCertificate(), secret("12"), "x");
    QCOMPARE(answers.events.size(), 2);
    QVERIFY(answers.events[0].startsWith("error 2: Password error Your Vantrel does not appear to be responding"));
    QCOMPARE(answers.events[1], QString("finished"));
}

void TestCertificateStore::removalThroughTheInterface()
{
    CryptokiInterface ci;
    Answers answers(&ci);
    const TestCredential c = TestCredential::make("Removable");
    ci.importCertificateAndKeys(c.takeKey(), c.takeCertificate(), secret(kPin), "Removable");
    QVERIFY(certificateIds().contains(c.moduleId()));

    answers.events.clear();
    ci.removeCertificate(c.moduleId(), secret("11111111"));
    QCOMPARE(answers.events, QStringList{"error 2: Incorrect PIN"});
    QVERIFY(certificateIds().contains(c.moduleId()));

    ci.removeCertificate(c.moduleId(), secret(kPin));
    QCOMPARE(answers.events.size(), 1);
    QVERIFY(!certificateIds().contains(c.moduleId()));
    QVERIFY(home_.readLog().contains("Certificate deleted successfully"));

    ci.removeCertificate(c.moduleId(), secret(kPin));
    QCOMPARE(answers.events.last(), QString("error 2: Cannot delete certificate. Object not found on key"));

    // Locked after three wrong PINs: the login says so.
    for (int i = 0; i < 3; ++i)
        ci.removeCertificate(c.moduleId(), secret("11111111"));
    answers.events.clear();
    ci.removeCertificate(c.moduleId(), secret(kPin));
    QCOMPARE(answers.events, QStringList{"error 2: Key blocked"});
}

void TestCertificateStore::storageRelaysOnItsThread()
{
    // A fresh token: the one above is locked.
    token_ = std::make_unique<SoftHsmToken>("Vantrel", kPin);
    QVERIFY(token_->isValid());
    token_->apply(true);

    // A listing asked for the moment the storage exists is answered (the worker may not have
    // set up its module yet); it asks the key its status first, and there is no key here.
    CryptokiStorage storage;
    emit storage.getCertificates();
    storage.working = true;
    QSignalSpy finished(&storage, &CryptokiStorage::importFinished);
    QSignalSpy errors(&storage, &CryptokiStorage::error);
    QSignalSpy cannot(&storage, &CryptokiStorage::cannotGetCertificates);
    QVERIFY(cannot.wait(20000));
    QCOMPARE(cannot.first(), QVariantList({1, 0}));
    QVERIFY(!storage.working);
    QVERIFY(home_.readLog().contains("Cryptoki interface: incorrect token status 0"));

    const TestCredential c = TestCredential::make("Threaded");
    storage.working = true;
    storage.addCertificate(c.takeKey(), c.takeCertificate(), secret(kPin), "Threaded");
    QVERIFY(finished.wait(20000));
    QVERIFY(storage.working); // an import leaves it as it was
    QCOMPARE(errors.count(), 0);

    storage.working = true;
    storage.removeCertificate(c.moduleId(), secret("99999999"));
    QVERIFY(errors.wait(20000));
    QCOMPARE(errors.first(), QVariantList({"Incorrect PIN", 2}));
    QVERIFY(!storage.working);
}

QTEST_MAIN(TestCertificateStore)
#include "tst_certificate_store.moc"
