// The main window driven through its slots and widgets, without a smart-card service: the
// presence polling is stopped right after start-up so each case sets the key state itself.
#include "certificate_storage.h"
#include "dashboard_token_info.h"
#include "dashboard_window.h"
#include "modal_seam.h"
#include "test_credential.h"
#include "test_support.h"
#include "ui_dashboard_window.h"
#include "zorvik_proxy.h"

#include <QMessageBox>
#include <QNetworkProxy>
#include <QSslCertificate>
#include <QSystemTrayIcon>
#include <QtTest>

#include <memory>

class TestWindow : public QObject
{
    Q_OBJECT

    TestHome home;
    std::unique_ptr<DashboardWindow> window;

    Ui::DashboardWindow* ui() const { return window->form(); }

private slots:
    void initTestCase()
    {
        Q_INIT_RESOURCE(dashboard);
        home.apply();
        // No smart-card service for these cases.
        qputenv("PCSCLITE_CSOCK_NAME", QFile::encodeName(home.path() + "/no-pcscd.comm"));
    }

    void init()
    {
        ModalSeam::reset();
        ModalSeam::answer(QMessageBox::Cancel); // the service-error box of the first polling round
        window = std::make_unique<DashboardWindow>();
        QTRY_VERIFY(window->scardError);
        window->tokenInfo()->exit();
        window->tokenInfo()->wait();
        window->SCardInterfaceNoError();
        window->show();
        ModalSeam::reset();
    }

    void cleanup() { window.reset(); }

    // The tray with a note (the plain states are seen on the bench): the "-update" icons, and
    // the restart note that reuses the update icon.
    void trayNotes_data()
    {
        QTest::addColumn<QString>("state");
        QTest::addColumn<QString>("note");
        QTest::addColumn<QString>("icon");
        QTest::addColumn<QString>("tip");
        const QString update = "\nNew version of Zorvik Dashboard is available for download.";
        QTest::newRow("error+update") << "error"
                                      << "update"
                                      << ":/Icons/images/tokenicon-red-update.png"
                                      << "Zorvik: SmartCard service error" + update;
        QTest::newRow("nothing+update") << "nothing"
                                        << "update"
                                        << ":/Icons/images/tokenicon-bw-update.png"
                                        << "Zorvik: No token found" + update;
        QTest::newRow("key+restart") << "key"
                                     << "restart"
                                     << ":/Icons/images/tokenicon-update.png"
                                     << "Zorvik: Key available\nRestart is required";
    }
    void trayNotes()
    {
        QFETCH(QString, state);
        QFETCH(QString, note);
        QFETCH(QString, icon);
        QFETCH(QString, tip);
        window->updateAvailable = note == "update";
        window->restartRequested = note == "restart";
        window->scardError = state == "error";
        if (state == "key")
            window->tokenFound();
        if (note == "restart") // the product name is applied to the note although it has no place for it
            QTest::ignoreMessage(QtWarningMsg, "QString::arg: Argument missing: Restart is required, Zorvik Dashboard");
        window->updateTrayIcon();
        QCOMPARE(window->trayIconName(), icon);
        QCOMPARE(window->trayIcon()->toolTip(), tip);
        QVERIFY(!QIcon(icon).pixmap(16, 16).isNull());
    }

    void keyStateActsOnChangesOnly()
    {
        QSignalSpy noToken(window.get(), &DashboardWindow::noToken);
        ui()->tabs->setCurrentIndex(DashboardWindow::CertificatesTab);
        window->tokenFound();
        QVERIFY(window->tokenPresent);
        for (int i = 0; i < 3; ++i)
            window->tokenNotFound();
        QCOMPARE(noToken.count(), 1);
        QCOMPARE(ui()->stackedWidget->currentIndex(), 0);
        QCOMPARE(ui()->label_info->text(), QString("No Key present."));
        window->readersFound({"R1", "R2"});
        window->readersFound({"R3"});
        QCOMPARE(window->readerName, QString("R1"));
        QCOMPARE(noToken.count(), 2);
    }

    // The box and its one-time showing are seen on the bench; here the key state it leaves.
    void serviceErrorClearsTheKeyQuietly()
    {
        ModalSeam::answer(QMessageBox::Cancel);
        window->tokenFound();
        window->slotCannotGetCertificates(3, 161);
        QSignalSpy noToken(window.get(), &DashboardWindow::noToken);
        window->SCardInterfaceError();
        QVERIFY(!window->tokenPresent);
        // The no-key steps run without the no-key hint and without noToken().
        QCOMPARE(ui()->labelCryptokiStatus->text(), QString("Incorrect PIN."));
        QCOMPARE(noToken.count(), 0);
        // Told again while in the error state: no second box (answered, were there one).
        ModalSeam::answer(QMessageBox::Cancel);
        window->SCardInterfaceError();
        QCOMPARE(ModalSeam::seen().size(), 1);
        window->SCardInterfaceNoError();
        QCOMPARE(window->trayIconName(), QString(":/Icons/images/tokenicon-bw.png"));
        QCOMPARE(window->trayIcon()->toolTip(), QString("Zorvik: No token found"));
    }

    // A mapped status, the default branches of each code, the vendor status that is negative
    // as an int, and the import link ("Incorrect PIN." is seen above).
    void cannotGetCertificatesTexts_data()
    {
        QTest::addColumn<int>("code");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("text");
        QTest::newRow("1/2") << 1 << 2 << "Key is not initialized. Connect your Vantrel";
        QTest::newRow("1/7 unmapped") << 1 << 7 << "Unknown cryptoki error 1";
        QTest::newRow("3/vendor1") << 3 << int(0x80000001u) << "Key was disabled by user.";
        QTest::newRow("3/other") << 3 << 48 << "Please present Vantrel to access the available security certificates.";
        QTest::newRow("4") << 4 << 0
                           << "<b>No certificates on your keyset.</b><br/><br/><br/><a href='import'>Click here to "
                              "import a certificate.</a>";
        QTest::newRow("9") << 9 << 0 << "Unknown cryptoki error 9";
    }
    void cannotGetCertificatesTexts()
    {
        QFETCH(int, code);
        QFETCH(int, status);
        QFETCH(QString, text);
        ui()->stackedWidget->setCurrentIndex(1);
        window->slotCannotGetCertificates(code, status);
        QCOMPARE(ui()->stackedWidget->currentIndex(), 0);
        QCOMPARE(ui()->labelCryptokiStatus->text(), text);
    }

    // The listing itself is seen with a real token on the certificates tab; here the trash
    // link, which must name the row's index in the whole list.
    void trashLinkCarriesTheIndex()
    {
        CryptokiStorageItem pair, cert;
        pair.type = CryptokiStorageItem::RsaKeyPair;
        cert.type = CryptokiStorageItem::Certificate;
        cert.certificate = QSslCertificate(TestCredential::make("Alice Example").certificateDer(), QSsl::Der);
        window->tokenFound();
        ui()->showAllPKCSCheckBox->setChecked(false);
        window->certificateInfo({pair, cert});
        QVERIFY(!window->findChild<QLabel*>("certRemoveLabel0"));
        QCOMPARE(window->findChild<QLabel*>("certRemoveLabel1")->text(),
                 QString("<a href='1'><img src=':/Icons/images/small-trash.png'/></a>"));
    }

    // A key-service answer that arrives after the key was pulled leaves the cleared labels alone.
    void lateKeyServiceAnswerIgnored()
    {
        window->tokenFound();
        window->tokenNotFound();
        window->tokenStatusWorker().keyTitle = "Office";
        window->tokenStatusWorker().keyType = "Vantrel";
        window->infoKSReady();
        QCOMPARE(ui()->label_title->text(), QString());
        QCOMPARE(ui()->label_type->text(), QString());
    }

    // The tabs, and what is not reachable: hidden widgets (no empty frame left behind), the
    // smartphone front end (opening it lands on the Certificates tab).
    void removedTabAndHiddenWidgets()
    {
        QCOMPARE(ui()->tabs->count(), 4);
        QCOMPARE(ui()->tabs->tabText(DashboardWindow::AdvancedTab), QString("Advanced"));
        for (QWidget* hidden : std::initializer_list<QWidget*>{
                 ui()->groupBox_2, ui()->label_2, ui()->PSWcomboBox, ui()->proxyImportIEButton, ui()->groupBox_3,
                 ui()->groupBox_debug, ui()->qvradius_icon, ui()->sharepoint_help, ui()->pairingGroup})
            QVERIFY2(hidden->isHidden(), qPrintable(hidden->objectName()));
        for (QObject* child : window->findChildren<QObject*>())
            QVERIFY(!child->inherits("SmartphoneTokenManager"));
        window->slotOpenSmartphoneToken();
        QCOMPARE(ui()->tabs->currentIndex(), int(DashboardWindow::CertificatesTab));
    }

    void proxyWrittenFromAdvancedTab()
    {
        ui()->tabs->setCurrentIndex(DashboardWindow::AdvancedTab);
        QApplication::setActiveWindow(window.get());
        QVERIFY(QTest::qWaitForWindowActive(window.get()));
        QTest::mouseClick(ui()->useProxyCheckBox, Qt::LeftButton, {}, QPoint(8, 8));
        QVERIFY(ui()->useProxyCheckBox->isChecked() && ui()->proxyAddressLineEdit->isEnabled());
        ui()->proxyAddressLineEdit->setFocus();
        QTest::keyClicks(ui()->proxyAddressLineEdit, "127.0.0.1");
        QTest::keyClick(ui()->proxyAddressLineEdit, Qt::Key_Tab);
        QTest::keyClicks(ui()->proxyPortLineEdit, "3128");
        QTest::keyClick(ui()->proxyPortLineEdit, Qt::Key_Tab);
        char* stored = nullptr;
        unsigned int enabled = 0;
        QCOMPARE(zorvikpc_get_proxy(1, &stored, &enabled), 0);
        QCOMPARE(QString::fromLatin1(stored), QString("127.0.0.1:3128"));
        QCOMPARE(enabled, 1u);
        free(stored);
        QCOMPARE(QNetworkProxy::applicationProxy().type(), QNetworkProxy::HttpProxy);
        QCOMPARE(QNetworkProxy::applicationProxy().port(), quint16(3128));

        ui()->useProxyCheckBox->setChecked(false);
        QVERIFY(!ui()->proxyAddressLineEdit->isEnabled());
        QCOMPARE(QNetworkProxy::applicationProxy().type(), QNetworkProxy::NoProxy);
        // Host and port stay stored while the proxy is off.
        window->slotRefresh();
        QCOMPARE(ui()->proxyAddressLineEdit->text(), QString("127.0.0.1"));
        QCOMPARE(ui()->proxyPortLineEdit->text(), QString("3128"));
        QVERIFY(!ui()->useProxyCheckBox->isChecked());
    }
};

QTEST_MAIN(TestWindow)
#include "test_window.moc"
