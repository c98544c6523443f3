// The certificate store with cards, over a SoftHSM2 token: libzorvik-cryptoki's token is
// there only while a Vantrel sits in a reader of the bench's pcscd, and the Certificates tab
// as the user meets it in the real window. Boxes and prompts are answered through the modal
// seam; the assertions are on the tab's labels, its pages and the boxes shown. After each
// case no file the program, the module or the token store wrote holds the PIN or the file
// password.
#include "bench.h"
#include "certificate_storage.h"
#include "certstore_helpers.h"
#include "cryptoki_interface.h"
#include "dashboard_window.h"
#include "modal_seam.h"
#include "softhsm_token.h"
#include "test_credential.h"
#include "test_support.h"
#include "ui_dashboard_window.h"
#include "worker_threads.h"
#include "zorvik_cryptoki.h"

#include <QDirIterator>
#include <QLineEdit>
#include <QMessageBox>
#include <QPointer>
#include <QRandomGenerator>
#include <QTextDocument>
#include <QtTest>

#include <atomic>
#include <memory>
#include <thread>

namespace {

const int kListingTimeout = 30000;
const QString kErrorTitle = "Zorvik Dashboard message";
const QString kPin = "k7Q2x9PINmark";
const QString kFilePassword = "Zq8wFILEpassmark";

QString plain(const QString& html)
{
    QTextDocument doc;
    doc.setHtml(html);
    return doc.toPlainText();
}

TestCredential credential(const QString& cn, int days = 365)
{
    TestCredential::Options o;
    o.commonName = cn;
    if (days < 0)
        o.notBefore = QDateTime::currentDateTimeUtc().addDays(days - 30);
    o.notAfter = QDateTime::currentDateTimeUtc().addDays(days);
    return TestCredential::make(o);
}

// Letters turned by 13 places: how the memory test keeps its PIN without holding it.
char rot13(char c)
{
    const char base = c >= 'a' ? 'a' : 'A';
    return static_cast<char>(base + (c - base + 13) % 26);
}

QByteArray utf16(const QString& s)
{
    return QByteArray(reinterpret_cast<const char*>(s.utf16()), s.size() * 2);
}

} // namespace

class TestCryptokiWithCard : public QObject
{
    Q_OBJECT

    TestHome home;
    Bench bench;
    QTemporaryDir files;
    std::unique_ptr<SoftHsmToken> token;
    std::unique_ptr<DashboardWindow> window;

    const Ui::DashboardWindow* ui() const { return window->form(); }

    // The window on the Certificates tab, the key inserted; returns once the first listing
    // has been answered.
    void openTab(const QStringList& cardOptions = {}, bool waitForAnswer = true)
    {
        window = std::make_unique<DashboardWindow>();
        window->show();
        window->form()->tabs->setCurrentIndex(DashboardWindow::CertificatesTab);
        QVERIFY2(bench.insert(0, cardOptions), qPrintable(bench.errorText()));
        QTRY_VERIFY_WITH_TIMEOUT(window->tokenPresent, 10000);
        if (waitForAnswer)
            waitForListing();
    }

    // A listing was requested: waits for its answer to be shown.
    void waitForListing()
    {
        QTRY_VERIFY_WITH_TIMEOUT(!window->certificateStorage()->working, kListingTimeout);
        QTRY_VERIFY_WITH_TIMEOUT(ui()->stackedWidget->currentIndex() != 1, kListingTimeout);
    }

    // Switching away and back is how the user refreshes the list.
    void revisitTab()
    {
        window->form()->tabs->setCurrentIndex(DashboardWindow::AdvancedTab);
        window->form()->tabs->setCurrentIndex(DashboardWindow::CertificatesTab);
        QCOMPARE(ui()->stackedWidget->currentIndex(), 1);
        waitForListing();
    }

    QLabel* row(const QString& column, int index) const
    {
        return window->findChild<QLabel*>(column + QString::number(index));
    }

    // Index in the current list of the certificate whose subject CN is `cn`, or -1.
    int indexOf(const QString& cn) const
    {
        const auto& list = window->certificateList();
        for (int i = 0; i < list.size(); ++i)
            if (list[i].type == CryptokiStorageItem::Certificate &&
                list[i].certificate.subjectInfo(QSslCertificate::CommonName).value(0) == cn)
                return i;
        return -1;
    }

    // The names shown in the first column, top to bottom.
    QStringList shownNames() const
    {
        QStringList names;
        QLayout* layout = ui()->certNameWidget->layout();
        for (int i = 0; i < layout->count(); ++i)
            if (auto* label = qobject_cast<QLabel*>(layout->itemAt(i)->widget()))
                if (label->objectName().startsWith("certNameLabel"))
                    names << plain(label->text());
        return names;
    }

    // A PKCS#12 file `name`.p12 whose friendly name is `name`.
    QString writeP12(const TestCredential& c, const QString& name, const QString& password = QString())
    {
        const QString path = files.filePath(name + ".p12");
        return c.writePkcs12(path, password, name) ? path : QString();
    }

    // Imports through a link of the tab, with the answers queued for the file password (when
    // given), the PIN (when one is asked) and an error box (when one is expected). The waiting
    // box is shown for real.
    void importFile(const QString& path, const QString& filePassword, const QString& pin, bool expectError,
                    QLabel* link = nullptr)
    {
        ModalSeam::answerFile(path);
        if (!filePassword.isNull())
            ModalSeam::answer(QDialog::Accepted, filePassword);
        if (!pin.isNull()) {
            ModalSeam::answer(QDialog::Accepted, pin);
            ModalSeam::answer(ModalSeam::ShowIt); // "Installing certificate. Please wait"
        }
        if (expectError)
            ModalSeam::answer(QMessageBox::Ok);
        QLabel* target = link ? link : ui()->import_cert;
        emit target->linkActivated("import");
        QTRY_COMPARE_WITH_TIMEOUT(ModalSeam::pending(), 0, kListingTimeout);
        waitForListing();
    }

    // Deletes the entry at `index` through its trash link: confirmation, then the PIN; the
    // list is read again in the end.
    void deleteEntry(int index, const QString& pin, bool expectError)
    {
        QSignalSpy listed(window->certificateStorage(), &CryptokiStorage::certificates);
        ModalSeam::answer(QMessageBox::Ok);
        ModalSeam::answer(QDialog::Accepted, pin);
        if (expectError)
            ModalSeam::answer(QMessageBox::Ok);
        QLabel* trash = row("certRemoveLabel", index);
        QVERIFY(trash);
        emit trash->linkActivated(QString::number(index));
        QTRY_COMPARE_WITH_TIMEOUT(ModalSeam::pending(), 0, kListingTimeout);
        QTRY_VERIFY_WITH_TIMEOUT(!listed.isEmpty(), kListingTimeout);
        waitForListing();
    }

    // The fields of the details dialog the name link of entry `index` opens.
    QMap<QString, QString> detailsOf(int index)
    {
        QMap<QString, QString> values;
        ModalSeam::setObserver([&values](QDialog* dialog) {
            values["title"] = dialog->windowTitle();
            for (QLabel* l : dialog->findChildren<QLabel*>())
                values[l->objectName()] = plain(l->text());
        });
        ModalSeam::answer(QDialog::Accepted);
        window->slotCertificateActivated(QString("cert-details-%1").arg(index));
        ModalSeam::setObserver(nullptr);
        return values;
    }

    QStringList errorBoxes() const
    {
        QStringList texts;
        for (const QString& s : ModalSeam::seen())
            if (s.startsWith(kErrorTitle + "|"))
                texts << s.mid(kErrorTitle.size() + 1);
        return texts;
    }

private slots:
    void initTestCase()
    {
        Q_INIT_RESOURCE(dashboard);
        QVERIFY(home.isValid() && files.isValid());
        home.apply();
        // Every service the window might reach stays on a closed loopback port.
        for (const char* name :
             {"ZORVIK_KEYSERVICE_URL", "ZORVIK_UPDATE_URL", "ZORVIK_CHANGELOG_URL", "ZORVIK_SUPPORT_URL"})
            qputenv(name, "https://127.0.0.1:9/");
        qunsetenv("ZORVIK_CRYPTOKI_CONF");
        QVERIFY2(bench.start(), qPrintable(bench.errorText()));
    }

    // A fresh token; the module tests initialise the module, the window's worker does it itself.
    void init()
    {
        ModalSeam::reset();
        token = std::make_unique<SoftHsmToken>("Vantrel", kPin);
        QVERIFY2(token->isValid(), qPrintable(token->errorText()));
        token->apply(false);
    }

    void cleanup()
    {
        window.reset(); // the module finalises and flushes its lines
        C_Finalize(nullptr);
        ModalSeam::reset();
        QVERIFY2(bench.startPcscd() && bench.removeAll(), qPrintable(bench.errorText()));
        for (const QString& root : {home.path(), token->directory()}) {
            QDirIterator it(root, QDir::Files | QDir::Hidden, QDirIterator::Subdirectories);
            while (it.hasNext()) {
                const QByteArray bytes = readFile(it.next());
                for (const QString& secret : {kPin, kFilePassword})
                    QVERIFY2(!bytes.contains(secret.toUtf8()) && !bytes.contains(utf16(secret)),
                             qPrintable(secret + " found in " + it.filePath()));
            }
        }
    }

    void moduleTokenFollowsTheVantrel()
    {
        QCOMPARE(C_Initialize(nullptr), CKR_OK);
        ZorvikPublicTokenData* data = nullptr;
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
        QCOMPARE(C_GetPublicTokenData(0, &data), CKR_TOKEN_NOT_RECOGNIZED);
        QVERIFY2(bench.insert(0), qPrintable(bench.errorText()));
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
        QCOMPARE(C_GetPublicTokenData(0, &data), CKR_OK);
        QVERIFY(bench.remove(0));
        QCOMPARE(C_GetPublicTokenData(0, &data), CKR_TOKEN_NOT_RECOGNIZED);
        // A card that is no Vantrel does not count; any reader does, the virtual one included.
        QVERIFY(bench.insert(1, {"--not-vantrel"}));
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
        QVERIFY(bench.insert(2));
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
        // The smart-card service goes and comes back with the key still in its reader.
        QVERIFY(bench.stopPcscd());
        QCOMPARE(C_GetAvailableTokensCount(), CK_ULONG(0));
        QCOMPARE(C_GetPublicTokenData(0, &data), CKR_TOKEN_NOT_RECOGNIZED);
        QVERIFY(bench.startPcscd());
        QTRY_COMPARE(C_GetAvailableTokensCount(), CK_ULONG(1));
    }

    void moduleRemovalEndsSessions()
    {
        QCOMPARE(C_Initialize(nullptr), CKR_OK);
        QVERIFY(bench.insert(0));
        CK_SESSION_HANDLE s = 0;
        QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &s), CKR_OK);
        QByteArray pin = kPin.toLatin1();
        QCOMPARE(C_Login(s, CKU_USER, reinterpret_cast<CK_UTF8CHAR_PTR>(pin.data()), pin.size()), CKR_OK);
        CK_SESSION_INFO info{};
        QVERIFY(bench.remove(0));
        // The module may reuse its last look for a moment; the session ends all the same.
        CK_RV first = CKR_OK;
        QTRY_VERIFY((first = first == CKR_OK ? C_GetSessionInfo(s, &info) : first) != CKR_OK);
        QCOMPARE(first, CKR_DEVICE_REMOVED);
        QCOMPARE(C_GetSessionInfo(s, &info), CKR_SESSION_HANDLE_INVALID);
        // Back in: a new session starts logged out.
        QVERIFY(bench.insert(0));
        QCOMPARE(C_OpenSession(1, CKF_SERIAL_SESSION, nullptr, nullptr, &s), CKR_OK);
        QCOMPARE(C_GetSessionInfo(s, &info), CKR_OK);
        QCOMPARE(info.state, CK_STATE(CKS_RO_PUBLIC_SESSION));
    }

    void moduleSlotEvents()
    {
        QCOMPARE(C_Initialize(nullptr), CKR_OK);
        CK_SLOT_ID slot = 0;
        while (C_WaitForSlotEvent(CKF_DONT_BLOCK, &slot, nullptr) == CKR_OK) {
        }
        QVERIFY(bench.insert(0));
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
        QVERIFY(bench.remove(0));
        QTRY_VERIFY_WITH_TIMEOUT(done.load(), 10000);
        waiter.join();
        QCOMPARE(waited.load(), CKR_OK);
    }

    // The key is active, but the module is configured for a token the backend does not hold:
    // the listing waits its 20 seconds, then gives up. The window quitting stops that wait
    // at once instead of letting its thread go.
    void listingModuleNeverSeesTheToken()
    {
        QTemporaryFile conf;
        QVERIFY(conf.open() && conf.write("token-label = Some other token\n") > 0 && conf.flush());
        qputenv("ZORVIK_CRYPTOKI_CONF", conf.fileName().toLocal8Bit());
        const auto restoreConf = qScopeGuard([] { qunsetenv("ZORVIK_CRYPTOKI_CONF"); });
        QVERIFY(bench.insert(0));
        QVariantList cannot;
        QElapsedTimer timer;
        timer.start();
        {
            CryptokiInterface ci;
            connect(&ci, &CryptokiInterface::cannotGetCertificates, this, [&](int code, int status) { cannot = {code, status}; });
            ci.slotGetCertificates();
        }
        QVERIFY(timer.elapsed() >= 19000);
        QCOMPARE(cannot, QVariantList({2, 7}));

        const int listings = home.readLog().count("Cryptoki interface: get certificates");
        auto* storage = new CryptokiStorage;
        emit storage->getCertificates();
        QTRY_COMPARE(home.readLog().count("Cryptoki interface: get certificates"), listings + 1);
        const bool stopped = WorkerThreads::stop(storage, QDeadlineTimer(5000));
        QVERIFY2(stopped, "the listing's wait for the token outlived the quit");
        delete storage;
    }

    // Quitting can let a busy worker go and a new interface start meanwhile: the module stays
    // initialised until the last of them ends.
    void moduleOutlivesAnEndedInterface()
    {
        QVERIFY(bench.insert(0));
        auto older = std::make_unique<CryptokiInterface>();
        CryptokiInterface newer;
        older.reset();
        QVariantList cannot;
        connect(&newer, &CryptokiInterface::cannotGetCertificates, this, [&](int code, int status) { cannot = {code, status}; });
        newer.slotGetCertificates();
        QCOMPARE(cannot, QVariantList({4, 0})); // the fresh token is there, and empty
    }

    // Certificates only by default; key pairs and empty containers with the Advanced check
    // box; expiry colours; the details dialogs opened from the name links.
    void listingAndDetails()
    {
        TestCredential::Options o;
        o.commonName = "Alice Listed";
        o.emails = QStringList{"alice@example.org", "a.listed@example.org"};
        o.dnsNames = QStringList{"alice.example.org"};
        o.extKeyUsages = QStringList{"clientAuth", "emailProtection"};
        const TestCredential alice = TestCredential::make(o);
        QVERIFY(!token->load(alice, "alice label").isEmpty());
        QVERIFY(!token->load(credential("Soon Expiring", 14), "soon label").isEmpty());
        QVERIFY(!token->load(credential("Long Expired", -3), "old label").isEmpty());
        QVERIFY(!token->load(credential("  "), "labelled only").isEmpty()); // a blank common name
        QString out; // a key pair without certificate
        QCOMPARE(token->pkcs11Tool({"--login", "--pin", kPin, "--keypairgen", "--key-type", "rsa:2048", "--id", "ee01",
                                    "--label", "lonely pair"}, &out, false), 0);
        openTab();
        QCOMPARE(ui()->stackedWidget->currentIndex(), 2);
        QCOMPARE(shownNames().size(), 4);
        QVERIFY(shownNames().contains("labelled only")); // no CN: the label
        QVERIFY(shownNames().contains("Invalid Certificate")); // the expired one
        const int a = indexOf("Alice Listed"), s = indexOf("Soon Expiring"), old = indexOf("Long Expired");
        QVERIFY(a >= 0 && s >= 0 && old >= 0);
        // Links carry the index in the whole list, key pairs included.
        QCOMPARE(plain(row("issuedByLabel", a)->text()), QString("Alice Listed"));
        QCOMPARE(plain(row("expireDateLabel", a)->text()),
                 QSslCertificate(alice.certificateDer(), QSsl::Der).expiryDate().toString("dd-MMM-yyyy"));
        QVERIFY(!row("expireDateLabel", a)->text().contains("#bb0000"));
        QVERIFY(row("expireDateLabel", s)->text().contains("color: #bb0000"));
        QVERIFY(plain(row("expireDateLabel", s)->text()) != "EXPIRED");
        QCOMPARE(plain(row("expireDateLabel", old)->text()), QString("EXPIRED"));

        QMap<QString, QString> values = detailsOf(a);
        QCOMPARE(values["title"], QString("Certificate Details"));
        QCOMPARE(values["ownerCNLabel"], QString("Alice Listed"));
        QCOMPARE(values["pkcs11Label"], QString("alice label"));
        QCOMPARE(values["pkcs11IDLabel"], QString(alice.moduleId().toHex(':').toUpper()));
        QCOMPARE(values["SANLabel"], QString("alice@example.org;a.listed@example.org;alice.example.org"));
        QCOMPARE(values["EKU_label"], QString("TLS Web Client Authentication;E-mail Protection"));
        values = detailsOf(old);
        QCOMPARE(values["typeLabel"], QString("X509 Certificate [Invalid]"));
        QCOMPARE(values["EKU_label"], QString("Invalid certificate")); // none

        // Everything, once the Advanced tab's check box is on.
        ui()->showAllPKCSCheckBox->setChecked(true);
        revisitTab();
        QCOMPARE(ui()->stackedWidget->currentIndex(), 2);
        const auto& list = window->certificateList();
        QCOMPARE(shownNames().size(), list.size());
        int pairs = 0, lonely = -1;
        for (int i = 0; i < list.size(); ++i) {
            if (list[i].type == CryptokiStorageItem::RsaKeyPair) {
                ++pairs;
                QCOMPARE(plain(row("issuedByLabel", i)->text()), QString("RSA Keypair (2048 bit)"));
                QVERIFY(row("certNameLabel", i)->text().contains(QString("cert-details-%1\"").arg(i)));
            } else if (list[i].type == CryptokiStorageItem::Empty) {
                QCOMPARE(plain(row("certNameLabel", i)->text()), QString("Empty container"));
            }
            if (list[i].label == "lonely pair")
                lonely = i;
        }
        QCOMPARE(pairs, 5); // four with their certificate, one alone
        values = detailsOf(lonely);
        QCOMPARE(values["title"], QString("RSA Keypair Details"));
        QCOMPARE(values["pkcs11IDLabel"], QString("EE:01"));
        QCOMPARE(values["exponentLabel"], QString("01:00:01"));
        ui()->showAllPKCSCheckBox->setChecked(false);
    }

    // A key without objects offers the import; PKCS#12 files with and without password go
    // onto the key; bad files and keys end in the texts the user can act on.
    void importFromTheTab()
    {
        openTab();
        QCOMPARE(ui()->stackedWidget->currentIndex(), 0);
        QVERIFY(ui()->labelCryptokiStatus->text().contains("<a href='import'>"));
        // Without password, started from the link of the empty key's page.
        importFile(writeP12(credential("Imported Plain"), "plain"), QString(), kPin, false, ui()->labelCryptokiStatus);
        QCOMPARE(ui()->stackedWidget->currentIndex(), 2);
        QCOMPARE(shownNames(), QStringList{"Imported Plain"});
        QCOMPARE(window->certificateList().at(indexOf("Imported Plain")).label, QString("plain"));
        QVERIFY(!ModalSeam::seen().join('\n').contains("Password request"));
        // With password.
        ModalSeam::reset();
        importFile(writeP12(credential("Imported Locked"), "locked", kFilePassword), kFilePassword, kPin, false);
        QVERIFY(errorBoxes().isEmpty());
        QCOMPARE(shownNames().size(), 2);
        // A wrong file password: no PIN asked, nothing written.
        ModalSeam::reset();
        const QString otherPath = writeP12(credential("Never Imported"), "other", "right");
        importFile(otherPath, "wrong", QString(), true);
        QCOMPARE(errorBoxes(), QStringList{QString("Error reading file %1\nWrong password").arg(otherPath)});
        QVERIFY(!ModalSeam::seen().join('\n').contains("Zorvik PIN Request"));
        // An EC key: refused after the PIN, the waiting box gone before the error.
        ModalSeam::reset();
        TestCredential::Options ec;
        ec.kind = TestCredential::Ec;
        importFile(writeP12(TestCredential::make(ec), "ec"), QString(), kPin, true);
        QCOMPARE(errorBoxes(), QStringList{QString("Incorrect key type = %1").arg(EVP_PKEY_EC)});
        const QStringList seen = ModalSeam::seen();
        QVERIFY(seen.indexOf("Zorvik Dashboard|Installing certificate. Please wait") <
                seen.indexOf(kErrorTitle + "|" + errorBoxes().value(0)));
        // After all of that, still the two imported ones.
        revisitTab();
        QCOMPARE(shownNames().size(), 2);
    }

    // Deleting: the right PIN removes the entry; a wrong PIN shows the module's text; an
    // empty PIN is refused before the key is asked, and the list is read again.
    void deleteFromTheTab()
    {
        QVERIFY(!token->load(credential("Keep Me"), "keep").isEmpty());
        QVERIFY(!token->load(credential("Delete Me"), "delete").isEmpty());
        openTab();
        QCOMPARE(shownNames().size(), 2);
        deleteEntry(indexOf("Delete Me"), kPin + "x", true);
        QVERIFY(ModalSeam::seen().value(0).contains("Are you sure you want to delete:\nDelete Me\n"));
        QCOMPARE(errorBoxes(), QStringList{"Incorrect PIN"});
        QCOMPARE(shownNames().size(), 2);
        // An empty PIN: "Incorrect password", then a fresh listing.
        ModalSeam::reset();
        const int removals = countLines(home.readLog(), "CryptokiInterface::removeCertificate");
        deleteEntry(indexOf("Delete Me"), QString(), true);
        QCOMPARE(errorBoxes(), QStringList{"Incorrect password"});
        QCOMPARE(shownNames().size(), 2);
        QCOMPARE(countLines(home.readLog(), "CryptokiInterface::removeCertificate"), removals);
        // Cancelling the confirmation leaves everything alone.
        ModalSeam::reset();
        ModalSeam::answer(QMessageBox::Cancel);
        emit row("certRemoveLabel", indexOf("Delete Me"))->linkActivated(QString::number(indexOf("Delete Me")));
        QCOMPARE(ModalSeam::seen().size(), 1);
        QVERIFY(!window->certificateStorage()->working);
        // The right PIN.
        ModalSeam::reset();
        deleteEntry(indexOf("Delete Me"), kPin, false);
        QVERIFY(errorBoxes().isEmpty());
        QTRY_COMPARE_WITH_TIMEOUT(shownNames(), QStringList{"Keep Me"}, kListingTimeout);
    }

    // Pulling the key while a box of a deletion or an import is open closes it as cancelled.
    void keyPulledWhileBoxOpen_data()
    {
        QTest::addColumn<bool>("import");
        QTest::addColumn<QString>("dialogTitle");
        QTest::newRow("delete confirmation") << false << "Confirm certificate deletion";
        QTest::newRow("delete PIN prompt") << false << "Zorvik PIN Request";
        QTest::newRow("import PIN prompt") << true << "Zorvik PIN Request";
    }

    void keyPulledWhileBoxOpen()
    {
        QFETCH(bool, import);
        QFETCH(QString, dialogTitle);
        QVERIFY(!token->load(credential("Pull Me"), "pull").isEmpty());
        openTab();
        QCOMPARE(shownNames().size(), 1);
        bool closedByRemoval = false, stayedOpen = false;
        QString pulledError;
        ModalSeam::setObserver([&](QDialog* dialog) {
            if (dialog->windowTitle() != dialogTitle)
                return;
            // Once the box runs: pull the key; the window's presence polling notices.
            QTimer::singleShot(0, dialog, [&] {
                if (!bench.remove(0))
                    pulledError = bench.errorText();
            });
            QTimer::singleShot(20000, dialog, [&, dialog] { // a failure ends the test, not hangs it
                stayedOpen = true;
                dialog->reject();
            });
            connect(window.get(), &DashboardWindow::noToken, dialog, [&] { closedByRemoval = true; });
        });
        if (!import && dialogTitle == "Zorvik PIN Request")
            ModalSeam::answer(QMessageBox::Ok);
        ModalSeam::answer(ModalSeam::ShowIt);
        QSignalSpy noToken(window.get(), &DashboardWindow::noToken);
        const int removals = countLines(home.readLog(), "CryptokiInterface::removeCertificate");
        const int imports = countLines(home.readLog(), "Cryptoki interface: importCertificateAndKeys");
        if (import) {
            ModalSeam::answerFile(writeP12(credential("Not Today"), "pulled"));
            window->slotAddCertificate();
        } else {
            window->slotCertificateDelete("0");
        }
        QVERIFY2(pulledError.isEmpty(), qPrintable(pulledError));
        QVERIFY(closedByRemoval && !stayedOpen);
        QCOMPARE(noToken.count(), 1);
        QVERIFY(!window->tokenPresent);
        QCOMPARE(countLines(home.readLog(), "CryptokiInterface::removeCertificate"), removals);
        QCOMPARE(countLines(home.readLog(), "Cryptoki interface: importCertificateAndKeys"), imports);
        QTRY_VERIFY_WITH_TIMEOUT(!window->certificateStorage()->working, kListingTimeout);
        QCOMPARE(ui()->stackedWidget->currentIndex(), 0);
        QVERIFY(errorBoxes().isEmpty());
    }

    // The key goes while the list is being read: the tab ends on page 0, not on stale rows.
    void keyPulledDuringListing()
    {
        QVERIFY(!token->load(credential("Slow Key Cert"), "slow").isEmpty());
        // Each answer of the key held back, so the listing is still at the key when it goes.
        openTab({"--delay", "400"}, false);
        QTRY_COMPARE_WITH_TIMEOUT(ui()->stackedWidget->currentIndex(), 1, 10000);
        QVERIFY(window->certificateStorage()->working);
        QVERIFY(bench.remove(0));
        QTRY_VERIFY_WITH_TIMEOUT(!window->tokenPresent, 10000);
        QTRY_VERIFY_WITH_TIMEOUT(!window->certificateStorage()->working, 60000);
        QTRY_COMPARE_WITH_TIMEOUT(ui()->stackedWidget->currentIndex(), 0, 10000);
        QVERIFY(ui()->labelCryptokiStatus->text().contains("Connect your Vantrel") ||
                ui()->labelCryptokiStatus->text() == "Please present Vantrel to access the available security certificates.");
        QVERIFY(errorBoxes().isEmpty());
    }

    // A blank key: the listing stops at its status.
    void keyThatIsNotActive()
    {
        QVERIFY(!token->load(credential("Unreachable"), "x").isEmpty());
        openTab({"--status", "4"});
        QCOMPARE(ui()->stackedWidget->currentIndex(), 0);
        QCOMPARE(ui()->labelCryptokiStatus->text(), QString("Blank Zorvik Vantrel. Connect your Vantrel"));
        QVERIFY(window->findChildren<QLabel*>(QRegularExpression("^certNameLabel\\d+$")).isEmpty());
    }

    // Files exported by the openssl tool, the way other programs export them: the certificate
    // bag encrypted with RC2-40 (what OpenSSL 1.x and many browsers write), and a password
    // outside Latin-1.
    void importFromOtherTools_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("password");
        QTest::newRow("RC2-40 certificate bag") << QStringList{"-legacy"} << kFilePassword;
        QTest::newRow("password outside Latin-1") << QStringList() << QString::fromUtf8("пароль€");
    }

    void importFromOtherTools()
    {
        QFETCH(QStringList, options);
        QFETCH(QString, password);
        openTab();
        const QString base = files.filePath("other-tool");
        QVERIFY(credential("From Another Tool").writePem(base + ".crt", base + ".key"));
        QVERIFY(writeFile(base + ".pass", password.toUtf8() + "\n"));
        const auto r = runTool("openssl", QStringList{"pkcs12", "-export", "-in", base + ".crt", "-inkey", base + ".key",
                                                         "-name", "other-tool", "-out", base + ".p12", "-passout",
                                                         "file:" + base + ".pass"} + options);
        QVERIFY2(r.first == 0, qPrintable(r.second));
        // An error box is recorded and closed, so a refusal fails the comparison below.
        ModalSeam::setObserver([](QDialog* dialog) {
            if (dialog->windowTitle() == kErrorTitle)
                QTimer::singleShot(0, dialog, &QDialog::reject);
        });
        importFile(base + ".p12", password, kPin, false);
        QCOMPARE(errorBoxes(), QStringList());
        QCOMPARE(shownNames(), QStringList{"From Another Tool"});
        QCOMPARE(window->certificateList().value(0).label, QString("other-tool"));
    }

    // The key pulled and put back while a certificate's details are open: the list is read
    // again under the open dialog, and the row whose link opened it outlives its handler.
    void keyReinsertedWhileDetailsOpen()
    {
        QVERIFY(!token->load(credential("Details Open"), "details").isEmpty());
        openTab();
        QCOMPARE(shownNames(), QStringList{"Details Open"});
        QPointer<QLabel> link = row("certNameLabel", 0);
        QVERIFY(link);
        QSignalSpy listings(window->certificateStorage(), &CryptokiStorage::certificates);
        QString failure;
        bool relisted = false;
        ModalSeam::answer(ModalSeam::ShowIt);
        ModalSeam::setObserver([&](QDialog* dialog) {
            // Driven from the dialog's own event loop, as the user would meet it.
            auto* poll = new QTimer(dialog);
            connect(poll, &QTimer::timeout, dialog, [&, dialog, step = 0]() mutable {
                if (step == 0) {
                    if (!bench.remove(0))
                        failure = bench.errorText();
                    step = 1;
                } else if (step == 1 && !window->tokenPresent) {
                    if (!bench.insert(0))
                        failure = bench.errorText();
                    step = 2;
                } else if (step == 2 && listings.count() > 0 && row("certNameLabel", 0)) {
                    relisted = row("certNameLabel", 0) != link.data();
                    dialog->accept();
                }
                if (!failure.isEmpty())
                    dialog->reject();
            });
            poll->start(50);
            QTimer::singleShot(40000, dialog, &QDialog::reject); // a failure ends the test, not hangs it
        });
        // A real click on the link, so the label's own text handling is on the stack.
        QTest::mouseClick(link, Qt::LeftButton, Qt::NoModifier, QPoint(4, link->height() / 2));
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
        QVERIFY(ModalSeam::seen().contains("Certificate Details|"));
        QVERIFY(relisted);
        QVERIFY(link); // not deleted under its own handler...
        QTRY_VERIFY(!link); // ...but once the event loop is back
        QCOMPARE(shownNames(), QStringList{"Details Open"});
        QCOMPARE(ui()->stackedWidget->currentIndex(), 2);
    }

    // After an import, a core dump of the running program holds the PIN (or half of it) nowhere,
    // as UTF-8 or UTF-16: the prompt, the queued request and the worker have all wiped it. This
    // test never holds the PIN whole: it keeps it turned by rot13, a shell spells it out for the
    // token, and the keys typed into the prompt are turned back one at a time.
    void noPinInMemoryAfterImport()
    {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
        // gcore reads the sanitizer's shadow memory too: tens of GB of core file and of
        // resident memory, until the kernel's OOM killer ends the test.
        QSKIP("a core dump of a sanitizer build is the size of its shadow memory");
#endif
        QByteArray masked;
        for (int i = 0; i < 24; ++i)
            masked += char((i % 2 ? 'a' : 'A') + QRandomGenerator::global()->bounded(26));
        const QString changePin = "pkcs11-tool --module \"$1\" --login --pin \"$2\" --change-pin "
                                  "--new-pin \"$(printf %s \"$3\" | tr A-Za-z N-ZA-Mn-za-m)\"";
        const auto changed = runTool("sh", {"-c", changePin, "sh", SoftHsmToken::backendPath(), kPin, masked},
                                        token->environment(false));
        QVERIFY2(changed.first == 0, qPrintable(changed.second));
        openTab();
        ModalSeam::answerFile(writeP12(credential("Core Scan"), "core-scan"));
        ModalSeam::answer(ModalSeam::ShowIt); // the PIN prompt
        ModalSeam::answer(ModalSeam::ShowIt); // "Installing certificate. Please wait"
        ModalSeam::setObserver([&](QDialog* dialog) {
            if (dialog->windowTitle() != "Zorvik PIN Request")
                return;
            QTimer::singleShot(0, dialog, [&, dialog] {
                auto* edit = dialog->findChild<QLineEdit*>();
                for (const char c : qAsConst(masked))
                    QTest::keyClick(edit, rot13(c));
                dialog->accept();
            });
        });
        // The dump is taken the moment the import is done, once the worker has let go of the
        // request and before the next listing stirs the heap.
        const QString core = files.filePath("dashboard-core");
        QString dumpError = "no dump taken";
        QObject dumpContext;
        connect(window->certificateStorage(), &CryptokiStorage::importFinished, &dumpContext, [&] {
            QObject idle;
            idle.moveToThread(window->certificateStorage());
            QMetaObject::invokeMethod(&idle, [] {}, Qt::BlockingQueuedConnection);
            const auto r = runTool("gcore", {"-o", core, QString::number(QCoreApplication::applicationPid())});
            dumpError = r.first == 0 ? QString() : r.second;
        });
        emit ui()->import_cert->linkActivated("import");
        QTRY_COMPARE_WITH_TIMEOUT(ModalSeam::pending(), 0, kListingTimeout);
        waitForListing();
        QCOMPARE(errorBoxes(), QStringList());
        QCOMPARE(shownNames(), QStringList{"Core Scan"}); // the PIN was right
        QVERIFY2(dumpError.isEmpty(), qPrintable(dumpError));

        QFile dump(core + "." + QString::number(QCoreApplication::applicationPid()));
        QVERIFY2(dump.open(QIODevice::ReadOnly), qPrintable(dump.errorString()));
        const uchar* mapped = dump.map(0, dump.size()); // mapped, not read: a core is large
        QVERIFY(mapped);
        const QByteArray bytes = QByteArray::fromRawData(reinterpret_cast<const char*>(mapped), int(dump.size()));
        QString pin;
        for (const char c : qAsConst(masked))
            pin += QChar(rot13(c));
        // Half of it is as good as all of it to someone reading memory.
        const QString half = pin.left(pin.size() / 2);
        const bool found = bytes.contains(half.toUtf8()) || bytes.contains(utf16(half));
        QVERIFY(bytes.contains(masked)); // the dump does hold this process's memory
        dump.remove();
        QVERIFY2(!found, "the PIN is still in the program's memory");
    }
};

QTEST_MAIN(TestCryptokiWithCard)
#include "tst_cryptoki_with_card.moc"
